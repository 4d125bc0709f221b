#include "literals.h"
#include "outcome.h"
#include "scratch_folder.h"

#include <QtTest>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <map>

namespace
{

QString const examples = QStringLiteral(WORKPLACE_EXAMPLES);
QString const panelRecords = "panel"_s;
QString const trace = "trace"_s;

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
        m_folder.write("empty"_s, "");
        m_folder.write("brackets"_s, QByteArray(1'000'000, '[') + '\n');
        m_folder.write("lists"_s, QByteArray(500'000, '[') + QByteArray(500'000, ']') + '\n');
        m_folder.write("objects"_s, QByteArray("{\"a\":").repeated(500'000) + '\n');
        m_folder.write("digits"_s, QByteArray(1'000'000, '9') + '\n');
        m_folder.write("NUL"_s, QByteArray("\0", 1) + "{}\n");
        m_folder.write("bytes"_s, "{\"\xed\xa0\x80\": 1}\n"); // half a pair
        m_folder.write("text"_s, "\"" + QByteArray(3'000'000, 'x') + "\"\n");
        // A gigabyte that takes no room on the disk, once with something in front.
        for (auto const& [name, content] : {std::pair{"hole", ""}, {"bracket and hole", "["}}) {
            QString const file = m_folder.write(QLatin1String(name), content);
            QVERIFY(QFile::resize(file, 1 << 30));
        }
        QVERIFY(QDir(m_folder.path()).mkdir("folder"_s));
        QVERIFY(QFile::link("loop"_s, m_folder.filePath("loop"_s)));
        for (char const* const pipe : {"pipe", "unread"})
            QCOMPARE(::mkfifo(QFile::encodeName(m_folder.filePath(QLatin1String(pipe))).constData(), 0600),
                     0);
        makeSocket(m_folder.filePath("socket"_s));

        for (char const* const reader : {"sequence", "set-up", "backup", "records"}) {
            QString const name = QLatin1String(reader);
            start(m_waiting[name], reading(name, "pipe"_s));
        }
        start(m_waiting["trace to write"_s], {"run"_s, examples + "/init.json"_s, "--trace"_s, "unread"_s});
        start(m_waiting["picture"_s], {"panel"_s, "--tool"_s, "left bench"_s, "--records"_s, "records.json"_s,
                                       "--screenshot"_s, "unread"_s});
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
        QTest::addColumn<QString>("message");

        QString const end = ":1:1: not JSON: syntax error while parsing value - unexpected end of "
                            "input; expected '[', '{', or a literal"_s;
        QString const deep = ":1: nested deeper than 32 levels"_s;
        QString const large = ": larger than 4 MiB"_s;
        QString const longLine = ":1: longer than 4 MiB"_s;
        QString const noTrace = ":1: this is no trace, it does not start with \"begin\""_s;
        QString const noFile = ": must be a regular file, for it is read twice"_s;
        QString const notAFile = ": not a file"_s;
        struct File
        {
            QString name;
            QString message;
            QString ofTrace;
            QString ofPanel = {}; ///< if it differs
        };
        QList<File> const files{
            {"empty"_s, end, ":1: this is no trace, it is empty"_s},
            {"brackets"_s, deep, noTrace},
            {"lists"_s, deep, noTrace},
            {"objects"_s, deep, noTrace},
            {"digits"_s,
             ":1: not usable JSON: "_s + "number overflow parsing '"_s.leftJustified(200, QLatin1Char('9'))
                 + "..."_s,
             noTrace},
            {"NUL"_s, ":1:1: not JSON: NUL byte"_s, noTrace},
            {"bytes"_s,
             ":1:4: not JSON: syntax error while parsing object key - invalid string: ill-formed "
             "UTF-8 byte; last read: '\"\uFFFD\uFFFD'; expected string literal"_s,
             noTrace},
            {"text"_s, ":1: must be an object, not a text"_s, noTrace},
            {"hole"_s, large, longLine},
            {"bracket and hole"_s, large, longLine},
            {"/dev/zero"_s, large, noFile, notAFile},
            {"/dev/null"_s, end, noFile, notAFile},
            {"pipe"_s, ": nobody writes into this pipe"_s, noFile, notAFile},
            {"socket"_s, ": No such device or address"_s, noFile, notAFile},
            {"folder"_s, ": file to open is a directory"_s, noFile},
            {"loop"_s, ": Too many levels of symbolic links"_s, ": Too many levels of symbolic links"_s},
        };
        for (auto const& file : files) {
            for (char const* const reader : {"sequence", "set-up", "backup", "records", "panel", "trace"}) {
                QString const name = QString::fromLatin1(reader);
                QString const message = name == trace                                     ? file.ofTrace
                                        : name == panelRecords && !file.ofPanel.isEmpty() ? file.ofPanel
                                                                                          : file.message;
                QTest::newRow(qPrintable(name + ": "_s + file.name)) << name << file.name << message;
            }
        }
    }

    void refused()
    {
        QFETCH(QString, reader);
        QFETCH(QString, file);
        QFETCH(QString, message);
        auto const waiting = file == "pipe"_s ? m_waiting.find(reader) : m_waiting.end();
        Outcome const outcome =
            waiting == m_waiting.end() ? run(reading(reader, file)) : outcomeOf(waiting->second);
        if (reader == "backup"_s) {
            QString const path = (file.startsWith(QLatin1Char('/')) ? QString() : "./"_s) + file;
            QJsonObject status;
            auto const lines = outcome.out.split(QLatin1Char('\n'));
            for (auto const& line : lines) {
                auto const event = QJsonDocument::fromJson(line.toUtf8()).object();
                if (event.value(QLatin1String("key")) == QLatin1String("statusData"))
                    status = event.value(QLatin1String("value")).toObject();
            }
            QCOMPARE(status.value(QLatin1String("state")).toString(), "failed"_s);
            QCOMPARE(status.value(QLatin1String("error")).toString(), path + message);
            QCOMPARE(outcome.err, QString());
            return;
        }
        QCOMPARE(outcome.err, "workplace: "_s + file + message + QLatin1Char('\n'));
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
    }

    void pipeWithoutAReader_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("message");
        QTest::newRow("trace") << "trace to write"_s
                               << "unread: nobody reads from this pipe"_s;
        QTest::newRow("picture") << "picture"_s
                                 << "unread: the picture could not be written: nobody reads from "
                                    "this pipe"_s;
    }

    void pipeWithoutAReader()
    {
        QFETCH(QString, name);
        QFETCH(QString, message);
        Outcome const outcome = outcomeOf(m_waiting.at(name));
        QCOMPARE(outcome.err, "workplace: "_s + message + QLatin1Char('\n'));
        QCOMPARE(outcome.exitCode, 2);
    }

    void numbers_data()
    {
        QTest::addColumn<QByteArray>("number");
        QTest::addColumn<QString>("message"); // none if it is taken
        QString const range = " steps[0].wait: must be a whole number from 0 to 86400000"_s;
        QTest::newRow("minus zero") << QByteArray("-0") << QString();
        QTest::newRow("minus one") << QByteArray("-1") << range;
        QTest::newRow("2^31") << QByteArray("2147483648") << range;
        QTest::newRow("2^63") << QByteArray("9223372036854775808") << range;
        QTest::newRow("2^64") << QByteArray("18446744073709551616") << range;
        QTest::newRow("fraction") << QByteArray("0.5") << range;
        QTest::newRow("fraction below all") << QByteArray("1e-999") << range;
        QTest::newRow("1e999") << QByteArray("1e999")
                               << " not usable JSON: number overflow parsing '1e999'"_s;
        QTest::newRow("exponent beyond all")
            << QByteArray("1e99999999999999999999")
            << " not usable JSON: number overflow parsing '1e99999999999999999999'"_s;
    }

    void numbers()
    {
        QFETCH(QByteArray, number);
        QFETCH(QString, message);
        writeSequence("{\"wait\": " + number + '}');
        Outcome const outcome = run({"run"_s, "sequence.json"_s});
        QCOMPARE(outcome.err,
                 message.isEmpty() ? QString() : "workplace: sequence.json:1:%1\n"_s.arg(message));
        QCOMPARE(outcome.exitCode, message.isEmpty() ? 0 : 2);
    }

    void fileThatGrows()
    {
        QString const name = "growing"_s;
        m_folder.write(name, "[");
        QProcess writer;
        writer.setWorkingDirectory(m_folder.path());
        writer.start("sh"_s, {"-c"_s, "while :; do printf '\\n' >> growing; done"_s});
        QVERIFY(writer.waitForStarted());
        for (int i = 0; i < 10; ++i) {
            Outcome const outcome = run({"run"_s, name});
            QVERIFY2(outcome.err.contains("unexpected end of input"_s)
                         && outcome.err.count(QLatin1Char('\n')) == 1,
                     qPrintable(outcome.err));
            QCOMPARE(outcome.exitCode, 2);
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

    void largestFiles()
    {
        // Read, expected of a result, told, and written into a trace that is then read again.
        QFETCH(QByteArray, item);
        writeSequence("{\"order\": \"init\", \"expect\": {\"doneOk\":" + longList(item) + "}}");
        Outcome const outcome = run({"run"_s, "sequence.json"_s, "--trace"_s, "trace.jsonl"_s});
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 1);
        Outcome const replayed = run({"replay"_s, "trace.jsonl"_s});
        QCOMPARE(replayed.err, QString());
        QCOMPARE(replayed.exitCode, 0);
    }

    void notEnoughMemory()
    {
        if (!c_isLimited)
            QSKIP("a sanitizer needs the memory");
        m_folder.write("numbers"_s, longList("0", 0));
        constexpr int kilobytes = 200'000; // are enough to start with
        QCOMPARE(run({"inspect"_s}, kilobytes).exitCode, 0);
        Outcome const outcome = run({"run"_s, "numbers"_s}, kilobytes);
        QCOMPARE(outcome.err, "workplace: not enough memory\n"_s);
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
    }

private:
    /// Starts the program in the test's folder with so much memory.
    void start(QProcess& program, QStringList const& arguments, int kilobytes = c_gigabyte) const
    {
        program.setWorkingDirectory(m_folder.path());
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert("QT_LOGGING_RULES"_s, "default.debug=false"_s);
        program.setProcessEnvironment(environment);
        QString const limit = c_isLimited ? "ulimit -v %1; "_s.arg(kilobytes) : QString();
        program.start("sh"_s,
                      QStringList{"-c"_s, limit + "exec \"$0\" \"$@\""_s, QStringLiteral(WORKPLACE_PROGRAM)}
                          + arguments);
    }
    Outcome run(QStringList const& arguments, int kilobytes = c_gigabyte) const
    {
        QProcess program;
        start(program, arguments, kilobytes);
        return outcomeOf(program);
    }
    QString writeSequence(QByteArray const& steps, QString const& fileName = "sequence.json"_s) const
    {
        m_folder.write(fileName, "{\"steps\": [" + steps + "]}");
        return fileName;
    }
    /// Has the program read this file as what it is to the reader.
    QStringList reading(QString const& reader, QString const& file) const
    {
        if (reader == "backup"_s) {
            // The order is what it is wrong with; the controller says why.
            // It is in a file of its own, which a program may still be about to read.
            QString const sequence =
                writeSequence("{\"order\": \"restore\", \"parameters\": {\"filePath\": \"" + file.toUtf8()
                                  + "\"}}, {\"wait\": 100}",
                              "restore %1.json"_s.arg(QFileInfo(file).fileName()));
            return {"run"_s, "--json"_s, sequence};
        }
        QMap<QString, QStringList> const before{
            {"sequence"_s, {"run"_s}},
            {"set-up"_s, {"run"_s, examples + "/init.json"_s, "--controller"_s}},
            {"records"_s, {"inspect"_s, "--records"_s}},
            {panelRecords,
             {"panel"_s, "--tool"_s, "left bench"_s, "--screenshot"_s, "page.png"_s, "--records"_s}},
            {trace, {"replay"_s}},
        };
        return before.value(reader) + QStringList{file};
    }

    ScratchFolder m_folder;
    /// The programs that wait three seconds for a pipe, by what they do with it. They wait together.
    std::map<QString, QProcess> m_waiting;
};

QTEST_GUILESS_MAIN(TestMalformedFiles)
#include "tst_malformed_files.moc"
