#include "d_cmd_init_zrt.h"

#include "zrt_command.h"
#include "zrt_log.h"

namespace
{

constexpr int c_invalidReplyLine = 81;
constexpr int c_allLocked = 1;

} // namespace

DCmdInitZrt::DCmdInitZrt(QMap<QString, QVariant> const& parameters, QObject* parent)
    : DAbstractCommand(QStringLiteral("init"), parameters, parent)
{
    setDescription(QStringLiteral("Init zrt"));
    declareAResult(QStringLiteral("doneOk"), QStringLiteral("bool"), QStringLiteral("Job done"),
                   QVariant(false));
}

DCmdInitZrt::DCmdInitZrt(QObject* parent) : DCmdInitZrt(QMap<QString, QVariant>(), parent) {}

QSharedPointer<ICommand> DCmdInitZrt::createCommand(QMap<QString, QVariant> const& parameters) const
{
    return zrt::clone(*this, parameters);
}

bool DCmdInitZrt::commandExecute()
{
    if (!DAbstractCommand::commandExecute())
        return false;
    addInstruction(zrt::device(), QStringLiteral("getInfo"), {}, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdInitZrt::onGetInfoReply));
    return true;
}

bool DCmdInitZrt::onGetInfoReply(quint64 /*instructionId*/, QMap<QString, QVariant> const& /*reply*/)
{
    addInstruction(zrt::device(), QStringLiteral("setLock"),
                   {{QStringLiteral("lock"), QVariant(c_allLocked)}}, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdInitZrt::onSetLockReply));
    return true;
}

bool DCmdInitZrt::onSetLockReply(quint64 /*instructionId*/, QMap<QString, QVariant> const& /*reply*/)
{
    addInstruction(zrt::device(), QStringLiteral("setLockScreen"), {}, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdInitZrt::onSetLockScreenReply));
    return true;
}

bool DCmdInitZrt::onSetLockScreenReply(quint64 /*instructionId*/, QMap<QString, QVariant> const& reply)
{
    zrt::traceReply(*this, "onSetLockScreenReply", reply);
    auto const doneOk = reply.constFind(QStringLiteral("doneOk"));
    if (doneOk == reply.constEnd()) {
        zrt::errorLine(*this, __FILE__, c_invalidReplyLine) << zrt::c_invalidReply;
        return false;
    }
    return commandUpdateResult(QStringLiteral("doneOk"), QVariant(doneOk->toBool()));
}
