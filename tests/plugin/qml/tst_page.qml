import QtQuick 2.15
import QtQuick.Window 2.15
import QtTest 1.15
import "qrc:/applications/AppWorkplace/gui/panels"

// The tool's maintenance page, as it lies in the library, filled in and opened as a host does it.
Item {
    id: screen
    width: 640
    height: 480

    TestCase {
        name: "Page"
        when: windowShown

        readonly property string root: "maintenance_panel_tool_zrt"
        property Item page

        function init() {
            bench.watchMessages()
            bench.setRecord("ZRT-0042", "2027-03-01", 14)
            page = open("left bench", "{a-tool}")
            bench.takeCalls()
        }
        function cleanup() {
            bench.closePage()
            compare(bench.takeWarnings(), [])
        }

        function open(name, id) {
            const opened = bench.openPage(screen, name, id)
            verify(opened)
            verify(waitForRendering(opened))
            return opened
        }
        function reopen() {
            bench.closePage()
            bench.takeCalls()
            page = open("left bench", "{a-tool}")
        }
        function part(suffix) {
            const found = findChild(page, root + ".idColumn" + suffix)
            verify(found, suffix)
            return found
        }
        function serialNumber() {
            return part(".idValueSetSerialNumber")
        }
        function validity() {
            return part(".idValueSetValidityDate")
        }
        function alert() {
            return part(".idExpirationInDays")
        }
        // As an array; the engine's own list is none.
        function childrenOf(item) {
            return Array.from(item.children)
        }
        // The first item of a kind among an item's offspring.
        function inner(item, kind) {
            for (const child of childrenOf(item)) {
                if (bench.className(child).startsWith(kind))
                    return child
                const found = inner(child, kind)
                if (found)
                    return found
            }
            return null
        }
        function calls() {
            return bench.takeCalls().map(call => call.length === 1 ? call[0] : call)
        }

        function test_imports() {
            const imports = bench.pageSource().split("\n").filter(line => line.startsWith("import"))
            compare(imports, [
                "import QtQuick 2.15",
                "import PlgLibToolZrt 1.0",
                "import \"../../../applications/AppWorkplace/gui/panels\"",
                "import \"../../../applications/AppWorkplace/gui/widgets\""
            ])
        }

        function test_tree() {
            verify(page instanceof BasePanelMaintenance)
            compare(page.objectName, root)
            const column = page.contentItem
            compare(bench.className(column), "QQuickColumn")
            compare(column.objectName, root + ".idColumn")
            compare(childrenOf(column).map(child => child.objectName),
                    [".idValueSetSerialNumber", ".idValueSetValidityDate", ".idExpirationInDays"].map(
                        suffix => root + ".idColumn" + suffix))
            compare(childrenOf(column).map(child => bench.className(child).replace(/_QMLTYPE_.*/, "")),
                    ["UiTextField", "UiValidityDateSelector", "UiSpinBox"])
        }

        function test_headFollowsBackend() {
            const be = bench.backendOfPage()
            compare(bench.className(be).replace(/_QML.*/, ""), "BeMaintenanceToolZrt")
            compare([be.name, be.objectId, page.name, page.connected], ["left bench", "{a-tool}", "left bench", false])
            be.name = "right bench"
            bench.setConnected(true)
            compare([page.name, page.connected], ["right bench", true])
        }

        function test_names_data() {
            return [
                {tag: "script", name: "\"; Qt.quit(); //"},
                {tag: "backslash", name: "a\\"},
                {tag: "line break", name: "a\nb\r\u2028c"},
                {tag: "emoji", name: "bench \u{1f529}"},
                {tag: "placeholder", name: "{OBJECT_ID}"},
                {tag: "rich text", name: "<img src='qrc:/none.png'>"},
                {tag: "empty", name: ""}
            ]
        }
        function test_names(data) {
            bench.closePage()
            page = open(data.name, data.name)
            compare(bench.backendOfPage().name, data.name)
            compare(page.name, data.name)
        }

        function values() {
            return [serialNumber().text, validity().date, alert().value]
        }

        function test_valuesFollowBackend() {
            compare(values(), ["ZRT-0042", "2027-03-01", 14])
            const be = bench.backendOfPage()
            be.setSerialNumber("another")
            be.setValidityDate(new Date(2028, 1, 29), false)
            be.setDaysBeforeExpiration(3)
            compare(values(), ["another", "2028-02-29", 3])
        }

        function test_titles() {
            compare([serialNumber().title, validity().title, alert().title, alert().suffix],
                    ["Serial number", "Validity date", "Alert before expiration", "days"])
        }

        function test_textIds() {
            const pattern = /\/\/% "(.*)"\n\s*\w+: qsTrId\("(.*)"\)\n/g
            const source = bench.pageSource()
            const pairs = []
            for (let match = pattern.exec(source); match; match = pattern.exec(source))
                pairs.push([match[2], match[1]])
            compare(pairs, [
                ["maintenance_panel_Serial_number", "Serial number"],
                ["maintenance_panel_Validity_date", "Validity date"],
                ["maintenance_panel_Alert_before_expiration", "Alert before expiration"],
                ["maintenance_panel_days", "days"]
            ])
        }

        function test_typeSerialNumber() {
            const field = inner(serialNumber(), "TextField")
            mouseClick(field)
            verify(field.activeFocus)
            keyClick(Qt.Key_End)
            keyClick("7")
            compare(bench.record().serialNumber, "ZRT-00427")
            compare(calls(), ["setConfigChanged"])
            keyClick(Qt.Key_Backspace)
            keyClick(Qt.Key_Backspace)
            compare(bench.record().serialNumber, "ZRT-004")
            compare(calls(), ["setConfigChanged", "setConfigChanged"])
            compare(field.text, "ZRT-004")
            // What is typed does not undo the binding.
            bench.backendOfPage().setSerialNumber("new")
            compare(field.text, "new")
        }

        // Keyboard and mouse step alike. The step is that of the value before it.
        function test_stepAlert_data() {
            return [
                {tag: "0 down", from: 0, key: Qt.Key_Down, to: 0},
                {tag: "0 up", from: 0, key: Qt.Key_Up, to: 1},
                {tag: "5 up", from: 5, key: Qt.Key_Up, to: 6},
                {tag: "6 up", from: 6, key: Qt.Key_Up, to: 7},
                {tag: "6 down", from: 6, key: Qt.Key_Down, to: 5},
                {tag: "7 up", from: 7, key: Qt.Key_Up, to: 14},
                {tag: "7 down", from: 7, key: Qt.Key_Down, to: 0},
                {tag: "13 down", from: 13, key: Qt.Key_Down, to: 6},
                {tag: "364 up", from: 364, key: Qt.Key_Up, to: 365},
                {tag: "365 up", from: 365, key: Qt.Key_Up, to: 365},
                {tag: "365 down", from: 365, key: Qt.Key_Down, to: 358}
            ]
        }
        function test_stepAlert(data) {
            const isSame = data.from === data.to
            for (const withMouse of [false, true]) {
                bench.setRecord("", "", data.from)
                reopen()
                const box = inner(alert(), "SpinBox")
                compare(box.value, data.from)
                if (withMouse) {
                    mouseClick(data.key === Qt.Key_Up ? box.up.indicator : box.down.indicator)
                } else {
                    box.forceActiveFocus()
                    keyClick(data.key)
                }
                compare(alert().value, data.to)
                compare(bench.record().alertDays, data.to)
                compare(calls(), isSame ? [] : ["setConfigChanged"])
            }
        }

        function test_alertStepsFollowRecord() {
            const box = inner(alert(), "SpinBox")
            box.forceActiveFocus()
            keyClick(Qt.Key_Up)
            compare(box.value, 21)
            bench.backendOfPage().setDaysBeforeExpiration(2)
            compare(box.value, 2)
            keyClick(Qt.Key_Up)
            compare(bench.record().alertDays, 3)
        }

        function test_chooseDay() {
            mouseClick(inner(validity(), "UiButton"))
            const calendar = findChild(screen.Window.contentItem, "calendar")
            tryCompare(calendar, "activeFocus", true)
            mouseClick(findChild(calendar, "day17"))
            compare(bench.record().validityDate, "2027-03-17")
            compare(validity().date, "2027-03-17")
            compare(calls(), ["setConfigChanged"])
        }

        function test_dates_data() {
            return [
                {tag: "leap day", date: new Date(2028, 1, 29), stored: "2028-02-29"},
                {tag: "before 1970", date: new Date(1969, 11, 31, 12), stored: "1969-12-31"},
                {tag: "midnight", date: new Date(2027, 0, 1, 0, 0), stored: "2027-01-01"},
                {tag: "last minute", date: new Date(2027, 0, 1, 23, 59), stored: "2027-01-01"},
                {tag: "year 9999", date: new Date(9999, 11, 31), stored: "9999-12-31"},
                {tag: "year 10000", date: new Date(10000, 0, 1), stored: ""},
                {tag: "none", date: new Date(NaN), stored: ""}
            ]
        }
        // As the page calls it: a script's date becomes the backend's.
        function test_dates(data) {
            validity().selectionDone(data.date, false)
            compare(bench.record().validityDate, data.stored)
            compare(bench.record().isNull, data.stored === "")
            validity().selectionDone(data.date, true)
            compare(bench.record().validityDate, "")
            compare(bench.record().isNull, false)
        }

        function test_serialNumbers() {
            for (const text of [" a\u0000b\u0007\tc\nd \u{1f529} ", ""]) {
                serialNumber().sigTextChanged(text)
                compare(bench.record().serialNumber, text)
                compare(bench.backendOfPage().getModifiedParameters(), {serialNumber: text})
            }
        }

        SignalSpy {
            id: treatments
            signalName: "sigTreatmentQueued"
        }
        function test_updateData() {
            bench.addChannel("lamp", "readLamp")
            bench.setConnected(true)
            treatments.target = bench.backendOfPage()
            page.updateData()
            compare(treatments.count, 1)
            compare(Array.from(treatments.signalArguments[0]), [0, "readLamp", {channel: "lamp"}])
        }

        function test_closeWithoutEdits() {
            bench.closePage()
            compare(calls(), [["updatePluginParameters", "{a-tool}", {}], "saveMaintenanceToFile"])
            page = open("left bench", "{a-tool}")
            compare(calls(), [])
        }

        function test_closeAfterEdits() {
            serialNumber().sigTextChanged("a")
            validity().selectionDone(new Date(2027, 4, 1), false)
            const box = inner(alert(), "SpinBox")
            box.forceActiveFocus()
            keyClick(Qt.Key_Up)
            compare(calls(), ["setConfigChanged", "setConfigChanged", "setConfigChanged"])
            bench.closePage()
            compare(calls(), [
                ["updatePluginParameters", "{a-tool}",
                 {serialNumber: "a", validityDate: "2027-05-01", alertBeforeExpiration: 21}],
                "saveMaintenanceToFile"
            ])
        }

        function test_recordNever() {
            bench.removeRecord()
            reopen()
            compare(values(), ["", "", 0])
            serialNumber().sigTextChanged("lost")
            const errors = bench.takeWarnings()
            bench.watchMessages()
            compare(errors.length, 1)
            verify(errors[0].endsWith("ERROR: Failure to get element pointer"))
            bench.closePage()
            compare(calls(), ["setConfigChanged", ["updatePluginParameters", "{a-tool}", {}], "saveMaintenanceToFile"])
        }

        function test_recordLate() {
            bench.removeRecord()
            reopen()
            bench.setRecord("late", "2030-01-01", 5)
            bench.attachRecord()
            // Whoever looks at one value makes the page look at all of them.
            compare(bench.backendOfPage().serialNumber, "late")
            compare(values(), ["late", "2030-01-01", 5])
        }

        function test_bindingLoopsAreInherent() {
            reopen()
            verify(bench.bindingLoops() > 0)
        }

        function test_sourceTreePage() {
            bench.closePage()
            page = bench.openSourcePage(screen)
            verify(page)
            compare(bench.backendOfPage().name, "{OBJECT_NAME}")
            compare(bench.backendOfPage().objectId, "{OBJECT_ID}")
        }

        // The components of another host have what a page needs and nothing else.
        function test_otherHost() {
            bench.closePage()
            page = bench.openElsewhere(screen)
            verify(page)
            page.width = 300
            const column = page.contentItem
            compare(column.objectName, root + ".idColumn")
            compare(column.width, 300)
            compare(column.spacing, 11)
            compare(childrenOf(column).map(child => child.width), [300, 300, 300])
            compare(values(), ["ZRT-0042", "2027-03-01", 14])
            // Nothing is left to what a host's components begin with.
            compare([serialNumber().horizontalAlignment, serialNumber().verticalAlignment],
                    [Text.AlignHCenter, Text.AlignVCenter])
            compare([alert().decimals, alert().from, alert().to, alert().editable, alert().visible],
                    [0, 0, 365, false, true])
            bench.takeCalls()
            serialNumber().sigTextChanged("a")
            validity().selectionDone(new Date(2027, 4, 1), false)
            alert().value = 9
            alert().valueModified()
            bench.closePage()
            compare(calls(), ["setConfigChanged", "setConfigChanged", "setConfigChanged",
                ["updatePluginParameters", "{OBJECT_ID}",
                 {serialNumber: "a", validityDate: "2027-05-01", alertBeforeExpiration: 9}],
                "saveMaintenanceToFile"])
        }
    }
}
