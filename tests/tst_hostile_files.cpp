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
QString const panelRecords = QStringLiteral("panel");
QString const trace = QStringLiteral("trace");

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
class TstHostileFiles : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void refused_data();
    void refused();
    void pipeWithoutAReader_data();
    void pipeWithoutAReader();
    void numbers_data();
    void numbers();
    void fileThatGrows();
    void largestFiles_data();
    void largestFiles();
    void notEnoughMemory();

private:
    /// Starts the program in the test's folder with so much memory.
    void start(QProcess& program, QStringList const& arguments, int kilobytes = c_gigabyte) const
    {
        program.setWorkingDirectory(m_folder.path());
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("default.debug=false"));
        program.setProcessEnvironment(environment);
        QString const limit = c_isLimited ? QStringLiteral("ulimit -v %1; ").arg(kilobytes) : QString();
        program.start(QStringLiteral("sh"),
                      QStringList{QStringLiteral("-c"), limit + QStringLiteral("exec \"$0\" \"$@\""),
                                  QStringLiteral(WORKPLACE_PROGRAM)}
                          + arguments);
    }
    Outcome run(QStringList const& arguments, int kilobytes = c_gigabyte) const
    {
        QProcess program;
        start(program, arguments, kilobytes);
        return outcomeOf(program);
    }
    QString writeSequence(QByteArray const& steps,
                          QString const& fileName = QStringLiteral("sequence.json")) const
    {
        m_folder.write(fileName, "{\"steps\": [" + steps + "]}");
        return fileName;
    }
    /// Has the program read this file as what it is to the reader.
    QStringList reading(QString const& reader, QString const& file) const;

    ScratchFolder m_folder;
    /// The programs that wait three seconds for a pipe, by what they do with it. They wait together.
    std::map<QString, QProcess> m_waiting;
};

