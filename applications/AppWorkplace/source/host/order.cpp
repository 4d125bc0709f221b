#include "order.h"

#include "run_event.h"
#include "workstation.h"

#include <utility>

Order::Order(quint64 id, QSharedPointer<ICommand> command, Workstation& workstation)
    : DOrder(id)
    , m_workstation(workstation)
    , m_command(std::move(command))
{
    auto const declared = m_command->commandArguments().results;
    for (auto const& result : declared)
        m_results.insert(result.key, result.defaultValue);
}

void Order::start()
{
    if (!execute(*m_command) && m_state == State::Running)
        commandFinished(false, QStringLiteral("the command refused to start"));
}

void Order::stop()
{
    bool success = true;
    m_command->finishTheCommand(success);
}

quint64 Order::instructionPosted(DInstruction const& instruction)
{
    return m_workstation.carry(*this, instruction);
}

void Order::instructionWithdrawn(quint64 instructionId)
{
    m_workstation.withdraw(id(), instructionId);
}

void Order::resultUpdated(QString const& key, QVariant const& value)
{
    m_results.insert(key, value);
    m_workstation.events().publish(ResultUpdated{id(), key, value});
}

void Order::replyDropped(quint64 instructionId)
{
    m_workstation.drop(id(), instructionId);
}

void Order::commandFinished(bool success, QString const& message)
{
    m_state = success ? State::Succeeded : State::Failed;
    m_message = message;
    m_workstation.events().publish(OrderFinished{id(), m_command->commandName(), success, message});
}
