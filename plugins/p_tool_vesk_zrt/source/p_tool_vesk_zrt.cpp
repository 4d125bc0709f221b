#include "p_tool_vesk_zrt.h"

#include "be_maintenance_plugin.h"
#include "d_cmd_eventListen.h"
#include "d_cmd_getDirection.h"
#include "d_cmd_getPresetInfo.h"
#include "d_cmd_init_zrt.h"
#include "d_cmd_restore.h"
#include "d_cmd_startTightening.h"
#include "d_cmd_stopTightening.h"
#include "d_cmd_triggerListen.h"
#include "d_zrt_tool_channel.h"
#include "zrt_log.h"

#include <utilities/utilities.h>

#include <QStringList>
#include <QVariant>
#include <qqml.h>

namespace
{

constexpr char const* c_version = "1.0";
constexpr char const* c_subType = "tightening";

// The types of the maintenance page. Every plugin object registers them; the
// engine takes the same ones again.
void registerQmlTypes()
{
    constexpr char const* module = "PlgLibToolZrt";
    qmlRegisterType<BeMaintenanceToolZrt>(module, 1, 0, "BeMaintenanceToolZrt");
    qmlRegisterType<DZrtToolChannel>(module, 1, 0, "DZrtToolChannel");
}

} // namespace

PToolVeskZrt::PToolVeskZrt(QUuid const& objectUuid, QObject* parent)
    : DAbstractTighteningTool(getPluginId(), QString::fromLatin1(getPluginName()),
                              versionFromString(QString::fromLatin1(c_version), nullptr, QLatin1Char('.')),
                              objectUuid, parent)
{
    setProperty(QStringLiteral("toolType"), QVariant(0), false);
    setProperty(QStringLiteral("features"), QVariant(QStringList{QStringLiteral("allow_loosening")}), false);
    registerQmlTypes();
    setProperty(QStringLiteral("typeName"), QVariant(QString::fromLatin1(c_subType)), false);
    zrt::traceLife(*this, "created");
}

PToolVeskZrt::~PToolVeskZrt()
{
    zrt::traceLife(*this, "destroyed");
}

QUuid PToolVeskZrt::getPluginId()
{
    return QUuid(QStringLiteral("{fe68f24c-ac43-4833-abc7-7d9f33744448}"));
}

char const* PToolVeskZrt::getPluginName()
{
    return "Plugin Tool ZRT";
}

quint32 PToolVeskZrt::getPluginType()
{
    return 0x546F6F6C; // 'Tool'
}

void PToolVeskZrt::initPluginCommands()
{
    QMap<QString, QVariant> const none;
    // The order in which the host receives the prototypes.
    declareInstructionCommand(new DCmdStartTightening(none, this));
    declareInstructionCommand(new DCmdStopTightening(none, this));
    declareInstructionCommand(new DCmdEventListen(none, this));
    declareInstructionCommand(new DCmdGetDirection(none, this));
    declareInstructionCommand(new DCmdInitZrt(none, this));
    declareInstructionCommand(new DCmdRestore(none, this));
    declareInstructionCommand(new DCmdTriggerListen(none, this));
    declareInstructionCommand(new DCmdGetPresetInfo(none, this));

    emit sigCommandsInitDone(objectUuid(), commandNames());
}

IPlugin* PToolVeskZrt::createInstance(QUuid const& objectUuid) const
{
    return new PToolVeskZrt(objectUuid, nullptr);
}

char const* PToolVeskZrt::pluginSubTypeName() const
{
    return c_subType;
}
