import QtQuick 2.15

Item {
    property string title
    property string text
    property int horizontalAlignment
    property int verticalAlignment

    signal sigTextChanged(string contentText)
}
