#include "outcome.h"
#include "scratch_folder.h"

#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

namespace
{

QString const panel = QStringLiteral("panel");
QString const inspect = QStringLiteral("inspect");
QString const json = QStringLiteral("--json");
QString const tool = QStringLiteral("left bench");
QString const recordsName = QStringLiteral("records.json");
QString const pictureName = QStringLiteral("page.png");
QString const noScreen = QStringLiteral("workplace: no screen to open a window on: ");
QString const noScreenHint = QStringLiteral("; --screenshot FILE makes a picture without one\n");

/// A record whose validity ends so many days after today; the day may change while a test runs, so no number
/// that is compared may depend on it.
QByteArray recordUntil(int days, int alert)
{
    return "{\"validityDate\": \"" + QDate::currentDate().addDays(days).toString(Qt::ISODate).toUtf8()
           + "\", \"alertBeforeExpiration\": " + QByteArray::number(alert) + '}';
}

QStringList linesOf(QString const& text)
{
    QStringList lines = text.split(QLatin1Char('\n'));
    if (lines.takeLast() != QString())
        qFatal("the last line has no end: %s", qPrintable(text));
    return lines;
}

QJsonObject objectOf(QString const& line)
{
    return QJsonDocument::fromJson(line.toUtf8()).object();
}

/// A text that counts days and names a day, without either.
QString withoutDays(QString text)
{
    return text.replace(QRegularExpression(QStringLiteral(R"(\d{4}-\d\d-\d\d)")), QStringLiteral("DAY"))
        .replace(QRegularExpression(QStringLiteral(R"(\d+ days)")), QStringLiteral("N days"));
}

} // namespace

/// The maintenance side of the program as a user runs it: exit codes and every byte on its channels.
class TstPanelCli : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_folder.emplace(); }

    void help();
    void badUsage_data();
    void badUsage();
    void badInput_data();
    void badInput();
    void noScreenAtAll();
    void unreachableScreen_data();
    void unreachableScreen();

    void picture_data();
    void picture();
    void themes();
    void pictureReplacesPicture();
    void pictureIntoAPipe();
    void failedPicture_data();
    void failedPicture();
    void pictureOnAFullDisk();
    void pictureIsNotWrittenOverInput_data();
    void pictureIsNotWrittenOverInput();
    void pluginWithoutAPage();
    void pictureLeavesRecords_data();
    void pictureLeavesRecords();
    void outputThatFails();

    void states_data();
    void states();
    void hostileNames_data();
    void hostileNames();
    void complaints_data();
    void complaints();

    void inspectRecords_data();
    void inspectRecords();
    void defaultPlaceIsMade();
    void inspectWithoutRecords();
    void inspectBadRecords_data();
    void inspectBadRecords();

private:
    /// Runs the program in the test's folder without a screen, and with the default place for records in
    /// `data`.
    Outcome run(QStringList const& arguments, QMap<QString, QString> const& variables = {},
                QString const& output = {}) const
    {
        return run(QStringLiteral(WORKPLACE_PROGRAM), arguments, variables, output);
    }
    Outcome run(QString const& programFile, QStringList const& arguments,
                QMap<QString, QString> const& variables, QString const& output) const
    {
        QProcess program;
        program.setWorkingDirectory(m_folder->path());
        auto environment = QProcessEnvironment::systemEnvironment();
        for (char const* const name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            environment.remove(QLatin1String(name));
        environment.insert(QStringLiteral("XDG_DATA_HOME"), m_folder->filePath(QStringLiteral("data")));
        environment.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("default.debug=false"));
        for (auto it = variables.cbegin(); it != variables.cend(); ++it)
            environment.insert(it.key(), it.value());
        program.setProcessEnvironment(environment);
        if (!output.isEmpty())
            program.setStandardOutputFile(output);
        program.start(programFile, arguments);
        return outcomeOf(program);
    }
    /// Makes a picture of the page of the left bench.
    Outcome takePicture(QStringList const& options = {}) const
    {
        return run(QStringList{panel, QStringLiteral("--tool"), tool, QStringLiteral("--screenshot"),
                               pictureName, QStringLiteral("--records"), recordsName}
                   + options);
    }

    std::optional<ScratchFolder> m_folder;
};

