#include "maintenance/maintenance_records.h"

#include "complaint.h"
#include "file_size_limit.h"
#include "in_child.h"
#include "literals.h"
#include "scratch_folder.h"

#include <plugin_management/d_element.h>

#include <QLockFile>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>

#include <limits>

namespace
{

QString const fileName = "records.json"_s;
QString const noComplaint = "no complaint"_s;
QString const leftBench = "left bench"_s;
QString const serialNumber = "serialNumber"_s;
QString const validityDate = "validityDate"_s;
QString const alertBeforeExpiration = "alertBeforeExpiration"_s;

/// The content of a record; a validity that is not set is `null`.
QString told(DElement const& record)
{
    QString const validity = record.validityDate();
    return "\"%1\" %2 %3"_s.arg(record.serialNumber(),
                                validity.isNull() ? "null"_s : QLatin1Char('"') + validity + QLatin1Char('"'),
                                QString::number(record.stbExpiredDelay()));
}

/// A file with these members in the record of the left bench, each on a line of its own from line 3 on.
QByteArray recordWith(QByteArray const& members)
{
    return "{\"tools\":\n{\"left bench\": {\n" + members + "\n}}}\n";
}

/// The record of the left bench as it is saved.
QByteArray savedWith(QByteArray const& members)
{
    return "{\n    \"tools\": {\n        \"left bench\": {\n            "
           + QByteArray(members).replace(", ", ",\n            ") + "\n        }\n    }\n}\n";
}

struct stat statOf(QString const& file)
{
    struct stat result = {};
    ::lstat(QFile::encodeName(file).constData(), &result);
    return result;
}

void setModified(QString const& file, qint64 seconds)
{
    timespec const times[2] = {{seconds, 0}, {seconds, 0}};
    ::utimensat(AT_FDCWD, QFile::encodeName(file).constData(), times, 0);
}

} // namespace

/// The file of the records: what is read from it, what is saved, and that nothing in it is lost.
class TestMaintenanceRecords : public QObject
{
    Q_OBJECT

private slots:
    void missingFile()
    {
        ScratchFolder const folder;
        QString const file = folder.filePath(fileName);
        MaintenanceRecords records(file);
        QCOMPARE(records.fileName(), file);
        QCOMPARE(records.complaints(), QStringList());
        QCOMPARE(records.tools(), QStringList());
        QCOMPARE(told(*records.record(leftBench)), "\"\" null 0"_s);
        QCOMPARE(records.save(), false);
        QCOMPARE(folder.names(), QStringList());

        records.edit(leftBench, {{alertBeforeExpiration, 7}});
        QCOMPARE(records.save(), true);
        QCOMPARE(folder.names(), QStringList{fileName});
        QCOMPARE(contentOf(file), savedWith("\"alertBeforeExpiration\": 7"));
    }

