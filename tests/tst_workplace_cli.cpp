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
        environment.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("default.debug=false"));
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
    return QString::fromUtf8(contentOf(QStringLiteral(TEST_DATA "/workplace/") + name))
        .replace(QStringLiteral("@PLUGIN@"), pluginFile)
        .replace(QStringLiteral("@MAKER@"), QStringLiteral(ZRT_MAKER_DOMAIN));
}

/// What --json must print of an example: its recorded trace, without what is of use in a trace alone.
QString expectedJson(QString const& sequence)
{
    static QRegularExpression const ofTracesAlone(QStringLiteral(
        "\"event\":\"(stopAll|instruction|withdrawn|reply|dropped|notDelivered\".*\"goesOn\":false}$)"));
    QStringList lines =
        QString::fromUtf8(contentOf(examples + QStringLiteral("/traces/%1.jsonl").arg(sequence)))
            .split(QLatin1Char('\n'));
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](QString const& line) { return line.contains(ofTracesAlone); }),
                lines.end());
    return lines.join(QLatin1Char('\n'));
}

/// The catalogue as the plugin's golden file has it.
QList<QJsonObject> commands()
{
    QList<QJsonObject> found;
    auto const lines = expected(QStringLiteral("inspect.jsonl")).toUtf8().split('\n');
    for (auto const& line : lines) {
        QJsonObject const one = QJsonDocument::fromJson(line).object();
        if (one.value(QStringLiteral("kind")) == QStringLiteral("command"))
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
        names += command.value(QStringLiteral("name")).toString();
        if (command.value(QStringLiteral("stop")).isString())
            stops += command.value(QStringLiteral("stop")).toString();
    }
    stops.removeDuplicates();
    return (names + stops).join(QStringLiteral(", "));
}

/// The examples that are work sequences, "faults/late".
QStringList sequences()
{
    QStringList names;
    QDir const folder(examples);
    for (QDirIterator it(examples, {QStringLiteral("*.json")}, QDir::Files, QDirIterator::Subdirectories);
         it.hasNext();) {
        QString const path = it.next();
        if (QJsonDocument::fromJson(contentOf(path)).object().contains(QStringLiteral("steps")))
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
    return examples + QLatin1Char('/') + QString::fromLatin1(name) + QStringLiteral(".json");
}

} // namespace

/// The program as a user runs it: exit codes and every byte on its channels.
class TstWorkplaceCli : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void help_data();
    void help();
    void badUsage_data();
    void badUsage();

    void run_data();
    void run();
    void runTwice_data();
    void runTwice();
    void realTime_data();
    void realTime();
    void trace();
    void traceBesideJson();
    void traceTellsMore();
    void controllerOption();
    void pluginOption();
    void sequenceFromAPipe();
    void failedOrders_data();
    void failedOrders();
    void unexpectedResult();

    void failedSteps_data();
    void failedSteps();
    void inspect();
    void inspectJson();
    void inspectMarkdown();

    void unknownSchema();
    void outputThatFails_data();
    void outputThatFails();
    void pipeThatIsClosed_data();
    void pipeThatIsClosed();
    void emptyNames_data();
    void emptyNames();
    void badInput_data();
    void badInput();
    void inspectOfBadInput_data();
    void inspectOfBadInput();
    void traceIntoAPipe();
    void replayOfAnother_data();
    void replayOfAnother();
    void replayShowsWhatBothHave();
    void replayOfAnotherDay();
    void replayOfAnotherPlace_data();
    void replayOfAnotherPlace();
    void replayComplaints_data();
    void replayComplaints();
    void traceThatFails_data();
    void traceThatFails();
    void traceIsNotWrittenOverInput_data();
    void traceIsNotWrittenOverInput();

private:
    bool m_writesDirectly = false;
};

// Many rows know the commands from the file: said once here, and not by each of them.
void TstWorkplaceCli::initTestCase()
{
    Outcome const outcome = Program::run({QStringLiteral("inspect"), QStringLiteral("--json")});
    QVERIFY2(
        outcome.out == expected(QStringLiteral("inspect.jsonl")),
        "tests/data/workplace/inspect.jsonl is not what the library says; the test document_generated shows "
        "the difference. To accept a deliberate change: cmake --build --preset release --target update_all");
}

