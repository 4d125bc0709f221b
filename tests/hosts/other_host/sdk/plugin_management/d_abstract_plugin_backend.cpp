#include <plugin_management/d_abstract_plugin_backend.h>
#include <plugin_management/d_element.h>

#include <utility>

DElement::~DElement() = default;

bool DElement::setStbExpiredDelay(int days)
{
    return std::exchange(m_stbExpiredDelay, days) != days;
}

bool DElement::setValidityDate(QString const& validityDate)
{
    return std::exchange(m_validityDate, validityDate) != validityDate;
}

bool DElement::setSerialNumber(QString const& serialNumber)
{
    return std::exchange(m_serialNumber, serialNumber) != serialNumber;
}

DAbstractPluginBackend::DAbstractPluginBackend(QString const& name, QObject* parent)
    : QObject(parent)
    , m_name(name)
{}

DAbstractPluginBackend::~DAbstractPluginBackend() = default;

QSharedPointer<DElement> DAbstractPluginBackend::record()
{
    static auto const only = QSharedPointer<DElement>::create();
    return only;
}

void DAbstractPluginBackend::treatmentReleased(int /*id*/, QString const& name, bool /*success*/)
{
    m_treatments.removeAll(name);
}

bool DAbstractPluginBackend::applyTreatmentReply(int /*id*/, QString const& name,
                                                 QMap<QString, QVariant> const& reply)
{
    return name == QLatin1String("known") && !reply.isEmpty();
}

bool DAbstractPluginBackend::queueTreatment(int /*id*/, QString const& name,
                                            QMap<QString, QVariant> const& /*arguments*/)
{
    if (!m_treatments.isEmpty())
        return false;
    m_treatments += name;
    return true;
}

void DAbstractPluginBackend::setObjectId(QString const& objectId)
{
    m_objectId = objectId;
    m_element = objectId.isEmpty() ? nullptr : record();
    emit abstractBackendInitialized();
}
