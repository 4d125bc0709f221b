import QtQuick 2.15

Item {
    property string title
    property int value
    property int decimals
    property int from
    property int to
    property int stepSize
    property string suffix
    property bool editable

    signal valueModified()
}
