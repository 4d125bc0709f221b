#include "literals.h"
#include "outcome.h"
#include "scratch_folder.h"

#include "log_lines/find_log_lines.h"

#include <QtTest>

#include <unistd.h>

namespace
{

QString const examples = QStringLiteral(WORKPLACE_EXAMPLES);
QString const pluginFile = QStringLiteral(ZRT_PLUGIN_FILE);
QString const initExample = QStringLiteral(WORKPLACE_EXAMPLES "/init.json");

class Program : public QProcess
{
public:
    /// Runs the program as a user does from a shell, in this folder; @p output takes its standard output.
    static Outcome run(QStringList const& arguments, QString const& folder = QDir::tempPath(),
                       int output = -1)
    {
        Program program(output);
        program.setWorkingDirectory(folder);
        // A debug build of the plugin traces what it does; that is not what these tests are about.
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert("QT_LOGGING_RULES"_s, "default.debug=false"_s);
        program.setProcessEnvironment(environment);
        program.start(QStringLiteral(WORKPLACE_PROGRAM), arguments);
        return outcomeOf(program);
    }

protected:
    void setupChildProcess() override
    {
        if (m_output != -1)
            ::dup2(m_output, STDOUT_FILENO);
    }

private:
    explicit Program(int output) : m_output(output) {}

    int const m_output;
};

/// What the program must print, from a file. It names the plugin's file and the maker as @PLUGIN@ and
/// @MAKER@.
QString expected(QString const& name)
{
    return QString::fromUtf8(contentOf(QStringLiteral(TEST_DATA "/") + name))
        .replace("@PLUGIN@"_s, pluginFile)
        .replace("@MAKER@"_s, QStringLiteral(ZRT_MAKER_DOMAIN));
}

/// What --json must print of an example: its recorded trace, without what is of use in a trace alone.
QString expectedJson(QString const& sequence)
{
    static QRegularExpression const ofTracesAlone(
        "\"event\":\"(stopAll|instruction|withdrawn|reply|dropped|notDelivered\".*\"goesOn\":false}$)"_s);
    QStringList lines =
        QString::fromUtf8(contentOf(examples + "/traces/%1.jsonl"_s.arg(sequence))).split(QLatin1Char('\n'));
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](QString const& line) { return line.contains(ofTracesAlone); }),
                lines.end());
    return lines.join(QLatin1Char('\n'));
}

/// The catalogue as the plugin's golden file has it.
QList<QJsonObject> commands()
{
    QList<QJsonObject> found;
    auto const lines = expected("inspect.jsonl"_s).toUtf8().split('\n');
    for (auto const& line : lines) {
        QJsonObject const one = QJsonDocument::fromJson(line).object();
        if (one.value("kind"_s) == "command"_s)
            found += one;
    }
    return found;
}

/// What a sequence can order, as a complaint lists it: the commands, then the names that stop some of them.
QString orders()
{
    QStringList names;
    QStringList stops;
    auto const all = commands();
    for (auto const& command : all) {
        names += command.value("name"_s).toString();
        if (command.value("stop"_s).isString())
            stops += command.value("stop"_s).toString();
    }
    stops.removeDuplicates();
    return (names + stops).join(", "_s);
}

/// The examples that are work sequences, "faults/late".
QStringList sequences()
{
    QStringList names;
    QDir const folder(examples);
    for (QDirIterator it(examples, {"*.json"_s}, QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
        QString const path = it.next();
        if (QJsonDocument::fromJson(contentOf(path)).object().contains("steps"_s))
            names += folder.relativeFilePath(path).section(QLatin1Char('.'), 0, -2);
    }
    names.sort();
    return names;
}

/// A sequence's name as the name of a file.
QString flat(QString name)
{
    return name.replace(QLatin1Char('/'), QLatin1Char('_'));
}

QString example(char const* name)
{
    return examples + QLatin1Char('/') + QString::fromLatin1(name) + ".json"_s;
}

} // namespace

namespace
{

/// The folder that the program is run in for bad input.
void prepare(ScratchFolder const& folder)
{
    QDir(folder.path()).mkdir("empty"_s);
    QByteArray library = contentOf(pluginFile);
    folder.write("truncated.so"_s, library.left(library.size() / 2));
    int const mark = library.indexOf("QTMETADATA !");
    QByteArray broken = library;
    folder.write("broken.so"_s, broken.replace(mark + 16, 8, QByteArray(8, '\xff')));
    library[mark + 13] = '\6';
    folder.write("qt6.so"_s, library);
}

} // namespace

/// The program as a user runs it: exit codes and every byte on its channels.
class TestWorkplaceCli : public QObject
{
    Q_OBJECT

private slots:
    // Many rows know the commands from the file: said once here, and not by each of them.
    void initTestCase()
    {
        Outcome const outcome = Program::run({"inspect"_s, "--json"_s});
        QVERIFY2(outcome.out == expected("inspect.jsonl"_s),
                 "tests/program/data/inspect.jsonl is not what the library says; the test "
                 "document_generated shows "
                 "the difference. To accept a deliberate change: cmake --build --preset release --target "
                 "update_all");
    }

