#pragma once

#include <plugin_management/export.h>

#include <QString>

/// The host's record of one piece of equipment.
class PLUGIN_MANAGEMENT_EXPORT DElement
{
public:
    QString serialNumber() const;
    void setSerialNumber(QString const& serialNumber);

    /// The day until which the maintenance is valid, as year-month-day with dashes; empty if it is permanent,
    /// null if it is not set.
    QString validityDate() const;
    void setValidityDate(QString const& validityDate);

    /// How many days before the validity ends an alert is raised.
    int stbExpiredDelay() const;
    void setStbExpiredDelay(int days);

private:
    QString m_serialNumber;
    QString m_validityDate;
    int m_stbExpiredDelay = 0;
};