void TstPanelCli::help()
{
    Outcome const outcome = run({panel, QStringLiteral("--help")});
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 0);
    for (auto const& one :
         {QStringLiteral("Usage: workplace panel [OPTIONS]"), QStringLiteral("--tool NAME REQUIRED  "),
          QStringLiteral("--records FILE  "), QStringLiteral("--screenshot FILE  "),
          QStringLiteral("--size WIDTHxHEIGHT  "), QStringLiteral("--theme "),
          QStringLiteral("--plugin FILE  "), QStringLiteral("--json  "),
          m_folder->filePath(QStringLiteral("data/workplace/maintenance.json"))})
        QVERIFY2(outcome.out.contains(one), qPrintable(one + QLatin1Char('\n') + outcome.out));
    QCOMPARE(m_folder->names(), QStringList());
    QVERIFY(run({inspect, QStringLiteral("--help")}).out.contains(QStringLiteral("--records FILE")));
    QVERIFY(run({QStringLiteral("--help")}).out.contains(QStringLiteral("panel  ")));
}

void TstPanelCli::badUsage_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");
    auto const row = [](char const* name, QStringList const& arguments, char const* message) {
        QTest::newRow(name) << QStringList{panel} + arguments << QString::fromUtf8(message);
    };
    auto const option = [&row](char const* name, char const* value, char const* message) {
        row(qPrintable(QStringLiteral("%1 %2").arg(QLatin1String(name), QLatin1String(value))),
            {QStringLiteral("--tool"), tool, QLatin1String(name), QLatin1String(value)}, message);
    };
    row("no tool", {}, "--tool is required");
    row("no tool, but all else", {QStringLiteral("--screenshot"), pictureName}, "--tool is required");
    row("empty tool", {QStringLiteral("--tool"), QString()}, "--tool: no name given");
    row("tool without its name", {QStringLiteral("--tool")}, "--tool: 1 required NAME missing");
    row("tool twice",
        {QStringLiteral("--tool"), tool, QStringLiteral("--tool"), QStringLiteral("right bench")},
        "--tool: At Most 1 required but received 2");
    row("second name", {QStringLiteral("--tool"), tool, QStringLiteral("right bench")},
        "The following argument was not expected: right bench");
    row("option of another verb", {QStringLiteral("--tool"), tool, QStringLiteral("--markdown")},
        "The following argument was not expected: --markdown");
    char const* const notASize = "--size: not a size from 320x240 to 8192x8192";
    for (char const* const size :
         {"", "x", "800", "800x", "x600", "800x600x1", "239x600", "600x239", "8193x600", "600x8193",
          "-800x600", "0x0", "800*600", "800X600", "8e2x600", "99999999999x600", "800.5x600", "axb"})
        option("--size", size, notASize);
    option("--theme", "blue", "--theme: blue not in {light,dark}");
    option("--theme", "Dark", "--theme: Dark not in {light,dark}");
    option("--theme", "", "--theme:  not in {light,dark}");
    for (char const* const name : {"--records", "--screenshot", "--plugin"})
        option(name, "", qPrintable(QLatin1String(name) + QStringLiteral(": no file name given")));
}

void TstPanelCli::badUsage()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);
    Outcome const outcome = run(arguments);
    QCOMPARE(outcome.err, QStringLiteral("workplace: ") + message
                              + QStringLiteral("; workplace --help shows what there is\n"));
    QCOMPARE(outcome.out, QString());
    QCOMPARE(outcome.exitCode, 2);
    QCOMPARE(m_folder->names(), QStringList());
}

void TstPanelCli::badInput_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("message");
    auto const records = [](char const* name, QString const& file, char const* message) {
        QTest::newRow(name) << QStringList{QStringLiteral("--records"), file} << QString::fromUtf8(message);
    };
    auto const plugin = [](char const* name, QString const& file, QString const& message) {
        QTest::newRow(name) << QStringList{QStringLiteral("--plugin"), file}
                            << file + QStringLiteral(": ") + message;
    };
    records("records: missing folder", QStringLiteral("missing/records.json"),
            "missing/records.json: there is no folder missing");
    records("records: below a file", QStringLiteral("malformed.json/records.json"),
            "malformed.json/records.json: there is no folder malformed.json");
    records("records: folder", QStringLiteral("empty"), "empty: file to open is a directory");
    records("records: pipe", QStringLiteral("pipe"), "pipe: not a file");
    records(
        "records: malformed", QStringLiteral("malformed.json"),
        "malformed.json:2:4: not JSON: syntax error while parsing object key - invalid literal; last read: "
        "'{<U+000A>  to'; expected string literal");
    records("records: truncated", QStringLiteral("truncated.json"),
            "truncated.json:1:12: not JSON: syntax error while parsing object key - unexpected end of input; "
            "expected string literal");
    records("records: unknown key", QStringLiteral("unknown.json"),
            "unknown.json:2: unknown key \"tool\", known are tools");
    records("records: name with a line break", QStringLiteral("a\nb/records.json"),
            "a\\nb/records.json: there is no folder a\\nb");

    plugin("plugin: missing", QStringLiteral("missing.so"), QStringLiteral("No such file or directory"));
    plugin("plugin: folder without one", QStringLiteral("empty"),
           QStringLiteral("no library in this folder is a plugin for \"*.rd.box.PToolVeskZrt\""));
    plugin("plugin: text", QStringLiteral("malformed.json"), QStringLiteral("not a Qt plugin"));
    plugin("plugin: another interface", QStringLiteral(ODD_INTERFACE_FILE),
           QStringLiteral(
               "its interface is \"odd.rd.box.PToolVeskOther\", wanted is \"*.rd.box.PToolVeskZrt\""));
}

