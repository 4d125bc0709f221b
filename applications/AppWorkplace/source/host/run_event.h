#pragma once

#include <plugin_management/d_order.h>

#include <QString>
#include <QVariant>

#include <functional>
#include <variant>
#include <vector>

class Clock;

// What happens in a run, for whoever shows it or writes it down.

struct RunStarted
{
    QString plugin;
    QString version;
    QString controller; ///< model and serial number
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
struct InstructionPosted
{
    quint64 order;
    quint64 instruction;
    DInstruction content;
};
/// An instruction of a command that goes on could not be delivered, and why.
struct InstructionFailed
{
    quint64 order;
    quint64 instruction;
    QString name;
    QString reason;
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

using RunEvent = std::variant<RunStarted, OrderStarted, StopOrdered, InstructionPosted, InstructionFailed,
                              InstructionWithdrawn, ReplyArrived, ReplyDropped, ResultUpdated, OrderFinished,
                              PersonActed, WaitFailed, ExpectationMissed, LogWritten, RunFinished>;

/// Passes each event on to all listeners, with its time in milliseconds.
class RunEvents
{
public:
    using Listener = std::function<void(qint64 time, RunEvent const& event)>;

    explicit RunEvents(Clock const& clock) : m_clock(clock) {}

    void listen(Listener listener) { m_listeners.push_back(std::move(listener)); }
    void publish(RunEvent const& event) const;

private:
    Clock const& m_clock;
    std::vector<Listener> m_listeners;
};
