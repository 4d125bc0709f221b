import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// A line of text with a title. A binding of `text` outlives what the operator types.
ColumnLayout {
    id: root

    property string title
    property alias text: field.text
    property alias horizontalAlignment: field.horizontalAlignment
    property alias verticalAlignment: field.verticalAlignment

    // The operator has changed the text, to this.
    signal sigTextChanged(string contentText)

    spacing: 0

    UiTitle {
        Layout.fillWidth: true
        text: root.title
    }
    TextField {
        id: field
        Layout.fillWidth: true
        font.pixelSize: 18
        selectByMouse: true
        Accessible.name: root.title
        onTextEdited: root.sigTextChanged(text)

        // A text that is too long shows its beginning, unless somebody is at work on it.
        function showBeginning() {
            if (!activeFocus)
                cursorPosition = 0
        }
        onTextChanged: showBeginning()
        onWidthChanged: showBeginning()
        onActiveFocusChanged: showBeginning()
    }
}
