#include "run_command.h"

#include "make_tool.h"
#include "output.h"
#include "transcript.h"

#include "controller/zrt_endpoint.h"
#include "controller/zrt_setup.h"
#include "files/whole_file.h"
#include "host/clock.h"
#include "host/log_tap.h"
#include "host/plugin_library.h"
#include "host/run_event.h"
#include "host/tool.h"
#include "host/workstation.h"
#include "sequence/sequence_runner.h"
#include "trace/trace_file.h"
#include "json/input_error.h"

#include <plugin_management/d_abstract_plugin.h>
#include <utilities/utilities.h>

#include <memory>

int runCommand(RunOptions const& options)
{
    // Everything that can be wrong with the input is found before anything runs.
    PluginLibrary library(options.plugin);
    Clock clock(options.realTime ? Clock::Pace::RealTime : Clock::Pace::Simulated);
    RunEvents events(clock);
    Workstation workstation(clock, events);
    auto const tool = makeTool(library, workstation);
    Sequence const sequence = readSequence(options.sequence, tool->plugin());
    QString const setupFile = options.controller.isEmpty() ? sequence.controllerFile : options.controller;
    ZrtSetup const setup = setupFile.isEmpty() ? ZrtSetup() : readZrtSetup(setupFile);
    std::unique_ptr<TraceFile> trace;
    if (!options.trace.isEmpty()) {
        if (isOneOf(options.trace,
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

    ZrtController controller(setup.state);
    ZrtFaults faults(setup.faults, setup.state.seed);
    ZrtEndpoint endpoint(controller, faults, setup.times, clock);
    endpoint.setConnected(setup.isConnected);
    workstation.connectEndpoint(QStringLiteral("device"), endpoint);

    bool succeeded = false;
    {
        LogTap const logTap(events);
        events.publish(
            RunStarted{tool->plugin().pluginName(), versionToString(tool->plugin().pluginVersion()),
                       setup.state.model + QLatin1Char(' ') + setup.state.serialNumber, clock.date()});
        succeeded = SequenceRunner(*tool, endpoint, workstation, clock).run(sequence);
    }
    if (trace)
        trace->close();
    output.close();
    return succeeded ? 0 : 1;
}
