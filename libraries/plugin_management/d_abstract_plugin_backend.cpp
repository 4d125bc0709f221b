#include <plugin_management/d_abstract_plugin_backend.h>

#include <utility>

namespace
{

DAbstractPluginBackend::ElementSource& elementSource()
{
    static DAbstractPluginBackend::ElementSource source;
    return source;
}

} // namespace

DAbstractPluginBackend::DAbstractPluginBackend(QString const& name, QObject* parent)
    : QObject(parent)
    , m_name(name)
{}

DAbstractPluginBackend::~DAbstractPluginBackend() = default;

QString DAbstractPluginBackend::name() const
{
    return m_name;
}

void DAbstractPluginBackend::setName(QString const& name)
{
    if (m_name == name)
        return;
    m_name = name;
    emit nameChanged();
}

QString DAbstractPluginBackend::objectId() const
{
    return m_objectId;
}

void DAbstractPluginBackend::setObjectId(QString const& objectId)
{
    if (m_objectId == objectId)
        return;
    m_objectId = objectId;
    if (auto const& source = elementSource())
        setElement(source(objectId));
    emit objectIdChanged();
}

bool DAbstractPluginBackend::isConnected() const
{
    return m_isConnected;
}

void DAbstractPluginBackend::setConnected(bool connected)
{
    if (m_isConnected == connected)
        return;
    m_isConnected = connected;
    emit isConnectedChanged();
}

void DAbstractPluginBackend::setElementSource(ElementSource source)
{
    elementSource() = std::move(source);
}

void DAbstractPluginBackend::setElement(QSharedPointer<DElement> const& element)
{
    m_element = element;
    emit abstractBackendInitialized();
}

bool DAbstractPluginBackend::queueTreatment(int id, QString const& name,
                                            QMap<QString, QVariant> const& arguments)
{
    if (!m_isConnected || m_pendingTreatments.contains({id, name}))
        return false;
    m_pendingTreatments.insert({id, name});
    emit sigTreatmentQueued(id, name, arguments);
    return true;
}

void DAbstractPluginBackend::treatmentReleased(int id, QString const& name, bool /*success*/)
{
    m_pendingTreatments.remove({id, name});
}

bool DAbstractPluginBackend::applyTreatmentReply(int id, QString const& name,
                                                 QMap<QString, QVariant> const& /*reply*/)
{
    return m_pendingTreatments.contains({id, name});
}

bool DAbstractPluginBackend::hasPendingTreatments() const
{
    return !m_pendingTreatments.isEmpty();
}
