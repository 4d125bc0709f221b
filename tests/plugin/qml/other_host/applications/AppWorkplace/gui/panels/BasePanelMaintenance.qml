import QtQuick 2.15

// What a page needs of its host, and not a thing more.
Item {
    property string name
    property bool connected
    property real spacing: 11
    property Item contentItem

    signal updateData()

    onContentItemChanged: contentItem.parent = this
}
