#pragma once

#include <plugin_management/d_abstract_command.h>

/// Command "stopTightening": ends a tightening by locking the tool.
///
/// Result: "lockStatus", the controller's lock status in the type in which it came. A reply without it is an
/// error: it is logged, and the result stays as it was.
class DCmdStopTightening : public DAbstractCommand
{
    Q_OBJECT

public:
    DCmdStopTightening(QMap<QString, QVariant> const& parameters, QObject* parent);
    explicit DCmdStopTightening(QObject* parent);

    bool commandExecute() override;
    QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const& parameters) const override;

private:
    bool onSetLockReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
};
