#include "d_cmd_getDirection.h"

#include "zrt_command.h"
#include "zrt_log.h"

DCmdGetDirection::DCmdGetDirection(QMap<QString, QVariant> const& parameters, QObject* parent)
    : DAbstractCommand(QStringLiteral("getDirection"), parameters, parent)
{
    // The description is the one that hosts know; this command does not poll.
    setDescription(QStringLiteral("Start polling current point state"));
    declareAResult(QStringLiteral("direction"), QStringLiteral("bool"), QStringLiteral("Direction"),
                   QVariant());
}

DCmdGetDirection::DCmdGetDirection(QObject* parent) : DCmdGetDirection(QMap<QString, QVariant>(), parent) {}

QSharedPointer<ICommand> DCmdGetDirection::createCommand(QMap<QString, QVariant> const& parameters) const
{
    return zrt::clone(*this, parameters);
}

bool DCmdGetDirection::commandExecute()
{
    if (!DAbstractCommand::commandExecute())
        return false;
    addInstruction(zrt::device(), QStringLiteral("getInfo"), {}, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdGetDirection::onGetInfoReply));
    return true;
}

bool DCmdGetDirection::onGetInfoReply(quint64 /*instructionId*/, QMap<QString, QVariant> const& /*reply*/)
{
    addInstruction(zrt::device(), QStringLiteral("getRegister"),
                   {{QStringLiteral("channel"), QVariant(QStringLiteral("direction"))}}, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdGetDirection::onGetRegisterReply));
    return true;
}

bool DCmdGetDirection::onGetRegisterReply(quint64 /*instructionId*/, QMap<QString, QVariant> const& reply)
{
    zrt::traceReply(*this, "onGetRegisterReply", reply);
    // A missing key and an empty list are the same to us: there is no first value.
    QVariantList const values = reply.value(QStringLiteral("values")).toList();
    if (values.isEmpty()) {
        zrt::errorLine(*this, __FILE__, __LINE__) << zrt::c_invalidReply;
        return false;
    }
    // An int, whatever the result's type tag says: hosts are used to it.
    return commandUpdateResult(QStringLiteral("direction"),
                               QVariant(static_cast<int>(values.first().toBool())));
}
