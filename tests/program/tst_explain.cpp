#include "literals.h"
#include "outcome.h"
#include "scratch_folder.h"

#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace
{

QString const examples = QStringLiteral(WORKPLACE_EXAMPLES);

Outcome run(QStringList const& arguments, QString const& standardInput = QProcess::nullDevice())
{
    QProcess program;
    program.setWorkingDirectory(examples);
    program.setStandardInputFile(standardInput);
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_LOGGING_RULES"_s, "default.debug=false"_s);
    program.setProcessEnvironment(environment);
    program.start(QStringLiteral(WORKPLACE_PROGRAM), arguments);
    return outcomeOf(program);
}

/// What the program makes of a log.
Outcome explain(QByteArray const& log, QStringList const& options = {})
{
    ScratchFolder const folder;
    return run(QStringList{"explain"_s, folder.write("log"_s, log)} + options);
}

QList<QJsonObject> objects(QString const& text)
{
    QList<QJsonObject> all;
    auto const lines = text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (auto const& line : lines)
        all += QJsonDocument::fromJson(line.toUtf8()).object();
    return all;
}

/// An error line as Qt hands it to the host.
QByteArray error(char const* file, char const* line, char const* message)
{
    return QByteArray("\n \"2026-11-21 14:03:07.215\" ;\t Thread = QThread(0x55d0c3a1b2f0) ;\t This = "
                      "DCmd(0x55d0c3f0a410, name = \"x\") ;\t /b/plugins/p_tool_vesk_zrt/source/")
           + file + " ;\t " + line + " ;\t " + message + '\n';
}

/// The same as a host that writes JSON has it.
QByteArray inJson(QByteArray const& text)
{
    return QJsonDocument(QJsonObject{{"level"_s, 3}, {"text"_s, QString::fromUtf8(text)}, {"x"_s, "y"_s}})
        .toJson(QJsonDocument::Compact);
}

/// The same from an object whose name has quotes in it.
QByteArray ofQuotedName(QByteArray text)
{
    return text.replace("\"x\"", "\"a \\\"b\\\"\"");
}

QByteArray const c_init = error("d_cmd_init_zrt.cpp", "81", "ERROR: Invalid reply format");
QByteArray const c_values = error(
    "d_cmd_eventListen.cpp", "83",
    R"(ERROR: Reply data format not managed, received type : QString , values = QVariant(QString, "?"))");
QByteArray const c_code = "ZRT screwdriver  \"left \\\"bench\\\"\"  error code  330 :  \"Min Angle error\"\n";

} // namespace

