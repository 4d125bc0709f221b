// A year's production through the loaded plugin, with the workplace around it and on the simulated clock: how
// much all of that carries in a second, and whether its memory stays as it is.

#include "listening_tool.h"
#include "long_run.h"
#include "measure.h"

#include "host/plugin_library.h"
#include "host/run_event.h"
#include "host/tool.h"
#include "host/workstation.h"
#include "host/zrt_device.h"
#include "sequence/sequence_runner.h"

#include <plugin_management/d_abstract_plugin.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <QCoreApplication>
#include <QUuid>

#include <algorithm>
#include <string>

namespace
{

constexpr int c_days = 250;
constexpr int c_tighteningsPerDay = 5000;
/// Milliseconds from one screw to setting the next. With the rest that makes a screw every 10.8 seconds, and
/// a day's screws in 15 hours: two shifts without their breaks. There are no nights, for they cost nothing
/// and would flatter a comparison with real time.
constexpr qint64 c_toNextScrew = 9950;
/// How many callgrind is asked to count.
constexpr int c_counted = 1000;
/// One part of so many goes by before memory has to stay as it is.
constexpr int c_warmUpShare = 10;

int wantedTightenings()
{
    constexpr char const* variable = "ZRT_YEAR_TIGHTENINGS";
    if (!qEnvironmentVariableIsSet(variable))
        return RUNNING_ON_VALGRIND ? c_counted : c_days * c_tighteningsPerDay;
    int const wanted = qEnvironmentVariableIntValue(variable);
    if (wanted <= 0)
        qFatal("%s must be a number of tightenings", variable);
    return wanted;
}

/// What is ordered and done on a day.
Sequence dayOf(int tightenings)
{
    Sequence day;
    day.tool = toolParameters();
    OrderStep const init{QStringLiteral("init"), {}, {{QStringLiteral("doneOk"), true}}};
    OrderStep const listen{QStringLiteral("startListening"), {}, {}};
    OrderStep const presetInfo{QStringLiteral("getPresetInfo"), {{QStringLiteral("prog"), 1}}, {}};
    OrderStep const direction{QStringLiteral("getDirection"), {}, {{QStringLiteral("direction"), 0}}};
    OrderStep const start{QStringLiteral("startTightening"),
                          {{QStringLiteral("program"), 1}, {QStringLiteral("locking"), 2}},
                          {}};
    OrderStep const stop{QStringLiteral("stopTightening"), {}, {}};
    day.steps = {init, listen, presetInfo, direction};
    for (int i = 0; i < tightenings; ++i)
        day.steps.insert(day.steps.end(), {start, TightenStep{1}, stop, WaitStep{c_toNextScrew}});
    day.steps.emplace_back(StopStep{QStringLiteral("stopListening")});
    return day;
}

/// A workplace as `workplace run` builds it. It stops the program at the first thing that is not as it must
/// be.
class Workplace
{
public:
    Workplace() : m_tool(m_library.plugin(), QUuid::createUuid(), m_workstation)
    {
        m_workstation.connectEndpoint(QStringLiteral("device"), m_device);
    }

    RunEvents& events() { return m_events; }
    /// Milliseconds of its own time.
    qint64 now() const { return m_clock.now(); }

    void run(Sequence const& sequence)
    {
        if (!SequenceRunner(m_tool, m_device.controller(), m_workstation, m_clock).run(sequence))
            qFatal("a step failed");
        if (m_workstation.droppedReplies() != 0)
            qFatal("a reply was dropped");
        if (m_tool.hasOrders())
            qFatal("an order is left over");
    }

private:
    PluginLibrary m_library{QStringLiteral(ZRT_PLUGIN_FILE)};
    ZrtClock m_clock{ZrtClock::Pace::Simulated};
    RunEvents m_events{m_clock};
    Workstation m_workstation{m_clock, m_events};
    ZrtDevice m_device{ZrtSimulatedController::create({}, m_clock)};
    Tool m_tool;
};

void produce(benchmark::State& state, std::string const& name, int tightenings)
{
    constexpr double milliseconds = 1000;
    Workplace workplace;
    Progress progress(tightenings, "tightenings");
    int events = 0;
    double warm = memory("VmRSS"); // once in vain, for reading it takes some itself
    workplace.events().listen([&](qint64 /*time*/, RunEvent const& event) {
        auto const* const finished = std::get_if<OrderFinished>(&event);
        if (finished && !finished->success)
            qFatal("%s failed: %s", qPrintable(finished->command), qPrintable(finished->message));
        auto const* const result = std::get_if<ResultUpdated>(&event);
        if (!result || result->key != QLatin1String("eventData"))
            return;
        ++events;
        if (result->value.toMap().value(QStringLiteral("eventCountNo")).toInt() != events)
            qFatal("event %d is not the one that was to come", events);
        progress.show(events);
        if (events == std::max(tightenings / c_warmUpShare, 1))
            warm = memory("VmRSS");
    });

    CALLGRIND_ZERO_STATS;
    Sequence const fullDay = dayOf(std::min(tightenings, c_tighteningsPerDay));
    int left = tightenings;
    for (; left >= c_tighteningsPerDay; left -= c_tighteningsPerDay)
        workplace.run(fullDay);
    if (left > 0)
        workplace.run(dayOf(left));
    double const seconds = progress.seconds();
    std::string const label = std::to_string(tightenings) + ' ' + name;
    CALLGRIND_DUMP_STATS_AT(label.c_str());
    if (events != tightenings)
        qFatal("%d tightenings gave %d events", tightenings, events);

    state.counters["tightenings_per_second"] = tightenings / seconds;
    state.counters["times_real_time"] = static_cast<double>(workplace.now()) / milliseconds / seconds;
    state.counters["rss_warm_kb"] = warm;
    state.counters["rss_end_kb"] = memory("VmRSS");
    state.counters["rss_peak_kb"] = memory("VmHWM");
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    int const tightenings = wantedTightenings();
    std::string const name = "year/" + std::to_string(tightenings) + "/plugin";
    benchmark::RegisterBenchmark(name.c_str(),
                                 [name, tightenings](benchmark::State& state) {
                                     for (auto const _ : state) {
                                         static_cast<void>(_);
                                         produce(state, name, tightenings);
                                     }
                                 })
        ->Iterations(1)
        ->Unit(benchmark::kSecond);
    return measure::run(argc, argv);
}
