#include "literals.h"
#include "workplace.h"

#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>

#include <optional>

namespace
{

QString const c_records = "records.json"_s;
QString const c_picture = "page.png"_s;
QString const c_panel = "panel --tool bench --records records.json --screenshot page.png"_s;
QString const c_notSet = "bench: no maintenance validity is set\n"_s;
QString const c_pictureIsMade = "bench: picture in page.png\n"_s;
QString const c_noScreen = "workplace: no screen to open a window on: "_s;
QString const c_noScreenHint = "; --screenshot FILE makes a picture without one\n"_s;

/// A record whose validity ends so many days after today; the day may change while a test runs, so no number
/// that is compared may depend on it.
QByteArray recordUntil(int days, int alert)
{
    return "{\"validityDate\": \"" + QDate::currentDate().addDays(days).toString(Qt::ISODate).toUtf8()
           + "\", \"alertBeforeExpiration\": " + QByteArray::number(alert) + '}';
}

/// A text that counts days and names a day, without either.
QString withoutDays(QString text)
{
    return text.replace(QRegularExpression(R"(\d{4}-\d\d-\d\d)"_s), "DAY"_s)
        .replace(QRegularExpression(R"(\d+ days|(?<="daysLeft":)-?\d+)"_s), "N days"_s);
}

/// What "inspect" says of the maintenance records.
QString maintenanceIn(Outcome const& outcome)
{
    return outcome.out.section("\nMaintenance\n"_s, 1);
}

} // namespace

