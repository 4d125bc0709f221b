#include "literals.h"
#include "workplace.h"

#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

#include <optional>

namespace
{

QString const c_plugin = QStringLiteral(ZRT_PLUGIN_FILE);
QString const c_oddPlugin = QStringLiteral(ODD_INSTANCES_FILE);
QString const c_trace = "trace.jsonl"_s;

QByteArray recordedTrace(char const* name)
{
    return contentOf(QStringLiteral(WORKPLACE_EXAMPLES "/traces/") + QLatin1String(name) + ".jsonl"_s);
}

QByteArray sequenceOf(QByteArray const& steps)
{
    return R"({"controller": "controller.json", "steps": [)" + steps + "]}";
}

/// A plugin whose root object makes no instances.
QString complaintAboutInstances()
{
    return c_oddPlugin + ": the plugin's instances are no plugin objects"_s;
}

/// A process whose standard output goes into something open.
class ProgramWritingInto : public QProcess
{
public:
    explicit ProgramWritingInto(int output) : m_output(output) {}

protected:
    void setupChildProcess() override { ::dup2(m_output, STDOUT_FILENO); }

private:
    int const m_output;
};

/// The lines that a replay shows of a difference, with their marks: "- result|+ result".
QString markedEvents(QString const& shown)
{
    QStringList events;
    auto const lines = linesOf(shown);
    for (auto const& line : lines) {
        if (line.midRef(1, 2) == QLatin1String(" {"))
            events += line.left(2) + objectOf(line.mid(2)).value("event"_s).toString();
    }
    return events.join(QLatin1Char('|'));
}

} // namespace

