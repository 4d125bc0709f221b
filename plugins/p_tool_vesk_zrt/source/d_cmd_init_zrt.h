#pragma once

#include <plugin_management/d_abstract_command.h>

/// Command "init": prepares the controller for work from the workstation. It asks the controller for its
/// information, locks the tool and then the controller's screen.
///
/// Result: "doneOk" (bool), whether the controller confirmed the screen lock. Nothing that it answered before
/// decides. A confirmation without "doneOk" is an error: it is logged, and "doneOk" stays false.
class DCmdInitZrt : public DAbstractCommand
{
    Q_OBJECT

public:
    DCmdInitZrt(QMap<QString, QVariant> const& parameters, QObject* parent);
    explicit DCmdInitZrt(QObject* parent);

    bool commandExecute() override;
    QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const& parameters) const override;

private:
    bool onGetInfoReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
    bool onSetLockReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
    bool onSetLockScreenReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
};
