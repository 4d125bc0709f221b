#include "replay.h"

#include "event_json.h"
#include "host/tool.h"
#include "host/workstation.h"
#include "log_lines/find_log_lines.h"

#include <files/input_error.h>
#include <plugin_management/d_abstract_plugin.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <algorithm>
#include <type_traits>
#include <utility>

namespace
{

bool isCause(RunEvent const& event)
{
    return kindOf(event).role == ReplayRole::Cause;
}

/// What came of it. Traces of a debug build do not count.
bool isOutcome(RunEvent const& event)
{
    auto const* const log = std::get_if<LogWritten>(&event);
    return kindOf(event).role == ReplayRole::Outcome && !(log && log->level == QtDebugMsg);
}

/// The instruction that an event is about, and its order.
struct AboutInstruction
{
    quint64 order;
    quint64& id;
};

template <class Event, class = void> struct IsAboutInstruction : std::false_type
{
};
template <class Event>
struct IsAboutInstruction<Event, std::void_t<decltype(Event::instruction)>> : std::true_type
{
};

std::optional<AboutInstruction> aboutInstruction(RunEvent& event)
{
    return std::visit(
        [](auto& one) -> std::optional<AboutInstruction> {
            if constexpr (IsAboutInstruction<std::decay_t<decltype(one)>>())
                return AboutInstruction{one.order, one.instruction};
            return std::nullopt;
        },
        event);
}

} // namespace

QByteArray ReplayStep::Outcome::compared() const
{
    if (auto const* const log = std::get_if<LogWritten>(&event))
        return toLine(toJson(time, LogWritten{log->level, withoutPlaces(log->text)}));
    return toLine(toJson(time, event));
}

bool ReplayStep::isSame() const
{
    auto const isSameLine = [](Outcome const& a, Outcome const& b) { return a.compared() == b.compared(); };
    return problem.isEmpty()
           && std::equal(recorded.cbegin(), recorded.cend(), replayed.cbegin(), replayed.cend(), isSameLine);
}

Replay::Replay(Tool& tool, Workstation& workstation, ZrtClock& clock, RunEvents& events,
               QStringList const& targets)
    : m_tool(tool)
    , m_clock(clock)
{
    for (auto const& target : targets)
        workstation.connectEndpoint(target, *this);
    events.listen([this](qint64 time, RunEvent const& event) { note(time, event); });
}

std::optional<ReplayStep> Replay::next(TraceReader& trace)
{
    if (!m_nextCause)
        m_nextCause = trace.next();
    if (std::holds_alternative<RunFinished>(m_nextCause->event))
        return std::nullopt;
    ReplayStep step{*m_nextCause, {}, {}, {}};
    for (auto entry = trace.next(); true; entry = trace.next()) {
        if (isCause(entry->event)) {
            m_nextCause = entry;
            break;
        }
        if (isOutcome(entry->event))
            step.recorded.push_back({entry->time, entry->event});
    }
    m_step = &step;
    perform(step);
    pass(m_nextCause->time, std::holds_alternative<RunFinished>(m_nextCause->event));
    m_tool.releaseOrders();
    m_step = nullptr;
    return step;
}

void Replay::perform(ReplayStep& step)
{
    auto const& cause = step.cause.event;
    if (auto const* const order = std::get_if<OrderStarted>(&cause))
        m_tool.order(order->command, order->parameters);
    else if (auto const* const stop = std::get_if<StopOrdered>(&cause))
        m_tool.stop(stop->stopCommand);
    else if (std::holds_alternative<AllStopped>(cause))
        m_tool.stopAll();
    else if (auto const* const reply = std::get_if<ReplyArrived>(&cause)) {
        if (auto const onReply = m_replies.value(reply->instruction))
            onReply(reply->reply);
        else
            step.problem = QStringLiteral("nobody waits for this reply: the instruction was not sent");
    }
}

