#include "complaint.h"
#include "file_size_limit.h"
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
class TstEventJson : public QObject
{
    Q_OBJECT

private slots:
    void values_data();
    void values();
    void depth_data();
    void depth();
    void events_data();
    void events();
    void linesAreJson();

    void fileAppearsWhenItIsClosed();
    void fileWithoutEvents();
    void formerFileIsReplaced();
    void formerFileStaysWithoutClose();
    void cannotBeOpened_data();
    void cannotBeOpened();
    void cannotBeNamed();
    void deviceIsWrittenDirectly();
    void deviceThatIsFull();
    void diskThatIsFull_data();
    void diskThatIsFull();

private:
    bool m_writesDirectly = false;
};

void TstEventJson::values_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("text");

    auto const row = [](char const* name, QVariant const& value, QByteArray const& json,
                        char const* text = nullptr) {
        QTest::newRow(name) << value << json << (text ? QString::fromUtf8(text) : QString::fromUtf8(json));
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
    row("text", QStringLiteral("a"), "\"a\"");
    row("empty text", QStringLiteral(""), "\"\"");
    row("null text", QString(), "\"\"");
    row("text to escape", QStringLiteral("\"\\\n\t\u001b\u007f"), "\"\\\"\\\\\\n\\t\\u001b\u007f\"");
    row("text with NUL", QString::fromLatin1("a\0b", 3), "\"a\\u0000b\"");
    row("text beyond ASCII", QStringLiteral("\u00e9\U0001F600"), "\"\xc3\xa9\xf0\x9f\x98\x80\"");
    row("map with the mark of a type", QVariantMap({{QStringLiteral("@type"), 1}}),
        R"({"@type":"QVariantMap","@value":{"@type":1}})", R"({"@type":1})");
    row("list", QVariantList({1, QStringLiteral("x"), QVariant(), QVariantList()}), "[1,\"x\",null,[]]");
    row("map",
        QVariantMap({{QStringLiteral("b"), 1}, {QStringLiteral("a"), QVariantMap({{QString(), true}})}}),
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
    typed(QStringList({QStringLiteral("a"), QStringLiteral("b")}), "QStringList", "[\"a\",\"b\"]");
    typed(QVariantHash({{QStringLiteral("a"), 1}}), "QVariantHash", "{\"a\":1}");
    typed(QByteArray("bytes"), "QByteArray", "\"bytes\"");
    typed(QDate(2026, 3, 9), "QDate", "\"2026-03-09\"");
    typed(QUuid(QStringLiteral("{00000000-0000-4000-8000-000000000001}")), "QUuid",
          "\"{00000000-0000-4000-8000-000000000001}\"");
    typed(QVariant::fromValue(Nameless()), "Nameless", "null");
    row("NaN", qQNaN(), "{\"@type\":\"double\",\"@value\":\"nan\"}", "\"nan\"");
    row("infinite", qInf(), "{\"@type\":\"double\",\"@value\":\"inf\"}", "\"inf\"");
    row("minus infinite", -qInf(), "{\"@type\":\"double\",\"@value\":\"-inf\"}", "\"-inf\"");
    row("typed in containers", QVariantMap({{QStringLiteral("a"), QVariantList({7U})}}),
        "{\"a\":[{\"@type\":\"uint\",\"@value\":7}]}", "{\"a\":[7]}");

    QString const half = QString(QChar(0xd83d));
    row("half a pair", QString(QStringLiteral("a") + half + QStringLiteral("b")), "\"a?b\"");
    row("half a pair as key", QVariantMap({{half, 1}}), "{\"?\":1}");
}

void TstEventJson::values()
{
    QFETCH(QVariant, value);
    QFETCH(QByteArray, json);
    QFETCH(QString, text);
    QCOMPARE(lineOf(value), json + '\n');
    QCOMPARE(toText(value), text);
}

void TstEventJson::depth_data()
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
        map = QVariantMap({{QStringLiteral("a"), map}});
    QTest::newRow("maps") << map << QByteArray("{\"a\":").repeated(65) + "\"...\"" + QByteArray(65, '}');
}

void TstEventJson::depth()
{
    QFETCH(QVariant, value);
    QFETCH(QByteArray, json);
    QCOMPARE(lineOf(value), json + '\n');
    QCOMPARE(toText(value), QString::fromUtf8(json));
}

