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
    if (!m_command)
        return command.commandExecute();
    DAbstractCommand::Busy const busy(*m_command);
    bool const accepted = command.commandExecute();
    if (!accepted && m_command->m_isRunning)
        m_command->fail(QStringLiteral("the command refused to start"));
    return accepted;
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
