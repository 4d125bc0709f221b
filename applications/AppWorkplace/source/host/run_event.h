#pragma once

#include <files/formats.h>
#include <plugin_management/d_order.h>

#include <QDateTime>
#include <QString>
#include <QVariant>

#include <functional>
#include <limits>
#include <variant>
#include <vector>

class ZrtClock;

/// What an event is to a replay.
enum class ReplayRole
{
    Cause,   ///< it was done to the plugin and is done again, or begins or ends the record
    Outcome, ///< it came of that, and is compared
    None,
};

/// What an event is called in JSON, what it is and who is interested in it.
struct EventKind
{
    char const* name = "";
    char const* meaning = "";
    ReplayRole role = ReplayRole::None;
    bool isOfTracesAlone = false; ///< a transcript leaves it out
};

// What happens in a run, for whoever shows it or writes it down. An event names its fields once; whatever
// reads, writes or documents it is made from that (files/object_format.h).

/// The format of a trace, as its first line tells it. It grows when a program that reads the format before
/// could not make sense of the new one.
struct TraceFormat
{
    static constexpr int c_current = 1;

    void read(JsonInput const& input, int& value) const;
    format::Json write(int value) const;
    format::Json schema() const;
};

struct RunStarted
{
    QString plugin;
    QString version;
    QString controller;
    QDateTime start;
    int format = TraceFormat::c_current;

    static constexpr EventKind c_kind{"begin", "the first line", ReplayRole::Cause};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("format", &RunStarted::format, "of the trace", TraceFormat());
        fields.required("plugin", &RunStarted::plugin);
        fields.required("version", &RunStarted::version);
        fields.required("controller", &RunStarted::controller, "model and serial number");
        fields.required("start", &RunStarted::start,
                        "the date and time that `time` counts from, without a time zone");
    }
};

struct OrderStarted
{
    quint64 order = 0;
    QString command;
    QVariantMap parameters;

    static constexpr EventKind c_kind{"order", "a command is ordered", ReplayRole::Cause};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("order", &OrderStarted::order, "its number, from 1");
        fields.required("command", &OrderStarted::command);
        fields.required("parameters", &OrderStarted::parameters);
    }
};

struct StopOrdered
{
    QString stopCommand;
    int running = 0;

    static constexpr EventKind c_kind{"stop", "a stop is ordered", ReplayRole::Cause};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("command", &StopOrdered::stopCommand, "the stop name");
        fields.required("running", &StopOrdered::running, "how many running commands it ends");
    }
};

struct AllStopped
{
    int running = 0;

    static constexpr EventKind c_kind{"stopAll",
                                      "the sequence is over, and ends every command that has a stop name",
                                      ReplayRole::Cause, true};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("running", &AllStopped::running, "how many these are");
    }
};

struct InstructionPosted
{
    quint64 order = 0;
    quint64 instruction = 0;
    DInstruction content;

    static constexpr EventKind c_kind{"instruction", "a command asks the controller for something",
                                      ReplayRole::Outcome, true};
    template <class Fields> static void fields(Fields& fields)
    {
        auto const content = [](auto member) {
            return [member](auto& event) -> auto&
            {
                return event.content.*member;
            };
        };
        fields.required("order", &InstructionPosted::order);
        fields.required("instruction", &InstructionPosted::instruction, "its id, from 1");
        fields.required("target", content(&DInstruction::target), "the endpoint");
        fields.required("name", content(&DInstruction::name));
        fields.required("arguments", content(&DInstruction::arguments));
        fields.required(
            "timeAllowance", content(&DInstruction::timeAllowance), "",
            format::Whole{std::numeric_limits<int>::min(), std::numeric_limits<int>::max(), "milliseconds"});
    }
};

struct InstructionFailed
{
    quint64 order = 0;
    quint64 instruction = 0;
    QString name;
    QString reason;
    bool goesOn = false;

    static constexpr EventKind c_kind{
        "notDelivered", "the endpoint is gone; where the command does not go on, only a trace tells it",
        ReplayRole::Outcome};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("order", &InstructionFailed::order);
        fields.required("instruction", &InstructionFailed::instruction);
        fields.required("name", &InstructionFailed::name);
        fields.required("reason", &InstructionFailed::reason);
        fields.required("goesOn", &InstructionFailed::goesOn, "whether its command goes on");
    }
};

