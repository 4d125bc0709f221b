#include "complaint.h"
#include "literals.h"
#include "variants.h"

#include "trace/event_json.h"

#include <files/json_input.h>
#include <files/variant_json.h>

#include <QtTest>

#include <ctime>
#include <limits>

Q_DECLARE_METATYPE(RunEvent)

namespace
{

struct Nameless
{
};

QVariant nested(QVariant value, int depth)
{
    for (int i = 0; i < depth; ++i)
        value = QVariantList({value});
    return value;
}

JsonInput jsonOf(QByteArray const& text)
{
    return JsonInput::fromText("trace"_s, text);
}

} // namespace

Q_DECLARE_METATYPE(Nameless)

/// What happens in a run as lines of JSON, and read from them again.
class TestEventJson : public QObject
{
    Q_OBJECT

private slots:
    void values_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("text");

        auto const row = [](char const* name, QVariant const& value, QByteArray const& json,
                            QByteArray const& text = {}) {
            QTest::newRow(name) << value << json << QString::fromUtf8(text.isNull() ? json : text);
        };
        auto const typed = [&row](QVariant const& value, QByteArray const& type, QByteArray const& content) {
            row(qPrintable("%1 %2"_s.arg(QString::fromLatin1(type), QString::fromLatin1(content))), value,
                "{\"@type\":\"" + type + "\",\"@value\":" + content + '}', content);
        };
        row("invalid", QVariant(), "null");
        row("bool", true, "true");
        row("int", -5, "-5");
        row("double", 0.1, "0.1");
        row("whole double", 2.0, "2.0"); // still no int when it is read again
        row("great double", 1e300, "1e+300");
        row("minus zero", -0.0, "-0.0");
        row("text", "a"_s, "\"a\"");
        row("empty text", ""_s, "\"\"");
        row("text like a number", "7"_s, "\"7\"");
        row("text to escape", "\"\\\n\t\u001b\u007f"_s, "\"\\\"\\\\\\n\\t\\u001b\u007f\"");
        row("text with NUL", QString::fromLatin1("a\0b", 3), "\"a\\u0000b\"");
        row("text beyond ASCII", "\u00e9\U0001F600"_s, "\"\xc3\xa9\xf0\x9f\x98\x80\"");
        row("list", QVariantList({1, "x"_s, QVariant(), QVariantList()}), R"([1,"x",null,[]])");
        row("map", QVariantMap({{"b"_s, 1}, {"a"_s, QVariantMap({{QString(), true}})}}),
            R"({"a":{"":true},"b":1})");
        row("typed in containers", QVariantMap({{"a"_s, QVariantList({7U})}}),
            R"({"a":[{"@type":"uint","@value":7}]})", R"({"a":[7]})");