void TstWorkplaceCli::help_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("says");
    QTest::newRow("program") << QStringList{QStringLiteral("--help")}
                             << QStringList{
                                    QStringLiteral("Usage: workplace [OPTIONS] SUBCOMMAND"),
                                    QStringLiteral("Exit codes: 0 as asked, 1 an order failed or a replay "
                                                   "differs, 2 bad usage or input."),
                                    QStringLiteral("inspect  "), QStringLiteral("run  "),
                                    QStringLiteral("replay  ")};
    QTest::newRow("short") << QStringList{QStringLiteral("-h")}
                           << QStringList{QStringLiteral("Usage: workplace [OPTIONS] SUBCOMMAND")};
    QTest::newRow("version") << QStringList{QStringLiteral("--version")}
                             << QStringList{QStringLiteral("workplace " PROGRAM_VERSION "\n")};
    QTest::newRow("run") << QStringList{QStringLiteral("run"), QStringLiteral("--help")}
                         << QStringList{QStringLiteral("Usage: workplace run [OPTIONS] SEQUENCE"),
                                        QStringLiteral("--plugin FILE  "),
                                        QStringLiteral("--controller FILE  "),
                                        QStringLiteral("--trace FILE  "),
                                        QStringLiteral("--json  "),
                                        QStringLiteral("--real-time  ")};
    QTest::newRow("inspect") << QStringList{QStringLiteral("inspect"), QStringLiteral("--help")}
                             << QStringList{QStringLiteral("Usage: workplace inspect [OPTIONS]"),
                                            QStringLiteral("--plugin FILE  "), QStringLiteral("--json"),
                                            QStringLiteral("--markdown")};
    QTest::newRow("replay") << QStringList{QStringLiteral("replay"), QStringLiteral("--help")}
                            << QStringList{QStringLiteral("Usage: workplace replay [OPTIONS] TRACE"),
                                           QStringLiteral("--plugin FILE  "), QStringLiteral("--json")};
    QTest::newRow("explain") << QStringList{QStringLiteral("explain"), QStringLiteral("--help")}
                             << QStringList{QStringLiteral("Usage: workplace explain [OPTIONS] [LOG]"),
                                            QStringLiteral("--json"), QStringLiteral("--markdown TABLE")};
    QTest::newRow("schema") << QStringList{QStringLiteral("schema"), QStringLiteral("--help")}
                            << QStringList{QStringLiteral("Usage: workplace schema [OPTIONS] [NAME]"),
                                           QStringLiteral("--markdown")};
    QTest::newRow("schema without a name")
        << QStringList{QStringLiteral("schema")}
        << QStringList{QStringLiteral("backup\ncontroller\nmaintenance\nparameters\n"
                                      "presets\nsequence\ntrace_line\n")};
    QTest::newRow("help wins over a missing argument")
        << QStringList{QStringLiteral("run"), QStringLiteral("-h"), QStringLiteral("--json")}
        << QStringList{QStringLiteral("Usage: workplace run [OPTIONS] SEQUENCE")};
}

void TstWorkplaceCli::help()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, says);
    Outcome const outcome = Program::run(arguments);
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 0);
    for (auto const& one : qAsConst(says))
        QVERIFY2(outcome.out.contains(one), qPrintable(one + QLatin1Char('\n') + outcome.out));
}

void TstWorkplaceCli::badUsage_data()
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

void TstWorkplaceCli::badUsage()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);
    Outcome const outcome = Program::run(arguments);
    QCOMPARE(outcome.err, QStringLiteral("workplace: ") + message
                              + QStringLiteral("; workplace --help shows what there is\n"));
    QCOMPARE(outcome.out, QString());
    QCOMPARE(outcome.exitCode, 2);
}

void TstWorkplaceCli::run_data()
{
    QTest::addColumn<QString>("sequence");
    auto const names = sequences();
    QVERIFY(names.contains(QStringLiteral("init")));
    for (auto const& name : names)
        QTest::newRow(qPrintable(name)) << name;
}

void TstWorkplaceCli::run()
{
    // Run in the examples' own folder, so that no path of this machine is in what it prints.
    QFETCH(QString, sequence);
    QString const file = sequence + QStringLiteral(".json");
    struct Form
    {
        QStringList arguments;
        QString expected;
    };
    QString const json = QStringLiteral("--json");
    QString const verb = QStringLiteral("run");
    for (auto const& form : {Form{{verb, file}, expected(flat(sequence) + QStringLiteral(".txt"))},
                             Form{{verb, file, json}, expectedJson(sequence)},
                             Form{{verb, json, file}, expectedJson(sequence)}}) {
        Outcome const outcome = Program::run(form.arguments, examples);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(withoutPlaces(outcome.out), withoutPlaces(form.expected));
        QCOMPARE(outcome.exitCode, 0);
    }
}

void TstWorkplaceCli::runTwice_data()
{
    run_data();
}

void TstWorkplaceCli::runTwice()
{
    QFETCH(QString, sequence);
    ScratchFolder const folder;
    QStringList outs;
    QList<QByteArray> traces;
    for (int i = 0; i < 2; ++i) {
        QString const trace = folder.filePath(QString::number(i));
        outs += Program::run({QStringLiteral("run"), sequence + QStringLiteral(".json"),
                              QStringLiteral("--json"), QStringLiteral("--trace"), trace},
                             examples)
                    .out;
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

void TstWorkplaceCli::realTime_data()
{
    QTest::addColumn<QString>("sequence");
    QTest::newRow("init") << QStringLiteral("init");
    QTest::newRow("with a delay") << QStringLiteral("faults/delay");
}

void TstWorkplaceCli::realTime()
{
    QFETCH(QString, sequence);
    ScratchFolder const folder;
    QString const file = sequence + QStringLiteral(".json");
    Outcome const outcome = Program::run({QStringLiteral("run"), file, QStringLiteral("--real-time"),
                                          QStringLiteral("--trace"), folder.filePath(QStringLiteral("real"))},
                                         examples);
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.out, expected(flat(sequence) + QStringLiteral(".txt")));
    QCOMPARE(outcome.exitCode, 0);
    Program::run({QStringLiteral("run"), file, QStringLiteral("--trace"),
                  folder.filePath(QStringLiteral("simulated"))},
                 examples);
    // They differ in their date alone.
    QByteArray real = contentOf(folder.filePath(QStringLiteral("real")));
    QVERIFY(!real.isEmpty());
    int const date = real.indexOf(QDate::currentDate().toString(Qt::ISODate).toLatin1());
    QVERIFY(date > 0);
    real.replace(date, int(sizeof "2000-01-01T00:00:00.000") - 1, "2000-01-01T00:00:00.000");
    QCOMPARE(real, contentOf(folder.filePath(QStringLiteral("simulated"))));
    Outcome const replayed =
        Program::run({QStringLiteral("replay"), folder.filePath(QStringLiteral("real"))}, examples);
    QCOMPARE(replayed.err, QString());
    QVERIFY2(replayed.out.endsWith(QStringLiteral("all as recorded\n")), qPrintable(replayed.out));
}

void TstWorkplaceCli::trace()
{
    ScratchFolder const folder;
    folder.write(QStringLiteral("trace.jsonl"), "former");
    Outcome const outcome = Program::run(
        {QStringLiteral("run"), initExample, QStringLiteral("--trace"), QStringLiteral("trace.jsonl")},
        folder.path());
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.out, expected(QStringLiteral("init.txt")));
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(QString::fromUtf8(contentOf(folder.filePath(QStringLiteral("trace.jsonl")))),
             QString::fromUtf8(contentOf(examples + QStringLiteral("/traces/init.jsonl"))));
    QCOMPARE(folder.names(), QStringList{QStringLiteral("trace.jsonl")});
}

