#pragma once

#include <plugin_management/d_order.h>

#include <QDateTime>
#include <QString>
#include <QVariant>

#include <functional>
#include <variant>
#include <vector>

class ZrtClock;

// What happens in a run, for whoever shows it or writes it down.

struct RunStarted
{
    QString plugin;
    QString version;
    QString controller; ///< model and serial number
    QDateTime start;    ///< by the wall clock of the place
};
struct OrderStarted
{
    quint64 order;
    QString command;
    QVariantMap parameters;
};
struct StopOrdered
{
    QString stopCommand;
    int running; ///< how many running commands it ends
};
/// Every running command that has a stop name is ended, for the sequence is over.
struct AllStopped
{
    int running; ///< how many these are
};
struct InstructionPosted
{
    quint64 order;
    quint64 instruction;
    DInstruction content;
};
/// An instruction could not be delivered, and why.
struct InstructionFailed
{
    quint64 order;
    quint64 instruction;
    QString name;
    QString reason;
    bool goesOn; ///< its command does, in spite of it
};
struct InstructionWithdrawn
{
    quint64 order;
    quint64 instruction;
};
struct ReplyArrived
{
    quint64 order;
    quint64 instruction;
    QVariantMap reply;
};
/// What was waited for did not come in time.
struct WaitFailed
{
    QString message;
};
/// The reply that arrived just before was not wanted any more.
struct ReplyDropped
{
    quint64 order;
    quint64 instruction;
};
struct ResultUpdated
{
    quint64 order;
    QString key;
    QVariant value;
};
struct OrderFinished
{
    quint64 order;
    QString command;
    bool success;
    QString message; ///< why it failed
};
/// A person did something at the tool.
struct PersonActed
{
    QString what;
    QString effect; ///< empty if what happens then is told by other events
};
struct ExpectationMissed
{
    quint64 order;
    QString key;
    QVariant expected;
    QVariant actual;
};
struct LogWritten
{
    QString level; ///< "debug", "info", "warning", "critical" or "fatal"
    QString text;
};
struct RunFinished
{
    int done;
    int failed;
    int notRun;
    quint64 droppedReplies;
};

using RunEvent =
    std::variant<RunStarted, OrderStarted, StopOrdered, AllStopped, InstructionPosted, InstructionFailed,
                 InstructionWithdrawn, ReplyArrived, ReplyDropped, ResultUpdated, OrderFinished, PersonActed,
                 WaitFailed, ExpectationMissed, LogWritten, RunFinished>;

/// Passes each event on to all listeners, with its time in milliseconds.
class RunEvents
{
public:
    using Listener = std::function<void(qint64 time, RunEvent const& event)>;

    explicit RunEvents(ZrtClock const& clock) : m_clock(clock) {}

    ZrtClock const& clock() const { return m_clock; }

    void listen(Listener listener) { m_listeners.push_back(std::move(listener)); }
    void publish(RunEvent const& event) const;

private:
    ZrtClock const& m_clock;
    std::vector<Listener> m_listeners;
};
