#include "literals.h"

#include <plugin_management/d_abstract_plugin_backend.h>
#include <plugin_management/d_element.h>

#include <QMetaProperty>
#include <QSignalSpy>
#include <QtTest>

#include <limits>
#include <memory>

using Map = QMap<QString, QVariant>;

namespace
{

class TestBackend : public DAbstractPluginBackend
{
    Q_OBJECT

public:
    explicit TestBackend(QObject* parent = nullptr) : DAbstractPluginBackend("maintenance"_s, parent) {}

    QSharedPointer<DElement> element() const { return m_element; }
};

/// A backend that has a say in its treatments, as a plugin's has.
class ReplyingBackend : public TestBackend
{
    Q_OBJECT

public:
    void treatmentReleased(int id, QString const& name, bool success) override
    {
        TestBackend::treatmentReleased(id, name, success);
        released += success;
    }
    bool applyTreatmentReply(int id, QString const& name, Map const& reply) override
    {
        replies += reply;
        return TestBackend::applyTreatmentReply(id, name, reply);
    }

    QList<bool> released;
    QList<Map> replies;
};

QString reading()
{
    return "read"_s;
}

} // namespace

class TestPluginBackend : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { DAbstractPluginBackend::setElementSource({}); }

    void construction()
    {
        auto parent = std::make_unique<QObject>();
        QPointer<TestBackend> const backend = new TestBackend(parent.get());
        QCOMPARE(backend->name(), "maintenance"_s);
        QCOMPARE(backend->objectId(), QString());
        QCOMPARE(backend->isConnected(), false);
        QCOMPARE(backend->hasPendingTreatments(), false);
        QVERIFY(backend->element().isNull());
        QCOMPARE(backend->parent(), parent.get());
        parent.reset();
        QVERIFY(backend.isNull());
    }

    void offersProperties_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("isWritable");
        QTest::addColumn<QByteArray>("notifier");

        QTest::newRow("name") << QByteArray("name") << int{QMetaType::QString} << true
                              << QByteArray("nameChanged");
        QTest::newRow("objectId") << QByteArray("objectId") << int{QMetaType::QString} << true
                                  << QByteArray("objectIdChanged");
        QTest::newRow("isConnected") << QByteArray("isConnected") << int{QMetaType::Bool} << false
                                     << QByteArray("isConnectedChanged");
    }

    void offersProperties()
    {
        QFETCH(QByteArray, name);
        QFETCH(int, type);
        QFETCH(bool, isWritable);
        QFETCH(QByteArray, notifier);
        auto const& meta = DAbstractPluginBackend::staticMetaObject;
        int const index = meta.indexOfProperty(name.constData());
        QVERIFY(index >= meta.propertyOffset());
        QMetaProperty const property = meta.property(index);
        QCOMPARE(property.userType(), type);
        QVERIFY(property.isReadable());
        QCOMPARE(property.isWritable(), isWritable);
        QCOMPARE(property.notifySignal().name(), notifier);
    }

    void nameTellsChanges()
    {
        TestBackend backend;
        QSignalSpy const changed(&backend, &DAbstractPluginBackend::nameChanged);
        backend.setName("maintenance"_s);
        QCOMPARE(changed.count(), 0);
        backend.setName("other"_s);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(backend.name(), "other"_s);
        QVERIFY(backend.setProperty("name", "third"_s));
        QCOMPARE(changed.count(), 2);
        QCOMPARE(backend.property("name"), QVariant("third"_s));
    }

    void objectIdTellsChanges()
    {
        TestBackend backend;
        QSignalSpy const changed(&backend, &DAbstractPluginBackend::objectIdChanged);
        backend.setObjectId(QString());
        QCOMPARE(changed.count(), 0);
        backend.setObjectId("{1}"_s);
        backend.setObjectId("{1}"_s);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(backend.objectId(), "{1}"_s);
        QVERIFY(backend.setProperty("objectId", "{2}"_s));
        QCOMPARE(changed.count(), 2);
        QCOMPARE(backend.property("objectId"), QVariant("{2}"_s));
        QCOMPARE(backend.name(), "maintenance"_s);
    }

    void connectionTellsChanges()
    {
        TestBackend backend;
        QSignalSpy const changed(&backend, &DAbstractPluginBackend::isConnectedChanged);
        backend.setConnected(false);
        QCOMPARE(changed.count(), 0);
        backend.setConnected(true);
        backend.setConnected(true);
        QCOMPARE(changed.count(), 1);
        QCOMPARE(backend.isConnected(), true);
        QCOMPARE(backend.property("isConnected"), QVariant(true));
        QCOMPARE(backend.setProperty("isConnected", false), false);
        QCOMPARE(backend.isConnected(), true);
        backend.setConnected(false);
        QCOMPARE(changed.count(), 2);
        QCOMPARE(backend.isConnected(), false);
    }

    void elementIsAttached()
    {
        TestBackend backend;
        auto const element = QSharedPointer<DElement>::create();
        int attachedWhenTold = 0;
        connect(&backend, &DAbstractPluginBackend::abstractBackendInitialized, this,
                [&] { attachedWhenTold += backend.element() == element ? 1 : 0; });
        QSignalSpy const initialized(&backend, &DAbstractPluginBackend::abstractBackendInitialized);
        backend.setElement(element);
        QCOMPARE(initialized.count(), 1);
        QCOMPARE(attachedWhenTold, 1);

        // The record is the host's own, not a copy.
        element->setSerialNumber("123"_s);
        QCOMPARE(backend.element()->serialNumber(), "123"_s);

        backend.setElement(element);
        QCOMPARE(initialized.count(), 2);
    }

    void elementMayBeNull()
    {
        TestBackend backend;
        QSignalSpy const initialized(&backend, &DAbstractPluginBackend::abstractBackendInitialized);
        backend.setElement({});
        QCOMPARE(initialized.count(), 1);
        QVERIFY(backend.element().isNull());

        auto element = QSharedPointer<DElement>::create();
        QWeakPointer<DElement> const watched = element;
        backend.setElement(element);
        element.reset();
        QVERIFY(!watched.isNull());
        backend.setElement({});
        QVERIFY(watched.isNull());
        QVERIFY(backend.element().isNull());
        QCOMPARE(initialized.count(), 3);
    }

    void elementSourceAttaches()
    {
        QMap<QString, QSharedPointer<DElement>> const elements{{"{1}"_s, QSharedPointer<DElement>::create()},
                                                               {"{2}"_s, QSharedPointer<DElement>::create()}};
        DAbstractPluginBackend::setElementSource(
            [elements](QString const& id) { return elements.value(id); });
        TestBackend backend;
        TestBackend other;
        // What a page binds to the id looks at the record at once.
        QList<QSharedPointer<DElement>> attachedWhenTold;
        connect(&backend, &DAbstractPluginBackend::objectIdChanged, this,
                [&] { attachedWhenTold += backend.element(); });
        QSignalSpy const initialized(&backend, &DAbstractPluginBackend::abstractBackendInitialized);
        backend.setObjectId("{1}"_s);
        QCOMPARE(initialized.count(), 1);
        QVERIFY(backend.setProperty("objectId", "{2}"_s));
        QCOMPARE(initialized.count(), 2);
        backend.setObjectId("{3}"_s);
        QCOMPARE(initialized.count(), 3);
        QCOMPARE(attachedWhenTold,
                 (QList<QSharedPointer<DElement>>{elements.value("{1}"_s), elements.value("{2}"_s), {}}));
        QVERIFY(other.element().isNull());
    }

    void elementSourceIsAskedOnce()
    {
        QStringList asked;
        DAbstractPluginBackend::setElementSource([&asked](QString const& id) {
            asked += id;
            return QSharedPointer<DElement>();
        });
        TestBackend backend;
        backend.setObjectId(QString());
        QCOMPARE(asked, QStringList());
        backend.setObjectId("{1}"_s);
        backend.setObjectId("{1}"_s);
        QCOMPARE(asked, QStringList{"{1}"_s});
        // The host's own record is not asked for.
        backend.setElement(QSharedPointer<DElement>::create());
        QCOMPARE(asked.size(), 1);
        QVERIFY(backend.element());
    }

    void noElementSource()
    {
        TestBackend backend;
        auto const element = QSharedPointer<DElement>::create();
        backend.setElement(element);
        QSignalSpy const initialized(&backend, &DAbstractPluginBackend::abstractBackendInitialized);
        backend.setObjectId("{1}"_s);
        QCOMPARE(backend.element(), element);

        DAbstractPluginBackend::setElementSource([](QString const&) { return QSharedPointer<DElement>(); });
        DAbstractPluginBackend::setElementSource({});
        backend.setObjectId("{2}"_s);
        QCOMPARE(backend.element(), element);
        QCOMPARE(initialized.count(), 0);
    }

    void queuesTreatment()
    {
        TestBackend backend;
        backend.setConnected(true);
        QSignalSpy const queued(&backend, &DAbstractPluginBackend::sigTreatmentQueued);
        Map const arguments{{"register"_s, 7}};
        QVERIFY(backend.queueTreatment(3, reading(), arguments));
        QCOMPARE(backend.hasPendingTreatments(), true);
        QCOMPARE(queued.count(), 1);
        QCOMPARE(queued[0][0].toInt(), 3);
        QCOMPARE(queued[0][1].toString(), reading());
        QCOMPARE(queued[0][2].toMap(), arguments);
    }

    void refusesTreatment_data()
    {
        QTest::addColumn<bool>("isConnected");
        QTest::addColumn<bool>("isPending");

        QTest::newRow("not connected") << false << false;
        QTest::newRow("pending") << true << true;
        QTest::newRow("pending, no longer connected") << false << true;
    }

    void refusesTreatment()
    {
        QFETCH(bool, isConnected);
        QFETCH(bool, isPending);
        TestBackend backend;
        if (isPending) {
            backend.setConnected(true);
            QVERIFY(backend.queueTreatment(3, reading(), {}));
        }
        backend.setConnected(isConnected);
        QSignalSpy const queued(&backend, &DAbstractPluginBackend::sigTreatmentQueued);
        // Other arguments do not make it another treatment.
        QCOMPARE(backend.queueTreatment(3, reading(), {{"register"_s, 8}}), false);
        QCOMPARE(queued.count(), 0);
        QCOMPARE(backend.hasPendingTreatments(), isPending);
    }

    void treatmentsAreKnownByIdAndName()
    {
        TestBackend backend;
        backend.setConnected(true);
        QSignalSpy const queued(&backend, &DAbstractPluginBackend::sigTreatmentQueued);
        QVERIFY(backend.queueTreatment(3, reading(), {}));
        QVERIFY(backend.queueTreatment(4, reading(), {}));
        QVERIFY(backend.queueTreatment(3, "write"_s, {}));
        QCOMPARE(queued.count(), 3);
        backend.treatmentReleased(3, reading(), true);
        QCOMPARE(backend.hasPendingTreatments(), true);
        backend.treatmentReleased(4, reading(), true);
        QCOMPARE(backend.hasPendingTreatments(), true);
        backend.treatmentReleased(3, "write"_s, true);
        QCOMPARE(backend.hasPendingTreatments(), false);
    }

    void treatmentIsPendingWhenTold()
    {
        TestBackend backend;
        backend.setConnected(true);
        // A host may be able to carry a treatment out on the spot.
        bool wasPending = false;
        bool accepted = false;
        connect(&backend, &DAbstractPluginBackend::sigTreatmentQueued, this,
                [&](int id, QString const& name) {
                    wasPending = backend.hasPendingTreatments();
                    accepted = backend.applyTreatmentReply(id, name, {});
                    backend.treatmentReleased(id, name, true);
                });
        QVERIFY(backend.queueTreatment(3, reading(), {}));
        QVERIFY(wasPending);
        QVERIFY(accepted);
        QCOMPARE(backend.hasPendingTreatments(), false);
    }

    void releaseClosesTreatment_data()
    {
        QTest::addColumn<bool>("success");

        QTest::newRow("succeeded") << true;
        QTest::newRow("failed") << false;
    }

    void releaseClosesTreatment()
    {
        QFETCH(bool, success);
        TestBackend backend;
        backend.setConnected(true);
        backend.queueTreatment(3, reading(), {});
        backend.treatmentReleased(3, reading(), success);
        QCOMPARE(backend.hasPendingTreatments(), false);
        QCOMPARE(backend.applyTreatmentReply(3, reading(), {}), false);
    }

    void releaseOfUnknownIsIgnored()
    {
        TestBackend backend;
        backend.setConnected(true);
        backend.queueTreatment(3, reading(), {});
        backend.treatmentReleased(4, reading(), true);
        backend.treatmentReleased(3, "write"_s, true);
        QCOMPARE(backend.hasPendingTreatments(), true);
        QCOMPARE(backend.applyTreatmentReply(3, reading(), {}), true);
    }

    void releasedTreatmentMayBeQueuedAgain()
    {
        TestBackend backend;
        backend.setConnected(true);
        QSignalSpy const queued(&backend, &DAbstractPluginBackend::sigTreatmentQueued);
        QVERIFY(backend.queueTreatment(3, reading(), {}));
        backend.treatmentReleased(3, reading(), false);
        QVERIFY(backend.queueTreatment(3, reading(), {}));
        QCOMPARE(queued.count(), 2);
        QCOMPARE(backend.hasPendingTreatments(), true);
    }

    void lostConnectionLeavesTreatmentsPending()
    {
        TestBackend backend;
        backend.setConnected(true);
        backend.queueTreatment(3, reading(), {});
        backend.setConnected(false);
        QCOMPARE(backend.hasPendingTreatments(), true);
        QCOMPARE(backend.applyTreatmentReply(3, reading(), {}), true);
        backend.treatmentReleased(3, reading(), false);
        QCOMPARE(backend.hasPendingTreatments(), false);
    }

    void appliesReplyToPending_data()
    {
        QTest::addColumn<int>("id");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("accepted");

        QTest::newRow("pending") << 3 << reading() << true;
        QTest::newRow("other id") << 4 << reading() << false;
        QTest::newRow("other name") << 3 << "write"_s << false;
    }

    void appliesReplyToPending()
    {
        QFETCH(int, id);
        QFETCH(QString, name);
        QFETCH(bool, accepted);
        TestBackend backend;
        backend.setConnected(true);
        backend.queueTreatment(3, reading(), {});
        QCOMPARE(backend.applyTreatmentReply(id, name, {{"value"_s, 1}}), accepted);
        // Only the release closes a treatment.
        QCOMPARE(backend.hasPendingTreatments(), true);
        QCOMPARE(backend.applyTreatmentReply(id, name, {}), accepted);
    }

    void hostReachesOverrides()
    {
        ReplyingBackend backend;
        DAbstractPluginBackend& face = backend;
        face.setConnected(true);
        face.queueTreatment(3, reading(), {});
        QCOMPARE(face.applyTreatmentReply(3, reading(), {{"value"_s, 1}}), true);
        face.treatmentReleased(3, reading(), false);
        QCOMPARE(backend.replies, (QList<Map>{{{"value"_s, 1}}}));
        QCOMPARE(backend.released, QList<bool>{false});
        QCOMPARE(face.hasPendingTreatments(), false);
    }

    void elementStartsEmpty()
    {
        DElement const element;
        QCOMPARE(element.serialNumber(), QString());
        QCOMPARE(element.validityDate(), QString());
        QCOMPARE(element.stbExpiredDelay(), 0);
    }

    void elementKeepsValues_data()
    {
        QTest::addColumn<QString>("serialNumber");
        QTest::addColumn<QString>("validityDate");
        QTest::addColumn<int>("days");

        QTest::newRow("dated") << "SN-0042"_s
                               << "2026-12-31"_s << 30;
        QTest::newRow("permanent") << "1"_s << QString() << 0;
        QTest::newRow("extremes") << QString(1000, QLatin1Char('x')) << "no date that anyone knows"_s
                                  << std::numeric_limits<int>::min();
    }

    void elementKeepsValues()
    {
        QFETCH(QString, serialNumber);
        QFETCH(QString, validityDate);
        QFETCH(int, days);
        DElement element;
        element.setSerialNumber(serialNumber);
        element.setValidityDate(validityDate);
        element.setStbExpiredDelay(days);
        QCOMPARE(element.serialNumber(), serialNumber);
        QCOMPARE(element.validityDate(), validityDate);
        QCOMPARE(element.stbExpiredDelay(), days);

        DElement copy = element;
        copy.setSerialNumber("other"_s);
        QCOMPARE(element.serialNumber(), serialNumber);
        QCOMPARE(copy.validityDate(), validityDate);
        QCOMPARE(copy.stbExpiredDelay(), days);
    }
};

QTEST_GUILESS_MAIN(TestPluginBackend)
#include "tst_plugin_backend.moc"
