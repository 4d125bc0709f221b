#pragma once

#include <plugin_management/d_abstract_command.h>

/// Command "getPresetInfo": reads the set-up of a program for display.
///
/// Parameter: "prog" (ui16), the program's number.
/// Result: "presetData" (map) with three entries under translated keys: the control mode (a translated text),
/// the target torque (double, in newton metres where the controller counts hundredths) and the target angle
/// (int, degrees). What the preset lacks reads as 0; an empty preset gives an empty map. A reply without a
/// preset, or with one that is no map, is an error: it is logged, and the result stays as it was.
class DCmdGetPresetInfo : public DAbstractCommand
{
    Q_OBJECT

public:
    DCmdGetPresetInfo(QMap<QString, QVariant> const& parameters, QObject* parent);
    explicit DCmdGetPresetInfo(QObject* parent);

    bool commandExecute() override;
    QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const& parameters) const override;

private:
    bool onGetPresetDataReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
};
