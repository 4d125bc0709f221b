#include "sequence_runner.h"

#include "host/clock.h"
#include "host/order.h"
#include "host/run_event.h"
#include "host/tool.h"
#include "host/workstation.h"

#include <plugin_management/d_abstract_plugin.h>

SequenceRunner::SequenceRunner(Tool& tool, Workstation const& workstation, Clock& clock)
    : m_tool(tool)
    , m_workstation(workstation)
    , m_events(workstation.events())
    , m_clock(clock)
{}

bool SequenceRunner::run(Sequence const& sequence)
{
    RunFinished outcome{0, 0, static_cast<int>(sequence.steps.size()), 0};
    for (auto const& step : sequence.steps) {
        --outcome.notRun;
        bool const done = std::visit([this](auto const& one) { return perform(one); }, step);
        m_tool.releaseOrders();
        if (!done) {
            ++outcome.failed;
            break;
        }
        ++outcome.done;
    }
    finishListeners();
    outcome.droppedReplies = m_workstation.droppedReplies();
    m_events.publish(outcome);
    return outcome.failed == 0;
}

bool SequenceRunner::perform(OrderStep const& step)
{
    Order const& order = m_tool.order(step.command, step.parameters);
    if (order.command().isRecurrent())
        return order.state() != Order::State::Failed;
    while (order.state() == Order::State::Running && m_clock.step()) {
    }
    return order.state() == Order::State::Succeeded && meetsExpectations(order, step.expected);
}

bool SequenceRunner::perform(StopStep const& step)
{
    return m_tool.stop(step.stopCommand) > 0;
}

bool SequenceRunner::perform(WaitStep const& step)
{
    bool isOver = false;
    m_clock.after(step.duration, [&isOver] { isOver = true; });
    while (!isOver)
        m_clock.step();
    return true;
}

bool SequenceRunner::meetsExpectations(Order const& order, QVariantMap const& expected) const
{
    bool all = true;
    for (auto it = expected.cbegin(); it != expected.cend(); ++it) {
        QVariant const actual = order.results().value(it.key());
        if (actual == it.value())
            continue;
        m_events.publish(ExpectationMissed{order.id(), it.key(), it.value(), actual});
        all = false;
    }
    return all;
}

void SequenceRunner::finishListeners()
{
    m_tool.stopAll();
    // What they posted last (locking the tool, say) is still answered, or its time allowance passes.
    for (m_tool.releaseOrders(); m_tool.hasOrders() && m_clock.step(); m_tool.releaseOrders()) {
    }
}
