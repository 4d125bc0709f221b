#include "d_cmd_startTightening.h"

#include "zrt_command.h"
#include "zrt_log.h"

DCmdStartTightening::DCmdStartTightening(QMap<QString, QVariant> const& parameters, QObject* parent)
    : DAbstractCommand(QStringLiteral("startTightening"), parameters, parent)
{
    // The description is the one that hosts know; this command does not poll.
    setDescription(QStringLiteral("Start polling current point state"));
    declareAParameter(QStringLiteral("program"), QStringLiteral("ui16"), QStringLiteral("Tightening program"),
                      QVariant(QString()));
    declareAParameter(QStringLiteral("locking"), QStringLiteral("ui16"), QStringLiteral("Locking state"),
                      QVariant(2));
    declareAResult(QStringLiteral("presetData"), QStringLiteral("varM"),
                   QStringLiteral("Preset data from ZRT"), QVariant());
    declareAResult(QStringLiteral("lockingData"), QStringLiteral("varM"),
                   QStringLiteral("Locking data from ZRT"), QVariant());
}

DCmdStartTightening::DCmdStartTightening(QObject* parent)
    : DCmdStartTightening(QMap<QString, QVariant>(), parent)
{}

QSharedPointer<ICommand> DCmdStartTightening::createCommand(QMap<QString, QVariant> const& parameters) const
{
    return zrt::clone(*this, parameters);
}

bool DCmdStartTightening::commandExecute()
{
    if (!DAbstractCommand::commandExecute())
        return false;
    QVariant const program = getParameterValue(QStringLiteral("program"), QVariant());
    addInstruction(zrt::device(), QStringLiteral("setProgram"),
                   {{QStringLiteral("program"), QVariant(program.toUInt())}}, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdStartTightening::onSetProgramReply));
    QVariant const locking = getParameterValue(QStringLiteral("locking"), QVariant());
    addInstruction(zrt::device(), QStringLiteral("setLock"),
                   {{QStringLiteral("lock"), QVariant(locking.toUInt())}}, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdStartTightening::onSetLockReply));
    // Read again, and not made a number: hosts see three reads, each before its instruction.
    QVariant const preset = getParameterValue(QStringLiteral("program"), QVariant());
    addInstruction(zrt::device(), QStringLiteral("getPresetData"), {{QStringLiteral("preset"), preset}},
                   zrt::c_timeAllowance, zrt::OnReply(this, &DCmdStartTightening::onGetPresetDataReply));
    return true;
}

bool DCmdStartTightening::onSetProgramReply(quint64 /*instructionId*/,
                                            QMap<QString, QVariant> const& /*reply*/)
{
    return true;
}

bool DCmdStartTightening::onSetLockReply(quint64 /*instructionId*/, QMap<QString, QVariant> const& reply)
{
    if (!reply.contains(QStringLiteral("lockStatus")) || !reply.contains(QStringLiteral("fasteningLocked"))
        || !reply.contains(QStringLiteral("looseningLocked"))) {
        zrt::errorLine(*this, __FILE__, __LINE__) << zrt::c_invalidReply;
        return false;
    }
    return commandUpdateResult(QStringLiteral("lockingData"), QVariant(reply));
}

bool DCmdStartTightening::onGetPresetDataReply(quint64 /*instructionId*/,
                                               QMap<QString, QVariant> const& reply)
{
    auto const preset = reply.constFind(QStringLiteral("presetData"));
    if (preset == reply.constEnd()) {
        zrt::errorLine(*this, __FILE__, __LINE__) << zrt::c_invalidReply;
        return false;
    }
    if (preset->type() != QVariant::Map) {
        zrt::errorLine(*this, __FILE__, __LINE__) << zrt::c_unmanagedFormat;
        return false;
    }
    return commandUpdateResult(QStringLiteral("presetData"), QVariant(preset->toMap()));
}
