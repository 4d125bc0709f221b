import QtQuick 2.15

Item {
    property string title
    property string date

    signal selectionDone(date selectedDate, bool isPermanent)
}