// What is special about an event, and those that no example's trace has.
void TstEventJson::events_data()
{
    QTest::addColumn<qint64>("time");
    QTest::addColumn<RunEvent>("event");
    QTest::addColumn<QByteArray>("line");

    auto const row = [](char const* name, qint64 time, RunEvent const& event, char const* line) {
        QTest::newRow(name) << time << event << QByteArray(line) + '\n';
    };
    row("begin", 0,
        RunStarted{QStringLiteral("P"), QStringLiteral("1.0"), QStringLiteral("ZRT \"1\""),
                   QDateTime(QDate(2026, 3, 9), QTime(7, 5, 1, 20))},
        R"({"time":0,"event":"begin","format":1,"plugin":"P","version":"1.0","controller":"ZRT \"1\"",)"
        R"("start":"2026-03-09T07:05:01.020"})");
    row("finished", 1, OrderFinished{1, QStringLiteral("init"), true, QString()},
        R"({"time":1,"event":"finished","order":1,"command":"init","success":true})");
    row("failed", 1, OrderFinished{1, QStringLiteral("init"), false, QStringLiteral("gone")},
        R"({"time":1,"event":"finished","order":1,"command":"init","success":false,"message":"gone"})");
    row("person without effect", 1, PersonActed{QStringLiteral("pulls the trigger"), QString()},
        R"({"time":1,"event":"person","action":"pulls the trigger"})");
    row("wait failed", 1, WaitFailed{QStringLiteral("too late")},
        R"({"time":1,"event":"waitFailed","message":"too late"})");
    row("unexpected", 1, ExpectationMissed{1, QStringLiteral("doneOk"), true, QVariant()},
        R"({"time":1,"event":"unexpected","order":1,"key":"doneOk","expected":true,"actual":null})");
    row("end", 9'000'000'000'000, RunFinished{1, 2, 3, std::numeric_limits<quint64>::max()},
        R"({"time":9000000000000,"event":"end","done":1,"failed":2,"notRun":3,)"
        R"("droppedReplies":18446744073709551615})");
}

void TstEventJson::events()
{
    QFETCH(qint64, time);
    QFETCH(RunEvent, event);
    QFETCH(QByteArray, line);
    QCOMPARE(toLine(toJson(time, event)), line);
}

void TstEventJson::linesAreJson()
{
    // Whatever a device or a plugin puts into its texts, a line stays one line of JSON.
    QString everything;
    for (int i = 0; i <= 0xffff; ++i)
        everything += QChar(i);
    QByteArray const line = toLine(toJson(1, LogWritten{QtInfoMsg, everything}));
    QCOMPARE(line.count('\n'), 1);
    QJsonParseError error{};
    QJsonDocument::fromJson(line, &error);
    QCOMPARE(error.errorString(), QStringLiteral("no error occurred"));
}

void TstEventJson::fileAppearsWhenItIsClosed()
{
    ScratchFolder const folder;
    QString const fileName = folder.filePath(QStringLiteral("trace.jsonl"));
    TraceFile trace(fileName);
    trace.write(1, InstructionWithdrawn{1, 2});
    trace.write(2, InstructionWithdrawn{3, 4});
    QVERIFY(!QFile::exists(fileName));
    trace.close();
    QCOMPARE(contentOf(fileName),
             QByteArray("{\"time\":1,\"event\":\"withdrawn\",\"order\":1,\"instruction\":2}\n"
                        "{\"time\":2,\"event\":\"withdrawn\",\"order\":3,\"instruction\":4}\n"));
    QCOMPARE(folder.names(), QStringList{QStringLiteral("trace.jsonl")});
}

void TstEventJson::fileWithoutEvents()
{
    ScratchFolder const folder;
    TraceFile(folder.filePath(QStringLiteral("trace.jsonl"))).close();
    QCOMPARE(folder.names(), QStringList{QStringLiteral("trace.jsonl")});
    QCOMPARE(contentOf(folder.filePath(QStringLiteral("trace.jsonl"))), QByteArray(""));
}

void TstEventJson::formerFileIsReplaced()
{
    ScratchFolder const folder;
    QString const fileName = folder.write(QStringLiteral("trace.jsonl"), QByteArray(1000, 'x'));
    TraceFile trace(fileName);
    trace.write(1, InstructionWithdrawn{1, 2});
    QCOMPARE(contentOf(fileName), QByteArray(1000, 'x'));
    trace.close();
    QCOMPARE(contentOf(fileName),
             QByteArray("{\"time\":1,\"event\":\"withdrawn\",\"order\":1,\"instruction\":2}\n"));
    QCOMPARE(folder.names(), QStringList{QStringLiteral("trace.jsonl")});
}

