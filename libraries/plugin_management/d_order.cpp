#include <plugin_management/d_abstract_command_p.h>
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
    if (m_command)
        return m_command->execute(command);
    // A command that is not linked now is of another make, or has refused it.
    return !dynamic_cast<DAbstractCommand*>(&command) && command.commandExecute();
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