/// `workplace explain`: finding the plugin's lines in a log, and saying what they mean.
class TestExplain : public QObject
{
    Q_OBJECT

private slots:
    void text_data()
    {
        QTest::addColumn<QByteArray>("log");
        QTest::addColumn<QString>("out");
        auto const row = [](char const* name, QByteArray const& log, char const* out) {
            QTest::newRow(name) << log << QString::fromUtf8(out);
        };
        row("empty", "", "no line of the plugin\n");
        row("nothing of the plugin",
            "2026 Qt: something\nd_cmd_init_zrt.cpp ;\t 81 ;\t ERROR: Invalid reply format\n",
            "no line of the plugin\n");
        row("several times", "begin\n" + c_init + c_init + c_init,
            R"(3 times, first on line 3: d_cmd_init_zrt.cpp, 81: ERROR: Invalid reply format
    from     "init", onSetLockScreenReply
    means    the reply to "setLockScreen" has no "doneOk"
    do       The screen may still be unlocked. See that the controller allows remote locking, and order "init" again

3 lines of the plugin, 1 different
)");
        row("several handlers", error("d_cmd_startTightening.cpp", "77", "ERROR: Invalid reply format"),
            R"(once, on line 2: d_cmd_startTightening.cpp, 77: ERROR: Invalid reply format
    one of 2 that have this text; line 77 of the file in that version's sources tells which
    from     "startTightening", onSetLockReply
    means    the reply to "setLock" lacks "lockStatus", "fasteningLocked" or "looseningLocked"
    do       The tool may still be locked, or free for loosening too. See that the order's "locking" is a lock code that the controller knows
    from     "startTightening", onGetPresetDataReply
    means    the reply to "getPresetData" has no "presetData"
    do       Mostly there is no preset with the order's "program" on the controller. Set it up, or restore the backup

1 line of the plugin
)");
        row("one begins as the other does",
            error("d_cmd_startTightening.cpp", "77", "ERROR: Reply data format not managed"),
            R"(once, on line 2: d_cmd_startTightening.cpp, 77: ERROR: Reply data format not managed
    from     "startTightening", onGetPresetDataReply
    means    "presetData" is no map
    do       The device layer and the plugin do not fit together; report it with the reply

1 line of the plugin
)");
        row("page",
            error("be_maintenance_plugin.cpp", "76",
                  "BeMaintenanceToolZrt::clickedOnChannel: channel is null at index 7")
                + error("be_maintenance_plugin.cpp", "76",
                        "BeMaintenanceToolZrt::clickedOnChannel: channel is null at index 8"),
            R"(2 times, first on line 2: be_maintenance_plugin.cpp, 76: BeMaintenanceToolZrt::clickedOnChannel: channel is null at index 7
    from     the maintenance page, clickedOnChannel
    means    a channel is to be switched that is null or not in the list
    do       The host filled the list of channels wrongly. Report it with the index

2 lines of the plugin, 1 different
)");
        row("code", c_code + "ZRT screwdriver  \"right bench\"  error code  330 :  \"Min Angle error\"\n",
            R"(2 times, first on line 1: error code 330: Min Angle error
    from     "startListening", onEvent
    means    an event has an "error" that the plugin has a text for
    look at  a cross-threaded or already tight screw: the torque was there too early

2 lines of the plugin, 1 different
)");
        row("unknown", error("d_cmd_new.cpp", "12", "ERROR: What is new"),
            R"(once, on line 2: d_cmd_new.cpp, 12: ERROR: What is new
    not known: another version of the plugin may have written it

1 line of the plugin
)");
    }

