#pragma once

#include <QObject>
#include <QString>

#include <utility>

/// A record of this host is a QObject.
class Q_DECL_EXPORT DElement : public QObject
{
    Q_OBJECT

public:
    ~DElement() override;

    // A setter answers whether that was a change.

    bool setStbExpiredDelay(int days) { return std::exchange(m_stbExpiredDelay, days) != days; }
    int stbExpiredDelay() const { return m_stbExpiredDelay; }
    bool setValidityDate(QString const& validityDate)
    {
        return std::exchange(m_validityDate, validityDate) != validityDate;
    }
    QString const& validityDate() const { return m_validityDate; }
    bool setSerialNumber(QString const& serialNumber)
    {
        return std::exchange(m_serialNumber, serialNumber) != serialNumber;
    }
    QString const& serialNumber() const { return m_serialNumber; }

private:
    int m_stbExpiredDelay = 30;
    QString m_validityDate;
    QString m_serialNumber;
};
