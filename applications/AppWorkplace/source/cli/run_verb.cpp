#include "verbs.h"

#include "make_tool.h"
#include "output.h"
#include "transcript.h"

#include "host/log_tap.h"
#include "host/plugin_library.h"
#include "host/run_event.h"
#include "host/tool.h"
#include "host/workstation.h"
#include "host/zrt_device.h"
#include "sequence/sequence_runner.h"
#include "trace/trace_file.h"

#include <files/atomic_file.h>
#include <files/input_error.h>
#include <plugin_management/d_abstract_plugin.h>
#include <utilities/utilities.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <CLI/CLI.hpp>

#include <memory>

namespace
{

struct Options
{
    QString sequence;
    QString plugin;
    QString controller; ///< empty: the one that the sequence asks for
    QString trace;      ///< empty: no trace
    bool json = false;
    bool realTime = false;
};

/// From a set-up file, or the default one if it has no name.
std::unique_ptr<ZrtSimulatedController> makeController(QString const& setupFile, ZrtClock const& clock)
{
    QString problem;
    auto const setup = setupFile.isEmpty() ? std::optional(ZrtSetup())
                                           : ZrtSimulatedController::readSetup(setupFile, &problem);
    if (!setup)
        throw InputError(problem);
    return ZrtSimulatedController::create(*setup, clock);
}

int run(Options const& options)
{
    // Everything that can be wrong with the input is found before anything runs.
    PluginLibrary library(options.plugin);
    ZrtClock clock(options.realTime ? ZrtClock::Pace::RealTime : ZrtClock::Pace::Simulated);
    std::unique_ptr<ZrtDevice> device; // outlives what uses it
    RunEvents events(clock);
    Workstation workstation(clock, events);
    auto const tool = makeTool(library, workstation);
    Sequence const sequence = readSequence(options.sequence, tool->plugin());
    QString const setupFile = options.controller.isEmpty() ? sequence.controllerFile : options.controller;
    device = std::make_unique<ZrtDevice>(makeController(setupFile, clock));
    std::unique_ptr<TraceFile> trace;
    if (!options.trace.isEmpty()) {
        if (isSameFileAsAny(options.trace,
                            QStringList{options.sequence, setupFile, library.fileName()} + sequence.files))
            throw InputError(
                QStringLiteral("%1: the trace would overwrite what the run needs").arg(options.trace));
        trace = std::make_unique<TraceFile>(options.trace);
    }

    Output output;
    Transcript transcript(output, Output::isTerminal());
    events.listen([&](qint64 time, RunEvent const& event) {
        if (options.json)
            output.write(toJsonTranscript(time, event));
        else
            transcript.show(time, event);
    });
    if (trace)
        events.listen([&trace](qint64 time, RunEvent const& event) { trace->write(time, event); });

    workstation.connectEndpoint(QStringLiteral("device"), *device);

    bool succeeded = false;
    {
        LogTap const logTap(events);
        ZrtState const state = device->controller().state();
        events.publish(RunStarted{tool->plugin().pluginName(),
                                  versionToString(tool->plugin().pluginVersion()),
                                  state.model + QLatin1Char(' ') + state.serialNumber, clock.date()});
        succeeded = SequenceRunner(*tool, device->controller(), workstation, clock).run(sequence);
    }
    if (trace)
        trace->close();
    output.close();
    return succeeded ? 0 : 1;
}

} // namespace

Verb runVerb(CLI::App& program)
{
    auto const options = std::make_shared<Options>();
    CLI::App& verb = *program.add_subcommand("run", "Run a work sequence on a simulated controller");
    addText(verb, "SEQUENCE", options->sequence, "the work sequence, a JSON file")->required();
    addPlugin(verb, options->plugin);
    addText(verb, "--controller", options->controller,
            "the controller's set-up instead of the sequence's own")
        ->type_name("FILE");
    addText(verb, "--trace", options->trace, "write down everything that happens, one JSON object a line")
        ->type_name("FILE");
    addJson(verb, options->json);
    verb.add_flag("--real-time", options->realTime, "take the time that the real thing takes");
    return {&verb, [options] { return run(*options); }};
}
