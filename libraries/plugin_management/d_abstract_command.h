#pragma once

#include <fast_delegate/fast_delegate.h>
#include <plugin_management/i_command.h>

#include <QMap>
#include <QObject>
#include <QScopedPointer>
#include <QString>
#include <QVariant>

class DAbstractCommandPrivate;

/// A command: it turns one order into instructions to endpoints, and the replies into declared results.
///
/// A plugin declares prototypes; the host clones one with createCommand() for each order, links the clone to
/// the order and executes it.
///
/// - A one-shot command finishes when none of its instructions is outstanding; it succeeded when every reply
///   handler answered true. Each of its instructions takes one reply.
/// - A command with a stop name listens: its instructions take any number of replies until the host finishes
///   it with finishTheCommand(), because the stop command was ordered.
///
/// A reply for an instruction that was withdrawn or needs no further reply is dropped, never delivered.
/// Everything happens on the thread that owns the command.
///
/// DOrder documents what may be called while a command calls its order. Other calls are refused with a
/// critical log line. Destroying a command in the middle of its work, such as from within one of its
/// handlers, is fatal.
///
/// The order in which virtual operations are declared is the order of the virtual table and part of the
/// contract with plugins that are already built: never move one.
class PLUGIN_MANAGEMENT_EXPORT DAbstractCommand : public QObject, public ICommand
{
    Q_OBJECT

public:
    /// A reply handler: takes an instruction's id and the reply, answers whether it accepted the reply.
    using OnReply = fastdelegate::FastDelegate2<quint64, QMap<QString, QVariant> const&, bool>;

    /// A one-shot command.
    DAbstractCommand(QString const& commandName, QMap<QString, QVariant> const& parameters, QObject* parent);
    /// A command that runs until the command named @p stopCommandName is ordered.
    DAbstractCommand(QString const& commandName, QString const& stopCommandName,
                     QMap<QString, QVariant> const& parameters, QObject* parent);
    ~DAbstractCommand() override;

    /// Links the command to its order. Any QObject makes a link; what the command does reaches the host only
    /// through an order that is a DOrder.
    void linkWithItsOrder(QObject* order) override;
    QString commandName() const override;
    /// The name of the command that stops this one; empty for a one-shot command.
    QString stopCommandName() const override;
    /// The id of the linked order; 0 without one.
    quint64 getOrderId() const override;
    /// The order that the parameters name under "orderId"; 0 if they name none.
    quint64 getParameterOrderId() const override;
    /// Whether the command listens until it is stopped.
    bool isRecurrent() const override;
    /// Whether the command has a name to be ordered by.
    bool isValid() const override;
    QString description() const override;
    /// The description with a line for each parameter and each result.
    QString fullDescription() const override;
    DCommandArguments commandArguments() const override;

    /// Starts the command. Answers false, and the override must then send nothing, when it is linked to no
    /// order or refuses to be called now.
    bool commandExecute() override;
    /// Hands a reply to the handler that the instruction was posted with. Answers what the handler answered,
    /// false for a reply that was dropped.
    bool setReply(quint64 instructionId, QMap<QString, QVariant> const& reply) override;
    /// Withdraws what is outstanding and ends the command as commandFinish() does, and answers as that does.
    bool finishTheCommand(bool& success) override;

    /// The value of a declared result: the last one stored, at first the declared default; invalid for any
    /// other key.
    QVariant result(QString const& key) const;

signals:
    /// The command has ended. Its order hears of it next. To re-execute the command, wait until then.
    void sigCommandFinished(bool success) override;

protected:
    /// Posts an instruction and returns its id, which stopTheInstruction() takes; it is not 0. Replies reach
    /// @p onReply with that id. May be called from within a reply handler.
    /// @param timeAllowance  how long the first reply may take, in milliseconds
    virtual quint64 addInstruction(QString const& target, QString const& instruction,
                                   QMap<QString, QVariant> const& arguments, int timeAllowance,
                                   OnReply onReply);

    void setDescription(QString const& description);
    void declareAParameter(QString const& key, QString const& typeTag, QString const& label,
                           QVariant const& defaultValue);
    void declareAResult(QString const& key, QString const& typeTag, QString const& label,
                        QVariant const& defaultValue);

    /// The order's value, else the declared default, else @p defaultValue.
    QVariant getParameterValue(QString const& key, QVariant const& defaultValue) const;
    /// What the order gives under @p key, declared or not: a single value or a map; invalid if it gives
    /// nothing.
    QVariant getParametersSection(QString const& key);
    /// Stores the value of a declared result and reports it; false for a key that is not declared.
    bool commandUpdateResult(QString const& key, QVariant const& value);
    /// Ends the command with this success. Instructions that still wait for their first reply are not
    /// withdrawn and get it; those that have had one get no more. Answers false, and sets @p success to
    /// false, if the command is not running or refuses to be called now.
    bool commandFinish(bool& success);
    /// Withdraws an instruction; no further reply to it is delivered. An unknown id is ignored.
    void stopTheInstruction(quint64 instructionId);

private:
    QScopedPointer<DAbstractCommandPrivate> const d;
};
