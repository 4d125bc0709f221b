#include "inspect_command.h"
#include "maintenance_output.h"
#include "output.h"
#include "panel_command.h"
#include "replay_command.h"
#include "run_command.h"

#include <files/input_error.h>

#include <QCoreApplication>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <new>
#include <optional>
#include <sstream>

namespace
{

constexpr int c_badUsage = 2;

int complain(char const* what, char const* hint = "")
{
    std::fprintf(stderr, "workplace: %s%s\n", qUtf8Printable(onOneLine(QString::fromUtf8(what))), hint);
    return c_badUsage;
}

QString defaultPlugin()
{
    return QCoreApplication::applicationDirPath()
           + QStringLiteral("/" WORKPLACE_PLUGIN_DIR "/libp_tool_vesk_zrt.so");
}

int help(CLI::App const& app, CLI::ParseError const& error)
{
    std::ostringstream text;
    app.exit(error, text);
    Output output;
    output.write(QByteArray::fromStdString(text.str()));
    output.close();
    return 0;
}

/// Options arrive as bytes of the locale.
CLI::Option* addText(CLI::App& app, std::string const& name, QString& value, std::string const& description,
                     std::string const& ifEmpty = "no file name given")
{
    auto* const option = app.add_option_function<std::string>(
        name, [&value](std::string const& text) { value = QString::fromLocal8Bit(text.c_str()); },
        description);
    // As from a variable of the shell that is not set.
    return option->check([ifEmpty](std::string const& text) { return text.empty() ? ifEmpty : ""; }, "");
}

QSize toSize(std::string const& text)
{
    // Smaller than the window's least nothing is readable; larger than this no screen is.
    constexpr QSize smallest(320, 240);
    constexpr QSize largest(8192, 8192);
    auto const sides = QString::fromStdString(text).split(QLatin1Char('x'));
    QSize const size(sides.value(0).toInt(), sides.value(1).toInt());
    bool const fits = size.expandedTo(smallest) == size && size.boundedTo(largest) == size;
    return sides.size() == 2 && fits ? size : QSize();
}

int run(int argc, char** argv, std::optional<QCoreApplication>& application)
{
    CLI::App app("A small workstation for trying the ZRT tool plugin: real plugin, simulated controller.\n"
                 "Exit codes: 0 as asked, 1 an order failed or a replay differs, 2 bad usage or input.",
                 "workplace");
    app.require_subcommand(1);
    app.set_version_flag("--version", "workplace " WORKPLACE_VERSION);

    InspectOptions inspect;
    inspect.plugin = defaultPlugin();
    auto* const inspectVerb = app.add_subcommand("inspect", "Show what a plugin library is and offers");
    addText(*inspectVerb, "--plugin", inspect.plugin, "the library, or the folder it is in")
        ->type_name("FILE");
    auto* const inspectJson =
        inspectVerb->add_flag("--json", inspect.json, "one JSON object a line, for programs");
    auto* const inspectRecords =
        addText(*inspectVerb, "--records", inspect.records,
                "the maintenance records; without it those that \"panel\" keeps, if there are any")
            ->type_name("FILE");
    inspectVerb
        ->add_flag("--markdown", inspect.markdown,
                   "the reference of the commands, as docs/commands.md has it")
        ->excludes(inspectJson)
        ->excludes(inspectRecords);

    RunOptions options;
    options.plugin = defaultPlugin();
    auto* const runVerb = app.add_subcommand("run", "Run a work sequence on a simulated controller");
    addText(*runVerb, "SEQUENCE", options.sequence, "the work sequence, a JSON file")->required();
    addText(*runVerb, "--plugin", options.plugin, "the library, or the folder it is in")->type_name("FILE");
    addText(*runVerb, "--controller", options.controller,
            "the controller's set-up instead of the sequence's own")
        ->type_name("FILE");
    addText(*runVerb, "--trace", options.trace, "write down everything that happens, one JSON object a line")
        ->type_name("FILE");
    runVerb->add_flag("--json", options.json, "one JSON object a line, for programs");
    runVerb->add_flag("--real-time", options.realTime, "take the time that the real thing takes");

    ReplayOptions replay;
    replay.plugin = defaultPlugin();
    auto* const replayVerb =
        app.add_subcommand("replay", "Feed a recorded trace to the plugin and compare what comes of it");
    addText(*replayVerb, "TRACE", replay.trace, "what \"run --trace\" has written")->required();
    addText(*replayVerb, "--plugin", replay.plugin, "the library, or the folder it is in")->type_name("FILE");
    replayVerb->add_flag("--json", replay.json, "one JSON object a line, for programs");

    PanelOptions panel;
    panel.plugin = defaultPlugin();
    panel.records = defaultRecordsFile();
    auto* const panelVerb = app.add_subcommand("panel", "Open a tool's maintenance page");
    addText(*panelVerb, "--tool", panel.tool, "the tool's name", "no name given")
        ->type_name("NAME")
        ->required();
    addText(*panelVerb, "--records", panel.records,
            "the maintenance records, a JSON file; default " + panel.records.toStdString())
        ->type_name("FILE");
    addText(*panelVerb, "--screenshot", panel.screenshot, "make a picture, PNG, instead of opening a window")
        ->type_name("FILE");
    panelVerb
        ->add_option_function<std::string>(
            "--size", [&panel](std::string const& text) { panel.size = toSize(text); },
            "of the window, 1280x800 if nothing is said")
        ->type_name("WIDTHxHEIGHT")
        ->check(
            [](std::string const& text) {
                return std::string(toSize(text).isValid() ? "" : "not a size from 320x240 to 8192x8192");
            },
            "");
    panelVerb
        ->add_option_function<std::string>(
            "--theme",
            [&panel](std::string const& name) {
                panel.theme = name == "dark" ? MaintenancePanel::Theme::Dark : MaintenancePanel::Theme::Light;
            },
            "light or dark; without it as the desktop has it")
        ->check(CLI::IsMember({"light", "dark"}));
    addText(*panelVerb, "--plugin", panel.plugin, "the library, or the folder it is in")->type_name("FILE");
    panelVerb->add_flag("--json", panel.json, "one JSON object a line, for programs");

    try {
        auto const verbs = app.get_subcommands(nullptr);
        auto const isAsked = [argv](CLI::App const* verb) { return verb->get_name() == argv[1]; };
        if (argc > 1 && argv[1][0] != '-' && std::none_of(verbs.cbegin(), verbs.cend(), isAsked))
            throw CLI::ParseError("unknown verb \"" + std::string(argv[1]) + '"', c_badUsage);
        app.parse(argc, argv);
        if (*panelVerb) {
            application.reset(); // the panel makes one that knows of windows
            return panelCommand(panel, argc, argv);
        }
        if (*inspectVerb)
            return inspectCommand(inspect);
        return *replayVerb ? replayCommand(replay) : runCommand(options);
    } catch (CLI::ParseError const& error) {
        if (error.get_exit_code() != 0)
            throw;
        return help(app, error);
    }
}

} // namespace

int main(int argc, char** argv)
{
    std::optional<QCoreApplication> application(std::in_place, argc, argv);
    // A reader that goes away and a file that may not grow are reported like any other failure to write.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return run(argc, argv, application);
    } catch (CLI::ParseError const& error) {
        return complain(error.what(), "; workplace --help shows what there is");
    } catch (std::bad_alloc const&) {
        return complain("not enough memory");
    } catch (std::exception const& error) {
        return complain(error.what());
    }
}
