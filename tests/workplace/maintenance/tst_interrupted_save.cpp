#include "maintenance/maintenance_records.h"

#include "complaint.h"
#include "file_calls.h"
#include "in_child.h"
#include "literals.h"
#include "scratch_folder.h"

#include <plugin_management/d_element.h>

#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <vector>

namespace
{

QString const noComplaint = "no complaint"_s;
QString const leftBench = "left bench"_s;
QString const serialNumber = "serialNumber"_s;
QString const alertBeforeExpiration = "alertBeforeExpiration"_s;

// More than anybody writes at once, so that a part of it is not the whole.
QByteArray const longSerial = QByteArray(100'000, 'x');

QByteArray const others = R"({
    "tools": {
        "right bench": {
            "serialNumber": "R"
        },
        "left bench": {
            "serialNumber": "former"
        }
    }
})";

/// A file of records that is there, or is not there yet, by its own name or by a link.
struct Place
{
    explicit Place(bool exists = true, bool isLink = false)
        : before(exists ? others : QByteArray())
        , after((exists ? QByteArray(others).replace("former", longSerial) : alone(longSerial)) + '\n')
        , target(folder.filePath(isLink ? "target.json"_s : "records.json"_s))
    {
        if (exists)
            folder.write(QFileInfo(target).fileName(), before);
        if (isLink && !QFile::link("target.json"_s, name))
            qFatal("cannot make a link");
    }

    static QByteArray alone(QByteArray const& serial)
    {
        return "{\n    \"tools\": {\n        \"left bench\": {\n            \"serialNumber\": \"" + serial
               + "\"\n        }\n    }\n}";
    }
    /// What a save does; what has been edited is there afterwards.
    void save() const
    {
        MaintenanceRecords records(name);
        records.edit(leftBench, {{serialNumber, QString::fromLatin1(longSerial)}});
        records.save();
    }

    ScratchFolder folder;
    QByteArray before; ///< null for no file
    QByteArray after;
    QString target;
    QString name = folder.filePath("records.json"_s);
};

} // namespace

/// Records that are saved while something goes wrong: the program is killed, the disk fails, others save as
/// well. What is in the file is what it held before or what was to be saved, never anything else.
class TestInterruptedSave : public QObject
{
    Q_OBJECT

private slots:
    void killedAtAnyCall_data()
    {
        QTest::addColumn<bool>("exists");
        QTest::addColumn<bool>("isLink");
        QTest::newRow("a file") << true << false;
        QTest::newRow("no file yet") << false << false;
        QTest::newRow("a link") << true << true;
        QTest::newRow("a link to no file yet") << false << true;
    }

    void killedAtAnyCall()
    {
        QFETCH(bool, exists);
        QFETCH(bool, isLink);
        QStringList killedBefore;
        QStringList killedAfter;
        for (int call = 1;; ++call) {
            Place const place(exists, isLink);
            QString const ending = complaintInChild([&] {
                FileCalls const calls(call, FileCalls::c_kill);
                place.save();
            });
            if (FileCalls::met().isEmpty())
                break;
            QCOMPARE(ending, "the child failed, %1"_s.arg(SIGKILL));
            QByteArray const content = contentOf(place.target);
            (content == place.after ? killedAfter : killedBefore) += FileCalls::met();
            QVERIFY2(content == place.after || (content == place.before && killedAfter.isEmpty()),
                     qPrintable("killed at call %1, %2: %3 bytes"_s.arg(
                         QString::number(call), FileCalls::met(), QString::number(content.size()))));
            QCOMPARE(QFileInfo(place.name).isSymLink(), isLink);

            // The next one is not disturbed by what was left; an hour later, for at once it would wait a
            // second for a lock without an owner.
            timespec const past[2] = {{::time(nullptr) - 3600, 0}, {::time(nullptr) - 3600, 0}};
            for (auto const& file : {place.target, place.name})
                ::utimensat(AT_FDCWD, QFile::encodeName(file + ".lock"_s).constData(), past, 0);
            MaintenanceRecords next(place.name);
            QCOMPARE(next.complaints(), QStringList());
            next.edit(leftBench, {{serialNumber, "next"_s}});
            QCOMPARE(complaintOf([&next] { next.save(); }), noComplaint);
            QCOMPARE(contentOf(place.target),
                     (exists ? QByteArray(others).replace("former", "next") : Place::alone("next")) + '\n');
        }
        // It was killed in the middle, on both sides of what makes the new file the file.
        qInfo("killed with the former records at: %s", qPrintable(killedBefore.join(QLatin1Char(' '))));
        qInfo("killed with the new records at: %s", qPrintable(killedAfter.join(QLatin1Char(' '))));
        QVERIFY(killedBefore.contains("write"_s));
        QVERIFY(killedBefore.contains(exists ? "rename"_s : "linkat"_s));
        QVERIFY(killedAfter.contains("unlink"_s)); // of the lock
    }

