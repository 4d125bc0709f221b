#pragma once

#include <benchmark/benchmark.h>
#include <valgrind/callgrind.h>

#include <string>
#include <utility>

/// How benchmarks are named and measured. A name has three parts, "what/size/who": scripts/bench sets those
/// that differ in "who" against each other, and the one called "baseline" is the least work.
namespace measure
{

/// How often work is done before anybody looks, so that memory and caches are as they are in the long run.
constexpr int c_warmUpRounds = 100;
/// How often work is done while its instructions are counted.
constexpr int c_countedRounds = 100;

/// Has callgrind write down the instructions of so many rounds of @p work, under "ROUNDS NAME".
template <class Work> void countInstructions(std::string const& name, int rounds, Work& work)
{
    CALLGRIND_ZERO_STATS;
    for (int round = 0; round < rounds; ++round)
        work();
    std::string const label = std::to_string(rounds) + ' ' + name;
    CALLGRIND_DUMP_STATS_AT(label.c_str());
}

/// Registers a benchmark. @p prepare is called for each run of it and gives the work to measure: an object to
/// call for one round. Run by callgrind, the same program also counts the instructions of that work.
template <class Prepare>
benchmark::internal::Benchmark* add(std::string const& name, Prepare prepare,
                                    int countedRounds = c_countedRounds)
{
    return benchmark::RegisterBenchmark(name.c_str(),
                                        [name, prepare, countedRounds](benchmark::State& state) {
                                            auto work = prepare();
                                            for (int round = 0; round < c_warmUpRounds; ++round)
                                                work();
                                            if (RUNNING_ON_VALGRIND)
                                                countInstructions(name, countedRounds, work);
                                            for (auto const _ : state) {
                                                static_cast<void>(_);
                                                work();
                                            }
                                        });
}

/// Registers a benchmark of work that is long and has its own clock: @p round does it once and answers how
/// many seconds it took.
template <class Round> void addClocked(std::string const& name, Round round)
{
    benchmark::RegisterBenchmark(name.c_str(),
                                 [round](benchmark::State& state) {
                                     for (auto const _ : state) {
                                         static_cast<void>(_);
                                         state.SetIterationTime(round());
                                     }
                                 })
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

/// Runs what is registered, as the command line says.
inline int run(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

} // namespace measure
