import QtQuick 2.15

Item {
    property string title
    property int value
    property int decimals: 2
    property int from: -1
    property int to
    property int stepSize
    property string suffix
    property bool editable: true

    signal valueModified()
}