    void notRecords_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, QByteArray const& content, char const* message) {
            QTest::newRow(name) << content << "FILE:"_s + QString::fromUtf8(message);
        };
        char const* const end = "1:1: not JSON: syntax error while parsing value - unexpected end of input; "
                                "expected '[', '{', or a literal";
        row("empty", "", end);
        row("truncated", "{\n  \"tools\": {\n",
            "3:1: not JSON: syntax error while parsing object key - unexpected end of input; expected string "
            "literal");
        row("zeros, as after a crash", QByteArray(512, '\0'), "1:1: not JSON: NUL byte");
        row("list", "[]", "1: must be an object, not a list");
        row("null", "null", "1: must be an object, not null");
        row("no tools", "{}", "1: the key \"tools\" is missing");
        row("tools are a list", "{\n\"tools\": []}", "2: tools: must be an object, not a list");
        row("tools are null", "{\"tools\": null}", "1: tools: must be an object, not null");
        row("unknown key", "{\"tools\": {},\n\"tool\": 1}", "2: unknown key \"tool\", known are tools");
        row("tool twice", "{\"tools\": {\"a\": {},\n\"a\": {}}}",
            "2: tools: the key \"a\" stands twice in one object");
        row("field twice", "{\"tools\": {\"a\": {\"serialNumber\": \"1\",\n\"serialNumber\": \"2\"}}}",
            "2: tools.a: the key \"serialNumber\" stands twice in one object");
        row("not UTF-8", "{\"tools\": {\"\xff\": {}}}",
            "1:13: not JSON: syntax error while parsing object key - invalid string: ill-formed UTF-8 byte; "
            "last read: '\"\xef\xbf\xbd'; expected string literal");
    }

    void notRecords()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, message);
        ScratchFolder const folder;
        QString const file = folder.write(fileName, content);
        QCOMPARE(complaintOf([&] { MaintenanceRecords const records(file); }),
                 message.replace("FILE"_s, file));
        QCOMPARE(contentOf(file), content);
        QCOMPARE(folder.names(), QStringList{fileName});
    }

    void notReadable_data()
    {
        QTest::addColumn<bool>("isFolder");
        QTest::addColumn<QString>("message");
        QTest::newRow("folder") << true << "file to open is a directory"_s;
        QTest::newRow("no permission") << false << "Permission denied"_s;
    }

    void notReadable()
    {
        QFETCH(bool, isFolder);
        QFETCH(QString, message);
        ScratchFolder const folder;
        QCOMPARE(::chmod(QFile::encodeName(folder.path()).constData(), 0755), 0);
        QString const file = isFolder ? folder.path() : folder.write(fileName, R"({"tools": {}})");
        if (!isFolder)
            QVERIFY(QFile::setPermissions(file, QFile::Permissions()));
        QCOMPARE(complaintInChild([&] {
                     becomeNobody();
                     MaintenanceRecords const records(file);
                 }),
                 file + ": "_s + message);
    }

    void notToBeFound_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("message");
        QTest::newRow("link to itself") << "loop.json"_s
                                        << "Too many levels of symbolic links"_s;
        QTest::newRow("in a closed folder") << "closed/records.json"_s
                                            << "Permission denied"_s;
        QTest::newRow("link into a closed folder") << "link.json"_s
                                                   << "Permission denied"_s;
        QTest::newRow("name beyond all") << QString(300, QLatin1Char('x')) << "File name too long"_s;
    }

    void notToBeFound()
    {
        // Taken for missing, the records would be shown as empty and, once somebody may write, be lost.
        QFETCH(QString, name);
        QFETCH(QString, message);
        ScratchFolder const folder;
        QDir const closed(folder.filePath("closed"_s));
        QVERIFY(closed.mkpath("."_s));
        folder.write("closed/records.json"_s, recordWith(""));
        QVERIFY(QFile::link("loop.json"_s, folder.filePath("loop.json"_s)));
        QVERIFY(QFile::link("closed/records.json"_s, folder.filePath("link.json"_s)));
        QCOMPARE(::chmod(QFile::encodeName(folder.path()).constData(), 0755), 0);
        QCOMPARE(::chmod(QFile::encodeName(closed.path()).constData(), 0), 0);
        QString const file = folder.filePath(name);
        QString const complaint = complaintInChild([&] {
            becomeNobody();
            MaintenanceRecords const records(file);
        });
        QCOMPARE(::chmod(QFile::encodeName(closed.path()).constData(), 0700), 0);
        QCOMPARE(complaint, file + ": "_s + message);
    }

    void fields_data()
    {
        QTest::addColumn<QByteArray>("members");
        QTest::addColumn<QString>("record");
        QTest::addColumn<QStringList>("complaints");
        auto const row = [](char const* name, QByteArray const& members, char const* record,
                            QStringList const& complaints = {}) {
            QTest::newRow(name) << members << QString::fromUtf8(record) << complaints;
        };
        QByteArray const serial = "\"serialNumber\": \"S\",\n";
        QByteArray const day = "\"validityDate\": \"2027-03-01\",\n";
        QByteArray const alert = "\"alertBeforeExpiration\": 14";
        row("all", serial + day + alert, "\"S\" \"2027-03-01\" 14");
        row("none", "", "\"\" null 0");
        row("no serial number", day + alert, "\"\" \"2027-03-01\" 14");
        row("no validity", serial + alert, "\"S\" null 14");
        row("validity null", serial + "\"validityDate\": null,\n" + alert, "\"S\" null 14");
        row("validity empty", serial + "\"validityDate\": \"\",\n" + alert, "\"S\" \"\" 14");
        row("validity that is no date", serial + "\"validityDate\": \"soon\",\n" + alert,
            "\"S\" \"soon\" 14");
        row("alert zero", serial + day + "\"alertBeforeExpiration\": 0", "\"S\" \"2027-03-01\" 0");
        row("greatest alert", serial + day + "\"alertBeforeExpiration\": 2147483647",
            "\"S\" \"2027-03-01\" 2147483647");

        for (auto const& [name, value] :
             {std::pair{"number", "42"}, {"null", "null"}, {"truth value", "true"}}) {
            QString const kind = qstrcmp(name, "null") == 0 ? "null"_s : "a "_s + QString::fromLatin1(name);
            row(qPrintable("serial number: %1"_s.arg(QLatin1String(name))),
                "\"serialNumber\": " + QByteArray(value) + ",\n" + day + alert, "\"\" \"2027-03-01\" 14",
                {"FILE:3: tools.left bench.serialNumber: must be a text, not "_s + kind});
            if (kind != "null"_s)
                row(qPrintable("validity: %1"_s.arg(QLatin1String(name))),
                    serial + "\"validityDate\": " + QByteArray(value) + ",\n" + alert, "\"S\" null 14",
                    {"FILE:4: tools.left bench.validityDate: must be a text, not "_s + kind});
        }
        for (char const* const value :
             {"\"14\"", "14.5", "14.0", "-1", "2147483648", "99999999999999999999", "null", "true", "[14]"})
            row(qPrintable("alert: %1"_s.arg(QLatin1String(value))),
                serial + day + "\"alertBeforeExpiration\": " + QByteArray(value), "\"S\" \"2027-03-01\" 0",
                {"FILE:5: tools.left bench.alertBeforeExpiration: must be a whole number from 0 "
                 "to 2147483647"_s});
        row("unknown key", serial + "\"serial\": 7,\n" + day + alert, "\"S\" \"2027-03-01\" 14",
            {"FILE:4: tools.left bench: unknown key \"serial\", known are serialNumber, "
             "validityDate, alertBeforeExpiration"_s});
        row("everything wrong", "\"serialNumber\": 1,\n\"validityDate\": 2,\n\"alertBeforeExpiration\": -3",
            "\"\" null 0",
            {"FILE:3: tools.left bench.serialNumber: must be a text, not a number"_s,
             "FILE:4: tools.left bench.validityDate: must be a text, not a number"_s,
             "FILE:5: tools.left bench.alertBeforeExpiration: must be a whole number from 0 to "
             "2147483647"_s});
    }

    void fields()
    {
        QFETCH(QByteArray, members);
        QFETCH(QString, record);
        QFETCH(QStringList, complaints);
        ScratchFolder const folder;
        QString const file = folder.write(fileName, recordWith(members));
        MaintenanceRecords records(file);
        QCOMPARE(records.complaints(), complaints.replaceInStrings("FILE"_s, file));
        QCOMPARE(records.tools(), QStringList{leftBench});
        QCOMPARE(told(*records.record(leftBench)), record);
        QCOMPARE(contentOf(file), recordWith(members));
    }

    void noRecord_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QString>("kind");
        QTest::newRow("number") << QByteArray("7") << "a number"_s;
        QTest::newRow("list") << QByteArray("[]") << "a list"_s;
        QTest::newRow("text") << QByteArray("\"ZRT-0042\"") << "a text"_s;
    }

    void noRecord()
    {
        QFETCH(QByteArray, value);
        QFETCH(QString, kind);
        ScratchFolder const folder;
        QByteArray const content = "{\"tools\": {\"a\": {\"serialNumber\": \"A\"},\n\"b\": " + value + "}}";
        QString const file = folder.write(fileName, content);
        MaintenanceRecords records(file);
        QCOMPARE(records.complaints(),
                 QStringList{"%1:2: tools.b: must be an object, not %2"_s.arg(file, kind)});
        QCOMPARE(told(*records.record("a"_s)), "\"A\" null 0"_s);
        QCOMPARE(told(*records.record("b"_s)), "\"\" null 0"_s);

        // Whatever it was meant to be, it is not for the program to throw it away.
        records.edit("b"_s, {{serialNumber, "B"_s}});
        QCOMPARE(complaintOf([&] { records.save(); }),
                 "%1: the records could not be saved: there, \"b\" is no record"_s.arg(file));
        QCOMPARE(contentOf(file), content);
        QCOMPARE(folder.names(), QStringList{fileName});
    }

    void theSameRecordEachTime()
    {
        ScratchFolder const folder;
        MaintenanceRecords records(folder.write(fileName, R"({"tools": {"b": {}, "": {}, "a": {}}})"));
        QCOMPARE(records.tools(), QStringList({QString(), "a"_s, "b"_s}));
        auto const record = records.record("b"_s);
        QVERIFY(record);
        QCOMPARE(records.record("b"_s), record);
        records.edit("b"_s, {{serialNumber, "B"_s}});
        QCOMPARE(record->serialNumber(), "B"_s);
        QCOMPARE(records.record("b"_s), record);
        QVERIFY(records.record("a"_s) != record);
        QVERIFY(records.record("B"_s) != record);
    }

    void saves_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QByteArray>("after");
        auto const row = [](char const* name, QByteArray const& before, QVariantMap const& parameters,
                            QByteArray const& after) {
            QTest::newRow(name) << before << parameters << after;
        };
        QVariantMap const serial{{serialNumber, "new"_s}};
        row("all fields", R"({"tools": {}})",
            {{alertBeforeExpiration, 14}, {serialNumber, "ZRT-0042"_s}, {validityDate, "2027-03-01"_s}},
            savedWith(
                R"("serialNumber": "ZRT-0042", "validityDate": "2027-03-01", "alertBeforeExpiration": 14)"));
        row("one field", R"({"tools": {}})", serial, savedWith(R"("serialNumber": "new")"));
        row("field in its place",
            recordWith(R"("alertBeforeExpiration": 1, "serialNumber": "old", "validityDate": "")"), serial,
            savedWith(R"("alertBeforeExpiration": 1, "serialNumber": "new", "validityDate": "")"));
        row("null stays", recordWith(R"("validityDate": null)"), serial,
            savedWith(R"("validityDate": null, "serialNumber": "new")"));
        row("empty stays", recordWith(R"("validityDate": "")"), serial,
            savedWith(R"("validityDate": "", "serialNumber": "new")"));
        row("wrong fields stay", recordWith(R"("validityDate": 20270301, "alertBeforeExpiration": "14")"),
            serial,
            savedWith(R"("validityDate": 20270301, "alertBeforeExpiration": "14", "serialNumber": "new")"));
        row("out of range stays", recordWith(R"("alertBeforeExpiration": -5)"), serial,
            savedWith(R"("alertBeforeExpiration": -5, "serialNumber": "new")"));
        row("wrong field is mended by its edit", recordWith(R"("alertBeforeExpiration": "14")"),
            {{alertBeforeExpiration, 15}}, savedWith(R"("alertBeforeExpiration": 15)"));
        row("foreign values",
            recordWith(
                R"("z": 18446744073709551615, "a": -9223372036854775808, "m": 0.1, "b": true, "n": null)"),
            serial,
            savedWith(
                R"("z": 18446744073709551615, "a": -9223372036854775808, "m": 0.1, "b": true, "n": null, )"
                R"("serialNumber": "new")"));
        row("nested foreign value", R"({"tools": {"left bench": {"x": {"b": [1, {}], "a": ""}}}})", serial,
            savedWith(R"("x": {
                "b": [
                    1,
                    {}
                ],
                "a": ""
            }, "serialNumber": "new")"));
        row("null record", R"({"tools": {"left bench": null}})", serial,
            savedWith(R"("serialNumber": "new")"));
        row("other tools",
            "{\"tools\": {\"z\": {\"serialNumber\": \"\\u00e9\\u0001\"}, \"left bench\": {}, \"a\": 7, \"\": "
            "[]}}",
            serial,
            "{\n"
            "    \"tools\": {\n"
            "        \"z\": {\n"
            "            \"serialNumber\": \"é\\u0001\"\n"
            "        },\n"
            "        \"left bench\": {\n"
            "            \"serialNumber\": \"new\"\n"
            "        },\n"
            "        \"a\": 7,\n"
            "        \"\": []\n"
            "    }\n"
            "}\n");
    }

    void saves()
    {
        QFETCH(QByteArray, before);
        QFETCH(QVariantMap, parameters);
        QFETCH(QByteArray, after);
        ScratchFolder const folder;
        QString const file = folder.write(fileName, before);
        MaintenanceRecords records(file);
        records.edit(leftBench, parameters);
        QCOMPARE(contentOf(file), before);
        QCOMPARE(records.save(), true);
        QCOMPARE(contentOf(file), after);
        QCOMPARE(folder.names(), QStringList{fileName});
    }

    void texts_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << ""_s;
        QTest::newRow("long") << QString(10'000, QLatin1Char('x'));
        QTest::newRow("blanks") << "  a  "_s;
        QTest::newRow("quotes") << "\"a\" 'b' \\\"c\\\" \\"_s;
        QTest::newRow("line breaks") << "a\nb\r\nc\r"_s;
        QTest::newRow("emoji") << "\U0001F600 \U0001F468\u200D\U0001F527"_s;
        QTest::newRow("right to left") << "\u05D0\u05D1\u202E"_s;
        QTest::newRow("line separators") << "\u2028\u2029\u0085"_s;
        QTest::newRow("looks like JSON") << R"({"tools": {}}, null)"_s;
        QTest::newRow("placeholders") << "%1 %2 {OBJECT_ID} ${x}"_s;
        QString controls;
        for (ushort c = 0; c < ' '; ++c)
            controls += QChar(c);
        QTest::newRow("control characters") << controls + QChar(0x7f);
    }

    void texts()
    {
        QFETCH(QString, text);
        ScratchFolder const folder;
        QString const file = folder.filePath(fileName);
        {
            MaintenanceRecords records(file);
            records.edit(leftBench, {{serialNumber, text}});
            records.save();
        }
        MaintenanceRecords records(file);
        QCOMPARE(records.complaints(), QStringList());
        QCOMPARE(records.record(leftBench)->serialNumber(), text);
    }

    void names_data() { texts_data(); }

    void names()
    {
        QFETCH(QString, text);
        ScratchFolder const folder;
        QString const file = folder.write(fileName, R"({"tools": {"other": {}}})");
        {
            MaintenanceRecords records(file);
            records.edit(text, {{alertBeforeExpiration, 3}});
            records.save();
        }
        MaintenanceRecords records(file);
        QCOMPARE(records.complaints(), QStringList());
        QStringList tools{"other"_s, text};
        tools.sort();
        QCOMPARE(records.tools(), tools);
        QCOMPARE(records.record(text)->stbExpiredDelay(), 3);
    }

    void validities_data()
    {
        QTest::addColumn<QString>("onPage");
        QTest::addColumn<QString>("handedOver");
        QTest::addColumn<QByteArray>("saved");
        QTest::addColumn<QString>("record");

        QString const empty = ""_s;
        QString const day = "2027-03-01"_s;
        QTest::newRow("day") << day << day << QByteArray("\"2027-03-01\"") << "\"\" \"2027-03-01\" 0";
        QTest::newRow("permanent") << empty << empty << QByteArray("\"\"") << "\"\" \"\" 0";
        QTest::newRow("not set") << QString() << QString() << QByteArray("null") << "\"\" null 0";
        // A script hands the null text over as an empty one.
        QTest::newRow("not set, from a script") << QString() << empty << QByteArray("null") << "\"\" null 0";
        QTest::newRow("permanent, null from a script")
            << empty << QString() << QByteArray("\"\"") << "\"\" \"\" 0";
        QTest::newRow("only handed over")
            << QString() << day << QByteArray("\"2027-03-01\"") << "\"\" \"2027-03-01\" 0";
        QTest::newRow("permanent, only handed over") << day << empty << QByteArray("\"\"") << "\"\" \"\" 0";
    }

    void validities()
    {
        QFETCH(QString, onPage);
        QFETCH(QString, handedOver);
        QFETCH(QByteArray, saved);
        QFETCH(QString, record);
        ScratchFolder const folder;
        QString const file = folder.filePath(fileName);
        MaintenanceRecords records(file);
        // The page puts what is edited into the record at once, and hands it over at its end.
        records.record(leftBench)->setValidityDate(onPage);
        records.edit(leftBench, {{validityDate, handedOver}});
        QCOMPARE(records.save(), true);
        QCOMPARE(contentOf(file), savedWith("\"validityDate\": " + saved));
        QCOMPARE(told(*MaintenanceRecords(file).record(leftBench)), record);
    }

    void alerts_data()
    {
        QTest::addColumn<int>("days");
        for (int const days : {0, 1, 365, std::numeric_limits<int>::max()})
            QTest::newRow(qPrintable(QString::number(days))) << days;
    }

    void alerts()
    {
        QFETCH(int, days);
        ScratchFolder const folder;
        QString const file = folder.write(fileName, recordWith("\"alertBeforeExpiration\": 9"));
        MaintenanceRecords records(file);
        records.edit(leftBench, {{alertBeforeExpiration, days}});
        QCOMPARE(records.save(), true);
        MaintenanceRecords again(file);
        QCOMPARE(again.complaints(), QStringList());
        QCOMPARE(again.record(leftBench)->stbExpiredDelay(), days);
    }

    void savesOnlyEdits()
    {
        ScratchFolder const folder;
        QByteArray const content = recordWith("\"serialNumber\": \"1\"");
        QString const file = folder.write(fileName, content);
        setModified(file, 1'000'000'000);
        auto const before = statOf(file);
        auto const isUntouched = [&] {
            auto const now = statOf(file);
            return now.st_ino == before.st_ino && now.st_mtim.tv_sec == before.st_mtim.tv_sec
                   && contentOf(file) == content && folder.names() == QStringList{fileName};
        };
        MaintenanceRecords records(file);
        QCOMPARE(records.save(), false);
        QVERIFY(isUntouched());
        // What nobody handed over is not saved.
        records.record(leftBench)->setSerialNumber("2"_s);
        records.record("other"_s)->setSerialNumber("3"_s);
        records.edit(leftBench, {});
        QCOMPARE(records.save(), false);
        QVERIFY(isUntouched());

        records.edit(leftBench, {{alertBeforeExpiration, 4}});
        QCOMPARE(records.save(), true);
        QCOMPARE(contentOf(file), savedWith(R"("serialNumber": "1", "alertBeforeExpiration": 4)"));
        auto const saved = statOf(file);
        QCOMPARE(records.save(), false);
        QCOMPARE(statOf(file).st_ino, saved.st_ino);
    }

    void refusesEdits_data()
    {
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, QVariantMap const& parameters, char const* message) {
            QTest::newRow(name) << parameters
                                << "maintenance of \"left\\nbench\": "_s + QString::fromUtf8(message);
        };
        QVariantMap const good{{alertBeforeExpiration, 14}, {validityDate, "2030-01-01"_s}};
        auto const with = [&good](QString const& key, QVariant const& value) {
            QVariantMap map = good;
            map[key] = value;
            return map;
        };
        row("unknown key", with("serial"_s, "1"_s), "unknown parameter \"serial\"");
        row("key in another case", with("serialnumber"_s, "1"_s), "unknown parameter \"serialnumber\"");
        row("empty key", with(QString(), 1), "unknown parameter \"\"");
        row("key with a line break", with("a\nb"_s, 1), "unknown parameter \"a\\nb\"");
        row("serial number: number", with(serialNumber, 42), "\"serialNumber\" must be a text, not 42 (int)");
        row("serial number: bytes", with(serialNumber, QByteArray("42")),
            "\"serialNumber\" must be a text, not \"42\" (QByteArray)");
        row("validity: date", with(validityDate, QDate(2030, 1, 1)),
            "\"validityDate\" must be a text, not \"2030-01-01\" (QDate)");
        row("alert: text", with(alertBeforeExpiration, "14"_s),
            "\"alertBeforeExpiration\" must be a number of days, not \"14\" (QString)");
        row("alert: fraction", with(alertBeforeExpiration, 14.0),
            "\"alertBeforeExpiration\" must be a number of days, not 14.0 (double)");
        row("alert: truth value", with(alertBeforeExpiration, true),
            "\"alertBeforeExpiration\" must be a number of days, not true (bool)");
        row("alert: below 0", with(alertBeforeExpiration, -1),
            "\"alertBeforeExpiration\" must be a number of days, not -1 (int)");
        row("last of all is wrong", with("zzz"_s, 1), "unknown parameter \"zzz\"");
    }

    void refusesEdits()
    {
        QFETCH(QVariantMap, parameters);
        QFETCH(QString, message);
        ScratchFolder const folder;
        MaintenanceRecords records(folder.filePath(fileName));
        QString const tool = "left\nbench"_s;
        QCOMPARE(complaintOf([&] { records.edit(tool, parameters); }), message);
        QCOMPARE(told(*records.record(tool)), "\"\" null 0"_s);
        QCOMPARE(records.save(), false);
        QCOMPARE(folder.names(), QStringList());
    }

    void refusesWhatCannotBeReadAgain()
    {
        ScratchFolder const folder;
        MaintenanceRecords records(folder.filePath(fileName));
        records.edit(leftBench, {{serialNumber, QString(5 << 20, QLatin1Char('9'))}});
        QCOMPARE(complaintOf([&] { records.save(); }),
                 folder.filePath(fileName)
                     + ": the records could not be saved: they would be larger than can be read again"_s);
        QCOMPARE(folder.names(), QStringList());
    }

    void fileIsReplaced()
    {
        // Written into, it would be half a file when the power goes.
        ScratchFolder const folder;
        QByteArray const content = recordWith("");
        QString const file = folder.write(fileName, content);
        QVERIFY(QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
        QString const former = folder.filePath("former.json"_s);
        QCOMPARE(::link(QFile::encodeName(file).constData(), QFile::encodeName(former).constData()), 0);
        MaintenanceRecords records(file);
        records.edit(leftBench, {{alertBeforeExpiration, 4}});
        records.save();
        QCOMPARE(contentOf(file), savedWith("\"alertBeforeExpiration\": 4"));
        QCOMPARE(contentOf(former), content);
        QCOMPARE(statOf(file).st_mode & 0777U, 0640U);
    }

    void linkIsKept_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<bool>("isThere");
        QTest::newRow("beside") << "target.json"_s << true;
        QTest::newRow("in another folder") << "deep/target.json"_s << true;
        QTest::newRow("to nothing yet") << "target.json"_s << false;
    }

    void linkIsKept()
    {
        QFETCH(QString, target);
        QFETCH(bool, isThere);
        ScratchFolder const folder;
        QDir(folder.path()).mkdir("deep"_s);
        if (isThere)
            folder.write(target, recordWith("\"serialNumber\": \"1\""));
        QString const link = folder.filePath(fileName);
        QCOMPARE(::symlink(QFile::encodeName(target).constData(), QFile::encodeName(link).constData()), 0);
        MaintenanceRecords records(link);
        QCOMPARE(records.record(leftBench)->serialNumber(), isThere ? "1"_s : QString());
        records.edit(leftBench, {{serialNumber, "2"_s}});
        QCOMPARE(records.save(), true);
        QVERIFY(S_ISLNK(statOf(link).st_mode));
        QVERIFY(S_ISREG(statOf(folder.filePath(target)).st_mode));
        QCOMPARE(contentOf(folder.filePath(target)), savedWith("\"serialNumber\": \"2\""));
        QStringList names{"deep"_s, fileName};
        if (!target.contains(QLatin1Char('/')))
            names += target;
        QCOMPARE(folder.names(), names);
    }

    void changedMeanwhile_data()
    {
        QTest::addColumn<QByteArray>("meanwhile");
        QTest::addColumn<QByteArray>("after");
        auto const row = [](char const* name, QByteArray const& meanwhile, QByteArray const& after) {
            QTest::newRow(name) << meanwhile << after;
        };
        row("other field", recordWith(R"("serialNumber": "1", "alertBeforeExpiration": 99)"),
            savedWith(R"("serialNumber": "new", "alertBeforeExpiration": 99)"));
        row("same field", recordWith(R"("serialNumber": "theirs", "alertBeforeExpiration": 7)"),
            savedWith(R"("serialNumber": "new", "alertBeforeExpiration": 7)"));
        row("field gone", recordWith(""), savedWith("\"serialNumber\": \"new\""));
        row("record gone", R"({"tools": {}})", savedWith("\"serialNumber\": \"new\""));
        row("file gone", QByteArray(), savedWith("\"serialNumber\": \"new\""));
        row("other tool", R"({"tools": {"other": {"serialNumber": "O"}}, "later": 2})", R"({
    "tools": {
        "other": {
            "serialNumber": "O"
        },
        "left bench": {
            "serialNumber": "new"
        }
    },
    "later": 2
}
)");
    }

    void changedMeanwhile()
    {
        QFETCH(QByteArray, meanwhile);
        QFETCH(QByteArray, after);
        ScratchFolder const folder;
        QString const file =
            folder.write(fileName, recordWith(R"("serialNumber": "1", "alertBeforeExpiration": 7)"));
        MaintenanceRecords records(file);
        records.edit(leftBench, {{serialNumber, "new"_s}});
        if (meanwhile.isNull())
            QVERIFY(QFile::remove(file));
        else
            folder.write(fileName, meanwhile);
        QCOMPARE(records.save(), true);
        QCOMPARE(contentOf(file), after);
    }

    void twoOnOneFile()
    {
        ScratchFolder const folder;
        QString const file = folder.write(fileName, R"({"tools": {"a": {"serialNumber": "1"}}})");
        MaintenanceRecords one(file);
        MaintenanceRecords other(file);
        QString const a = "a"_s;
        QString const b = "b"_s;
        one.edit(a, {{serialNumber, "one"_s}});
        other.edit(a, {{alertBeforeExpiration, 5}});
        other.edit(b, {{serialNumber, "other"_s}});
        QCOMPARE(one.save(), true);
        QCOMPARE(other.save(), true);
        MaintenanceRecords both(file);
        QCOMPARE(told(*both.record(a)), "\"one\" null 5"_s);
        QCOMPARE(told(*both.record(b)), "\"other\" null 0"_s);

        // Neither writes again what it has already saved.
        one.edit(b, {{alertBeforeExpiration, 6}});
        other.edit(a, {{serialNumber, "later"_s}});
        QCOMPARE(other.save(), true);
        QCOMPARE(one.save(), true);
        MaintenanceRecords again(file);
        QCOMPARE(told(*again.record(a)), "\"later\" null 5"_s);
        QCOMPARE(told(*again.record(b)), "\"other\" null 6"_s);
    }

    void unusableMeanwhile_data()
    {
        QTest::addColumn<QByteArray>("meanwhile");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, char const* meanwhile, char const* message) {
            QTest::newRow(name) << QByteArray(meanwhile) << QString::fromUtf8(message);
        };
        row("empty", "", "FILE:1:1: not JSON");
        row("truncated", "{\"tools\": {\"left bench\": {\"seri", "FILE:1:32: not JSON");
        row("no tools", "{}", "FILE:1: the key \"tools\" is missing");
        row("tools are a list", "{\"tools\": []}", "FILE:1: tools: must be an object, not a list");
        row("tool is no record", "{\"tools\": {\"left bench\": \"x\"}}",
            "FILE: the records could not be saved: there, \"left bench\" is no record");
        row("number beyond all", "{\"tools\": {\"a\": 1e999}}", "FILE:1: not usable JSON");
    }

    void unusableMeanwhile()
    {
        QFETCH(QByteArray, meanwhile);
        QFETCH(QString, message);
        ScratchFolder const folder;
        QString const file = folder.write(fileName, recordWith("\"serialNumber\": \"1\""));
        MaintenanceRecords records(file);
        records.edit(leftBench, {{alertBeforeExpiration, 7}});
        folder.write(fileName, meanwhile);
        QString const complaint = complaintOf([&] { records.save(); });
        QVERIFY2(complaint.startsWith(message.replace("FILE"_s, file)), qPrintable(complaint));
        QCOMPARE(contentOf(file), meanwhile);
        QCOMPARE(folder.names(), QStringList{fileName});

        // The edits are there for another try.
        folder.write(fileName, recordWith("\"serialNumber\": \"2\""));
        QCOMPARE(records.save(), true);
        QCOMPARE(contentOf(file), savedWith(R"("serialNumber": "2", "alertBeforeExpiration": 7)"));
    }

    void fullDisk_data()
    {
        QTest::addColumn<int>("space");
        QTest::addColumn<int>("size");
        QTest::addColumn<QString>("message");
        QString const tooLarge = "File too large"_s;
        QTest::newRow("no space at all") << 0 << 10 << "FILE.lock cannot be written"_s;
        QTest::newRow("not enough") << 512 << 1000 << tooLarge;
        QTest::newRow("not enough for much") << 4096 << 1'000'000 << tooLarge;
    }

    void fullDisk()
    {
        QFETCH(int, space);
        QFETCH(int, size);
        QFETCH(QString, message);
        ScratchFolder const folder;
        QByteArray const content = recordWith("\"alertBeforeExpiration\": 1");
        QString const file = folder.write(fileName, content);
        MaintenanceRecords records(file);
        QString const serial(size, QLatin1Char('x'));
        records.edit(leftBench, {{serialNumber, serial}});
        QString complaint;
        {
            FileSizeLimit const limit(static_cast<rlim_t>(space));
            complaint = complaintOf([&] { records.save(); });
        }
        QCOMPARE(complaint,
                 "%1: the records could not be saved: "_s.arg(file) + message.replace("FILE"_s, file));
        QCOMPARE(contentOf(file), content);
        QCOMPARE(folder.names(), QStringList{fileName});

        QCOMPARE(records.save(), true);
        QCOMPARE(contentOf(file),
                 savedWith("\"alertBeforeExpiration\": 1, \"serialNumber\": \"" + serial.toUtf8() + '"'));
        QCOMPARE(folder.names(), QStringList{fileName});
    }

    void noPermission_data()
    {
        QTest::addColumn<int>("folderMode");
        QTest::addColumn<int>("fileMode");
        QTest::addColumn<QString>("message");
        QTest::newRow("folder") << 0555 << 0666 << "FILE.lock cannot be written"_s;
        QTest::newRow("file") << 0777 << 0444 << "Existing file FILE is not writable"_s;
    }

    void noPermission()
    {
        QFETCH(int, folderMode);
        QFETCH(int, fileMode);
        QFETCH(QString, message);
        ScratchFolder const folder;
        QByteArray const content = recordWith("\"serialNumber\": \"1\"");
        QString const file = folder.write(fileName, content);
        QByteArray const folderPath = QFile::encodeName(folder.path());
        QCOMPARE(::chmod(QFile::encodeName(file).constData(), static_cast<mode_t>(fileMode)), 0);
        QCOMPARE(::chmod(folderPath.constData(), static_cast<mode_t>(folderMode)), 0);
        QString const complaint = complaintInChild([&] {
            becomeNobody();
            MaintenanceRecords records(file);
            records.edit(leftBench, {{serialNumber, "2"_s}});
            records.save();
        });
        QCOMPARE(::chmod(folderPath.constData(), 0700), 0);
        QCOMPARE(complaint,
                 "%1: the records could not be saved: "_s.arg(file) + message.replace("FILE"_s, file));
        QCOMPARE(contentOf(file), content);
        QCOMPARE(folder.names(), QStringList{fileName});
    }

    void locked()
    {
        // Another program has the records open by their own name, this one by a link.
        ScratchFolder const folder;
        QByteArray const content = recordWith("\"serialNumber\": \"1\"");
        QString const target = folder.write("target.json"_s, content);
        QString const link = folder.filePath(fileName);
        QVERIFY(QFile::link(target, link));
        MaintenanceRecords records(link);
        records.edit(leftBench, {{alertBeforeExpiration, 7}});
        QLockFile lock(target + ".lock"_s);
        QVERIFY(lock.lock());
        QCOMPARE(complaintOf([&] { records.save(); }),
                 "%1: the records could not be saved: another program is writing them"_s.arg(link));
        QCOMPARE(contentOf(target), content);
        lock.unlock();
        QCOMPARE(records.save(), true);
        QCOMPARE(contentOf(target), savedWith(R"("serialNumber": "1", "alertBeforeExpiration": 7)"));
        QCOMPARE(folder.names(), QStringList({fileName, "target.json"_s}));
    }

    void lockOfADeadProgram()
    {
        ScratchFolder const folder;
        QString const file = folder.filePath(fileName);
        QString const lockName = file + ".lock"_s;
        // The child dies with the lock in its hands.
        QCOMPARE(complaintInChild([&lockName] {
                     auto* const lock = new QLockFile(lockName);
                     if (!lock->lock())
                         throw InputError("no lock"_s);
                 }),
                 noComplaint);
        QVERIFY(QFile::exists(lockName));
        MaintenanceRecords records(file);
        records.edit(leftBench, {{alertBeforeExpiration, 7}});
        QCOMPARE(records.save(), true);
        QCOMPARE(contentOf(file), savedWith("\"alertBeforeExpiration\": 7"));
        QCOMPARE(folder.names(), QStringList{fileName});
    }
};

QTEST_GUILESS_MAIN(TestMaintenanceRecords)
#include "tst_maintenance_records.moc"
