#pragma once

#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_order.h>

#include <QPluginLoader>
#include <QSharedPointer>
#include <QString>
#include <QUuid>
#include <QVariant>

#include <memory>

/// An order that carries nothing anywhere and remembers only which instruction was posted last: as little as
/// a host can do.
class QuietOrder final : public DOrder
{
public:
    QuietOrder() : DOrder(1) {}

    quint64 lastInstruction() const { return m_lastInstruction; }

protected:
    quint64 instructionPosted(DInstruction const& /*instruction*/) override { return ++m_lastInstruction; }
    void instructionWithdrawn(quint64 /*instructionId*/) override {}
    void resultUpdated(QString const& /*key*/, QVariant const& /*value*/) override {}
    void replyDropped(quint64 /*instructionId*/) override {}
    void commandFinished(bool /*success*/, QString const& /*message*/) override {}

private:
    quint64 m_lastInstruction = 0;
};

/// The root object of the shipped library.
inline DAbstractPlugin& shippedPlugin()
{
    QPluginLoader loader(QStringLiteral(ZRT_PLUGIN_FILE));
    auto* const plugin = qobject_cast<DAbstractPlugin*>(loader.instance());
    if (!plugin)
        qFatal("%s", qPrintable(loader.errorString()));
    return *plugin;
}

/// A working instance of the shipped plugin, with its commands.
inline std::unique_ptr<DAbstractPlugin> makeTool()
{
    auto* const made = dynamic_cast<DAbstractPlugin*>(shippedPlugin().createInstance(QUuid::createUuid()));
    std::unique_ptr<DAbstractPlugin> tool(made);
    tool->initPluginCommands();
    return tool;
}
