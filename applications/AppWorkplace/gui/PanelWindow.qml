import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15
import QtQuick.Layouts 1.15
import "widgets"

// The window of a maintenance page. `panel` is the MaintenancePanel behind it, which puts the page into `place`.
ApplicationWindow {
    id: root

    property bool dark: false
    readonly property alias place: place

    width: 1280
    height: 800
    minimumWidth: 320
    minimumHeight: 240
    title: panel.tool + " – maintenance"
    Material.theme: dark ? Material.Dark : Material.Light
    Material.primary: Material.BlueGrey
    Material.accent: Material.Teal

    onActiveFocusItemChanged: {
        for (let item = activeFocusItem; item; item = item.parent) {
            if (item === place)
                scroller.reveal(activeFocusItem)
        }
    }

    // An item, so that a picture of the items shows it too.
    background: Rectangle {
        color: root.color
    }

    onClosing: function(close) {
        close.accepted = panel.close()
    }

    header: ToolBar {
        Material.elevation: 0

        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 16

            Label {
                Layout.fillWidth: true
                text: "Maintenance"
                font.pixelSize: 20
            }
            UiButton {
                objectName: "close"
                text: "Close"
                Material.foreground: Material.toolTextColor
                onClicked: root.close()
            }
        }
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        Banner {
            objectName: "alert"
            text: panel.alert
            color: panel.isUrgent ? Material.color(Material.Red, Material.Shade700) : Material.color(Material.Amber)
            textColor: panel.isUrgent ? "white" : "black"
        }
        Banner {
            objectName: "problem"
            text: panel.problem
            color: Material.color(Material.Red, Material.Shade700)
            actions: panel.mayDiscard ? discard : null
        }

        Flickable {
            id: scroller
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            contentHeight: place.height + 2 * place.y
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar {
                policy: scroller.contentHeight > scroller.height ? ScrollBar.AlwaysOn : ScrollBar.AlwaysOff
            }

            // What the keyboard goes to is seen.
            function reveal(item) {
                const top = item.mapToItem(place, 0, 0).y
                contentY = Math.max(Math.min(contentY, top), top + item.height + 2 * place.y - height)
            }

            Item {
                id: place
                anchors.horizontalCenter: parent.horizontalCenter
                y: 16
                width: Math.min(parent.width - 48, 640)
                height: childrenRect.height
            }
        }

        Label {
            objectName: "state"
            Layout.margins: 12
            Layout.alignment: Qt.AlignHCenter
            color: Material.secondaryTextColor
            text: panel.mayDiscard ? "Your changes are not saved."
                                   : "Your changes are saved when you close the page."
            visible: application.isConfigChanged
        }
    }

    Component {
        id: discard

        UiButton {
            objectName: "discard"
            text: "Close without saving"
            Material.foreground: "white"
            onClicked: panel.discard()
        }
    }

    component Banner: Rectangle {
        property alias text: message.text
        property alias textColor: message.color
        property alias actions: actionLoader.sourceComponent

        Layout.fillWidth: true
        implicitHeight: content.implicitHeight + 16
        visible: text !== ""

        RowLayout {
            id: content
            anchors.fill: parent
            anchors.margins: 8
            anchors.leftMargin: 16

            Label {
                id: message
                Layout.fillWidth: true
                textFormat: Text.PlainText
                wrapMode: Text.Wrap
                color: "white"
                font.pixelSize: 16
                Accessible.role: Accessible.AlertMessage
            }
            Loader {
                id: actionLoader
            }
        }
    }
}
