#include <plugin_management/d_abstract_plugin_backend.h>
#include <plugin_management/d_element.h>

DElement::~DElement() = default;

DAbstractPluginBackend::~DAbstractPluginBackend() = default;

QSharedPointer<DElement> DAbstractPluginBackend::record()
{
    static auto const only = QSharedPointer<DElement>::create();
    return only;
}

void DAbstractPluginBackend::setObjectId(QString const& objectId)
{
    m_objectId = objectId;
    m_element = objectId.isEmpty() ? nullptr : record();
    emit abstractBackendInitialized();
}
