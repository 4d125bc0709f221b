#include "literals.h"

#include "maintenance/panel_application.h"

#include "maintenance/maintenance_records.h"

#include "scratch_folder.h"

#include <plugin_management/d_abstract_plugin_backend.h>

#include <QMetaProperty>
#include <QSignalSpy>
#include <QtTest>

#include <optional>

namespace
{

QString const fileName = "records.json"_s;
QString const leftBench = "left bench"_s;
QVariantMap const edits{{"serialNumber"_s, "new"_s}};
QByteArray const emptyRecords = "{\"tools\": {}}\n";

class TestBackend : public DAbstractPluginBackend
{
    Q_OBJECT

public:
    TestBackend() : DAbstractPluginBackend("maintenance"_s, nullptr) {}

    QSharedPointer<DElement> element() const { return m_element; }
};

/// Calls the application as the script of a page does.
void update(PanelApplication& application, QString const& objectId, QVariantMap const& parameters)
{
    if (!QMetaObject::invokeMethod(&application, "updatePluginParameters", Q_ARG(QString, objectId),
                                   Q_ARG(QVariantMap, parameters)))
        qFatal("no script can call it");
}

void call(PanelApplication& application, char const* function)
{
    if (!QMetaObject::invokeMethod(&application, function))
        qFatal("no script can call %s", function);
}

} // namespace