void TstPanelCli::badInput()
{
    QFETCH(QStringList, options);
    QFETCH(QString, message);
    QDir(m_folder->path()).mkdir(QStringLiteral("empty"));
    QCOMPARE(::mkfifo(QFile::encodeName(m_folder->filePath(QStringLiteral("pipe"))).constData(), 0600), 0);
    m_folder->write(QStringLiteral("malformed.json"), "{\n  tools: {}}\n");
    m_folder->write(QStringLiteral("truncated.json"), "{\"tools\": {");
    m_folder->write(QStringLiteral("unknown.json"), "{\"tools\": {},\n\"tool\": {}}");
    QStringList names = m_folder->names();
    for (auto const& more : {QStringList(), QStringList{json}}) {
        Outcome const outcome = run(
            QStringList{panel, QStringLiteral("--tool"), tool, QStringLiteral("--screenshot"), pictureName}
            + options + more);
        QCOMPARE(outcome.err, QStringLiteral("workplace: ") + message + QLatin1Char('\n'));
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
    }
    QStringList left = m_folder->names();
    left.removeAll(QStringLiteral("data"));
    QCOMPARE(left, names);
    QCOMPARE(contentOf(m_folder->filePath(QStringLiteral("truncated.json"))), QByteArray("{\"tools\": {"));
}

void TstPanelCli::noScreenAtAll()
{
    Outcome const outcome = run({panel, QStringLiteral("--tool"), tool});
    QCOMPARE(outcome.err, noScreen + QStringLiteral("DISPLAY is not set") + noScreenHint);
    QCOMPARE(outcome.out, QString());
    QCOMPARE(outcome.exitCode, 2);
    QCOMPARE(m_folder->names(), QStringList());
}

void TstPanelCli::unreachableScreen_data()
{
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("says");
    auto const row = [](char const* name, char const* variable, char const* value, char const* says) {
        QTest::newRow(name) << QString::fromLatin1(variable) << QString::fromLatin1(value)
                            << QString::fromLatin1(says);
    };
    row("no such display", "DISPLAY", ":99999", "display :99999");
    row("not a display", "DISPLAY", "nonsense", "display nonsense");
    row("no such compositor", "WAYLAND_DISPLAY", "missing-0", "");
    row("no such platform", "QT_QPA_PLATFORM", "nonsense", "platform plugin \"nonsense\"");
}

void TstPanelCli::unreachableScreen()
{
    QFETCH(QString, variable);
    QFETCH(QString, value);
    QFETCH(QString, says);
    Outcome const outcome = run({panel, QStringLiteral("--tool"), tool}, {{variable, value}});
    QVERIFY2(outcome.err.startsWith(noScreen) && outcome.err.endsWith(noScreenHint), qPrintable(outcome.err));
    QVERIFY2(outcome.err.contains(says), qPrintable(outcome.err));
    QCOMPARE(linesOf(outcome.err).size(), 1);
    QVERIFY2(!outcome.err.contains(QStringLiteral("Reinstalling")), qPrintable(outcome.err));
    QCOMPARE(outcome.out, QString());
    QCOMPARE(outcome.exitCode, 2);
    // No core either.
    QCOMPARE(m_folder->names(), QStringList());
}

void TstPanelCli::picture_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QSize>("size");
    QTest::newRow("default") << QStringList() << QSize(1280, 800);
    for (auto const& size :
         {QSize(320, 240), QSize(320, 1000), QSize(1000, 240), QSize(800, 600), QSize(3840, 2160)}) {
        QString const text =
            QStringLiteral("%1x%2").arg(QString::number(size.width()), QString::number(size.height()));
        QTest::newRow(qPrintable(text)) << QStringList{QStringLiteral("--size"), text} << size;
    }
}

void TstPanelCli::picture()
{
    QFETCH(QStringList, options);
    QFETCH(QSize, size);
    Outcome const outcome = takePicture(options);
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.out, QStringLiteral("left bench: no maintenance validity is set\n"
                                         "left bench: picture in page.png\n"));
    QCOMPARE(outcome.exitCode, 0);
    // Records that are not there are not made for a look at them.
    QCOMPARE(m_folder->names(), QStringList{pictureName});
    QImage const image(m_folder->filePath(pictureName), "PNG");
    QCOMPARE(image.size(), size);
    // Something is on it.
    QSet<QRgb> colors;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            colors.insert(image.pixel(x, y));
    }
    QVERIFY2(colors.size() > 10, qPrintable(QString::number(colors.size())));
}