/// The program as a user runs it: exit codes, what it prints, and the files that it writes.
class TestWorkplaceCli : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_workplace.emplace();
        m_workplace->write("init.json"_s, "{\"steps\": [{\"order\": \"init\"}]}\n");
        m_workplace->write("records.json"_s, R"({"tools": {}})");
    }

    void help_data()
    {
        QTest::addColumn<QStringList>("says");
        auto const row = [](char const* commandLine, QStringList const& says) {
            QTest::newRow(commandLine) << says;
        };
        QString const run = "Usage: workplace run [OPTIONS] SEQUENCE"_s;
        row("--help",
            {"Usage: workplace [OPTIONS] SUBCOMMAND"_s,
             "Exit codes: 0 as asked, 1 an order failed or a replay differs, 2 bad usage or input."_s,
             "inspect  "_s, "run  "_s, "replay  "_s, "panel  "_s, "explain  "_s, "schema  "_s});
        row("-h", {"Usage: workplace [OPTIONS] SUBCOMMAND"_s});
        row("--version", {QStringLiteral("workplace " PROGRAM_VERSION "\n")});
        row("run --help", {run, "--plugin FILE  "_s, "--controller FILE  "_s, "--trace FILE  "_s,
                           "--json  "_s, "--real-time  "_s});
        row("run -h --json", {run}); // in spite of the missing argument
        row("inspect --help", {"Usage: workplace inspect [OPTIONS]"_s, "--plugin FILE  "_s,
                               "--records FILE"_s, "--json"_s, "--markdown"_s});
        row("replay --help", {"Usage: workplace replay [OPTIONS] TRACE"_s, "--plugin FILE  "_s, "--json"_s});
        row("panel --help",
            {"Usage: workplace panel [OPTIONS]"_s, "--tool NAME REQUIRED  "_s, "--records FILE  "_s,
             "--screenshot FILE  "_s, "--size WIDTHxHEIGHT  "_s, "--theme "_s, "--plugin FILE  "_s,
             "--json  "_s, "default FOLDER/data/workplace/maintenance.json"_s});
        row("explain --help",
            {"Usage: workplace explain [OPTIONS] [LOG]"_s, "--json"_s, "--markdown TABLE"_s});
        row("schema --help", {"Usage: workplace schema [OPTIONS] [NAME]"_s, "--markdown"_s});
        row("schema", {"backup\ncontroller\nmaintenance\nparameters\npresets\nsequence\ntrace_line\n"_s});
    }

    void help()
    {
        QFETCH(QStringList, says);
        says.replaceInStrings("FOLDER"_s, m_workplace->path());
        QStringList const names = m_workplace->names();
        Outcome const outcome = m_workplace->run(QLatin1String(QTest::currentDataTag()));
        QCOMPARE(outcome, prints(outcome.out));
        for (auto const& one : qAsConst(says))
            QVERIFY2(outcome.out.contains(one), qPrintable(one + QLatin1Char('\n') + outcome.out));
        QCOMPARE(m_workplace->names(), names);
    }

    void badUsage_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("complaint");
        auto const row = [](char const* name, char const* commandLine, char const* complaint) {
            QTest::newRow(name) << QProcess::splitCommand(QString::fromLatin1(commandLine))
                                << QString::fromLatin1(complaint);
        };
        row("nothing", "", "A subcommand is required");
        row("unknown verb", "walk", "unknown verb \"walk\"");
        row("verb in another case", "Run x.json", "unknown verb \"Run\"");
        row("no sequence", "run", "SEQUENCE is required");
        row("two sequences", "run a.json b.json", "The following argument was not expected: b.json");
        row("no trace to replay", "replay", "TRACE is required");
        row("no tool", "panel --screenshot page.png", "--tool is required");
        row("second tool", "panel --tool a b", "The following argument was not expected: b");
        row("unknown option", "run a.json --fast", "The following argument was not expected: --fast");
        row("option of another verb", "inspect --trace x",
            "The following arguments were not expected: x --trace");
        row("option before its verb", "--json inspect", "The following argument was not expected: --json");
        row("option without its value", "run a.json --trace", "--trace: 1 required FILE missing");
        row("option twice", "inspect --plugin a --plugin b", "--plugin: At Most 1 required but received 2");
        row("flag with a value", "inspect --json=maybe", "Could not convert: --json = maybe");
        row("log and table", "explain a.log --markdown codes", "LOG excludes --markdown");
        row("unknown table", "explain --markdown faults",
            "--markdown: faults not in {codes,errors,information,traces}");
        row("table of no schema", "schema --markdown", "--markdown requires NAME");
        row("two verbs", "inspect run a.json", "The following arguments were not expected: a.json run");
        row("unknown theme", "panel --tool a --theme blue", "--theme: blue not in {light,dark}");
        row("theme in another case", "panel --tool a --theme Dark", "--theme: Dark not in {light,dark}");

        // As from a variable of the shell that is not set.
        auto const empty = [](char const* commandLine, char const* complaint) {
            QTest::newRow(qPrintable("empty: "_s + QLatin1String(commandLine)))
                << QProcess::splitCommand(QString::fromLatin1(commandLine)) + QStringList{QString()}
                << QString::fromLatin1(complaint);
        };
        empty("run", "SEQUENCE: no file name given");
        empty("run init.json --plugin", "--plugin: no file name given");
        empty("run init.json --controller", "--controller: no file name given");
        empty("run init.json --trace", "--trace: no file name given");
        empty("inspect --records", "--records: no file name given");
        empty("explain", "LOG: no file name given");
        empty("panel --tool", "--tool: no name given");
        empty("panel --tool a --records", "--records: no file name given");
        empty("panel --tool a --screenshot", "--screenshot: no file name given");
        empty("panel --tool a --plugin", "--plugin: no file name given");
        empty("panel --tool a --theme", "--theme:  not in {light,dark}");

        for (char const* const size :
             {"", "x", "800", "800x", "x600", "800x600x1", "319x600", "600x239", "8193x600", "600x8193",
              "-800x600", "0x0", "800*600", "800X600", "8e2x600", "99999999999x600", "800.5x600", "axb"})
            QTest::newRow(qPrintable("size: "_s + QLatin1String(size)))
                << QStringList{"panel"_s, "--tool"_s, "a"_s, "--size"_s, QString::fromLatin1(size)}
                << "--size: not a size from 320x240 to 8192x8192"_s;
    }

    void badUsage()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, complaint);
        QStringList const names = m_workplace->names();
        QCOMPARE(m_workplace->run(arguments), pointsToHelp(complaint));
        QCOMPARE(m_workplace->names(), names);
    }

    void badInput_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("complaint");
        auto const row = [](char const* name, QString const& commandLine, QString const& complaint) {
            QTest::newRow(name) << QProcess::splitCommand(commandLine) << complaint;
        };
        row("sequence missing", "run missing.json"_s, "missing.json: No such file or directory"_s);
        row("sequence not readable", "run /proc/self/mem"_s, "/proc/self/mem: Input/output error"_s);
        row("sequence not JSON", "run malformed.json"_s,
            "malformed.json:2:17: not JSON: syntax error while parsing object separator - unexpected string "
            "literal; expected ':'"_s);
        row("sequence's controller missing", "run without_controller.json"_s,
            "./missing.json: No such file or directory"_s);
        row("controller missing", "run init.json --controller missing.json"_s,
            "missing.json: No such file or directory"_s);
        row("controller wrong", "run init.json --controller records.json"_s,
            "records.json:1: unknown key \"tools\", known are identity, lock, screenLocked, presets, "
            "unwritablePresets, parameters, program, triggerMode, reverse, eventCount, seed, screws, "
            "replyTime, presetTime, connected, faults"_s);
        row("no trace", "replay init.json"_s,
            "init.json:1: this is no trace, it does not start with \"begin\""_s);
        // Nothing is replayed before the whole of it is known to be right.
        row("trace of another plugin", "replay walk.jsonl"_s,
            "walk.jsonl:2: the plugin has no command \"walk\""_s);
        row("unknown schema", "schema sequences"_s,
            "unknown schema \"sequences\", known are backup, controller, maintenance, parameters, presets, "
            "sequence, trace_line"_s);
        for (char const* const verb :
             {"run init.json", "inspect", "replay trace.jsonl", "panel --tool a --screenshot b"})
            row(qPrintable("plugin missing: "_s + QLatin1String(verb)),
                QLatin1String(verb) + " --plugin missing.so"_s, "missing.so: No such file or directory"_s);
        row("plugin without instances: run", "run init.json --plugin "_s + c_oddPlugin,
            complaintAboutInstances());
        row("plugin without instances: replay", "replay trace.jsonl --plugin "_s + c_oddPlugin,
            complaintAboutInstances());
        row("records missing", "inspect --records missing.json"_s, "missing.json: there is no such file"_s);
        row("records wrong", "inspect --records init.json"_s,
            "init.json:1: unknown key \"steps\", known are tools"_s);
        row("records in a missing folder", "panel --tool a --screenshot b --records missing/records.json"_s,
            "missing/records.json: there is no folder missing"_s);
        row("records below a file", "panel --tool a --screenshot b --records init.json/records.json"_s,
            "init.json/records.json: there is no folder init.json"_s);
        row("records in a pipe", "panel --tool a --screenshot b --records pipe"_s, "pipe: not a file"_s);
        QTest::newRow("name with a line break")
            << QStringList{"run"_s, "a\nb"_s} << "a\\nb: No such file or directory"_s;
    }

    void badInput()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, complaint);
        m_workplace->write("malformed.json"_s, "{\"steps\": [\n  {\"order\" \"init\"}\n]}");
        m_workplace->write("without_controller.json"_s, R"({"controller": "missing.json", "steps": []})");
        m_workplace->write(c_trace, recordedTrace("init"));
        m_workplace->write("walk.jsonl"_s, recordedTrace("init").replace("\"init\"", "\"walk\""));
        makePipe("pipe"_s);
        QStringList const names = m_workplace->names();
        QCOMPARE(m_workplace->run(arguments), complains(complaint));
        QCOMPARE(m_workplace->names(), names);
    }

    void outputThatFails_data()
    {
        QTest::addColumn<QString>("commandLine");
        for (char const* const commandLine :
             {"run init.json", "run init.json --json", "run init.json --controller wrong.json", "inspect",
              "inspect --json", "inspect --markdown", "explain init.json", "explain --markdown codes",
              "replay trace.jsonl", "schema", "--help", "run --help",
              "panel --tool a --records records.json --screenshot page.png"})
            QTest::newRow(commandLine) << QString::fromLatin1(commandLine);
    }

    void outputThatFails()
    {
        QFETCH(QString, commandLine);
        m_workplace->write("wrong.json"_s, R"({"connected": false})");
        m_workplace->write(c_trace, recordedTrace("init"));
        auto const intoFullDisk = [](QProcess& program) { program.setStandardOutputFile("/dev/full"_s); };
        QCOMPARE(m_workplace->run(commandLine, intoFullDisk),
                 complains("standard output: No space left on device"_s));
    }

    void readerThatGoesAway()
    {
        int ends[2];
        QVERIFY(::pipe(ends) == 0);
        ::close(ends[0]);
        ProgramWritingInto program(ends[1]);
        program.start(QStringLiteral(WORKPLACE_PROGRAM), {"inspect"_s});
        QCOMPARE(Workplace::outcomeOf(program), complains("standard output: Broken pipe"_s));
        ::close(ends[1]);
    }

    void transcripts_data()
    {
        QTest::addColumn<QByteArray>("controller");
        QTest::addColumn<QByteArray>("steps");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("transcript"); // behind the first line
        auto const row = [](char const* name, char const* controller, char const* steps, int exitCode,
                            char const* transcript) {
            QTest::newRow(name) << QByteArray(controller) << QByteArray(steps) << exitCode
                                << QString::fromUtf8(transcript);
        };
        row("no steps", "{}", "", 0, "    0.000 s        0 of 0 steps done\n");
        row("no reply in time", R"({"replyTime": 5000})", R"({"order": "init"})", 1,
            R"(    0.000 s  #1    init
    4.000 s  #1    FAILED: no reply to "getInfo" within 4000 ms
    4.000 s        0 of 1 steps done, 1 FAILED, 0 not run
)");
        row("nobody there", R"({"connected": false})",
            R"({"order": "init", "fails": true}, {"order": "startListening"})", 0,
            R"(    0.000 s  #1    init
    0.000 s  #1    FAILED: "getInfo": endpoint "device" is gone
    0.000 s  #2    startListening
    0.000 s  #2      listenEventsData NOT DELIVERED: endpoint "device" is gone
    0.000 s  #2    done
    0.000 s        2 of 2 steps done
)");
        row("reply that is not accepted, and one that comes twice",
            R"({"faults": [{"kind": "duplicate", "instruction": "getInfo", "nth": 1},
                {"kind": "missingKey", "instruction": "setLockScreen", "nth": 1, "key": "doneOk"}]})",
            R"({"order": "init", "fails": true})", 0,
            R"(    0.000 s  #1    init
    0.015 s        critical: "2000-01-01 00:00:00.015" ;	 Thread = QThread(0x..) ;	 This = DCmdInitZrt(0x..) ;	 ./plugins/p_tool_vesk_zrt/source/d_cmd_init_zrt.cpp ;	 81 ;	 ERROR: Invalid reply format
    0.015 s  #1    FAILED: the reply to "setLockScreen" was not accepted
    0.015 s        1 of 1 steps done, dropped replies: 1
)");
        row("unexpected result", "{}",
            R"({"wait": 1500}, {"order": "init", "expect": {"doneOk": false}}, {"wait": 1}, {"wait": 1})", 1,
            R"(    1.500 s  #1    init
    1.515 s  #1      doneOk = true
    1.515 s  #1    done
    1.515 s  #1    NOT AS EXPECTED: doneOk is true, expected was false
    1.515 s        1 of 4 steps done, 1 FAILED, 2 not run
)");
        row("stop with nothing to stop", "{}", R"({"order": "stopListening"}, {"wait": 1})", 1,
            R"(    0.000 s        stopListening  FAILED: no running command stops by that name
    0.000 s        0 of 2 steps done, 1 FAILED, 1 not run
)");
        row("should have failed", "{}", R"({"order": "init", "fails": true})", 1,
            R"(    0.000 s  #1    init
    0.015 s  #1      doneOk = true
    0.015 s  #1    done
    0.015 s        FAILED: the order succeeded, but should have failed
    0.015 s        0 of 1 steps done, 1 FAILED, 0 not run
)");
        row("value that does not come", "{}",
            R"({"order": "startListening"},
               {"await": "eventData", "of": "startListening", "value": {}, "within": 70})",
            1,
            R"(    0.000 s  #1    startListening
    0.070 s        FAILED: eventData of "startListening" did not become {} within 70 ms
    0.070 s  #1    done
    0.070 s        1 of 2 steps done, 1 FAILED, 0 not run
)");
        row("tool set to loosen", "{}", R"({"press": "reverse"}, {"tighten": 1})", 1,
            R"(    0.000 s        operator: presses reverse, the tool loosens now
    0.000 s        FAILED: the tool is set to loosen, it cannot tighten
    0.000 s        1 of 2 steps done, 1 FAILED, 0 not run
)");
    }

    void transcripts()
    {
        QFETCH(QByteArray, controller);
        QFETCH(QByteArray, steps);
        QFETCH(int, exitCode);
        QFETCH(QString, transcript);
        m_workplace->write("controller.json"_s, controller);
        m_workplace->write("sequence.json"_s, sequenceOf(steps));
        QString const head =
            "    0.000 s        Plugin Tool ZRT 1.0, simulated controller ZRT ZRT-SIM-0001\n"_s;
        QCOMPARE(m_workplace->run("run sequence.json"_s), (Outcome{exitCode, head + transcript, {}}));
    }

    // Instead of the one that the sequence asks for, and that is not there.
    void controllerOption()
    {
        m_workplace->write("sequence.json"_s, sequenceOf(""));
        m_workplace->write("other.json"_s, R"({"identity": {"serialNumber": "S-1"}})");
        QVERIFY(m_workplace->run("run sequence.json --controller other.json"_s)
                    .out.contains("simulated controller ZRT S-1\n"_s));
    }

    void pluginOption()
    {
        QVERIFY(QFile::copy(c_plugin, m_workplace->filePath("my.so"_s)));
        for (auto const& path : {"my.so"_s, "."_s, m_workplace->path()}) {
            Outcome const outcome = m_workplace->run("inspect --plugin "_s + path);
            QVERIFY2(outcome.out.startsWith("Library     %1\n"_s.arg(m_workplace->filePath("my.so"_s))),
                     qPrintable(outcome.out));
            QCOMPARE(m_workplace->run("run init.json --plugin "_s + path),
                     m_workplace->run("run init.json"_s));
        }
    }

    void sequenceFromAPipe()
    {
        makePipe("pipe"_s);
        QProcess writer;
        writer.setWorkingDirectory(m_workplace->path());
        writer.start("sh"_s, {"-c"_s, "cat init.json >pipe"_s});
        QCOMPARE(m_workplace->run("run pipe"_s), m_workplace->run("run init.json"_s));
        QVERIFY(writer.waitForFinished());
    }

    // Of what the library declares; the whole of it is in data/inspect.jsonl.
    void inspect()
    {
        Outcome const outcome = m_workplace->run("inspect"_s);
        QCOMPARE(outcome, prints(outcome.out));
        auto const paragraphs = outcome.out.split("\nCommand "_s);
        QCOMPARE(paragraphs.first(), "Library     %1\nInterface   %2.rd.box.PToolVeskZrt\n"_s.arg(
                                         c_plugin, QStringLiteral(ZRT_MAKER_DOMAIN))
                                         + R"(Class       PToolVeskZrt
Built for   Qt 5.15

Plugin      Plugin Tool ZRT 1.0
Kind        {fe68f24c-ac43-4833-abc7-7d9f33744448}
Type        Tool, tightening

Properties
    toolType = 0
    features = ["allow_loosening"]
    typeName = "tightening"
)"_s);
        QCOMPARE(paragraphs.filter(QRegularExpression("^stopTightening\n"_s)).size(), 1);
        QCOMPARE(paragraphs.filter(QRegularExpression("^restore"_s)),
                 QStringList{R"(restore, stopped by stopListening
    "Restore saved backup"
    parameter filePath (strg)  Backup file path, default ""
    parameter startPreset (int)  Start preset, default 0
    parameter endPreset (int)  End preset, default 0
    parameter loadControllerParams (bool)  Load controller parameters, default false
    result    statusData (vart)  Restoring progress/status, default none
)"_s});
    }

    // What is of use in a trace alone is not shown.
    void traceTellsMore()
    {
        m_workplace->write("controller.json"_s, R"({"connected": false})");
        m_workplace->write("sequence.json"_s,
                           sequenceOf(R"({"order": "init", "fails": true}, {"order": "startListening"})"));
        m_workplace->write(c_trace, "former");
        QStringList const names = m_workplace->names();
        Outcome const outcome = m_workplace->run("run sequence.json --json --trace trace.jsonl"_s);
        QCOMPARE(outcome, prints(outcome.out));
        QCOMPARE(eventsOf(outcome.out), "begin order finished order notDelivered finished end"_s);
        QCOMPARE(
            eventsOf(QString::fromUtf8(contentOf(m_workplace->filePath(c_trace)))),
            "begin order instruction notDelivered finished order instruction notDelivered stopAll finished end"_s);
        QCOMPARE(m_workplace->names(), names);
    }

    // The trace of a run that failed is the one that somebody wants to read.
    void traceOfAFailure()
    {
        m_workplace->write("controller.json"_s, R"({"connected": false})");
        m_workplace->write("sequence.json"_s, sequenceOf(R"({"order": "init"})"));
        QCOMPARE(m_workplace->run("run sequence.json --trace trace.jsonl"_s).exitCode, 1);
        QVERIFY(contentOf(m_workplace->filePath(c_trace))
                    .endsWith(R"("event":"end","done":0,"failed":1,"notRun":0,"droppedReplies":0})"
                              "\n"));
    }

    void traceIntoAPipe()
    {
        QString const pipe = makePipe("pipe"_s);
        QProcess reader;
        reader.start("cat"_s, {pipe});
        QVERIFY(reader.waitForStarted());
        QCOMPARE(m_workplace->run("run init.json --trace pipe"_s), m_workplace->run("run init.json"_s));
        if (QFileInfo(pipe).isFile()) {
            reader.kill();
            reader.waitForFinished();
            QFAIL("the pipe was replaced");
        }
        QVERIFY(reader.waitForFinished());
        m_workplace->run("run init.json --trace trace.jsonl"_s);
        QCOMPARE(reader.readAll(), contentOf(m_workplace->filePath(c_trace)));
        m_writesDirectly = true;
    }

    void traceThatFails_data()
    {
        QTest::addColumn<QString>("trace");
        QTest::addColumn<QString>("complaint");
        QTest::newRow("missing folder") << "missing/trace.jsonl"_s
                                        << "No such file or directory"_s;
        QTest::newRow("folder") << "."_s
                                << "Filename refers to a directory"_s;
        // The run is over by then.
        QTest::newRow("full disk") << "/dev/full"_s
                                   << "the trace could not be written: No space left on device"_s;
    }

    void traceThatFails()
    {
        QFETCH(QString, trace);
        QFETCH(QString, complaint);
        bool const hasRun = trace == "/dev/full"_s;
        if (hasRun && !m_writesDirectly)
            QSKIP("what replaces pipes would, run by root, replace this machine's device");
        QStringList const names = m_workplace->names();
        Outcome expected = complains("%1: %2"_s.arg(trace, complaint));
        if (hasRun)
            expected.out = m_workplace->run("run init.json"_s).out;
        QCOMPARE(m_workplace->run("run init.json --trace "_s + trace), expected);
        QCOMPARE(m_workplace->names(), names);
    }

    void inputIsNotOverwritten_data()
    {
        QTest::addColumn<QString>("commandLine");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("complaint");
        auto const rows = [](char const* commandLine, QStringList const& outputs, char const* complaint) {
            for (auto const& output : outputs)
                QTest::newRow(qPrintable(QString::fromLatin1(commandLine).section(QLatin1Char(' '), 0, 0)
                                         + ": "_s + output))
                    << QString::fromLatin1(commandLine) << output << QString::fromLatin1(complaint);
        };
        rows("run in.json --plugin plugin.so --trace",
             {"in.json"_s, "./../FOLDER/in.json"_s, "link.json"_s, "controller.json"_s, "backup.json"_s,
              "plugin.so"_s},
             "the trace would overwrite what the run needs");
        rows("panel --tool a --records in.json --plugin plugin.so --screenshot",
             {"in.json"_s, "./../FOLDER/in.json"_s, "link.json"_s, "plugin.so"_s},
             "the picture would overwrite what the page needs");
    }

    void inputIsNotOverwritten()
    {
        QFETCH(QString, commandLine);
        QFETCH(QString, output);
        QFETCH(QString, complaint);
        QString const input = writeInput();
        QVERIFY(QFile::link(input, m_workplace->filePath("link.json"_s)));
        output.replace("FOLDER"_s, QFileInfo(m_workplace->path()).fileName());
        auto const before = m_workplace->contents();
        QCOMPARE(m_workplace->run(commandLine + QLatin1Char(' ') + output),
                 complains("%1: %2"_s.arg(output, complaint)));
        QVERIFY(m_workplace->contents() == before);
    }

    // The name gets a file of its own; what the run needs stays under the other.
    void hardLinkIsReplaced()
    {
        QString const input = writeInput();
        QString const link = m_workplace->filePath("hard.json"_s);
        QVERIFY(::link(QFile::encodeName(input).constData(), QFile::encodeName(link).constData()) == 0);
        auto before = m_workplace->contents();
        QCOMPARE(m_workplace->run("run in.json --trace hard.json"_s).exitCode, 0);
        before["hard.json"_s] = contentOf(link);
        QVERIFY(before["hard.json"_s].startsWith("{\"time\":0,\"event\":\"begin\""));
        QVERIFY(m_workplace->contents() == before);
    }

    // A record of a plugin that did something else.
    void replayOfAnother_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("after");
        QTest::addColumn<Outcome>("text");
        QTest::addColumn<QString>("json"); // is part of it
        auto const row = [](char const* name, char const* before, char const* after, int exitCode,
                            char const* text, char const* json) {
            QTest::newRow(name) << QByteArray(before) << QByteArray(after)
                                << Outcome{exitCode, QString::fromUtf8(text), {}} << QString::fromUtf8(json);
        };
        row("result", R"("key":"doneOk","value":true)", R"("key":"doneOk","value":false)", 1,
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
        row("instruction", R"("name":"setLock")", R"("name":"unlock")", 1,
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
            R"("problem":"nobody waits for this reply: the instruction was not sent","recorded":[)");
        row("version", R"("version":"1.0")", R"("version":"0.9")", 0,
            "5 steps, all as recorded (recorded with Plugin Tool ZRT 0.9, replayed with Plugin Tool ZRT "
            "1.0)\n",
            R"({"steps":5,"differences":0,"recordedWith":"Plugin Tool ZRT 0.9","replayedWith":"Plugin Tool ZRT 1.0"})"
            "\n");
    }

    void replayOfAnother()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, after);
        QFETCH(Outcome, text);
        QFETCH(QString, json);
        QByteArray trace = recordedTrace("init");
        QCOMPARE(trace.count(before), 1);
        m_workplace->write(c_trace, trace.replace(before, after));
        QCOMPARE(m_workplace->run("replay trace.jsonl"_s), text);
        Outcome const outcome = m_workplace->run("replay trace.jsonl --json"_s);
        QCOMPARE(outcome, (Outcome{text.exitCode, outcome.out, {}}));
        QVERIFY2(outcome.out.contains(json), qPrintable(outcome.out));
        auto const lines = linesOf(outcome.out);
        for (auto const& line : lines)
            QVERIFY2(!objectOf(line).isEmpty(), qPrintable(line));
    }

    void differencesOfAReplay_data()
    {
        QTest::addColumn<QByteArray>("trace");
        QTest::addColumn<QString>("marks");
        auto const row = [](char const* name, char const* trace,
                            QList<QPair<QByteArray, QByteArray>> const& changes, char const* marks) {
            QByteArray content = recordedTrace(trace);
            for (auto const& [before, after] : changes) {
                QVERIFY(content.contains(before));
                content.replace(before, after);
            }
            QTest::newRow(name) << content << QString::fromLatin1(marks);
        };
        row("another day", "faults/missing_key", {{"2000-01-01", "2026-03-09"}}, "");
        QPair<QByteArray, QByteArray> const otherPlace{R"(stopTightening.cpp ;\t )",
                                                       R"(stopTightening.cpp ;\t 2)"};
        row("line number that is not laid down", "faults/refused", {otherPlace}, "");
        row("line number that is laid down", "faults/missing_key", {{R"(;\t 81 ;)", R"(;\t 82 ;)"}},
            "- log|+ log|  finished");
        row("line number beside a difference", "faults/refused",
            {otherPlace, {R"("setLock\" was not)", R"("unlock\" was not)"}}, "  log|- finished|+ finished");
        row("what both have in common", "working_day",
            {{R"("name":"setProgram","arguments":{"program":{"@type":"uint","@value":3}})",
              R"("name":"setProgram","arguments":{"program":3})"}, // one of three instructions, sent at once
             {R"("name":"getPresetData","arguments":{"preset":3})",
              R"("name":"getPresetData","arguments":{"preset":4})"}},
            "- instruction|+ instruction|- instruction|+ instruction|  instruction|- instruction|+ "
            "instruction|"
            "- instruction|+ instruction");
    }

    void differencesOfAReplay()
    {
        QFETCH(QByteArray, trace);
        QFETCH(QString, marks);
        m_workplace->write(c_trace, trace);
        Outcome const outcome = m_workplace->run("replay trace.jsonl"_s);
        QCOMPARE(markedEvents(outcome.out), marks);
        QCOMPARE(outcome, (Outcome{marks.isEmpty() ? 0 : 1, outcome.out, {}}));
    }

private:
    QString makePipe(QString const& name) const
    {
        QString path = m_workplace->filePath(name);
        if (::mkfifo(QFile::encodeName(path).constData(), 0600) != 0)
            qFatal("cannot make a pipe");
        return path;
    }

    /// Writes all that a run reads; what in.json has is a sequence, and would be no records.
    QString writeInput() const
    {
        m_workplace->write("controller.json"_s, "{}");
        m_workplace->write("backup.json"_s, "{}");
        m_workplace->write("plugin.so"_s, contentOf(c_plugin));
        return m_workplace->write(
            "in.json"_s, sequenceOf(R"({"order": "restore", "parameters": {"filePath": "backup.json"}})"));
    }

    static QString eventsOf(QString const& text)
    {
        QStringList events;
        auto const lines = linesOf(text);
        for (auto const& line : lines)
            events += objectOf(line).value("event"_s).toString();
        return events.join(QLatin1Char(' '));
    }

    std::optional<Workplace> m_workplace;
    bool m_writesDirectly = false;
};

QTEST_GUILESS_MAIN(TestWorkplaceCli)
#include "tst_workplace_cli.moc"
