#include "verbs.h"

#include "output.h"
#include "progress.h"

#include "log_lines/find_log_lines.h"
#include "log_lines/log_lines.h"
#include "trace/event_json.h"

#include <files/input_error.h>
#include <files/pipe.h>

#include <QFile>

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace
{

using Json = nlohmann::ordered_json;

struct Options
{
    QString log; ///< empty: standard input
    bool json = false;
    QString table; ///< empty: none
};

std::string text(QString const& string)
{
    return string.toStdString();
}

// A table's cell; a bar in it would end it.
QByteArray cell(char const* text)
{
    return QByteArray(text).replace('|', "\\|");
}

QByteArray when(LogSource const& source, char const* cause)
{
    QByteArray const command(source.command);
    return (command.isEmpty() ? QByteArray() : '"' + command + "\": ") + cell(cause);
}

void writeErrors(Output& output)
{
    output.write("| source | line | handler | message | when | what to do |\n|---|---|---|---|---|---|\n");
    for (auto const& source : logSources()) {
        for (auto const& error : source.errors)
            output.write(QByteArray("| `") + source.file + "` | "
                         + (error.line == 0 ? QByteArray() : QByteArray::number(error.line) + ' ') + "| `"
                         + error.handler + "` | `" + cell(error.message) + "` | " + when(source, error.cause)
                         + " | " + cell(error.remedy) + " |\n");
    }
}

void writeInfos(Output& output)
{
    output.write("| source | handler | message | when |\n|---|---|---|---|\n");
    for (auto const& source : logSources()) {
        for (auto const& info : source.infos)
            output.write(QByteArray("| `") + source.file + "` | `" + info.handler + "` | `"
                         + cell(info.message) + "` | " + when(source, info.cause) + " |\n");
    }
}

void writeCodes(Output& output)
{
    output.write("| code | text | look at |\n|---|---|---|\n");
    for (auto const& error : controllerErrors())
        output.write("| " + QByteArray::number(error.code) + " | " + cell(error.text) + " | "
                     + cell(error.lookAt) + " |\n");
}

void writeTraces(Output& output)
{
    output.write("| source | trace |\n|---|---|\n");
    for (auto const& source : logSources()) {
        for (auto const* trace : source.traces)
            output.write(QByteArray("| `") + source.file + "` | `" + trace + "` |\n");
    }
}

// The tables of docs/log-lines.md.
std::map<std::string, void (*)(Output&)> const& tables()
{
    static std::map<std::string, void (*)(Output&)> const all{
        {"codes", writeCodes},
        {"errors", writeErrors},
        {"information", writeInfos},
        {"traces", writeTraces},
    };
    return all;
}

int writeTable(QString const& table)
{
    Output output;
    tables().at(table.toStdString())(output);
    output.close();
    return 0;
}

// Why it cannot be read; empty if it can.
QString open(QFile& file)
{
    if (file.fileName().isEmpty())
        return file.open(STDIN_FILENO, QIODevice::ReadOnly) ? QString() : file.errorString();
    if (isPipe(file.fileName()))
        return openPipe(file, QIODevice::ReadOnly);
    return file.open(QIODevice::ReadOnly) ? QString() : file.errorString();
}

LogSearch search(QString const& log)
{
    constexpr int longest = 1 << 20; // a line that is longer is read in pieces
    constexpr qint64 percent = 100;
    QFile file(log);
    auto const fail = [&log](QString const& problem) {
        QString const where = log.isEmpty() ? QStringLiteral("standard input") : log;
        throw InputError(QStringLiteral("%1: %2").arg(where, problem));
    };
    if (QString const problem = open(file); !problem.isEmpty())
        fail(problem);
    if (log.isEmpty() && isatty(STDIN_FILENO) != 0)
        std::fputs("workplace: reading the log from standard input\n", stderr);
    qint64 const size = file.isSequential() ? 0 : file.size();
    LogSearch search;
    Progress progress("reading");
    std::vector<char> buffer(longest);
    qint64 line = 1;
    qint64 read = 0;
    for (qint64 length = 0; (length = file.readLine(buffer.data(), longest)) > 0;) {
        auto const text = QByteArray::fromRawData(buffer.data(), static_cast<int>(length));
        search.search(text, line);
        if (text.endsWith('\n'))
            ++line;
        read += length;
        if (size > 0) // a host may go on writing
            progress.show(static_cast<int>(qMin(read, size) * percent / size));
    }
    if (file.error() != QFileDevice::NoError)
        fail(file.errorString());
    search.search({}, line);
    return search;
}

QByteArray toJsonLine(FoundLogLine const& line)
{
    Json meanings = Json::array();
    for (auto const& meaning : line.meanings)
        meanings.push_back({{"command", text(meaning.command)},
                            {"handler", text(meaning.handler)},
                            {"cause", text(meaning.cause)},
                            {"remedy", text(meaning.remedy)}});
    Json json{{"kind", line.file.isEmpty() ? "code" : "error"}};
    if (line.file.isEmpty())
        json["code"] = line.number;
    else
        json.update({{"source", text(line.file)}, {"line", line.number}});
    json.update({{"message", text(shown(line.message))},
                 {"times", line.times},
                 {"firstOn", line.firstOn},
                 {"meanings", meanings}});
    return toLine(json);
}

QString toText(FoundLogLine const& line)
{
    bool const isCode = line.file.isEmpty();
    QString text = line.times == 1
                       ? QStringLiteral("once, on line %1: ").arg(line.firstOn)
                       : QStringLiteral("%1 times, first on line %2: ").arg(line.times).arg(line.firstOn);
    text += isCode ? QStringLiteral("error code %1: ").arg(line.number)
                   : QStringLiteral("%1, %2: ").arg(line.file).arg(line.number);
    text += shown(line.message) + QLatin1Char('\n');
    if (line.meanings.empty())
        text += QStringLiteral("    not known: another version of the plugin may have written it\n");
    if (line.meanings.size() > 1)
        text +=
            QStringLiteral("    one of %1 that have this text; line %2 of the file in that version's sources "
                           "tells which\n")
                .arg(line.meanings.size())
                .arg(line.number);
    for (auto const& meaning : line.meanings) {
        QString const command = meaning.command.isEmpty() ? QStringLiteral("the maintenance page")
                                                          : QStringLiteral("\"%1\"").arg(meaning.command);
        text += QStringLiteral("    from     %1, %2\n"
                               "    means    %3\n"
                               "    %4  %5\n")
                    .arg(command, meaning.handler, meaning.cause,
                         isCode ? QStringLiteral("look at") : QStringLiteral("do     "), meaning.remedy);
    }
    return text + QLatin1Char('\n');
}

int explain(Options const& options)
{
    if (!options.table.isEmpty())
        return writeTable(options.table);
    LogSearch const log = search(options.log);
    Output output;
    for (auto const& line : log.found())
        output.write(options.json ? toJsonLine(line) : toText(line).toUtf8());
    if (options.json) {
        output.write(toLine({{"kind", "log"},
                             {"lines", log.count()},
                             {"different", log.found().size()},
                             {"notShown", log.notKept()}}));
    } else {
        QString text =
            QStringLiteral("%1 lines of the plugin, %2 different").arg(log.count()).arg(log.found().size());
        if (log.count() < 2)
            text = log.count() == 0 ? QStringLiteral("no line of the plugin")
                                    : QStringLiteral("1 line of the plugin");
        if (log.notKept() > 0)
            text += QStringLiteral("; %1 more that differ from these are not shown").arg(log.notKept());
        output.write(text.toUtf8() + '\n');
    }
    output.close();
    return 0;
}

} // namespace

Verb explainVerb(CLI::App& program)
{
    auto const options = std::make_shared<Options>();
    CLI::App& verb = *program.add_subcommand("explain", "Say what the plugin's lines in a host's log mean");
    auto* const log = addText(verb, "LOG", options->log, "the log, or a trace; standard input without it");
    auto* const json = addJson(verb, options->json);
    addText(verb, "--markdown", options->table, "a table of docs/log-lines.md", "no table given")
        ->type_name("TABLE")
        ->check(CLI::IsMember(tables()), "")
        ->excludes(log)
        ->excludes(json);
    return {&verb, [options] { return explain(*options); }};
}