void TstWorkplaceCli::traceBesideJson()
{
    ScratchFolder const folder;
    Outcome const outcome = Program::run({QStringLiteral("run"), initExample, QStringLiteral("--json"),
                                          QStringLiteral("--trace"), QStringLiteral("trace.jsonl")},
                                         folder.path());
    QCOMPARE(outcome.out, expectedJson(QStringLiteral("init")));
    QCOMPARE(QString::fromUtf8(contentOf(folder.filePath(QStringLiteral("trace.jsonl")))),
             QString::fromUtf8(contentOf(examples + QStringLiteral("/traces/init.jsonl"))));
}

// What is of use in a trace alone is not shown.
void TstWorkplaceCli::traceTellsMore()
{
    ScratchFolder const folder;
    folder.write(QStringLiteral("gone.json"), R"({"connected": false})");
    folder.write(QStringLiteral("sequence.json"),
                 R"({"controller": "gone.json",
                     "steps": [{"order": "init", "fails": true}, {"order": "startListening"}]})");
    Outcome const outcome =
        Program::run({QStringLiteral("run"), QStringLiteral("sequence.json"), QStringLiteral("--json"),
                      QStringLiteral("--trace"), QStringLiteral("trace.jsonl")},
                     folder.path());
    QCOMPARE(outcome.err, QString());
    auto const eventsOf = [](QByteArray const& text) {
        QStringList events;
        auto const lines = text.trimmed().split('\n');
        for (auto const& line : lines)
            events += QJsonDocument::fromJson(line).object().value(QStringLiteral("event")).toString();
        return events.join(QLatin1Char(' '));
    };
    QCOMPARE(eventsOf(outcome.out.toUtf8()),
             QStringLiteral("begin order finished order notDelivered finished end"));
    QCOMPARE(eventsOf(contentOf(folder.filePath(QStringLiteral("trace.jsonl")))),
             QStringLiteral("begin order instruction notDelivered finished order instruction notDelivered "
                            "stopAll finished end"));
}

void TstWorkplaceCli::controllerOption()
{
    ScratchFolder const folder;
    folder.write(QStringLiteral("other.json"), R"({"identity": {"serialNumber": "S-1"}, "replyTime": 1000})");
    Outcome const outcome = Program::run(
        {QStringLiteral("run"), initExample, QStringLiteral("--controller"), QStringLiteral("other.json")},
        folder.path());
    QCOMPARE(outcome.out,
             QStringLiteral("    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT S-1\n"
                            "    0.000 s  #1    init\n"
                            "    3.000 s  #1      doneOk = true\n"
                            "    3.000 s  #1    done\n"
                            "    3.000 s        1 of 1 steps done\n"));
    QCOMPARE(outcome.exitCode, 0);

    // A sequence that asks for none gets the default controller.
    folder.write(QStringLiteral("none.json"), R"({"steps": []})");
    QCOMPARE(Program::run({QStringLiteral("run"), QStringLiteral("none.json")}, folder.path()).out,
             QStringLiteral("    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT ZRT-SIM-0001\n"
                            "    0.000 s        0 of 0 steps done\n"));
}

void TstWorkplaceCli::pluginOption()
{
    ScratchFolder const folder;
    QVERIFY(QFile::copy(pluginFile, folder.filePath(QStringLiteral("my.so"))));
    for (auto const& path : {QStringLiteral("my.so"), QStringLiteral("."), folder.path()}) {
        Outcome const outcome = Program::run(
            {QStringLiteral("run"), initExample, QStringLiteral("--plugin"), path}, folder.path());
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, expected(QStringLiteral("init.txt")));
        QCOMPARE(outcome.exitCode, 0);
    }
}

void TstWorkplaceCli::sequenceFromAPipe()
{
    ScratchFolder const folder;
    QString const pipe = folder.filePath(QStringLiteral("pipe"));
    QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {pipe}), 0);
    QProcess shell;
    shell.setWorkingDirectory(folder.path());
    shell.start(QStringLiteral("sh"),
                {QStringLiteral("-c"), QStringLiteral("echo '{\"steps\": [{\"wait\": 1}]}' > pipe")});
    QVERIFY(shell.waitForStarted());
    Outcome const outcome = Program::run({QStringLiteral("run"), pipe});
    QVERIFY(shell.waitForFinished());
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 0);
}