    void help_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QStringList>("says");
        QTest::newRow("program") << QStringList{"--help"_s}
                                 << QStringList{"Usage: workplace [OPTIONS] SUBCOMMAND"_s,
                                                "Exit codes: 0 as asked, 1 an order failed or a replay "
                                                "differs, 2 bad usage or input."_s,
                                                "inspect  "_s, "run  "_s, "replay  "_s};
        QTest::newRow("short") << QStringList{"-h"_s}
                               << QStringList{"Usage: workplace [OPTIONS] SUBCOMMAND"_s};
        QTest::newRow("version") << QStringList{"--version"_s}
                                 << QStringList{QStringLiteral("workplace " PROGRAM_VERSION "\n")};
        QTest::newRow("run") << QStringList{"run"_s, "--help"_s}
                             << QStringList{"Usage: workplace run [OPTIONS] SEQUENCE"_s,
                                            "--plugin FILE  "_s,
                                            "--controller FILE  "_s,
                                            "--trace FILE  "_s,
                                            "--json  "_s,
                                            "--real-time  "_s};
        QTest::newRow("inspect") << QStringList{"inspect"_s, "--help"_s}
                                 << QStringList{"Usage: workplace inspect [OPTIONS]"_s, "--plugin FILE  "_s,
                                                "--json"_s, "--markdown"_s};
        QTest::newRow("replay") << QStringList{"replay"_s, "--help"_s}
                                << QStringList{"Usage: workplace replay [OPTIONS] TRACE"_s,
                                               "--plugin FILE  "_s, "--json"_s};
        QTest::newRow("explain") << QStringList{"explain"_s, "--help"_s}
                                 << QStringList{"Usage: workplace explain [OPTIONS] [LOG]"_s, "--json"_s,
                                                "--markdown TABLE"_s};
        QTest::newRow("schema") << QStringList{"schema"_s, "--help"_s}
                                << QStringList{"Usage: workplace schema [OPTIONS] [NAME]"_s, "--markdown"_s};
        QTest::newRow("schema without a name") << QStringList{"schema"_s}
                                               << QStringList{"backup\ncontroller\nmaintenance\nparameters\n"
                                                              "presets\nsequence\ntrace_line\n"_s};
        QTest::newRow("help wins over a missing argument")
            << QStringList{"run"_s, "-h"_s, "--json"_s}
            << QStringList{"Usage: workplace run [OPTIONS] SEQUENCE"_s};
    }

    void help()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QStringList, says);
        Outcome const outcome = Program::run(arguments);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 0);
        for (auto const& one : qAsConst(says))
            QVERIFY2(outcome.out.contains(one), qPrintable(one + QLatin1Char('\n') + outcome.out));
    }

    void badUsage_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, char const* arguments, char const* message) {
            QTest::newRow(name) << QString::fromLatin1(arguments).split(QLatin1Char(' '), Qt::SkipEmptyParts)
                                << QString::fromLatin1(message);
        };
        row("nothing", "", "A subcommand is required");
        row("unknown verb", "walk", "unknown verb \"walk\"");
        row("verb in another case", "Run x.json", "unknown verb \"Run\"");
        row("no sequence", "run", "SEQUENCE is required");
        row("two sequences", "run a.json b.json", "The following argument was not expected: b.json");
        row("no trace to replay", "replay", "TRACE is required");
        row("unknown option", "run a.json --fast", "The following argument was not expected: --fast");
        row("option of the other verb", "inspect --trace x",
            "The following arguments were not expected: x --trace");
        row("option before its verb", "--json inspect", "The following argument was not expected: --json");
        row("option without its value", "run a.json --trace", "--trace: 1 required FILE missing");
        row("option twice", "inspect --plugin a --plugin b", "--plugin: At Most 1 required but received 2");
        row("flag with a value", "inspect --json=maybe", "Could not convert: --json = maybe");
        row("log and table", "explain a.log --markdown codes", "LOG excludes --markdown");
        row("unknown table", "explain --markdown faults",
            "--markdown: faults not in {codes,errors,information,traces}");
        row("table of no schema", "schema --markdown", "--markdown requires NAME");
        row("both verbs", "inspect run a.json", "The following arguments were not expected: a.json run");
    }

    void badUsage()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        Outcome const outcome = Program::run(arguments);
        QCOMPARE(outcome.err, "workplace: "_s + message + "; workplace --help shows what there is\n"_s);
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
    }

    void run_data()
    {
        QTest::addColumn<QString>("sequence");
        auto const names = sequences();
        QVERIFY(names.contains("init"_s));
        for (auto const& name : names)
            QTest::newRow(qPrintable(name)) << name;
    }

    void run()
    {
        // Run in the examples' own folder, so that no path of this machine is in what it prints.
        QFETCH(QString, sequence);
        QString const file = sequence + ".json"_s;
        struct Form
        {
            QStringList arguments;
            QString expected;
        };
        QString const json = "--json"_s;
        QString const verb = "run"_s;
        for (auto const& form : {Form{{verb, file}, expected(flat(sequence) + ".txt"_s)},
                                 Form{{verb, file, json}, expectedJson(sequence)},
                                 Form{{verb, json, file}, expectedJson(sequence)}}) {
            Outcome const outcome = Program::run(form.arguments, examples);
            QCOMPARE(outcome.err, QString());
            QCOMPARE(withoutPlaces(outcome.out), withoutPlaces(form.expected));
            QCOMPARE(outcome.exitCode, 0);
        }
    }

    void runTwice_data() { run_data(); }

    void runTwice()
    {
        QFETCH(QString, sequence);
        ScratchFolder const folder;
        QStringList outs;
        QList<QByteArray> traces;
        for (int i = 0; i < 2; ++i) {
            QString const trace = folder.filePath(QString::number(i));
            outs +=
                Program::run({"run"_s, sequence + ".json"_s, "--json"_s, "--trace"_s, trace}, examples).out;
            traces += contentOf(trace);
        }
        QVERIFY(!outs[0].isEmpty());
        QCOMPARE(outs[1], outs[0]);
        QCOMPARE(traces[1], traces[0]);
        QVERIFY(traces[0].count('\n') > outs[0].count(QLatin1Char('\n')));
        auto const lines = outs[0].toUtf8().split('\n') + traces[0].split('\n');
        for (auto const& line : lines) {
            QJsonParseError error{};
            QJsonDocument::fromJson(line, &error);
            QVERIFY2(line.isEmpty() || error.error == QJsonParseError::NoError, line.constData());
        }
    }

    void realTime_data()
    {
        QTest::addColumn<QString>("sequence");
        QTest::newRow("init") << "init"_s;
        QTest::newRow("with a delay") << "faults/delay"_s;
    }

    void realTime()
    {
        QFETCH(QString, sequence);
        ScratchFolder const folder;
        QString const file = sequence + ".json"_s;
        Outcome const outcome =
            Program::run({"run"_s, file, "--real-time"_s, "--trace"_s, folder.filePath("real"_s)}, examples);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, expected(flat(sequence) + ".txt"_s));
        QCOMPARE(outcome.exitCode, 0);
        Program::run({"run"_s, file, "--trace"_s, folder.filePath("simulated"_s)}, examples);
        // They differ in their date alone.
        QByteArray real = contentOf(folder.filePath("real"_s));
        QVERIFY(!real.isEmpty());
        int const date = real.indexOf(QDate::currentDate().toString(Qt::ISODate).toLatin1());
        QVERIFY(date > 0);
        real.replace(date, int(sizeof "2000-01-01T00:00:00.000") - 1, "2000-01-01T00:00:00.000");
        QCOMPARE(real, contentOf(folder.filePath("simulated"_s)));
        Outcome const replayed = Program::run({"replay"_s, folder.filePath("real"_s)}, examples);
        QCOMPARE(replayed.err, QString());
        QVERIFY2(replayed.out.endsWith("all as recorded\n"_s), qPrintable(replayed.out));
    }

    void trace()
    {
        ScratchFolder const folder;
        folder.write("trace.jsonl"_s, "former");
        Outcome const outcome =
            Program::run({"run"_s, initExample, "--trace"_s, "trace.jsonl"_s}, folder.path());
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, expected("init.txt"_s));
        QCOMPARE(outcome.exitCode, 0);
        QCOMPARE(QString::fromUtf8(contentOf(folder.filePath("trace.jsonl"_s))),
                 QString::fromUtf8(contentOf(examples + "/traces/init.jsonl"_s)));
        QCOMPARE(folder.names(), QStringList{"trace.jsonl"_s});
    }

    void traceBesideJson()
    {
        ScratchFolder const folder;
        Outcome const outcome =
            Program::run({"run"_s, initExample, "--json"_s, "--trace"_s, "trace.jsonl"_s}, folder.path());
        QCOMPARE(outcome.out, expectedJson("init"_s));
        QCOMPARE(QString::fromUtf8(contentOf(folder.filePath("trace.jsonl"_s))),
                 QString::fromUtf8(contentOf(examples + "/traces/init.jsonl"_s)));
    }

    // What is of use in a trace alone is not shown.
    void traceTellsMore()
    {
        ScratchFolder const folder;
        folder.write("gone.json"_s, R"({"connected": false})");
        folder.write("sequence.json"_s,
                     R"({"controller": "gone.json",
                     "steps": [{"order": "init", "fails": true}, {"order": "startListening"}]})");
        Outcome const outcome = Program::run(
            {"run"_s, "sequence.json"_s, "--json"_s, "--trace"_s, "trace.jsonl"_s}, folder.path());
        QCOMPARE(outcome.err, QString());
        auto const eventsOf = [](QByteArray const& text) {
            QStringList events;
            auto const lines = text.trimmed().split('\n');
            for (auto const& line : lines)
                events += QJsonDocument::fromJson(line).object().value("event"_s).toString();
            return events.join(QLatin1Char(' '));
        };
        QCOMPARE(eventsOf(outcome.out.toUtf8()), "begin order finished order notDelivered finished end"_s);
        QCOMPARE(eventsOf(contentOf(folder.filePath("trace.jsonl"_s))),
                 "begin order instruction notDelivered finished order instruction notDelivered "
                 "stopAll finished end"_s);
    }

    void controllerOption()
    {
        ScratchFolder const folder;
        folder.write("other.json"_s, R"({"identity": {"serialNumber": "S-1"}, "replyTime": 1000})");
        Outcome const outcome =
            Program::run({"run"_s, initExample, "--controller"_s, "other.json"_s}, folder.path());
        QCOMPARE(outcome.out, "    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT S-1\n"
                              "    0.000 s  #1    init\n"
                              "    3.000 s  #1      doneOk = true\n"
                              "    3.000 s  #1    done\n"
                              "    3.000 s        1 of 1 steps done\n"_s);
        QCOMPARE(outcome.exitCode, 0);

        // A sequence that asks for none gets the default controller.
        folder.write("none.json"_s, R"({"steps": []})");
        QCOMPARE(Program::run({"run"_s, "none.json"_s}, folder.path()).out,
                 "    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT ZRT-SIM-0001\n"
                 "    0.000 s        0 of 0 steps done\n"_s);
    }

    void pluginOption()
    {
        ScratchFolder const folder;
        QVERIFY(QFile::copy(pluginFile, folder.filePath("my.so"_s)));
        for (auto const& path : {"my.so"_s, "."_s, folder.path()}) {
            Outcome const outcome = Program::run({"run"_s, initExample, "--plugin"_s, path}, folder.path());
            QCOMPARE(outcome.err, QString());
            QCOMPARE(outcome.out, expected("init.txt"_s));
            QCOMPARE(outcome.exitCode, 0);
        }
    }

    void sequenceFromAPipe()
    {
        ScratchFolder const folder;
        QString const pipe = folder.filePath("pipe"_s);
        QCOMPARE(QProcess::execute("mkfifo"_s, {pipe}), 0);
        QProcess shell;
        shell.setWorkingDirectory(folder.path());
        shell.start("sh"_s, {"-c"_s, "echo '{\"steps\": [{\"wait\": 1}]}' > pipe"_s});
        QVERIFY(shell.waitForStarted());
        Outcome const outcome = Program::run({"run"_s, pipe});
        QVERIFY(shell.waitForFinished());
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 0);
    }

    void failedOrders_data()
    {
        QTest::addColumn<QString>("controller");
        QTest::addColumn<QString>("out");
        QTest::newRow("no reply in time")
            << example("controller_slow")
            << "    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT ZRT-SLOW\n"
               "    0.000 s  #1    init\n"
               "    4.000 s  #1    FAILED: no reply to \"getInfo\" within 4000 ms\n"
               "    4.000 s        0 of 1 steps done, 1 FAILED, 0 not run\n"_s;
        QTest::newRow("endpoint gone")
            << example("controller_disconnected")
            << "    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT ZRT-GONE\n"
               "    0.000 s  #1    init\n"
               "    0.000 s  #1    FAILED: \"getInfo\": endpoint \"device\" is gone\n"
               "    0.000 s        0 of 1 steps done, 1 FAILED, 0 not run\n"_s;
    }

    void failedOrders()
    {
        QFETCH(QString, controller);
        QFETCH(QString, out);
        ScratchFolder const folder;
        Outcome const outcome =
            Program::run({"run"_s, initExample, "--controller"_s, controller, "--trace"_s, "trace.jsonl"_s},
                         folder.path());
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, out);
        QCOMPARE(outcome.exitCode, 1);
        // The trace of a run that failed is the one that somebody wants to read.
        QVERIFY(
            contentOf(folder.filePath("trace.jsonl"_s))
                .endsWith("\"event\":\"end\",\"done\":0,\"failed\":1,\"notRun\":0,\"droppedReplies\":0}\n"));
    }

    void unexpectedResult()
    {
        ScratchFolder const folder;
        folder.write(
            "in.json"_s,
            R"({"steps": [{"wait": 1500}, {"order": "init", "expect": {"doneOk": false}}, {"wait": 1}, {"wait": 1}]})");
        Outcome const outcome = Program::run({"run"_s, "in.json"_s}, folder.path());
        QCOMPARE(outcome.out,
                 "    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT ZRT-SIM-0001\n"
                 "    1.500 s  #1    init\n"
                 "    1.515 s  #1      doneOk = true\n"
                 "    1.515 s  #1    done\n"
                 "    1.515 s  #1    NOT AS EXPECTED: doneOk is true, expected was false\n"
                 "    1.515 s        1 of 4 steps done, 1 FAILED, 2 not run\n"_s);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 1);
    }

    void failedSteps_data()
    {
        QTest::addColumn<QByteArray>("steps");
        QTest::addColumn<QString>("out"); // behind the first line
        auto const row = [](char const* name, char const* steps, char const* out) {
            QTest::newRow(name) << QByteArray(steps) << QString::fromLatin1(out);
        };
        row("stop with nothing to stop", R"({"order": "stopListening"}, {"wait": 1})",
            "    0.000 s        stopListening  FAILED: no running command stops by that name\n"
            "    0.000 s        0 of 2 steps done, 1 FAILED, 1 not run\n");
        row("should have failed", R"({"order": "init", "fails": true})",
            "    0.000 s  #1    init\n"
            "    0.015 s  #1      doneOk = true\n"
            "    0.015 s  #1    done\n"
            "    0.015 s        FAILED: the order succeeded, but should have failed\n"
            "    0.015 s        0 of 1 steps done, 1 FAILED, 0 not run\n");
        row("value that does not come",
            R"({"order": "startListening"}, {"await": "eventData", "of": "startListening", "value": {}, "within": 70})",
            "    0.000 s  #1    startListening\n"
            "    0.070 s        FAILED: eventData of \"startListening\" did not become {} within 70 ms\n"
            "    0.070 s  #1    done\n"
            "    0.070 s        1 of 2 steps done, 1 FAILED, 0 not run\n");
        row("tool set to loosen", R"({"press": "reverse"}, {"tighten": 1})",
            "    0.000 s        operator: presses reverse, the tool loosens now\n"
            "    0.000 s        FAILED: the tool is set to loosen, it cannot tighten\n"
            "    0.000 s        1 of 2 steps done, 1 FAILED, 0 not run\n");
    }

    void failedSteps()
    {
        QFETCH(QByteArray, steps);
        QFETCH(QString, out);
        ScratchFolder const folder;
        folder.write("in.json"_s, "{\"steps\": [" + steps + "]}");
        Outcome const outcome = Program::run({"run"_s, "in.json"_s}, folder.path());
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out,
                 "    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT ZRT-SIM-0001\n"_s + out);
        QCOMPARE(outcome.exitCode, 1);
    }

    // The head, a title for each command, and the lines of one that has every kind of line.
    void inspect()
    {
        Outcome const outcome = Program::run({"inspect"_s});
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 0);
        QString const head = R"(Library     %1
