#pragma once

#include "literals.h"
#include "recording_order.h"
#include "scratch_folder.h"

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

    /// Whether the library is in memory, whoever loaded it.
    static bool isMapped() { return contentOf("/proc/self/maps"_s).contains("libp_tool_vesk_zrt.so"); }

    QPluginLoader& loader() { return m_loader; }
    DAbstractPlugin* root() { return qobject_cast<DAbstractPlugin*>(m_loader.instance()); }

    /// A working instance without its commands; belongs to the caller.
    std::unique_ptr<DAbstractPlugin> makeInstance(QUuid const& objectUuid)
    {
        IPlugin* const made = root()->createInstance(objectUuid);
        return std::unique_ptr<DAbstractPlugin>(dynamic_cast<DAbstractPlugin*>(made));
    }
    std::unique_ptr<DAbstractPlugin> makeInstanceWithCommands()
    {
        auto instance = makeInstance(QUuid::createUuid());
        instance->initPluginCommands();
        return instance;
    }

private:
    QPluginLoader m_loader;
};

/// A column "name" and a row for each of the plugin's commands.
inline void addCommandRows()
{
    QTest::addColumn<QString>("name");
    auto const names = ShippedPlugin().makeInstanceWithCommands()->commandNames();
    for (auto const& name : names)
        QTest::newRow(qPrintable(name)) << name;
}
