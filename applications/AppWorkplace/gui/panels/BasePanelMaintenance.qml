import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15
import QtQuick.Layouts 1.15

// The root of a maintenance page: says which tool this is and whether it can be reached, above the page's content.
// While it can be reached, updateData() is emitted once a second.
Control {
    id: root

    property string name
    property bool connected: false

    signal updateData()

    spacing: 20
    topPadding: head.height + spacing

    RowLayout {
        id: head
        width: root.width
        spacing: root.spacing

        Label {
            Layout.fillWidth: true
            text: root.name
            textFormat: Text.PlainText
            elide: Text.ElideRight
            maximumLineCount: 1
            font.pixelSize: 24
        }
        Rectangle {
            Layout.preferredWidth: 12
            Layout.preferredHeight: 12
            radius: 6
            color: root.connected ? Material.color(Material.Green) : "transparent"
            border.color: root.connected ? color : Material.secondaryTextColor
        }
        Label {
            text: root.connected ? "connected" : "not connected"
            color: Material.secondaryTextColor
        }
    }

    Timer {
        objectName: "updates"
        interval: 1000
        repeat: true
        running: root.visible && root.connected
        onTriggered: root.updateData()
    }
}
