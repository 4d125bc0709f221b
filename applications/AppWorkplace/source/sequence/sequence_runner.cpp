#include "sequence_runner.h"

#include "host/order.h"
#include "host/run_event.h"
#include "host/tool.h"
#include "host/workstation.h"

#include <files/variant_json.h>
#include <plugin_management/d_abstract_plugin.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <memory>

namespace
{

// What a person takes to reach the next screw, in milliseconds.
constexpr qint64 c_betweenPulls = 500;

} // namespace

SequenceRunner::SequenceRunner(Tool& tool, ZrtSimulatedController& controller, Workstation const& workstation,
                               ZrtClock& clock)
    : m_tool(tool)
    , m_controller(controller)
    , m_workstation(workstation)
    , m_events(workstation.events())
    , m_clock(clock)
{}

bool SequenceRunner::run(Sequence const& sequence)
{
    m_record = sequence.tool;
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
    auto parameters = m_record;
    for (auto it = step.parameters.cbegin(); it != step.parameters.cend(); ++it)
        parameters.insert(it.key(), it.value());
    Order& order = m_tool.order(step.command, parameters);
    if (order.command().isRecurrent())
        return order.state() != Order::State::Failed;
    while (order.state() == Order::State::Running && m_clock.step()) {
    }
    if (order.state() == Order::State::Running)
        order.abandon(QStringLiteral("the command waits for nothing and does not end"));
    bool const isAsAsked = order.state() == (step.mustFail ? Order::State::Failed : Order::State::Succeeded);
    if (!isAsAsked && step.mustFail)
        m_events.publish(WaitFailed{QStringLiteral("the order succeeded, but should have failed")});
    return isAsAsked && meetsExpectations(order, step.expected);
}

bool SequenceRunner::perform(StopStep const& step)
{
    return m_tool.stop(step.stopCommand) > 0;
}

bool SequenceRunner::perform(PressStep const& /*step*/)
{
    m_controller.pressReverse();
    m_events.publish(PersonActed{QStringLiteral("presses reverse"),
                                 m_controller.state().isReverse ? QStringLiteral("the tool loosens now")
                                                                : QStringLiteral("the tool fastens now")});
    return true;
}

bool SequenceRunner::perform(TightenStep const& step)
{
    if (m_controller.state().isReverse) {
        m_events.publish(WaitFailed{QStringLiteral("the tool is set to loosen, it cannot tighten")});
        return false;
    }
    return perform(TriggerStep{step.count});
}

bool SequenceRunner::perform(TriggerStep const& step)
{
    for (int i = 0; i < step.count; ++i) {
        auto const duration = m_controller.pullTrigger();
        m_events.publish(PersonActed{QStringLiteral("pulls the trigger"),
                                     duration ? QString() : QStringLiteral("but the tool is locked")});
        letPass(duration.value_or(0) + c_betweenPulls);
    }
    return true;
}

bool SequenceRunner::perform(AwaitStep const& step)
{
    Order const* const order = m_tool.running(step.command);
    if (!order) {
        m_events.publish(WaitFailed{QStringLiteral("\"%1\" is not running").arg(step.command)});
        return false;
    }
    // Shared, for the task stays planned when the value comes before the time is over.
    auto const isOver = std::make_shared<bool>(false);
    m_clock.after(step.within, [isOver] { *isOver = true; });
    while (!matches(order->results().value(step.key), step.value)) {
        if (*isOver) {
            m_events.publish(WaitFailed{QStringLiteral("%1 of \"%2\" did not become %3 within %4 ms")
                                            .arg(step.key, step.command, toText(step.value))
                                            .arg(step.within)});
            return false;
        }
        m_clock.step();
    }
    return true;
}

bool SequenceRunner::perform(WaitStep const& step)
{
    letPass(step.duration);
    return true;
}

void SequenceRunner::letPass(qint64 duration)
{
    bool isOver = false;
    m_clock.after(duration, [&isOver] { isOver = true; });
    while (!isOver)
        m_clock.step();
}

bool SequenceRunner::meetsExpectations(Order const& order, QVariantMap const& expected) const
{
    bool all = true;
    for (auto it = expected.cbegin(); it != expected.cend(); ++it) {
        QVariant const actual = order.results().value(it.key());
        if (matches(actual, it.value()))
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
