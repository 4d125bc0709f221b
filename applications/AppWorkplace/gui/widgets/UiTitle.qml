import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Material 2.15

// The title above a field. The field itself tells it to those who cannot see it.
Label {
    textFormat: Text.PlainText
    elide: Text.ElideRight
    color: Material.secondaryTextColor
    Accessible.ignored: true
}
