#include "literals.h"
#include "outcome.h"
#include "scratch_folder.h"

#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>

namespace
{

QString const panel = "panel"_s;
QString const inspect = "inspect"_s;
QString const json = "--json"_s;
QString const tool = "left bench"_s;
QString const recordsName = "records.json"_s;
QString const pictureName = "page.png"_s;
QString const noScreen = "workplace: no screen to open a window on: "_s;
QString const noScreenHint = "; --screenshot FILE makes a picture without one\n"_s;

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
    return text.replace(QRegularExpression(R"(\d{4}-\d\d-\d\d)"_s), "DAY"_s)
        .replace(QRegularExpression(R"(\d+ days)"_s), "N days"_s);
}

} // namespace

/// The maintenance side of the program as a user runs it: exit codes and every byte on its channels.
class TestPanelCli : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_folder.emplace(); }

    void help()
    {
        Outcome const outcome = run({panel, "--help"_s});
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 0);
        for (auto const& one :
             {"Usage: workplace panel [OPTIONS]"_s, "--tool NAME REQUIRED  "_s, "--records FILE  "_s,
              "--screenshot FILE  "_s, "--size WIDTHxHEIGHT  "_s, "--theme "_s, "--plugin FILE  "_s,
              "--json  "_s, m_folder->filePath("data/workplace/maintenance.json"_s)})
            QVERIFY2(outcome.out.contains(one), qPrintable(one + QLatin1Char('\n') + outcome.out));
        QCOMPARE(m_folder->names(), QStringList());
        QVERIFY(run({inspect, "--help"_s}).out.contains("--records FILE"_s));
        QVERIFY(run({"--help"_s}).out.contains("panel  "_s));
    }

    void badUsage_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, QStringList const& arguments, char const* message) {
            QTest::newRow(name) << QStringList{panel} + arguments << QString::fromUtf8(message);
        };
        auto const option = [&row](char const* name, char const* value, char const* message) {
            row(qPrintable("%1 %2"_s.arg(QLatin1String(name), QLatin1String(value))),
                {"--tool"_s, tool, QLatin1String(name), QLatin1String(value)}, message);
        };
        row("no tool", {}, "--tool is required");
        row("no tool, but all else", {"--screenshot"_s, pictureName}, "--tool is required");
        row("empty tool", {"--tool"_s, QString()}, "--tool: no name given");
        row("tool without its name", {"--tool"_s}, "--tool: 1 required NAME missing");
        row("tool twice", {"--tool"_s, tool, "--tool"_s, "right bench"_s},
            "--tool: At Most 1 required but received 2");
        row("second name", {"--tool"_s, tool, "right bench"_s},
            "The following argument was not expected: right bench");
        row("option of another verb", {"--tool"_s, tool, "--markdown"_s},
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
            option(name, "", qPrintable(QLatin1String(name) + ": no file name given"_s));
    }

    void badUsage()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        Outcome const outcome = run(arguments);
        QCOMPARE(outcome.err, "workplace: "_s + message + "; workplace --help shows what there is\n"_s);
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
        QCOMPARE(m_folder->names(), QStringList());
    }

    void badInput_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("message");
        auto const records = [](char const* name, QString const& file, char const* message) {
            QTest::newRow(name) << QStringList{"--records"_s, file} << QString::fromUtf8(message);
        };
        auto const plugin = [](char const* name, QString const& file, QString const& message) {
            QTest::newRow(name) << QStringList{"--plugin"_s, file} << file + ": "_s + message;
        };
        records("records: missing folder", "missing/records.json"_s,
                "missing/records.json: there is no folder missing");
        records("records: below a file", "malformed.json/records.json"_s,
                "malformed.json/records.json: there is no folder malformed.json");
        records("records: folder", "empty"_s, "empty: file to open is a directory");
        records("records: pipe", "pipe"_s, "pipe: not a file");
        records("records: malformed", "malformed.json"_s,
                "malformed.json:2:4: not JSON: syntax error while parsing object key - invalid literal; last "
                "read: "
                "'{<U+000A>  to'; expected string literal");
        records(
            "records: truncated", "truncated.json"_s,
            "truncated.json:1:12: not JSON: syntax error while parsing object key - unexpected end of input; "
            "expected string literal");
        records("records: unknown key", "unknown.json"_s,
                "unknown.json:2: unknown key \"tool\", known are tools");
        records("records: name with a line break", "a\nb/records.json"_s,
                "a\\nb/records.json: there is no folder a\\nb");

        plugin("plugin: missing", "missing.so"_s, "No such file or directory"_s);
        plugin("plugin: folder without one", "empty"_s,
               "no library in this folder is a plugin for \"*.rd.box.PToolVeskZrt\""_s);
        plugin("plugin: text", "malformed.json"_s, "not a Qt plugin"_s);
        plugin("plugin: another interface", QStringLiteral(ODD_INTERFACE_FILE),
               "its interface is \"odd.rd.box.PToolVeskOther\", wanted is \"*.rd.box.PToolVeskZrt\""_s);
    }

    void badInput()
    {
        QFETCH(QStringList, options);
        QFETCH(QString, message);
        QDir(m_folder->path()).mkdir("empty"_s);
        QCOMPARE(::mkfifo(QFile::encodeName(m_folder->filePath("pipe"_s)).constData(), 0600), 0);
        m_folder->write("malformed.json"_s, "{\n  tools: {}}\n");
        m_folder->write("truncated.json"_s, "{\"tools\": {");
        m_folder->write("unknown.json"_s, "{\"tools\": {},\n\"tool\": {}}");
        QStringList names = m_folder->names();
        for (auto const& more : {QStringList(), QStringList{json}}) {
            Outcome const outcome =
                run(QStringList{panel, "--tool"_s, tool, "--screenshot"_s, pictureName} + options + more);
            QCOMPARE(outcome.err, "workplace: "_s + message + QLatin1Char('\n'));
            QCOMPARE(outcome.out, QString());
            QCOMPARE(outcome.exitCode, 2);
        }
        QStringList left = m_folder->names();
        left.removeAll("data"_s);
        QCOMPARE(left, names);
        QCOMPARE(contentOf(m_folder->filePath("truncated.json"_s)), QByteArray("{\"tools\": {"));
    }

    void noScreenAtAll()
    {
        Outcome const outcome = run({panel, "--tool"_s, tool});
        QCOMPARE(outcome.err, noScreen + "DISPLAY is not set"_s + noScreenHint);
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
        QCOMPARE(m_folder->names(), QStringList());
    }

    void unreachableScreen_data()
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

    void unreachableScreen()
    {
        QFETCH(QString, variable);
        QFETCH(QString, value);
        QFETCH(QString, says);
        Outcome const outcome = run({panel, "--tool"_s, tool}, {{variable, value}});
        QVERIFY2(outcome.err.startsWith(noScreen) && outcome.err.endsWith(noScreenHint),
                 qPrintable(outcome.err));
        QVERIFY2(outcome.err.contains(says), qPrintable(outcome.err));
        QCOMPARE(linesOf(outcome.err).size(), 1);
        QVERIFY2(!outcome.err.contains("Reinstalling"_s), qPrintable(outcome.err));
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
        // No core either.
        QCOMPARE(m_folder->names(), QStringList());
    }

    void picture_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QSize>("size");
        QTest::newRow("default") << QStringList() << QSize(1280, 800);
        for (auto const& size :
             {QSize(320, 240), QSize(320, 1000), QSize(1000, 240), QSize(800, 600), QSize(3840, 2160)}) {
            QString const text = "%1x%2"_s.arg(QString::number(size.width()), QString::number(size.height()));
            QTest::newRow(qPrintable(text)) << QStringList{"--size"_s, text} << size;
        }
    }

    void picture()
    {
        QFETCH(QStringList, options);
        QFETCH(QSize, size);
        Outcome const outcome = takePicture(options);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, "left bench: no maintenance validity is set\n"
                              "left bench: picture in page.png\n"_s);
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

    void themes()
    {
        QMap<QString, int> brightness;
        for (auto const& theme : {"light"_s, "dark"_s}) {
            QCOMPARE(takePicture({"--theme"_s, theme}).exitCode, 0);
            QImage const image(m_folder->filePath(pictureName), "PNG");
            QVERIFY(!image.isNull());
            brightness[theme] = qGray(image.pixel(2, image.height() / 2));
        }
        QVERIFY(brightness["light"_s] > 200);
        QVERIFY(brightness["dark"_s] < 80);
    }

    void pictureReplacesPicture()
    {
        m_folder->write(pictureName, QByteArray(1'000'000, 'x'));
        QCOMPARE(takePicture({json}).exitCode, 0);
        QCOMPARE(QImage(m_folder->filePath(pictureName), "PNG").size(), QSize(1280, 800));
        QVERIFY(QFileInfo(m_folder->filePath(pictureName)).size() < 1'000'000);
    }

    void pictureIntoAPipe()
    {
        QString const pipe = m_folder->filePath(pictureName);
        QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        QProcess reader;
        reader.start("cat"_s, {pipe});
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

    void failedPicture_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("message");
        QTest::newRow("missing folder") << "missing/page.png"_s
                                        << "No such file or directory"_s;
        QTest::newRow("folder") << "folder"_s
                                << "Filename refers to a directory"_s;
        QTest::newRow("below a file") << "file/page.png"_s
                                      << "Not a directory"_s;
    }

    void failedPicture()
    {
        QFETCH(QString, file);
        QFETCH(QString, message);
        QDir(m_folder->path()).mkdir("folder"_s);
        m_folder->write("file"_s, "");
        QStringList const names = m_folder->names();
        Outcome const failed =
            run({panel, "--tool"_s, tool, "--records"_s, recordsName, "--screenshot"_s, file});
        QCOMPARE(failed.err, "workplace: %1: the picture could not be written: %2\n"_s.arg(file, message));
        QCOMPARE(failed.out, "left bench: no maintenance validity is set\n"_s);
        QCOMPARE(failed.exitCode, 2);
        QCOMPARE(m_folder->names(), names);
    }

    void pictureOnAFullDisk()
    {
        m_folder->write(pictureName, "former");
        ScratchFolder const cache; // whatever would be kept there has no room either
        // Room for two blocks of a picture that takes more. Where coverage is counted, the counters have no
        // room either; what they say of that is not the program's.
        Outcome const outcome = run(
            "sh"_s,
            {"-c"_s,
             "ulimit -f 2; export XDG_CACHE_HOME='%1' GCOV_ERROR_FILE=/dev/null; exec \"$0\" \"$@\""_s.arg(
                 cache.path()),
             QStringLiteral(WORKPLACE_PROGRAM), panel, "--tool"_s, tool, "--records"_s, recordsName,
             "--screenshot"_s, pictureName},
            {}, {});
        QCOMPARE(outcome.err, "workplace: page.png: the picture could not be written: File too large\n"_s);
        QCOMPARE(outcome.exitCode, 2);
        QCOMPARE(contentOf(m_folder->filePath(pictureName)), QByteArray("former"));
        QCOMPARE(m_folder->names(), QStringList{pictureName});
    }

    void pictureIsNotWrittenOverInput_data()
    {
        QTest::addColumn<QString>("picture");
        QTest::newRow("records") << recordsName;
        QTest::newRow("records by another name") << "./../%1/"_s + recordsName;
        QTest::newRow("records by a link") << "link.json"_s;
        QTest::newRow("plugin") << "plugin.so"_s;
    }

    void pictureIsNotWrittenOverInput()
    {
        QFETCH(QString, picture);
        QByteArray const content = R"({"tools": {}})";
        QString const records = m_folder->write(recordsName, content);
        QByteArray const plugin = contentOf(QStringLiteral(ODD_INSTANCES_FILE));
        QString const pluginCopy = m_folder->write("plugin.so"_s, plugin);
        QVERIFY(QFile::link(records, m_folder->filePath("link.json"_s)));
        QStringList const names = m_folder->names();
        picture.replace("%1"_s, QFileInfo(m_folder->path()).fileName());
        Outcome const outcome = run({panel, "--tool"_s, tool, "--records"_s, recordsName, "--plugin"_s,
                                     "plugin.so"_s, "--screenshot"_s, picture});
        QCOMPARE(outcome.err,
                 "workplace: %1: the picture would overwrite what the page needs\n"_s.arg(picture));
        QCOMPARE(outcome.out, QString());
        QCOMPARE(outcome.exitCode, 2);
        QCOMPARE(m_folder->names(), names);
        QCOMPARE(contentOf(records), content);
        QVERIFY(contentOf(pluginCopy) == plugin);
    }

    void pluginWithoutAPage()
    {
        Outcome const outcome = takePicture({"--plugin"_s, QStringLiteral(ODD_INSTANCES_FILE)});
        static QRegularExpression const message(
            R"(\Aworkplace: .*: has no maintenance page \(:/\{[-0-9a-f]+\}/maintenance_panel\.qml\)\n\z)"_s);
        QVERIFY2(message.match(outcome.err).hasMatch(), qPrintable(outcome.err));
        QCOMPARE(outcome.exitCode, 2);
        QCOMPARE(m_folder->names(), QStringList());
    }

    void pictureLeavesRecords_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("whole") << QByteArray(
            R"({"tools": {"left bench": {"validityDate": null, "serialNumber": "S"}}})");
        QTest::newRow("of other tools") << QByteArray(R"({"tools": {"right bench": {}}})");
        QTest::newRow("wrong fields")
            << QByteArray(R"({"tools": {"left bench": {"serialNumber": 1, "x": []}}})");
    }

    void pictureLeavesRecords()
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

    void outputThatFails()
    {
        Outcome const outcome =
            run({panel, "--tool"_s, tool, "--records"_s, recordsName, "--screenshot"_s, pictureName}, {},
                "/dev/full"_s);
        QCOMPARE(outcome.err, "workplace: standard output: No space left on device\n"_s);
        QCOMPARE(outcome.exitCode, 2);
    }

    void states_data()
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
        row("null", R"({"validityDate": null, "alertBeforeExpiration": 365})",
            "no maintenance validity is set", "notSet", false);
        row("permanent", R"({"validityDate": "", "alertBeforeExpiration": 365})",
            "maintenance valid permanently", "permanent", false);
        row("valid", recordUntil(200, 100), "maintenance valid until DAY, N days left", "valid", true);
        row("due", recordUntil(50, 100), "maintenance due: valid until DAY, N days left", "due", true);
        row("overdue", recordUntil(-50, 100), "maintenance overdue: it was valid until DAY, N days ago",
            "overdue", true);
        row("unreadable", R"({"validityDate": "so\non"})", "the maintenance validity is no date: \"so\\non\"",
            "unreadable", false);
    }

    void states()
    {
        QFETCH(QByteArray, record);
        QFETCH(QString, text);
        QFETCH(QString, state);
        QFETCH(bool, hasDate);
        m_folder->write(recordsName, "{\"tools\": {\"right bench\": {}, \"left bench\": " + record + "}}");

        Outcome outcome = takePicture();
        QCOMPARE(outcome.err, QString());
        QCOMPARE(withoutDays(outcome.out), "left bench: %1\nleft bench: picture in page.png\n"_s.arg(text));
        outcome = takePicture({json});
        QCOMPARE(outcome.err, QString());
        QStringList const lines = linesOf(outcome.out);
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines[1], R"({"kind":"picture","tool":"%1","file":"%2"})"_s.arg(tool, pictureName));
        auto const line = objectOf(lines[0]);
        QCOMPARE(line.value("kind"_s).toString(), "maintenance"_s);
        QCOMPARE(line.value("tool"_s).toString(), tool);
        QCOMPARE(line.value("state"_s).toString(), state);
        auto const validity = QJsonDocument::fromJson(record).object().value("validityDate"_s);
        QCOMPARE(line.value("validityDate"_s).toString(), validity.toString());
        QCOMPARE(line.contains("daysLeft"_s), hasDate);
        if (hasDate) {
            auto const date = QDate::fromString(validity.toString(), Qt::ISODate);
            // The program saw this day or the one before.
            qint64 const left = QDate::currentDate().daysTo(date);
            int const said = line.value("daysLeft"_s).toInt();
            QVERIFY2(said == left || said == left + 1, qPrintable(QString::number(said)));
        }
        auto const saved = objectOf(lines[1]);
        QCOMPARE(saved.value("tool"_s).toString(), tool);
        QCOMPARE(saved.value("file"_s).toString(), pictureName);

        // The same from the other verb, for all tools.
        outcome = run({inspect, "--records"_s, recordsName});
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 0);
        QCOMPARE(withoutDays(outcome.out.section("\nMaintenance\n"_s, 1)),
                 "left bench: %1\nright bench: no maintenance validity is set\n"_s.arg(text));
        outcome = run({inspect, json, "--records"_s, recordsName});
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 0);
        QStringList const inspected = linesOf(outcome.out).filter("\"kind\":\"maintenance\""_s);
        QCOMPARE(inspected.size(), 2);
        QCOMPARE(objectOf(inspected[0]).keys(), line.keys());
        QCOMPARE(objectOf(inspected[0]).value("state"_s).toString(), state);
        QCOMPARE(inspected[1], R"({"kind":"maintenance","tool":"right bench","state":"notSet"})"_s);
    }

    void hostileNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("shownName");
        auto const row = [](char const* what, QString const& name, QString const& shownName = {}) {
            QTest::newRow(what) << name << (shownName.isNull() ? name : shownName);
        };
        row("end of the string", "\"; Qt.quit(); //"_s);
        row("call", "\" + Qt.quit() + \""_s);
        row("another property", "\"\nvisible: false\nname: \""_s, "\"\\nvisible: false\\nname: \""_s);
        row("backslash", "a\\"_s);
        row("line breaks", "a\nb\r"_s, "a\\nb\\r"_s);
        row("emoji", "\U0001F600"_s);
        row("terminal", "\u001b[2J\u0007\u009b"_s, "\\u001b[2J\\u0007\\u009b"_s);
        row("placeholder of the page", "{OBJECT_ID}"_s);
        row("placeholders", "%1 %2 ${x} %s%n"_s);
        row("braces", "{}"_s);
        row("list", "[a,b]"_s);
        row("percent", "%%"_s);
        row("blank", " "_s);
        row("markup", "<b>a</b><img src='b.png'>"_s);
        row("option", "--json"_s);
        row("path", "../../a/b"_s);
        row("long", QString(10'000, QLatin1Char('x')));
    }

    void hostileNames()
    {
        QFETCH(QString, name);
        QFETCH(QString, shownName);
        QStringList const arguments{panel,       "--tool="_s + name, "--records"_s,
                                    recordsName, "--screenshot"_s,   pictureName};
        Outcome outcome = run(arguments);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.out, shownName + ": no maintenance validity is set\n"_s + shownName
                                  + ": picture in page.png\n"_s);
        QCOMPARE(outcome.exitCode, 0);
        QCOMPARE(m_folder->names(), QStringList{pictureName});

        // From the file the name comes as it went in.
        QJsonObject const records{{"tools"_s, QJsonObject{{name, QJsonObject{{"validityDate"_s, ""_s}}}}}};
        m_folder->write(recordsName, QJsonDocument(records).toJson());
        outcome = run(arguments + QStringList{json});
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 0);
        QStringList const lines = linesOf(outcome.out);
        QCOMPARE(lines.size(), 2);
        QCOMPARE(objectOf(lines[0]).value("tool"_s).toString(), name);
        QCOMPARE(objectOf(lines[0]).value("state"_s).toString(), "permanent"_s);
        QCOMPARE(objectOf(lines[1]).value("tool"_s).toString(), name);
        QCOMPARE(run({inspect, "--records"_s, recordsName}).out.section("\nMaintenance\n"_s, 1),
                 shownName + ": maintenance valid permanently\n"_s);
    }

    void complaints_data()
    {
        QTest::addColumn<QByteArray>("tools");
        QTest::addColumn<QStringList>("complaints");
        QTest::newRow("alert out of range")
            << QByteArray("{\"left bench\": {\"validityDate\": \"\",\n\"alertBeforeExpiration\": -1}}")
            << QStringList{"FILE:2: tools.left bench.alertBeforeExpiration: must be a whole "
                           "number from 0 to 2147483647"_s};
        QTest::newRow("of another tool")
            << QByteArray("{\"left bench\": {\"validityDate\": \"\"},\n\"right\\nbench\": 7}")
            << QStringList{"FILE:2: tools.right\\nbench: must be an object, not a number"_s};
        QTest::newRow("unknown key") << QByteArray(
            "{\"left bench\": {\"validityDate\": \"\",\n\n\"validity\": \"\"}}")
                                     << QStringList{
                                            "FILE:3: tools.left bench: unknown key \"validity\", known are "
                                            "serialNumber, validityDate, alertBeforeExpiration"_s};
        QTest::newRow("several") << QByteArray(
            "{\"left bench\": {\"validityDate\": \"\",\n\"serialNumber\": 1,\n"
            "\"alertBeforeExpiration\": 1.5}}")
                                 << QStringList{"FILE:2: tools.left bench.serialNumber: must be a "
                                                "text, not a number"_s,
                                                "FILE:3: tools.left bench.alertBeforeExpiration: "
                                                "must be a whole number from 0 to 2147483647"_s};
    }

    void complaints()
    {
        QFETCH(QByteArray, tools);
        QFETCH(QStringList, complaints);
        QString expected;
        for (auto const& complaint : qAsConst(complaints))
            expected += "workplace: "_s + complaint + QLatin1Char('\n');
        // A name that would make two lines of one.
        QString const file = "rec\nords.json"_s;
        m_folder->write(file, "{\"tools\": " + tools + '}');
        expected.replace("FILE"_s, "rec\\nords.json"_s);

        Outcome outcome = run({panel, "--tool"_s, tool, "--screenshot"_s, pictureName, "--records"_s, file});
        QCOMPARE(outcome.err, expected);
        QCOMPARE(outcome.out, "left bench: maintenance valid permanently\n"
                              "left bench: picture in page.png\n"_s);
        QCOMPARE(outcome.exitCode, 0);
        outcome = run({inspect, "--records"_s, file});
        QCOMPARE(outcome.err, expected);
        QVERIFY(outcome.out.contains("\nMaintenance\nleft bench: maintenance valid permanently\n"_s));
        QCOMPARE(outcome.exitCode, 0);
    }

    void inspectRecords_data()
    {
        QTest::addColumn<bool>("isDefaultPlace");
        QTest::newRow("named") << false;
        QTest::newRow("default place") << true;
    }

    void inspectRecords()
    {
        QFETCH(bool, isDefaultPlace);
        QDir(m_folder->path()).mkpath("data/workplace"_s);
        QByteArray const content = R"({"tools": {"b": {"validityDate": ""}, "a": {}}})";
        QByteArray const other = R"({"tools": {"c": {}}})";
        m_folder->write("data/workplace/maintenance.json"_s, isDefaultPlace ? content : other);
        m_folder->write(recordsName, isDefaultPlace ? other : content);
        QStringList const options = isDefaultPlace ? QStringList() : QStringList{"--records"_s, recordsName};

        Outcome outcome = run(QStringList{inspect} + options);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 0);
        QVERIFY(outcome.out.startsWith("Library "_s));
        QCOMPARE(outcome.out.section("\nMaintenance\n"_s, 1),
                 "a: no maintenance validity is set\nb: maintenance valid permanently\n"_s);
        outcome = run(QStringList{inspect, json} + options);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 0);
        QCOMPARE(linesOf(outcome.out).mid(linesOf(outcome.out).size() - 2),
                 QStringList({R"({"kind":"maintenance","tool":"a","state":"notSet"})"_s,
                              R"({"kind":"maintenance","tool":"b","state":"permanent"})"_s}));
        // The reference of the commands is the same everywhere.
        QVERIFY(!run(QStringList{inspect, "--markdown"_s} + options).out.contains("aintenance"_s));
        QCOMPARE(contentOf(m_folder->filePath(recordsName)), isDefaultPlace ? other : content);

        // The page of a tool has the same default place.
        outcome = run(QStringList{panel, "--tool"_s, "b"_s, "--screenshot"_s, pictureName} + options);
        QCOMPARE(linesOf(outcome.out).value(0), "b: maintenance valid permanently"_s);
    }

    void defaultPlaceIsMade()
    {
        QStringList const arguments{panel, "--tool"_s, tool, "--screenshot"_s, pictureName};
        Outcome outcome = run(arguments);
        QCOMPARE(outcome.err, QString());
        QCOMPARE(outcome.exitCode, 0);
        QDir const place(m_folder->filePath("data/workplace"_s));
        QVERIFY(place.exists());
        QVERIFY(place.isEmpty());

        m_folder->write("file"_s, "");
        QString const data = m_folder->filePath("file"_s);
        outcome = run(arguments, {{"XDG_DATA_HOME"_s, data}});
        QCOMPARE(outcome.err,
                 "workplace: %1/workplace/maintenance.json: there is no folder %1/workplace\n"_s.arg(data));
        QCOMPARE(outcome.exitCode, 2);
    }

    void inspectWithoutRecords()
    {
        Outcome const none = run({inspect});
        QCOMPARE(none.err, QString());
        QCOMPARE(none.exitCode, 0);
        QVERIFY(!none.out.contains("aintenance"_s));
        QCOMPARE(m_folder->names(), QStringList());

        m_folder->write(recordsName, R"({"tools": {}})");
        QStringList const options{"--records"_s, recordsName};
        QCOMPARE(run(QStringList{inspect} + options).out, none.out + "\nNo maintenance records\n"_s);
        QCOMPARE(run(QStringList{inspect, json} + options).out, run({inspect, json}).out);
    }

    void inspectBadRecords_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, QStringList const& options, QString const& message) {
            QTest::newRow(name) << options << message;
        };
        QString const option = "--records"_s;
        row("missing", {option, "missing.json"_s}, "missing.json: there is no such file"_s);
        row("folder", {option, "data"_s}, "data: file to open is a directory"_s);
        row("malformed", {option, recordsName}, "records.json:1: the key \"tools\" is missing"_s);
        row("malformed, default place", {},
            "FOLDER/data/workplace/maintenance.json:1: must be an object, not a list"_s);
        row("empty name", {option, QString()},
            "--records: no file name given; workplace --help shows what there is"_s);
    }

    void inspectBadRecords()
    {
        QFETCH(QStringList, options);
        QFETCH(QString, message);
        QDir(m_folder->path()).mkpath("data/workplace"_s);
        m_folder->write("data/workplace/maintenance.json"_s, "[]");
        m_folder->write(recordsName, "{}");
        for (auto const& form : {QStringList(), QStringList{json}}) {
            Outcome const outcome = run(QStringList{inspect} + form + options);
            QCOMPARE(outcome.err,
                     "workplace: %1\n"_s.arg(QString(message).replace("FOLDER"_s, m_folder->path())));
            QCOMPARE(outcome.out, QString());
            QCOMPARE(outcome.exitCode, 2);
        }
    }

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
        environment.insert("XDG_DATA_HOME"_s, m_folder->filePath("data"_s));
        environment.insert("QT_LOGGING_RULES"_s, "default.debug=false"_s);
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
        return run(
            QStringList{panel, "--tool"_s, tool, "--screenshot"_s, pictureName, "--records"_s, recordsName}
            + options);
    }

    std::optional<ScratchFolder> m_folder;
};

QTEST_GUILESS_MAIN(TestPanelCli)
#include "tst_panel_cli.moc"
