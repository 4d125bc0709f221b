#include "d_cmd_triggerListen.h"

#include "zrt_command.h"
#include "zrt_log.h"

namespace
{

constexpr zrt::EventLines c_errorLines{149, 145};
constexpr int c_triggerProgram = 15;
constexpr int c_free = 0;
constexpr int c_allLocked = 1;

} // namespace

DCmdTriggerListen::DCmdTriggerListen(QMap<QString, QVariant> const& parameters, QObject* parent)
    : DAbstractCommand(QStringLiteral("listenTrigger"), QStringLiteral("stopTriggerListening"), parameters,
                       parent)
{
    setDescription(QStringLiteral("Listen trigger state"));
    declareAResult(QStringLiteral("doneOk"), QStringLiteral("bool"), QStringLiteral("Trigger done"),
                   QVariant());
}

DCmdTriggerListen::DCmdTriggerListen(QObject* parent) : DCmdTriggerListen(QMap<QString, QVariant>(), parent)
{}

QSharedPointer<ICommand> DCmdTriggerListen::createCommand(QMap<QString, QVariant> const& parameters) const
{
    return zrt::clone(*this, parameters);
}

bool DCmdTriggerListen::commandExecute()
{
    // Unlike its siblings this command goes to work whatever the host says, and hosts rely on it.
    DAbstractCommand::commandExecute();
    addInstruction(zrt::device(), QStringLiteral("SetTriggerProgram"), {}, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdTriggerListen::onProgramSwitchReply));
    addInstruction(zrt::device(), QStringLiteral("setLock"), {{QStringLiteral("lock"), QVariant(c_free)}},
                   zrt::c_timeAllowance, zrt::OnReply(this, &DCmdTriggerListen::onLockReply));
    m_listeningInstruction =
        addInstruction(zrt::device(), QStringLiteral("listenEventsData"), {}, zrt::c_timeAllowance,
                       zrt::OnReply(this, &DCmdTriggerListen::onEvent));
    return true;
}

DCmdTriggerListen::FinishAnswer DCmdTriggerListen::finishTheCommand(bool& success)
{
    m_isFinishing = true;
    lockTool();
    resetTriggerMode();
    return commandFinish(success);
}

bool DCmdTriggerListen::onProgramSwitchReply(quint64 /*instructionId*/, QMap<QString, QVariant> const& reply)
{
    if (reply.value(QStringLiteral("doneOk")).toBool())
        addInstruction(zrt::device(), QStringLiteral("setProgram"),
                       {{QStringLiteral("program"), QVariant(c_triggerProgram)}}, zrt::c_timeAllowance,
                       zrt::OnReply(this, &DCmdTriggerListen::onAnyReply));
    return true;
}

bool DCmdTriggerListen::onLockReply(quint64 /*instructionId*/, QMap<QString, QVariant> const& /*reply*/)
{
    // The unlocking at the start is answered while listening, the locking at the end while finishing. What is
    // left is the lock that followed a trigger.
    if (m_listeningInstruction != 0 || m_isFinishing)
        return true;
    commandUpdateResult(QStringLiteral("doneOk"), QVariant(true));
    commandUpdateResult(QStringLiteral("doneOk"), QVariant(false));
    return true;
}

bool DCmdTriggerListen::onEvent(quint64 /*instructionId*/, QMap<QString, QVariant> const& reply)
{
    zrt::EventValues const event = zrt::readEvent(*this, __FILE__, c_errorLines, reply);
    if (!event.values)
        return event.answer;
    // The first count is only the one to compare with, and a negative one starts that anew.
    qint32 const count = zrt::toWhole(event.values->value(QStringLiteral("eventCountNo")));
    if (count >= 0 && m_lastEventCount >= 0 && count != m_lastEventCount) {
        resetTriggerMode();
        lockTool();
    }
    m_lastEventCount = count;
    return true;
}

bool DCmdTriggerListen::onAnyReply(quint64 /*instructionId*/, QMap<QString, QVariant> const& /*reply*/)
{
    return true;
}

void DCmdTriggerListen::lockTool()
{
    if (m_listeningInstruction != 0) {
        stopTheInstruction(m_listeningInstruction);
        m_listeningInstruction = 0;
    }
    addInstruction(zrt::device(), QStringLiteral("setLock"),
                   {{QStringLiteral("lock"), QVariant(c_allLocked)}}, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdTriggerListen::onLockReply));
}

void DCmdTriggerListen::resetTriggerMode()
{
    addInstruction(zrt::device(), QStringLiteral("SetTriggerProgram"),
                   {{QStringLiteral("resetMode"), QVariant(true)}}, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdTriggerListen::onAnyReply));
}
