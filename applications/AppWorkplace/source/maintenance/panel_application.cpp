#include "panel_application.h"

#include "maintenance_records.h"

#include <files/input_error.h>
#include <plugin_management/d_abstract_plugin_backend.h>

#include <QUuid>

PanelApplication::PanelApplication(MaintenanceRecords& records) : m_records(records)
{
    DAbstractPluginBackend::setElementSource([this](QString const& id) {
        return m_tools.contains(id) ? m_records.record(m_tools.value(id)) : QSharedPointer<DElement>();
    });
}

PanelApplication::~PanelApplication()
{
    DAbstractPluginBackend::setElementSource({});
}

QString PanelApplication::addTool(QString const& tool)
{
    static QUuid const tools(QStringLiteral("{6f0f4a6e-3a52-4f0e-9a0e-1f6f5f1d7c11}"));
    QString id = QUuid::createUuidV5(tools, tool).toString();
    m_tools.insert(id, tool);
    return id;
}

void PanelApplication::updatePluginParameters(QString const& objectId, QVariantMap const& parameters)
{
    m_problem.clear();
    try {
        if (!m_tools.contains(objectId))
            throw InputError(QStringLiteral("there is no tool with the id \"%1\"").arg(shown(objectId)));
        m_records.edit(m_tools.value(objectId), parameters);
    } catch (InputError const& error) {
        m_problem = error.message();
    }
}

void PanelApplication::saveMaintenanceToFile()
{
    if (m_isGivenUp)
        return;
    try {
        if (m_records.save())
            emit saved();
        resetConfigChanged();
    } catch (InputError const& error) {
        m_problem = error.message();
    }
}

void PanelApplication::setConfigChanged()
{
    m_isConfigChanged = true;
    emit configChanged();
}

void PanelApplication::resetConfigChanged()
{
    m_isConfigChanged = false;
    emit configChanged();
}
