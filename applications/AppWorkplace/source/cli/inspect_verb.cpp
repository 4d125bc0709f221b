#include "verbs.h"

#include "maintenance_output.h"
#include "make_tool.h"
#include "output.h"

#include "host/plugin_library.h"
#include "host/run_event.h"
#include "host/tool.h"
#include "host/workstation.h"
#include "maintenance/maintenance_records.h"
#include "trace/event_json.h"

#include <files/input_error.h>
#include <files/variant_json.h>
#include <plugin_management/d_abstract_plugin.h>
#include <utilities/utilities.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <CLI/CLI.hpp>

#include <memory>

namespace
{

using Json = nlohmann::ordered_json;

struct Options
{
    QString plugin;
    QString records; ///< empty: those of the default place, if there are any
    bool json = false;
    bool markdown = false;
};

std::string text(QString const& string)
{
    return string.toStdString();
}

QString typeCode(quint32 code)
{
    QString letters;
    for (int shift = 24; shift >= 0; shift -= 8)
        letters += QLatin1Char(static_cast<char>(code >> shift));
    return letters;
}

Json declarationJson(DDeclaration const& declaration)
{
    return {{"key", text(declaration.key)},
            {"type", text(declaration.typeTag)},
            {"label", text(declaration.label)},
            {"default", toJson(declaration.defaultValue)}};
}

Json declarationsJson(QList<DDeclaration> const& declarations)
{
    Json list = Json::array();
    for (auto const& declaration : declarations)
        list.push_back(declarationJson(declaration));
    return list;
}

QString declarationText(char const* kind, DDeclaration const& declaration)
{
    QString const defaultText =
        declaration.defaultValue.isValid() ? toText(declaration.defaultValue) : QStringLiteral("none");
    return QStringLiteral("    %1 %2 (%3)  %4, default %5\n")
        .arg(QLatin1String(kind), declaration.key, declaration.typeTag, declaration.label, defaultText);
}

// The library as its file tells; nothing of it has run yet.
void showLibrary(PluginLibrary const& library, bool json, Output& output)
{
    if (json) {
        output.write(toLine({{"kind", "library"},
                             {"file", text(library.fileName())},
                             {"interface", text(library.interfaceIdentifier())},
                             {"class", text(library.className())},
                             {"qt", text(library.qtVersion())}}));
        return;
    }
    output.write(
        QStringLiteral("Library     %1\nInterface   %2\nClass       %3\nBuilt for   Qt %4\n")
            .arg(library.fileName(), library.interfaceIdentifier(), library.className(), library.qtVersion())
            .toUtf8());
}

void showPlugin(DAbstractPlugin const& plugin, bool json, Output& output)
{
    QString const version = versionToString(plugin.pluginVersion());
    QString const subType = QString::fromUtf8(plugin.pluginSubTypeName());
    if (json) {
        output.write(toLine({{"kind", "plugin"},
                             {"name", text(plugin.pluginName())},
                             {"version", text(version)},
                             {"uuid", text(plugin.pluginUuid().toString())},
                             {"type", text(typeCode(plugin.pluginType()))},
                             {"subType", text(subType)}}));
    } else {
        output.write(QStringLiteral("\nPlugin      %1 %2\nKind        %3\nType        %4, %5\n\nProperties\n")
                         .arg(plugin.pluginName(), version, plugin.pluginUuid().toString(),
                              typeCode(plugin.pluginType()), subType)
                         .toUtf8());
    }
    auto const properties = plugin.properties();
    for (auto const& [key, value] : properties) {
        if (json)
            output.write(toLine({{"kind", "property"}, {"key", text(key)}, {"value", toJson(value)}}));
        else
            output.write(QStringLiteral("    %1 = %2\n").arg(key, toText(value)).toUtf8());
    }
}

void showCommand(ICommand const& command, bool json, Output& output)
{
    auto const arguments = command.commandArguments();
    QString const stop = command.stopCommandName();
    if (json) {
        output.write(toLine({{"kind", "command"},
                             {"name", text(command.commandName())},
                             {"stop", stop.isEmpty() ? Json() : Json(text(stop))},
                             {"description", text(command.description())},
                             {"parameters", declarationsJson(arguments.parameters)},
                             {"results", declarationsJson(arguments.results)}}));
        return;
    }
    QString lines =
        QStringLiteral("\nCommand %1%2\n    \"%3\"\n")
            .arg(command.commandName(), stop.isEmpty() ? QString() : QStringLiteral(", stopped by ") + stop,
                 command.description());
    for (auto const& parameter : arguments.parameters)
        lines += declarationText("parameter", parameter);
    for (auto const& result : arguments.results)
        lines += declarationText("result   ", result);
    output.write(lines.toUtf8());
}

// A table's cell; a bar in it would end it.
QString cell(QString text)
{
    return text.replace(QLatin1Char('|'), QLatin1String("\\|"));
}

void writeTable(QString const& title, QList<DDeclaration> const& declarations, Output& output)
{
    if (declarations.isEmpty())
        return;
    QString lines = QStringLiteral("\n| %1 | type | label | default |\n|---|---|---|---|\n").arg(title);
    for (auto const& declaration : declarations) {
        QString const defaultText = declaration.defaultValue.isValid()
                                        ? QStringLiteral("`%1` (%2)")
                                              .arg(toText(declaration.defaultValue),
                                                   QLatin1String(declaration.defaultValue.typeName()))
                                        : QStringLiteral("none");
        lines += QStringLiteral("| `%1` | %2 | %3 | %4 |\n")
                     .arg(cell(declaration.key), cell(declaration.typeTag), cell(declaration.label),
                          cell(defaultText));
    }
    output.write(lines.toUtf8());
}

void writeReference(DAbstractPlugin const& plugin, Output& output)
{
    output.write(QStringLiteral("# The commands of %1\n\n"
                                "Written by `workplace inspect --markdown` from the library itself.\n")
                     .arg(plugin.pluginName())
                     .toUtf8());
    auto const names = plugin.commandNames();
    for (auto const& name : names) {
        ICommand const& command = *plugin.commandPrototype(name);
        QString const ending =
            command.isRecurrent()
                ? QStringLiteral("Runs until \"%1\" is ordered.").arg(command.stopCommandName())
                : QStringLiteral("Ends by itself.");
        output.write(QStringLiteral("\n## %1\n\nDescription: \"%2\". %3\n")
                         .arg(name, command.description(), ending)
                         .toUtf8());
        writeTable(QStringLiteral("parameter"), command.commandArguments().parameters, output);
        writeTable(QStringLiteral("result"), command.commandArguments().results, output);
    }
}

// How it stands with the maintenance of every tool that has a record.
void showRecords(MaintenanceRecords& records, bool json, Output& output)
{
    showComplaints(records);
    auto const tools = records.tools();
    if (!json)
        output.write(tools.isEmpty() ? "\nNo maintenance records\n" : "\nMaintenance\n");
    for (auto const& tool : tools)
        showMaintenance(records, tool, json, output);
}

std::unique_ptr<MaintenanceRecords> openRecords(QString const& fileName)
{
    QString const file = fileName.isEmpty() ? defaultRecordsFile() : fileName;
    if (MaintenanceRecords::areThere(file))
        return std::make_unique<MaintenanceRecords>(file);
    if (!fileName.isEmpty())
        throw InputError(QStringLiteral("%1: there is no such file").arg(fileName));
    return nullptr;
}

int inspect(Options const& options)
{
    Output output;
    PluginLibrary library(options.plugin);
    auto const records = options.markdown ? nullptr : openRecords(options.records);
    if (!options.markdown)
        showLibrary(library, options.json, output);

    ZrtClock clock(ZrtClock::Pace::Simulated);
    RunEvents const events(clock);
    Workstation workstation(clock, events);
    auto const tool = makeTool(library, workstation);
    if (options.markdown) {
        writeReference(tool->plugin(), output);
        output.close();
        return 0;
    }
    showPlugin(tool->plugin(), options.json, output);
    auto const names = tool->plugin().commandNames();
    for (auto const& name : names)
        showCommand(*tool->plugin().commandPrototype(name), options.json, output);
    if (records)
        showRecords(*records, options.json, output);
    output.close();
    return 0;
}

} // namespace

Verb inspectVerb(CLI::App& program)
{
    auto const options = std::make_shared<Options>();
    CLI::App& verb = *program.add_subcommand("inspect", "Show what a plugin library is and offers");
    addPlugin(verb, options->plugin);
    auto* const json = addJson(verb, options->json);
    auto* const records =
        addText(verb, "--records", options->records,
                "the maintenance records; without it those that \"panel\" keeps, if there are any")
            ->type_name("FILE");
    verb.add_flag("--markdown", options->markdown,
                  "the reference of the commands, as docs/commands.md has it")
        ->excludes(json)
        ->excludes(records);
    return {&verb, [options] { return inspect(*options); }};
}
