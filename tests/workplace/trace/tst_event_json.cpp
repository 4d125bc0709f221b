#include "complaint.h"
#include "file_size_limit.h"
#include "literals.h"
#include "scratch_folder.h"

#include "trace/event_json.h"
#include "trace/trace_file.h"

#include <files/variant_json.h>

#include <QtTest>

#include <functional>
#include <limits>

Q_DECLARE_METATYPE(RunEvent)

namespace
{

struct Nameless
{
};

QByteArray lineOf(QVariant const& value)
{
    return toLine(toJson(value));
}

QVariant nested(QVariant value, int depth)
{
    for (int i = 0; i < depth; ++i)
        value = QVariantList({value});
    return value;
}

/// The complaint of @p action on a disk that has room for so many bytes.
QString complaintOnASmallDisk(rlim_t bytes, std::function<void()> const& action)
{
    FileSizeLimit const limit(bytes);
    return complaintOf(action);
}

} // namespace

Q_DECLARE_METATYPE(Nameless)

/// What happens in a run as lines of JSON, and the file that they are written into.
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
                            char const* text = nullptr) {
            QTest::newRow(name) << value << json
                                << (text ? QString::fromUtf8(text) : QString::fromUtf8(json));
        };
        auto const typed = [&row](QVariant const& value, char const* type, char const* content) {
            row(type, value, "{\"@type\":\"" + QByteArray(type) + "\",\"@value\":" + content + '}', content);
        };
        row("invalid", QVariant(), "null");
        row("true", true, "true");
        row("false", false, "false");
        row("int", -5, "-5");
        row("greatest int", std::numeric_limits<int>::max(), "2147483647");
        row("double", 0.1, "0.1");
        row("whole double", 2.0, "2.0"); // still no int when it is read again
        row("great double", 1e300, "1e+300");
        row("minus zero", -0.0, "-0.0");
        row("text", "a"_s, "\"a\"");
        row("empty text", ""_s, "\"\"");
        row("null text", QString(), "\"\"");
        row("text to escape", "\"\\\n\t\u001b\u007f"_s, "\"\\\"\\\\\\n\\t\\u001b\u007f\"");
        row("text with NUL", QString::fromLatin1("a\0b", 3), "\"a\\u0000b\"");
        row("text beyond ASCII", "\u00e9\U0001F600"_s, "\"\xc3\xa9\xf0\x9f\x98\x80\"");
        row("map with the mark of a type", QVariantMap({{"@type"_s, 1}}),
            R"({"@type":"QVariantMap","@value":{"@type":1}})", R"({"@type":1})");
        row("list", QVariantList({1, "x"_s, QVariant(), QVariantList()}), "[1,\"x\",null,[]]");
        row("map", QVariantMap({{"b"_s, 1}, {"a"_s, QVariantMap({{QString(), true}})}}),
            "{\"a\":{\"\":true},\"b\":1}");

        typed(7U, "uint", "7");
        typed(std::numeric_limits<qlonglong>::min(), "qlonglong", "-9223372036854775808");
        typed(std::numeric_limits<qulonglong>::max(), "qulonglong", "18446744073709551615");
        typed(QVariant::fromValue<quint16>(65535), "ushort", "65535");
        typed(QVariant::fromValue<qint16>(-3), "short", "-3");
        typed(QVariant::fromValue<uchar>(200), "uchar", "200");
        typed(QVariant::fromValue<signed char>(-3), "signed char", "-3");
        typed(QVariant::fromValue<long>(-3), "long", "-3");
        typed(QVariant::fromValue<ulong>(3), "ulong", "3");
        typed(QVariant::fromValue(0.5F), "float", "0.5");
        typed(QStringList({"a"_s, "b"_s}), "QStringList", "[\"a\",\"b\"]");
        typed(QVariantHash({{"a"_s, 1}}), "QVariantHash", "{\"a\":1}");
        typed(QByteArray("bytes"), "QByteArray", "\"bytes\"");
        typed(QDate(2026, 3, 9), "QDate", "\"2026-03-09\"");
        typed(QUuid("{00000000-0000-4000-8000-000000000001}"_s), "QUuid",
              "\"{00000000-0000-4000-8000-000000000001}\"");
        typed(QVariant::fromValue(Nameless()), "Nameless", "null");
        row("NaN", qQNaN(), "{\"@type\":\"double\",\"@value\":\"nan\"}", "\"nan\"");
        row("infinite", qInf(), "{\"@type\":\"double\",\"@value\":\"inf\"}", "\"inf\"");
        row("minus infinite", -qInf(), "{\"@type\":\"double\",\"@value\":\"-inf\"}", "\"-inf\"");
        row("typed in containers", QVariantMap({{"a"_s, QVariantList({7U})}}),
            "{\"a\":[{\"@type\":\"uint\",\"@value\":7}]}", "{\"a\":[7]}");

        QString const half = QString(QChar(0xd83d));
        row("half a pair", QString("a"_s + half + "b"_s), "\"a?b\"");
        row("half a pair as key", QVariantMap({{half, 1}}), "{\"?\":1}");
    }

    void values()
    {
        QFETCH(QVariant, value);
        QFETCH(QByteArray, json);
        QFETCH(QString, text);
        QCOMPARE(lineOf(value), json + '\n');
        QCOMPARE(toText(value), text);
    }

    void depth_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QByteArray>("json");
        auto const brackets = [](int depth, QByteArray const& inner) {
            return QByteArray(depth, '[') + inner + QByteArray(depth, ']');
        };
        QTest::newRow("deepest") << nested(1, 64) << brackets(64, "1");
        QTest::newRow("one deeper") << nested(1, 65) << brackets(65, "\"...\"");
        QTest::newRow("far deeper") << nested(1, 10'000) << brackets(65, "\"...\"");
        QVariant map = 1;
        for (int i = 0; i < 65; ++i)
            map = QVariantMap({{"a"_s, map}});
        QTest::newRow("maps") << map << QByteArray("{\"a\":").repeated(65) + "\"...\"" + QByteArray(65, '}');
    }

    void depth()
    {
        QFETCH(QVariant, value);
        QFETCH(QByteArray, json);
        QCOMPARE(lineOf(value), json + '\n');
        QCOMPARE(toText(value), QString::fromUtf8(json));
    }

    // What is special about an event, and those that no example's trace has.
    void events_data()
    {
        QTest::addColumn<qint64>("time");
        QTest::addColumn<RunEvent>("event");
        QTest::addColumn<QByteArray>("line");

        auto const row = [](char const* name, qint64 time, RunEvent const& event, char const* line) {
            QTest::newRow(name) << time << event << QByteArray(line) + '\n';
        };
        row("begin", 0,
            RunStarted{"P"_s, "1.0"_s, "ZRT \"1\""_s, QDateTime(QDate(2026, 3, 9), QTime(7, 5, 1, 20))},
            "{\"time\":0,\"event\":\"begin\",\"format\":1,\"plugin\":\"P\",\"version\":\"1.0\","
            "\"controller\":\"ZRT \\\"1\\\"\","
            R"("start":"2026-03-09T07:05:01.020"})");
        row("finished", 1, OrderFinished{1, "init"_s, true, QString()},
            R"({"time":1,"event":"finished","order":1,"command":"init","success":true})");
        row("failed", 1, OrderFinished{1, "init"_s, false, "gone"_s},
            R"({"time":1,"event":"finished","order":1,"command":"init","success":false,"message":"gone"})");
        row("person without effect", 1, PersonActed{"pulls the trigger"_s, QString()},
            R"({"time":1,"event":"person","action":"pulls the trigger"})");
        row("wait failed", 1, WaitFailed{"too late"_s},
            R"({"time":1,"event":"waitFailed","message":"too late"})");
        row("unexpected", 1, ExpectationMissed{1, "doneOk"_s, true, QVariant()},
            R"({"time":1,"event":"unexpected","order":1,"key":"doneOk","expected":true,"actual":null})");
        row("end", 9'000'000'000'000, RunFinished{1, 2, 3, std::numeric_limits<quint64>::max()},
            R"({"time":9000000000000,"event":"end","done":1,"failed":2,"notRun":3,)"
            R"("droppedReplies":18446744073709551615})");
    }

    void events()
    {
        QFETCH(qint64, time);
        QFETCH(RunEvent, event);
        QFETCH(QByteArray, line);
        QCOMPARE(toLine(toJson(time, event)), line);
    }

    void linesAreJson()
    {
        // Whatever a device or a plugin puts into its texts, a line stays one line of JSON.
        QString everything;
        for (int i = 0; i <= 0xffff; ++i)
            everything += QChar(i);
        QByteArray const line = toLine(toJson(1, LogWritten{QtInfoMsg, everything}));
        QCOMPARE(line.count('\n'), 1);
        QJsonParseError error{};
        QJsonDocument::fromJson(line, &error);
        QCOMPARE(error.errorString(), "no error occurred"_s);
    }

    void fileAppearsWhenItIsClosed()
    {
        ScratchFolder const folder;
        QString const fileName = folder.filePath("trace.jsonl"_s);
        TraceFile trace(fileName);
        trace.write(1, InstructionWithdrawn{1, 2});
        trace.write(2, InstructionWithdrawn{3, 4});
        QVERIFY(!QFile::exists(fileName));
        trace.close();
        QCOMPARE(contentOf(fileName),
                 QByteArray("{\"time\":1,\"event\":\"withdrawn\",\"order\":1,\"instruction\":2}\n"
                            "{\"time\":2,\"event\":\"withdrawn\",\"order\":3,\"instruction\":4}\n"));
        QCOMPARE(folder.names(), QStringList{"trace.jsonl"_s});
    }

    void fileWithoutEvents()
    {
        ScratchFolder const folder;
        TraceFile(folder.filePath("trace.jsonl"_s)).close();
        QCOMPARE(folder.names(), QStringList{"trace.jsonl"_s});
        QCOMPARE(contentOf(folder.filePath("trace.jsonl"_s)), QByteArray(""));
    }

    void formerFileIsReplaced()
    {
        ScratchFolder const folder;
        QString const fileName = folder.write("trace.jsonl"_s, QByteArray(1000, 'x'));
        TraceFile trace(fileName);
        trace.write(1, InstructionWithdrawn{1, 2});
        QCOMPARE(contentOf(fileName), QByteArray(1000, 'x'));
        trace.close();
        QCOMPARE(contentOf(fileName),
                 QByteArray("{\"time\":1,\"event\":\"withdrawn\",\"order\":1,\"instruction\":2}\n"));
        QCOMPARE(folder.names(), QStringList{"trace.jsonl"_s});
    }

    void formerFileStaysWithoutClose()
    {
        ScratchFolder const folder;
        QString const fileName = folder.write("trace.jsonl"_s, "former");
        {
            TraceFile trace(fileName);
            trace.write(1, InstructionWithdrawn{1, 2});
            TraceFile another(folder.filePath("another.jsonl"_s));
            another.write(1, InstructionWithdrawn{1, 2});
        }
        QCOMPARE(contentOf(fileName), QByteArray("former"));
        QCOMPARE(folder.names(), QStringList{"trace.jsonl"_s});
    }

    void cannotBeOpened_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("message");
        QTest::newRow("folder missing") << "missing/trace.jsonl"_s
                                        << "No such file or directory"_s;
        QTest::newRow("directory") << "directory"_s
                                   << "Filename refers to a directory"_s;
        QTest::newRow("below a file") << "file/trace.jsonl"_s
                                      << "Not a directory"_s;
    }

    void cannotBeOpened()
    {
        QFETCH(QString, name);
        QFETCH(QString, message);
        ScratchFolder const folder;
        folder.write("file"_s, "former");
        QVERIFY(QDir(folder.path()).mkdir("directory"_s));
        QString const fileName = folder.filePath(name);
        QCOMPARE(complaintOf([&] { TraceFile const trace(fileName); }), fileName + ": "_s + message);
        QCOMPARE(folder.names(), QStringList({"directory"_s, "file"_s}));
        QCOMPARE(contentOf(folder.filePath("file"_s)), QByteArray("former"));
    }

    void cannotBeNamed()
    {
        ScratchFolder const folder;
        QString const fileName = folder.filePath(QString(300, QLatin1Char('x')));
        QCOMPARE(complaintOf([&] { TraceFile(fileName).close(); }),
                 fileName + ": the trace could not be written: File name too long"_s);
        QVERIFY(folder.names().isEmpty());
    }

    void deviceIsWrittenDirectly()
    {
        ScratchFolder const folder;
        QString const pipe = folder.filePath("pipe"_s);
        QCOMPARE(QProcess::execute("mkfifo"_s, {pipe}), 0);
        QProcess reader;
        reader.start("cat"_s, {pipe});
        QVERIFY(reader.waitForStarted());
        {
            TraceFile trace(pipe);
            trace.write(1, InstructionWithdrawn{1, 2});
            trace.close();
        }
        if (QFileInfo(pipe).isFile()) {
            reader.kill();
            reader.waitForFinished();
            QFAIL("the pipe was replaced");
        }
        QVERIFY(reader.waitForFinished());
        QCOMPARE(reader.readAll(),
                 QByteArray("{\"time\":1,\"event\":\"withdrawn\",\"order\":1,\"instruction\":2}\n"));
        QCOMPARE(folder.names(), QStringList{"pipe"_s});
        m_writesDirectly = true;
    }

    void deviceThatIsFull()
    {
        if (!m_writesDirectly)
            QSKIP("what replaces pipes would, run by root, replace this machine's device");
        QString const device = "/dev/full"_s;
        // A few bytes that are not written before the end, and more than a buffer holds.
        for (int const events : {1, 10'000}) {
            TraceFile trace(device);
            for (int i = 0; i < events; ++i)
                trace.write(i, InstructionWithdrawn{1, 2});
            QCOMPARE(complaintOf([&] { trace.close(); }),
                     "/dev/full: the trace could not be written: No space left on device"_s);
        }
        QVERIFY(QFile::exists(device));
    }

    void diskThatIsFull_data()
    {
        QTest::addColumn<int>("events");
        QTest::addColumn<bool>("hasFormer");
        for (int const events : {1, 10'000}) {
            QTest::addRow("%d events", events) << events << false;
            QTest::addRow("%d events, former file", events) << events << true;
        }
    }

    void diskThatIsFull()
    {
        QFETCH(int, events);
        QFETCH(bool, hasFormer);
        ScratchFolder const folder;
        QString const fileName = folder.filePath("trace.jsonl"_s);
        if (hasFormer)
            folder.write("trace.jsonl"_s, "former");
        QString const complaint = complaintOnASmallDisk(30, [&] {
            TraceFile trace(fileName);
            for (int i = 0; i < events; ++i)
                trace.write(i, InstructionWithdrawn{1, 2});
            trace.close();
        });
        QCOMPARE(complaint, fileName + ": the trace could not be written: File too large"_s);
        QCOMPARE(folder.names(), hasFormer ? QStringList{"trace.jsonl"_s} : QStringList());
        QCOMPARE(contentOf(fileName), hasFormer ? QByteArray("former") : QByteArray());
    }

private:
    bool m_writesDirectly = false;
};

QTEST_GUILESS_MAIN(TestEventJson)
#include "tst_event_json.moc"
