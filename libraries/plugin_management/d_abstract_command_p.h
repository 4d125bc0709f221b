#pragma once

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_order.h>

#include <QMap>
#include <QPointer>
#include <QString>
#include <QVariant>

/// The stand-in's state behind a DAbstractCommand. A command reaches its order, and an order its command,
/// through this class alone.
class DAbstractCommandPrivate
{
public:
    using OnReply = DAbstractCommand::OnReply;

    /// What the command is doing. Calls nest, and the phase is the latest of this list that any of them is
    /// in.
    enum Phase
    {
        Idle,
        Publishing,  ///< its order hears of a result
        Working,     ///< execute() or a handler runs and may be about to post more
        HandingOver, ///< its order takes an instruction, or hears that one is withdrawn: all calls are
                     ///< refused
    };

    /// Keeps the command in a phase for as long as it lives.
    class InPhase
    {
    public:
        InPhase(DAbstractCommandPrivate& command, Phase phase)
            : m_phase(command.phase)
            , m_before(command.phase)
        {
            m_phase = qMax(m_before, phase);
        }
        ~InPhase() { m_phase = m_before; }
        InPhase(InPhase const&) = delete;
        InPhase& operator=(InPhase const&) = delete;

    private:
        Phase& m_phase;
        Phase const m_before;
    };

    /// An instruction to which a reply may still come.
    struct Pending
    {
        QString name;
        int timeAllowance = 0;
        OnReply onReply;
        bool isAnswered = false;
        bool isOverdue = false;
    };

    DAbstractCommandPrivate(DAbstractCommand& command, QString const& name, QString const& stopName,
                            QMap<QString, QVariant> const& given);
    ~DAbstractCommandPrivate();
    DAbstractCommandPrivate(DAbstractCommandPrivate const&) = delete;
    DAbstractCommandPrivate& operator=(DAbstractCommandPrivate const&) = delete;

    // The order's side; DOrder documents these operations.
    bool execute(ICommand& command);
    void allowancePassed(quint64 instructionId);
    void instructionFailed(quint64 instructionId, QString const& reason);
    bool awaitsReplies() const;

    /// The linked order; null if there is none, or if it is not a DOrder.
    DOrder* order() const { return qobject_cast<DOrder*>(linked.data()); }
    void link(QObject* next);

    /// Whether the command refuses @p operation now, because it hands something over; logs it if so.
    bool refuses(char const* operation) const { return phase == HandingOver && logRefusal(operation); }

    quint64 post(DInstruction const& instruction, OnReply const& onReply);
    bool deliver(quint64 instructionId, QMap<QString, QVariant> const& reply);
    bool publish(QString const& key, QVariant const& value);
    void withdraw(quint64 instructionId);
    void withdrawAll();
    void end(bool success);
    /// Ends a one-shot command that has nothing outstanding, unless it is still at work.
    void endIfDone();

    DAbstractCommand& q;
    QString const commandName;
    QString const stopCommandName;
    QMap<QString, QVariant> const parameters;
    QString description;
    DCommandArguments arguments;
    QMap<QString, QVariant> results;

    QPointer<QObject> linked;
    Phase phase = Idle;
    bool isRunning = false;
    QMap<quint64, Pending> pending;
    quint64 lastOwnId = 0;
    QString failure; ///< empty as long as every handler answered true

private:
    void letGoOfOrder();
    bool logRefusal(char const* operation) const; ///< always true
    /// An id where the order gives none.
    quint64 nextOwnId();
    void noteFailure(QString const& message);
    void fail(QString const& message);
};
