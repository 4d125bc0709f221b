#include "output.h"
#include "verbs.h"

#include <files/input_error.h>

#include <QCoreApplication>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <new>
#include <optional>
#include <sstream>
#include <vector>

namespace
{

constexpr int c_badUsage = 2;

int complain(char const* what, char const* hint = "")
{
    std::fprintf(stderr, "workplace: %s%s\n", qUtf8Printable(onOneLine(QString::fromUtf8(what))), hint);
    return c_badUsage;
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

int run(int& argc, char** argv, std::optional<QCoreApplication>& application)
{
    CLI::App app("A small workstation for trying the ZRT tool plugin: real plugin, simulated controller.\n"
                 "Exit codes: 0 as asked, 1 an order failed or a replay differs, 2 bad usage or input.",
                 "workplace");
    app.require_subcommand(1);
    app.set_version_flag("--version", "workplace " WORKPLACE_VERSION);
    std::vector<Verb> const verbs{
        inspectVerb(app), runVerb(app),    replayVerb(app), panelVerb(app, application, argc, argv),
        explainVerb(app), schemaVerb(app),
    };
    try {
        auto const isAsked = [argv](Verb const& verb) { return verb.app->get_name() == argv[1]; };
        if (argc > 1 && argv[1][0] != '-' && std::none_of(verbs.cbegin(), verbs.cend(), isAsked))
            throw CLI::ParseError("unknown verb \"" + std::string(argv[1]) + '"', c_badUsage);
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        if (error.get_exit_code() != 0)
            throw;
        return help(app, error);
    }
    auto const isGiven = [](Verb const& verb) { return verb.app->parsed(); };
    return std::find_if(verbs.cbegin(), verbs.cend(), isGiven)->run();
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

CLI::Option* addText(CLI::App& verb, std::string const& name, QString& value, std::string const& description,
                     std::string const& ifEmpty)
{
    // Options arrive as bytes of the locale.
    auto* const option = verb.add_option_function<std::string>(
        name, [&value](std::string const& text) { value = QString::fromLocal8Bit(text.c_str()); },
        description);
    // As from a variable of the shell that is not set.
    return option->check([ifEmpty](std::string const& text) { return text.empty() ? ifEmpty : ""; }, "");
}

void addPlugin(CLI::App& verb, QString& value)
{
    value = QCoreApplication::applicationDirPath()
            + QStringLiteral("/" WORKPLACE_PLUGIN_DIR "/libp_tool_vesk_zrt.so");
    addText(verb, "--plugin", value, "the library, or the folder it is in")->type_name("FILE");
}

CLI::Option* addJson(CLI::App& verb, bool& value)
{
    return verb.add_flag("--json", value, "one JSON object a line, for programs");
}
