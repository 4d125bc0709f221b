#include "literals.h"

#include <plugin_management/d_abstract_plugin_backend.h>
#include <plugin_management/d_element.h>

#include <QMetaProperty>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

using Map = QMap<QString, QVariant>;

namespace
{

/// A backend that notes what it signals and what its host tells it.
class OpenBackend : public DAbstractPluginBackend
{
    Q_OBJECT

public:
    explicit OpenBackend(bool connected = false) : DAbstractPluginBackend("maintenance"_s, nullptr)
    {
        setConnected(connected);
        connect(this, &OpenBackend::objectIdChanged, this, [this] { log += "id of "_s + serialNumber(); });
        connect(this, &OpenBackend::abstractBackendInitialized, this,
                [this] { log += "attached "_s + serialNumber(); });
        connect(this, &OpenBackend::sigTreatmentQueued, this,
                [this](int id, QString const& name, Map const& arguments) {
                    log += "queued %1 %2 %3"_s.arg(id).arg(name, arguments.value("register"_s).toString());
                });
    }

    void treatmentReleased(int id, QString const& name, bool success) override
    {
        DAbstractPluginBackend::treatmentReleased(id, name, success);
        log += success ? "released"_s : "released in vain"_s;
    }
    bool applyTreatmentReply(int id, QString const& name, Map const& reply) override
    {
        bool const accepted = DAbstractPluginBackend::applyTreatmentReply(id, name, reply);
        log += accepted ? "accepted"_s : "refused"_s;
        return accepted;
    }

    QString serialNumber() const { return m_element ? m_element->serialNumber() : "nothing"_s; }

    QStringList log;
};

QSharedPointer<DElement> makeElement(QString const& serialNumber)
{
    auto element = QSharedPointer<DElement>::create();
    element->setSerialNumber(serialNumber);
    return element;
}

} // namespace

