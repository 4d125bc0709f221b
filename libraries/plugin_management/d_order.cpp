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
    auto* const linked = dynamic_cast<DAbstractCommand*>(&command);
    if (linked && (linked->refuses("execute()") || isTaken(*linked, "execute()")))
        return false;
    command.linkWithItsOrder(this);
    if (!linked)
        return command.commandExecute();
    // What the command tells may be the end of this order.
    DAbstractCommand::Busy const busy(*linked);
    bool const accepted = command.commandExecute();
    if (!accepted && linked->m_isRunning)
        linked->fail(QStringLiteral("the command refused to start"));
    return accepted;
}

bool DOrder::isTaken(DAbstractCommand const& by, char const* operation) const
{
    return m_command && m_command != &by && m_command->refuses(operation);
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