void TstWorkplaceCli::failedOrders_data()
{
    QTest::addColumn<QString>("controller");
    QTest::addColumn<QString>("out");
    QTest::newRow("no reply in time")
        << example("controller_slow")
        << QStringLiteral("    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT ZRT-SLOW\n"
                          "    0.000 s  #1    init\n"
                          "    4.000 s  #1    FAILED: no reply to \"getInfo\" within 4000 ms\n"
                          "    4.000 s        0 of 1 steps done, 1 FAILED, 0 not run\n");
    QTest::newRow("endpoint gone")
        << example("controller_disconnected")
        << QStringLiteral("    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT ZRT-GONE\n"
                          "    0.000 s  #1    init\n"
                          "    0.000 s  #1    FAILED: \"getInfo\": endpoint \"device\" is gone\n"
                          "    0.000 s        0 of 1 steps done, 1 FAILED, 0 not run\n");
}

void TstWorkplaceCli::failedOrders()
{
    QFETCH(QString, controller);
    QFETCH(QString, out);
    ScratchFolder const folder;
    Outcome const outcome =
        Program::run({QStringLiteral("run"), initExample, QStringLiteral("--controller"), controller,
                      QStringLiteral("--trace"), QStringLiteral("trace.jsonl")},
                     folder.path());
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.out, out);
    QCOMPARE(outcome.exitCode, 1);
    // The trace of a run that failed is the one that somebody wants to read.
    QVERIFY(contentOf(folder.filePath(QStringLiteral("trace.jsonl")))
                .endsWith("\"event\":\"end\",\"done\":0,\"failed\":1,\"notRun\":0,\"droppedReplies\":0}\n"));
}

void TstWorkplaceCli::unexpectedResult()
{
    ScratchFolder const folder;
    folder.write(
        QStringLiteral("in.json"),
        R"({"steps": [{"wait": 1500}, {"order": "init", "expect": {"doneOk": false}}, {"wait": 1}, {"wait": 1}]})");
    Outcome const outcome = Program::run({QStringLiteral("run"), QStringLiteral("in.json")}, folder.path());
    QCOMPARE(outcome.out,
             QStringLiteral("    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT ZRT-SIM-0001\n"
                            "    1.500 s  #1    init\n"
                            "    1.515 s  #1      doneOk = true\n"
                            "    1.515 s  #1    done\n"
                            "    1.515 s  #1    NOT AS EXPECTED: doneOk is true, expected was false\n"
                            "    1.515 s        1 of 4 steps done, 1 FAILED, 2 not run\n"));
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 1);
}

void TstWorkplaceCli::failedSteps_data()
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

void TstWorkplaceCli::failedSteps()
{
    QFETCH(QByteArray, steps);
    QFETCH(QString, out);
    ScratchFolder const folder;
    folder.write(QStringLiteral("in.json"), "{\"steps\": [" + steps + "]}");
    Outcome const outcome = Program::run({QStringLiteral("run"), QStringLiteral("in.json")}, folder.path());
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.out,
             QStringLiteral("    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT ZRT-SIM-0001\n")
                 + out);
    QCOMPARE(outcome.exitCode, 1);
}

// The head, a title for each command, and the lines of one that has every kind of line.
void TstWorkplaceCli::inspect()
{
    Outcome const outcome = Program::run({QStringLiteral("inspect")});
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 0);
    QString const head = QStringLiteral(R"(Library     %1
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
)");
    auto const paragraphs = outcome.out.split(QStringLiteral("\nCommand "));
    QCOMPARE(paragraphs.first(), head.arg(pluginFile, QStringLiteral(ZRT_MAKER_DOMAIN)));
    QStringList titles;
    auto const all = commands();
    for (auto const& command : all) {
        QString const stop = command.value(QStringLiteral("stop")).toString();
        titles += command.value(QStringLiteral("name")).toString()
                  + (stop.isEmpty() ? QString() : QStringLiteral(", stopped by ") + stop);
    }
    QCOMPARE(paragraphs.size(), titles.size() + 1);
    for (int i = 0; i < titles.size(); ++i)
        QCOMPARE(paragraphs[i + 1].section(QLatin1Char('\n'), 0, 0), titles[i]);
    int const restore = titles.indexOf(QStringLiteral("restore, stopped by stopListening"));
    QCOMPARE(paragraphs.value(restore + 1), QStringLiteral(R"(restore, stopped by stopListening
    "Restore saved backup"
    parameter filePath (strg)  Backup file path, default ""
    parameter startPreset (int)  Start preset, default 0
    parameter endPreset (int)  End preset, default 0
    parameter loadControllerParams (bool)  Load controller parameters, default false
    result    statusData (vart)  Restoring progress/status, default none
)"));
}

void TstWorkplaceCli::inspectJson()
{
    Outcome outcome = Program::run({QStringLiteral("inspect"), QStringLiteral("--json")});
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.out, expected(QStringLiteral("inspect.jsonl")));
    QCOMPARE(outcome.exitCode, 0);

    ScratchFolder const folder;
    QString const copy = folder.filePath(QStringLiteral("my.so"));
    QVERIFY(QFile::copy(pluginFile, copy));
    outcome = Program::run(
        {QStringLiteral("inspect"), QStringLiteral("--json"), QStringLiteral("--plugin"), folder.path()});
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.out, expected(QStringLiteral("inspect.jsonl")).replace(pluginFile, copy));
    QCOMPARE(outcome.exitCode, 0);
}

void TstWorkplaceCli::inspectMarkdown()
{
    Outcome const outcome = Program::run({QStringLiteral("inspect"), QStringLiteral("--markdown")});
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.out, QString::fromUtf8(contentOf(QStringLiteral(SOURCE_FOLDER "/docs/commands.md"))));
    QCOMPARE(outcome.exitCode, 0);
}

