#include "error_line.h"
#include "literals.h"
#include "message_capture.h"
#include "meta_entries.h"
#include "signal_counts.h"
#include "variants.h"

#include <be_maintenance_plugin.h>
#include <p_tool_vesk_zrt.h>

#include <plugin_management/d_element.h>

#include <QPointer>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QtTest>

#include <functional>
#include <limits>
#include <memory>
#include <type_traits>

namespace
{

using Map = QMap<QString, QVariant>;
using Action = std::function<void(BeMaintenanceToolZrt&)>;
using Element = QSharedPointer<DElement>;

Element elementOf(QString const& serialNumber, QString const& validity, int days)
{
    auto element = Element::create();
    element->setSerialNumber(serialNumber);
    element->setValidityDate(validity);
    element->setStbExpiredDelay(days);
    return element;
}

Element someElement()
{
    return elementOf("SN-1"_s, "2026-12-31"_s, 30);
}

QString textOf(Element const& element)
{
    return "%1 %2 %3"_s.arg(element->serialNumber(), element->validityDate()).arg(element->stbExpiredDelay());
}

// Channels by their ids: "a b"; "-" is a null pointer. Each is read by the command "read" and its id.
void fill(BeMaintenanceToolZrt& backend, QString const& ids)
{
    auto const list = ids.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (auto const& id : list) {
        QSharedPointer<DZrtToolChannel> channel;
        if (id != "-"_s) {
            channel = DZrtToolChannel::create({{"id"_s, id}});
            channel->setReadCommand("read "_s + id);
        }
        backend.statusChannelsModel()->append(channel);
    }
}

Map reading(QString const& id)
{
    return {{"channel"_s, id}};
}

Map toggle(QString const& id)
{
    return {{"channel"_s, id}, {"value"_s, true}};
}

/// A treatment as the host is told of it.
struct Treatment
{
    int id;
    QString name;
    Map arguments;
};

bool operator==(Treatment const& a, Treatment const& b)
{
    return a.id == b.id && a.name == b.name && a.arguments.keys() == b.arguments.keys()
           && std::equal(a.arguments.cbegin(), a.arguments.cend(), b.arguments.cbegin(), isSame);
}

QList<Treatment> treatmentsIn(QSignalSpy const& queued)
{
    QList<Treatment> list;
    for (auto const& one : queued)
        list.append({one[0].toInt(), one[1].toString(), one[2].toMap()});
    return list;
}

/// A backend that shows what its base keeps to itself.
class OpenBackend : public BeMaintenanceToolZrt
{
public:
    using BeMaintenanceToolZrt::BeMaintenanceToolZrt;
    using QObject::isSignalConnected;

    Element element() const { return m_element; }
};

// One turn of the event loop: what is posted meanwhile waits for the next.
void turn()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
}

} // namespace

Q_DECLARE_METATYPE(Action)