void TstEventJson::formerFileStaysWithoutClose()
{
    ScratchFolder const folder;
    QString const fileName = folder.write(QStringLiteral("trace.jsonl"), "former");
    {
        TraceFile trace(fileName);
        trace.write(1, InstructionWithdrawn{1, 2});
        TraceFile another(folder.filePath(QStringLiteral("another.jsonl")));
        another.write(1, InstructionWithdrawn{1, 2});
    }
    QCOMPARE(contentOf(fileName), QByteArray("former"));
    QCOMPARE(folder.names(), QStringList{QStringLiteral("trace.jsonl")});
}

void TstEventJson::cannotBeOpened_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("message");
    QTest::newRow("folder missing") << QStringLiteral("missing/trace.jsonl")
                                    << QStringLiteral("No such file or directory");
    QTest::newRow("directory") << QStringLiteral("directory")
                               << QStringLiteral("Filename refers to a directory");
    QTest::newRow("below a file") << QStringLiteral("file/trace.jsonl") << QStringLiteral("Not a directory");
}

void TstEventJson::cannotBeOpened()
{
    QFETCH(QString, name);
    QFETCH(QString, message);
    ScratchFolder const folder;
    folder.write(QStringLiteral("file"), "former");
    QVERIFY(QDir(folder.path()).mkdir(QStringLiteral("directory")));
    QString const fileName = folder.filePath(name);
    QCOMPARE(complaintOf([&] { TraceFile const trace(fileName); }),
             fileName + QStringLiteral(": ") + message);
    QCOMPARE(folder.names(), QStringList({QStringLiteral("directory"), QStringLiteral("file")}));
    QCOMPARE(contentOf(folder.filePath(QStringLiteral("file"))), QByteArray("former"));
}

void TstEventJson::cannotBeNamed()
{
    ScratchFolder const folder;
    QString const fileName = folder.filePath(QString(300, QLatin1Char('x')));
    QCOMPARE(complaintOf([&] { TraceFile(fileName).close(); }),
             fileName + QStringLiteral(": the trace could not be written: File name too long"));
    QVERIFY(folder.names().isEmpty());
}

void TstEventJson::deviceThatIsFull()
{
    if (!m_writesDirectly)
        QSKIP("what replaces pipes would, run by root, replace this machine's device");
    QString const device = QStringLiteral("/dev/full");
    // A few bytes that are not written before the end, and more than a buffer holds.
    for (int const events : {1, 10'000}) {
        TraceFile trace(device);
        for (int i = 0; i < events; ++i)
            trace.write(i, InstructionWithdrawn{1, 2});
        QCOMPARE(complaintOf([&] { trace.close(); }),
                 QStringLiteral("/dev/full: the trace could not be written: No space left on device"));
    }
    QVERIFY(QFile::exists(device));
}

void TstEventJson::deviceIsWrittenDirectly()
{
    ScratchFolder const folder;
    QString const pipe = folder.filePath(QStringLiteral("pipe"));
    QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {pipe}), 0);
    QProcess reader;
    reader.start(QStringLiteral("cat"), {pipe});
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
    QCOMPARE(folder.names(), QStringList{QStringLiteral("pipe")});
    m_writesDirectly = true;
}

void TstEventJson::diskThatIsFull_data()
{
    QTest::addColumn<int>("events");
    QTest::addColumn<bool>("hasFormer");
    for (int const events : {1, 10'000}) {
        QTest::addRow("%d events", events) << events << false;
        QTest::addRow("%d events, former file", events) << events << true;
    }
}

void TstEventJson::diskThatIsFull()
{
    QFETCH(int, events);
    QFETCH(bool, hasFormer);
    ScratchFolder const folder;
    QString const fileName = folder.filePath(QStringLiteral("trace.jsonl"));
    if (hasFormer)
        folder.write(QStringLiteral("trace.jsonl"), "former");
    QString const complaint = complaintOnASmallDisk(30, [&] {
        TraceFile trace(fileName);
        for (int i = 0; i < events; ++i)
            trace.write(i, InstructionWithdrawn{1, 2});
        trace.close();
    });
    QCOMPARE(complaint, fileName + QStringLiteral(": the trace could not be written: File too large"));
    QCOMPARE(folder.names(), hasFormer ? QStringList{QStringLiteral("trace.jsonl")} : QStringList());
    QCOMPARE(contentOf(fileName), hasFormer ? QByteArray("former") : QByteArray());
}

QTEST_GUILESS_MAIN(TstEventJson)
#include "tst_event_json.moc"