void TstPanelCli::themes()
{
    QMap<QString, int> brightness;
    for (auto const& theme : {QStringLiteral("light"), QStringLiteral("dark")}) {
        QCOMPARE(takePicture({QStringLiteral("--theme"), theme}).exitCode, 0);
        QImage const image(m_folder->filePath(pictureName), "PNG");
        QVERIFY(!image.isNull());
        brightness[theme] = qGray(image.pixel(2, image.height() / 2));
    }
    QVERIFY(brightness[QStringLiteral("light")] > 200);
    QVERIFY(brightness[QStringLiteral("dark")] < 80);
}

void TstPanelCli::pictureReplacesPicture()
{
    m_folder->write(pictureName, QByteArray(1'000'000, 'x'));
    QCOMPARE(takePicture({json}).exitCode, 0);
    QCOMPARE(QImage(m_folder->filePath(pictureName), "PNG").size(), QSize(1280, 800));
    QVERIFY(QFileInfo(m_folder->filePath(pictureName)).size() < 1'000'000);
}

void TstPanelCli::pictureIntoAPipe()
{
    QString const pipe = m_folder->filePath(pictureName);
    QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    QProcess reader;
    reader.start(QStringLiteral("cat"), {pipe});
    QVERIFY(reader.waitForStarted());
    Outcome const outcome = takePicture();
    // A pipe that was replaced leaves its reader without a writer.
    bool const isPipe = !QFileInfo(pipe).isFile();
    if (!isPipe)
        reader.kill();
    QVERIFY(reader.waitForFinished());
    QVERIFY(isPipe);
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(QImage::fromData(reader.readAllStandardOutput(), "PNG").size(), QSize(1280, 800));
}

void TstPanelCli::failedPicture_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("message");
    QTest::newRow("missing folder") << QStringLiteral("missing/page.png")
                                    << QStringLiteral("No such file or directory");
    QTest::newRow("folder") << QStringLiteral("folder") << QStringLiteral("Filename refers to a directory");
    QTest::newRow("below a file") << QStringLiteral("file/page.png") << QStringLiteral("Not a directory");
}

void TstPanelCli::failedPicture()
{
    QFETCH(QString, file);
    QFETCH(QString, message);
    QDir(m_folder->path()).mkdir(QStringLiteral("folder"));
    m_folder->write(QStringLiteral("file"), "");
    QStringList const names = m_folder->names();
    Outcome const failed = run({panel, QStringLiteral("--tool"), tool, QStringLiteral("--records"),
                                recordsName, QStringLiteral("--screenshot"), file});
    QCOMPARE(failed.err,
             QStringLiteral("workplace: %1: the picture could not be written: %2\n").arg(file, message));
    QCOMPARE(failed.out, QStringLiteral("left bench: no maintenance validity is set\n"));
    QCOMPARE(failed.exitCode, 2);
    QCOMPARE(m_folder->names(), names);
}

void TstPanelCli::pictureOnAFullDisk()
{
    m_folder->write(pictureName, "former");
    ScratchFolder const cache; // whatever would be kept there has no room either
    // Room for two blocks of a picture that takes more. Where coverage is counted, the counters have no room
    // either; what they say of that is not the program's.
    Outcome const outcome =
        run(QStringLiteral("sh"),
            {QStringLiteral("-c"),
             QStringLiteral(
                 "ulimit -f 2; export XDG_CACHE_HOME='%1' GCOV_ERROR_FILE=/dev/null; exec \"$0\" \"$@\"")
                 .arg(cache.path()),
             QStringLiteral(WORKPLACE_PROGRAM), panel, QStringLiteral("--tool"), tool,
             QStringLiteral("--records"), recordsName, QStringLiteral("--screenshot"), pictureName},
            {}, {});
    QCOMPARE(outcome.err,
             QStringLiteral("workplace: page.png: the picture could not be written: File too large\n"));
    QCOMPARE(outcome.exitCode, 2);
    QCOMPARE(contentOf(m_folder->filePath(pictureName)), QByteArray("former"));
    QCOMPARE(m_folder->names(), QStringList{pictureName});
}

void TstPanelCli::pictureIsNotWrittenOverInput_data()
{
    QTest::addColumn<QString>("picture");
    QTest::newRow("records") << recordsName;
    QTest::newRow("records by another name") << QStringLiteral("./../%1/") + recordsName;
    QTest::newRow("records by a link") << QStringLiteral("link.json");
    QTest::newRow("plugin") << QStringLiteral("plugin.so");
}

