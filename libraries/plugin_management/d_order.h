#pragma once

#include <plugin_management/export.h>

#include <QMap>
#include <QObject>
#include <QString>
#include <QVariant>

class DAbstractCommandPrivate;
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
/// The linked command calls the protected operations in the middle of its own work. What a host may do with
/// the command from within them:
///
/// - In instructionPosted() and instructionWithdrawn(): nothing. The command refuses every call with a
///   critical log line, and neither the order nor the command can be linked anew. So no endpoint answers
///   before the command knows what it has asked. Repeat a refused call, such as allowancePassed(),
///   afterwards.
/// - In resultUpdated(): anything but destroying it. Replies, passed allowances, another execution and the
///   end take effect at once; then the command goes on with what it was doing. So a further result of the
///   same handler may come after commandFinished().
/// - In replyDropped() and commandFinished(): anything. Re-execute the command in or after the second.
///
/// Destroying the command is fatal while one of its handlers, execute(), or an operation of the first two
/// kinds is still running further up.
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
    friend class DAbstractCommandPrivate;

    quint64 const m_id;
    DAbstractCommandPrivate* m_command = nullptr; // the command resets it when it is destroyed
};
