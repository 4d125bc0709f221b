#include "verbs.h"

#include "make_tool.h"
#include "output.h"
#include "progress.h"

#include "host/log_tap.h"
#include "host/plugin_library.h"
#include "host/tool.h"
#include "host/workstation.h"
#include "trace/event_json.h"
#include "trace/replay.h"

#include <files/input_error.h>
#include <plugin_management/d_abstract_plugin.h>
#include <utilities/utilities.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

namespace
{

using Json = nlohmann::ordered_json;

struct Options
{
    QString trace;
    QString plugin;
    bool json = false;
};

using Outcomes = std::vector<ReplayStep::Outcome>;

// What all of them are as they are compared.
std::vector<QByteArray> compared(Outcomes const& outcomes)
{
    std::vector<QByteArray> lines;
    lines.reserve(outcomes.size());
    for (auto const& outcome : outcomes)
        lines.push_back(outcome.compared());
    return lines;
}

QByteArray shownLine(ReplayStep::Outcome const& outcome)
{
    return toLine(toJson(outcome.time, outcome.event));
}

// The lines that both have are their longest common subsequence: table[i][j] is how long that of the ends
// from recorded[i] and replayed[j] on is. Of what is larger than any plugin's doing everything counts as
// different.
QByteArray diff(Outcomes const& recordedOutcomes, Outcomes const& replayedOutcomes)
{
    auto const recorded = compared(recordedOutcomes);
    auto const replayed = compared(replayedOutcomes);
    constexpr std::size_t mostCells = 4'000'000;
    bool const isSmall = recorded.size() * replayed.size() <= mostCells;
    std::vector<std::vector<int>> table(isSmall ? recorded.size() + 1 : 0,
                                        std::vector<int>(isSmall ? replayed.size() + 1 : 0));
    for (auto i = isSmall ? recorded.size() : 0; i-- > 0;) {
        for (auto j = replayed.size(); j-- > 0;)
            table[i][j] = recorded[i] == replayed[j] ? table[i + 1][j + 1] + 1
                                                     : std::max(table[i + 1][j], table[i][j + 1]);
    }
    QByteArray text;
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < recorded.size() || j < replayed.size()) {
        if (isSmall && i < recorded.size() && j < replayed.size() && recorded[i] == replayed[j]) {
            text += "  " + shownLine(recordedOutcomes[i++]);
            ++j;
        } else if (i < recorded.size()
                   && (!isSmall || j == replayed.size() || table[i + 1][j] >= table[i][j + 1])) {
            text += "- " + shownLine(recordedOutcomes[i++]);
        } else {
            text += "+ " + shownLine(replayedOutcomes[j++]);
        }
    }
    return text;
}

QByteArray toText(QString const& fileName, ReplayStep const& step)
{
    QByteArray text = QStringLiteral("%1:%2: ").arg(fileName, QString::number(step.cause.line)).toUtf8();
    text += toLine(toJson(step.cause.time, step.cause.event));
    if (!step.problem.isEmpty())
        text += "! " + step.problem.toUtf8() + '\n';
    return text + diff(step.recorded, step.replayed);
}

QByteArray toJsonLine(ReplayStep const& step)
{
    auto const list = [](Outcomes const& outcomes) {
        Json items = Json::array();
        for (auto const& outcome : outcomes)
            items.push_back(toJson(outcome.time, outcome.event));
        return items;
    };
    Json json{{"line", step.cause.line}, {"step", toJson(step.cause.time, step.cause.event)}};
    if (!step.problem.isEmpty())
        json["problem"] = step.problem.toStdString();
    json["recorded"] = list(step.recorded);
    json["replayed"] = list(step.replayed);
    return toLine(json);
}

QString nameAndVersion(DAbstractPlugin const& plugin)
{
    return plugin.pluginName() + QLatin1Char(' ') + versionToString(plugin.pluginVersion());
}

int replay(Options const& options)
{
    PluginLibrary library(options.plugin);
    TraceSummary summary;
    {
        // The clock starts when the record does, which only the record tells.
        ZrtClock clock(ZrtClock::Pace::Simulated);
        RunEvents const events(clock);
        Workstation workstation(clock, events);
        summary = checkTrace(options.trace, *makeTool(library, workstation));
    }
    ZrtClock clock(summary.begin.start);
    RunEvents events(clock);
    Workstation workstation(clock, events);
    auto const tool = makeTool(library, workstation);

    Output output;
    int steps = 0;
    int differences = 0;
    {
        LogTap const logTap(events);
        Replay recorded(*tool, workstation, clock, events, summary.targets);
        TraceReader trace(options.trace);
        Progress progress("replaying");
        while (auto const step = recorded.next(trace)) {
            ++steps;
            progress.show(trace.progress());
            if (step->isSame())
                continue;
            ++differences;
            progress.clear();
            output.write(options.json ? toJsonLine(*step) : toText(options.trace, *step));
        }
    }
    QString const recordedWith = summary.begin.plugin + QLatin1Char(' ') + summary.begin.version;
    QString const replayedWith = nameAndVersion(tool->plugin());
    if (options.json) {
        output.write(toLine(Json{{"steps", steps},
                                 {"differences", differences},
                                 {"recordedWith", recordedWith.toStdString()},
                                 {"replayedWith", replayedWith.toStdString()}}));
    } else {
        QString text = QStringLiteral("%1 steps, ").arg(steps)
                       + (differences == 0 ? QStringLiteral("all as recorded")
                                           : QStringLiteral("%1 DIFFERENT").arg(differences));
        if (replayedWith != recordedWith)
            text += QStringLiteral(" (recorded with %1, replayed with %2)")
                        .arg(shown(recordedWith), shown(replayedWith));
        output.write(text.toUtf8() + '\n');
    }
    output.close();
    return differences == 0 ? 0 : 1;
}

} // namespace

Verb replayVerb(CLI::App& program)
{
    auto const options = std::make_shared<Options>();
    CLI::App& verb =
        *program.add_subcommand("replay", "Feed a recorded trace to the plugin and compare what comes of it");
    addText(verb, "TRACE", options->trace, "what \"run --trace\" has written")->required();
    addPlugin(verb, options->plugin);
    addJson(verb, options->json);
    return {&verb, [options] { return replay(*options); }};
}
