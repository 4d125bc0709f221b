#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_tightening_tool.h>

DAbstractPlugin::~DAbstractPlugin() = default;

QStringList DAbstractPlugin::commandNames() const
{
    QStringList names;
    for (auto const* command : m_catalogue)
        names += command->commandName();
    return names;
}

DAbstractTighteningTool::~DAbstractTighteningTool() = default;
