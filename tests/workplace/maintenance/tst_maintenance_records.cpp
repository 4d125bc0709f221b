#include "maintenance/maintenance_records.h"

#include "complaint.h"
#include "in_child.h"
#include "literals.h"
#include "scratch_folder.h"

#include <plugin_management/d_element.h>

#include <QLockFile>
#include <QtTest>

#include <sys/stat.h>

#include <limits>

namespace
{

QString const leftBench = "left bench"_s;
QString const serialNumber = "serialNumber"_s;
QString const validityDate = "validityDate"_s;
QString const alertBeforeExpiration = "alertBeforeExpiration"_s;
QVariantMap const newSerial{{serialNumber, "new"_s}};

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

/// A folder with the file of records, or without.
class Place
{
public:
    explicit Place(QByteArray const& content = {}) { write(content); }

    /// A null array takes the file away.
    void write(QByteArray const& content) const
    {
        if (content.isNull())
            QFile::remove(file);
        else
            folder.write("records.json"_s, content);
    }
    /// The content of the file, provided there is nothing beside it.
    QByteArray content() const
    {
        QStringList const names = folder.names();
        return names == QStringList{"records.json"_s} ? contentOf(file)
                                                      : names.join(QLatin1Char(' ')).toUtf8();
    }
    /// What complaintOf() answers, FILE standing for the file.
    template <class Action> QString complaint(Action const& action) const
    {
        return complaintOf(action).replace(file, "FILE"_s);
    }
    QString complaintOfSaving(MaintenanceRecords& records) const
    {
        return complaint([&records] { records.save(); });
    }

    ScratchFolder folder;
    QString file = folder.filePath("records.json"_s);
};

} // namespace

/// The file of the records: what is read from it, what is saved, and that nothing in it is lost.
class TestMaintenanceRecords : public QObject
{
    Q_OBJECT

private slots:
    void missingFile()
    {
        Place const place;
        MaintenanceRecords records(place.file);
        QCOMPARE(records.fileName(), place.file);
        QCOMPARE(records.tools(), QStringList());
        QCOMPARE(told(*records.record(leftBench)), "\"\" null 0"_s);
        QCOMPARE(records.save(), false);
        QCOMPARE(place.folder.names(), QStringList());
        records.edit(leftBench, {{alertBeforeExpiration, 7}});
        QCOMPARE(records.save(), true);
        QCOMPARE(place.content(), savedWith("\"alertBeforeExpiration\": 7"));
    }