void TstWorkplaceCli::unknownSchema()
{
    Outcome const outcome = Program::run({QStringLiteral("schema"), QStringLiteral("sequences")});
    QCOMPARE(
        outcome.err,
        QStringLiteral("workplace: unknown schema \"sequences\", known are backup, controller, maintenance, "
                       "parameters, presets, sequence, trace_line\n"));
    QCOMPARE(outcome.exitCode, 2);
}

void TstWorkplaceCli::outputThatFails_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("run") << QStringList{QStringLiteral("run"), initExample};
    QTest::newRow("run --json") << QStringList{QStringLiteral("run"), initExample, QStringLiteral("--json")};
    QTest::newRow("run that fails") << QStringList{
        QStringLiteral("run"), initExample, QStringLiteral("--controller"), example("controller_slow")};
    QTest::newRow("inspect") << QStringList{QStringLiteral("inspect")};
    QTest::newRow("inspect --json") << QStringList{QStringLiteral("inspect"), QStringLiteral("--json")};
    QTest::newRow("inspect --markdown")
        << QStringList{QStringLiteral("inspect"), QStringLiteral("--markdown")};
    QTest::newRow("explain") << QStringList{QStringLiteral("explain"), initExample};
    QTest::newRow("explain --markdown")
        << QStringList{QStringLiteral("explain"), QStringLiteral("--markdown"), QStringLiteral("codes")};
    QTest::newRow("schema") << QStringList{QStringLiteral("schema")};
    QTest::newRow("--help") << QStringList{QStringLiteral("--help")};
    QTest::newRow("run --help") << QStringList{QStringLiteral("run"), QStringLiteral("--help")};
}

void TstWorkplaceCli::outputThatFails()
{
    QFETCH(QStringList, arguments);
    QFile full(QStringLiteral("/dev/full"));
    QVERIFY(full.open(QIODevice::WriteOnly));
    Outcome const outcome = Program::run(arguments, QDir::tempPath(), full.handle());
    QCOMPARE(outcome.err, QStringLiteral("workplace: standard output: No space left on device\n"));
    QCOMPARE(outcome.exitCode, 2);
}

void TstWorkplaceCli::pipeThatIsClosed_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("run") << QStringList{QStringLiteral("run"), initExample};
    QTest::newRow("inspect") << QStringList{QStringLiteral("inspect")};
}

void TstWorkplaceCli::pipeThatIsClosed()
{
    QFETCH(QStringList, arguments);
    int ends[2];
    QVERIFY(::pipe(ends) == 0);
    ::close(ends[0]);
    Outcome const outcome = Program::run(arguments, QDir::tempPath(), ends[1]);
    ::close(ends[1]);
    QCOMPARE(outcome.err, QStringLiteral("workplace: standard output: Broken pipe\n"));
    QCOMPARE(outcome.exitCode, 2);
}

void TstWorkplaceCli::emptyNames_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("argument");
    QTest::newRow("sequence") << QStringList{QStringLiteral("run"), QString()} << QStringLiteral("SEQUENCE");
    QTest::newRow("log") << QStringList{QStringLiteral("explain"), QString()} << QStringLiteral("LOG");
    for (char const* const option : {"--plugin", "--controller", "--trace"})
        QTest::newRow(option) << QStringList{QStringLiteral("run"), initExample, QString::fromLatin1(option),
                                             QString()}
                              << QString::fromLatin1(option);
}

void TstWorkplaceCli::emptyNames()
{
    // As from a variable of the shell that is not set.
    QFETCH(QStringList, arguments);
    QFETCH(QString, argument);
    Outcome const outcome = Program::run(arguments);
    QCOMPARE(outcome.err,
             QStringLiteral("workplace: %1: no file name given; workplace --help shows what there is\n")
                 .arg(argument));
    QCOMPARE(outcome.out, QString());
    QCOMPARE(outcome.exitCode, 2);
}

