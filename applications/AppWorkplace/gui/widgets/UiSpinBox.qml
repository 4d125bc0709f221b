import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// A number with a title, to step up and down. All numbers are whole: they count units of the last decimal, so that
// with two decimals 150 is shown as 1.50. Suffix and decimals are what they were when it was made. A binding of
// `value` outlives the operator's steps.
ColumnLayout {
    id: root

    property string title
    property string suffix
    property int decimals: 0
    property alias value: box.value
    property alias from: box.from
    property alias to: box.to
    property alias stepSize: box.stepSize
    property alias editable: box.editable

    // The operator has changed the value.
    signal valueModified()

    spacing: 0

    UiTitle {
        Layout.fillWidth: true
        text: root.title
    }
    SpinBox {
        id: box

        readonly property real unit: Math.pow(10, -root.decimals)
        readonly property string ending: root.suffix === "" ? "" : " " + root.suffix

        Layout.fillWidth: true
        font.pixelSize: 18
        inputMethodHints: Qt.ImhFormattedNumbersOnly
        validator: null
        Accessible.name: root.title

        textFromValue: function(value, locale) {
            return (value * unit).toLocaleString(locale, "f", root.decimals) + ending
        }
        valueFromText: function(text, locale) {
            const number = (text.endsWith(ending) ? text.slice(0, text.length - ending.length) : text).trim()
            try {
                return number === "" ? value : Math.round(Number.fromLocaleString(locale, number) / unit)
            } catch (error) {
                return value
            }
        }
        onValueModified: root.valueModified()
    }
}
