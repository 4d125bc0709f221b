#pragma once

#include "olm_d_zrt_tool_channel.h"

#include <plugin_management/d_abstract_plugin_backend.h>

#include <QDate>
#include <QMap>
#include <QSharedPointer>
#include <QString>
#include <QVariant>

/// What stands behind the tool's maintenance page: the page's window on the tool's maintenance record, and
/// the tool's status channels. The page makes it (QML type "BeMaintenanceToolZrt" of module
/// "PlgLibToolZrt" 1.0) and owns it; everything happens on the GUI thread.
///
/// The record is the host's DElement. The host attaches it after the page has set `name` and `objectId`, or
/// never: without a record the getters answer with nothing, and a setter writes an error line and changes
/// nothing. Every edit goes into the record at once, and into a map of modified parameters that the page
/// hands to the host when it closes.
class Q_DECL_EXPORT BeMaintenanceToolZrt : public DAbstractPluginBackend
{
    Q_OBJECT
    // clang-format off
    Q_PROPERTY(OLM_DZrtToolChannel* statusChannelsModel READ statusChannelsModel NOTIFY channelsModelChanged FINAL)
    // clang-format on
    Q_PROPERTY(QString serialNumber READ serialNumber NOTIFY channelsModelChanged FINAL)
    Q_PROPERTY(QString validity READ validity NOTIFY channelsModelChanged FINAL)
    Q_PROPERTY(int daysBeforeExpiration READ daysBeforeExpiration NOTIFY channelsModelChanged FINAL)

public:
    /// Which channel a device command is about. None yet: the table is empty.
    static QMap<QString, int> const c_commandsChannelsIndex;

    explicit BeMaintenanceToolZrt(QObject* parent = nullptr);
    ~BeMaintenanceToolZrt() override;

    /// The model belongs to the backend. Whoever has channels to show puts them in.
    OLM_DZrtToolChannel* statusChannelsModel() { return &m_statusChannels; }
    /// Null out of range.
    QSharedPointer<DZrtToolChannel> getChannelAt(int index) const { return m_statusChannels.at(index); }

    // Each of the following three emits channelsModelChanged() whenever it is read: a page that looks at one
    // of them looks at all of them afresh.

    QString serialNumber();
    /// Until when the maintenance is valid, as year-month-day with dashes; empty if it is permanent, null if
    /// that is not set.
    QString validity();
    /// How many days before the validity ends an alert is raised.
    int daysBeforeExpiration();

    Q_INVOKABLE void setSerialNumber(QString const& serialNumber);
    Q_INVOKABLE void setDaysBeforeExpiration(int daysBeforeExpiration);
    /// A permanent validity is stored as an empty text whatever the date; without it, a date that is none
    /// leaves a null text.
    Q_INVOKABLE void setValidityDate(QDate validityDate, bool isPermanent);

    /// The edits through this backend since its construction or the last resetBackend(): "serialNumber"
    /// (QString), "alertBeforeExpiration" (int, days), "validityDate" (QString).
    Q_INVOKABLE QVariantMap getModifiedParameters() const;

    /// Host: the reply to a treatment. One without a name is the reply to clickedOnChannel(): "cmd_success"
    /// goes to the channel at @p id, and the channel's answer is returned.
    bool applyTreatmentReply(int id, QString const& name, QMap<QString, QVariant> const& reply) override;

public slots:
    /// Asks the device for the values of all channels, unless it still works at what it was asked before.
    void updateChannelsValue();
    /// Asks the device to switch a channel over. While the host does not take the request, it is made again
    /// from the event loop.
    void clickedOnChannel(int channelIndex);
    /// Lets go of the record, the channels and the edits; without a record nothing happens.
    void resetBackend();

signals:
    /// Any of the properties may have changed.
    void channelsModelChanged();
    /// The host could not take the request to switch a channel now.
    void delayingClickedOnChannel(int channelIndex);

private:
    void initBackend();

    QMap<QString, QVariant> m_modifiedParameters;
    OLM_DZrtToolChannel m_statusChannels;
};
