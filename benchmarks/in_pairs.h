#pragma once

#include <benchmark/benchmark.h>
#include <valgrind/callgrind.h>

#include <array>
#include <functional>
#include <memory>
#include <queue>
#include <string>
#include <utility>

namespace measure
{

/// Does one round of some work and answers how many seconds it took.
using TimedRound = std::function<double()>;

/// The times of the plugin and of its baseline, which always do their rounds in pairs and take turns at being
/// first: what comes over the machine falls on both.
class Pairs
{
public:
    Pairs(TimedRound plugin, TimedRound baseline) : m_rounds{std::move(plugin), std::move(baseline)} {}

    /// The next time of the plugin (0) or the baseline (1).
    double next(std::size_t who)
    {
        if (m_times[who].empty()) {
            m_times[m_first].push(m_rounds[m_first]());
            m_first = 1 - m_first;
            m_times[m_first].push(m_rounds[m_first]());
        }
        double const time = m_times[who].front();
        m_times[who].pop();
        return time;
    }

private:
    std::array<TimedRound, 2> m_rounds;
    std::array<std::queue<double>, 2> m_times;
    std::size_t m_first = 0;
};

/// Registers the benchmarks "WHAT/plugin" and "WHAT/baseline", for work that is long and sets its own clock.
/// Each does @p rounds; callgrind, which has no use for them, gets one.
inline void addPair(std::string const& what, int rounds, TimedRound plugin, TimedRound baseline)
{
    auto const pairs = std::make_shared<Pairs>(std::move(plugin), std::move(baseline));
    std::array<char const*, 2> const names{"/plugin", "/baseline"};
    for (std::size_t who = 0; who < names.size(); ++who) {
        auto const run = [pairs, who](benchmark::State& state) {
            for (auto const _ : state) {
                static_cast<void>(_);
                state.SetIterationTime(pairs->next(who));
            }
        };
        benchmark::RegisterBenchmark((what + names[who]).c_str(), run)
            ->UseManualTime()
            ->Iterations(RUNNING_ON_VALGRIND ? 1 : rounds)
            ->Unit(benchmark::kMillisecond);
    }
}

} // namespace measure