/// The workstation as the scripts of maintenance pages see it.
class TestPanelApplication : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_folder.emplace();
        m_file = m_folder->write(fileName, emptyRecords);
    }

    void objectIds_data()
    {
        // Whoever keeps an id finds the tool again with a later version, too.
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QString>("id");
        QTest::newRow("plain") << leftBench << "{af226794-62da-5455-b862-67889a769079}"_s;
        QTest::newRow("empty") << QString() << "{a79b3d98-20d9-5c9a-80c8-e6d13cde9e07}"_s;
        QTest::newRow("emoji") << "\U0001F600"_s
                               << "{770bb56f-2f42-53ad-a33f-d119682665a3}"_s;
        QTest::newRow("quote") << "\"; Qt.quit(); //"_s
                               << "{c81c4c80-b365-5b52-b11b-98292d68aad8}"_s;
    }

    void objectIds()
    {
        QFETCH(QString, tool);
        QFETCH(QString, id);
        MaintenanceRecords records(m_file);
        PanelApplication application(records);
        QCOMPARE(application.addTool(tool), id);
        QCOMPARE(application.addTool(tool), id);
    }

    void objectIdsDiffer()
    {
        QStringList const names{QString(), " "_s, "a"_s, "A"_s, "a "_s, "a\n"_s, "\u00E9"_s, "e\u0301"_s};
        MaintenanceRecords records(m_file);
        PanelApplication application(records);
        QStringList ids;
        for (auto const& name : names)
            ids += application.addTool(name);
        QCOMPARE(ids.removeDuplicates(), 0);
    }

    void configChanges()
    {
        MaintenanceRecords records(m_file);
        PanelApplication application(records);
        auto const& meta = PanelApplication::staticMetaObject;
        auto const property = meta.property(meta.indexOfProperty("isConfigChanged"));
        QVERIFY(!property.isWritable());
        QCOMPARE(property.notifySignal().name(), QByteArray("configChanged"));
        QSignalSpy const changed(&application, &PanelApplication::configChanged);

        QCOMPARE(application.property("isConfigChanged"), QVariant(false));
        call(application, "setConfigChanged");
        QCOMPARE(application.property("isConfigChanged"), QVariant(true));
        QCOMPARE(changed.count(), 1);
        // Each edit may change what is shown of the record.
        call(application, "setConfigChanged");
        QCOMPARE(changed.count(), 2);
        call(application, "resetConfigChanged");
        QCOMPARE(application.property("isConfigChanged"), QVariant(false));
        QCOMPARE(changed.count(), 3);
        QCOMPARE(saved(), emptyRecords);
    }

    void saves()
    {
        MaintenanceRecords records(m_file);
        PanelApplication application(records);
        QSignalSpy const savedSpy(&application, &PanelApplication::saved);
        QString const id = application.addTool(leftBench);
        application.setConfigChanged();
        update(application, id, edits);
        QCOMPARE(saved(), emptyRecords);
        QCOMPARE(application.isConfigChanged(), true);
        QSignalSpy const changed(&application, &PanelApplication::configChanged);
        call(application, "saveMaintenanceToFile");
        QVERIFY(saved().contains("\"serialNumber\": \"new\""));
        QVERIFY(saved().contains("\"left bench\""));
        QCOMPARE(savedSpy.count(), 1);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(application.isConfigChanged(), false);
        QCOMPARE(application.problem(), QString());

        call(application, "saveMaintenanceToFile");
        QCOMPARE(savedSpy.count(), 1);
    }

    void nothingToSave()
    {
        MaintenanceRecords records(m_file);
        PanelApplication application(records);
        QSignalSpy const savedSpy(&application, &PanelApplication::saved);
        application.setConfigChanged();
        update(application, application.addTool(leftBench), {});
        call(application, "saveMaintenanceToFile");
        QCOMPARE(savedSpy.count(), 0);
        QCOMPARE(application.isConfigChanged(), false);
        QCOMPARE(application.problem(), QString());
        QCOMPARE(saved(), emptyRecords);
    }

    void unknownId_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("shownId");
        QTest::newRow("empty") << QString() << QString();
        QTest::newRow("name") << leftBench << leftBench;
        QTest::newRow("line break") << "a\nb"_s
                                    << "a\\nb"_s;
        QTest::newRow("of a tool without a page") << "{c81c4c80-b365-5b52-b11b-98292d68aad8}"_s
                                                  << "{c81c4c80-b365-5b52-b11b-98292d68aad8}"_s;
    }

    void unknownId()
    {
        QFETCH(QString, id);
        QFETCH(QString, shownId);
        MaintenanceRecords records(m_file);
        PanelApplication application(records);
        QString const known = application.addTool(leftBench);
        update(application, id, edits);
        QCOMPARE(application.problem(), "there is no tool with the id \"%1\""_s.arg(shownId));
        call(application, "saveMaintenanceToFile");
        QCOMPARE(application.problem(), "there is no tool with the id \"%1\""_s.arg(shownId));
        QCOMPARE(saved(), emptyRecords);

        update(application, known, edits);
        QCOMPARE(application.problem(), QString());
        call(application, "saveMaintenanceToFile");
        QVERIFY(saved().contains("\"serialNumber\": \"new\""));
    }

    void refusedEdit()
    {
        MaintenanceRecords records(m_file);
        PanelApplication application(records);
        update(application, application.addTool(leftBench), {{"serialNumber"_s, 42}});
        call(application, "saveMaintenanceToFile");
        QCOMPARE(application.problem(),
                 "maintenance of \"left bench\": \"serialNumber\" must be a text, not 42 (int)"_s);
        QCOMPARE(saved(), emptyRecords);
    }

    void failedSave()
    {
        MaintenanceRecords records(m_file);
        PanelApplication application(records);
        QSignalSpy const savedSpy(&application, &PanelApplication::saved);
        QString const id = application.addTool(leftBench);
        application.setConfigChanged();
        m_folder->write(fileName, "{}");
        update(application, id, edits);
        call(application, "saveMaintenanceToFile");
        QCOMPARE(application.problem(),
                 m_file + ":1: the key \"tools\" is missing; the records could not be saved"_s);
        QCOMPARE(application.isConfigChanged(), true);
        QCOMPARE(savedSpy.count(), 0);
        QCOMPARE(saved(), QByteArray("{}"));

        // The page is opened once more and has nothing new to say at its next end.
        m_folder->write(fileName, emptyRecords);
        update(application, id, {});
        call(application, "saveMaintenanceToFile");
        QCOMPARE(application.problem(), QString());
        QCOMPARE(application.isConfigChanged(), false);
        QCOMPARE(savedSpy.count(), 1);
        QVERIFY(saved().contains("\"serialNumber\": \"new\""));
    }

    void givesUp()
    {
        MaintenanceRecords records(m_file);
        PanelApplication application(records);
        QSignalSpy const savedSpy(&application, &PanelApplication::saved);
        QCOMPARE(application.isGivenUp(), false);
        application.setConfigChanged();
        update(application, application.addTool(leftBench), edits);
        application.giveUp();
        QCOMPARE(application.isGivenUp(), true);
        call(application, "saveMaintenanceToFile");
        QCOMPARE(savedSpy.count(), 0);
        QCOMPARE(saved(), emptyRecords);
    }

    void recordsAreAttached()
    {
        MaintenanceRecords records(m_file);
        PanelApplication application(records);
        QString const left = application.addTool(leftBench);
        QString const right = application.addTool("right bench"_s);
        TestBackend backend;
        QVERIFY(backend.setProperty("objectId", left));
        QVERIFY(backend.element());
        QCOMPARE(backend.element(), records.record(leftBench));
        backend.setObjectId(right);
        QCOMPARE(backend.element(), records.record("right bench"_s));
        for (auto const& unknown : {leftBench, "{c81c4c80-b365-5b52-b11b-98292d68aad8}"_s, QString()}) {
            backend.setObjectId(left);
            QSignalSpy const attached(&backend, &DAbstractPluginBackend::abstractBackendInitialized);
            backend.setObjectId(unknown);
            QCOMPARE(attached.count(), 1);
            QVERIFY(!backend.element());
        }
        QCOMPARE(records.tools(), QStringList({leftBench, "right bench"_s}));
    }

    void sourceGoesWithTheApplication()
    {
        MaintenanceRecords records(m_file);
        TestBackend backend;
        QSignalSpy const attached(&backend, &DAbstractPluginBackend::abstractBackendInitialized);
        QString id;
        {
            PanelApplication application(records);
            id = application.addTool(leftBench);
        }
        backend.setObjectId(id);
        QCOMPARE(attached.count(), 0);
        QVERIFY(!backend.element());
        {
            PanelApplication application(records);
            backend.setObjectId(application.addTool("right bench"_s));
            QCOMPARE(attached.count(), 1);
        }
    }

private:
    QByteArray saved() const { return contentOf(m_file); }

    std::optional<ScratchFolder> m_folder;
    QString m_file;
};

QTEST_GUILESS_MAIN(TestPanelApplication)
#include "tst_panel_application.moc"
