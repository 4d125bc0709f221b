import QtQuick 2.15
import QtQuick.Window 2.15
import QtTest 1.15
import "qrc:/applications/AppWorkplace/gui/widgets/days.js" as Days

// The components that the workplace lends to maintenance pages, one by one.
Item {
    id: screen
    width: 640
    height: 480

    Component {
        id: keyEater
        Item {
            property var eaten: []
            Keys.onPressed: eaten = eaten.concat([event.key])
        }
    }
    SignalSpy {
        id: spy
    }

    TestCase {
        name: "Widgets"
        when: windowShown

        property var made: []

        function init() {
            bench.watchMessages()
        }
        // What an object has to say when it goes counts too.
        function cleanup() {
            for (const item of made)
                item.destroy()
            made = []
            wait(0)
            compare(bench.takeWarnings(), [])
        }

        function make(name, properties, around = screen) {
            const folder = name.startsWith("Ui") ? "widgets/" : "panels/"
            const component = Qt.createComponent("qrc:/applications/AppWorkplace/gui/" + folder + name + ".qml")
            const item = component.createObject(around, Object.assign({width: 400}, properties))
            made.push(item)
            verify(waitForRendering(item))
            return item
        }
        function makeCalendar(year, month, day) {
            return make("UiCalendar", {height: 400, current: Days.noon(year, month, day)})
        }
        function listen(item, signalName) {
            spy.target = item
            spy.signalName = signalName
            spy.clear()
        }
        function inner(item, kind) {
            for (const child of Array.from(item.children)) {
                const found = bench.className(child).startsWith(kind) ? child : inner(child, kind)
                if (found)
                    return found
            }
            return null
        }
        function heard() {
            return Array.from(spy.signalArguments).map(list => Array.from(list))
        }

        function test_textField() {
            const item = make("UiTextField", {title: "Name", text: "a"})
            const field = inner(item, "TextField")
            compare(field.Accessible.name, "Name")
            listen(item, "sigTextChanged")
            item.text = "set by somebody else"
            compare(spy.count, 0)
            mouseClick(field)
            keyClick(Qt.Key_A, Qt.ControlModifier)
            keyClick("x")
            keyClick("Y", Qt.ShiftModifier)
            compare(heard(), [["x"], ["xY"]])
            compare(item.text, "xY")
        }

        // A number that is copied from the screen must not be the end of a longer one.
        function test_textFieldShowsBeginning() {
            const text = "0123456789".repeat(10)
            const item = make("UiTextField", {width: 200, text: text, horizontalAlignment: Text.AlignHCenter})
            const field = inner(item, "TextField")
            compare(field.cursorPosition, 0)
            verify(field.positionToRectangle(0).x >= 0)
            field.forceActiveFocus()
            keyClick(Qt.Key_End)
            compare(field.cursorPosition, 100)
            screen.forceActiveFocus()
            compare(field.cursorPosition, 0)
            item.text = "9876543210".repeat(10)
            compare(field.cursorPosition, 0)
        }

        function test_textFieldAlignment() {
            const alignment = {horizontalAlignment: Text.AlignRight, verticalAlignment: Text.AlignBottom}
            const field = inner(make("UiTextField", alignment), "TextField")
            compare(field.horizontalAlignment, Text.AlignRight)
            compare(field.verticalAlignment, Text.AlignBottom)
        }

        function test_spinBoxText_data() {
            return [
                {tag: "plain", properties: {value: 7}, text: "7"},
                {tag: "nothing", properties: {suffix: "days"}, text: "0 days"},
                {tag: "suffix", properties: {value: 7, suffix: "days"}, text: "7 days"},
                {tag: "decimals", properties: {value: 150, to: 1000, decimals: 2}, text: "1.50"},
                {tag: "both", properties: {value: -5, from: -10, decimals: 1, suffix: "Nm"}, text: "-0.5 Nm"}
            ]
        }
        function test_spinBoxText(data) {
            const box = inner(make("UiSpinBox", data.properties), "SpinBox")
            compare(box.displayText, data.text)
        }

        function test_spinBoxSteps() {
            const item = make("UiSpinBox", {title: "Torque", value: 100, from: 0, to: 110, stepSize: 5, decimals: 2})
            const box = inner(item, "SpinBox")
            compare(box.Accessible.name, "Torque")
            listen(item, "valueModified")
            mouseClick(box.up.indicator)
            compare(item.value, 105)
            box.forceActiveFocus()
            keyClick(Qt.Key_Up)
            keyClick(Qt.Key_Up)
            compare(item.value, 110)
            compare(spy.count, 2)
            item.value = 3
            compare(spy.count, 2)
        }

        function test_spinBoxTyping_data() {
            return [
                {tag: "number", typed: "12.5", value: 1250},
                {tag: "number and suffix", typed: "12.5 Nm", value: 1250},
                {tag: "beyond", typed: "99999", value: 2000},
                {tag: "no number", typed: "abc", value: 100},
                {tag: "nothing", typed: "", value: 100},
                {tag: "not editable", typed: "12.5", value: 100, isFixed: true}
            ]
        }
        function test_spinBoxTyping(data) {
            const item = make("UiSpinBox", {value: 100, to: 2000, decimals: 2, suffix: "Nm", editable: !data.isFixed})
            const box = inner(item, "SpinBox")
            mouseClick(box.contentItem)
            keyClick(Qt.Key_A, Qt.ControlModifier)
            keyClick(Qt.Key_Delete)
            for (const letter of data.typed)
                keyClick(letter)
            keyClick(Qt.Key_Return)
            compare(item.value, data.value)
        }

        function test_calendarKeys_data() {
            const row = (tag, begin, key, day) => ({tag: tag, begin: begin, key: key, day: day})
            return [
                row("left", [2027, 2, 1], Qt.Key_Left, "2027-02-28"),
                row("right", [2027, 2, 1], Qt.Key_Right, "2027-03-02"),
                row("up", [2027, 2, 1], Qt.Key_Up, "2027-02-22"),
                row("down", [2027, 2, 1], Qt.Key_Down, "2027-03-08"),
                row("page up", [2027, 2, 1], Qt.Key_PageUp, "2027-02-01"),
                row("page down", [2027, 2, 1], Qt.Key_PageDown, "2027-04-01"),
                row("year back", [2027, 2, 1], Qt.ShiftModifier + Qt.Key_PageUp, "2026-03-01"),
                row("year on", [2027, 2, 1], Qt.ShiftModifier + Qt.Key_PageDown, "2028-03-01"),
                row("end", [2027, 2, 1], Qt.Key_End, "2027-03-31"),
                row("home", [2027, 2, 31], Qt.Key_Home, "2027-03-01"),
                row("to a shorter month", [2027, 2, 31], Qt.Key_PageUp, "2027-02-28"),
                row("to a leap day", [2028, 2, 1], Qt.Key_Left, "2028-02-29"),
                row("to the first day", [1, 0, 2], Qt.Key_Left, "0001-01-01"),
                row("to the last day", [9999, 11, 30], Qt.Key_Right, "9999-12-31"),
                row("no day before the first", [1, 0, 1], Qt.Key_Left, "0001-01-01"),
                row("no month before the first", [1, 0, 20], Qt.Key_PageUp, "0001-01-20"),
                row("no day behind the last", [9999, 11, 31], Qt.Key_Right, "9999-12-31"),
                row("no month behind the last", [9999, 11, 1], Qt.Key_PageDown, "9999-12-01")
            ]
        }
        function test_calendarKeys(data) {
            const item = makeCalendar(...data.begin)
            item.forceActiveFocus()
            listen(item, "picked")
            keyClick(data.key & ~Qt.ShiftModifier, data.key & Qt.ShiftModifier)
            compare(spy.count, 0)
            // Who cannot see it hears where the keyboard stands.
            compare(item.Accessible.name, item.current.toLocaleDateString(Qt.locale(), Locale.LongFormat))
            keyClick(Qt.Key_Return)
            compare(heard().map(([day]) => bench.isoDate(day)), [data.day])
        }

        // What the calendar has a use for is not for whoever is around it.
        function test_calendarKeepsItsKeys() {
            const around = keyEater.createObject(screen)
            const item = make("UiCalendar", {}, around)
            item.forceActiveFocus()
            for (const key of [Qt.Key_Left, Qt.Key_PageDown, Qt.Key_Home, Qt.Key_Return])
                keyClick(key)
            compare(around.eaten, [])
            keyClick(Qt.Key_A)
            compare(around.eaten, [Qt.Key_A])
            around.destroy()
        }

        function test_calendarButtons_data() {
            return [
                {tag: "year back", name: "previous year", day: "2026-03-31"},
                {tag: "month back", name: "previous month", day: "2027-02-28"},
                {tag: "month on", name: "next month", day: "2027-04-30"},
                {tag: "year on", name: "next year", day: "2028-03-31"}
            ]
        }
        function test_calendarButtons(data) {
            const item = makeCalendar(2027, 2, 31)
            mouseClick(findChild(item, data.name))
            compare(bench.isoDate(item.current), data.day)
        }

        // Each month stands under the right names of days, whole, with its neighbours around it.
        function test_calendarMonths_data() {
            return [
                {tag: "begins with the week", month: [2027, 1]},
                {tag: "ends with the week", month: [2027, 0]},
                {tag: "leap", month: [2028, 1]},
                {tag: "before 1970", month: [1969, 11]},
                {tag: "year 99", month: [99, 5]},
                {tag: "summer time begins in Chile", month: [2027, 8]}
            ]
        }
        function test_calendarMonths(data) {
            const [year, month] = data.month
            const item = makeCalendar(year, month, 15)
            const days = Days.noon(year, month + 1, 0).getDate()
            const firstDayOfWeek = Qt.locale().firstDayOfWeek
            for (let day = 1; day <= days; ++day) {
                const cell = findChild(item, "day" + day)
                compare(bench.isoDate(cell.day), bench.isoDate(Days.noon(year, month, day)))
                const column = (cell.day.getDay() - firstDayOfWeek + 7) % 7
                compare(Math.round(cell.x / (item.width / 7)), column)
            }
            verify(!findChild(item, "day" + (days + 1)))
        }

        function inWords(...day) {
            return Days.noon(...day).toLocaleDateString(Qt.locale(), Locale.LongFormat)
        }

        function test_selectorText_data() {
            return [
                {tag: "permanent", date: "", text: "permanent"},
                {tag: "a day", date: "2027-03-01", text: inWords(2027, 2, 1)},
                {tag: "no such day", date: "2027-02-29", text: "2027-02-29"},
                {tag: "no such month", date: "2027-13-01", text: "2027-13-01"},
                {tag: "another way to write it", date: "01.03.2027", text: "01.03.2027"},
                {tag: "year 0", date: "0000-01-01", text: "0000-01-01"},
                {tag: "rich text", date: "<b>soon</b>", text: "<b>soon</b>"}
            ]
        }
        function test_selectorText(data) {
            const item = make("UiValidityDateSelector", {title: "Until", date: data.date})
            const button = inner(item, "UiButton")
            compare(button.text, data.text)
            compare(button.Accessible.name, "Until: " + data.text)
        }

        function open(item) {
            mouseClick(inner(item, "UiButton"))
            const opened = findChild(screen.Window.contentItem, "calendar")
            tryCompare(opened, "activeFocus", true)
            return opened
        }

        function test_selectorOpensAtItsDay() {
            const opened = open(make("UiValidityDateSelector", {date: "2031-05-06"}))
            compare([bench.isoDate(opened.current), bench.isoDate(opened.selected)], ["2031-05-06", "2031-05-06"])
        }

        function test_selectorOpensToday_data() {
            return [{tag: "permanent", date: ""}, {tag: "no day", date: "soon"}]
        }
        function test_selectorOpensToday(data) {
            const before = bench.isoDate(new Date())
            const shown = bench.isoDate(open(make("UiValidityDateSelector", {date: data.date})).current)
            verify(shown === before || shown === bench.isoDate(new Date()))
        }

        function test_selectorKeyboard_data() {
            return [{tag: "space", key: Qt.Key_Space}, {tag: "return", key: Qt.Key_Return},
                    {tag: "enter", key: Qt.Key_Enter}]
        }
        function test_selectorKeyboard(data) {
            const item = make("UiValidityDateSelector", {date: "2027-03-01"})
            listen(item, "selectionDone")
            const button = inner(item, "UiButton")
            button.forceActiveFocus()
            keyClick(data.key)
            tryCompare(findChild(screen.Window.contentItem, "calendar"), "activeFocus", true)
            keyClick(Qt.Key_Right)
            keyClick(data.key)
            compare(heard().map(([day, permanent]) => [bench.isoDate(day), permanent]), [["2027-03-02", false]])
            tryCompare(button, "activeFocus", true)
        }

        function test_selectorPermanentByKeyboard() {
            const item = make("UiValidityDateSelector", {date: "2027-03-01"})
            listen(item, "selectionDone")
            open(item)
            keyClick(Qt.Key_Tab)
            keyClick(Qt.Key_Return)
            compare(spy.count, 1)
            compare(heard()[0][1], true)
        }

        function test_selectorCancel_data() {
            return [{tag: "button"}, {tag: "escape"}, {tag: "outside"}]
        }
        function test_selectorCancel(data) {
            const item = make("UiValidityDateSelector", {date: "2027-03-01"})
            listen(item, "selectionDone")
            const opened = open(item)
            if (data.tag === "button")
                mouseClick(findChild(screen.Window.contentItem, "cancel"))
            else if (data.tag === "escape")
                keyClick(Qt.Key_Escape)
            else
                mouseClick(screen, 2, 2)
            tryCompare(inner(item, "UiButton"), "activeFocus", true)
            verify(!opened.visible)
            compare(spy.count, 0)
        }

        function test_panelAsksForUpdates() {
            const item = make("BasePanelMaintenance", {connected: false})
            const updates = findChild(item, "updates")
            verify(!updates.running)
            item.connected = true
            compare(updates.interval, 1000)
            listen(item, "updateData")
            spy.wait(30000)
            item.visible = false
            verify(!updates.running)
        }

        function test_panelShowsContent() {
            const item = make("BasePanelMaintenance", {spacing: 10})
            const inside = Qt.createQmlObject("import QtQuick 2.15\nItem { implicitHeight: 100 }", item)
            item.contentItem = inside
            compare(inside.parent, item)
            tryCompare(inside, "width", 400)
            verify(inside.y > 0)
            compare(item.implicitHeight, inside.y + 100)
        }
    }
}
