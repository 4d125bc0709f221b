#include "be_maintenance_plugin.h"

#include "zrt_log.h"

#include <plugin_management/d_element.h>

namespace
{

constexpr int c_updateNullChannelLine = 61;
constexpr int c_clickNullChannelLine = 76;
constexpr int c_replyNullChannelLine = 114;
constexpr int c_serialNumberNoElementLine = 177;
constexpr int c_expirationNoElementLine = 188;
constexpr int c_validityNoElementLine = 207;

// Without a record an edit has nowhere to go; says so.
bool canEdit(QSharedPointer<DElement> const& element, QObject const& backend, int line)
{
    if (!element)
        zrt::errorLine(backend, __FILE__, line) << "ERROR: Failure to get element pointer";
    return !element.isNull();
}

} // namespace

QMap<QString, int> const BeMaintenanceToolZrt::c_commandsChannelsIndex;

BeMaintenanceToolZrt::BeMaintenanceToolZrt(QObject* parent)
    : DAbstractPluginBackend(QStringLiteral("PlgLibToolZrt"), parent)
{
    connect(this, &DAbstractPluginBackend::abstractBackendInitialized, this,
            &BeMaintenanceToolZrt::initBackend);
    // Queued, so that a request that is refused again and again does not hold up the event loop.
    connect(this, &BeMaintenanceToolZrt::delayingClickedOnChannel, this,
            &BeMaintenanceToolZrt::clickedOnChannel, Qt::QueuedConnection);
}

BeMaintenanceToolZrt::~BeMaintenanceToolZrt() = default;

void BeMaintenanceToolZrt::initBackend() {}

QString BeMaintenanceToolZrt::serialNumber()
{
    emit channelsModelChanged();
    return m_element ? m_element->serialNumber() : QString();
}

QString BeMaintenanceToolZrt::validity()
{
    emit channelsModelChanged();
    return m_element ? m_element->validityDate() : QString();
}

int BeMaintenanceToolZrt::daysBeforeExpiration()
{
    emit channelsModelChanged();
    return m_element ? m_element->stbExpiredDelay() : 0;
}

void BeMaintenanceToolZrt::setSerialNumber(QString const& serialNumber)
{
    if (!canEdit(m_element, *this, c_serialNumberNoElementLine))
        return;
    m_element->setSerialNumber(serialNumber);
    m_modifiedParameters.insert(QStringLiteral("serialNumber"), serialNumber);
    emit channelsModelChanged();
}

void BeMaintenanceToolZrt::setDaysBeforeExpiration(int daysBeforeExpiration)
{
    if (!canEdit(m_element, *this, c_expirationNoElementLine))
        return;
    m_element->setStbExpiredDelay(daysBeforeExpiration);
    m_modifiedParameters.insert(QStringLiteral("alertBeforeExpiration"), daysBeforeExpiration);
    emit channelsModelChanged();
}

void BeMaintenanceToolZrt::setValidityDate(QDate validityDate, bool isPermanent)
{
    if (!canEdit(m_element, *this, c_validityNoElementLine))
        return;
    // Of a date that is none, nothing is left but a null text.
    QString const validity = isPermanent ? QStringLiteral("") : validityDate.toString(Qt::ISODate);
    m_element->setValidityDate(validity);
    m_modifiedParameters.insert(QStringLiteral("validityDate"), validity);
    emit channelsModelChanged();
}

QVariantMap BeMaintenanceToolZrt::getModifiedParameters() const
{
    return m_modifiedParameters;
}

void BeMaintenanceToolZrt::updateChannelsValue()
{
    if (hasPendingTreatments())
        return;
    for (int i = 0; i < m_statusChannels.count(); ++i) {
        auto const channel = getChannelAt(i);
        if (!channel) {
            zrt::errorLine(*this, __FILE__, c_updateNullChannelLine)
                << "BeMaintenanceToolZrt::updateChannelsValue: channel is null at index" << i;
            continue;
        }
        queueTreatment(i, channel->readCommand(), {{QStringLiteral("channel"), channel->id()}});
    }
}

void BeMaintenanceToolZrt::clickedOnChannel(int channelIndex)
{
    auto const channel = getChannelAt(channelIndex);
    if (!channel) {
        zrt::errorLine(*this, __FILE__, c_clickNullChannelLine)
            << "BeMaintenanceToolZrt::clickedOnChannel: channel is null at index" << channelIndex;
        return;
    }
    bool const isTaken = queueTreatment(
        channelIndex, QString(),
        {{QStringLiteral("channel"), channel->id()}, {QStringLiteral("value"), !channel->value().toBool()}});
    if (!isTaken)
        emit delayingClickedOnChannel(channelIndex);
}

bool BeMaintenanceToolZrt::applyTreatmentReply(int id, QString const& name,
                                               QMap<QString, QVariant> const& reply)
{
    if (!name.isEmpty())
        return DAbstractPluginBackend::applyTreatmentReply(id, name, reply);
    auto const channel = getChannelAt(id);
    if (!channel) {
        zrt::errorLine(*this, __FILE__, c_replyNullChannelLine)
            << "BeMaintenanceToolZrt::applyTreatmentReply: channel is null at index" << id;
        return false;
    }
    return channel->setValue(reply.value(QStringLiteral("cmd_success")));
}

void BeMaintenanceToolZrt::resetBackend()
{
    if (!m_element)
        return;
    m_element.reset();
    m_statusChannels.clear();
    m_modifiedParameters.clear();
}
