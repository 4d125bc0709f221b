#include "tool.h"

#include "order.h"
#include "run_event.h"
#include "workstation.h"

#include <plugin_management/d_abstract_plugin.h>

#include <algorithm>
#include <stdexcept>

namespace
{

std::unique_ptr<DAbstractPlugin> makeInstance(IPlugin const& plugin, QUuid const& objectUuid)
{
    std::unique_ptr<IPlugin> made(plugin.createInstance(objectUuid));
    auto* const instance = dynamic_cast<DAbstractPlugin*>(made.get());
    if (!instance)
        throw std::runtime_error("the plugin's instances are no plugin objects");
    static_cast<void>(made.release());
    return std::unique_ptr<DAbstractPlugin>(instance);
}

} // namespace

Tool::Tool(IPlugin const& plugin, QUuid const& objectUuid, Workstation& workstation)
    : m_workstation(workstation)
    , m_plugin(makeInstance(plugin, objectUuid))
{
    m_plugin->initPluginCommands();
}

Tool::~Tool() = default;

Order& Tool::order(QString const& command, QVariantMap const& parameters)
{
    ICommand const* const prototype = m_plugin->commandPrototype(command);
    if (!prototype)
        throw std::invalid_argument("the plugin has no command \"" + command.toStdString() + '"');
    auto order = std::make_unique<Order>(m_workstation.nextOrderId(), prototype->createCommand(parameters),
                                         m_workstation);
    m_workstation.events().publish(OrderStarted{order->id(), command, parameters});
    Order& started = *m_orders.emplace_back(std::move(order));
    started.start();
    return started;
}

template <class Condition> std::vector<Order*> Tool::runningWhere(Condition const& condition) const
{
    std::vector<Order*> found;
    for (auto const& order : m_orders) {
        if (order->state() == Order::State::Running && condition(order->command().stopCommandName()))
            found.push_back(order.get());
    }
    return found;
}

Order const* Tool::running(QString const& command) const
{
    auto const it = std::find_if(m_orders.crbegin(), m_orders.crend(), [&command](auto const& order) {
        return order->state() == Order::State::Running && order->command().commandName() == command;
    });
    return it == m_orders.crend() ? nullptr : it->get();
}

int Tool::stop(QString const& stopCommand)
{
    auto const orders =
        runningWhere([&stopCommand](QString const& name) { return !name.isEmpty() && name == stopCommand; });
    auto const count = static_cast<int>(orders.size());
    m_workstation.events().publish(StopOrdered{stopCommand, count});
    for (auto* const order : orders)
        order->stop();
    return count;
}

void Tool::stopAll()
{
    auto const orders = runningWhere([](QString const& name) { return !name.isEmpty(); });
    if (!orders.empty())
        m_workstation.events().publish(AllStopped{static_cast<int>(orders.size())});
    for (auto* const order : orders)
        order->stop();
}

void Tool::releaseOrders()
{
    m_orders.erase(
        std::remove_if(m_orders.begin(), m_orders.end(), [](auto const& order) { return order->isOver(); }),
        m_orders.end());
}