    void anyCallFails_data()
    {
        QTest::addColumn<int>("error");
        QTest::newRow("full disk") << ENOSPC;
        QTest::newRow("faulty disk") << EIO;
        QTest::newRow("no permission") << EACCES;
        QTest::newRow("disk for reading only") << EROFS;
    }

    // What cannot harm may fail without a word.
    void anyCallFails()
    {
        QFETCH(int, error);
        QStringList complained;
        for (int call = 1;; ++call) {
            Place const place;
            QString const complaint = complaintInChild([&] {
                FileCalls const calls(call, error);
                place.save();
            });
            if (FileCalls::met().isEmpty())
                break;
            bool const isSaved = complaint == noComplaint;
            QByteArray const what =
                "%1 %2: %3"_s.arg(QString::number(call), FileCalls::met(), complaint).toUtf8();
            QVERIFY2(contentOf(place.target) == (isSaved ? place.after : place.before), what.constData());
            QVERIFY2(isSaved || complaint.startsWith(place.name + ": "_s), what.constData());
            QVERIFY2(!complaint.contains(QLatin1Char('\n')), what.constData());
            if (!isSaved)
                complained += FileCalls::met();
            // Once the disk is well again.
            QCOMPARE(complaintOf([&place] { place.save(); }), noComplaint);
            QVERIFY2(contentOf(place.target) == place.after, what.constData());
        }
        // Without these the new file is not what it should be, or not where.
        qInfo("failed for: %s", qPrintable(complained.join(QLatin1Char(' '))));
        for (char const* const name : {"open64", "read", "write", "fsync", "linkat", "rename"})
            QVERIFY2(complained.contains(QLatin1String(name)), name);
    }

    void noPlace_data()
    {
        QTest::addColumn<QString>("name"); // in the test's folder
        QTest::newRow("below a file") << "file/records.json"_s;
        QTest::newRow("in no folder") << "missing/records.json"_s;
        QTest::newRow("where not even root may write") << "/proc/records.json"_s;
    }

    void noPlace()
    {
        QFETCH(QString, name);
        ScratchFolder const folder;
        folder.write("file"_s, "content");
        QString const file = QDir(folder.path()).absoluteFilePath(name);
        MaintenanceRecords records(file);
        records.edit(leftBench, {{serialNumber, "new"_s}});
        for (int i = 0; i < 2; ++i) // the edits stay for another try
            QCOMPARE(complaintOf([&records] { records.save(); }),
                     "%1: the records could not be saved: %1.lock cannot be written"_s.arg(file));
        QCOMPARE(folder.names(), QStringList{"file"_s});
    }

    // Of a program that died before it had said in the lock who it was; and of one that had its new file
    // ready.
    void leftovers()
    {
        Place const place;
        place.folder.write("records.json.lock"_s, "");
        place.folder.write("records.json.AbCdEf"_s, "{");
        QCOMPARE(complaintOf([&place] { place.save(); }), noComplaint);
        QVERIFY(contentOf(place.target) == place.after);
        QCOMPARE(place.folder.names(), QStringList({"records.json"_s, "records.json.AbCdEf"_s}));
    }

    // Each edits tools of its own, and a tool that is everybody's.
    void severalPrograms()
    {
        constexpr int programs = 4;
        constexpr int edits = 10;
        Place const place;
        std::vector<pid_t> children;
        for (int program = 0; program < programs; ++program) {
            pid_t const child = ::fork();
            if (child == 0) {
                QString const field = program % 2 == 0 ? serialNumber : alertBeforeExpiration;
                for (int i = 1; i <= edits; ++i) {
                    QVariant const value = program % 2 == 0 ? QVariant(QString::number(i)) : QVariant(i);
                    MaintenanceRecords records(place.name);
                    records.edit("tool %1-%2"_s.arg(program).arg(i), {{field, value}});
                    if (program < 2)
                        records.edit(leftBench, {{field, value}});
                    // They are many, and patience is limited.
                    while (complaintOf([&records] {
                               records.save();
                           }).endsWith("another program is writing them"_s)) {
                    }
                }
                ::_exit(0);
            }
            children.push_back(child);
        }
        for (pid_t const child : children) {
            int status = -1;
            QCOMPARE(::waitpid(child, &status, 0), child);
            QCOMPARE(status, 0);
        }
        MaintenanceRecords records(place.name);
        QCOMPARE(records.tools().size(), programs * edits + 2);
        QCOMPARE(records.record(leftBench)->serialNumber(), QString::number(edits));
        QCOMPARE(records.record(leftBench)->stbExpiredDelay(), edits);
        QCOMPARE(records.record("right bench"_s)->serialNumber(), "R"_s);
        QCOMPARE(records.record("tool 2-1"_s)->serialNumber(), "1"_s);
        QCOMPARE(records.record("tool 3-10"_s)->stbExpiredDelay(), 10);
        QCOMPARE(place.folder.names(), QStringList{"records.json"_s});
    }
};

QTEST_GUILESS_MAIN(TestInterruptedSave)
#include "tst_interrupted_save.moc"
