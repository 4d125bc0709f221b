#include "complaint.h"
#include "literals.h"
#include "scratch_folder.h"

#include "trace/event_json.h"
#include "trace/trace_reader.h"

#include <files/json_input.h>
#include <files/variant_json.h>

#include <QtTest>

#include <ctime>
#include <limits>

Q_DECLARE_METATYPE(RunEvent)

namespace
{

QByteArray const c_begin = R"({"time":0,"event":"begin","format":1,"plugin":"P","version":"1.0",)"
                           R"("controller":"ZRT","start":"2000-01-01T00:00:00.000"})"
                           "\n";
QByteArray const c_end = R"({"time":9,"event":"end","done":1,"failed":0,"notRun":0,"droppedReplies":0})"
                         "\n";

struct Nameless
{
};

QVector<TraceEntry> entriesOf(QString const& fileName)
{
    QVector<TraceEntry> entries;
    TraceReader reader(fileName);
    while (auto const entry = reader.next())
        entries += *entry;
    return entries;
}

} // namespace

Q_DECLARE_METATYPE(Nameless)

/// A trace as it is read again.
class TestTraceReader : public QObject
{
    Q_OBJECT

private slots:
    void values_data()
    {
        QTest::addColumn<QVariant>("value");
        auto const row = [](char const* name, QVariant const& value) { QTest::newRow(name) << value; };
        row("invalid", QVariant());
        row("bool", true);
        row("int", -5);
        row("double", 2.0);
        row("minus zero", -0.0);
        row("infinite", -qInf());
        row("text", "a\n\"\u00e9"_s);
        row("text like a number", "7"_s);
        row("list", QVariantList({1, QVariantList({true}), QVariant()}));
        row("map", QVariantMap({{"a"_s, QVariantMap({{QString(), 1}})}}));
        row("map with the mark of a type", QVariantMap({{"@type"_s, "uint"_s}, {"@value"_s, 7}}));
        row("such a map in a hash", QVariantHash({{"@type"_s, QVariantMap({{"@type"_s, 1}})}}));
        row("uint", 7U);
        row("qlonglong", std::numeric_limits<qlonglong>::min());
        row("small qlonglong", 5LL);
        row("qulonglong", std::numeric_limits<qulonglong>::max());
        row("ushort", QVariant::fromValue<quint16>(65535));
        row("short", QVariant::fromValue<qint16>(-3));
        row("uchar", QVariant::fromValue<uchar>(200));
        row("signed char", QVariant::fromValue<signed char>(-3));
        row("long", QVariant::fromValue<long>(-3));
        row("ulong", QVariant::fromValue<ulong>(3));
        row("float", QVariant::fromValue(0.5F));
        row("infinite float", QVariant::fromValue(std::numeric_limits<float>::infinity()));
        row("QStringList", QStringList({"a"_s, "b"_s}));
        row("QVariantHash", QVariantHash({{"a"_s, 1U}}));
        row("QByteArray", QByteArray("bytes"));
        row("QDate", QDate(2026, 3, 9));
        row("QUuid", QUuid("{00000000-0000-4000-8000-000000000001}"_s));
        row("typed in containers", QVariantMap({{"a"_s, QVariantList({7U})}}));
    }

    void values()
    {
        QFETCH(QVariant, value);
        QVariant const read = toTypedVariant(JsonInput::fromText("trace"_s, toLine(toJson(value))));
        QCOMPARE(read.userType(), value.userType());
        QCOMPARE(read, value);
        QCOMPARE(toLine(toJson(read)), toLine(toJson(value))); // of a zero the sign, of a list the types
    }