void TstHostileFiles::initTestCase()
{
    m_folder.write(QStringLiteral("empty"), "");
    m_folder.write(QStringLiteral("brackets"), QByteArray(1'000'000, '[') + '\n');
    m_folder.write(QStringLiteral("lists"), QByteArray(500'000, '[') + QByteArray(500'000, ']') + '\n');
    m_folder.write(QStringLiteral("objects"), QByteArray("{\"a\":").repeated(500'000) + '\n');
    m_folder.write(QStringLiteral("digits"), QByteArray(1'000'000, '9') + '\n');
    m_folder.write(QStringLiteral("NUL"), QByteArray("\0", 1) + "{}\n");
    m_folder.write(QStringLiteral("bytes"), "{\"\xed\xa0\x80\": 1}\n"); // half a pair
    m_folder.write(QStringLiteral("text"), "\"" + QByteArray(3'000'000, 'x') + "\"\n");
    // A gigabyte that takes no room on the disk, once with something in front.
    for (auto const& [name, content] : {std::pair{"hole", ""}, {"bracket and hole", "["}}) {
        QString const file = m_folder.write(QLatin1String(name), content);
        QVERIFY(QFile::resize(file, 1 << 30));
    }
    QVERIFY(QDir(m_folder.path()).mkdir(QStringLiteral("folder")));
    QVERIFY(QFile::link(QStringLiteral("loop"), m_folder.filePath(QStringLiteral("loop"))));
    for (char const* const pipe : {"pipe", "unread"})
        QCOMPARE(::mkfifo(QFile::encodeName(m_folder.filePath(QLatin1String(pipe))).constData(), 0600), 0);
    makeSocket(m_folder.filePath(QStringLiteral("socket")));

    for (char const* const reader : {"sequence", "set-up", "backup", "records"}) {
        QString const name = QLatin1String(reader);
        start(m_waiting[name], reading(name, QStringLiteral("pipe")));
    }
    start(m_waiting[QStringLiteral("trace to write")],
          {QStringLiteral("run"), examples + QStringLiteral("/init.json"), QStringLiteral("--trace"),
           QStringLiteral("unread")});
    start(m_waiting[QStringLiteral("picture")],
          {QStringLiteral("panel"), QStringLiteral("--tool"), QStringLiteral("left bench"),
           QStringLiteral("--records"), QStringLiteral("records.json"), QStringLiteral("--screenshot"),
           QStringLiteral("unread")});
}

void TstHostileFiles::cleanupTestCase()
{
    // Those that no row asked for.
    for (auto& [name, program] : m_waiting) {
        program.kill();
        program.waitForFinished();
    }
}

QStringList TstHostileFiles::reading(QString const& reader, QString const& file) const
{
    if (reader == QStringLiteral("backup")) {
        // The order is what it is wrong with; the controller says why.
        // It is in a file of its own, which a program may still be about to read.
        QString const sequence =
            writeSequence("{\"order\": \"restore\", \"parameters\": {\"filePath\": \"" + file.toUtf8()
                              + "\"}}, {\"wait\": 100}",
                          QStringLiteral("restore %1.json").arg(QFileInfo(file).fileName()));
        return {QStringLiteral("run"), QStringLiteral("--json"), sequence};
    }
    QMap<QString, QStringList> const before{
        {QStringLiteral("sequence"), {QStringLiteral("run")}},
        {QStringLiteral("set-up"),
         {QStringLiteral("run"), examples + QStringLiteral("/init.json"), QStringLiteral("--controller")}},
        {QStringLiteral("records"), {QStringLiteral("inspect"), QStringLiteral("--records")}},
        {panelRecords,
         {QStringLiteral("panel"), QStringLiteral("--tool"), QStringLiteral("left bench"),
          QStringLiteral("--screenshot"), QStringLiteral("page.png"), QStringLiteral("--records")}},
        {trace, {QStringLiteral("replay")}},
    };
    return before.value(reader) + QStringList{file};
}

void TstHostileFiles::refused_data()
{
    QTest::addColumn<QString>("reader");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("message");

    QString const end = QStringLiteral(":1:1: not JSON: syntax error while parsing value - unexpected end of "
                                       "input; expected '[', '{', or a literal");
    QString const deep = QStringLiteral(":1: nested deeper than 32 levels");
    QString const large = QStringLiteral(": larger than 4 MiB");
    QString const longLine = QStringLiteral(":1: longer than 4 MiB");
    QString const noTrace = QStringLiteral(":1: this is no trace, it does not start with \"begin\"");
    QString const noFile = QStringLiteral(": must be a regular file, for it is read twice");
    QString const notAFile = QStringLiteral(": not a file");
    struct File
    {
        QString name;
        QString message;
        QString ofTrace;
        QString ofPanel = {}; ///< if it differs
    };
    QList<File> const files{
        {QStringLiteral("empty"), end, QStringLiteral(":1: this is no trace, it is empty")},
        {QStringLiteral("brackets"), deep, noTrace},
        {QStringLiteral("lists"), deep, noTrace},
        {QStringLiteral("objects"), deep, noTrace},
        {QStringLiteral("digits"),
         QStringLiteral(":1: not usable JSON: ")
             + QStringLiteral("number overflow parsing '").leftJustified(200, QLatin1Char('9'))
             + QStringLiteral("..."),
         noTrace},
        {QStringLiteral("NUL"), QStringLiteral(":1:1: not JSON: NUL byte"), noTrace},
        {QStringLiteral("bytes"),
         QStringLiteral(":1:4: not JSON: syntax error while parsing object key - invalid string: ill-formed "
                        "UTF-8 byte; last read: '\"\uFFFD\uFFFD'; expected string literal"),
         noTrace},
        {QStringLiteral("text"), QStringLiteral(":1: must be an object, not a text"), noTrace},
        {QStringLiteral("hole"), large, longLine},
        {QStringLiteral("bracket and hole"), large, longLine},
        {QStringLiteral("/dev/zero"), large, noFile, notAFile},
        {QStringLiteral("/dev/null"), end, noFile, notAFile},
        {QStringLiteral("pipe"), QStringLiteral(": nobody writes into this pipe"), noFile, notAFile},
        {QStringLiteral("socket"), QStringLiteral(": No such device or address"), noFile, notAFile},
        {QStringLiteral("folder"), QStringLiteral(": file to open is a directory"), noFile},
        {QStringLiteral("loop"), QStringLiteral(": Too many levels of symbolic links"),
         QStringLiteral(": Too many levels of symbolic links")},
    };
    for (auto const& file : files) {
        for (char const* const reader : {"sequence", "set-up", "backup", "records", "panel", "trace"}) {
            QString const name = QString::fromLatin1(reader);
            QString const message = name == trace                                     ? file.ofTrace
                                    : name == panelRecords && !file.ofPanel.isEmpty() ? file.ofPanel
                                                                                      : file.message;
            QTest::newRow(qPrintable(name + QStringLiteral(": ") + file.name))
                << name << file.name << message;
        }
    }
}

void TstHostileFiles::refused()
{
    QFETCH(QString, reader);
    QFETCH(QString, file);
    QFETCH(QString, message);
    auto const waiting = file == QStringLiteral("pipe") ? m_waiting.find(reader) : m_waiting.end();
    Outcome const outcome =
        waiting == m_waiting.end() ? run(reading(reader, file)) : outcomeOf(waiting->second);
    if (reader == QStringLiteral("backup")) {
        QString const path = (file.startsWith(QLatin1Char('/')) ? QString() : QStringLiteral("./")) + file;
        QJsonObject status;
        auto const lines = outcome.out.split(QLatin1Char('\n'));
        for (auto const& line : lines) {
            auto const event = QJsonDocument::fromJson(line.toUtf8()).object();
            if (event.value(QLatin1String("key")) == QLatin1String("statusData"))
                status = event.value(QLatin1String("value")).toObject();
        }
        QCOMPARE(status.value(QLatin1String("state")).toString(), QStringLiteral("failed"));
        QCOMPARE(status.value(QLatin1String("error")).toString(), path + message);
        QCOMPARE(outcome.err, QString());
        return;
    }
    QCOMPARE(outcome.err, QStringLiteral("workplace: ") + file + message + QLatin1Char('\n'));
    QCOMPARE(outcome.out, QString());
    QCOMPARE(outcome.exitCode, 2);
}

void TstHostileFiles::pipeWithoutAReader_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("message");
    QTest::newRow("trace") << QStringLiteral("trace to write")
                           << QStringLiteral("unread: nobody reads from this pipe");
    QTest::newRow("picture") << QStringLiteral("picture")
                             << QStringLiteral("unread: the picture could not be written: nobody reads from "
                                               "this pipe");
}

void TstHostileFiles::pipeWithoutAReader()
{
    QFETCH(QString, name);
    QFETCH(QString, message);
    Outcome const outcome = outcomeOf(m_waiting.at(name));
    QCOMPARE(outcome.err, QStringLiteral("workplace: ") + message + QLatin1Char('\n'));
    QCOMPARE(outcome.exitCode, 2);
}

void TstHostileFiles::numbers_data()
{
    QTest::addColumn<QByteArray>("number");
    QTest::addColumn<QString>("message"); // none if it is taken
    QString const range = QStringLiteral(" steps[0].wait: must be a whole number from 0 to 86400000");
    QTest::newRow("minus zero") << QByteArray("-0") << QString();
    QTest::newRow("minus one") << QByteArray("-1") << range;
    QTest::newRow("2^31") << QByteArray("2147483648") << range;
    QTest::newRow("2^63") << QByteArray("9223372036854775808") << range;
    QTest::newRow("2^64") << QByteArray("18446744073709551616") << range;
    QTest::newRow("fraction") << QByteArray("0.5") << range;
    QTest::newRow("fraction below all") << QByteArray("1e-999") << range;
    QTest::newRow("1e999") << QByteArray("1e999")
                           << QStringLiteral(" not usable JSON: number overflow parsing '1e999'");
    QTest::newRow("exponent beyond all")
        << QByteArray("1e99999999999999999999")
        << QStringLiteral(" not usable JSON: number overflow parsing '1e99999999999999999999'");
}

void TstHostileFiles::numbers()
{
    QFETCH(QByteArray, number);
    QFETCH(QString, message);
    writeSequence("{\"wait\": " + number + '}');
    Outcome const outcome = run({QStringLiteral("run"), QStringLiteral("sequence.json")});
    QCOMPARE(outcome.err,
             message.isEmpty() ? QString() : QStringLiteral("workplace: sequence.json:1:%1\n").arg(message));
    QCOMPARE(outcome.exitCode, message.isEmpty() ? 0 : 2);
}

void TstHostileFiles::fileThatGrows()
{
    QString const name = QStringLiteral("growing");
    m_folder.write(name, "[");
    QProcess writer;
    writer.setWorkingDirectory(m_folder.path());
    writer.start(QStringLiteral("sh"),
                 {QStringLiteral("-c"), QStringLiteral("while :; do printf '\\n' >> growing; done")});
    QVERIFY(writer.waitForStarted());
    for (int i = 0; i < 10; ++i) {
        Outcome const outcome = run({QStringLiteral("run"), name});
        QVERIFY2(outcome.err.contains(QStringLiteral("unexpected end of input"))
                     && outcome.err.count(QLatin1Char('\n')) == 1,
                 qPrintable(outcome.err));
        QCOMPARE(outcome.exitCode, 2);
    }
    writer.kill();
    writer.waitForFinished();
}

void TstHostileFiles::largestFiles_data()
{
    QTest::addColumn<QByteArray>("item");
    QTest::newRow("numbers") << QByteArray("0");
    QTest::newRow("lists") << QByteArray("[]");
    QTest::newRow("objects") << QByteArray("{}");
    QTest::newRow("texts") << QByteArray("\"\"");
}

void TstHostileFiles::largestFiles()
{
    // Read, expected of a result, told, and written into a trace that is then read again.
    QFETCH(QByteArray, item);
    writeSequence("{\"order\": \"init\", \"expect\": {\"doneOk\":" + longList(item) + "}}");
    Outcome const outcome = run({QStringLiteral("run"), QStringLiteral("sequence.json"),
                                 QStringLiteral("--trace"), QStringLiteral("trace.jsonl")});
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 1);
    Outcome const replayed = run({QStringLiteral("replay"), QStringLiteral("trace.jsonl")});
    QCOMPARE(replayed.err, QString());
    QCOMPARE(replayed.exitCode, 0);
}

void TstHostileFiles::notEnoughMemory()
{
    if (!c_isLimited)
        QSKIP("a sanitizer needs the memory");
    m_folder.write(QStringLiteral("numbers"), longList("0", 0));
    constexpr int kilobytes = 200'000; // are enough to start with
    QCOMPARE(run({QStringLiteral("inspect")}, kilobytes).exitCode, 0);
    Outcome const outcome = run({QStringLiteral("run"), QStringLiteral("numbers")}, kilobytes);
    QCOMPARE(outcome.err, QStringLiteral("workplace: not enough memory\n"));
    QCOMPARE(outcome.out, QString());
    QCOMPARE(outcome.exitCode, 2);
}

QTEST_GUILESS_MAIN(TstHostileFiles)
#include "tst_hostile_files.moc"