/// The maintenance side of the program as a user runs it, without a window.
class TestPanelCli : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_workplace.emplace(); }

    void noScreen_data()
    {
        QTest::addColumn<QString>("variable");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("reason");
        auto const row = [](char const* name, char const* variable, char const* value, char const* reason) {
            QTest::newRow(name) << QString::fromLatin1(variable) << QString::fromLatin1(value)
                                << QString::fromLatin1(reason);
        };
        row("none at all", "DISPLAY", "", "DISPLAY is not set");
        row("no such display", "DISPLAY", ":99999", "display :99999");
        row("not a display", "DISPLAY", "nonsense", "display nonsense");
        row("no such compositor", "WAYLAND_DISPLAY", "missing-0", "");
        row("no such platform", "QT_QPA_PLATFORM", "nonsense", "platform plugin \"nonsense\"");
    }

    void noScreen()
    {
        QFETCH(QString, variable);
        QFETCH(QString, value);
        QFETCH(QString, reason);
        Outcome const outcome = m_workplace->run("panel --tool bench"_s, [&](QProcess& program) {
            Workplace::setVariable(program, variable, value);
        });
        QCOMPARE(outcome, (Outcome{2, {}, outcome.err}));
        QVERIFY2(outcome.err.startsWith(c_noScreen) && outcome.err.endsWith(c_noScreenHint)
                     && outcome.err.contains(reason),
                 qPrintable(outcome.err));
        QCOMPARE(linesOf(outcome.err).size(), 1);
        QVERIFY2(!outcome.err.contains("Reinstalling"_s), qPrintable(outcome.err));
        // No core either.
        QCOMPARE(m_workplace->names(), QStringList());
    }

    void picture_data()
    {
        QTest::addColumn<QString>("option");
        QTest::addColumn<QSize>("size");
        QTest::newRow("default") << QString() << QSize(1280, 800);
        for (auto const& size :
             {QSize(320, 240), QSize(320, 1000), QSize(1000, 240), QSize(800, 600), QSize(3840, 2160)}) {
            QString const option = " --size %1x%2"_s.arg(size.width()).arg(size.height());
            QTest::newRow(qPrintable(option)) << option << size;
        }
    }

    // Records that are not there are not made for a look at them.
    void picture()
    {
        QFETCH(QString, option);
        QFETCH(QSize, size);
        m_workplace->write(c_picture, QByteArray(1'000'000, 'x'));
        QCOMPARE(m_workplace->run(c_panel + option), prints(c_notSet + c_pictureIsMade));
        QCOMPARE(m_workplace->names(), QStringList{c_picture});
        QImage const image = pictureMade();
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
        auto const brightness = [this](QString const& theme) {
            m_workplace->run(c_panel + " --theme "_s + theme);
            QImage const image = pictureMade();
            return image.isNull() ? -1 : qGray(image.pixel(2, image.height() / 2));
        };
        QVERIFY(brightness("light"_s) > 200);
        int const dark = brightness("dark"_s);
        QVERIFY(dark >= 0 && dark < 80);
    }

    void pictureIntoAPipe()
    {
        QString const pipe = m_workplace->filePath(c_picture);
        QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        QProcess reader;
        reader.start("cat"_s, {pipe});
        QVERIFY(reader.waitForStarted());
        Outcome const outcome = m_workplace->run(c_panel);
        // A pipe that was replaced leaves its reader without a writer.
        bool const isPipe = !QFileInfo(pipe).isFile();
        if (!isPipe)
            reader.kill();
        QVERIFY(reader.waitForFinished());
        QVERIFY(isPipe);
        QCOMPARE(outcome, prints(c_notSet + c_pictureIsMade));
        QCOMPARE(QImage::fromData(reader.readAllStandardOutput(), "PNG").size(), QSize(1280, 800));
    }

    void failedPicture_data()
    {
        QTest::addColumn<QString>("why");
        QTest::newRow("missing/page.png") << "No such file or directory"_s;
        QTest::newRow("folder") << "Filename refers to a directory"_s;
        QTest::newRow("file/page.png") << "Not a directory"_s;
    }

    void failedPicture()
    {
        QFETCH(QString, why);
        QString const picture = QLatin1String(QTest::currentDataTag());
        QDir(m_workplace->path()).mkdir("folder"_s);
        m_workplace->write("file"_s, "");
        QStringList const names = m_workplace->names();
        Outcome expected = complains("%1: the picture could not be written: %2"_s.arg(picture, why));
        expected.out = c_notSet;
        QCOMPARE(m_workplace->run(QString(c_panel).replace(c_picture, picture)), expected);
        QCOMPARE(m_workplace->names(), names);
    }

    void pictureOnAFullDisk()
    {
        m_workplace->write(c_picture, "former");
        // Room for two blocks of a picture that takes more. Where coverage is counted, the counters have no
        // room either; what they say of that is not the program's.
        ScratchFolder const cache; // whatever would be kept there has no room either
        Outcome expected = complains("page.png: the picture could not be written: File too large"_s);
        expected.out = c_notSet;
        QCOMPARE(m_workplace->runAfter("ulimit -f 2; export GCOV_ERROR_FILE=/dev/null XDG_CACHE_HOME="_s
                                           + cache.path(),
                                       QProcess::splitCommand(c_panel)),
                 expected);
        QCOMPARE(contentOf(m_workplace->filePath(c_picture)), QByteArray("former"));
        QCOMPARE(m_workplace->names(), QStringList{c_picture});
    }

    void pluginWithoutAPage()
    {
        Outcome const outcome =
            m_workplace->run(c_panel + " --plugin "_s + QStringLiteral(ODD_INSTANCES_FILE));
        QCOMPARE(outcome.exitCode, 2);
        static QRegularExpression const message(
            R"(\Aworkplace: .*: has no maintenance page \(:/\{[-0-9a-f]+\}/maintenance_panel\.qml\)\n\z)"_s);
        QVERIFY2(message.match(outcome.err).hasMatch(), qPrintable(outcome.err));
        QCOMPARE(m_workplace->names(), QStringList());
    }

    void pictureLeavesRecords()
    {
        QByteArray const content = R"({"tools": {"bench": {"serialNumber": 1, "x": []}, "other": {}}})";
        QByteArray const file = QFile::encodeName(m_workplace->write(c_records, content));
        timespec const times[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
        QCOMPARE(::utimensat(AT_FDCWD, file.constData(), times, 0), 0);
        struct stat before = {};
        ::stat(file.constData(), &before);
        QCOMPARE(m_workplace->run(c_panel).exitCode, 0);
        struct stat after = {};
        ::stat(file.constData(), &after);
        QCOMPARE(after.st_ino, before.st_ino);
        QCOMPARE(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
        QCOMPARE(contentOf(m_workplace->filePath(c_records)), content);
        QCOMPARE(m_workplace->names(), QStringList({c_picture, c_records}));
    }

    void states_data()
    {
        QTest::addColumn<QByteArray>("record");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("json");
        auto const row = [](char const* name, QByteArray const& record, char const* text, char const* json) {
            QTest::newRow(name) << record << QString::fromUtf8(text) << QString::fromUtf8(json);
        };
        row("not set", "{}", "no maintenance validity is set", R"("notSet")");
        row("null", R"({"validityDate": null, "alertBeforeExpiration": 365})",
            "no maintenance validity is set", R"("notSet")");
        row("permanent", R"({"validityDate": "", "alertBeforeExpiration": 365})",
            "maintenance valid permanently", R"("permanent")");
        row("valid", recordUntil(200, 100), "maintenance valid until DAY, N days left",
            R"("valid","validityDate":"DAY","daysLeft":N days)");
        row("due", recordUntil(50, 100), "maintenance due: valid until DAY, N days left",
            R"("due","validityDate":"DAY","daysLeft":N days)");
        row("overdue", recordUntil(-50, 100), "maintenance overdue: it was valid until DAY, N days ago",
            R"("overdue","validityDate":"DAY","daysLeft":N days)");
        row("unreadable", R"({"validityDate": "so\non"})", "the maintenance validity is no date: \"so\\non\"",
            "\"unreadable\",\"validityDate\":\"so\\non\"");
    }

    void states()
    {
        QFETCH(QByteArray, record);
        QFETCH(QString, text);
        QFETCH(QString, json);
        m_workplace->write(c_records, "{\"tools\": {\"other\": {}, \"bench\": " + record + "}}");
        text = "bench: %1\n"_s.arg(text);
        json = "{\"kind\":\"maintenance\",\"tool\":\"bench\",\"state\":%1}\n"_s.arg(json);
        auto const run = [this](QString const& commandLine) {
            Outcome outcome = m_workplace->run(commandLine);
            outcome.out = withoutDays(outcome.out);
            return outcome;
        };
        QCOMPARE(run(c_panel), prints(text + c_pictureIsMade));
        QCOMPARE(run(c_panel + " --json"_s),
                 prints(json + "{\"kind\":\"picture\",\"tool\":\"bench\",\"file\":\"page.png\"}\n"_s));

        // The same from the other verb, for all tools.
        QCOMPARE(maintenanceIn(run("inspect --records records.json"_s)),
                 text + "other: no maintenance validity is set\n"_s);
        Outcome const inspected = run("inspect --json --records records.json"_s);
        QVERIFY2(
            inspected.out.endsWith(
                "]}\n"_s + json + "{\"kind\":\"maintenance\",\"tool\":\"other\",\"state\":\"notSet\"}\n"_s),
            qPrintable(inspected.out));
    }

    void daysLeft()
    {
        qint64 const today = QDate::currentDate().toJulianDay();
        m_workplace->write(c_records, "{\"tools\": {\"bench\": " + recordUntil(-50, 100) + "}}");
        QJsonObject const state = objectOf(linesOf(m_workplace->run(c_panel + " --json"_s).out).value(0));
        int const left = state.value("daysLeft"_s).toInt();
        // The day may have changed meanwhile.
        QVERIFY(left == -50 || left == -50 - (QDate::currentDate().toJulianDay() - today));
    }

    void toolNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("shown");
        auto const row = [](char const* what, QString const& name, QString const& shown = {}) {
            QTest::newRow(what) << name << (shown.isNull() ? name : shown);
        };
        row("end of the string", "\"; Qt.quit(); //"_s);
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

    // From the file and from the command line a name comes as it went in.
    void toolNames()
    {
        QFETCH(QString, name);
        QFETCH(QString, shown);
        m_workplace->write(
            c_records,
            QJsonDocument(
                QJsonObject{{"tools"_s, QJsonObject{{name, QJsonObject{{"validityDate"_s, ""_s}}}}}})
                .toJson());
        QStringList const arguments{"panel"_s, "--tool="_s + name, "--records"_s,
                                    c_records, "--screenshot"_s,   c_picture};
        QCOMPARE(
            m_workplace->run(arguments),
            prints("%1: maintenance valid permanently\n%1: picture in page.png\n"_s.replace("%1"_s, shown)));
        Outcome const outcome = m_workplace->run(arguments + QStringList{"--json"_s});
        QCOMPARE(outcome, prints(outcome.out));
        auto const lines = linesOf(outcome.out);
        QCOMPARE(lines.size(), 2);
        for (auto const& line : lines)
            QCOMPARE(objectOf(line).value("tool"_s).toString(), name);
        QCOMPARE(m_workplace->names(), QStringList({c_picture, c_records}));
    }

    // What is wrong with a record stands on the error channel; all else goes on.
    void complaints()
    {
        QString const file = "rec\nords.json"_s;
        m_workplace->write(file, R"({"tools": {"bench": {"validityDate": "",
"serialNumber": 1}, "other": 7}})");
        QString const complaints =
            "workplace: rec\\nords.json:2: tools.bench.serialNumber: must be a text, not a number\n"
            "workplace: rec\\nords.json:2: tools.other: must be an object, not a number\n"_s;
        QString const state = "bench: maintenance valid permanently\n"_s;
        QCOMPARE(m_workplace->run(QProcess::splitCommand(c_panel).replaceInStrings(c_records, file)),
                 (Outcome{0, state + c_pictureIsMade, complaints}));
        Outcome const inspected = m_workplace->run({"inspect"_s, "--records"_s, file});
        QCOMPARE(inspected, (Outcome{0, inspected.out, complaints}));
        QVERIFY(maintenanceIn(inspected).startsWith(state));
    }

    void defaultPlace()
    {
        QString const screenshot = "panel --tool bench --screenshot page.png"_s;
        QCOMPARE(m_workplace->run(screenshot), prints(c_notSet + c_pictureIsMade));
        QDir const place(m_workplace->filePath("data/workplace"_s));
        QVERIFY(place.exists());
        QVERIFY(place.isEmpty());

        m_workplace->write("data/workplace/maintenance.json"_s,
                           R"({"tools": {"bench": {"validityDate": ""}}})");
        m_workplace->write(c_records, R"({"tools": {"other": {}}})");
        QString const permanent = "bench: maintenance valid permanently\n"_s;
        QCOMPARE(m_workplace->run(screenshot), prints(permanent + c_pictureIsMade));
        QCOMPARE(maintenanceIn(m_workplace->run("inspect"_s)), permanent);
        QCOMPARE(maintenanceIn(m_workplace->run("inspect --records records.json"_s)),
                 "other: no maintenance validity is set\n"_s);
        // The reference of the commands is the same everywhere.
        QVERIFY(!m_workplace->run("inspect --markdown"_s).out.contains("aintenance"_s));
    }

    void defaultPlaceThatCannotBeMade()
    {
        QString const data = m_workplace->write("file"_s, "");
        QCOMPARE(m_workplace->run(
                     "panel --tool bench --screenshot page.png"_s,
                     [&](QProcess& program) { Workplace::setVariable(program, "XDG_DATA_HOME"_s, data); }),
                 complains("%1/workplace/maintenance.json: there is no folder %1/workplace"_s.arg(data)));
    }

    void inspectWithoutRecords()
    {
        Outcome const none = m_workplace->run("inspect"_s);
        QVERIFY(!none.out.contains("aintenance"_s));
        QCOMPARE(m_workplace->names(), QStringList());

        m_workplace->write(c_records, R"({"tools": {}})");
        QCOMPARE(m_workplace->run("inspect --records records.json"_s),
                 prints(none.out + "\nNo maintenance records\n"_s));
        QCOMPARE(m_workplace->run("inspect --json --records records.json"_s),
                 m_workplace->run("inspect --json"_s));
    }

private:
    QImage pictureMade() const { return QImage(m_workplace->filePath(c_picture), "PNG"); }

    std::optional<Workplace> m_workplace;
};

QTEST_GUILESS_MAIN(TestPanelCli)
#include "tst_panel_cli.moc"