    void unusable_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, QByteArray const& content, char const* message) {
            QTest::newRow(name) << content << "FILE:"_s + QString::fromUtf8(message);
        };
        row("zeros, as after a crash", QByteArray(512, '\0'), "1:1: not JSON: NUL byte");
        row("no tools", "{}", "1: the key \"tools\" is missing");
        row("tools are a list", "{\n\"tools\": []}", "2: tools: must be an object, not a list");
        row("number beyond all", "{\"tools\": {\"a\": 1e999}}",
            "1: not usable JSON: number overflow parsing '1e999'");
        row("field twice", "{\"tools\": {\"a\": {\"serialNumber\": \"1\",\n\"serialNumber\": \"2\"}}}",
            "2: tools.a: the key \"serialNumber\" stands twice in one object");
    }

    // From the beginning, or when the records are saved; then the edits are there for another try.
    void unusable()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, message);
        Place const place(content);
        QCOMPARE(place.complaint([&] { MaintenanceRecords const records(place.file); }), message);
        place.write(recordWith("\"serialNumber\": \"1\""));
        MaintenanceRecords records(place.file);
        records.edit(leftBench, {{alertBeforeExpiration, 7}});
        place.write(content);
        QCOMPARE(place.complaintOfSaving(records), message + "; the records could not be saved"_s);
        QCOMPARE(place.content(), content);
        place.write(recordWith("\"serialNumber\": \"2\""));
        QCOMPARE(records.save(), true);
        QCOMPARE(place.content(), savedWith(R"("serialNumber": "2", "alertBeforeExpiration": 7)"));
    }

    void unknownKey()
    {
        Place const place("{\"tools\": {},\n\"later\": 2}");
        QCOMPARE(place.complaint([&] { MaintenanceRecords const records(place.file); }),
                 "FILE:2: unknown key \"later\", known are tools"_s);
    }

    void notToBeFound_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* rule, QString const& name, char const* message) {
            QTest::newRow(rule) << name << QString::fromLatin1(message);
        };
        row("in a closed folder", "closed/records.json"_s, "Permission denied");
        row("link into a closed folder", "link.json"_s, "Permission denied");
        row("not to be read by everybody", "secret.json"_s, "Permission denied");
        row("name beyond all", QString(300, QLatin1Char('x')), "File name too long");
    }

    // Taken for missing, the records would be shown as empty and, once somebody may write, be lost.
    void notToBeFound()
    {
        QFETCH(QString, name);
        QFETCH(QString, message);
        ScratchFolder const folder;
        auto const chmod = [&folder](char const* what, mode_t mode) {
            return ::chmod(QFile::encodeName(folder.filePath(QLatin1String(what))).constData(), mode);
        };
        QVERIFY(QDir(folder.path()).mkdir("closed"_s));
        folder.write("closed/records.json"_s, recordWith(""));
        folder.write("secret.json"_s, recordWith(""));
        QVERIFY(QFile::link("closed/records.json"_s, folder.filePath("link.json"_s)));
        QCOMPARE(chmod(".", 0755) + chmod("secret.json", 0) + chmod("closed", 0), 0);
        QString const file = folder.filePath(name);
        QString const complaint = complaintInChild([&] {
            becomeNobody();
            MaintenanceRecords const records(file);
        });
        QCOMPARE(chmod("closed", 0700), 0);
        QCOMPARE(complaint, file + ": "_s + message);
    }

    void fields_data()
    {
        QTest::addColumn<QByteArray>("members");
        QTest::addColumn<QString>("record");
        QTest::addColumn<QString>("complaints");
        auto const row = [](char const* name, QByteArray const& members, char const* record,
                            char const* complaints = "") {
            QTest::newRow(name) << members << QString::fromUtf8(record) << QString::fromUtf8(complaints);
        };
        row("all", R"("serialNumber": "S", "validityDate": "2027-03-01", "alertBeforeExpiration": 14)",
            "\"S\" \"2027-03-01\" 14");
        row("none", "", "\"\" null 0");
        row("validity null", "\"validityDate\": null", "\"\" null 0");
        row("validity empty", "\"validityDate\": \"\"", "\"\" \"\" 0");
        row("validity that is no date", "\"validityDate\": \"soon\"", "\"\" \"soon\" 0");
        row("greatest alert", "\"alertBeforeExpiration\": 2147483647", "\"\" null 2147483647");
        // What is not right is left out, and the rest is read.
        row("serial number that is no text", "\"serialNumber\": null,\n\"alertBeforeExpiration\": 14",
            "\"\" null 14", "FILE:3: tools.left bench.serialNumber: must be a text, not null");
        row("unknown key", "\"serialNumber\": \"S\",\n\"serial\": 7", "\"S\" null 0",
            "FILE:4: tools.left bench: unknown key \"serial\", known are serialNumber, validityDate, "
            "alertBeforeExpiration");
        row("everything wrong", "\"serialNumber\": 1,\n\"validityDate\": 2,\n\"alertBeforeExpiration\": -3",
            "\"\" null 0",
            "FILE:3: tools.left bench.serialNumber: must be a text, not a number; "
            "FILE:4: tools.left bench.validityDate: must be a text, not a number; "
            "FILE:5: tools.left bench.alertBeforeExpiration: must be a whole number from 0 to 2147483647");
    }

    void fields()
    {
        QFETCH(QByteArray, members);
        QFETCH(QString, record);
        QFETCH(QString, complaints);
        Place const place(recordWith(members));
        MaintenanceRecords records(place.file);
        QCOMPARE(records.complaints().join("; "_s).replace(place.file, "FILE"_s), complaints);
        QCOMPARE(records.tools(), QStringList{leftBench});
        QCOMPARE(told(*records.record(leftBench)), record);
        QCOMPARE(place.content(), recordWith(members));
    }

    void noRecord()
    {
        QByteArray const content = R"({"tools": {"a": {"serialNumber": "A"}, "b": 7}})";
        Place const place(content);
        MaintenanceRecords records(place.file);
        QCOMPARE(records.complaints(),
                 QStringList{"%1:1: tools.b: must be an object, not a number"_s.arg(place.file)});
        QCOMPARE(told(*records.record("a"_s)), "\"A\" null 0"_s);
        QCOMPARE(told(*records.record("b"_s)), "\"\" null 0"_s);
        // Whatever it was meant to be, it is not for the program to throw it away.
        records.edit("b"_s, newSerial);
        QCOMPARE(place.complaintOfSaving(records),
                 "FILE: the records could not be saved: there, \"b\" is no record"_s);
        QCOMPARE(place.content(), content);
    }

    void theSameRecordEachTime()
    {
        Place const place(R"({"tools": {"b": {}, "": {}, "a": {}}})");
        MaintenanceRecords records(place.file);
        QCOMPARE(records.tools(), QStringList({QString(), "a"_s, "b"_s}));
        auto const record = records.record("b"_s);
        records.edit("b"_s, newSerial);
        QCOMPARE(record->serialNumber(), "new"_s);
        QCOMPARE(records.record("b"_s), record);
        QVERIFY(records.record("a"_s) != record);
        QVERIFY(records.record("B"_s) != record);
    }

    void saves_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QByteArray>("after");
        auto const row = [](char const* name, QByteArray const& before, QByteArray const& after,
                            QVariantMap const& parameters = newSerial) {
            QTest::newRow(name) << before << parameters << after;
        };
        row("all fields", R"({"tools": {}})",
            savedWith(
                R"("serialNumber": "S", "validityDate": "2027-03-01", "alertBeforeExpiration": 2147483647)"),
            {{alertBeforeExpiration, std::numeric_limits<int>::max()},
             {serialNumber, "S"_s},
             {validityDate, "2027-03-01"_s}});
        row("field in its place",
            recordWith(R"("alertBeforeExpiration": 1, "serialNumber": "old", "validityDate": "")"),
            savedWith(R"("alertBeforeExpiration": 1, "serialNumber": "new", "validityDate": "")"));
        row("null stays", recordWith(R"("validityDate": null)"),
            savedWith(R"("validityDate": null, "serialNumber": "new")"));
        row("wrong fields stay", recordWith(R"("validityDate": 20270301, "alertBeforeExpiration": -5)"),
            savedWith(R"("validityDate": 20270301, "alertBeforeExpiration": -5, "serialNumber": "new")"));
        row("wrong field is mended by its edit", recordWith(R"("alertBeforeExpiration": "14")"),
            savedWith(R"("alertBeforeExpiration": 0)"), {{alertBeforeExpiration, 0}});
        QByteArray const foreign =
            R"("z": 18446744073709551615, "a": -9223372036854775808, "m": 0.1, "b": true)";
        row("foreign values stay", recordWith(foreign), savedWith(foreign + R"(, "serialNumber": "new")"));
        row("null record", R"({"tools": {"left bench": null}})", savedWith(R"("serialNumber": "new")"));
        row("other tools stay",
            R"({"tools": {"z": {"x": [1, {}]}, "left bench": {}, "a": 7, "": "\u00e9\u0001"}})", R"({
    "tools": {
        "z": {
            "x": [
                1,
                {}
            ]
        },
        "left bench": {
            "serialNumber": "new"
        },
        "a": 7,
        "": "é\u0001"
    }
}
)");
    }

    void saves()
    {
        QFETCH(QByteArray, before);
        QFETCH(QVariantMap, parameters);
        QFETCH(QByteArray, after);
        Place const place(before);
        MaintenanceRecords records(place.file);
        records.edit(leftBench, parameters);
        QCOMPARE(place.content(), before);
        QCOMPARE(records.save(), true);
        QCOMPARE(place.content(), after);
    }

    void anyText()
    {
        QString text =
            "%1 {OBJECT_ID} \"a\" 'b' \\\"c\\\" \\\U0001F468\u200D\U0001F527\u2028\u2029\u0085\u007f"_s;
        for (ushort c = 0; c < ' '; ++c)
            text += QChar(c);
        Place const place;
        MaintenanceRecords records(place.file);
        records.edit(text, {{serialNumber, text}});
        records.save();
        MaintenanceRecords again(place.file);
        QCOMPARE(again.complaints(), QStringList());
        QCOMPARE(again.tools(), QStringList{text});
        QCOMPARE(again.record(text)->serialNumber(), text);
    }

    void validities_data()
    {
        QTest::addColumn<QString>("onPage");
        QTest::addColumn<QString>("handedOver");
        QTest::addColumn<QByteArray>("saved");
        auto const row = [](char const* name, QString const& onPage, QString const& handedOver,
                            QByteArray const& saved) {
            QTest::newRow(name) << onPage << handedOver << saved;
        };
        QString const notSet;
        QString const permanent = ""_s;
        QString const day = "2027-03-01"_s;
        row("day", day, day, "\"2027-03-01\"");
        row("permanent", permanent, permanent, "\"\"");
        row("not set", notSet, notSet, "null");
        // A script hands the null text over as an empty one.
        row("not set, from a script", notSet, permanent, "null");
        row("permanent, null from a script", permanent, notSet, "\"\"");
        row("only handed over", notSet, day, "\"2027-03-01\"");
        row("permanent, only handed over", day, permanent, "\"\"");
    }

    // The page puts what is edited into the record at once, and hands it over at its end.
    void validities()
    {
        QFETCH(QString, onPage);
        QFETCH(QString, handedOver);
        QFETCH(QByteArray, saved);
        Place const place;
        MaintenanceRecords records(place.file);
        records.record(leftBench)->setValidityDate(onPage);
        records.edit(leftBench, {{validityDate, handedOver}});
        records.save();
        QCOMPARE(place.content(), savedWith("\"validityDate\": " + saved));
    }

    void savesOnlyEdits()
    {
        QByteArray const content = recordWith("\"serialNumber\": \"1\"");
        Place const place(content);
        MaintenanceRecords records(place.file);
        QCOMPARE(records.save(), false);
        // What nobody handed over is not saved.
        records.record(leftBench)->setSerialNumber("2"_s);
        records.record("other"_s)->setSerialNumber("3"_s);
        records.edit(leftBench, {});
        QCOMPARE(records.save(), false);
        QCOMPARE(place.content(), content);
        records.edit(leftBench, {{alertBeforeExpiration, 4}});
        QCOMPARE(records.save(), true);
        QCOMPARE(place.content(), savedWith(R"("serialNumber": "1", "alertBeforeExpiration": 4)"));
        QCOMPARE(records.save(), false);
    }

    void refusesEdits_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("message");
        auto const row = [](QString const& key, QVariant const& value, char const* message) {
            QTest::newRow(message) << key << value << QString::fromUtf8(message);
        };
        row("serialnumber"_s, "1"_s, "unknown parameter \"serialnumber\"");
        row(QString(), 1, "unknown parameter \"\"");
        row("zzz\n"_s, 1, "unknown parameter \"zzz\\n\""); // the last of all
        row(serialNumber, 42, "\"serialNumber\" must be a text, not 42 (int)");
        row(serialNumber, QByteArray("42"), "\"serialNumber\" must be a text, not \"42\" (QByteArray)");
        row(validityDate, QDate(2030, 1, 1), "\"validityDate\" must be a text, not \"2030-01-01\" (QDate)");
        row(alertBeforeExpiration, "14"_s,
            "\"alertBeforeExpiration\" must be a number of days, not \"14\" (QString)");
        row(alertBeforeExpiration, 14.0,
            "\"alertBeforeExpiration\" must be a number of days, not 14.0 (double)");
        row(alertBeforeExpiration, -1, "\"alertBeforeExpiration\" must be a number of days, not -1 (int)");
    }

    // And takes nothing of what comes with them.
    void refusesEdits()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        QFETCH(QString, message);
        Place const place;
        MaintenanceRecords records(place.file);
        QString const tool = "left\nbench"_s;
        QVariantMap parameters{{alertBeforeExpiration, 14}, {validityDate, "2030-01-01"_s}};
        parameters[key] = value;
        QCOMPARE(complaintOf([&] { records.edit(tool, parameters); }),
                 "maintenance of \"left\\nbench\": "_s + message);
        QCOMPARE(told(*records.record(tool)), "\"\" null 0"_s);
        QCOMPARE(records.save(), false);
    }

    void refusesWhatCannotBeReadAgain()
    {
        Place const place;
        MaintenanceRecords records(place.file);
        records.edit(leftBench, {{serialNumber, QString(5 << 20, QLatin1Char('9'))}});
        QCOMPARE(place.complaintOfSaving(records),
                 "FILE: the records could not be saved: they would be larger than can be read again"_s);
        QCOMPARE(place.folder.names(), QStringList());
    }

    // Written into, it would be half a file when the power goes.
    void fileIsReplaced()
    {
        Place const place(recordWith(""));
        auto const mode = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup;
        QVERIFY(QFile::setPermissions(place.file, mode));
        QFile former(place.file);
        QVERIFY(former.open(QIODevice::ReadOnly));
        MaintenanceRecords records(place.file);
        records.edit(leftBench, newSerial);
        records.save();
        QCOMPARE(former.readAll(), recordWith(""));
        QCOMPARE(place.content(), savedWith("\"serialNumber\": \"new\""));
        QCOMPARE(QFile::permissions(place.file) & ~QFile::Permissions(0xf00), mode); // but for the user's own
    }

    void changedMeanwhile_data()
    {
        QTest::addColumn<QByteArray>("meanwhile");
        QTest::addColumn<QByteArray>("after");
        QByteArray const newAlone = savedWith("\"serialNumber\": \"new\"");
        QTest::newRow("other field") << recordWith(R"("serialNumber": "1", "alertBeforeExpiration": 99)")
                                     << savedWith(R"("serialNumber": "new", "alertBeforeExpiration": 99)");
        QTest::newRow("same field") << recordWith(R"("serialNumber": "theirs")") << newAlone;
        QTest::newRow("record gone") << QByteArray(R"({"tools": {}})") << newAlone;
        QTest::newRow("file gone") << QByteArray() << newAlone;
        QTest::newRow("what a later version writes")
            << QByteArray(R"({"tools": {"left bench": {}}, "later": 2})")
            << newAlone.chopped(3) + ",\n    \"later\": 2\n}\n";
    }

    void changedMeanwhile()
    {
        QFETCH(QByteArray, meanwhile);
        QFETCH(QByteArray, after);
        Place const place(recordWith(R"("serialNumber": "1", "alertBeforeExpiration": 7)"));
        MaintenanceRecords records(place.file);
        records.edit(leftBench, newSerial);
        place.write(meanwhile);
        QCOMPARE(records.save(), true);
        QCOMPARE(place.content(), after);
    }

    // Another program has the records open by their own name, this one by a link, which is kept.
    void locked()
    {
        Place const place;
        QVERIFY(QDir(place.folder.path()).mkdir("deep"_s));
        QString const target = place.folder.write("deep/target.json"_s, recordWith(""));
        QVERIFY(QFile::link("deep/target.json"_s, place.file));
        MaintenanceRecords records(place.file);
        records.edit(leftBench, newSerial);
        QLockFile lock(target + ".lock"_s);
        QVERIFY(lock.lock());
        QCOMPARE(place.complaintOfSaving(records),
                 "FILE: the records could not be saved: another program is writing them"_s);
        QCOMPARE(contentOf(target), recordWith(""));
        lock.unlock();
        QCOMPARE(records.save(), true);
        QVERIFY(QFileInfo(place.file).isSymLink());
        QCOMPARE(contentOf(target), savedWith("\"serialNumber\": \"new\""));
        QCOMPARE(QDir(place.folder.filePath("deep"_s)).entryList(QDir::Files), QStringList{"target.json"_s});
    }
};

QTEST_GUILESS_MAIN(TestMaintenanceRecords)
#include "tst_maintenance_records.moc"
