import QtQuick 2.15
import "qrc:/applications/AppWorkplace/gui/panels"
import "qrc:/applications/AppWorkplace/gui/widgets"

// The plugin's maintenance page without a backend: the same components, set up and filled in the same way, and
// nothing behind them.
BasePanelMaintenance {
    id: rootItem
    objectName: "maintenance_panel_tool_zrt"
    name: "{OBJECT_NAME}"
    connected: false

    contentItem: Column {
        id: idColumn
        objectName: parent.objectName + ".idColumn"
        width: rootItem.width
        spacing: rootItem.spacing

        UiTextField {
            objectName: parent.objectName + ".idValueSetSerialNumber"
            width: parent.width
            title: qsTrId("maintenance_panel_Serial_number")
            horizontalAlignment: Text.AlignHCenter
            verticalAlignment: Text.AlignVCenter
            text: "ZRT-2026-0042"
            onSigTextChanged: application.setConfigChanged()
        }

        UiValidityDateSelector {
            objectName: parent.objectName + ".idValueSetValidityDate"
            width: parent.width
            title: qsTrId("maintenance_panel_Validity_date")
            date: "2027-03-31"
            onSelectionDone: application.setConfigChanged()
        }

        UiSpinBox {
            objectName: parent.objectName + ".idExpirationInDays"
            width: parent.width
            value: 14
            title: qsTrId("maintenance_panel_Alert_before_expiration")
            decimals: 0
            from: 0
            to: 365
            stepSize: value > 6 ? 7 : 1
            suffix: qsTrId("maintenance_panel_days")
            editable: false
            onValueModified: application.setConfigChanged()
        }
    }
}