void TstPanelCli::pictureIsNotWrittenOverInput()
{
    QFETCH(QString, picture);
    QByteArray const content = R"({"tools": {}})";
    QString const records = m_folder->write(recordsName, content);
    QByteArray const plugin = contentOf(QStringLiteral(ODD_INSTANCES_FILE));
    QString const pluginCopy = m_folder->write(QStringLiteral("plugin.so"), plugin);
    QVERIFY(QFile::link(records, m_folder->filePath(QStringLiteral("link.json"))));
    QStringList const names = m_folder->names();
    picture.replace(QStringLiteral("%1"), QFileInfo(m_folder->path()).fileName());
    Outcome const outcome = run({panel, QStringLiteral("--tool"), tool, QStringLiteral("--records"),
                                 recordsName, QStringLiteral("--plugin"), QStringLiteral("plugin.so"),
                                 QStringLiteral("--screenshot"), picture});
    QCOMPARE(outcome.err,
             QStringLiteral("workplace: %1: the picture would overwrite what the page needs\n").arg(picture));
    QCOMPARE(outcome.out, QString());
    QCOMPARE(outcome.exitCode, 2);
    QCOMPARE(m_folder->names(), names);
    QCOMPARE(contentOf(records), content);
    QVERIFY(contentOf(pluginCopy) == plugin);
}

void TstPanelCli::pluginWithoutAPage()
{
    Outcome const outcome = takePicture({QStringLiteral("--plugin"), QStringLiteral(ODD_INSTANCES_FILE)});
    static QRegularExpression const message(QStringLiteral(
        R"(\Aworkplace: .*: has no maintenance page \(:/\{[-0-9a-f]+\}/maintenance_panel\.qml\)\n\z)"));
    QVERIFY2(message.match(outcome.err).hasMatch(), qPrintable(outcome.err));
    QCOMPARE(outcome.exitCode, 2);
    QCOMPARE(m_folder->names(), QStringList());
}

void TstPanelCli::pictureLeavesRecords_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("whole") << QByteArray(
        R"({"tools": {"left bench": {"validityDate": null, "serialNumber": "S"}}})");
    QTest::newRow("of other tools") << QByteArray(R"({"tools": {"right bench": {}}})");
    QTest::newRow("wrong fields") << QByteArray(R"({"tools": {"left bench": {"serialNumber": 1, "x": []}}})");
}

