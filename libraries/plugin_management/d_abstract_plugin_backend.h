#pragma once

#include <plugin_management/d_element.h>
#include <plugin_management/export.h>

#include <QMap>
#include <QObject>
#include <QPair>
#include <QSet>
#include <QSharedPointer>
#include <QString>
#include <QVariant>

#include <functional>

/// What stands behind a plugin's page: the record of its equipment, and a queue of treatments for the device.
///
/// The page makes the backend and sets `name` and `objectId`; for that id the host's element source attaches
/// the record, in time for the page's first look at it. The host may also attach one with setElement(). It
/// tells with setConnected() whether the device is there.
///
/// A treatment is a request that is known by an id and a name, at most one of each pair at a time. The
/// backend queues it; the host carries it out (sigTreatmentQueued()), hands over the reply with
/// applyTreatmentReply() and closes it with treatmentReleased().
class PLUGIN_MANAGEMENT_EXPORT DAbstractPluginBackend : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(QString objectId READ objectId WRITE setObjectId NOTIFY objectIdChanged)
    Q_PROPERTY(bool isConnected READ isConnected NOTIFY isConnectedChanged)

public:
    DAbstractPluginBackend(QString const& name, QObject* parent);
    ~DAbstractPluginBackend() override;

    QString name() const;
    void setName(QString const& name);
    QString objectId() const;
    void setObjectId(QString const& objectId);
    bool isConnected() const;

    /// Host: whether the device is there. Treatments are taken only while it is.
    void setConnected(bool connected);
    /// Answers the record of the equipment with an id; null if there is none.
    using ElementSource = std::function<QSharedPointer<DElement>(QString const& objectId)>;
    /// Host: from where records are attached when a page sets `objectId`; an empty source attaches none.
    static void setElementSource(ElementSource source);
    /// Host: attaches the record, which may be null, and emits abstractBackendInitialized().
    void setElement(QSharedPointer<DElement> const& element);

    /// Queues a treatment. Answers false, and queues nothing, while the device is not connected or a
    /// treatment with this id and name is pending.
    bool queueTreatment(int id, QString const& name, QMap<QString, QVariant> const& arguments);
    /// Host: the treatment is over, with whatever success; it is no longer pending.
    virtual void treatmentReleased(int id, QString const& name, bool success);
    /// Host: the reply to a treatment. Answers whether it was accepted; here it
    /// is if the treatment is pending.
    virtual bool applyTreatmentReply(int id, QString const& name, QMap<QString, QVariant> const& reply);
    bool hasPendingTreatments() const;

signals:
    void nameChanged();
    void objectIdChanged();
    void isConnectedChanged();
    /// The host has attached the record.
    void abstractBackendInitialized();
    /// For the host, which carries the treatment out.
    void sigTreatmentQueued(int id, QString const& name, QMap<QString, QVariant> const& arguments);

protected:
    /// The record of the equipment; null until the host attaches one.
    QSharedPointer<DElement> m_element;

private:
    QString m_name;
    QString m_objectId;
    bool m_isConnected = false;
    QSet<QPair<int, QString>> m_pendingTreatments;
};
