#pragma once

#include <plugin_management/export.h>

#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariant>

class DAbstractCommand;
class ICommand;

/// An instruction that a command posts.
struct DInstruction
{
    /// The endpoint that is to carry it out, such as "device".
    QString target;
    QString name;
    QMap<QString, QVariant> arguments;
    /// How long the first reply may take, in milliseconds.
    int timeAllowance = 0;
};

/// One order of a work sequence, seen from the command that carries it out.
///
/// This is where the stand-in and a host meet: the host derives from it, carries the posted instructions to
/// their endpoints and hands the replies to ICommand::setReply(). An order serves one command object at a
/// time and is used on its thread. It may be destroyed before or after the command, and at any time.
///
/// The protected operations are called by the linked command, in the middle of its own work. What may be done
/// with the command from within them differs:
///
/// - While it hands over or withdraws an instruction nothing: whatever is called is refused, and told in a
///   critical line of the log; the order cannot go to another command then, nor the command to another order.
///   So no endpoint answers before the command knows what it has asked. What was refused has not happened: a
///   time allowance that has passed, for instance, is to be told again afterwards.
/// - While it publishes a result or hears of a reply that is dropped it takes replies and whatever else an
///   order can tell it, can be executed anew and can be finished. All this happens at once, and then it goes
///   on with what it was doing: a further result of the same handler comes after its end.
/// - It may be destroyed while it hears of a reply that is dropped, and when it has ended, unless that was in
///   the middle of its own work: finished from within a result, by itself in a handler, or failed while it
///   started. In all other cases destroying it is fatal.
class PLUGIN_MANAGEMENT_EXPORT DOrder : public QObject
{
    Q_OBJECT

public:
    explicit DOrder(quint64 id, QObject* parent = nullptr);
    ~DOrder() override;

    quint64 id() const;

    /// Links @p command to this order and executes it; answers what ICommand::commandExecute() does. A
    /// one-shot command that posts no instruction has finished when this returns.
    bool execute(ICommand& command);

    /// Tells the command that an instruction's time allowance has passed. Unless the first reply has come
    /// before, a one-shot command fails and finishes; a listening command goes on, and withdraws the
    /// instruction when it ends.
    void allowancePassed(quint64 instructionId);

    /// Tells the command that an instruction can never be answered, and why: "endpoint \"device\" is gone".
    /// A one-shot command fails and finishes; a listening command goes on.
    void instructionFailed(quint64 instructionId, QString const& reason);

    /// Whether the command still waits for the first reply to an instruction, be it finished or not.
    bool awaitsReplies() const;

protected:
    /// A new instruction. Returns its id, which is not 0 and which the host uses for no other instruction;
    /// the reply must not come before this has returned.
    virtual quint64 instructionPosted(DInstruction const& instruction) = 0;
    /// No reply to this instruction is wanted any more.
    virtual void instructionWithdrawn(quint64 instructionId) = 0;
    /// A declared result has a new value.
    virtual void resultUpdated(QString const& key, QVariant const& value) = 0;
    /// A reply came that the command no longer waits for; it was not delivered.
    virtual void replyDropped(quint64 instructionId) = 0;
    /// The command has ended. @p message says why it failed, in words for the operator; empty on success.
    virtual void commandFinished(bool success, QString const& message) = 0;

private:
    friend class DAbstractCommand;

    /// Whether the command that has this order refuses @p operation now; then that is told.
    bool isTaken(char const* operation) const;

    quint64 const m_id;
    QPointer<DAbstractCommand> m_command;
};