void TstPanelCli::pictureLeavesRecords()
{
    QFETCH(QByteArray, content);
    QByteArray const file = QFile::encodeName(m_folder->write(recordsName, content));
    timespec const times[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    QCOMPARE(::utimensat(AT_FDCWD, file.constData(), times, 0), 0);
    struct stat before = {};
    ::stat(file.constData(), &before);
    QCOMPARE(takePicture().exitCode, 0);
    struct stat after = {};
    ::stat(file.constData(), &after);
    QCOMPARE(after.st_ino, before.st_ino);
    QCOMPARE(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    QCOMPARE(contentOf(m_folder->filePath(recordsName)), content);
    QCOMPARE(m_folder->names(), QStringList({pictureName, recordsName}));
}

void TstPanelCli::outputThatFails()
{
    Outcome const outcome = run({panel, QStringLiteral("--tool"), tool, QStringLiteral("--records"),
                                 recordsName, QStringLiteral("--screenshot"), pictureName},
                                {}, QStringLiteral("/dev/full"));
    QCOMPARE(outcome.err, QStringLiteral("workplace: standard output: No space left on device\n"));
    QCOMPARE(outcome.exitCode, 2);
}

void TstPanelCli::states_data()
{
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("state");
    QTest::addColumn<bool>("hasDate");
    auto const row = [](char const* name, QByteArray const& record, char const* text, char const* state,
                        bool hasDate) {
        QTest::newRow(name) << record << QString::fromUtf8(text) << QString::fromUtf8(state) << hasDate;
    };
    row("not set", "{}", "no maintenance validity is set", "notSet", false);
    row("null", R"({"validityDate": null, "alertBeforeExpiration": 365})", "no maintenance validity is set",
        "notSet", false);
    row("permanent", R"({"validityDate": "", "alertBeforeExpiration": 365})", "maintenance valid permanently",
        "permanent", false);
    row("valid", recordUntil(200, 100), "maintenance valid until DAY, N days left", "valid", true);
    row("due", recordUntil(50, 100), "maintenance due: valid until DAY, N days left", "due", true);
    row("overdue", recordUntil(-50, 100), "maintenance overdue: it was valid until DAY, N days ago",
        "overdue", true);
    row("unreadable", R"({"validityDate": "so\non"})", "the maintenance validity is no date: \"so\\non\"",
        "unreadable", false);
}

void TstPanelCli::states()
{
    QFETCH(QByteArray, record);
    QFETCH(QString, text);
    QFETCH(QString, state);
    QFETCH(bool, hasDate);
    m_folder->write(recordsName, "{\"tools\": {\"right bench\": {}, \"left bench\": " + record + "}}");

    Outcome outcome = takePicture();
    QCOMPARE(outcome.err, QString());
    QCOMPARE(withoutDays(outcome.out),
             QStringLiteral("left bench: %1\nleft bench: picture in page.png\n").arg(text));
    outcome = takePicture({json});
    QCOMPARE(outcome.err, QString());
    QStringList const lines = linesOf(outcome.out);
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines[1],
             QStringLiteral(R"({"kind":"picture","tool":"%1","file":"%2"})").arg(tool, pictureName));
    auto const line = objectOf(lines[0]);
    QCOMPARE(line.value(QStringLiteral("kind")).toString(), QStringLiteral("maintenance"));
    QCOMPARE(line.value(QStringLiteral("tool")).toString(), tool);
    QCOMPARE(line.value(QStringLiteral("state")).toString(), state);
    auto const validity = QJsonDocument::fromJson(record).object().value(QStringLiteral("validityDate"));
    QCOMPARE(line.value(QStringLiteral("validityDate")).toString(), validity.toString());
    QCOMPARE(line.contains(QStringLiteral("daysLeft")), hasDate);
    if (hasDate) {
        auto const date = QDate::fromString(validity.toString(), Qt::ISODate);
        // The program saw this day or the one before.
        qint64 const left = QDate::currentDate().daysTo(date);
        int const said = line.value(QStringLiteral("daysLeft")).toInt();
        QVERIFY2(said == left || said == left + 1, qPrintable(QString::number(said)));
    }
    auto const saved = objectOf(lines[1]);
    QCOMPARE(saved.value(QStringLiteral("tool")).toString(), tool);
    QCOMPARE(saved.value(QStringLiteral("file")).toString(), pictureName);

    // The same from the other verb, for all tools.
    outcome = run({inspect, QStringLiteral("--records"), recordsName});
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(withoutDays(outcome.out.section(QStringLiteral("\nMaintenance\n"), 1)),
             QStringLiteral("left bench: %1\nright bench: no maintenance validity is set\n").arg(text));
    outcome = run({inspect, json, QStringLiteral("--records"), recordsName});
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 0);
    QStringList const inspected = linesOf(outcome.out).filter(QStringLiteral("\"kind\":\"maintenance\""));
    QCOMPARE(inspected.size(), 2);
    QCOMPARE(objectOf(inspected[0]).keys(), line.keys());
    QCOMPARE(objectOf(inspected[0]).value(QStringLiteral("state")).toString(), state);
    QCOMPARE(inspected[1], QStringLiteral(R"({"kind":"maintenance","tool":"right bench","state":"notSet"})"));
}

void TstPanelCli::hostileNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("shownName");
    auto const row = [](char const* what, QString const& name, QString const& shownName = {}) {
        QTest::newRow(what) << name << (shownName.isNull() ? name : shownName);
    };
    row("end of the string", QStringLiteral("\"; Qt.quit(); //"));
    row("call", QStringLiteral("\" + Qt.quit() + \""));
    row("another property", QStringLiteral("\"\nvisible: false\nname: \""),
        QStringLiteral("\"\\nvisible: false\\nname: \""));
    row("backslash", QStringLiteral("a\\"));
    row("line breaks", QStringLiteral("a\nb\r"), QStringLiteral("a\\nb\\r"));
    row("emoji", QStringLiteral("\U0001F600"));
    row("terminal", QStringLiteral("\u001b[2J\u0007\u009b"), QStringLiteral("\\u001b[2J\\u0007\\u009b"));
    row("placeholder of the page", QStringLiteral("{OBJECT_ID}"));
    row("placeholders", QStringLiteral("%1 %2 ${x} %s%n"));
    row("braces", QStringLiteral("{}"));
    row("list", QStringLiteral("[a,b]"));
    row("percent", QStringLiteral("%%"));
    row("blank", QStringLiteral(" "));
    row("markup", QStringLiteral("<b>a</b><img src='b.png'>"));
    row("option", QStringLiteral("--json"));
    row("path", QStringLiteral("../../a/b"));
    row("long", QString(10'000, QLatin1Char('x')));
}

void TstPanelCli::hostileNames()
{
    QFETCH(QString, name);
    QFETCH(QString, shownName);
    QStringList const arguments{panel,       QStringLiteral("--tool=") + name, QStringLiteral("--records"),
                                recordsName, QStringLiteral("--screenshot"),   pictureName};
    Outcome outcome = run(arguments);
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.out, shownName + QStringLiteral(": no maintenance validity is set\n") + shownName
                              + QStringLiteral(": picture in page.png\n"));
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(m_folder->names(), QStringList{pictureName});

    // From the file the name comes as it went in.
    QJsonObject const records{
        {QStringLiteral("tools"),
         QJsonObject{{name, QJsonObject{{QStringLiteral("validityDate"), QStringLiteral("")}}}}}};
    m_folder->write(recordsName, QJsonDocument(records).toJson());
    outcome = run(arguments + QStringList{json});
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 0);
    QStringList const lines = linesOf(outcome.out);
    QCOMPARE(lines.size(), 2);
    QCOMPARE(objectOf(lines[0]).value(QStringLiteral("tool")).toString(), name);
    QCOMPARE(objectOf(lines[0]).value(QStringLiteral("state")).toString(), QStringLiteral("permanent"));
    QCOMPARE(objectOf(lines[1]).value(QStringLiteral("tool")).toString(), name);
    QCOMPARE(run({inspect, QStringLiteral("--records"), recordsName})
                 .out.section(QStringLiteral("\nMaintenance\n"), 1),
             shownName + QStringLiteral(": maintenance valid permanently\n"));
}