    void valuesThatCannotBeMade_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("complaint");
        auto const row = [](char const* name, QByteArray const& json, char const* complaint) {
            QTest::newRow(name) << json << "trace:1: "_s + QString::fromUtf8(complaint);
        };
        row("without a text", toLine(toJson(QVariant::fromValue(Nameless()))),
            "@value: no value of the type \"Nameless\"");
        row("unknown", R"({"@type": "Widget", "@value": 1})", "@value: no value of the type \"Widget\"");
        row("no type", R"({"@type": 1, "@value": 1})", "@type: must be a text, not a number");
        row("no value", R"({"@type": "uint"})", "the key \"@value\" is missing");
        row("something else", R"({"@type": "uint", "@value": 1, "b": 1})",
            "unknown key \"b\", known are @type, @value");
        row("another kind of value", R"({"a": {"@type": "uint", "@value": "x"}})",
            "a.@value: no value of the type \"uint\"");
        row("in a list", R"([1, {"@type": "uint", "@value": "x"}])",
            "[1].@value: no value of the type \"uint\"");
    }

    void valuesThatCannotBeMade()
    {
        QFETCH(QByteArray, json);
        QFETCH(QString, complaint);
        QCOMPARE(complaintOf([&] { toTypedVariant(JsonInput::fromText("trace"_s, json)); }), complaint);
    }

    void events_data()
    {
        QTest::addColumn<qint64>("time");
        QTest::addColumn<RunEvent>("event");
        auto const row = [](char const* name, RunEvent const& event, qint64 time = 7) {
            QTest::newRow(name) << time << event;
        };
        QVariantMap const map = {{"b"_s, true}, {"a"_s, 1U}};
        auto const greatest = static_cast<quint64>(std::numeric_limits<qint64>::max());
        row("order", OrderStarted{3, "init"_s, map}, 9'000'000'000'000);
        row("stop", StopOrdered{"halt"_s, 2});
        row("stop all", AllStopped{2});
        row("instruction", InstructionPosted{1, greatest, {"device"_s, QString(), map, -1}});
        row("not delivered", InstructionFailed{1, 2, "go"_s, "gone"_s, false});
        row("not delivered, goes on", InstructionFailed{1, 2, "go"_s, "gone"_s, true});
        row("withdrawn", InstructionWithdrawn{1, 2});
        row("reply", ReplyArrived{1, 2, map});
        row("reply with the mark of a type", ReplyArrived{1, 2, {{"@type"_s, 1}}});
        row("dropped", ReplyDropped{1, 2});
        row("result", ResultUpdated{1, "doneOk"_s, 7U});
        row("finished", OrderFinished{1, "init"_s, true, QString()});
        row("failed", OrderFinished{1, "init"_s, false, "gone"_s});
        row("person", PersonActed{"presses reverse"_s, "the tool loosens now"_s});
        row("person without effect", PersonActed{"pulls the trigger"_s, QString()});
        row("wait failed", WaitFailed{"too late"_s});
        row("unexpected", ExpectationMissed{1, "doneOk"_s, true, QVariant()});
        row("log", LogWritten{QtCriticalMsg, "\na;\tb"_s});
    }

    void events()
    {
        QFETCH(qint64, time);
        QFETCH(RunEvent, event);
        ScratchFolder const folder;
        RunEvent const end = RunFinished{1, 2, 3, 4};
        auto const entries = entriesOf(
            folder.write("trace"_s, c_begin + toLine(toJson(time, event)) + toLine(toJson(time, end))));
        QCOMPARE(entries.size(), 3);
        QCOMPARE(toLine(toJson(entries[0].time, entries[0].event)), c_begin);
        QCOMPARE(toLine(toJson(entries[1].time, entries[1].event)), toLine(toJson(time, event)));
        QCOMPARE(toLine(toJson(entries[2].time, entries[2].event)), toLine(toJson(time, end)));
        for (int i = 0; i < 3; ++i)
            QCOMPARE(entries[i].line, i + 1);
        QCOMPARE(entries[1].event.index(), event.index());
    }

    void date()
    {
        // The hour that summer time leaves out here.
        QByteArray const zone = qgetenv("TZ");
        auto const back = qScopeGuard([&zone] {
            qputenv("TZ", zone);
            ::tzset();
        });
        qputenv("TZ", "Europe/Berlin");
        ::tzset();
        ScratchFolder const folder;
        QByteArray begin = c_begin;
        begin.replace("2000-01-01T00:00:00.000", "2026-03-29T02:30:00.125");
        auto const entries = entriesOf(folder.write("trace"_s, begin + c_end));
        QCOMPARE(std::get<RunStarted>(entries[0].event).start,
                 QDateTime(QDate(2026, 3, 29), QTime(2, 30, 0, 125), Qt::UTC));
    }

    void complaints_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("complaint");
        auto const row = [](char const* name, QByteArray const& content, char const* complaint) {
            QTest::newRow(name) << content << QString::fromUtf8(complaint);
        };
        row("empty", "", ":1: this is no trace, it is empty");
        for (auto const& [name, content] :
             {std::pair("only a line break", "\n"), std::pair("no JSON", "hello\n"),
              std::pair("another file of ours", "{\n    \"steps\": []\n}\n"), std::pair("no event", "{}\n"),
              std::pair("a list", "[]\n"), std::pair("event that is no text", "{\"event\": 1}\n"),
              std::pair("an event of another kind", "{\"time\":0,\"event\":\"walk\"}\n")})
            row(name, content, ":1: this is no trace, it does not start with \"begin\"");
        row("unknown event", c_begin + "{\"time\":0,\"event\":\"walk\"}\n",
            ":2: event: unknown event \"walk\"");
        row("line without an event", c_begin + "{}\n", ":2: the key \"event\" is missing");
        row("no beginning", c_end, ":1: this is no trace, it does not start with \"begin\"");
        row("two beginnings", c_begin + c_begin, ":2: \"begin\" stands on the first line alone");
        row("goes on behind the end", c_begin + c_end + c_end, ":3: nothing stands behind \"end\"");
        row("only a beginning", c_begin, ":1: the trace is cut off behind this line");
        row("cut off behind a line",
            c_begin + R"({"time":1,"event":"withdrawn","order":1,"instruction":2})" + '\n',
            ":2: the trace is cut off behind this line");
        row("cut off in a line", c_begin + "{\"time\":1,\"event\":\"withdr",
            ":2: the trace is cut off in this line");
        row("cut off before the line break", c_begin + c_end.trimmed(),
            ":2: the trace is cut off in this line");
        QByteArray newer = c_begin;
        newer.replace("\"format\":1,\"plugin\":\"P\"", "\"format\":2,\"maker\":\"P\"");
        row("of a newer version", newer + c_end,
            ":1: format: this trace has format 2, from a newer version; this version reads format 1");
        newer.replace("\"time\":0,", "");
        row("of a newer version that has other keys", newer + c_end,
            ":1: format: this trace has format 2, from a newer version; this version reads format 1");
        QByteArray older = c_begin;
        older.replace("\"format\":1,", "");
        row("without a format", older + c_end, ":1: the key \"format\" is missing");
        older = c_begin;
        older.replace("\"format\":1,", "\"format\":0,");
        row("format 0", older + c_end, ":1: format: must be a whole number from 1 to 9223372036854775807");
        QByteArray dated = c_begin;
        dated.replace("2000-01-01T", "2000-02-30T");
        row("day that there is not", dated + c_end, ":1: start: must be a date like 2000-01-01T00:00:00.000");
        dated = c_begin;
        dated.replace("2000-01-01T00:00:00.000", "2000-01-01T00:00:00");
        row("date in another form", dated + c_end, ":1: start: must be a date like 2000-01-01T00:00:00.000");
        dated = c_begin;
        dated.replace("2000-01-01T00:00:00.000", "");
        row("no date", dated + c_end, ":1: start: must be a date like 2000-01-01T00:00:00.000");
        row("time goes back",
            c_begin
                + R"({"time":5,"event":"stopAll","running":0})"
                  "\n"
                  R"({"time":4,"event":"stopAll","running":0})"
                  "\n",
            ":3: the time goes back, from 5 to 4");
        row("time before the beginning", c_begin + R"({"time":-1,"event":"stopAll","running":0})" + '\n',
            ":2: time: must be a whole number from 0 to 9007199254740992");
        row("time beyond all measure",
            c_begin + R"({"time":9007199254740993,"event":"stopAll","running":0})" + '\n',
            ":2: time: must be a whole number from 0 to 9007199254740992");
        row("count below zero", c_begin + R"({"time":1,"event":"stopAll","running":-1})" + '\n',
            ":2: running: must be a whole number from 0 to 2147483647");
        row("unknown key",
            c_begin + R"({"time":1,"event":"dropped","order":1,"instruction":2,"why":3})" + '\n',
            ":2: unknown key \"why\", known are event, order, instruction, time");
        row("missing key", c_begin + R"({"time":1,"event":"dropped","order":1})" + '\n',
            ":2: the key \"instruction\" is missing");
        row("wrong type", c_begin + R"({"time":1,"event":"dropped","order":"1","instruction":2})" + '\n',
            ":2: order: must be a whole number from 0 to 9223372036854775807");
        row("no object",
            c_begin + R"({"time":1,"event":"reply","order":1,"instruction":2,"reply":[1]})" + '\n',
            ":2: reply: must be an object");
        row("not JSON further on", c_begin + "{\"time\":1,}\n",
            ":2:11: not JSON: syntax error while parsing object key - unexpected '}'; expected string "
            "literal");
        row("long line", c_begin + QByteArray(4 * 1024 * 1024, ' ') + '\n', ":2: longer than 4 MiB");
        row("longest line", c_begin + QByteArray(4 * 1024 * 1024 - 3, ' ') + "{}\n",
            ":2: the key \"event\" is missing");
    }

    void complaints()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, complaint);
        ScratchFolder const folder;
        QString const fileName = folder.write("trace.jsonl"_s, content);
        QCOMPARE(complaintOf([&] { entriesOf(fileName); }), fileName + complaint);
    }

    void noFile_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("complaint");
        QTest::newRow("missing") << "missing"_s
                                 << "No such file or directory"_s;
        QTest::newRow("folder") << "."_s
                                << "must be a regular file, for it is read twice"_s;
        QTest::newRow("device") << "/dev/null"_s
                                << "must be a regular file, for it is read twice"_s;
    }

    void noFile()
    {
        QFETCH(QString, name);
        QFETCH(QString, complaint);
        ScratchFolder const folder;
        QString const fileName = QDir(folder.path()).filePath(name);
        QCOMPARE(complaintOf([&] { TraceReader reader(fileName); }), fileName + ": "_s + complaint);
    }

    void progress()
    {
        ScratchFolder const folder;
        QByteArray const line = R"({"time":0,"event":"stopAll","running":0})"
                                "\n";
        TraceReader reader(folder.write("trace"_s, c_begin + line.repeated(1000) + c_end));
        QCOMPARE(reader.progress(), 0);
        for (int i = 0; i < 501; ++i)
            QVERIFY(reader.next());
        QCOMPARE(reader.progress(), 50);
        while (reader.next()) {
        }
        QCOMPARE(reader.progress(), 100);
    }
};

QTEST_GUILESS_MAIN(TestTraceReader)
#include "tst_trace_reader.moc"