        typed(7U, "uint", "7");
        typed(5LL, "qlonglong", "5");
        typed(std::numeric_limits<qlonglong>::min(), "qlonglong", "-9223372036854775808");
        typed(std::numeric_limits<qulonglong>::max(), "qulonglong", "18446744073709551615");
        typed(QVariant::fromValue<quint16>(65535), "ushort", "65535");
        typed(QVariant::fromValue<qint16>(-3), "short", "-3");
        typed(QVariant::fromValue<uchar>(200), "uchar", "200");
        typed(QVariant::fromValue<signed char>(-3), "signed char", "-3");
        typed(QVariant::fromValue<long>(-3), "long", "-3");
        typed(QVariant::fromValue<ulong>(3), "ulong", "3");
        typed(QVariant::fromValue(0.5F), "float", "0.5");
        typed(QVariant::fromValue(std::numeric_limits<float>::infinity()), "float", "\"inf\"");
        typed(qQNaN(), "double", "\"nan\"");
        typed(qInf(), "double", "\"inf\"");
        typed(-qInf(), "double", "\"-inf\"");
        typed(QStringList({"a"_s, "b"_s}), "QStringList", R"(["a","b"])");
        typed(QVariantHash({{"b"_s, 1}, {"a"_s, 2}}), "QVariantHash", R"({"a":2,"b":1})");
        typed(QVariantMap({{"@type"_s, 1}}), "QVariantMap", R"({"@type":1})"); // is not taken for a mark
        typed(QByteArray("bytes"), "QByteArray", "\"bytes\"");
        typed(QDate(2026, 3, 9), "QDate", "\"2026-03-09\"");
        typed(QUuid("{00000000-0000-4000-8000-000000000001}"_s), "QUuid",
              "\"{00000000-0000-4000-8000-000000000001}\"");
    }

    void values()
    {
        QFETCH(QVariant, value);
        QFETCH(QByteArray, json);
        QFETCH(QString, text);
        QCOMPARE(toLine(toJson(value)), json + '\n');
        QCOMPARE(toText(value), text);
        QVariant const read = toTypedVariant(jsonOf(json));
        QVERIFY(isSame(read, value));
        QCOMPARE(toLine(toJson(read)), json + '\n'); // of a zero the sign, of a list the types
    }

    void valuesThatAreNotReadAgain_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QByteArray>("json");
        auto const brackets = [](QByteArray const& inner, int depth) {
            return QByteArray(depth, '[') + inner + QByteArray(depth, ']');
        };
        QTest::newRow("null text") << QVariant(QString()) << QByteArray("\"\"");
        QTest::newRow("half a pair") << QVariant("a"_s + QChar(0xd83d) + "b"_s) << QByteArray("\"a?b\"");
        QTest::newRow("half a pair as key")
            << QVariant(QVariantMap({{QString(QChar(0xd83d)), 1}})) << QByteArray("{\"?\":1}");
        QTest::newRow("deepest") << nested(1, 64) << brackets("1", 64);
        QTest::newRow("far deeper") << nested(1, 10'000) << brackets("\"...\"", 65);
        QTest::newRow("maps, one deeper")
            << nested(QVariantMap({{"a"_s, 1}}), 64) << brackets("{\"a\":\"...\"}", 64);
    }

    void valuesThatAreNotReadAgain()
    {
        QFETCH(QVariant, value);
        QFETCH(QByteArray, json);
        QCOMPARE(toLine(toJson(value)), json + '\n');
        QCOMPARE(toText(value), QString::fromUtf8(json));
    }

    void valuesThatCannotBeMade_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("complaint");
        auto const row = [](char const* name, QByteArray const& json, char const* complaint) {
            QTest::newRow(name) << json << "trace:1: "_s + QString::fromUtf8(complaint);
        };
        row("type without a text", toLine(toJson(QVariant::fromValue(Nameless()))),
            "@value: no value of the type \"Nameless\"");
        row("unknown type", R"({"@type": "Widget", "@value": 1})", "@value: no value of the type \"Widget\"");
        row("type that is no text", R"({"@type": 1, "@value": 1})", "@type: must be a text, not a number");
        row("no value", R"({"@type": "uint"})", "the key \"@value\" is missing");
        row("something else", R"({"@type": "uint", "@value": 1, "b": 1})",
            "unknown key \"b\", known are @type, @value");
        row("another kind of value, in a map", R"({"a": {"@type": "uint", "@value": "x"}})",
            "a.@value: no value of the type \"uint\"");
        row("another kind of value, in a list", R"([1, {"@type": "uint", "@value": "x"}])",
            "[1].@value: no value of the type \"uint\"");
    }

    void valuesThatCannotBeMade()
    {
        QFETCH(QByteArray, json);
        QFETCH(QString, complaint);
        QCOMPARE(complaintOf([&] { toTypedVariant(jsonOf(json)); }), complaint);
    }

    // The line of those that no example's trace has, or that are special.
    void events_data()
    {
        QTest::addColumn<RunEvent>("event");
        QTest::addColumn<QByteArray>("json"); // behind the time
        auto const row = [](RunEvent const& event, QByteArray const& json = {}) {
            QTest::addRow("%s %s", kindOf(event).name, json.constData()) << event << json;
        };
        QVariantMap const map = {{"b"_s, true}, {"a"_s, 1U}};
        auto const greatest = static_cast<quint64>(std::numeric_limits<qint64>::max());
        row(RunStarted{"P"_s, "1.0"_s, "ZRT 1"_s, QDateTime(QDate(2026, 3, 9), QTime(7, 5, 1, 20), Qt::UTC)},
            R"("event":"begin","format":1,"plugin":"P","version":"1.0","controller":"ZRT 1",)"
            R"("start":"2026-03-09T07:05:01.020")");
        row(OrderStarted{3, "init"_s, map});
        row(StopOrdered{"halt"_s, 2});
        row(AllStopped{2});
        row(InstructionPosted{1, greatest, {"device"_s, QString(), map, -1}});
        row(InstructionFailed{1, 2, "go"_s, "gone"_s, true});
        row(InstructionWithdrawn{1, 2});
        row(ReplyArrived{1, 2, map});
        row(ReplyArrived{1, 2, {{"@type"_s, 1}}}); // the mark of a type
        row(ReplyDropped{1, 2});
        row(ResultUpdated{1, "doneOk"_s, 7U});
        row(OrderFinished{1, "init"_s, true, QString()},
            R"("event":"finished","order":1,"command":"init","success":true)");
        row(OrderFinished{1, "init"_s, false, "gone"_s},
            R"("event":"finished","order":1,"command":"init","success":false,"message":"gone")");
        row(PersonActed{"pulls the trigger"_s, QString()},
            R"("event":"person","action":"pulls the trigger")");
        row(PersonActed{"presses reverse"_s, "the tool loosens now"_s});
        row(WaitFailed{"too late"_s}, R"("event":"waitFailed","message":"too late")");
        row(ExpectationMissed{1, "doneOk"_s, true, QVariant()},
            R"("event":"unexpected","order":1,"key":"doneOk","expected":true,"actual":null)");
        row(LogWritten{QtCriticalMsg, "\na;\tb"_s});
        row(RunFinished{1, 2, 3, greatest},
            R"("event":"end","done":1,"failed":2,"notRun":3,"droppedReplies":9223372036854775807)");
    }

    void events()
    {
        QFETCH(RunEvent, event);
        QFETCH(QByteArray, json);
        constexpr qint64 time = 9'000'000'000'000;
        QByteArray const line = toLine(toJson(time, event));
        if (!json.isEmpty())
            QCOMPARE(line, "{\"time\":9000000000000," + json + "}\n");
        auto const [readTime, readEvent] = toEvent(jsonOf(line));
        QCOMPARE(toLine(toJson(readTime, readEvent)), line);
        QCOMPARE(readEvent.index(), event.index());
    }

    void dateInTheHourThatSummerTimeLeavesOut()
    {
        QByteArray const zone = qgetenv("TZ");
        auto const back = qScopeGuard([&zone] {
            qputenv("TZ", zone);
            ::tzset();
        });
        qputenv("TZ", "Europe/Berlin");
        ::tzset();
        QDateTime const date(QDate(2026, 3, 29), QTime(2, 30, 0, 125), Qt::UTC);
        auto const read = toEvent(jsonOf(toLine(toJson(0, RunStarted{{}, {}, {}, date}))));
        QCOMPARE(std::get<RunStarted>(read.second).start, date);
    }

    // Whatever a device or a plugin puts into its texts.
    void anyTextStaysOnOneLine()
    {
        QString everything;
        for (int i = 0; i <= 0xffff; ++i)
            everything += QChar(i);
        QByteArray const line = toLine(toJson(1, LogWritten{QtInfoMsg, everything}));
        QCOMPARE(line.count('\n'), 1);
        QJsonParseError error{};
        QJsonDocument::fromJson(line, &error);
        QCOMPARE(error.errorString(), "no error occurred"_s);
    }
};

QTEST_GUILESS_MAIN(TestEventJson)
#include "tst_event_json.moc"