void TstWorkplaceCli::badInput_data()
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
        QTest::newRow(name) << good << content
                            << QStringList{QStringLiteral("--controller"), QStringLiteral("controller.json")}
                            << QString::fromUtf8(message);
    };
    auto const option = [&good](char const* name, QStringList const& options, QString const& message) {
        QTest::newRow(name) << good << QByteArray("{}") << options << message;
    };
    sequence("sequence: empty", "",
             "in.json:1:1: not JSON: syntax error while parsing value - unexpected end of input; expected "
             "'[', '{', "
             "or a literal");
    sequence(
        "sequence: not JSON", "{\"steps\": [\n  {\"order\" \"init\"}\n]}",
        "in.json:2:17: not JSON: syntax error while parsing object separator - unexpected string literal; "
        "expected ':'");
    sequence(
        "sequence: no text", QByteArray("\x7f\x45LF\0\1\2", 7),
        "in.json:1:1: not JSON: syntax error while parsing value - invalid literal; last read: '\\u007f'");
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

    option("sequence: missing", {QStringLiteral("+missing.json")},
           QStringLiteral("missing.json: No such file or directory"));
    option("sequence: directory", {QStringLiteral("+.")}, QStringLiteral(".: file to open is a directory"));
    option("sequence: not readable", {QStringLiteral("+/proc/self/mem")},
           QStringLiteral("/proc/self/mem: Input/output error"));

    controller(
        "controller: not JSON", "hello",
        "controller.json:1:1: not JSON: syntax error while parsing value - invalid literal; last read: 'h'");
    controller("controller: nested too deeply", "{\"identity\":" + QByteArray(100, '['),
               "controller.json:1: nested deeper than 32 levels");
    controller("controller: huge", QByteArray(5 * 1024 * 1024, ' '), "controller.json: larger than 4 MiB");
    controller("controller: unknown key", "{\n\n\"locks\": 1}",
               "controller.json:3: unknown key \"locks\", known are identity, lock, screenLocked, presets, "
               "unwritablePresets, parameters, program, triggerMode, reverse, eventCount, seed, screws, "
               "replyTime, presetTime, connected, faults");
    controller("controller: key twice", "{\"identity\": {\"model\": \"\",\n\"model\": \"\"}}",
               "controller.json:2: identity: the key \"model\" stands twice in one object");
    controller("controller: wrong type", "{\"lock\": \"1\"}",
               "controller.json:1: lock: must be a whole number from 0 to 2");
    option("controller: missing", {QStringLiteral("--controller"), QStringLiteral("missing.json")},
           QStringLiteral("missing.json: No such file or directory"));
    option("controller: directory", {QStringLiteral("--controller"), QStringLiteral(".")},
           QStringLiteral(".: file to open is a directory"));

    auto const plugin = [&option](char const* name, QString const& path, QString const& message) {
        option(name, {QStringLiteral("--plugin"), path}, message);
    };
    plugin("plugin: missing", QStringLiteral("missing.so"),
           QStringLiteral("missing.so: No such file or directory"));
    plugin("plugin: folder without one", QStringLiteral("empty"),
           QStringLiteral("empty: no library in this folder is a plugin for \"*.rd.box.PToolVeskZrt\""));
    plugin("plugin: device", QStringLiteral("/dev/null"),
           QStringLiteral("/dev/null: neither a file nor a folder"));
    plugin("plugin: text", QStringLiteral("in.json"), QStringLiteral("in.json: not a Qt plugin"));
    plugin("plugin: no plugin", QStringLiteral(WORKPLACE_PROGRAM),
           QStringLiteral(WORKPLACE_PROGRAM ": not a Qt plugin"));
    plugin("plugin: broken metadata", QStringLiteral("broken.so"),
           QStringLiteral("broken.so: not a Qt plugin"));
    plugin("plugin: truncated", QStringLiteral("truncated.so"),
           QStringLiteral("truncated.so: not a Qt plugin"));
    plugin("plugin: another interface", QStringLiteral(ODD_INTERFACE_FILE),
           QStringLiteral(ODD_INTERFACE_FILE ": its interface is \"odd.rd.box.PToolVeskOther\", wanted is "
                                             "\"*.rd.box.PToolVeskZrt\""));
    plugin("plugin: another Qt", QStringLiteral("qt6.so"),
           QStringLiteral("qt6.so: built for Qt 6.15, this is Qt %1").arg(QLatin1String(qVersion())));
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

namespace
{

/// The folder that the program is run in for bad input.
void prepare(ScratchFolder const& folder)
{
    QDir(folder.path()).mkdir(QStringLiteral("empty"));
    QByteArray library = contentOf(pluginFile);
    folder.write(QStringLiteral("truncated.so"), library.left(library.size() / 2));
    int const mark = library.indexOf("QTMETADATA !");
    QByteArray broken = library;
    folder.write(QStringLiteral("broken.so"), broken.replace(mark + 16, 8, QByteArray(8, '\xff')));
    library[mark + 13] = '\6';
    folder.write(QStringLiteral("qt6.so"), library);
}

} // namespace

void TstWorkplaceCli::badInput()
{
    QFETCH(QByteArray, sequence);
    QFETCH(QByteArray, controller);
    QFETCH(QStringList, options);
    QFETCH(QString, message);
    ScratchFolder const folder;
    prepare(folder);
    folder.write(QStringLiteral("in.json"), sequence);
    folder.write(QStringLiteral("controller.json"), controller);
    folder.write(QStringLiteral("former.jsonl"), "former");
    QStringList const before = folder.names();
    QString sequenceName = QStringLiteral("in.json");
    if (!options.isEmpty() && options.first().startsWith(QLatin1Char('+')))
        sequenceName = options.takeFirst().mid(1);
    for (auto const& trace : {QStringLiteral("trace.jsonl"), QStringLiteral("former.jsonl")}) {
        Outcome const outcome = Program::run(
            QStringList{QStringLiteral("run"), sequenceName, QStringLiteral("--trace"), trace} + options,
            folder.path());
        QCOMPARE(outcome.err, QStringLiteral("workplace: ") + message + QLatin1Char('\n'));
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
    }
    QCOMPARE(folder.names(), before);
    QCOMPARE(contentOf(folder.filePath(QStringLiteral("former.jsonl"))), QByteArray("former"));
}

void TstWorkplaceCli::inspectOfBadInput_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("message");
    auto const row = [](char const* name, char const* path, QString const& message) {
        QTest::newRow(name) << QString::fromLatin1(path) << message;
    };
    row("missing", "missing.so", QStringLiteral("No such file or directory"));
    row("folder without one", "empty",
        QStringLiteral("no library in this folder is a plugin for \"*.rd.box.PToolVeskZrt\""));
    row("truncated", "truncated.so", QStringLiteral("not a Qt plugin"));
    row("another interface", ODD_INTERFACE_FILE,
        QStringLiteral(
            "its interface is \"odd.rd.box.PToolVeskOther\", wanted is \"*.rd.box.PToolVeskZrt\""));
    row("another Qt", "qt6.so",
        QStringLiteral("built for Qt 6.15, this is Qt %1").arg(QLatin1String(qVersion())));
}

void TstWorkplaceCli::inspectOfBadInput()
{
    QFETCH(QString, path);
    QFETCH(QString, message);
    ScratchFolder const folder;
    prepare(folder);
    for (auto const& options : {QStringList(), QStringList{QStringLiteral("--json")}}) {
        Outcome const outcome =
            Program::run(QStringList{QStringLiteral("inspect"), QStringLiteral("--plugin"), path} + options,
                         folder.path());
        QCOMPARE(outcome.err, QStringLiteral("workplace: %1: %2\n").arg(path, message));
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
    }
}

