#pragma once

#include <plugin_management/d_abstract_command.h>

/// Command "startTightening": arms the tool. It selects the program, sets the lock and reads the program's
/// preset back; the three instructions go out at once.
///
/// Parameters: "program" (ui16), the program's number; "locking" (ui16), the lock code, 2 if not given.
/// Results: "lockingData" (map), the controller's whole reply to the lock, with at least "lockStatus",
/// "fasteningLocked" and "looseningLocked"; "presetData" (map), the preset as the controller gives it.
/// A reply that lacks what is needed is an error: it is logged, and its result stays as it was. Whether the
/// program was accepted is not checked.
class DCmdStartTightening : public DAbstractCommand
{
    Q_OBJECT

public:
    DCmdStartTightening(QMap<QString, QVariant> const& parameters, QObject* parent);
    explicit DCmdStartTightening(QObject* parent);

    bool commandExecute() override;
    QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const& parameters) const override;

private:
    bool onSetProgramReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
    bool onSetLockReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
    bool onGetPresetDataReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
};
