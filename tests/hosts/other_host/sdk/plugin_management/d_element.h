#pragma once

#include <QObject>
#include <QString>

/// A record of this host is a QObject.
class Q_DECL_EXPORT DElement : public QObject
{
    Q_OBJECT

public:
    ~DElement() override;

    // A setter answers whether that was a change.

    bool setStbExpiredDelay(int days);
    int stbExpiredDelay() const { return m_stbExpiredDelay; }
    bool setValidityDate(QString const& validityDate);
    QString const& validityDate() const { return m_validityDate; }
    bool setSerialNumber(QString const& serialNumber);
    QString const& serialNumber() const { return m_serialNumber; }

private:
    int m_stbExpiredDelay = 30;
    QString m_validityDate;
    QString m_serialNumber;
};
