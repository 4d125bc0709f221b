#include "literals.h"
#include "workplace.h"

#include <QtTest>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <map>

namespace
{

QString const c_examples = QStringLiteral(WORKPLACE_EXAMPLES);

constexpr int c_gigabyte = 1024 * 1024; // in the units of the shell
#if MEMORY_IS_LIMITED
constexpr bool c_isLimited = true;
#else
constexpr bool c_isLimited = false;
#endif
#ifdef NDEBUG
constexpr bool c_isOptimised = true;
#else
constexpr bool c_isOptimised = false;
#endif

void makeSocket(QString const& fileName)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, QFile::encodeName(fileName).constData(), sizeof address.sun_path);
    int const handle = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (::bind(handle, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0)
        qFatal("cannot make a socket");
    ::close(handle);
}

/// A list that makes a file almost as large as a file may be. It has as many items as it can have; a
/// build that is not optimised takes ten times as long for each of them, and there most of the file is
/// blanks.
QByteArray longList(QByteArray const& item, int least = c_isOptimised ? 0 : 64)
{
    constexpr int size = (4 << 20) - 1000;
    QByteArray const one = (item + ',').leftJustified(least);
    return '[' + one.repeated(size / one.size()) + item + ']';
}

/// What a restore told last, "failed FILE: why".
QString lastStatus(QString const& events)
{
    QString status;
    auto const lines = linesOf(events).filter("\"statusData\""_s);
    for (auto const& line : lines) {
        QJsonObject const value = objectOf(line).value("value"_s).toObject();
        status = value.value("state"_s).toString() + QLatin1Char(' ') + value.value("error"_s).toString();
    }
    return status;
}

} // namespace

