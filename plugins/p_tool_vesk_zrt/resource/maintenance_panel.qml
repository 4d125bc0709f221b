import QtQuick 2.15
import PlgLibToolZrt 1.0
import "../../../applications/AppWorkplace/gui/panels"
import "../../../applications/AppWorkplace/gui/widgets"

// The maintenance page of one tool. The host writes the tool's name and id over
// the two placeholders before it loads the page, and then attaches the tool's
// record to the backend. Edits go into it at once; the end of the page saves them.
BasePanelMaintenance {
    id: rootItem
    objectName: "maintenance_panel_tool_zrt"
    name: be.name
    connected: be.isConnected

    BeMaintenanceToolZrt {
        id: be
        name: "{OBJECT_NAME}"
        objectId: "{OBJECT_ID}"
    }

    contentItem: Column {
        id: idColumn
        objectName: parent.objectName + ".idColumn"
        width: rootItem.width
        spacing: rootItem.spacing

        UiTextField {
            id: idValueSetSerialNumber
            objectName: parent.objectName + ".idValueSetSerialNumber"
            width: parent.width
            //% "Serial number"
            title: qsTrId("maintenance_panel_Serial_number")
            horizontalAlignment: Text.AlignHCenter
            verticalAlignment: Text.AlignVCenter
            text: be.serialNumber
            onSigTextChanged: function(contentText) {
                be.setSerialNumber(contentText)
                application.setConfigChanged()
            }
        }

        UiValidityDateSelector {
            id: idValueSetValidityDate
            objectName: parent.objectName + ".idValueSetValidityDate"
            width: parent.width
            //% "Validity date"
            title: qsTrId("maintenance_panel_Validity_date")
            date: be.validity
            onSelectionDone: function(selectedDate, isPermanent) {
                be.setValidityDate(selectedDate, isPermanent)
                application.setConfigChanged()
            }
        }

        UiSpinBox {
            id: idExpirationInDays
            objectName: parent.objectName + ".idExpirationInDays"
            width: parent.width
            value: be.daysBeforeExpiration
            //% "Alert before expiration"
            title: qsTrId("maintenance_panel_Alert_before_expiration")
            decimals: 0
            from: 0
            to: 365
            // Day by day in the first week, then by whole weeks.
            stepSize: value > 6 ? 7 : 1
            //% "days"
            suffix: qsTrId("maintenance_panel_days")
            editable: false
            // The host's base class may offer isPermanent; else it shows.
            visible: !be.isPermanent
            onValueModified: {
                be.setDaysBeforeExpiration(idExpirationInDays.value)
                application.setConfigChanged()
            }
        }
    }

    onUpdateData: be.updateChannelsValue()

    Component.onCompleted: {
        // application.resetConfigChanged()
    }

    Component.onDestruction: {
        application.updatePluginParameters(be.objectId, be.getModifiedParameters())
        application.saveMaintenanceToFile()
    }
}
