import QtQuick 2.15
import QtQuick.Controls 2.15

// A button with its text as it is written, for the return key too.
Button {
    flat: true
    font.capitalization: Font.MixedCase
    Keys.onReturnPressed: function(event) { press(event) }
    Keys.onEnterPressed: function(event) { press(event) }

    function press(event) {
        if (!event.isAutoRepeat)
            clicked()
    }
}
