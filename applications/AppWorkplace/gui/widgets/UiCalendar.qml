import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15
import QtQuick.Layouts 1.15
import "days.js" as Days

// A month to pick a day from. With the keyboard: arrows move by days and weeks, page up and down by months (with
// shift by years), home and end to the ends of the month, return picks.
FocusScope {
    id: root

    // Where the keyboard stands; its month is shown.
    property date current: new Date()
    // The day that is marked as chosen; NaN for none.
    property date selected: Days.none

    readonly property int shownYear: current.getFullYear()
    readonly property int shownMonth: current.getMonth()
    // How many days of the month before stand in the first week.
    readonly property int lead: (Days.noon(shownYear, shownMonth, 1).getDay() - Qt.locale().firstDayOfWeek + 7) % 7

    signal picked(date pickedDay)

    Accessible.role: Accessible.Table
    Accessible.name: current.toLocaleDateString(Qt.locale(), Locale.LongFormat)

    function show(day) {
        if (Days.exists(day))
            current = Days.noon(day.getFullYear(), day.getMonth(), day.getDate())
    }
    function moveDays(count) {
        show(Days.noon(shownYear, shownMonth, current.getDate() + count))
    }
    // From the 31st to a month with fewer days goes to its last.
    function moveMonths(count) {
        const lastDay = Days.noon(shownYear, shownMonth + count + 1, 0).getDate()
        show(Days.noon(shownYear, shownMonth + count, Math.min(current.getDate(), lastDay)))
    }

    Keys.onPressed: function(event) {
        const months = event.modifiers & Qt.ShiftModifier ? 12 : 1
        switch (event.key) {
        case Qt.Key_Left: moveDays(-1); break
        case Qt.Key_Right: moveDays(1); break
        case Qt.Key_Up: moveDays(-7); break
        case Qt.Key_Down: moveDays(7); break
        case Qt.Key_PageUp: moveMonths(-months); break
        case Qt.Key_PageDown: moveMonths(months); break
        case Qt.Key_Home: show(Days.noon(shownYear, shownMonth, 1)); break
        case Qt.Key_End: show(Days.noon(shownYear, shownMonth + 1, 0)); break
        case Qt.Key_Return:
        case Qt.Key_Enter:
        case Qt.Key_Space:
            // A key that is held down has opened the calendar; it shall not pick as well.
            if (!event.isAutoRepeat)
                picked(current)
            break
        default: return
        }
        event.accepted = true
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        RowLayout {
            Layout.fillWidth: true
            spacing: 0

            Repeater {
                model: [
                    {text: "«", name: "previous year", months: -12},
                    {text: "‹", name: "previous month", months: -1}
                ]
                delegate: stepButton
            }
            Label {
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                font.pixelSize: 18
                text: Qt.locale().standaloneMonthName(root.shownMonth) + " " + root.shownYear
            }
            Repeater {
                model: [
                    {text: "›", name: "next month", months: 1},
                    {text: "»", name: "next year", months: 12}
                ]
                delegate: stepButton
            }
        }

        GridLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            columns: 7
            columnSpacing: 0
            rowSpacing: 0

            Repeater {
                model: 7
                Label {
                    Layout.fillWidth: true
                    Layout.preferredWidth: 1
                    horizontalAlignment: Text.AlignHCenter
                    color: Material.secondaryTextColor
                    text: Qt.locale().standaloneDayName((index + Qt.locale().firstDayOfWeek) % 7, Locale.ShortFormat)
                }
            }
            Repeater {
                model: 42
                AbstractButton {
                    id: cell

                    readonly property date day: Days.noon(root.shownYear, root.shownMonth, 1 - root.lead + index)
                    readonly property bool isSelected: Days.isSame(day, root.selected)
                    // The calendar may go before its cells, and its focus with it.
                    readonly property bool isCurrent: root && root.activeFocus && Days.isSame(day, root.current)
                    readonly property bool isOfMonth: day.getMonth() === root.shownMonth

                    objectName: isOfMonth ? "day" + day.getDate() : ""
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    Layout.preferredWidth: 1
                    Layout.preferredHeight: 1
                    focusPolicy: Qt.NoFocus
                    enabled: Days.exists(day)
                    Accessible.name: day.toLocaleDateString(Qt.locale(), Locale.LongFormat)
                    Accessible.selected: isSelected
                    onClicked: root.picked(day)

                    background: Rectangle {
                        readonly property real side: Math.min(parent.width, parent.height) - 2
                        anchors.centerIn: parent
                        width: side
                        height: side
                        radius: side / 2
                        color: cell.isSelected ? Material.accent
                                               : cell.down ? Material.listHighlightColor : "transparent"
                        border.width: cell.isCurrent ? 2 : 0
                        border.color: cell.isSelected ? Material.foreground : Material.accent
                    }
                    contentItem: Label {
                        horizontalAlignment: Text.AlignHCenter
                        verticalAlignment: Text.AlignVCenter
                        text: cell.day.getDate()
                        font.bold: Days.isSame(cell.day, new Date())
                        color: cell.isSelected ? Material.background
                                               : cell.isOfMonth ? Material.foreground : Material.secondaryTextColor
                    }
                }
            }
        }
    }

    Component {
        id: stepButton

        ToolButton {
            text: modelData.text
            font.pixelSize: 20
            focusPolicy: Qt.NoFocus
            objectName: modelData.name
            Accessible.name: modelData.name
            onClicked: root.moveMonths(modelData.months)
        }
    }
}