void TstWorkplaceCli::traceIntoAPipe()
{
    ScratchFolder const folder;
    QString const pipe = folder.filePath(QStringLiteral("pipe"));
    QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {pipe}), 0);
    QProcess reader;
    reader.start(QStringLiteral("cat"), {pipe});
    QVERIFY(reader.waitForStarted());
    Outcome const outcome =
        Program::run({QStringLiteral("run"), initExample, QStringLiteral("--trace"), pipe});
    if (QFileInfo(pipe).isFile()) {
        reader.kill();
        reader.waitForFinished();
        QFAIL("the pipe was replaced");
    }
    QVERIFY(reader.waitForFinished());
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(QString::fromUtf8(reader.readAll()),
             QString::fromUtf8(contentOf(examples + QStringLiteral("/traces/init.jsonl"))));
    m_writesDirectly = true;
}

// A record of a plugin that did something else.
void TstWorkplaceCli::replayOfAnother_data()
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
        "5 steps, all as recorded (recorded with Plugin Tool ZRT 0.9, replayed with Plugin Tool ZRT 1.0)\n",
        R"({"steps":5,"differences":0,"recordedWith":"Plugin Tool ZRT 0.9","replayedWith":"Plugin Tool ZRT 1.0"}
)");
}

void TstWorkplaceCli::replayOfAnother()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, after);
    QFETCH(QString, text);
    QFETCH(QString, json);
    ScratchFolder const folder;
    QByteArray trace = contentOf(examples + QStringLiteral("/traces/init.jsonl"));
    QCOMPARE(trace.count(before), 1);
    folder.write(QStringLiteral("trace.jsonl"), trace.replace(before, after));
    int const code = text.contains(QStringLiteral("DIFFERENT")) ? 1 : 0;
    QStringList const arguments{QStringLiteral("replay"), QStringLiteral("trace.jsonl")};
    Outcome outcome = Program::run(arguments, folder.path());
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.out, text);
    QCOMPARE(outcome.exitCode, code);
    outcome = Program::run(arguments + QStringList{QStringLiteral("--json")}, folder.path());
    QCOMPARE(outcome.err, QString());
    if (!json.isEmpty())
        QCOMPARE(outcome.out, json);
    QCOMPARE(outcome.exitCode, code);
    auto const lines = outcome.out.toUtf8().trimmed().split('\n');
    for (auto const& line : lines)
        QVERIFY2(QJsonDocument::fromJson(line).isObject(), line.constData());
}

void TstWorkplaceCli::replayShowsWhatBothHave()
{
    // Of the three instructions that a tightening begins with, the first and the last were others.
    ScratchFolder const folder;
    QByteArray trace = contentOf(examples + QStringLiteral("/traces/working_day.jsonl"));
    trace.replace(R"("name":"setProgram","arguments":{"program":{"@type":"uint","@value":3}})",
                  R"("name":"setProgram","arguments":{"program":3})");
    trace.replace(R"("name":"getPresetData","arguments":{"preset":3})",
                  R"("name":"getPresetData","arguments":{"preset":4})");
    folder.write(QStringLiteral("trace.jsonl"), trace);
    Outcome const outcome =
        Program::run({QStringLiteral("replay"), QStringLiteral("trace.jsonl")}, folder.path());
    QCOMPARE(outcome.err, QString());
    QString marks;
    auto const lines = outcome.out.split(QLatin1Char('\n'));
    for (auto const& line : lines) {
        if (line.contains(QStringLiteral("\"order\":5,\"instruction\"")) && line[1] == QLatin1Char(' '))
            marks += line[0];
    }
    QCOMPARE(marks, QStringLiteral("-+ -+"));
    QCOMPARE(outcome.exitCode, 1);
}

// Log lines have the date of the record.
void TstWorkplaceCli::replayOfAnotherDay()
{
    ScratchFolder const folder;
    QByteArray trace = contentOf(examples + QStringLiteral("/traces/faults/missing_key.jsonl"));
    QCOMPARE(trace.count("2000-01-01"), 2);
    folder.write(QStringLiteral("trace.jsonl"), trace.replace("2000-01-01", "2026-03-09"));
    Outcome const outcome =
        Program::run({QStringLiteral("replay"), QStringLiteral("trace.jsonl")}, folder.path());
    QCOMPARE(outcome.err, QString());
    QVERIFY2(outcome.out.endsWith(QStringLiteral(" steps, all as recorded\n")), qPrintable(outcome.out));
    QCOMPARE(outcome.exitCode, 0);
}

// A line number counts only where it has been laid down.
void TstWorkplaceCli::replayOfAnotherPlace_data()
{
    QTest::addColumn<QString>("trace");
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("after");
    QTest::addColumn<QStringList>("marks");
    auto const row = [](char const* name, char const* trace, char const* before, char const* after,
                        QStringList const& marks) {
        QTest::newRow(name) << QStringLiteral("/traces/faults/%1.jsonl").arg(QLatin1String(trace))
                            << QByteArray(before) << QByteArray(after) << marks;
    };
    row("place in the file", "refused", "", "", {});
    row("laid down", "missing_key", R"(;\t 81 ;)", R"(;\t 82 ;)",
        {QStringLiteral("- log"), QStringLiteral("+ log"), QStringLiteral("  finished")});
    row("place in the file, beside a difference", "refused", R"("setLock\" was not)", R"("unlock\" was not)",
        {QStringLiteral("  log"), QStringLiteral("- finished"), QStringLiteral("+ finished")});
}

