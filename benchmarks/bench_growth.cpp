// What many events and many instances cost: memory must not grow with events, and what it grows by with each
// instance should be known.

#include "listening_tool.h"
#include "long_run.h"
#include "measure.h"

#include <plugin_management/d_abstract_tightening_tool.h>

#include <QCoreApplication>

namespace
{

constexpr int c_instances = 400;

/// Does @p work so often and tells how the resident memory went; the first tenth is for warming up.
template <class Work> void repeat(benchmark::State& state, int rounds, char const* what, Work work)
{
    constexpr int warmUpShare = 10;
    double warm = 0;
    for (auto const _ : state) {
        static_cast<void>(_);
        Progress progress(rounds, what);
        for (int round = 1; round <= rounds; ++round) {
            work();
            progress.show(round);
            if (round == rounds / warmUpShare)
                warm = memory("VmRSS");
        }
    }
    state.counters["rss_warm_kb"] = warm;
    state.counters["rss_end_kb"] = memory("VmRSS");
}

/// A plugin object like the shipped one that leaves out to register the types of the maintenance page.
class UnregisteredTool final : public DAbstractTighteningTool
{
public:
    UnregisteredTool()
        : DAbstractTighteningTool(QUuid::createUuid(), QStringLiteral("Plugin Tool ZRT"), 1, QUuid(), nullptr)
    {
        setProperty(QStringLiteral("toolType"), QVariant(0), false);
        setProperty(QStringLiteral("features"), QVariant(QStringList{QStringLiteral("allow_loosening")}),
                    false);
        setProperty(QStringLiteral("typeName"), QVariant(QStringLiteral("tightening")), false);
    }
    void initPluginCommands() override {}
    IPlugin* createInstance(QUuid const& /*objectUuid*/) const override { return nullptr; }
    char const* pluginSubTypeName() const override { return "tightening"; }
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    // What a registration costs depends on how many there have been, so this is what the first instances
    // cost.
    measure::add("instance/1/plugin", [] {
        return [id = QUuid::createUuid(), &plugin = shippedPlugin()] { delete plugin.createInstance(id); };
    })->Iterations(c_instances);
    measure::add("instance/1/baseline", [] {
        return [] { UnregisteredTool const tool; };
    })->Iterations(c_instances);
    benchmark::RegisterBenchmark(
        "memory/10000000 events/plugin",
        [](benchmark::State& state) { repeat(state, 10'000'000, "events", ListeningTool(16)); })
        ->Iterations(1)
        ->Unit(benchmark::kSecond);
    benchmark::RegisterBenchmark("memory/100000 instances/plugin",
                                 [](benchmark::State& state) {
                                     repeat(state, 100'000, "instances",
                                            [id = QUuid::createUuid(), &plugin = shippedPlugin()] {
                                                delete plugin.createInstance(id);
                                            });
                                 })
        ->Iterations(1)
        ->Unit(benchmark::kSecond);
    return measure::run(argc, argv);
}