Interface   %2.rd.box.PToolVeskZrt
Class       PToolVeskZrt
Built for   Qt 5.15

Plugin      Plugin Tool ZRT 1.0
Kind        {fe68f24c-ac43-4833-abc7-7d9f33744448}
Type        Tool, tightening

Properties
    toolType = 0
    features = ["allow_loosening"]
    typeName = "tightening"
)"_s;
        auto const paragraphs = outcome.out.split("\nCommand "_s);
        QCOMPARE(paragraphs.first(), head.arg(pluginFile, QStringLiteral(ZRT_MAKER_DOMAIN)));
        QStringList titles;
        auto const all = commands();
        for (auto const& command : all) {
            QString const stop = command.value("stop"_s).toString();
            titles +=
                command.value("name"_s).toString() + (stop.isEmpty() ? QString() : ", stopped by "_s + stop);
        }
        QCOMPARE(paragraphs.size(), titles.size() + 1);
        for (int i = 0; i < titles.size(); ++i)
            QCOMPARE(paragraphs[i + 1].section(QLatin1Char('\n'), 0, 0), titles[i]);
        int const restore = titles.indexOf("restore, stopped by stopListening"_s);
        QCOMPARE(paragraphs.value(restore + 1), R"(restore, stopped by stopListening
    "Restore saved backup"
    parameter filePath (strg)  Backup file path, default ""
    parameter startPreset (int)  Start preset, default 0
    parameter endPreset (int)  End preset, default 0
    parameter loadControllerParams (bool)  Load controller parameters, default false
    result    statusData (vart)  Restoring progress/status, default none
)"_s);
    }

    void inspectJson()
    {
        Outcome outcome = Program::run({"inspect"_s, "--json"_s});
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, expected("inspect.jsonl"_s));
        QCOMPARE(outcome.exitCode, 0);

        ScratchFolder const folder;
        QString const copy = folder.filePath("my.so"_s);
        QVERIFY(QFile::copy(pluginFile, copy));
        outcome = Program::run({"inspect"_s, "--json"_s, "--plugin"_s, folder.path()});
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, expected("inspect.jsonl"_s).replace(pluginFile, copy));
        QCOMPARE(outcome.exitCode, 0);
    }

    void inspectMarkdown()
    {
        Outcome const outcome = Program::run({"inspect"_s, "--markdown"_s});
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out,
                 QString::fromUtf8(contentOf(QStringLiteral(SOURCE_FOLDER "/docs/commands.md"))));
        QCOMPARE(outcome.exitCode, 0);
    }

    void unknownSchema()
    {
        Outcome const outcome = Program::run({"schema"_s, "sequences"_s});
        QCOMPARE(outcome.err,
                 "workplace: unknown schema \"sequences\", known are backup, controller, maintenance, "
                 "parameters, presets, sequence, trace_line\n"_s);
        QCOMPARE(outcome.exitCode, 2);
    }

    void outputThatFails_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("run") << QStringList{"run"_s, initExample};
        QTest::newRow("run --json") << QStringList{"run"_s, initExample, "--json"_s};
        QTest::newRow("run that fails")
            << QStringList{"run"_s, initExample, "--controller"_s, example("controller_slow")};
        QTest::newRow("inspect") << QStringList{"inspect"_s};
        QTest::newRow("inspect --json") << QStringList{"inspect"_s, "--json"_s};
        QTest::newRow("inspect --markdown") << QStringList{"inspect"_s, "--markdown"_s};
        QTest::newRow("explain") << QStringList{"explain"_s, initExample};
        QTest::newRow("explain --markdown") << QStringList{"explain"_s, "--markdown"_s, "codes"_s};
        QTest::newRow("schema") << QStringList{"schema"_s};
        QTest::newRow("--help") << QStringList{"--help"_s};
        QTest::newRow("run --help") << QStringList{"run"_s, "--help"_s};
    }

    void outputThatFails()
    {
        QFETCH(QStringList, arguments);
        QFile full("/dev/full"_s);
        QVERIFY(full.open(QIODevice::WriteOnly));
        Outcome const outcome = Program::run(arguments, QDir::tempPath(), full.handle());
        QCOMPARE(outcome.err, "workplace: standard output: No space left on device\n"_s);
        QCOMPARE(outcome.exitCode, 2);
    }

    void pipeThatIsClosed_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("run") << QStringList{"run"_s, initExample};
        QTest::newRow("inspect") << QStringList{"inspect"_s};
    }

    void pipeThatIsClosed()
    {
        QFETCH(QStringList, arguments);
        int ends[2];
        QVERIFY(::pipe(ends) == 0);
        ::close(ends[0]);
        Outcome const outcome = Program::run(arguments, QDir::tempPath(), ends[1]);
        ::close(ends[1]);
        QCOMPARE(outcome.err, "workplace: standard output: Broken pipe\n"_s);
        QCOMPARE(outcome.exitCode, 2);
    }

    void emptyNames_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("argument");
        QTest::newRow("sequence") << QStringList{"run"_s, QString()} << "SEQUENCE"_s;
        QTest::newRow("log") << QStringList{"explain"_s, QString()} << "LOG"_s;
        for (char const* const option : {"--plugin", "--controller", "--trace"})
            QTest::newRow(option) << QStringList{"run"_s, initExample, QString::fromLatin1(option), QString()}
                                  << QString::fromLatin1(option);
    }

    void emptyNames()
    {
        // As from a variable of the shell that is not set.
        QFETCH(QStringList, arguments);
        QFETCH(QString, argument);
        Outcome const outcome = Program::run(arguments);
        QCOMPARE(outcome.err,
                 "workplace: %1: no file name given; workplace --help shows what there is\n"_s.arg(argument));
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
    }

    void badInput_data()
    {
        // Everything lies in the folder that the program is run in.
        QTest::addColumn<QByteArray>("sequence");
        QTest::addColumn<QByteArray>("controller");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("message");

        QByteArray const good = R"({"steps": [{"order": "init"}]})";
        auto const sequence = [](char const* name, QByteArray const& content, QByteArray const& message) {
            QTest::newRow(name) << content << QByteArray("{}") << QStringList() << QString::fromUtf8(message);
        };
        QByteArray const known = orders().toUtf8();
        auto const controller = [&good](char const* name, QByteArray const& content, char const* message) {
            QTest::newRow(name) << good << content << QStringList{"--controller"_s, "controller.json"_s}
                                << QString::fromUtf8(message);
        };
        auto const option = [&good](char const* name, QStringList const& options, QString const& message) {
            QTest::newRow(name) << good << QByteArray("{}") << options << message;
        };
        sequence(
            "sequence: empty", "",
            "in.json:1:1: not JSON: syntax error while parsing value - unexpected end of input; expected "
            "'[', '{', "
            "or a literal");
        sequence("sequence: not JSON", "{\"steps\": [\n  {\"order\" \"init\"}\n]}",
                 "in.json:2:17: not JSON: syntax error while parsing object separator - unexpected string "
                 "literal; "
                 "expected ':'");
        sequence("sequence: no text", QByteArray("\x7f\x45LF\0\1\2", 7),
                 "in.json:1:1: not JSON: syntax error while parsing value - invalid literal; last read: "
                 "'\\u007f'");
        sequence("sequence: nested too deeply", QByteArray(1'000'000, '['),
                 "in.json:1: nested deeper than 32 levels");
        sequence("sequence: huge", QByteArray(5 * 1024 * 1024, ' '), "in.json: larger than 4 MiB");
        sequence("sequence: list", "[]", "in.json:1: must be an object, not a list");
        sequence("sequence: unknown key", "{\n\"step\": []}",
                 "in.json:2: unknown key \"step\", known are tool, controller, steps");
        sequence("sequence: newline in a key", "{\"a\\nb\": []}",
                 "in.json:1: unknown key \"a\\nb\", known are tool, controller, steps");
        sequence("sequence: key twice", "{\"steps\": [],\n\"steps\": []}",
                 "in.json:2: the key \"steps\" stands twice in one object");
        sequence("sequence: wrong type", "{\"steps\":\n7}", "in.json:2: steps: must be a list, not a number");
        sequence("sequence: number too large", "{\"steps\": [\n{\"wait\": 1e400}]}",
                 "in.json:2: not usable JSON: number overflow parsing '1e400'");
        sequence("sequence: unknown order", "{\"steps\": [{\"order\": \"init\"},\n{\"order\": \"start\"}]}",
                 "in.json:2: steps[1].order: unknown order \"start\", known are " + known);
        sequence("sequence: newline in an order", "{\"steps\": [{\"order\": \"a\\nb\"}]}",
                 "in.json:1: steps[0].order: unknown order \"a\\nb\", known are " + known);
        sequence("sequence: unknown parameter",
                 "{\"steps\": [{\"order\": \"init\", \"parameters\": {\"a\": 1}}]}",
                 "in.json:1: steps[0].parameters.a: the command takes no parameters");
        sequence("sequence: unknown result", "{\"steps\": [{\"order\": \"init\", \"expect\": {\"a\": 1}}]}",
                 "in.json:1: steps[0].expect.a: unknown result, known are doneOk");
        sequence("sequence: wait too long", "{\"steps\": [{\"order\": \"init\"}, {\"wait\": 86400001}]}",
                 "in.json:1: steps[1].wait: must be a whole number from 0 to 86400000");
        sequence("sequence: its controller missing", R"({"controller": "missing.json", "steps": []})",
                 "./missing.json: No such file or directory");

        option("sequence: missing", {"+missing.json"_s}, "missing.json: No such file or directory"_s);
        option("sequence: directory", {"+."_s}, ".: file to open is a directory"_s);
        option("sequence: not readable", {"+/proc/self/mem"_s}, "/proc/self/mem: Input/output error"_s);

        controller("controller: not JSON", "hello",
                   "controller.json:1:1: not JSON: syntax error while parsing value - invalid literal; last "
                   "read: 'h'");
        controller("controller: nested too deeply", "{\"identity\":" + QByteArray(100, '['),
                   "controller.json:1: nested deeper than 32 levels");
        controller("controller: huge", QByteArray(5 * 1024 * 1024, ' '),
                   "controller.json: larger than 4 MiB");
        controller(
            "controller: unknown key", "{\n\n\"locks\": 1}",
            "controller.json:3: unknown key \"locks\", known are identity, lock, screenLocked, presets, "
            "unwritablePresets, parameters, program, triggerMode, reverse, eventCount, seed, screws, "
            "replyTime, presetTime, connected, faults");
        controller("controller: key twice", "{\"identity\": {\"model\": \"\",\n\"model\": \"\"}}",
                   "controller.json:2: identity: the key \"model\" stands twice in one object");
        controller("controller: wrong type", "{\"lock\": \"1\"}",
                   "controller.json:1: lock: must be a whole number from 0 to 2");
        option("controller: missing", {"--controller"_s, "missing.json"_s},
               "missing.json: No such file or directory"_s);
        option("controller: directory", {"--controller"_s, "."_s}, ".: file to open is a directory"_s);

        auto const plugin = [&option](char const* name, QString const& path, QString const& message) {
            option(name, {"--plugin"_s, path}, message);
        };
        plugin("plugin: missing", "missing.so"_s, "missing.so: No such file or directory"_s);
        plugin("plugin: folder without one", "empty"_s,
               "empty: no library in this folder is a plugin for \"*.rd.box.PToolVeskZrt\""_s);
        plugin("plugin: device", "/dev/null"_s, "/dev/null: neither a file nor a folder"_s);
        plugin("plugin: text", "in.json"_s, "in.json: not a Qt plugin"_s);
        plugin("plugin: no plugin", QStringLiteral(WORKPLACE_PROGRAM),
               QStringLiteral(WORKPLACE_PROGRAM ": not a Qt plugin"));
        plugin("plugin: broken metadata", "broken.so"_s, "broken.so: not a Qt plugin"_s);
        plugin("plugin: truncated", "truncated.so"_s, "truncated.so: not a Qt plugin"_s);
        plugin("plugin: another interface", QStringLiteral(ODD_INTERFACE_FILE),
               QStringLiteral(ODD_INTERFACE_FILE
                              ": its interface is \"odd.rd.box.PToolVeskOther\", wanted is "
                              "\"*.rd.box.PToolVeskZrt\""));
        plugin("plugin: another Qt", "qt6.so"_s,
               "qt6.so: built for Qt 6.15, this is Qt %1"_s.arg(QLatin1String(qVersion())));
        plugin("plugin: missing dependency", QStringLiteral(ODD_DEPENDENCY_FILE),
               QStringLiteral(ODD_DEPENDENCY_FILE
                              ": Cannot load library " ODD_DEPENDENCY_FILE
                              ": (libodd_absent.so: cannot open shared object file: No such file or "
                              "directory)"));
        plugin("plugin: another root object", QStringLiteral(ODD_ROOT_FILE),
               QStringLiteral(ODD_ROOT_FILE ": its root object, a OddRoot, is no plugin of this host"));
        plugin("plugin: makes no instances", QStringLiteral(ODD_INSTANCES_FILE),
               QStringLiteral(ODD_INSTANCES_FILE ": the plugin's instances are no plugin objects"));
    }

    void badInput()
    {
        QFETCH(QByteArray, sequence);
        QFETCH(QByteArray, controller);
        QFETCH(QStringList, options);
        QFETCH(QString, message);
        ScratchFolder const folder;
        prepare(folder);
        folder.write("in.json"_s, sequence);
        folder.write("controller.json"_s, controller);
        folder.write("former.jsonl"_s, "former");
        QStringList const before = folder.names();
        QString sequenceName = "in.json"_s;
        if (!options.isEmpty() && options.first().startsWith(QLatin1Char('+')))
            sequenceName = options.takeFirst().mid(1);
        for (auto const& trace : {"trace.jsonl"_s, "former.jsonl"_s}) {
            Outcome const outcome =
                Program::run(QStringList{"run"_s, sequenceName, "--trace"_s, trace} + options, folder.path());
            QCOMPARE(outcome.err, "workplace: "_s + message + QLatin1Char('\n'));
            QCOMPARE(outcome.out, QString());
            QCOMPARE(outcome.exitCode, 2);
        }
        QCOMPARE(folder.names(), before);
        QCOMPARE(contentOf(folder.filePath("former.jsonl"_s)), QByteArray("former"));
    }

    void inspectOfBadInput_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, char const* path, QString const& message) {
            QTest::newRow(name) << QString::fromLatin1(path) << message;
        };
        row("missing", "missing.so", "No such file or directory"_s);
        row("folder without one", "empty",
            "no library in this folder is a plugin for \"*.rd.box.PToolVeskZrt\""_s);
        row("truncated", "truncated.so", "not a Qt plugin"_s);
        row("another interface", ODD_INTERFACE_FILE,
            "its interface is \"odd.rd.box.PToolVeskOther\", wanted is \"*.rd.box.PToolVeskZrt\""_s);
        row("another Qt", "qt6.so", "built for Qt 6.15, this is Qt %1"_s.arg(QLatin1String(qVersion())));
    }

    void inspectOfBadInput()
    {
        QFETCH(QString, path);
        QFETCH(QString, message);
        ScratchFolder const folder;
        prepare(folder);
        for (auto const& options : {QStringList(), QStringList{"--json"_s}}) {
            Outcome const outcome =
                Program::run(QStringList{"inspect"_s, "--plugin"_s, path} + options, folder.path());
            QCOMPARE(outcome.err, "workplace: %1: %2\n"_s.arg(path, message));
            QCOMPARE(outcome.out, QString());
            QCOMPARE(outcome.exitCode, 2);
        }
    }

    void traceIntoAPipe()
    {
        ScratchFolder const folder;
        QString const pipe = folder.filePath("pipe"_s);
        QCOMPARE(QProcess::execute("mkfifo"_s, {pipe}), 0);
        QProcess reader;
        reader.start("cat"_s, {pipe});
        QVERIFY(reader.waitForStarted());
        Outcome const outcome = Program::run({"run"_s, initExample, "--trace"_s, pipe});
        if (QFileInfo(pipe).isFile()) {
            reader.kill();
            reader.waitForFinished();
            QFAIL("the pipe was replaced");
        }
        QVERIFY(reader.waitForFinished());
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 0);
        QCOMPARE(QString::fromUtf8(reader.readAll()),
                 QString::fromUtf8(contentOf(examples + "/traces/init.jsonl"_s)));
        m_writesDirectly = true;
    }

    // A record of a plugin that did something else.
    void replayOfAnother_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("after");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("json");
        auto const row = [](char const* name, char const* before, char const* after, char const* text,
                            char const* json) {
            QTest::newRow(name) << QByteArray(before) << QByteArray(after) << QString::fromUtf8(text)
                                << QString::fromUtf8(json);
        };
        row("result", R"("key":"doneOk","value":true)", R"("key":"doneOk","value":false)",
            R"(trace.jsonl:8: {"time":15,"event":"reply","order":1,"instruction":3,"reply":{"doneOk":true}}
- {"time":15,"event":"result","order":1,"key":"doneOk","value":false}
+ {"time":15,"event":"result","order":1,"key":"doneOk","value":true}
  {"time":15,"event":"finished","order":1,"command":"init","success":true}
5 steps, 1 DIFFERENT
)",
            R"({"line":8,"step":{"time":15,"event":"reply","order":1,"instruction":3,"reply":{"doneOk":true}},)"
            R"("recorded":[{"time":15,"event":"result","order":1,"key":"doneOk","value":false},)"
            R"({"time":15,"event":"finished","order":1,"command":"init","success":true}],)"
            R"("replayed":[{"time":15,"event":"result","order":1,"key":"doneOk","value":true},)"
            R"({"time":15,"event":"finished","order":1,"command":"init","success":true}]}
{"steps":5,"differences":1,"recordedWith":"Plugin Tool ZRT 1.0","replayedWith":"Plugin Tool ZRT 1.0"}
)");
        row("another instruction", R"("name":"setLock")", R"("name":"unlock")",
            R"(trace.jsonl:4: {"time":5,"event":"reply","order":1,"instruction":1,"reply":{"firmware":"1.4.2","model":"ZRT","serialNumber":"ZRT-2026-0042"}}
- {"time":5,"event":"instruction","order":1,"instruction":2,"target":"device","name":"unlock","arguments":{"lock":1},"timeAllowance":4000}
+ {"time":5,"event":"instruction","order":1,"instruction":0,"target":"device","name":"setLock","arguments":{"lock":1},"timeAllowance":4000}
trace.jsonl:6: {"time":10,"event":"reply","order":1,"instruction":2,"reply":{"fasteningLocked":true,"lockStatus":1,"looseningLocked":true}}
! nobody waits for this reply: the instruction was not sent
- {"time":10,"event":"instruction","order":1,"instruction":3,"target":"device","name":"setLockScreen","arguments":{},"timeAllowance":4000}
trace.jsonl:8: {"time":15,"event":"reply","order":1,"instruction":3,"reply":{"doneOk":true}}
! nobody waits for this reply: the instruction was not sent
- {"time":15,"event":"result","order":1,"key":"doneOk","value":true}
- {"time":15,"event":"finished","order":1,"command":"init","success":true}
5 steps, 3 DIFFERENT
)",
            "");
        row("another version", R"("version":"1.0")", R"("version":"0.9")",
            "5 steps, all as recorded (recorded with Plugin Tool ZRT 0.9, replayed with Plugin Tool ZRT "
            "1.0)\n",
            R"({"steps":5,"differences":0,"recordedWith":"Plugin Tool ZRT 0.9","replayedWith":"Plugin Tool ZRT 1.0"}
)");
    }

    void replayOfAnother()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, after);
        QFETCH(QString, text);
        QFETCH(QString, json);
        ScratchFolder const folder;
        QByteArray trace = contentOf(examples + "/traces/init.jsonl"_s);
        QCOMPARE(trace.count(before), 1);
        folder.write("trace.jsonl"_s, trace.replace(before, after));
        int const code = text.contains("DIFFERENT"_s) ? 1 : 0;
        QStringList const arguments{"replay"_s, "trace.jsonl"_s};
        Outcome outcome = Program::run(arguments, folder.path());
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, text);
        QCOMPARE(outcome.exitCode, code);
        outcome = Program::run(arguments + QStringList{"--json"_s}, folder.path());
        QCOMPARE(outcome.err, QString());
        if (!json.isEmpty())
            QCOMPARE(outcome.out, json);
        QCOMPARE(outcome.exitCode, code);
        auto const lines = outcome.out.toUtf8().trimmed().split('\n');
        for (auto const& line : lines)
            QVERIFY2(QJsonDocument::fromJson(line).isObject(), line.constData());
    }

    void replayShowsWhatBothHave()
    {
        // Of the three instructions that a tightening begins with, the first and the last were others.
        ScratchFolder const folder;
        QByteArray trace = contentOf(examples + "/traces/working_day.jsonl"_s);
        trace.replace(R"("name":"setProgram","arguments":{"program":{"@type":"uint","@value":3}})",
                      R"("name":"setProgram","arguments":{"program":3})");
        trace.replace(R"("name":"getPresetData","arguments":{"preset":3})",
                      R"("name":"getPresetData","arguments":{"preset":4})");
        folder.write("trace.jsonl"_s, trace);
        Outcome const outcome = Program::run({"replay"_s, "trace.jsonl"_s}, folder.path());
        QCOMPARE(outcome.err, QString());
        QString marks;
        auto const lines = outcome.out.split(QLatin1Char('\n'));
        for (auto const& line : lines) {
            if (line.contains("\"order\":5,\"instruction\""_s) && line[1] == QLatin1Char(' '))
                marks += line[0];
        }
        QCOMPARE(marks, "-+ -+"_s);
        QCOMPARE(outcome.exitCode, 1);
    }

    // Log lines have the date of the record.
    void replayOfAnotherDay()
    {
        ScratchFolder const folder;
        QByteArray trace = contentOf(examples + "/traces/faults/missing_key.jsonl"_s);
        QCOMPARE(trace.count("2000-01-01"), 2);
        folder.write("trace.jsonl"_s, trace.replace("2000-01-01", "2026-03-09"));
        Outcome const outcome = Program::run({"replay"_s, "trace.jsonl"_s}, folder.path());
        QCOMPARE(outcome.err, QString());
        QVERIFY2(outcome.out.endsWith(" steps, all as recorded\n"_s), qPrintable(outcome.out));
        QCOMPARE(outcome.exitCode, 0);
    }

    // A line number counts only where it has been laid down.
    void replayOfAnotherPlace_data()
    {
        QTest::addColumn<QString>("trace");
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("after");
        QTest::addColumn<QStringList>("marks");
        auto const row = [](char const* name, char const* trace, char const* before, char const* after,
                            QStringList const& marks) {
            QTest::newRow(name) << "/traces/faults/%1.jsonl"_s.arg(QLatin1String(trace)) << QByteArray(before)
                                << QByteArray(after) << marks;
        };
        row("place in the file", "refused", "", "", {});
        row("laid down", "missing_key", R"(;\t 81 ;)", R"(;\t 82 ;)", {"- log"_s, "+ log"_s, "  finished"_s});
        row("place in the file, beside a difference", "refused", R"("setLock\" was not)",
            R"("unlock\" was not)", {"  log"_s, "- finished"_s, "+ finished"_s});
    }

    void replayOfAnotherPlace()
    {
        QFETCH(QString, trace);
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, after);
        QFETCH(QStringList, marks);
        ScratchFolder const folder;
        QByteArray recorded = contentOf(examples + trace);
        QVERIFY(recorded.contains(before));
        recorded.replace(before, after);
        // In both rows of this trace the error stands elsewhere.
        recorded.replace(R"(stopTightening.cpp ;\t )", R"(stopTightening.cpp ;\t 2)");
        folder.write("trace.jsonl"_s, recorded);
        Outcome const outcome = Program::run({"replay"_s, "trace.jsonl"_s}, folder.path());
        QCOMPARE(outcome.err, QString());
        QStringList shown;
        auto const lines = outcome.out.split(QLatin1Char('\n'));
        for (auto const& line : lines) {
            if (line.midRef(1, 2) == QLatin1String(" {"))
                shown += line.left(2)
                         + QJsonDocument::fromJson(line.mid(2).toUtf8()).object().value("event"_s).toString();
        }
        QCOMPARE(shown, marks);
        QCOMPARE(outcome.exitCode, marks.isEmpty() ? 0 : 1);
    }

    void replayComplaints_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("complaint");
        QByteArray const trace = contentOf(examples + "/traces/init.jsonl"_s);
        auto const row = [](char const* name, QByteArray const& content, char const* complaint) {
            QTest::newRow(name) << content << QString::fromUtf8(complaint);
        };
        row("missing", QByteArray(), ": No such file or directory");
        row("a sequence", contentOf(initExample), ":1: this is no trace, it does not start with \"begin\"");
        row("cut off in a line", trace.left(trace.size() / 2), ":5: the trace is cut off in this line");
        row("cut off behind a line", trace.left(trace.lastIndexOf('\n', -2) + 1),
            ":10: the trace is cut off behind this line");
        row("of a newer version", QByteArray(trace).replace("\"format\":1", "\"format\":2"),
            ":1: format: this trace has format 2, from a newer version; this version reads format 1");
        row("of another plugin", QByteArray(trace).replace("\"init\"", "\"walk\""),
            ":2: the plugin has no command \"walk\"");
    }

    void replayComplaints()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, complaint);
        ScratchFolder const folder;
        if (!content.isNull())
            folder.write("trace.jsonl"_s, content);
        Outcome const outcome = Program::run({"replay"_s, "trace.jsonl"_s}, folder.path());
        // Nothing is replayed before the whole of it is known to be right.
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.err, "workplace: trace.jsonl%1\n"_s.arg(complaint));
        QCOMPARE(outcome.exitCode, 2);
    }

    void traceThatFails_data()
    {
        QTest::addColumn<QString>("trace");
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("hasRun");
        QTest::newRow("folder missing") << "missing/trace.jsonl"_s
                                        << "No such file or directory"_s << false;
        QTest::newRow("directory") << "."_s
                                   << "Filename refers to a directory"_s << false;
        QTest::newRow("no space") << "/dev/full"_s
                                  << "the trace could not be written: No space left on device"_s << true;
    }

    void traceThatFails()
    {
        QFETCH(QString, trace);
        QFETCH(QString, message);
        QFETCH(bool, hasRun);
        if (hasRun && !m_writesDirectly)
            QSKIP("what replaces pipes would, run by root, replace this machine's device");
        ScratchFolder const folder;
        Outcome const outcome = Program::run({"run"_s, initExample, "--trace"_s, trace}, folder.path());
        QCOMPARE(outcome.err, "workplace: %1: %2\n"_s.arg(trace, message));
        QCOMPARE(outcome.out, hasRun ? expected("init.txt"_s) : QString());
        QCOMPARE(outcome.exitCode, 2);
        QCOMPARE(folder.names(), QStringList());
    }

    void traceIsNotWrittenOverInput_data()
    {
        QTest::addColumn<QString>("trace");
        QTest::newRow("sequence") << "in.json"_s;
        QTest::newRow("sequence by another name") << "./../%1/in.json"_s;
        QTest::newRow("sequence by a link") << "link.json"_s;
        QTest::newRow("sequence by a hard link") << "hard.json"_s;
        QTest::newRow("controller") << "controller.json"_s;
        QTest::newRow("plugin") << "plugin.so"_s;
    }

    void traceIsNotWrittenOverInput()
    {
        QFETCH(QString, trace);
        ScratchFolder const folder;
        QString const sequence =
            folder.write("in.json"_s, R"({"controller": "controller.json", "steps": []})");
        QString const controller = folder.write("controller.json"_s, "{}");
        QVERIFY(QFile::copy(pluginFile, folder.filePath("plugin.so"_s)));
        QVERIFY(QFile::link(sequence, folder.filePath("link.json"_s)));
        QVERIFY(::link(QFile::encodeName(sequence).constData(),
                       QFile::encodeName(folder.filePath("hard.json"_s)).constData())
                == 0);
        QStringList const names = folder.names();
        trace.replace("%1"_s, QFileInfo(folder.path()).fileName());
        Outcome const outcome = Program::run(
            {"run"_s, "in.json"_s, "--plugin"_s, "plugin.so"_s, "--trace"_s, trace}, folder.path());
        if (trace == "hard.json"_s) {
            // The name gets a file of its own; what the run needs stays under the other.
            QCOMPARE(outcome.exitCode, 0);
        } else {
            QCOMPARE(outcome.err,
                     "workplace: %1: the trace would overwrite what the run needs\n"_s.arg(trace));
            QCOMPARE(outcome.out, QString());
            QCOMPARE(outcome.exitCode, 2);
        }
        QCOMPARE(folder.names(), names);
        QCOMPARE(contentOf(sequence), QByteArray(R"({"controller": "controller.json", "steps": []})"));
        QCOMPARE(contentOf(controller), QByteArray("{}"));
        QCOMPARE(contentOf(folder.filePath("plugin.so"_s)), contentOf(pluginFile));
    }

private:
    bool m_writesDirectly = false;
};

QTEST_GUILESS_MAIN(TestWorkplaceCli)
#include "tst_workplace_cli.moc"
