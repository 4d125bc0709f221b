#pragma once

#include <QString>
#include <QUuid>
#include <QVariant>

#include <memory>
#include <vector>

class DAbstractPlugin;
class IPlugin;
class Order;
class Workstation;

/// One configured tool: a plugin instance with its catalogue of commands, and the orders given to it.
///
/// Working commands are children of the plugin instance and must be gone before it; this class owns both and
/// is the place where that order is kept.
class Tool
{
public:
    /// Makes an instance of @p plugin with its commands.
    Tool(IPlugin const& plugin, QUuid const& objectUuid, Workstation& workstation);
    ~Tool();
    Tool(Tool const&) = delete;
    Tool& operator=(Tool const&) = delete;

    DAbstractPlugin const& plugin() const { return *m_plugin; }

    /// Gives an order and starts it; @p command must be in the plugin's catalogue. The order stays until
    /// releaseOrders() finds it over.
    Order& order(QString const& command, QVariantMap const& parameters);

    /// The running order for a command, the last one if there are several; null if there is none.
    Order const* running(QString const& command) const;

    /// Ends every running command that reports this stop name; answers how many there were.
    int stop(QString const& stopCommand);
    /// Ends every listening command.
    void stopAll();

    /// Forgets the orders that are over.
    void releaseOrders();
    bool hasOrders() const { return !m_orders.empty(); }

private:
    template <class Condition> std::vector<Order*> runningWhere(Condition const& condition) const;

    Workstation& m_workstation;
    std::unique_ptr<DAbstractPlugin> m_plugin;
    std::vector<std::unique_ptr<Order>> m_orders; // behind the plugin, so destroyed before it
};