class TestPluginBackend : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { DAbstractPluginBackend::setElementSource({}); }

    void startsWithNothing()
    {
        DAbstractPluginBackend const backend("maintenance"_s, this);
        QCOMPARE(backend.parent(), this);
        QCOMPARE(backend.name(), "maintenance"_s);
        QCOMPARE(backend.objectId(), QString());
        QCOMPARE(backend.isConnected(), false);
        QCOMPARE(backend.hasPendingTreatments(), false);
        QCOMPARE(OpenBackend().serialNumber(), "nothing"_s);
    }

    void property_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QVariant>("first");
        QTest::addColumn<QVariant>("second");
        QTest::addColumn<bool>("isWritable");

        QTest::newRow("name") << QByteArray("name") << QVariant("maintenance"_s) << QVariant("other"_s)
                              << true;
        QTest::newRow("object") << QByteArray("objectId") << QVariant(QString()) << QVariant("{1}"_s) << true;
        QTest::newRow("connection") << QByteArray("isConnected") << QVariant(false) << QVariant(true)
                                    << false;
    }

    void property()
    {
        QFETCH(QByteArray, name);
        QFETCH(QVariant, first);
        QFETCH(QVariant, second);
        QFETCH(bool, isWritable);
        OpenBackend backend;
        auto const& meta = DAbstractPluginBackend::staticMetaObject;
        QMetaProperty const property = meta.property(meta.indexOfProperty(name));
        QCOMPARE(property.isWritable(), isWritable);
        QCOMPARE(property.notifySignal().name(), name + "Changed");
        QCOMPARE(property.read(&backend), first);

        auto const set = [&](QVariant const& value) {
            if (isWritable)
                backend.QObject::setProperty(name, value);
            else
                backend.setConnected(value.toBool());
        };
        QSignalSpy const changed(&backend, QByteArray("2" + name + "Changed()"));
        set(first);
        QCOMPARE(changed.count(), 0);
        for (int change = 1; change < 3; ++change) {
            QVariant const next = change == 1 ? second : first;
            set(next);
            set(next);
            QCOMPARE(changed.count(), change);
            QCOMPARE(property.read(&backend), next);
        }
    }

    void hostAttachesElement()
    {
        OpenBackend backend;
        auto element = makeElement("1"_s);
        QWeakPointer<DElement> const watched = element;
        backend.setElement(element);
        // The record is the host's own, not a copy.
        element->setSerialNumber("2"_s);
        QCOMPARE(backend.serialNumber(), "2"_s);
        backend.setElement(element);
        element.reset();
        QVERIFY(!watched.isNull());
        backend.setElement({});
        QVERIFY(watched.isNull());
        QCOMPARE(backend.log, (QStringList{"attached 1"_s, "attached 2"_s, "attached nothing"_s}));
    }

    void sourceAttachesElement()
    {
        OpenBackend backend;
        QStringList& log = backend.log;
        backend.setElement(makeElement("own"_s));
        backend.setObjectId("{0}"_s);
        QCOMPARE(log, (QStringList{"attached own"_s, "id of own"_s}));

        log.clear();
        DAbstractPluginBackend::setElementSource([&log](QString const& id) {
            log += "asked for "_s + id;
            return id == QLatin1String("{3}") ? nullptr : makeElement(id);
        });
        backend.setObjectId("{0}"_s);
        backend.setObjectId("{1}"_s);
        QVERIFY(backend.setProperty("objectId", "{2}"_s));
        backend.setObjectId("{3}"_s);
        backend.setElement(makeElement("own"_s));
        // What a page binds to the id looks at the record at once.
        QCOMPARE(log, (QStringList{"asked for {1}"_s, "attached {1}"_s, "id of {1}"_s, "asked for {2}"_s,
                                   "attached {2}"_s, "id of {2}"_s, "asked for {3}"_s, "attached nothing"_s,
                                   "id of nothing"_s, "attached own"_s}));

        log.clear();
        DAbstractPluginBackend::setElementSource({});
        backend.setObjectId("{4}"_s);
        QCOMPARE(log, QStringList{"id of own"_s});
    }

    void treatment()
    {
        OpenBackend backend;
        QVERIFY(!backend.queueTreatment(3, "read"_s, {}));
        QCOMPARE(backend.hasPendingTreatments(), false);
        backend.setConnected(true);
        QVERIFY(backend.queueTreatment(3, "read"_s, {{"register"_s, 7}}));
        // Other arguments do not make it another treatment.
        QVERIFY(!backend.queueTreatment(3, "read"_s, {{"register"_s, 8}}));
        QVERIFY(backend.applyTreatmentReply(3, "read"_s, {}));
        // Only the release closes it.
        backend.setConnected(false);
        QVERIFY(!backend.queueTreatment(3, "read"_s, {}));
        QVERIFY(backend.hasPendingTreatments());
        QVERIFY(backend.applyTreatmentReply(3, "read"_s, {}));
        backend.treatmentReleased(3, "read"_s, false);
        QVERIFY(!backend.hasPendingTreatments());
        QVERIFY(!backend.applyTreatmentReply(3, "read"_s, {}));
        backend.setConnected(true);
        QVERIFY(backend.queueTreatment(3, "read"_s, {}));
        backend.treatmentReleased(3, "read"_s, true);
        QVERIFY(!backend.hasPendingTreatments());
        QCOMPARE(backend.log,
                 (QStringList{"queued 3 read 7"_s, "accepted"_s, "accepted"_s, "released in vain"_s,
                              "refused"_s, "queued 3 read "_s, "released"_s}));
    }

    void treatmentIsKnownByIdAndName()
    {
        OpenBackend backend(true);
        QVERIFY(backend.queueTreatment(3, "read"_s, {}));
        for (auto const& [id, name] : {qMakePair(4, "read"_s), qMakePair(3, "write"_s)}) {
            QVERIFY(!backend.applyTreatmentReply(id, name, {}));
            backend.treatmentReleased(id, name, true);
            QVERIFY(backend.applyTreatmentReply(3, "read"_s, {}));
            QVERIFY(backend.queueTreatment(id, name, {}));
        }
        backend.treatmentReleased(3, "read"_s, true);
        backend.treatmentReleased(4, "read"_s, true);
        QVERIFY(backend.hasPendingTreatments());
        backend.treatmentReleased(3, "write"_s, true);
        QVERIFY(!backend.hasPendingTreatments());
    }

    void treatmentIsPendingWhenTold()
    {
        // A host may be able to carry a treatment out on the spot.
        OpenBackend backend(true);
        connect(&backend, &OpenBackend::sigTreatmentQueued, this, [&](int id, QString const& name) {
            backend.applyTreatmentReply(id, name, {});
            backend.treatmentReleased(id, name, true);
        });
        QVERIFY(backend.queueTreatment(3, "read"_s, {}));
        QCOMPARE(backend.log, (QStringList{"queued 3 read "_s, "accepted"_s, "released"_s}));
        QVERIFY(!backend.hasPendingTreatments());
    }

    void element()
    {
        DElement element;
        QCOMPARE(element.serialNumber(), QString());
        QCOMPARE(element.validityDate(), QString());
        QCOMPARE(element.stbExpiredDelay(), 0);
        element.setSerialNumber("SN-0042"_s);
        element.setValidityDate("no date that anyone knows"_s);
        element.setStbExpiredDelay(-30);
        QCOMPARE(element.serialNumber(), "SN-0042"_s);
        QCOMPARE(element.validityDate(), "no date that anyone knows"_s);
        QCOMPARE(element.stbExpiredDelay(), -30);
    }
};

QTEST_GUILESS_MAIN(TestPluginBackend)
#include "tst_plugin_backend.moc"
