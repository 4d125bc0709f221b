#include "d_cmd_stopTightening.h"

#include "zrt_command.h"
#include "zrt_log.h"

namespace
{

constexpr int c_allLocked = 1;

} // namespace

DCmdStopTightening::DCmdStopTightening(QMap<QString, QVariant> const& parameters, QObject* parent)
    : DAbstractCommand(QStringLiteral("stopTightening"), parameters, parent)
{
    // The description is the one that hosts know; this command neither starts nor polls.
    setDescription(QStringLiteral("Start polling current point state"));
    declareAResult(QStringLiteral("lockStatus"), QStringLiteral("strg"),
                   QStringLiteral("Locking status from ZRT"), QVariant());
}

DCmdStopTightening::DCmdStopTightening(QObject* parent)
    : DCmdStopTightening(QMap<QString, QVariant>(), parent)
{}

QSharedPointer<ICommand> DCmdStopTightening::createCommand(QMap<QString, QVariant> const& parameters) const
{
    return zrt::clone(*this, parameters);
}

bool DCmdStopTightening::commandExecute()
{
    if (!DAbstractCommand::commandExecute())
        return false;
    // A signed lock code, where startTightening sends an unsigned one.
    addInstruction(zrt::device(), QStringLiteral("setLock"),
                   {{QStringLiteral("lock"), QVariant(c_allLocked)}}, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdStopTightening::onSetLockReply));
    return true;
}

bool DCmdStopTightening::onSetLockReply(quint64 /*instructionId*/, QMap<QString, QVariant> const& reply)
{
    zrt::traceReply(*this, "onSetLockReply", reply);
    auto const lockStatus = reply.constFind(QStringLiteral("lockStatus"));
    if (lockStatus == reply.constEnd()) {
        zrt::errorLine(*this, __FILE__, __LINE__) << zrt::c_invalidReply;
        return false;
    }
    return commandUpdateResult(QStringLiteral("lockStatus"), *lockStatus);
}