void TstPanelCli::complaints_data()
{
    QTest::addColumn<QByteArray>("tools");
    QTest::addColumn<QStringList>("complaints");
    QTest::newRow("alert out of range")
        << QByteArray("{\"left bench\": {\"validityDate\": \"\",\n\"alertBeforeExpiration\": -1}}")
        << QStringList{QStringLiteral("FILE:2: tools.left bench.alertBeforeExpiration: must be a whole "
                                      "number from 0 to 2147483647")};
    QTest::newRow("of another tool")
        << QByteArray("{\"left bench\": {\"validityDate\": \"\"},\n\"right\\nbench\": 7}")
        << QStringList{QStringLiteral("FILE:2: tools.right\\nbench: must be an object, not a number")};
    QTest::newRow("unknown key")
        << QByteArray("{\"left bench\": {\"validityDate\": \"\",\n\n\"validity\": \"\"}}")
        << QStringList{QStringLiteral("FILE:3: tools.left bench: unknown key \"validity\", known are "
                                      "serialNumber, validityDate, alertBeforeExpiration")};
    QTest::newRow("several") << QByteArray("{\"left bench\": {\"validityDate\": \"\",\n\"serialNumber\": 1,\n"
                                           "\"alertBeforeExpiration\": 1.5}}")
                             << QStringList{QStringLiteral("FILE:2: tools.left bench.serialNumber: must be a "
                                                           "text, not a number"),
                                            QStringLiteral("FILE:3: tools.left bench.alertBeforeExpiration: "
                                                           "must be a whole number from 0 to 2147483647")};
}

void TstPanelCli::complaints()
{
    QFETCH(QByteArray, tools);
    QFETCH(QStringList, complaints);
    QString expected;
    for (auto const& complaint : qAsConst(complaints))
        expected += QStringLiteral("workplace: ") + complaint + QLatin1Char('\n');
    // A name that would make two lines of one.
    QString const file = QStringLiteral("rec\nords.json");
    m_folder->write(file, "{\"tools\": " + tools + '}');
    expected.replace(QStringLiteral("FILE"), QStringLiteral("rec\\nords.json"));

    Outcome outcome = run({panel, QStringLiteral("--tool"), tool, QStringLiteral("--screenshot"), pictureName,
                           QStringLiteral("--records"), file});
    QCOMPARE(outcome.err, expected);
    QCOMPARE(outcome.out, QStringLiteral("left bench: maintenance valid permanently\n"
                                         "left bench: picture in page.png\n"));
    QCOMPARE(outcome.exitCode, 0);
    outcome = run({inspect, QStringLiteral("--records"), file});
    QCOMPARE(outcome.err, expected);
    QVERIFY(
        outcome.out.contains(QStringLiteral("\nMaintenance\nleft bench: maintenance valid permanently\n")));
    QCOMPARE(outcome.exitCode, 0);
}

void TstPanelCli::inspectRecords_data()
{
    QTest::addColumn<bool>("isDefaultPlace");
    QTest::newRow("named") << false;
    QTest::newRow("default place") << true;
}

