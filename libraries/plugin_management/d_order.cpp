#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_order.h>

DOrder::DOrder(quint64 id, QObject* parent) : QObject(parent), m_id(id) {}

DOrder::~DOrder() = default;

quint64 DOrder::id() const
{
    return m_id;
}

bool DOrder::execute(ICommand& command)
{
    command.linkWithItsOrder(this);
    // A command that is not linked then is of another make, or has refused it.
    if (!m_command)
        return !dynamic_cast<DAbstractCommand*>(&command) && command.commandExecute();
    // What the command tells may be the end of this order.
    DAbstractCommand& linked = *m_command;
    if (static_cast<ICommand*>(&linked) != &command || linked.refuses("execute()"))
        return false;
    DAbstractCommand::Busy const busy(linked);
    bool const accepted = command.commandExecute();
    if (!accepted && linked.m_isRunning)
        linked.fail(QStringLiteral("the command refused to start"));
    return accepted;
}

bool DOrder::isTaken(char const* operation) const
{
    return m_command && m_command->refuses(operation);
}

void DOrder::allowancePassed(quint64 instructionId)
{
    if (m_command)
        m_command->allowancePassed(instructionId);
}

void DOrder::instructionFailed(quint64 instructionId, QString const& reason)
{
    if (m_command)
        m_command->instructionFailed(instructionId, reason);
}

bool DOrder::awaitsReplies() const
{
    return m_command && m_command->awaitsReplies();
}
