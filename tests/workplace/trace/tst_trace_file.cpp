#include "complaint.h"
#include "file_size_limit.h"
#include "literals.h"
#include "scratch_folder.h"

#include "trace/event_json.h"
#include "trace/trace_file.h"
#include "trace/trace_reader.h"

#include <QtTest>

namespace
{

QByteArray const c_begin = R"({"time":0,"event":"begin","format":1,"plugin":"P","version":"1.0",)"
                           R"("controller":"ZRT","start":"2000-01-01T00:00:00.000"})"
                           "\n";
QByteArray const c_end = R"({"time":9,"event":"end","done":1,"failed":0,"notRun":0,"droppedReplies":0})"
                         "\n";
QByteArray const c_event = R"({"time":5,"event":"withdrawn","order":1,"instruction":2})"
                           "\n";
QString const c_name = "trace.jsonl"_s;

void write(TraceFile& trace, int events)
{
    for (int i = 0; i < events; ++i)
        trace.write(5, InstructionWithdrawn{1, 2});
}

} // namespace

/// The file of a trace: written as a whole or not at all, and read with a complaint about whatever is wrong.
class TestTraceFile : public QObject
{
    Q_OBJECT

private slots:
    void appearsWhenItIsClosed()
    {
        ScratchFolder const folder;
        QString const fileName = folder.write(c_name, "former");
        TraceFile trace(fileName);
        write(trace, 2);
        {
            TraceFile notClosed(folder.filePath("another.jsonl"_s));
            write(notClosed, 1);
        }
        QCOMPARE(contentOf(fileName), QByteArray("former"));
        trace.close();
        QCOMPARE(contentOf(fileName), c_event + c_event);
        QCOMPARE(folder.names(), QStringList{c_name});
    }

    void cannotBeWritten()
    {
        ScratchFolder const folder;
        QCOMPARE(complaintOf([&] { TraceFile const trace(folder.path()); }),
                 folder.path() + ": Filename refers to a directory"_s);
        QString const longName = folder.filePath(QString(300, QLatin1Char('x')));
        QCOMPARE(complaintOf([&] { TraceFile(longName).close(); }),
                 longName + ": the trace could not be written: File name too long"_s);
        QCOMPARE(folder.names(), QStringList());
    }

    void diskThatIsFull_data()
    {
        QTest::addColumn<int>("events");
        QTest::newRow("fewer than a buffer holds") << 1;
        QTest::newRow("more than a buffer holds") << 10'000;
    }

    void diskThatIsFull()
    {
        QFETCH(int, events);
        ScratchFolder const folder;
        QString const fileName = folder.filePath(c_name);
        auto const record = [&] {
            FileSizeLimit const limit(30);
            TraceFile trace(fileName);
            write(trace, events);
            trace.close();
        };
        QString const complaint = fileName + ": the trace could not be written: File too large"_s;
        QCOMPARE(complaintOf(record), complaint);
        QCOMPARE(folder.names(), QStringList());
        folder.write(c_name, "former");
        QCOMPARE(complaintOf(record), complaint);
        QCOMPARE(contentOf(fileName), QByteArray("former"));
        QCOMPARE(folder.names(), QStringList{c_name});
    }

    void complaints_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("complaint");
        auto const row = [](char const* name, QByteArray const& content, char const* complaint) {
            QTest::newRow(name) << content << QString::fromUtf8(complaint);
        };
        QByteArray const noEvent = "{}\n";
        constexpr int longest = 4 * 1024 * 1024;
        row("empty", "", ":1: this is no trace, it is empty");
        for (QByteArray const& first : {QByteArray("\n"), QByteArray("hello\n"), noEvent, QByteArray("[]\n"),
                                        QByteArray("{\"event\": 1}\n"), c_event, c_end})
            row(("begins with " + first.trimmed()).constData(), first,
                ":1: this is no trace, it does not start with \"begin\"");
        row("unknown event", c_begin + "{\"time\":0,\"event\":\"walk\"}\n",
            ":2: event: unknown event \"walk\"");
        row("line without an event", c_begin + noEvent, ":2: the key \"event\" is missing");
        row("unknown key", c_begin + QByteArray(c_event).replace("}", ",\"why\":3}"),
            ":2: unknown key \"why\", known are event, order, instruction, time");
        row("not JSON further on", c_begin + "{\"time\":1,}\n",
            ":2:11: not JSON: syntax error while parsing object key - unexpected '}'; expected string "
            "literal");
        row("two beginnings", c_begin + c_begin, ":2: \"begin\" stands on the first line alone");
        row("goes on behind the end", c_begin + c_end + c_end, ":3: nothing stands behind \"end\"");
        row("only a beginning", c_begin, ":1: the trace is cut off behind this line");
        row("cut off behind a line", c_begin + c_event, ":2: the trace is cut off behind this line");
        row("cut off in a line", c_begin + c_event.left(20), ":2: the trace is cut off in this line");
        row("cut off before the line break", c_begin + c_end.trimmed(),
            ":2: the trace is cut off in this line");
        QByteArray const newer =
            QByteArray(c_begin).replace("\"format\":1,\"plugin\"", "\"format\":2,\"maker\"");
        row("of a newer version that has other keys", newer + c_end,
            ":1: format: this trace has format 2, from a newer version; this version reads format 1");
        row("format 0", QByteArray(c_begin).replace("\"format\":1", "\"format\":0") + c_end,
            ":1: format: must be a whole number from 1 to 9223372036854775807");
        row("day that there is not", QByteArray(c_begin).replace("01-01T", "02-30T") + c_end,
            ":1: start: must be a date like 2000-01-01T00:00:00.000");
        row("time goes back", c_begin + c_event + QByteArray(c_event).replace("5", "4"),
            ":3: the time goes back, from 5 to 4");
        row("time before the beginning", c_begin + QByteArray(c_event).replace("5", "-1"),
            ":2: time: must be a whole number from 0 to 9007199254740992");
        row("line that is too long", c_begin + QByteArray(longest, ' ') + '\n', ":2: longer than 4 MiB");
        row("longest line", c_begin + QByteArray(longest - noEvent.size(), ' ') + noEvent,
            ":2: the key \"event\" is missing");
    }

    void complaints()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, complaint);
        ScratchFolder const folder;
        QString const fileName = folder.write(c_name, content);
        QCOMPARE(complaintOf([&] {
                     TraceReader reader(fileName);
                     while (reader.next()) {
                     }
                 }),
                 fileName + complaint);
    }
};

QTEST_GUILESS_MAIN(TestTraceFile)
#include "tst_trace_file.moc"
