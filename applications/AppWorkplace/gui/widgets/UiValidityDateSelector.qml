import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15
import QtQuick.Layouts 1.15
import "days.js" as Days

// Until when something is valid: a day, or permanently. `date` is the day as year-month-day with dashes; empty is
// permanent, and what is neither is shown as it stands.
ColumnLayout {
    id: root

    property string title
    property string date

    readonly property bool isPermanent: date === ""
    readonly property date day: Days.parse(date)

    // The operator has chosen a day, or that there is none.
    signal selectionDone(date selectedDate, bool isPermanent)

    function done(selectedDate, permanent) {
        popup.close()
        root.selectionDone(selectedDate, permanent)
    }

    spacing: 0

    UiTitle {
        Layout.fillWidth: true
        text: root.title
    }
    UiButton {
        id: button
        Layout.fillWidth: true
        leftPadding: 40
        rightPadding: 40
        font.pixelSize: 18
        text: {
            if (root.isPermanent)
                return "permanent"
            return isNaN(root.day) ? root.date : root.day.toLocaleDateString(Qt.locale(), Locale.LongFormat)
        }
        Accessible.name: root.title + ": " + text
        onClicked: popup.open()

        // It opens: the line of a field below, the sign of a list beside.
        Rectangle {
            anchors.bottom: parent.bottom
            width: parent.width
            height: button.activeFocus ? 2 : 1
            color: button.activeFocus ? Material.accent : Material.secondaryTextColor
        }
        Label {
            anchors.right: parent.right
            anchors.rightMargin: 12
            anchors.verticalCenter: parent.verticalCenter
            text: "▾"
            font.pixelSize: 24
            Accessible.ignored: true
        }
    }

    Popup {
        id: popup
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(400, parent ? parent.width - 8 : 400)
        height: Math.min(432, parent ? parent.height - 8 : 432)
        padding: 8
        modal: true
        Material.elevation: 0
        onAboutToShow: calendar.active = true
        onOpened: {
            calendar.item.show(isNaN(root.day) ? new Date() : root.day)
            calendar.item.forceActiveFocus()
        }
        onClosed: button.forceActiveFocus()

        ColumnLayout {
            anchors.fill: parent
            spacing: 0

            // The days of a month are more than all the rest of a page, so they are made when they are first
            // looked at.
            Loader {
                id: calendar
                Layout.fillWidth: true
                Layout.fillHeight: true
                active: false
                sourceComponent: UiCalendar {
                    objectName: "calendar"
                    selected: root.day
                    onPicked: function(pickedDay) { root.done(pickedDay, false) }
                }
            }
            RowLayout {
                Layout.fillWidth: true

                UiButton {
                    objectName: "permanent"
                    text: "Permanent"
                    highlighted: root.isPermanent
                    onClicked: root.done(Days.none, true)
                }
                Item {
                    Layout.fillWidth: true
                }
                UiButton {
                    objectName: "cancel"
                    text: "Cancel"
                    onClicked: popup.close()
                }
            }
        }
    }
}