void TstWorkplaceCli::replayOfAnotherPlace()
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
    folder.write(QStringLiteral("trace.jsonl"), recorded);
    Outcome const outcome =
        Program::run({QStringLiteral("replay"), QStringLiteral("trace.jsonl")}, folder.path());
    QCOMPARE(outcome.err, QString());
    QStringList shown;
    auto const lines = outcome.out.split(QLatin1Char('\n'));
    for (auto const& line : lines) {
        if (line.midRef(1, 2) == QLatin1String(" {"))
            shown += line.left(2)
                     + QJsonDocument::fromJson(line.mid(2).toUtf8())
                           .object()
                           .value(QStringLiteral("event"))
                           .toString();
    }
    QCOMPARE(shown, marks);
    QCOMPARE(outcome.exitCode, marks.isEmpty() ? 0 : 1);
}

void TstWorkplaceCli::replayComplaints_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("complaint");
    QByteArray const trace = contentOf(examples + QStringLiteral("/traces/init.jsonl"));
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

void TstWorkplaceCli::replayComplaints()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, complaint);
    ScratchFolder const folder;
    if (!content.isNull())
        folder.write(QStringLiteral("trace.jsonl"), content);
    Outcome const outcome =
        Program::run({QStringLiteral("replay"), QStringLiteral("trace.jsonl")}, folder.path());
    // Nothing is replayed before the whole of it is known to be right.
    QCOMPARE(outcome.out, QString());
    QCOMPARE(outcome.err, QStringLiteral("workplace: trace.jsonl%1\n").arg(complaint));
    QCOMPARE(outcome.exitCode, 2);
}

void TstWorkplaceCli::traceThatFails_data()
{
    QTest::addColumn<QString>("trace");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("hasRun");
    QTest::newRow("folder missing") << QStringLiteral("missing/trace.jsonl")
                                    << QStringLiteral("No such file or directory") << false;
    QTest::newRow("directory") << QStringLiteral(".") << QStringLiteral("Filename refers to a directory")
                               << false;
    QTest::newRow("no space") << QStringLiteral("/dev/full")
                              << QStringLiteral("the trace could not be written: No space left on device")
                              << true;
}

void TstWorkplaceCli::traceThatFails()
{
    QFETCH(QString, trace);
    QFETCH(QString, message);
    QFETCH(bool, hasRun);
    if (hasRun && !m_writesDirectly)
        QSKIP("what replaces pipes would, run by root, replace this machine's device");
    ScratchFolder const folder;
    Outcome const outcome =
        Program::run({QStringLiteral("run"), initExample, QStringLiteral("--trace"), trace}, folder.path());
    QCOMPARE(outcome.err, QStringLiteral("workplace: %1: %2\n").arg(trace, message));
    QCOMPARE(outcome.out, hasRun ? expected(QStringLiteral("init.txt")) : QString());
    QCOMPARE(outcome.exitCode, 2);
    QCOMPARE(folder.names(), QStringList());
}

void TstWorkplaceCli::traceIsNotWrittenOverInput_data()
{
    QTest::addColumn<QString>("trace");
    QTest::newRow("sequence") << QStringLiteral("in.json");
    QTest::newRow("sequence by another name") << QStringLiteral("./../%1/in.json");
    QTest::newRow("sequence by a link") << QStringLiteral("link.json");
    QTest::newRow("sequence by a hard link") << QStringLiteral("hard.json");
    QTest::newRow("controller") << QStringLiteral("controller.json");
    QTest::newRow("plugin") << QStringLiteral("plugin.so");
}

void TstWorkplaceCli::traceIsNotWrittenOverInput()
{
    QFETCH(QString, trace);
    ScratchFolder const folder;
    QString const sequence =
        folder.write(QStringLiteral("in.json"), R"({"controller": "controller.json", "steps": []})");
    QString const controller = folder.write(QStringLiteral("controller.json"), "{}");
    QVERIFY(QFile::copy(pluginFile, folder.filePath(QStringLiteral("plugin.so"))));
    QVERIFY(QFile::link(sequence, folder.filePath(QStringLiteral("link.json"))));
    QVERIFY(::link(QFile::encodeName(sequence).constData(),
                   QFile::encodeName(folder.filePath(QStringLiteral("hard.json"))).constData())
            == 0);
    QStringList const names = folder.names();
    trace.replace(QStringLiteral("%1"), QFileInfo(folder.path()).fileName());
    Outcome const outcome =
        Program::run({QStringLiteral("run"), QStringLiteral("in.json"), QStringLiteral("--plugin"),
                      QStringLiteral("plugin.so"), QStringLiteral("--trace"), trace},
                     folder.path());
    if (trace == QStringLiteral("hard.json")) {
        // The name gets a file of its own; what the run needs stays under the other.
        QCOMPARE(outcome.exitCode, 0);
    } else {
        QCOMPARE(outcome.err,
                 QStringLiteral("workplace: %1: the trace would overwrite what the run needs\n").arg(trace));
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
    }
    QCOMPARE(folder.names(), names);
    QCOMPARE(contentOf(sequence), QByteArray(R"({"controller": "controller.json", "steps": []})"));
    QCOMPARE(contentOf(controller), QByteArray("{}"));
    QCOMPARE(contentOf(folder.filePath(QStringLiteral("plugin.so"))), contentOf(pluginFile));
}

QTEST_GUILESS_MAIN(TstWorkplaceCli)
#include "tst_workplace_cli.moc"
