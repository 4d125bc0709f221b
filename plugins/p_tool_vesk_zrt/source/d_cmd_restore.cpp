#include "d_cmd_restore.h"

#include "zrt_command.h"
#include "zrt_log.h"

namespace
{

constexpr int c_invalidReplyLine = 90;

} // namespace

DCmdRestore::DCmdRestore(QMap<QString, QVariant> const& parameters, QObject* parent)
    // Listening to events stops under the same name: one stop ends both.
    : DAbstractCommand(QStringLiteral("restore"), QStringLiteral("stopListening"), parameters, parent)
{
    setDescription(QStringLiteral("Restore saved backup"));
    declareAParameter(QStringLiteral("filePath"), QStringLiteral("strg"), QStringLiteral("Backup file path"),
                      QVariant(QStringLiteral("")));
    declareAParameter(QStringLiteral("startPreset"), QStringLiteral("int"), QStringLiteral("Start preset"),
                      QVariant(0));
    declareAParameter(QStringLiteral("endPreset"), QStringLiteral("int"), QStringLiteral("End preset"),
                      QVariant(0));
    declareAParameter(QStringLiteral("loadControllerParams"), QStringLiteral("bool"),
                      QStringLiteral("Load controller parameters"), QVariant(false));
    declareAResult(QStringLiteral("statusData"), QStringLiteral("vart"),
                   QStringLiteral("Restoring progress/status"), QVariant());
}

DCmdRestore::DCmdRestore(QObject* parent) : DCmdRestore(QMap<QString, QVariant>(), parent) {}

QSharedPointer<ICommand> DCmdRestore::createCommand(QMap<QString, QVariant> const& parameters) const
{
    return zrt::clone(*this, parameters);
}

bool DCmdRestore::commandExecute()
{
    if (!DAbstractCommand::commandExecute())
        return false;
    // Hosts see this one read first.
    QString const loadControllerParams = QStringLiteral("loadControllerParams");
    bool const isLoadingParams = getParameterValue(loadControllerParams, QVariant(false)).toBool();
    QMap<QString, QVariant> arguments;
    for (auto const& key :
         {QStringLiteral("filePath"), QStringLiteral("startPreset"), QStringLiteral("endPreset")})
        arguments.insert(key, getParameterValue(key, QVariant()));
    arguments.insert(loadControllerParams, isLoadingParams);
    addInstruction(zrt::device(), QStringLiteral("restoreBackup"), arguments, zrt::c_timeAllowance,
                   zrt::OnReply(this, &DCmdRestore::onStatus));
    return true;
}

bool DCmdRestore::onStatus(quint64 /*instructionId*/, QMap<QString, QVariant> const& reply)
{
    zrt::traceReply(*this, "onStatus", reply);
    auto const statusData = reply.constFind(QStringLiteral("statusData"));
    if (statusData == reply.constEnd()) {
        zrt::errorLine(*this, __FILE__, c_invalidReplyLine) << zrt::c_invalidReply;
        return false;
    }
    QMap<QString, QVariant> status = statusData->toMap();
    if (!m_isToolInfoSent) {
        QVariant const none = QVariant(QStringLiteral(""));
        QMap<QString, QVariant> toolInfo;
        for (auto const& key : {QStringLiteral("serialNumber"), QStringLiteral("validityDate")})
            toolInfo.insert(key, zrt::asText(getParameterValue(key, none)));
        toolInfo.insert(QStringLiteral("toolName"),
                        zrt::asText(getParametersSection(QStringLiteral("name"))));
        status.insert(QStringLiteral("toolInfo"), toolInfo);
        m_isToolInfoSent = true;
    }
    return commandUpdateResult(QStringLiteral("statusData"), QVariant(status));
}