void TstPanelCli::inspectRecords()
{
    QFETCH(bool, isDefaultPlace);
    QDir(m_folder->path()).mkpath(QStringLiteral("data/workplace"));
    QByteArray const content = R"({"tools": {"b": {"validityDate": ""}, "a": {}}})";
    QByteArray const other = R"({"tools": {"c": {}}})";
    m_folder->write(QStringLiteral("data/workplace/maintenance.json"), isDefaultPlace ? content : other);
    m_folder->write(recordsName, isDefaultPlace ? other : content);
    QStringList const options =
        isDefaultPlace ? QStringList() : QStringList{QStringLiteral("--records"), recordsName};

    Outcome outcome = run(QStringList{inspect} + options);
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 0);
    QVERIFY(outcome.out.startsWith(QStringLiteral("Library ")));
    QCOMPARE(outcome.out.section(QStringLiteral("\nMaintenance\n"), 1),
             QStringLiteral("a: no maintenance validity is set\nb: maintenance valid permanently\n"));
    outcome = run(QStringList{inspect, json} + options);
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(linesOf(outcome.out).mid(linesOf(outcome.out).size() - 2),
             QStringList({QStringLiteral(R"({"kind":"maintenance","tool":"a","state":"notSet"})"),
                          QStringLiteral(R"({"kind":"maintenance","tool":"b","state":"permanent"})")}));
    // The reference of the commands is the same everywhere.
    QVERIFY(!run(QStringList{inspect, QStringLiteral("--markdown")} + options)
                 .out.contains(QStringLiteral("aintenance")));
    QCOMPARE(contentOf(m_folder->filePath(recordsName)), isDefaultPlace ? other : content);

    // The page of a tool has the same default place.
    outcome = run(QStringList{panel, QStringLiteral("--tool"), QStringLiteral("b"),
                              QStringLiteral("--screenshot"), pictureName}
                  + options);
    QCOMPARE(linesOf(outcome.out).value(0), QStringLiteral("b: maintenance valid permanently"));
}

void TstPanelCli::defaultPlaceIsMade()
{
    QStringList const arguments{panel, QStringLiteral("--tool"), tool, QStringLiteral("--screenshot"),
                                pictureName};
    Outcome outcome = run(arguments);
    QCOMPARE(outcome.err, QString());
    QCOMPARE(outcome.exitCode, 0);
    QDir const place(m_folder->filePath(QStringLiteral("data/workplace")));
    QVERIFY(place.exists());
    QVERIFY(place.isEmpty());

    m_folder->write(QStringLiteral("file"), "");
    QString const data = m_folder->filePath(QStringLiteral("file"));
    outcome = run(arguments, {{QStringLiteral("XDG_DATA_HOME"), data}});
    QCOMPARE(outcome.err,
             QStringLiteral("workplace: %1/workplace/maintenance.json: there is no folder %1/workplace\n")
                 .arg(data));
    QCOMPARE(outcome.exitCode, 2);
}

void TstPanelCli::inspectWithoutRecords()
{
    Outcome const none = run({inspect});
    QCOMPARE(none.err, QString());
    QCOMPARE(none.exitCode, 0);
    QVERIFY(!none.out.contains(QStringLiteral("aintenance")));
    QCOMPARE(m_folder->names(), QStringList());

    m_folder->write(recordsName, R"({"tools": {}})");
    QStringList const options{QStringLiteral("--records"), recordsName};
    QCOMPARE(run(QStringList{inspect} + options).out,
             none.out + QStringLiteral("\nNo maintenance records\n"));
    QCOMPARE(run(QStringList{inspect, json} + options).out, run({inspect, json}).out);
}

void TstPanelCli::inspectBadRecords_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("message");
    auto const row = [](char const* name, QStringList const& options, QString const& message) {
        QTest::newRow(name) << options << message;
    };
    QString const option = QStringLiteral("--records");
    row("missing", {option, QStringLiteral("missing.json")},
        QStringLiteral("missing.json: there is no such file"));
    row("folder", {option, QStringLiteral("data")}, QStringLiteral("data: file to open is a directory"));
    row("malformed", {option, recordsName}, QStringLiteral("records.json:1: the key \"tools\" is missing"));
    row("malformed, default place", {},
        QStringLiteral("FOLDER/data/workplace/maintenance.json:1: must be an object, not a list"));
    row("empty name", {option, QString()},
        QStringLiteral("--records: no file name given; workplace --help shows what there is"));
}

void TstPanelCli::inspectBadRecords()
{
    QFETCH(QStringList, options);
    QFETCH(QString, message);
    QDir(m_folder->path()).mkpath(QStringLiteral("data/workplace"));
    m_folder->write(QStringLiteral("data/workplace/maintenance.json"), "[]");
    m_folder->write(recordsName, "{}");
    for (auto const& form : {QStringList(), QStringList{json}}) {
        Outcome const outcome = run(QStringList{inspect} + form + options);
        QCOMPARE(outcome.err, QStringLiteral("workplace: %1\n")
                                  .arg(QString(message).replace(QStringLiteral("FOLDER"), m_folder->path())));
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
    }
}

QTEST_GUILESS_MAIN(TstPanelCli)
#include "tst_panel_cli.moc"