// A time allowance that ends when the next step is due ends before it if it did so in the record; nothing
// comes after the last step.
void Replay::pass(qint64 until, bool isLast)
{
    auto const isBefore = [this, until, isLast](qint64 due) {
        return due < until || (due == until && (isLast || m_step->replayed.size() < m_step->recorded.size()));
    };
    while (m_clock.nextDue() && isBefore(*m_clock.nextDue()))
        m_clock.step();
    m_clock.moveTo(until);
}

void Replay::note(qint64 time, RunEvent const& event)
{
    if (!m_step || !isOutcome(event))
        return;
    auto outcome = event;
    if (auto const* const posted = std::get_if<InstructionPosted>(&event)) {
        quint64 const id = recordedId(*posted);
        m_recordedIds.insert(posted->instruction, id);
        m_reachable =
            std::none_of(m_step->recorded.cbegin(), m_step->recorded.cend(), [id](auto const& recorded) {
                auto const* const failed = std::get_if<InstructionFailed>(&recorded.event);
                return failed && failed->instruction == id;
            });
    }
    if (auto const about = aboutInstruction(outcome))
        about->id = m_recordedIds.value(about->id);
    m_step->replayed.push_back({time, outcome});
}

// The record's instruction is the first of this name that nothing was found for yet: one that is sent too
// much, or not at all, does not shift those behind it.
quint64 Replay::recordedId(InstructionPosted const& posted) const
{
    for (auto const& outcome : m_step->recorded) {
        auto const* const recorded = std::get_if<InstructionPosted>(&outcome.event);
        if (!recorded || recorded->order != posted.order || recorded->content.name != posted.content.name)
            continue;
        auto const isTaken = [recorded](auto const& replayed) {
            auto const* const other = std::get_if<InstructionPosted>(&replayed.event);
            return other && other->instruction == recorded->instruction;
        };
        if (std::none_of(m_step->replayed.cbegin(), m_step->replayed.cend(), isTaken))
            return recorded->instruction;
    }
    return 0;
}

void Replay::post(quint64 id, QString const& /*instruction*/, QVariantMap const& /*arguments*/, Reply onReply)
{
    m_replies[m_recordedIds.value(id)] = std::move(onReply);
}

TraceSummary checkTrace(QString const& fileName, Tool const& tool)
{
    TraceReader trace(fileName);
    TraceSummary summary;
    quint64 orders = 0;
    std::vector<quint64> instructions{0}; // the order of each, by its id
    while (auto entry = trace.next()) {
        auto const counted = [&trace, &entry](QString const& what, quint64 number, quint64 expected) {
            if (number != expected)
                trace.fail(entry->line, QStringLiteral("%1 %2 stands where %1 %3 should")
                                            .arg(what, QString::number(number), QString::number(expected)));
        };
        if (auto const* const started = std::get_if<RunStarted>(&entry->event))
            summary.begin = *started;
        if (auto const* const order = std::get_if<OrderStarted>(&entry->event)) {
            counted(QStringLiteral("order"), order->order, ++orders);
            if (!tool.plugin().commandPrototype(order->command))
                trace.fail(entry->line,
                           QStringLiteral("the plugin has no command \"%1\"").arg(shown(order->command)));
        }
        if (auto const* const posted = std::get_if<InstructionPosted>(&entry->event)) {
            counted(QStringLiteral("instruction"), posted->instruction, instructions.size());
            if (posted->order == 0 || posted->order > orders)
                trace.fail(entry->line, QStringLiteral("there is no order %1").arg(posted->order));
            instructions.push_back(posted->order);
            if (!summary.targets.contains(posted->content.target))
                summary.targets += posted->content.target;
        }
        auto const about = aboutInstruction(entry->event);
        if (about
            && (about->id == 0 || about->id >= instructions.size()
                || instructions[about->id] != about->order))
            trace.fail(entry->line,
                       QStringLiteral("order %1 has no instruction %2").arg(about->order).arg(about->id));
    }
    return summary;
}
