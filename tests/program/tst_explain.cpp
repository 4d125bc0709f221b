#include "literals.h"
#include "terminal.h"
#include "workplace.h"

#include <QtTest>

namespace
{

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
        QCOMPARE(explain(log), prints(out));
    }

    void json()
    {
        QString const out =
            R"({"kind":"error","source":"d_cmd_init_zrt.cpp","line":81,)"
            R"("message":"ERROR: Invalid reply format","times":1,"firstOn":2,"meanings":[{"command":"init",)"
            "\"handler\":\"onSetLockScreenReply\",\"cause\":\"the reply to \\\"setLockScreen\\\" has no "
            "\\\"doneOk\\\"\","
            "\"remedy\":\"The screen may still be unlocked. See that the controller allows remote locking, "
            "and order \\\"init\\\" again\"}]}\n"
            R"({"kind":"code","code":330,"message":"Min Angle error","times":1,"firstOn":3,)"
            R"("meanings":[{"command":"startListening","handler":"onEvent",)"
            "\"cause\":\"an event has an \\\"error\\\" that the plugin has a text for\","
            "\"remedy\":\"a cross-threaded or already tight screw: the torque was there too early\"}]}\n"
            R"({"kind":"error","source":"d_cmd_new.cpp","line":12,"message":"ERROR: New","times":1,)"
            "\"firstOn\":5,\"meanings\":[]}\n"
            "{\"kind\":\"log\",\"lines\":3,\"different\":3,\"notShown\":0}\n"_s;
        QCOMPARE(explain(c_init + c_code + error("d_cmd_new.cpp", "12", "ERROR: New"), "--json"_s),
                 prints(out));
    }

    // Whatever a host has done to the lines, they are the same.
    void anyHost_data()
    {
        QTest::addColumn<QByteArray>("log");
        auto const row = [](char const* name, QByteArray const& log) { QTest::newRow(name) << log; };
        QByteArray const plain = c_init + c_values + c_code;
        auto const with = [](QByteArray log, char const* before, QByteArray const& after) {
            return log.replace(before, after);
        };
        row("plain", plain);
        row("prefix", with(plain, "\n", "\n2026-11-21T14:03:07Z [crit] station-7: "));
        row("suffix", with(plain, "\n", " [main]\n"));
        row("blanks for tabs", with(plain, "\t", "    "));
        row("single blanks", with(with(plain.simplified(), "\"2026", "\n\"2026"), "ZRT s", "\nZRT s"));
        row("carriage returns", with(plain, "\n", "\r\n"));
        row("not UTF-8", "Schl\xfcssel\n" + with(plain, "bench", "b\xe4nk"));
        row("zeros", QByteArray("\0\0\n", 3) + plain);
        QByteArray const lines = inJson(c_init) + '\n' + inJson(c_values) + '\n' + inJson(c_code) + '\n';
        row("JSON lines", lines);
        row("JSON with blanks for tabs", with(lines, "\\t", " "));
        row("JSON on one line", with(lines, "\n", ","));
        QByteArray const text(3'000'000, 'x');
        row("a very long line", text + '\n' + plain);
        row("a very long message", with(with(plain, "\"?\"", '"' + text + '"'), "\n", " "));
    }

    void anyHost()
    {
        QFETCH(QByteArray, log);
        QCOMPARE(meaningsIn(log),
                 QStringList({"81 onSetLockScreenReply"_s, "83 onEvent"_s, "330 onEvent"_s}));
    }

    // The lines of the real plugin, as the program's own runs show and record them.
    void ownRuns_data()
    {
        QTest::addColumn<QString>("meaning");
        QTest::newRow("faults/missing_key") << "81 onSetLockScreenReply"_s;
        QTest::newRow("faults/refused") << "47 onSetLockReply"_s;
        QTest::newRow("faults/wrong_type") << "52 onGetPresetDataReply"_s;
        QTest::newRow("working_day") << "330 onEvent"_s;
    }

    void ownRuns()
    {
        QFETCH(QString, meaning);
        QString const trace = m_workplace.filePath("trace"_s);
        QString const commandLine = QStringLiteral("run " WORKPLACE_EXAMPLES "/%1.json --trace ")
                                        .arg(QLatin1String(QTest::currentDataTag()))
                                    + trace;
        QByteArray const asText = m_workplace.run(commandLine).out.toUtf8();
        QByteArray const asJson = m_workplace.run(commandLine + " --json"_s).out.toUtf8();
        for (auto const& log : {asText, asJson, contentOf(trace)})
            QCOMPARE(meaningsIn(log), QStringList{meaning});
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
        QByteArray const quoted =
            error("d_cmd_new.cpp", "81", R"(ERROR: No "door" is "open")").replace("\"x\"", "\"a \\\"b\\\"\"");
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
        auto const found = linesOf(explain(log, "--json"_s).out);
        QCOMPARE(found.size(), 2);
        QCOMPARE(objectOf(found[0]).value("message"_s).toString(), message);
        QCOMPARE(objectOf(found[0]).value("meanings"_s), QJsonArray());
    }

    void longLogs_data()
    {
        QTest::addColumn<QByteArray>("log");
        QTest::addColumn<QString>("begin");
        QTest::addColumn<QString>("end");
        QByteArray manyUnknown;
        for (int i = 1; i <= 1003; ++i)
            manyUnknown += error("d_cmd_new.cpp", QByteArray::number(i).constData(), "ERROR: New");
        QTest::newRow("many unknown lines")
            << manyUnknown + error("d_cmd_new.cpp", "1", "ERROR: New")
            << "2 times, first on line 2: d_cmd_new.cpp, 1: ERROR: New\n"_s
            << "\n1004 lines of the plugin, 1000 different; 3 more that differ from these are not shown\n"_s;
        // The program reads such lines in pieces.
        QTest::newRow("behind a long line")
            << QByteArray(3'000'000, 'x') + '\n' + c_init << "once, on line 3: d_cmd_init_zrt.cpp, 81: "_s
            << "\n1 line of the plugin\n"_s;
        QTest::newRow("many on one line")
            << '[' + (inJson(c_init) + ',').repeated(8000) + inJson(c_code) + "]\n"
            << "8000 times, first on line 1: d_cmd_init_zrt.cpp, 81: "_s
            << "\n8001 lines of the plugin, 2 different\n"_s;
    }

    void longLogs()
    {
        QFETCH(QByteArray, log);
        QFETCH(QString, begin);
        QFETCH(QString, end);
        QString const out = explain(log).out;
        QVERIFY2(out.startsWith(begin), qPrintable(out.left(200)));
        QVERIFY2(out.endsWith(end), qPrintable(out.right(200)));
    }

    void standardInput()
    {
        QString const log = m_workplace.write("log"_s, c_init);
        QCOMPARE(m_workplace.run("explain"_s, [&](QProcess& program) { program.setStandardInputFile(log); }),
                 explain(c_init));
    }

    void standardInputAtATerminal()
    {
        Terminal const terminal;
        terminal.type(c_code + '\x04'); // Ctrl+D: the end
        Outcome expected = explain(c_code);
        expected.err = "workplace: reading the log from standard input\n"_s;
        QCOMPARE(m_workplace.run("explain"_s,
                                 [&](QProcess& program) { program.setStandardInputFile(terminal.name()); }),
                 expected);
    }

    void unreadable_data()
    {
        QTest::addColumn<QString>("complaint");
        QTest::newRow("missing.log") << "No such file or directory"_s;
        QTest::newRow(".") << "file to open is a directory"_s;
        QTest::newRow("/proc/self/mem") << "Input/output error"_s;
    }

    void unreadable()
    {
        QFETCH(QString, complaint);
        QString const log = QLatin1String(QTest::currentDataTag());
        QCOMPARE(m_workplace.run("explain "_s + log), complains(log + ": "_s + complaint));
    }

private:
    /// What the program makes of a log.
    Outcome explain(QByteArray const& log, QString const& option = {}) const
    {
        m_workplace.write("log"_s, log);
        return m_workplace.run("explain log "_s + option);
    }

    /// The line number, or the code, and the handlers of each line that is found.
    QStringList meaningsIn(QByteArray const& log) const
    {
        QStringList all;
        QStringList found = linesOf(explain(log, "--json"_s).out);
        found.removeLast(); // the summary
        for (auto const& line : qAsConst(found)) {
            QJsonObject const one = objectOf(line);
            QString meaning = QString::number(one.value("line"_s).toInt(one.value("code"_s).toInt()));
            auto const meanings = one.value("meanings"_s).toArray();
            for (auto const& handler : meanings)
                meaning += QLatin1Char(' ') + handler["handler"_s].toString();
            all += meaning;
        }
        return all;
    }

    Workplace m_workplace;
};

QTEST_GUILESS_MAIN(TestExplain)
#include "tst_explain.moc"