struct InstructionWithdrawn
{
    quint64 order = 0;
    quint64 instruction = 0;

    static constexpr EventKind c_kind{"withdrawn",
                                      "nobody waits for replies to an instruction that was delivered",
                                      ReplayRole::Outcome, true};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("order", &InstructionWithdrawn::order);
        fields.required("instruction", &InstructionWithdrawn::instruction);
    }
};

struct ReplyArrived
{
    quint64 order = 0;
    quint64 instruction = 0;
    QVariantMap reply;

    static constexpr EventKind c_kind{"reply", "the controller replies", ReplayRole::Cause, true};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("order", &ReplyArrived::order);
        fields.required("instruction", &ReplyArrived::instruction);
        fields.required("reply", &ReplyArrived::reply);
    }
};

struct ReplyDropped
{
    quint64 order = 0;
    quint64 instruction = 0;

    static constexpr EventKind c_kind{"dropped", "nobody waited for the reply before", ReplayRole::Outcome,
                                      true};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("order", &ReplyDropped::order);
        fields.required("instruction", &ReplyDropped::instruction);
    }
};

struct ResultUpdated
{
    quint64 order = 0;
    QString key;
    QVariant value;

    static constexpr EventKind c_kind{"result", "a command publishes a result", ReplayRole::Outcome};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("order", &ResultUpdated::order);
        fields.required("key", &ResultUpdated::key);
        fields.required("value", &ResultUpdated::value);
    }
};

struct OrderFinished
{
    quint64 order = 0;
    QString command;
    bool success = false;
    QString message;

    static constexpr EventKind c_kind{"finished", "an order ends", ReplayRole::Outcome};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("order", &OrderFinished::order);
        fields.required("command", &OrderFinished::command);
        fields.required("success", &OrderFinished::success);
        fields.optional("message", &OrderFinished::message, "why it failed");
    }
};

struct PersonActed
{
    QString what;
    QString effect;

    static constexpr EventKind c_kind{"person", "a person does something at the tool"};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("action", &PersonActed::what);
        fields.optional("effect", &PersonActed::effect, "if no other event tells it");
    }
};

struct WaitFailed
{
    QString message;

    static constexpr EventKind c_kind{"waitFailed", "what was waited for did not come in time"};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("message", &WaitFailed::message);
    }
};

struct ExpectationMissed
{
    quint64 order = 0;
    QString key;
    QVariant expected;
    QVariant actual;

    static constexpr EventKind c_kind{"unexpected", "a result is not what the sequence expects"};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("order", &ExpectationMissed::order);
        fields.required("key", &ExpectationMissed::key);
        fields.required("expected", &ExpectationMissed::expected);
        fields.required("actual", &ExpectationMissed::actual);
    }
};

/// "debug", "info", "warning", "critical" or "fatal".
struct LogLevelFormat
{
    void read(JsonInput const& input, QtMsgType& level) const;
    format::Json write(QtMsgType level) const;
    format::Json schema() const;
};
QString nameOf(QtMsgType level);

struct LogWritten
{
    QtMsgType level = QtDebugMsg;
    QString text;

    /// What a debug build traces is no outcome.
    static constexpr EventKind c_kind{"log", "Qt's logging writes a line", ReplayRole::Outcome};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("level", &LogWritten::level, "", LogLevelFormat());
        fields.required("text", &LogWritten::text);
    }
};

struct RunFinished
{
    int done = 0;
    int failed = 0;
    int notRun = 0;
    quint64 droppedReplies = 0;

    static constexpr EventKind c_kind{"end", "the last line", ReplayRole::Cause};
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("done", &RunFinished::done, "steps");
        fields.required("failed", &RunFinished::failed, "steps");
        fields.required("notRun", &RunFinished::notRun, "steps");
        fields.required("droppedReplies", &RunFinished::droppedReplies);
    }
};

using RunEvent =
    std::variant<RunStarted, OrderStarted, StopOrdered, AllStopped, InstructionPosted, InstructionFailed,
                 InstructionWithdrawn, ReplyArrived, ReplyDropped, ResultUpdated, OrderFinished, PersonActed,
                 WaitFailed, ExpectationMissed, LogWritten, RunFinished>;

EventKind const& kindOf(RunEvent const& event);

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
