#include "make_tool.h"

#include "host/plugin_library.h"
#include "host/tool.h"

#include <files/input_error.h>
#include <plugin_management/d_abstract_plugin.h>

#include <QUuid>

std::unique_ptr<Tool> makeTool(PluginLibrary& library, Workstation& workstation)
{
    static QUuid const identity(QStringLiteral("{00000000-0000-4000-8000-000000000001}"));
    DAbstractPlugin const& plugin = library.plugin();
    try {
        return std::make_unique<Tool>(plugin, identity, workstation);
    } catch (std::runtime_error const& error) {
        throw InputError(QStringLiteral("%1: %2").arg(library.fileName(), QString::fromUtf8(error.what())));
    }
}