/// Files that were made to do harm, or that somebody has mistaken for another, wherever the program reads
/// one. Each is refused in one line that says where and what is wrong, within the memory that the program may
/// have; that it takes no time without end is for the time limit of the test.
class TestMalformedFiles : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_workplace.write("empty"_s, "");
        m_workplace.write("brackets"_s, QByteArray(1'000'000, '[') + '\n');
        m_workplace.write("lists"_s, QByteArray(500'000, '[') + QByteArray(500'000, ']') + '\n');
        m_workplace.write("objects"_s, QByteArray("{\"a\":").repeated(500'000) + '\n');
        m_workplace.write("digits"_s, QByteArray(1'000'000, '9') + '\n');
        m_workplace.write("NUL"_s, QByteArray("\0", 1) + "{}\n");
        m_workplace.write("bytes"_s, "{\"\xed\xa0\x80\": 1}\n"); // half a pair
        m_workplace.write("text"_s, "\"" + QByteArray(3'000'000, 'x') + "\"\n");
        // A gigabyte that takes no room on the disk, once with something in front.
        for (auto const& [name, content] : {std::pair{"hole", ""}, {"bracket and hole", "["}})
            QVERIFY(QFile::resize(m_workplace.write(QLatin1String(name), content), 1 << 30));
        QVERIFY(QDir(m_workplace.path()).mkdir("folder"_s));
        QVERIFY(QFile::link("loop"_s, m_workplace.filePath("loop"_s)));
        for (auto const& pipe : {"pipe"_s, "unread"_s})
            QCOMPARE(::mkfifo(QFile::encodeName(m_workplace.filePath(pipe)).constData(), 0600), 0);
        makeSocket(m_workplace.filePath("socket"_s));

        for (auto const& reader : {"sequence"_s, "set-up"_s, "backup"_s, "records"_s})
            start(m_waiting[reader], reading(reader, "pipe"_s));
        start(m_waiting["trace to write"_s], {"run"_s, c_examples + "/init.json"_s, "--trace"_s, "unread"_s});
        start(m_waiting["picture"_s],
              reading("panel"_s, "records.json"_s).replaceInStrings("page.png"_s, "unread"_s));
    }

    void cleanupTestCase()
    {
        // Those that no row asked for.
        for (auto& [name, program] : m_waiting) {
            program.kill();
            program.waitForFinished();
        }
    }

    void refused_data()
    {
        QTest::addColumn<QString>("reader");
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("complaint");
        auto const rows = [](QString const& file, QString const& complaint, QString const& ofTrace,
                             QString const& ofPanel = {}) {
            auto const row = [&file](QString const& reader, QString const& ofReader) {
                QTest::newRow(qPrintable(reader + ": "_s + file)) << reader << file << ofReader;
            };
            for (auto const& reader : {"sequence"_s, "set-up"_s, "backup"_s, "records"_s})
                row(reader, complaint);
            row("panel"_s, ofPanel.isEmpty() ? complaint : ofPanel);
            row("trace"_s, ofTrace);
        };

        QString const end = ":1:1: not JSON: syntax error while parsing value - unexpected end of "
                            "input; expected '[', '{', or a literal"_s;
        QString const deep = ":1: nested deeper than 32 levels"_s;
        QString const large = ": larger than 4 MiB"_s;
        QString const longLine = ":1: longer than 4 MiB"_s;
        QString const noTrace = ":1: this is no trace, it does not start with \"begin\""_s;
        QString const noFile = ": must be a regular file, for it is read twice"_s;
        QString const notAFile = ": not a file"_s;
        QString const loop = ": Too many levels of symbolic links"_s;
        rows("empty"_s, end, ":1: this is no trace, it is empty"_s);
        rows("brackets"_s, deep, noTrace);
        rows("lists"_s, deep, noTrace);
        rows("objects"_s, deep, noTrace);
        rows("digits"_s,
             ":1: not usable JSON: "_s + "number overflow parsing '"_s.leftJustified(200, QLatin1Char('9'))
                 + "..."_s,
             noTrace);
        rows("NUL"_s, ":1:1: not JSON: NUL byte"_s, noTrace);
        rows("bytes"_s,
             ":1:4: not JSON: syntax error while parsing object key - invalid string: ill-formed "
             "UTF-8 byte; last read: '\"\uFFFD\uFFFD'; expected string literal"_s,
             noTrace);
        rows("text"_s, ":1: must be an object, not a text"_s, noTrace);
        rows("hole"_s, large, longLine);
        rows("bracket and hole"_s, large, longLine);
        rows("/dev/zero"_s, large, noFile, notAFile);
        rows("/dev/null"_s, end, noFile, notAFile);
        rows("pipe"_s, ": nobody writes into this pipe"_s, noFile, notAFile);
        rows("socket"_s, ": No such device or address"_s, noFile, notAFile);
        rows("folder"_s, ": file to open is a directory"_s, noFile);
        rows("loop"_s, loop, loop);
    }

    void refused()
    {
        QFETCH(QString, reader);
        QFETCH(QString, file);
        QFETCH(QString, complaint);
        auto const waiting = file == "pipe"_s ? m_waiting.find(reader) : m_waiting.end();
        Outcome const outcome =
            waiting == m_waiting.end() ? run(reading(reader, file)) : Workplace::outcomeOf(waiting->second);
        if (reader != "backup"_s) {
            QCOMPARE(outcome, complains(file + complaint));
            return;
        }
        // The order is what it is wrong with; the controller says why.
        QCOMPARE(outcome.err, QString());
        QString const folder = file.startsWith(QLatin1Char('/')) ? QString() : "./"_s;
        QCOMPARE(lastStatus(outcome.out), "failed "_s + folder + file + complaint);
    }

    void pipeWithoutAReader_data()
    {
        QTest::addColumn<QString>("complaint");
        QTest::newRow("trace to write") << "unread: nobody reads from this pipe"_s;
        QTest::newRow("picture") << "unread: the picture could not be written: nobody reads from this pipe"_s;
    }

    void pipeWithoutAReader()
    {
        QFETCH(QString, complaint);
        Outcome const outcome = Workplace::outcomeOf(m_waiting.at(QLatin1String(QTest::currentDataTag())));
        QCOMPARE(outcome.err, complains(complaint).err);
        QCOMPARE(outcome.exitCode, 2);
    }

    void numbers_data()
    {
        QTest::addColumn<QString>("complaint"); // none if it is taken
        QTest::newRow("-0") << QString();
        for (char const* const number :
             {"-1", "2147483648", "9223372036854775808", "18446744073709551616", "0.5", "1e-999"})
            QTest::newRow(number) << "steps[0].wait: must be a whole number from 0 to 86400000"_s;
        for (char const* const number : {"1e999", "1e99999999999999999999"})
            QTest::newRow(number) << "not usable JSON: number overflow parsing '%1'"_s.arg(
                QLatin1String(number));
    }

    void numbers()
    {
        QFETCH(QString, complaint);
        writeSequence("sequence.json"_s, "{\"wait\": " + QByteArray(QTest::currentDataTag()) + '}');
        Outcome const outcome = run({"run"_s, "sequence.json"_s});
        QCOMPARE(outcome,
                 complaint.isEmpty() ? prints(outcome.out) : complains("sequence.json:1: "_s + complaint));
    }

    void fileThatGrows()
    {
        m_workplace.write("growing"_s, "[");
        QProcess writer;
        writer.setWorkingDirectory(m_workplace.path());
        writer.start("sh"_s, {"-c"_s, "while :; do printf '\\n' >> growing; done"_s});
        QVERIFY(writer.waitForStarted());
        for (int i = 0; i < 10; ++i) {
            Outcome const outcome = run({"run"_s, "growing"_s});
            QCOMPARE(outcome, (Outcome{2, {}, outcome.err}));
            QVERIFY2(outcome.err.contains("unexpected end of input"_s) && linesOf(outcome.err).size() == 1,
                     qPrintable(outcome.err));
        }
        writer.kill();
        writer.waitForFinished();
    }

    void largestFiles_data()
    {
        QTest::addColumn<QByteArray>("item");
        QTest::newRow("numbers") << QByteArray("0");
        QTest::newRow("lists") << QByteArray("[]");
        QTest::newRow("objects") << QByteArray("{}");
        QTest::newRow("texts") << QByteArray("\"\"");
    }

    // Read, expected of a result, told, and written into a trace that is then read again.
    void largestFiles()
    {
        QFETCH(QByteArray, item);
        writeSequence("sequence.json"_s,
                      "{\"order\": \"init\", \"expect\": {\"doneOk\":" + longList(item) + "}}");
        Outcome const outcome = run({"run"_s, "sequence.json"_s, "--trace"_s, "trace.jsonl"_s});
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 1);
        Outcome const replayed = run({"replay"_s, "trace.jsonl"_s});
        QCOMPARE(replayed, prints(replayed.out));
    }

    void notEnoughMemory()
    {
        if (!c_isLimited)
            QSKIP("a sanitizer needs the memory");
        m_workplace.write("numbers"_s, longList("0", 0));
        constexpr int kilobytes = 200'000; // are enough to start with
        QCOMPARE(run({"inspect"_s}, kilobytes).exitCode, 0);
        QCOMPARE(run({"run"_s, "numbers"_s}, kilobytes), complains("not enough memory"_s));
    }

private:
    /// Starts the program with so much memory.
    void start(QProcess& program, QStringList const& arguments, int kilobytes = c_gigabyte) const
    {
        m_workplace.startAfter(c_isLimited ? "ulimit -v %1"_s.arg(kilobytes) : ":"_s, program, arguments);
    }
    Outcome run(QStringList const& arguments, int kilobytes = c_gigabyte) const
    {
        QProcess program;
        start(program, arguments, kilobytes);
        return Workplace::outcomeOf(program);
    }
    void writeSequence(QString const& fileName, QByteArray const& steps) const
    {
        m_workplace.write(fileName, "{\"steps\": [" + steps + "]}");
    }
    /// Has the program read this file as what it is to the reader.
    QStringList reading(QString const& reader, QString const& file) const
    {
        if (reader == "backup"_s) {
            // In a file of its own, which a program may still be about to read.
            QString const sequence = "restore %1.json"_s.arg(QFileInfo(file).fileName());
            writeSequence(sequence, "{\"order\": \"restore\", \"parameters\": {\"filePath\": \""
                                        + file.toUtf8() + "\"}}, {\"wait\": 100}");
            return {"run"_s, "--json"_s, sequence};
        }
        QMap<QString, QString> const commandLines{
            {"sequence"_s, "run"_s},
            {"set-up"_s, "run %1/init.json --controller"_s.arg(c_examples)},
            {"records"_s, "inspect --records"_s},
            {"panel"_s, "panel --tool bench --screenshot page.png --records"_s},
            {"trace"_s, "replay"_s},
        };
        return QProcess::splitCommand(commandLines.value(reader)) + QStringList{file};
    }

    Workplace m_workplace;
    /// The programs that wait three seconds for a pipe, by what they do with it. They wait together.
    std::map<QString, QProcess> m_waiting;
};

QTEST_GUILESS_MAIN(TestMalformedFiles)
#include "tst_malformed_files.moc"