/// What stands behind the maintenance page.
class TestMaintenanceBackend : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // What the signals of a model carry.
        qRegisterMetaType<Qt::Orientation>();
        qRegisterMetaType<QList<QPersistentModelIndex>>();
        qRegisterMetaType<QAbstractItemModel::LayoutChangeHint>();
    }

    void metaObject()
    {
        auto const& meta = BeMaintenanceToolZrt::staticMetaObject;
        QCOMPARE(meta.className(), "BeMaintenanceToolZrt");
        QCOMPARE(meta.superClass(), &DAbstractPluginBackend::staticMetaObject);
        QCOMPARE(ownEntries(meta),
                 (QStringList{
                     "OLM_DZrtToolChannel* statusChannelsModel [read, final] notify channelsModelChanged()"_s,
                     "QString serialNumber [read, final] notify channelsModelChanged()"_s,
                     "QString validity [read, final] notify channelsModelChanged()"_s,
                     "int daysBeforeExpiration [read, final] notify channelsModelChanged()"_s,
                     "public signal void channelsModelChanged()"_s,
                     "public signal void delayingClickedOnChannel(int channelIndex)"_s,
                     "public slot void updateChannelsValue()"_s,
                     "public slot void clickedOnChannel(int channelIndex)"_s,
                     "public slot void resetBackend()"_s,
                     "public method void setSerialNumber(QString serialNumber)"_s,
                     "public method void setDaysBeforeExpiration(int daysBeforeExpiration)"_s,
                     "public method void setValidityDate(QDate validityDate, bool isPermanent)"_s,
                     "public method QVariantMap getModifiedParameters()"_s,
                 }));
        static_assert(std::is_same_v<decltype(&BeMaintenanceToolZrt::getModifiedParameters),
                                     QVariantMap (BeMaintenanceToolZrt::*)() const>);
        // The host's own connection finds it by address.
        for (int i = 0; i < meta.methodCount(); ++i)
            QVERIFY(meta.method(i).name() != "initBackend");
    }

    void commandsTable()
    {
        static_assert(std::is_same_v<decltype(BeMaintenanceToolZrt::c_commandsChannelsIndex),
                                     QMap<QString, int> const>);
        QCOMPARE(BeMaintenanceToolZrt::c_commandsChannelsIndex.size(), 0);
    }

    void construction()
    {
        OpenBackend const backend;
        QCOMPARE(backend.name(), "PlgLibToolZrt"_s);
        QCOMPARE(backend.objectId(), QString());
        QVERIFY(!backend.parent());
        QVERIFY(backend.element().isNull());
        QCOMPARE(backend.getModifiedParameters(), Map());
        QCOMPARE(backend.hasPendingTreatments(), false);
        QVERIFY(backend.isSignalConnected(
            QMetaMethod::fromSignal(&DAbstractPluginBackend::abstractBackendInitialized)));
    }

    void belongsToParent()
    {
        auto parent = std::make_unique<QObject>();
        QPointer<BeMaintenanceToolZrt> const backend = new BeMaintenanceToolZrt(parent.get());
        QPointer<OLM_DZrtToolChannel> const model = backend->statusChannelsModel();
        QCOMPARE(backend->parent(), parent.get());
        QVERIFY(!model->parent());
        QCOMPARE(model->rowCount(), 0);
        QCOMPARE(backend->property("statusChannelsModel").value<OLM_DZrtToolChannel*>(), model.data());
        QCOMPARE(backend->statusChannelsModel(), model.data());
        // It goes with the backend, and with it the channels.
        fill(*backend, "a"_s);
        auto const channel = backend->getChannelAt(0).toWeakRef();
        parent.reset();
        QVERIFY(backend.isNull());
        QVERIFY(model.isNull());
        QVERIFY(channel.isNull());
    }

    void gettersTellEachRead_data()
    {
        QTest::addColumn<QByteArray>("property");
        QTest::addColumn<bool>("hasElement");
        QTest::addColumn<QVariant>("value");

        QTest::newRow("serial number") << QByteArray("serialNumber") << true << QVariant("SN-1"_s);
        QTest::newRow("validity") << QByteArray("validity") << true << QVariant("2026-12-31"_s);
        QTest::newRow("days") << QByteArray("daysBeforeExpiration") << true << QVariant(30);
        QTest::newRow("serial number of none") << QByteArray("serialNumber") << false << QVariant(QString());
        QTest::newRow("validity of none") << QByteArray("validity") << false << QVariant(QString());
        QTest::newRow("days of none") << QByteArray("daysBeforeExpiration") << false << QVariant(0);
    }

    void gettersTellEachRead()
    {
        QFETCH(QByteArray, property);
        QFETCH(bool, hasElement);
        QFETCH(QVariant, value);
        BeMaintenanceToolZrt backend;
        auto const element = someElement();
        if (hasElement)
            backend.setElement(element);
        MessageCapture const messages;
        SignalCounts emitted(backend);
        for (int i = 0; i < 3; ++i) {
            QVERIFY(isSame(backend.property(property), value));
            QCOMPARE(emitted.take(), QStringList{"channelsModelChanged"_s});
        }
        QCOMPARE(messages.lines.size(), 0);
        QCOMPARE(textOf(element), textOf(someElement()));
        // What is not the record's is read in silence.
        QVERIFY(backend.property("statusChannelsModel").isValid());
        QCOMPARE(backend.getModifiedParameters(), Map());
        QCOMPARE(emitted.take(), QStringList());
    }

    void settersNeedElement_data()
    {
        QTest::addColumn<Action>("lose");
        QTest::addColumn<Action>("set");
        QTest::addColumn<int>("line");

        struct Loss
        {
            char const* name;
            Action lose;
        };
        Loss const losses[] = {
            {"never had one", [](BeMaintenanceToolZrt&) {}},
            {"had null", [](BeMaintenanceToolZrt& backend) { backend.setElement({}); }},
            {"was reset",
             [](BeMaintenanceToolZrt& backend) {
                 backend.setElement(someElement());
                 backend.resetBackend();
             }},
        };
        struct Setter
        {
            char const* name;
            Action set;
            int line;
        };
        Setter const setters[] = {
            {"serial number", [](BeMaintenanceToolZrt& backend) { backend.setSerialNumber("SN-2"_s); }, 177},
            {"days", [](BeMaintenanceToolZrt& backend) { backend.setDaysBeforeExpiration(7); }, 188},
            {"validity",
             [](BeMaintenanceToolZrt& backend) { backend.setValidityDate(QDate(2027, 1, 1), false); }, 207},
            {"permanent",
             [](BeMaintenanceToolZrt& backend) { backend.setValidityDate(QDate(2027, 1, 1), true); }, 207},
            {"no date", [](BeMaintenanceToolZrt& backend) { backend.setValidityDate(QDate(), false); }, 207},
        };
        for (auto const& loss : losses) {
            for (auto const& setter : setters)
                QTest::addRow("%s, %s", setter.name, loss.name) << loss.lose << setter.set << setter.line;
        }
    }

    void settersNeedElement()
    {
        QFETCH(Action, lose);
        QFETCH(Action, set);
        QFETCH(int, line);
        BeMaintenanceToolZrt backend;
        lose(backend);
        MessageCapture const messages;
        SignalCounts emitted(backend);
        set(backend);
        auto const error = ErrorLine::only(messages);
        QCOMPARE(error.file, "be_maintenance_plugin.cpp"_s);
        QCOMPARE(error.line, line);
        QCOMPARE(error.message, "ERROR: Failure to get element pointer"_s);
        QCOMPARE(messages.lines.size(), 1);
        QCOMPARE(emitted.take(), QStringList());
        QCOMPARE(backend.getModifiedParameters(), Map());
        QCOMPARE(backend.serialNumber(), QString());
        QCOMPARE(backend.validity(), QString());
        QCOMPARE(backend.daysBeforeExpiration(), 0);
    }

    void setsSerialNumber_data()
    {
        QTest::addColumn<QString>("serialNumber");

        QTest::newRow("usual") << "SN-0042"_s;
        QTest::newRow("as it was") << "SN-1"_s;
        QTest::newRow("null") << QString();
        QTest::newRow("empty") << ""_s;
        QTest::newRow("blanks") << "  \t "_s;
        QTest::newRow("number") << "007"_s;
        QTest::newRow("10000 characters") << QString(10'000, QLatin1Char('x'));
        QTest::newRow("control characters") << "a\x01\x1b\r\n\x7f"_s + QChar(QChar::Null);
        QTest::newRow("emoji") << "\U0001F529\U0001F468\u200D\U0001F527"_s;
        QTest::newRow("half a character") << QString(QChar(0xD800));
    }

    void setsSerialNumber()
    {
        QFETCH(QString, serialNumber);
        BeMaintenanceToolZrt backend;
        auto const element = someElement();
        backend.setElement(element);
        SignalCounts emitted(backend);
        backend.setSerialNumber(serialNumber);
        QCOMPARE(emitted.take(), QStringList{"channelsModelChanged"_s});
        QCOMPARE(element->serialNumber(), serialNumber);
        QCOMPARE(element->serialNumber().isNull(), serialNumber.isNull());
        QCOMPARE(element->validityDate(), "2026-12-31"_s);
        QCOMPARE(element->stbExpiredDelay(), 30);
        auto const edits = backend.getModifiedParameters();
        QCOMPARE(edits.keys(), QStringList{"serialNumber"_s});
        QVERIFY(isSame(edits.first(), serialNumber));
        QCOMPARE(backend.serialNumber(), serialNumber);
    }

    void setsDays_data()
    {
        QTest::addColumn<int>("days");

        for (int const days :
             {0, 1, 30, 365, 100'000, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()})
            QTest::addRow("%d", days) << days;
    }

    void setsDays()
    {
        QFETCH(int, days);
        BeMaintenanceToolZrt backend;
        auto const element = someElement();
        backend.setElement(element);
        SignalCounts emitted(backend);
        backend.setDaysBeforeExpiration(days);
        QCOMPARE(emitted.take(), QStringList{"channelsModelChanged"_s});
        QCOMPARE(element->stbExpiredDelay(), days);
        QCOMPARE(element->serialNumber(), "SN-1"_s);
        QCOMPARE(element->validityDate(), "2026-12-31"_s);
        auto const edits = backend.getModifiedParameters();
        QCOMPARE(edits.keys(), QStringList{"alertBeforeExpiration"_s});
        QVERIFY(isSame(edits.first(), days));
        QCOMPARE(backend.daysBeforeExpiration(), days);
    }

    void setsValidity_data()
    {
        QTest::addColumn<QDate>("date");
        QTest::addColumn<bool>("isPermanent");
        QTest::addColumn<QString>("text");

        QString const permanent = ""_s;
        QString const nothing;
        QTest::newRow("usual") << QDate(2027, 3, 9) << false << "2027-03-09"_s;
        QTest::newRow("as it was") << QDate(2026, 12, 31) << false << "2026-12-31"_s;
        QTest::newRow("before 1970") << QDate(1969, 12, 31) << false << "1969-12-31"_s;
        QTest::newRow("long ago") << QDate(1582, 10, 15) << false << "1582-10-15"_s;
        QTest::newRow("year 1") << QDate(1, 1, 1) << false << "0001-01-01"_s;
        QTest::newRow("leap day") << QDate(2028, 2, 29) << false << "2028-02-29"_s;
        QTest::newRow("year 9999") << QDate(9999, 12, 31) << false << "9999-12-31"_s;
        // Years that the form has no place for.
        QTest::newRow("year 10000") << QDate(10'000, 1, 1) << false << nothing;
        QTest::newRow("before year 1") << QDate(-1, 12, 31) << false << nothing;
        QTest::newRow("no date") << QDate() << false << nothing;
        QTest::newRow("no leap day") << QDate(2027, 2, 29) << false << nothing;
        QTest::newRow("month 13") << QDate(2027, 13, 1) << false << nothing;
        QTest::newRow("permanent") << QDate(2027, 3, 9) << true << permanent;
        QTest::newRow("permanent, as it was") << QDate(2026, 12, 31) << true << permanent;
        QTest::newRow("permanent, year 10000") << QDate(10'000, 1, 1) << true << permanent;
        QTest::newRow("permanent, no date") << QDate() << true << permanent;
        QTest::newRow("permanent, no leap day") << QDate(2027, 2, 29) << true << permanent;
    }

    void setsValidity()
    {
        QFETCH(QDate, date);
        QFETCH(bool, isPermanent);
        QFETCH(QString, text);
        BeMaintenanceToolZrt backend;
        auto const element = someElement();
        backend.setElement(element);
        MessageCapture const messages;
        SignalCounts emitted(backend);
        backend.setValidityDate(date, isPermanent);
        QCOMPARE(emitted.take(), QStringList{"channelsModelChanged"_s});
        QCOMPARE(element->validityDate(), text);
        QCOMPARE(element->validityDate().isNull(), text.isNull());
        QCOMPARE(element->serialNumber(), "SN-1"_s);
        QCOMPARE(element->stbExpiredDelay(), 30);
        auto const edits = backend.getModifiedParameters();
        QCOMPARE(edits.keys(), QStringList{"validityDate"_s});
        QVERIFY(isSame(edits.first(), text));
        QCOMPARE(edits.first().toString().isNull(), text.isNull());
        QCOMPARE(backend.validity(), text);
        QCOMPARE(messages.lines.size(), 0);
    }

    void everySetterTells()
    {
        BeMaintenanceToolZrt backend;
        backend.setElement(someElement());
        // When it is told, everything is done.
        QList<Map> told;
        connect(&backend, &BeMaintenanceToolZrt::channelsModelChanged, this,
                [&] { told += backend.getModifiedParameters(); });
        Map expected;
        backend.setSerialNumber("SN-2"_s);
        expected.insert("serialNumber"_s, "SN-2"_s);
        QCOMPARE(told, QList<Map>{expected});
        backend.setDaysBeforeExpiration(7);
        expected.insert("alertBeforeExpiration"_s, 7);
        QCOMPARE(told.size(), 2);
        QCOMPARE(told.last(), expected);
        backend.setValidityDate(QDate(2027, 3, 9), false);
        expected.insert("validityDate"_s, "2027-03-09"_s);
        QCOMPARE(told.size(), 3);
        QCOMPARE(told.last(), expected);
    }

    void editsAreCopied()
    {
        BeMaintenanceToolZrt backend;
        backend.setElement(someElement());
        backend.setDaysBeforeExpiration(7);
        auto edits = backend.getModifiedParameters();
        edits.insert("serialNumber"_s, "SN-2"_s);
        auto const former = edits;
        backend.setDaysBeforeExpiration(8);
        QCOMPARE(backend.getModifiedParameters(), (Map{{"alertBeforeExpiration"_s, 8}}));
        QCOMPARE(edits, former);
    }

    void latestEditCounts()
    {
        BeMaintenanceToolZrt backend;
        auto const element = someElement();
        backend.setElement(element);
        backend.setValidityDate(QDate(2027, 3, 9), false);
        backend.setValidityDate(QDate(2027, 3, 9), true);
        backend.setSerialNumber("SN-2"_s);
        backend.setSerialNumber("SN-1"_s);
        // Back where it was, it was edited all the same.
        QCOMPARE(backend.getModifiedParameters(),
                 (Map{{"serialNumber"_s, "SN-1"_s}, {"validityDate"_s, ""_s}}));
        QCOMPARE(textOf(element), "SN-1  30"_s);
    }

    void initBackendIsSilent()
    {
        BeMaintenanceToolZrt backend;
        fill(backend, "a"_s);
        backend.setConnected(true);
        auto const element = someElement();
        MessageCapture const messages;
        SignalCounts emitted(backend);
        SignalCounts emittedByModel(*backend.statusChannelsModel(), OLM_DZrtToolChannel::staticMetaObject);
        backend.setElement(element);
        turn();
        QCOMPARE(emitted.take(), QStringList{"abstractBackendInitialized"_s});
        QCOMPARE(emittedByModel.take(), QStringList());
        QCOMPARE(messages.lines.size(), 0);
        QCOMPARE(textOf(element), textOf(someElement()));
        QCOMPARE(backend.getModifiedParameters(), Map());
        QCOMPARE(backend.hasPendingTreatments(), false);
        QCOMPARE(backend.statusChannelsModel()->count(), 1);
    }

    void elementComesLate()
    {
        BeMaintenanceToolZrt backend;
        backend.setName("left bench"_s);
        backend.setObjectId("{1}"_s);
        {
            MessageCapture const messages;
            backend.setSerialNumber("too early"_s);
            QCOMPARE(messages.of(QtCriticalMsg).size(), 1);
        }
        auto const element = someElement();
        backend.setElement(element);
        // What failed is not made up for.
        QCOMPARE(backend.serialNumber(), "SN-1"_s);
        QCOMPARE(backend.getModifiedParameters(), Map());
        backend.setSerialNumber("SN-2"_s);
        QCOMPARE(element->serialNumber(), "SN-2"_s);

        // Another record takes over; the edits stay.
        auto const other = elementOf("SN-9"_s, QString(), 1);
        backend.setElement(other);
        QCOMPARE(backend.serialNumber(), "SN-9"_s);
        backend.setDaysBeforeExpiration(2);
        QCOMPARE(textOf(other), "SN-9  2"_s);
        QCOMPARE(textOf(element), "SN-2 2026-12-31 30"_s);
        QCOMPARE(backend.getModifiedParameters(),
                 (Map{{"alertBeforeExpiration"_s, 2}, {"serialNumber"_s, "SN-2"_s}}));
    }

    void twoBackendsShareElement()
    {
        BeMaintenanceToolZrt first;
        BeMaintenanceToolZrt second;
        auto const element = someElement();
        first.setElement(element);
        second.setElement(element);
        SignalCounts emittedBySecond(second);
        first.setSerialNumber("SN-2"_s);
        QCOMPARE(emittedBySecond.take(), QStringList());
        QCOMPARE(second.getModifiedParameters(), Map());
        QCOMPARE(second.serialNumber(), "SN-2"_s);
        second.setDaysBeforeExpiration(7);
        QCOMPARE(first.daysBeforeExpiration(), 7);
        first.resetBackend();
        QCOMPARE(second.serialNumber(), "SN-2"_s);
        QCOMPARE(second.getModifiedParameters(), (Map{{"alertBeforeExpiration"_s, 7}}));
    }

    void scriptsEdit()
    {
        PToolVeskZrt const plugin; // registers the types
        QQmlEngine engine;
        QQmlComponent component(&engine);
        component.setData("import PlgLibToolZrt 1.0\n"
                          "BeMaintenanceToolZrt {\n"
                          "    objectId: '{1}'\n"
                          "    function edit() {\n"
                          "        setSerialNumber('SN-2')\n"
                          "        setDaysBeforeExpiration(0)\n"
                          "        setValidityDate(new Date(2027, 2, 9), false)\n"
                          "        return JSON.stringify(getModifiedParameters())\n"
                          "    }\n"
                          "    function show() {\n"
                          "        return [name, objectId, serialNumber, validity, daysBeforeExpiration,\n"
                          "                statusChannelsModel.length, statusChannelsModel.isEmpty].join()\n"
                          "    }\n"
                          "}\n",
                          QUrl());
        std::unique_ptr<QObject> const object(component.create());
        QVERIFY2(object, qPrintable(component.errorString()));
        auto* const backend = qobject_cast<BeMaintenanceToolZrt*>(object.get());
        QVERIFY(backend);
        auto const ask = [backend](char const* function) {
            QVariant answer;
            QMetaObject::invokeMethod(backend, function, Q_RETURN_ARG(QVariant, answer));
            return answer.toString();
        };
        QCOMPARE(ask("show"), "PlgLibToolZrt,{1},,,0,0,1"_s);
        backend->setElement(someElement());
        QCOMPARE(ask("edit"), "{\"alertBeforeExpiration\":0,\"serialNumber\":\"SN-2\",\"validityDate\":"
                              "\"2027-03-09\"}"_s);
        QCOMPARE(ask("show"), "PlgLibToolZrt,{1},SN-2,2027-03-09,0,0,1"_s);
    }

    void channelAt_data()
    {
        QTest::addColumn<int>("index");
        QTest::addColumn<QString>("id");

        QTest::newRow("first") << 0 << "a"_s;
        QTest::newRow("null") << 1 << QString();
        QTest::newRow("last") << 2 << "b"_s;
        QTest::newRow("below") << -1 << QString();
        QTest::newRow("count") << 3 << QString();
        QTest::newRow("far below") << std::numeric_limits<int>::min() << QString();
        QTest::newRow("far beyond") << std::numeric_limits<int>::max() << QString();
    }

    void channelAt()
    {
        QFETCH(int, index);
        QFETCH(QString, id);
        BeMaintenanceToolZrt backend;
        fill(backend, "a - b"_s);
        MessageCapture const messages;
        auto const channel = backend.getChannelAt(index);
        QCOMPARE(!channel.isNull(), !id.isNull());
        QCOMPARE(channel ? channel->id() : QString(), id);
        QCOMPARE(messages.lines.size(), 0);
    }

    void updateAsksForAll()
    {
        BeMaintenanceToolZrt backend;
        fill(backend, "a b c d"_s);
        backend.getChannelAt(1)->setReadCommand("read a"_s);
        backend.getChannelAt(2)->setReadCommand(QString());
        backend.setConnected(true);
        QSignalSpy const queued(&backend, &DAbstractPluginBackend::sigTreatmentQueued);
        SignalCounts emitted(backend, BeMaintenanceToolZrt::staticMetaObject);
        QList<Treatment> const all = {
            {0, "read a"_s, reading("a"_s)},
            {1, "read a"_s, reading("b"_s)},
            {2, QString(), reading("c"_s)},
            {3, "read d"_s, reading("d"_s)},
        };
        backend.updateChannelsValue();
        QVERIFY(treatmentsIn(queued) == all);
        QCOMPARE(emitted.take(), QStringList());

        // Again only when the last is over.
        for (auto const& one : all) {
            backend.updateChannelsValue();
            QCOMPARE(queued.count(), 4);
            backend.treatmentReleased(one.id, one.name, true);
        }
        backend.updateChannelsValue();
        QVERIFY(treatmentsIn(queued) == all + all);
    }

    void updateAsksWithinItself()
    {
        BeMaintenanceToolZrt backend;
        fill(backend, "a b"_s);
        backend.setConnected(true);
        // A host that carries a treatment out on the spot.
        connect(&backend, &DAbstractPluginBackend::sigTreatmentQueued, &backend,
                [&](int id, QString const& name) { backend.treatmentReleased(id, name, true); });
        QSignalSpy const queued(&backend, &DAbstractPluginBackend::sigTreatmentQueued);
        backend.updateChannelsValue();
        QCOMPARE(queued.count(), 2);
        backend.updateChannelsValue();
        QCOMPARE(queued.count(), 4);
    }

    void updateIsHeldBack_data()
    {
        QTest::addColumn<QString>("channels");
        QTest::addColumn<Action>("before");

        Action const nothing = [](BeMaintenanceToolZrt&) {};
        Action const click = [](BeMaintenanceToolZrt& backend) { backend.clickedOnChannel(1); };
        Action const other = [](BeMaintenanceToolZrt& backend) {
            backend.queueTreatment(99, "calibrate"_s, {});
        };
        QTest::newRow("no channels") << QString() << nothing;
        QTest::newRow("toggle pending") << "a b"_s << click;
        QTest::newRow("something else pending") << "a b"_s << other;
        // Nothing is looked at either.
        QTest::newRow("null channel, toggle pending") << "- b"_s << click;
    }

    void updateIsHeldBack()
    {
        QFETCH(QString, channels);
        QFETCH(Action, before);
        BeMaintenanceToolZrt backend;
        fill(backend, channels);
        backend.setConnected(true);
        before(backend);
        MessageCapture const messages;
        QSignalSpy const queued(&backend, &DAbstractPluginBackend::sigTreatmentQueued);
        backend.updateChannelsValue();
        turn();
        QCOMPARE(queued.count(), 0);
        QCOMPARE(messages.lines.size(), 0);
    }

    void updateSkipsNull()
    {
        BeMaintenanceToolZrt backend;
        fill(backend, "a - c"_s);
        backend.setConnected(true);
        MessageCapture const messages;
        QSignalSpy const queued(&backend, &DAbstractPluginBackend::sigTreatmentQueued);
        backend.updateChannelsValue();
        auto const error = ErrorLine::only(messages);
        QCOMPARE(error.file, "be_maintenance_plugin.cpp"_s);
        QCOMPARE(error.line, 61);
        QCOMPARE(error.message, "BeMaintenanceToolZrt::updateChannelsValue: channel is null at index 1"_s);
        QVERIFY(treatmentsIn(queued)
                == (QList<Treatment>{{0, "read a"_s, reading("a"_s)}, {2, "read c"_s, reading("c"_s)}}));
    }

    void updateTriesOnce()
    {
        BeMaintenanceToolZrt backend;
        fill(backend, "a b"_s);
        QSignalSpy const queued(&backend, &DAbstractPluginBackend::sigTreatmentQueued);
        SignalCounts emitted(backend, BeMaintenanceToolZrt::staticMetaObject);
        MessageCapture const messages;
        // Refused without a connection, and not tried again of its own accord.
        backend.updateChannelsValue();
        backend.setConnected(true);
        turn();
        QCOMPARE(queued.count(), 0);
        QCOMPARE(emitted.take(), QStringList());
        QCOMPARE(messages.lines.size(), 0);
    }

    void clickAsks()
    {
        BeMaintenanceToolZrt backend;
        fill(backend, "a b"_s);
        backend.setConnected(true);
        QSignalSpy const queued(&backend, &DAbstractPluginBackend::sigTreatmentQueued);
        SignalCounts emitted(backend, BeMaintenanceToolZrt::staticMetaObject);
        backend.clickedOnChannel(1);
        backend.clickedOnChannel(0);
        QVERIFY(treatmentsIn(queued)
                == (QList<Treatment>{{1, QString(), toggle("b"_s)}, {0, QString(), toggle("a"_s)}}));
        turn();
        QCOMPARE(queued.count(), 2);
        QCOMPARE(emitted.take(), QStringList());
        // The channel shows no value of its own, hence it is always switched on.
        backend.applyTreatmentReply(1, QString(), {{"cmd_success"_s, true}});
        backend.treatmentReleased(1, QString(), true);
        backend.clickedOnChannel(1);
        QVERIFY(treatmentsIn(queued).last() == (Treatment{1, QString(), toggle("b"_s)}));
    }

    void clickOnNoChannel_data()
    {
        QTest::addColumn<int>("index");

        for (int const index :
             {-1, 1, 2, 3, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()})
            QTest::addRow("%d", index) << index;
    }

    void clickOnNoChannel()
    {
        QFETCH(int, index);
        BeMaintenanceToolZrt backend;
        fill(backend, "a -"_s);
        backend.setConnected(true);
        MessageCapture const messages;
        SignalCounts emitted(backend);
        backend.clickedOnChannel(index);
        turn();
        auto const error = ErrorLine::only(messages);
        QCOMPARE(error.file, "be_maintenance_plugin.cpp"_s);
        QCOMPARE(error.line, 76);
        QCOMPARE(error.message,
                 "BeMaintenanceToolZrt::clickedOnChannel: channel is null at index %1"_s.arg(index));
        QCOMPARE(emitted.take(), QStringList());
    }

    void clickIsRetried_data()
    {
        QTest::addColumn<Action>("refuse");
        QTest::addColumn<Action>("allow");

        Action const pend = [](BeMaintenanceToolZrt& backend) {
            backend.setConnected(true);
            backend.queueTreatment(1, QString(), {});
        };
        Action const release = [](BeMaintenanceToolZrt& backend) {
            backend.treatmentReleased(1, QString(), false);
        };
        QTest::newRow("not connected")
            << Action([](BeMaintenanceToolZrt&) {})
            << Action([](BeMaintenanceToolZrt& backend) { backend.setConnected(true); });
        QTest::newRow("the same pending") << pend << release;
    }

    void clickIsRetried()
    {
        QFETCH(Action, refuse);
        QFETCH(Action, allow);
        BeMaintenanceToolZrt backend;
        fill(backend, "a b"_s);
        refuse(backend);
        QSignalSpy const queued(&backend, &DAbstractPluginBackend::sigTreatmentQueued);
        QSignalSpy const delayed(&backend, &BeMaintenanceToolZrt::delayingClickedOnChannel);
        backend.clickedOnChannel(1);
        // Once in each turn of the event loop, never within itself.
        for (int turns = 1; turns < 10; ++turns) {
            QCOMPARE(delayed.count(), turns);
            QCOMPARE(delayed.last(), QVariantList{1});
            turn();
        }
        QCOMPARE(queued.count(), 0);
        allow(backend);
        QCOMPARE(queued.count(), 0);
        for (int turns = 0; turns < 3; ++turns) {
            turn();
            QVERIFY(treatmentsIn(queued) == (QList<Treatment>{{1, QString(), toggle("b"_s)}}));
            QCOMPARE(delayed.count(), 10);
        }
    }

    void clickRetriedOnNoChannel()
    {
        BeMaintenanceToolZrt backend;
        fill(backend, "a"_s);
        QSignalSpy const delayed(&backend, &BeMaintenanceToolZrt::delayingClickedOnChannel);
        backend.clickedOnChannel(0);
        backend.statusChannelsModel()->clear();
        MessageCapture const messages;
        for (int turns = 0; turns < 3; ++turns)
            turn();
        auto const error = ErrorLine::only(messages);
        QCOMPARE(error.line, 76);
        QCOMPARE(error.message, "BeMaintenanceToolZrt::clickedOnChannel: channel is null at index 0"_s);
        QCOMPARE(delayed.count(), 1);
    }

    void clicksAreRetriedEach()
    {
        BeMaintenanceToolZrt backend;
        fill(backend, "a b"_s);
        QSignalSpy const queued(&backend, &DAbstractPluginBackend::sigTreatmentQueued);
        backend.clickedOnChannel(1);
        backend.clickedOnChannel(0);
        backend.setConnected(true);
        turn();
        QVERIFY(treatmentsIn(queued)
                == (QList<Treatment>{{1, QString(), toggle("b"_s)}, {0, QString(), toggle("a"_s)}}));
    }

    void goesBeforeItsRetry()
    {
        auto backend = std::make_unique<BeMaintenanceToolZrt>();
        fill(*backend, "a"_s);
        auto const channel = backend->getChannelAt(0).toWeakRef();
        QSignalSpy const delayed(backend.get(), &BeMaintenanceToolZrt::delayingClickedOnChannel);
        backend->clickedOnChannel(0);
        turn();
        QCOMPARE(delayed.count(), 2);
        MessageCapture const messages;
        backend.reset();
        for (int turns = 0; turns < 3; ++turns)
            turn();
        QCOMPARE(delayed.count(), 2);
        QCOMPARE(messages.lines.size(), 0);
        QVERIFY(channel.isNull());
    }

    void goesBeforeItsTreatment()
    {
        auto backend = std::make_unique<BeMaintenanceToolZrt>();
        fill(*backend, "a b"_s);
        backend->setConnected(true);
        auto const element = someElement();
        backend->setElement(element);
        QSignalSpy const queued(backend.get(), &DAbstractPluginBackend::sigTreatmentQueued);
        backend->updateChannelsValue();
        backend->clickedOnChannel(0);
        backend->clickedOnChannel(0); // refused
        QVERIFY(backend->hasPendingTreatments());
        MessageCapture const messages;
        backend.reset();
        turn();
        QCOMPARE(queued.count(), 3);
        QCOMPARE(messages.lines.size(), 0);
        QCOMPARE(textOf(element), textOf(someElement()));
    }

    void toggleReply_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<Map>("reply");

        QString const success = "cmd_success"_s;
        QTest::newRow("null name") << QString() << Map{{success, true}};
        QTest::newRow("empty name") << ""_s << Map{{success, true}};
        QTest::newRow("without success") << QString() << Map{};
        QTest::newRow("another case") << QString() << Map{{"CMD_SUCCESS"_s, false}};
        auto const values = everyKindOfValue();
        for (auto const& [kind, value] : values)
            QTest::newRow(kind) << QString() << Map{{success, value}};
    }

    void toggleReply()
    {
        QFETCH(QString, name);
        QFETCH(Map, reply);
        BeMaintenanceToolZrt backend;
        fill(backend, "a b"_s);
        DAbstractPluginBackend& face = backend;
        MessageCapture const messages;
        SignalCounts emitted(backend);
        // Whether it was asked for or not.
        QCOMPARE(face.applyTreatmentReply(1, name, reply), true);
        QVERIFY(!backend.getChannelAt(1)->value().isValid());
        QCOMPARE(emitted.take(), QStringList());
        QCOMPARE(messages.lines.size(), 0);
    }

    void toggleReplyForNoChannel_data() { clickOnNoChannel_data(); }

    void toggleReplyForNoChannel()
    {
        QFETCH(int, index);
        BeMaintenanceToolZrt backend;
        fill(backend, "a -"_s);
        MessageCapture const messages;
        QCOMPARE(backend.applyTreatmentReply(index, QString(), {{"cmd_success"_s, true}}), false);
        auto const error = ErrorLine::only(messages);
        QCOMPARE(error.file, "be_maintenance_plugin.cpp"_s);
        QCOMPARE(error.line, 114);
        QCOMPARE(error.message,
                 "BeMaintenanceToolZrt::applyTreatmentReply: channel is null at index %1"_s.arg(index));
    }

    void otherReplyGoesToBase_data()
    {
        QTest::addColumn<int>("id");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("isAccepted");

        QTest::newRow("pending") << 0 << "read a"_s << true;
        QTest::newRow("pending, without a channel") << 7 << "calibrate"_s << true;
        QTest::newRow("not pending") << 0 << "read b"_s << false;
        QTest::newRow("other id") << 1 << "read a"_s << false;
        QTest::newRow("blank name") << 0 << " "_s << false;
        QTest::newRow("no such channel") << -1 << "read a"_s << false;
    }

    void otherReplyGoesToBase()
    {
        QFETCH(int, id);
        QFETCH(QString, name);
        QFETCH(bool, isAccepted);
        BeMaintenanceToolZrt backend;
        fill(backend, "a"_s);
        backend.setConnected(true);
        backend.updateChannelsValue();
        QVERIFY(backend.queueTreatment(7, "calibrate"_s, {}));
        DAbstractPluginBackend& face = backend;
        MessageCapture const messages;
        QCOMPARE(face.applyTreatmentReply(id, name, {{"cmd_success"_s, true}}), isAccepted);
        QCOMPARE(messages.lines.size(), 0);
        QVERIFY(!backend.getChannelAt(0)->value().isValid());
    }

    void resetNeedsElement()
    {
        BeMaintenanceToolZrt backend;
        backend.setElement(someElement());
        backend.setDaysBeforeExpiration(7);
        fill(backend, "a b"_s);
        backend.setElement({});
        SignalCounts emitted(backend);
        SignalCounts emittedByModel(*backend.statusChannelsModel());
        MessageCapture const messages;
        backend.resetBackend();
        QCOMPARE(backend.getModifiedParameters(), (Map{{"alertBeforeExpiration"_s, 7}}));
        QCOMPARE(backend.statusChannelsModel()->count(), 2);
        QVERIFY(!backend.statusChannelsModel()->byKey("b"_s).isNull());
        QCOMPARE(emitted.take(), QStringList());
        QCOMPARE(emittedByModel.take(), QStringList());
        QCOMPARE(messages.lines.size(), 0);
    }

    void resetLetsGo()
    {
        OpenBackend backend;
        auto element = someElement();
        QWeakPointer<DElement> const watched = element;
        backend.setElement(element);
        element.reset();
        backend.setDaysBeforeExpiration(7);
        fill(backend, "a"_s);
        auto const channel = backend.getChannelAt(0).toWeakRef();
        backend.setConnected(true);
        backend.updateChannelsValue();
        SignalCounts emitted(backend);
        SignalCounts emittedByModel(*backend.statusChannelsModel());

        backend.resetBackend();
        QVERIFY(backend.element().isNull());
        QVERIFY(watched.isNull());
        QVERIFY(channel.isNull());
        QCOMPARE(backend.statusChannelsModel()->count(), 0);
        QVERIFY(backend.statusChannelsModel()->byKey("a"_s).isNull());
        QCOMPARE(backend.getModifiedParameters(), Map());
        QCOMPARE(emitted.take(), QStringList());
        QCOMPARE(emittedByModel.take(), (QStringList{"modelAboutToBeReset"_s, "modelReset"_s, "changed"_s}));
        // The device is still at work.
        QVERIFY(backend.hasPendingTreatments());
        QVERIFY(backend.isConnected());

        // Without a record there is nothing more to let go of.
        backend.resetBackend();
        QCOMPARE(emittedByModel.take(), QStringList());
        backend.setElement(someElement());
        backend.resetBackend();
        QCOMPARE(emittedByModel.take().count("changed"_s), 1);
    }

    void resetInOrder()
    {
        OpenBackend backend;
        backend.setElement(someElement());
        backend.setDaysBeforeExpiration(7);
        fill(backend, "a"_s);
        QStringList steps;
        auto const note = [&](char const* step) {
            steps += "%1: %2 record, %3 channels, %4 edits"_s
                         .arg(QLatin1String(step), backend.element() ? "a"_s : "no"_s)
                         .arg(backend.statusChannelsModel()->count())
                         .arg(backend.getModifiedParameters().size());
        };
        auto* const model = backend.statusChannelsModel();
        connect(model, &QAbstractItemModel::modelAboutToBeReset, this, [note] { note("before"); });
        connect(model, &QAbstractItemModel::modelReset, this, [note] { note("reset"); });
        connect(model, &OLM_DZrtToolChannel::changed, this, [note] { note("changed"); });
        backend.resetBackend();
        note("after");
        QCOMPARE(steps, (QStringList{"before: no record, 1 channels, 1 edits"_s,
                                     "reset: no record, 0 channels, 1 edits"_s,
                                     "changed: no record, 0 channels, 1 edits"_s,
                                     "after: no record, 0 channels, 0 edits"_s}));
    }

    void modelOutlivesScripts()
    {
        PToolVeskZrt const plugin; // registers the types
        QQmlEngine engine;
        QQmlComponent component(&engine);
        component.setData("import QtQml 2.15\n"
                          "import PlgLibToolZrt 1.0\n"
                          "QtObject {\n"
                          "    property BeMaintenanceToolZrt be: BeMaintenanceToolZrt {}\n"
                          "    function idAt(i) {\n"
                          "        var model = be.statusChannelsModel\n"
                          "        return model.length > i ? model.item(i).id : 'none'\n"
                          "    }\n"
                          "}\n",
                          QUrl());
        std::unique_ptr<QObject> const page(component.create());
        QVERIFY2(page, qPrintable(component.errorString()));
        auto const ask = [&page](int i) {
            QVariant answer;
            QMetaObject::invokeMethod(page.get(), "idAt", Q_RETURN_ARG(QVariant, answer), Q_ARG(QVariant, i));
            return answer.toString();
        };
        auto* const backend = page->property("be").value<BeMaintenanceToolZrt*>();
        QVERIFY(backend);
        QPointer<OLM_DZrtToolChannel> const model = backend->statusChannelsModel();
        QCOMPARE(ask(0), "none"_s);
        for (int i = 0; i < 3; ++i) {
            fill(*backend, "a"_s);
            QCOMPARE(ask(i), "a"_s);
            for (int k = 0; k < 3; ++k) {
                engine.collectGarbage();
                QCoreApplication::processEvents();
                QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            }
            QVERIFY(!model.isNull());
            QCOMPARE(model->count(), i + 1);
            QCOMPARE(backend->getChannelAt(i)->id(), "a"_s);
        }
    }
};

QTEST_GUILESS_MAIN(TestMaintenanceBackend)
#include "tst_maintenance_backend.moc"
