#pragma once

#include <QMap>
#include <QObject>
#include <QSharedPointer>
#include <QStringList>
#include <QVariant>

class DElement;

/// This host has one record, which it attaches as soon as the page says for which tool it is, and takes one
/// treatment at a time.
class Q_DECL_EXPORT DAbstractPluginBackend : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isConnected READ isConnected CONSTANT)
    Q_PROPERTY(QString objectId READ objectId WRITE setObjectId NOTIFY abstractBackendInitialized)
    Q_PROPERTY(QString name MEMBER m_name NOTIFY abstractBackendInitialized)

public:
    DAbstractPluginBackend(QString const& name, QObject* parent) : QObject(parent), m_name(name) {}
    ~DAbstractPluginBackend() override;

    static QSharedPointer<DElement> record();

    virtual void treatmentReleased(int /*id*/, QString const& name, bool /*success*/)
    {
        m_treatments.removeAll(name);
    }
    virtual bool applyTreatmentReply(int /*id*/, QString const& name, QMap<QString, QVariant> const& reply)
    {
        return name == QLatin1String("known") && !reply.isEmpty();
    }

    bool queueTreatment(int /*id*/, QString const& name, QMap<QString, QVariant> const& /*arguments*/)
    {
        bool const isFirst = m_treatments.isEmpty();
        if (isFirst)
            m_treatments += name;
        return isFirst;
    }
    /// How many there are.
    int hasPendingTreatments() const { return m_treatments.size(); }

    bool isConnected() const { return true; }
    QString objectId() const { return m_objectId; }
    void setObjectId(QString const& objectId);

signals:
    void abstractBackendInitialized();

private:
    QStringList m_treatments;
    QString m_objectId;
    QString m_name;

protected:
    QSharedPointer<DElement> m_element;
};
