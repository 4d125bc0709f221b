#include "d_cmd_getPresetInfo.h"

#include "zrt_command.h"
#include "zrt_log.h"

#include <QCoreApplication>

namespace
{

constexpr int c_torqueControl = 0;
constexpr double c_hundredths = 100.0;

} // namespace

DCmdGetPresetInfo::DCmdGetPresetInfo(QMap<QString, QVariant> const& parameters, QObject* parent)
    : DAbstractCommand(QStringLiteral("getPresetInfo"), parameters, parent)
{
    setDescription(QStringLiteral("Get preset info"));
    declareAParameter(QStringLiteral("prog"), QStringLiteral("ui16"), QStringLiteral("Tightening program"),
                      QVariant(QString()));
    declareAResult(QStringLiteral("presetData"), QStringLiteral("varM"),
                   QStringLiteral("Preset data from ZRT"), QVariant());
}

DCmdGetPresetInfo::DCmdGetPresetInfo(QObject* parent) : DCmdGetPresetInfo(QMap<QString, QVariant>(), parent)
{}

QSharedPointer<ICommand> DCmdGetPresetInfo::createCommand(QMap<QString, QVariant> const& parameters) const
{
    return zrt::clone(*this, parameters);
}

bool DCmdGetPresetInfo::commandExecute()
{
    if (!DAbstractCommand::commandExecute())
        return false;
    addInstruction(zrt::device(), QStringLiteral("getPresetData"),
                   {{QStringLiteral("preset"), getParameterValue(QStringLiteral("prog"), QVariant())}},
                   zrt::c_timeAllowance, zrt::OnReply(this, &DCmdGetPresetInfo::onGetPresetDataReply));
    return true;
}

bool DCmdGetPresetInfo::onGetPresetDataReply(quint64 /*instructionId*/, QMap<QString, QVariant> const& reply)
{
    auto const presetData = reply.constFind(QStringLiteral("presetData"));
    if (presetData == reply.constEnd()) {
        zrt::errorLine(*this, __FILE__, __LINE__) << zrt::c_invalidReply;
        return false;
    }
    if (presetData->type() != QVariant::Map) {
        zrt::errorLine(*this, __FILE__, __LINE__) << zrt::c_unmanagedFormat;
        return false;
    }
    QMap<QString, QVariant> const preset = presetData->toMap();
    QMap<QString, QVariant> info;
    if (!preset.isEmpty()) {
        bool const isTorque = zrt::toWhole(preset.value(QStringLiteral("tcamActm"))) == c_torqueControl;
        info.insert(qtTrId("GetPresetInfo_Control_Mode"),
                    isTorque ? qtTrId("GetPresetInfo_Torque") : qtTrId("GetPresetInfo_Angle"));
        info.insert(qtTrId("GetPresetInfo_Target_torque"),
                    static_cast<double>(zrt::toWhole(preset.value(QStringLiteral("torque")))) / c_hundredths);
        info.insert(qtTrId("GetPresetInfo_Target_Angle"),
                    zrt::toWhole(preset.value(QStringLiteral("targetAngle"))));
    }
    return commandUpdateResult(QStringLiteral("presetData"), QVariant(info));
}
