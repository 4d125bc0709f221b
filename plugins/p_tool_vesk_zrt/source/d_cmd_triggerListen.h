#pragma once

#include <plugin_management/d_abstract_command.h>

#include <utility>

/// Command "listenTrigger", stopped by "stopTriggerListening": waits for one tightening that the trigger
/// starts. It switches the controller to its trigger program, unlocks the tool and follows the controller's
/// event counter. When the counter moves it resets the trigger mode, stops listening and locks the tool.
/// Finishing the command always leaves the trigger mode reset and the tool locked.
///
/// Result: "doneOk" (bool), true and at once false again when the controller has answered the lock that
/// follows a trigger: one rising edge for each cycle.
class DCmdTriggerListen : public DAbstractCommand
{
    Q_OBJECT

public:
    using FinishAnswer = decltype(std::declval<ICommand&>().finishTheCommand(std::declval<bool&>()));

    DCmdTriggerListen(QMap<QString, QVariant> const& parameters, QObject* parent);
    explicit DCmdTriggerListen(QObject* parent);

    bool commandExecute() override;
    /// Answers what the host's commands answer when they are finished: a bool, or nothing.
    FinishAnswer finishTheCommand(bool& success) override;
    QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const& parameters) const override;

private:
    bool onProgramSwitchReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
    bool onLockReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
    bool onEvent(quint64 instructionId, QMap<QString, QVariant> const& reply);
    bool onAnyReply(quint64 instructionId, QMap<QString, QVariant> const& reply);

    void lockTool();
    void resetTriggerMode();

    /// The instruction that brings the events; 0 while none is running.
    quint64 m_listeningInstruction = 0;
    bool m_isFinishing = false;
    /// The count of the last event; negative as long as there is none to compare with.
    qint32 m_lastEventCount = -1;
};
