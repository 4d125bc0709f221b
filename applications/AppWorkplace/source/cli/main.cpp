#include "inspect_command.h"
#include "output.h"
#include "run_command.h"

#include "json/input_error.h"

#include <QCoreApplication>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
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
CLI::Option* addText(CLI::App& app, std::string const& name, QString& value, std::string const& description)
{
    auto* const option = app.add_option_function<std::string>(
        name, [&value](std::string const& text) { value = QString::fromLocal8Bit(text.c_str()); },
        description);
    // As from a variable of the shell that is not set.
    return option->check(
        [](std::string const& text) { return std::string(text.empty() ? "no file name given" : ""); }, "");
}

int run(int argc, char** argv)
{
    CLI::App app("A small workstation for trying the ZRT tool plugin: real plugin, simulated controller.\n"
                 "Exit codes: 0 as asked, 1 an order failed, 2 bad usage or input.",
                 "workplace");
    app.require_subcommand(1);

    InspectOptions inspect;
    inspect.plugin = defaultPlugin();
    auto* const inspectVerb = app.add_subcommand("inspect", "Show what a plugin library is and offers");
    addText(*inspectVerb, "--plugin", inspect.plugin, "the library, or the folder it is in")
        ->type_name("FILE");
    auto* const inspectJson =
        inspectVerb->add_flag("--json", inspect.json, "one JSON object a line, for programs");
    inspectVerb
        ->add_flag("--markdown", inspect.markdown,
                   "the reference of the commands, as docs/commands.md has it")
        ->excludes(inspectJson);

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

    try {
        auto const verbs = app.get_subcommands(nullptr);
        auto const isAsked = [argv](CLI::App const* verb) { return verb->get_name() == argv[1]; };
        if (argc > 1 && argv[1][0] != '-' && std::none_of(verbs.cbegin(), verbs.cend(), isAsked))
            throw CLI::ParseError("unknown verb \"" + std::string(argv[1]) + '"', c_badUsage);
        app.parse(argc, argv);
        return *inspectVerb ? inspectCommand(inspect) : runCommand(options);
    } catch (CLI::ParseError const& error) {
        if (error.get_exit_code() != 0)
            throw;
        return help(app, error);
    }
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    // A reader that goes away and a file that may not grow are reported like any other failure to write.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (CLI::ParseError const& error) {
        return complain(error.what(), "; workplace --help shows what there is");
    } catch (std::exception const& error) {
        return complain(error.what());
    }
}