    void text()
    {
        QFETCH(QByteArray, log);
        QFETCH(QString, out);
        Outcome const outcome = explain(log);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, out);
        QCOMPARE(outcome.exitCode, 0);
    }

    void json()
    {
        Outcome const outcome =
            explain(c_init + c_code + error("d_cmd_new.cpp", "12", "ERROR: New"), {"--json"_s});
        QCOMPARE(outcome.err, QString());
        QCOMPARE(
            outcome.out,
            R"({"kind":"error","source":"d_cmd_init_zrt.cpp","line":81,)"
            R"("message":"ERROR: Invalid reply format","times":1,"firstOn":2,"meanings":[{"command":"init",)"
            "\"handler\":\"onSetLockScreenReply\",\"cause\":\"the reply to \\\"setLockScreen\\\" has no "
            "\\\"doneOk\\\"\","
            "\"remedy\":\"The screen may still be unlocked. See that the controller allows remote locking, "
            "and order \\\"init\\\" again\"}]}"
            "\n"
            R"({"kind":"code","code":330,"message":"Min Angle error","times":1,"firstOn":3,)"
            R"("meanings":[{"command":"startListening","handler":"onEvent",)"
            "\"cause\":\"an event has an \\\"error\\\" that the plugin has a text for\","
            R"("remedy":"a cross-threaded or already tight screw: the torque was there too early"}]})"
            "\n"
            R"({"kind":"error","source":"d_cmd_new.cpp","line":12,"message":"ERROR: New","times":1,)"
            R"("firstOn":5,"meanings":[]})"
            "\n"
            R"({"kind":"log","lines":3,"different":3,"notShown":0})"
            "\n"_s);
        QCOMPARE(outcome.exitCode, 0);
        QCOMPARE(explain("", {"--json"_s}).out, R"({"kind":"log","lines":0,"different":0,"notShown":0})"
                                                "\n"_s);
    }

    // Whatever a host has done to the lines, they are the same.
    void anyHost_data()
    {
        QTest::addColumn<QByteArray>("log");
        QByteArray const plain = c_init + c_values + c_code;
        QTest::newRow("plain") << plain;
        QTest::newRow("prefix") << QByteArray(plain).replace("\n",
                                                             "\n2026-11-21T14:03:07Z [crit] station-7: ");
        QTest::newRow("suffix") << QByteArray(plain).replace("\n", " [main]\n");
        QTest::newRow("blanks for tabs") << QByteArray(plain).replace("\t", "    ");
        QTest::newRow("single blanks")
            << plain.simplified().replace("\"2026", "\n\"2026").replace("ZRT s", "\nZRT s");
        QTest::newRow("carriage returns") << QByteArray(plain).replace("\n", "\r\n");
        QTest::newRow("not UTF-8") << "Schl\xfcssel\n" + QByteArray(plain).replace("bench", "b\xe4nk");
        QTest::newRow("zeros") << QByteArray("\0\0\n", 3) + plain;
        QByteArray const lines = inJson(c_init) + '\n' + inJson(c_values) + '\n' + inJson(c_code) + '\n';
        QTest::newRow("JSON lines") << lines;
        QTest::newRow("JSON with blanks for tabs") << QByteArray(lines).replace("\\t", " ");
        QTest::newRow("JSON on one line") << QByteArray(lines).replace('\n', ',');
        QTest::newRow("a very long line") << QByteArray(3'000'000, 'x') + '\n' + plain;
        QTest::newRow("a very long message")
            << QByteArray(plain).replace("\"?\"", '"' + QByteArray(3'000'000, 'x') + '"').replace("\n", " ");
    }

    void anyHost()
    {
        QFETCH(QByteArray, log);
        Outcome const outcome = explain(log, {"--json"_s});
        QCOMPARE(outcome.err, QString());
        auto const found = objects(outcome.out);
        QCOMPARE(found.size(), 4);
        QStringList known;
        for (auto const& one : found)
            known += "%1 %2"_s.arg(one.value("line"_s).toInt(one.value("code"_s).toInt()))
                         .arg(one.value("meanings"_s).toArray().size());
        QCOMPARE(known, QStringList({"81 1"_s, "83 1"_s, "330 1"_s, "0 0"_s}));
    }

    // The lines of the real plugin, as the program's own runs show and record them.
    void examples_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("handler");
        auto const row = [](char const* name, char const* handler) {
            QTest::newRow(name) << QString::fromLatin1(name) << QString::fromLatin1(handler);
        };
        row("faults/missing_key", "onSetLockScreenReply");
        row("faults/refused", "onSetLockReply");
        row("faults/wrong_type", "onGetPresetDataReply");
        row("working_day", "onEvent");
    }

    void examples()
    {
        QFETCH(QString, name);
        QFETCH(QString, handler);
        QString const sequence = name + ".json"_s;
        ScratchFolder const folder;
        QString const trace = folder.filePath("trace"_s);
        QByteArray const transcript = run({"run"_s, sequence, "--trace"_s, trace}).out.toUtf8();
        QByteArray const forPrograms = run({"run"_s, sequence, "--json"_s}).out.toUtf8();
        for (auto const& log : {transcript, forPrograms, contentOf(trace)}) {
            auto const found = objects(explain(log, {"--json"_s}).out);
            QCOMPARE(found.size(), 2);
            auto const meanings = found[0].value("meanings"_s).toArray();
            QCOMPARE(meanings.size(), 1);
            QCOMPARE(meanings[0].toObject().value("handler"_s).toString(), handler);
        }
    }

    void unknownLine_data()
    {
        QTest::addColumn<QByteArray>("log");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, QByteArray const& log, char const* message) {
            QTest::newRow(name) << log << QString::fromUtf8(message);
        };
        row("file", error("d_cmd_new.cpp", "81", "ERROR: Invalid reply format"),
            "ERROR: Invalid reply format");
        row("number, where it has been laid down",
            error("d_cmd_init_zrt.cpp", "82", "ERROR: Invalid reply format"), "ERROR: Invalid reply format");
        row("message", error("d_cmd_init_zrt.cpp", "81", "ERROR: Reply data format not managed"),
            "ERROR: Reply data format not managed");
        row("message that goes on", error("d_cmd_init_zrt.cpp", "81", "ERROR: Invalid reply formats"),
            "ERROR: Invalid reply formats");
        row("no message", error("d_cmd_new.cpp", "81", ""), "");
        row("message in JSON",
            "{\"a\":\"\\n \\\"2026\\\" ;\\t x/p_tool_vesk_zrt/source/n.cpp ;\\t 1 ;\\t a \\\"b\\\"\"}\n",
            "a \"b\"");
        QByteArray const quoted = ofQuotedName(error("d_cmd_new.cpp", "81", R"(ERROR: No "door" is "open")"));
        row("message of an object with quotes in its name", quoted, "ERROR: No \"door\" is \"open\"");
        row("the same in JSON", inJson(quoted.trimmed()), "ERROR: No \"door\" is \"open\"");
        row("the same in JSON with blanks for tabs", inJson(quoted.trimmed()).replace("\\t", " "),
            "ERROR: No \"door\" is \"open\"");
        row("code", "ZRT screwdriver  \"x\"  error code  999 :  \"What is new\"\n", "What is new");
        row("text of a code", "ZRT screwdriver  \"x\"  error code  330 :  \"What is new\"\n", "What is new");
    }

    void unknownLine()
    {
        QFETCH(QByteArray, log);
        QFETCH(QString, message);
        auto const found = objects(explain(log, {"--json"_s}).out);
        QCOMPARE(found.size(), 2);
        QCOMPARE(found[0].value("message"_s).toString(), message);
        QCOMPARE(found[0].value("meanings"_s).toArray().size(), 0);
    }

    void manyUnknownLines()
    {
        QByteArray log;
        for (int i = 1; i <= 1003; ++i)
            log += error("d_cmd_new.cpp", QByteArray::number(i).constData(), "ERROR: New");
        log += error("d_cmd_new.cpp", "1", "ERROR: New");
        Outcome const outcome = explain(log);
        QVERIFY2(outcome.out.startsWith("2 times, first on line 2: d_cmd_new.cpp, 1: ERROR: New\n"_s),
                 qPrintable(outcome.out.left(200)));
        QVERIFY2(
            outcome.out.endsWith(
                "\n1004 lines of the plugin, 1000 different; 3 more that differ from these are not shown\n"_s),
            qPrintable(outcome.out.right(200)));
    }

    // The program reads such a line in pieces.
    void manyOnOneLine()
    {
        Outcome const outcome = explain('[' + (inJson(c_init) + ',').repeated(8000) + inJson(c_code) + "]\n");
        QVERIFY2(outcome.out.startsWith("8000 times, first on line 1: d_cmd_init_zrt.cpp, 81: "_s),
                 qPrintable(outcome.out.left(200)));
        QVERIFY2(outcome.out.endsWith("\n8001 lines of the plugin, 2 different\n"_s),
                 qPrintable(outcome.out.right(200)));
    }

    void standardInput()
    {
        ScratchFolder const folder;
        Outcome const outcome = run({"explain"_s}, folder.write("log"_s, c_init));
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, explain(c_init).out);
        QCOMPARE(outcome.exitCode, 0);
    }

    void standardInputAtATerminal()
    {
        int const terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
        QVERIFY(terminal >= 0 && ::grantpt(terminal) == 0 && ::unlockpt(terminal) == 0);
        char const* const name = ::ptsname(terminal);
        int const keyboard =
            ::open(name, O_RDWR | O_NOCTTY);      // so that nothing is lost before the program begins
        QByteArray const typed = c_code + '\x04'; // Ctrl+D: the end
        QCOMPARE(::write(terminal, typed.constData(), static_cast<std::size_t>(typed.size())), typed.size());
        Outcome const outcome = run({"explain"_s}, QString::fromLocal8Bit(name));
        ::close(keyboard);
        ::close(terminal);
        QCOMPARE(outcome.err, "workplace: reading the log from standard input\n"_s);
        QCOMPARE(outcome.out, explain(c_code).out);
        QCOMPARE(outcome.exitCode, 0);
    }

    void unreadable_data()
    {
        QTest::addColumn<QString>("log");
        QTest::addColumn<QString>("message");
        QTest::newRow("missing") << "missing.log"_s
                                 << "No such file or directory"_s;
        QTest::newRow("directory") << "."_s
                                   << "file to open is a directory"_s;
        QTest::newRow("error while reading") << "/proc/self/mem"_s
                                             << "Input/output error"_s;
    }

    void unreadable()
    {
        QFETCH(QString, log);
        QFETCH(QString, message);
        Outcome const outcome = run({"explain"_s, log});
        QCOMPARE(outcome.err, "workplace: %1: %2\n"_s.arg(log, message));
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
    }
};

QTEST_GUILESS_MAIN(TestExplain)
#include "tst_explain.moc"
