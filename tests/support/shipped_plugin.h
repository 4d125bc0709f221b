#pragma once

#include "recording_order.h"

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_plugin.h>

#include <QPluginLoader>
#include <QSharedPointer>
#include <QString>
#include <QUuid>
#include <QtTest>

#include <memory>

/// The plugin library as it is delivered, loaded and used the way a host does it.
class ShippedPlugin
{
public:
    ShippedPlugin() : m_loader(QStringLiteral(ZRT_PLUGIN_FILE)) {}

    QPluginLoader& loader() { return m_loader; }
    DAbstractPlugin* root() { return qobject_cast<DAbstractPlugin*>(m_loader.instance()); }

    /// A working instance without its commands; belongs to the caller.
    std::unique_ptr<DAbstractPlugin> makeInstance(QUuid const& objectUuid)
    {
        IPlugin* const made = root()->createInstance(objectUuid);
        return std::unique_ptr<DAbstractPlugin>(dynamic_cast<DAbstractPlugin*>(made));
    }

private:
    QPluginLoader m_loader;
};

/// A column "name" and a row for each of the plugin's commands.
inline void addCommandRows()
{
    QTest::addColumn<QString>("name");
    auto const instance = ShippedPlugin().makeInstance(QUuid());
    instance->initPluginCommands();
    auto const names = instance->commandNames();
    for (auto const& name : names)
        QTest::newRow(qPrintable(name)) << name;
}

/// A working command of the shipped plugin, linked to an order that records; cloned from its prototype in a
/// plugin instance of its own. The members are in the order in which a host must let go of them, last first.
class WorkingCommand
{
public:
    explicit WorkingCommand(QString const& name, QMap<QString, QVariant> const& parameters = {})
        : instance(ShippedPlugin().makeInstance(QUuid::createUuid()))
    {
        instance->initPluginCommands();
        auto const* const prototype = instance->commandPrototype(name);
        if (!prototype)
            qFatal("the plugin declares no such command: %s", qPrintable(name));
        command = prototype->createCommand(parameters);
    }

    /// Links the command to its order and executes it, as a host does.
    bool execute() { return order.execute(*command); }

    /// Replies to the last instruction of this name that was posted.
    bool replyTo(QString const& instruction, QMap<QString, QVariant> const& map)
    {
        for (int i = order.posted.size() - 1; i >= 0; --i) {
            if (order.posted[i].instruction.name == instruction)
                return command->setReply(order.posted[i].id, map);
        }
        qFatal("no such instruction was posted: %s", qPrintable(instruction));
    }

    /// Replies to the last instruction that was posted.
    bool reply(QMap<QString, QVariant> const& map) { return command->setReply(order.posted.last().id, map); }

    QVariant result(QString const& key) const { return command.dynamicCast<DAbstractCommand>()->result(key); }

    std::unique_ptr<DAbstractPlugin> instance;
    RecordingOrder order;
    QSharedPointer<ICommand> command;
};
