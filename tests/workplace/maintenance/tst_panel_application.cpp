#include "literals.h"

#include "maintenance/panel_application.h"

#include "maintenance/maintenance_records.h"

#include "scratch_folder.h"

#include <plugin_management/d_abstract_plugin_backend.h>

#include <QMetaProperty>
#include <QtTest>

#include <memory>

namespace
{

QString const leftBench = "left bench"_s;
QString const unknownId = "{c81c4c80-b365-5b52-b11b-98292d68aad8}"_s;
QVariantMap const edits{{"serialNumber"_s, "new"_s}};
QByteArray const emptyRecords = "{\"tools\": {}}\n";
QByteArray const savedRecords = "{\n    \"tools\": {\n        \"left bench\": {\n            "
                                "\"serialNumber\": \"new\"\n        }\n    }\n}\n";

class OpenBackend : public DAbstractPluginBackend
{
    Q_OBJECT

public:
    OpenBackend() : DAbstractPluginBackend("maintenance"_s, nullptr)
    {
        connect(this, &DAbstractPluginBackend::abstractBackendInitialized, this, [this] { ++attached; });
    }

    QSharedPointer<DElement> element() const { return m_element; }

    int attached = 0;
};

/// An application with one tool, called as the scripts of a page call it.
class Station
{
public:
    Station()
    {
        QObject::connect(application.get(), &PanelApplication::configChanged, application.get(), [this] {
            signalled += application->property("isConfigChanged").toBool() ? "changed"_s : "unchanged"_s;
        });
        QObject::connect(application.get(), &PanelApplication::saved, application.get(),
                         [this] { signalled += "saved"_s; });
    }

    void call(char const* function) const
    {
        if (!QMetaObject::invokeMethod(application.get(), function))
            qFatal("no script can call %s", function);
    }
    void update(QString const& objectId, QVariantMap const& parameters) const
    {
        if (!QMetaObject::invokeMethod(application.get(), "updatePluginParameters", Q_ARG(QString, objectId),
                                       Q_ARG(QVariantMap, parameters)))
            qFatal("no script can call it");
    }
    /// What a page does at its end.
    void end(QVariantMap const& parameters) const
    {
        update(id, parameters);
        call("saveMaintenanceToFile");
    }
    QByteArray saved() const { return contentOf(file); }

    ScratchFolder folder;
    QString const file = folder.write("records.json"_s, emptyRecords);
    MaintenanceRecords records{file};
    std::unique_ptr<PanelApplication> application = std::make_unique<PanelApplication>(records);
    QString const id = application->addTool(leftBench);
    QStringList signalled;
};

} // namespace

/// The workstation as the scripts of maintenance pages see it.
class TestPanelApplication : public QObject
{
    Q_OBJECT

private slots:
    // Whoever keeps an id finds the tool again with a later version, too.
    void objectIds()
    {
        Station station;
        QCOMPARE(station.id, "{af226794-62da-5455-b862-67889a769079}"_s);
        QCOMPARE(station.application->addTool(leftBench), station.id);
        QCOMPARE(station.application->addTool("\U0001F600"_s), "{770bb56f-2f42-53ad-a33f-d119682665a3}"_s);
        QStringList ids;
        for (auto const& tool : {""_s, " "_s, "a"_s, "A"_s, "a "_s, "a\n"_s, "\u00E9"_s, "e\u0301"_s})
            ids += station.application->addTool(tool);
        QCOMPARE(ids.removeDuplicates(), 0);
    }

    void configChanges()
    {
        auto const& meta = PanelApplication::staticMetaObject;
        auto const property = meta.property(meta.indexOfProperty("isConfigChanged"));
        QVERIFY(!property.isWritable());
        QCOMPARE(property.notifySignal().name(), QByteArray("configChanged"));
        Station station;
        QVERIFY(!station.application->isConfigChanged());
        // Each edit may change what is shown of the record.
        for (char const* const function : {"setConfigChanged", "setConfigChanged", "resetConfigChanged"})
            station.call(function);
        QCOMPARE(station.signalled, QStringList({"changed"_s, "changed"_s, "unchanged"_s}));
        QCOMPARE(station.saved(), emptyRecords);
    }

    void saves()
    {
        Station station;
        station.call("setConfigChanged");
        station.update(station.id, edits);
        QCOMPARE(station.saved(), emptyRecords);
        station.call("saveMaintenanceToFile");
        QCOMPARE(station.saved(), savedRecords);
        QCOMPARE(station.application->problem(), QString());
        station.call("saveMaintenanceToFile"); // there is nothing to save any more
        QCOMPARE(station.signalled, QStringList({"changed"_s, "saved"_s, "unchanged"_s, "unchanged"_s}));
    }

    void unknownTool()
    {
        Station station;
        station.update("a\nb"_s, edits);
        station.call("saveMaintenanceToFile");
        QCOMPARE(station.application->problem(), "there is no tool with the id \"a\\nb\""_s);
        QCOMPARE(station.saved(), emptyRecords);
        station.end(edits);
        QCOMPARE(station.application->problem(), QString());
        QCOMPARE(station.saved(), savedRecords);
    }

    void failedSave()
    {
        Station station;
        station.call("setConfigChanged");
        station.folder.write("records.json"_s, "{}");
        station.end(edits);
        QCOMPARE(station.application->problem(),
                 station.file + ":1: the key \"tools\" is missing; the records could not be saved"_s);
        QCOMPARE(station.saved(), QByteArray("{}"));
        QCOMPARE(station.signalled, QStringList{"changed"_s});
        // The page is opened once more and has nothing new to say at its next end.
        station.folder.write("records.json"_s, emptyRecords);
        station.end({});
        QCOMPARE(station.application->problem(), QString());
        QCOMPARE(station.signalled, QStringList({"changed"_s, "saved"_s, "unchanged"_s}));
        QCOMPARE(station.saved(), savedRecords);
    }

    void givesUp()
    {
        Station station;
        QVERIFY(!station.application->isGivenUp());
        station.application->giveUp();
        QVERIFY(station.application->isGivenUp());
        station.end(edits);
        QCOMPARE(station.signalled, QStringList());
        QCOMPARE(station.saved(), emptyRecords);
    }

    void recordsAreAttached()
    {
        Station station;
        OpenBackend backend;
        backend.setObjectId(station.id);
        QVERIFY(backend.element());
        QCOMPARE(backend.element(), station.records.record(leftBench));
        backend.setObjectId(station.application->addTool("right bench"_s));
        QCOMPARE(backend.element(), station.records.record("right bench"_s));
        backend.setObjectId(unknownId);
        QVERIFY(!backend.element());
        QCOMPARE(backend.attached, 3);
        QCOMPARE(station.records.tools(), QStringList({leftBench, "right bench"_s}));
    }

    void recordsGoWithTheApplication()
    {
        Station station;
        OpenBackend backend;
        station.application.reset();
        backend.setObjectId(station.id);
        QCOMPARE(backend.attached, 0);
        PanelApplication another(station.records);
        backend.setObjectId(another.addTool("right bench"_s));
        QCOMPARE(backend.attached, 1);
    }
};

QTEST_GUILESS_MAIN(TestPanelApplication)
#include "tst_panel_application.moc"
