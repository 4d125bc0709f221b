#include "literals.h"
#include "logged_error.h"
#include "message_capture.h"
#include "meta_entries.h"
#include "signal_log.h"
#include "variants.h"

#include <be_maintenance_plugin.h>

#include <plugin_management/d_element.h>

#include <QPointer>
#include <QtTest>

#include <functional>
#include <limits>
#include <memory>
#include <type_traits>

namespace
{

using Action = std::function<void(BeMaintenanceToolZrt&)>;

constexpr int c_most = std::numeric_limits<int>::max();
constexpr int c_least = std::numeric_limits<int>::min();

QSharedPointer<DElement> makeRecord()
{
    auto record = QSharedPointer<DElement>::create();
    record->setSerialNumber("SN-1"_s);
    record->setValidityDate("2026-12-31"_s);
    record->setStbExpiredDelay(30);
    return record;
}

// With the type, and whether a text is null.
QString shown(QVariant const& value)
{
    if (value.userType() == QMetaType::QString)
        return value.toString().isNull() ? "null"_s : "'%1'"_s.arg(value.toString());
    return "%1(%2)"_s.arg(QLatin1String(value.typeName()), value.toString());
}

QString shown(DElement const& record)
{
    return "%1 %2 %3"_s.arg(shown(record.serialNumber()), shown(record.validityDate()),
                            shown(record.stbExpiredDelay()));
}

// What becomes of "cmd_success" in the reply to a click.
QVariantMap success(QVariant const& value)
{
    return {{"cmd_success"_s, value}};
}

QString asksToRead(int index, char const* command, char const* id)
{
    return R"(sigTreatmentQueued[%1,"%2",{"channel":"%3"}])"_s.arg(index).arg(QLatin1String(command),
                                                                              QLatin1String(id));
}

// A channel shows no value of its own, hence it is always switched on.
QString asksToSwitch(int index, char const* id)
{
    return R"(sigTreatmentQueued[%1,"",{"channel":"%2","value":true}])"_s.arg(index).arg(QLatin1String(id));
}

QString noChannel(int line, char const* function, int index)
{
    return "be_maintenance_plugin.cpp:%1 BeMaintenanceToolZrt::%2: channel is null at index %3"_s.arg(
        QString::number(line), QLatin1String(function), QString::number(index));
}

/// A backend that shows what its base keeps to itself.
class OpenBackend : public BeMaintenanceToolZrt
{
public:
    using BeMaintenanceToolZrt::BeMaintenanceToolZrt;
    using BeMaintenanceToolZrt::m_element;
    using QObject::isSignalConnected;
};

/// A backend with channels, and everything that it tells.
class Bench
{
public:
    /// Channels by their ids: "a b"; "-" is a null pointer. Each is read by the command "read" and its id.
    explicit Bench(char const* ids = "")
    {
        auto const list = QString::fromLatin1(ids).split(QLatin1Char(' '), Qt::SkipEmptyParts);
        for (auto const& id : list) {
            QSharedPointer<DZrtToolChannel> channel;
            if (id != "-"_s) {
                channel = DZrtToolChannel::create({{"id"_s, id}});
                channel->setReadCommand("read "_s + id);
            }
            backend.statusChannelsModel()->append(channel);
        }
    }

    /// The signals and the lines of the log since the last call.
    QStringList take()
    {
        QStringList told = m_signals.take();
        auto const error = LoggedError::only(m_messages);
        if (m_messages.lines.size() == 1)
            told += "%1:%2 %3"_s.arg(error.file).arg(error.line).arg(error.message);
        else if (!m_messages.lines.isEmpty())
            told += "%1 messages"_s.arg(m_messages.lines.size());
        m_messages.lines.clear();
        return told;
    }
    QString edits() const
    {
        QStringList entries;
        auto const map = backend.getModifiedParameters();
        for (auto edit = map.cbegin(); edit != map.cend(); ++edit)
            entries += edit.key() + " = "_s + shown(edit.value());
        return entries.join(", "_s);
    }
    /// One turn of the event loop: what is posted meanwhile waits for the next.
    static void turn() { QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall); }

    OpenBackend backend;

private:
    SignalLog m_signals{backend};
    MessageCapture m_messages;
};

QStringList const c_silence;
QStringList const c_changed{"channelsModelChanged"_s};

} // namespace

Q_DECLARE_METATYPE(Action)

/// What stands behind the maintenance page.
class TestMaintenanceBackend : public QObject
{
    Q_OBJECT

private slots:
    void metaObject()
    {
        // Without initBackend(): the host's own connection finds it by address.
        QCOMPARE(describe(BeMaintenanceToolZrt::staticMetaObject),
                 (QStringList{
                     "class BeMaintenanceToolZrt : DAbstractPluginBackend"_s,
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
        QVERIFY(backend.m_element.isNull());
        QCOMPARE(backend.getModifiedParameters(), QVariantMap());
        QVERIFY(!backend.hasPendingTreatments());
        QVERIFY(backend.isSignalConnected(
            QMetaMethod::fromSignal(&DAbstractPluginBackend::abstractBackendInitialized)));
    }

    void belongsToParent()
    {
        auto parent = std::make_unique<QObject>();
        QPointer<BeMaintenanceToolZrt> const backend = new BeMaintenanceToolZrt(parent.get());
        QPointer<OLM_DZrtToolChannel> const model = backend->statusChannelsModel();
        QCOMPARE(backend->property("statusChannelsModel").value<OLM_DZrtToolChannel*>(), model.data());
        // The model goes with the backend, and with it the channels.
        model->append(DZrtToolChannel::create({}));
        auto const channel = backend->getChannelAt(0).toWeakRef();
        parent.reset();
        QVERIFY(backend.isNull());
        QVERIFY(model.isNull());
        QVERIFY(channel.isNull());
    }

    void recordIsAttachedInSilence()
    {
        Bench bench("a");
        bench.backend.setConnected(true);
        bench.take();
        auto const record = makeRecord();
        bench.backend.setElement(record);
        Bench::turn();
        QCOMPARE(bench.take(), QStringList{"abstractBackendInitialized"_s});
        QCOMPARE(shown(*record), shown(*makeRecord()));
        QCOMPARE(bench.edits(), QString());
        QVERIFY(!bench.backend.hasPendingTreatments());
        QCOMPARE(bench.backend.statusChannelsModel()->count(), 1);
    }

    void eachReadIsTold_data()
    {
        QTest::addColumn<QByteArray>("property");
        QTest::addColumn<QVariant>("ofRecord");
        QTest::addColumn<QVariant>("withoutRecord");

        QTest::newRow("serial number")
            << QByteArray("serialNumber") << QVariant("SN-1"_s) << QVariant(QString());
        QTest::newRow("validity") << QByteArray("validity") << QVariant("2026-12-31"_s)
                                  << QVariant(QString());
        QTest::newRow("days") << QByteArray("daysBeforeExpiration") << QVariant(30) << QVariant(0);
    }

    void eachReadIsTold()
    {
        QFETCH(QByteArray, property);
        QFETCH(QVariant, ofRecord);
        QFETCH(QVariant, withoutRecord);
        Bench bench;
        for (auto const& value : {withoutRecord, ofRecord}) {
            for (int i = 0; i < 2; ++i) {
                QCOMPARE(shown(bench.backend.property(property)), shown(value));
                QCOMPARE(bench.take(), c_changed);
            }
            // What is not the record's is read in silence.
            QVERIFY(bench.backend.property("statusChannelsModel").isValid());
            QCOMPARE(bench.edits(), QString());
            QCOMPARE(bench.take(), c_silence);
            bench.backend.setElement(makeRecord());
            bench.take();
        }
    }

    void editNeedsRecord_data()
    {
        QTest::addColumn<Action>("lose");

        auto const row = [](char const* name, Action const& lose) { QTest::newRow(name) << lose; };
        row("never had one", [](BeMaintenanceToolZrt&) {});
        row("had null", [](BeMaintenanceToolZrt& backend) { backend.setElement({}); });
        row("was reset", [](BeMaintenanceToolZrt& backend) {
            backend.setElement(makeRecord());
            backend.resetBackend();
        });
    }

    void editNeedsRecord()
    {
        QFETCH(Action, lose);
        Bench bench;
        auto& backend = bench.backend;
        lose(backend);
        bench.take();
        auto const error = [](int line) {
            return QStringList{
                "be_maintenance_plugin.cpp:%1 ERROR: Failure to get element pointer"_s.arg(line)};
        };
        backend.setSerialNumber("SN-2"_s);
        QCOMPARE(bench.take(), error(177));
        backend.setDaysBeforeExpiration(7);
        QCOMPARE(bench.take(), error(188));
        backend.setValidityDate({}, true);
        QCOMPARE(bench.take(), error(207));
        QCOMPARE(bench.edits(), QString());
        // Nor is any of it made up for.
        backend.setElement(makeRecord());
        QCOMPARE(shown(*backend.m_element), shown(*makeRecord()));
    }

    void edit_data()
    {
        QTest::addColumn<Action>("edit");
        QTest::addColumn<QString>("record");
        QTest::addColumn<QString>("edits");

        QStringList const serialNumbers{
            "SN-0042"_s,
            "SN-1"_s, // as it was
            QString(),
            ""_s,
            "  \t "_s,
            QString(10'000, QLatin1Char('x')),
            "a\x01\x1b\r\n\x7f"_s + QChar(QChar::Null),
            "\U0001F529\U0001F468\u200D\U0001F527"_s,
            QString(QChar(0xD800)),
        };
        for (auto const& text : serialNumbers) {
            QTest::addRow("serial number %.20s", qPrintable(shown(text)))
                << Action([text](BeMaintenanceToolZrt& backend) { backend.setSerialNumber(text); })
                << shown(text) + " '2026-12-31' int(30)"_s
                << "serialNumber = "_s + shown(text);
        }

        for (int const days : {0, 30, 100'000, -1, c_most, c_least}) {
            QTest::addRow("%d days", days)
                << Action([days](BeMaintenanceToolZrt& backend) { backend.setDaysBeforeExpiration(days); })
                << "'SN-1' '2026-12-31' "_s + shown(days) << "alertBeforeExpiration = "_s + shown(days);
        }

        auto const validity = [](char const* name, QDate date, bool isPermanent, char const* text) {
            QTest::addRow("validity %s", name)
                << Action([=](BeMaintenanceToolZrt& backend) { backend.setValidityDate(date, isPermanent); })
                << "'SN-1' %1 int(30)"_s.arg(QLatin1String(text))
                << "validityDate = "_s + QLatin1String(text);
        };
        validity("usual", {2027, 3, 9}, false, "'2027-03-09'");
        validity("as it was", {2026, 12, 31}, false, "'2026-12-31'");
        validity("before 1970", {1969, 12, 31}, false, "'1969-12-31'");
        validity("in year 1", {1, 1, 1}, false, "'0001-01-01'");
        validity("on a leap day", {2028, 2, 29}, false, "'2028-02-29'");
        validity("in year 9999", {9999, 12, 31}, false, "'9999-12-31'");
        // Years that the form has no place for.
        validity("in year 10000", {10'000, 1, 1}, false, "null");
        validity("before year 1", {-1, 12, 31}, false, "null");
        validity("without a date", {}, false, "null");
        validity("of no leap day", {2027, 2, 29}, false, "null");
        validity("permanent", {2027, 3, 9}, true, "''");
        validity("permanent without a date", {}, true, "''");
    }

    void edit()
    {
        QFETCH(Action, edit);
        QFETCH(QString, record);
        QFETCH(QString, edits);
        Bench bench;
        auto& backend = bench.backend;
        backend.setElement(makeRecord());
        bench.take();
        // When it is told, everything is done.
        QString whenTold;
        auto const connection = connect(&backend, &BeMaintenanceToolZrt::channelsModelChanged, this, [&] {
            whenTold += shown(*backend.m_element) + ", "_s + bench.edits();
        });
        edit(backend);
        disconnect(connection);
        QCOMPARE(bench.take(), c_changed);
        QCOMPARE(whenTold, record + ", "_s + edits);
        QCOMPARE("%1 %2 %3"_s.arg(shown(backend.serialNumber()), shown(backend.validity()),
                                  shown(backend.daysBeforeExpiration())),
                 record);
    }

    void latestEditsCount()
    {
        Bench bench;
        auto const first = makeRecord();
        auto const second = makeRecord();
        bench.backend.setElement(first);
        bench.backend.setValidityDate(QDate(2027, 3, 9), false);
        bench.backend.setValidityDate(QDate(2027, 3, 9), true);
        bench.backend.setSerialNumber("SN-2"_s);
        bench.backend.setSerialNumber("SN-1"_s);
        // Back where it was, it was edited all the same; nor do edits go with their record.
        bench.backend.setElement(second);
        bench.backend.setDaysBeforeExpiration(2);
        QCOMPARE(bench.edits(), "alertBeforeExpiration = int(2), serialNumber = 'SN-1', validityDate = ''"_s);
        QCOMPARE(shown(*first), "'SN-1' '' int(30)"_s);
        QCOMPARE(shown(*second), "'SN-1' '2026-12-31' int(2)"_s);
    }

    void updateAsksForAll()
    {
        Bench bench("a b c d");
        auto& backend = bench.backend;
        backend.getChannelAt(1)->setReadCommand("read a"_s);
        backend.getChannelAt(2)->setReadCommand(QString());
        backend.setConnected(true);
        bench.take();
        QStringList const all = {
            asksToRead(0, "read a", "a"),
            asksToRead(1, "read a", "b"),
            asksToRead(2, "", "c"),
            asksToRead(3, "read d", "d"),
        };
        backend.updateChannelsValue();
        QCOMPARE(bench.take(), all);

        // Again only when the last is over.
        for (int i = 0; i < 4; ++i) {
            backend.updateChannelsValue();
            QCOMPARE(bench.take(), c_silence);
            backend.treatmentReleased(i, backend.getChannelAt(i)->readCommand(), true);
        }
        backend.updateChannelsValue();
        QCOMPARE(bench.take(), all);
    }

    void updateSkipsNull()
    {
        Bench bench("a - c");
        bench.backend.setConnected(true);
        bench.take();
        bench.backend.updateChannelsValue();
        QCOMPARE(bench.take(), (QStringList{asksToRead(0, "read a", "a"), asksToRead(2, "read c", "c"),
                                            noChannel(61, "updateChannelsValue", 1)}));
    }

    void updateWaits_data()
    {
        QTest::addColumn<QByteArray>("channels");
        QTest::addColumn<Action>("before");

        auto const row = [](char const* name, char const* channels, Action const& before) {
            QTest::newRow(name) << QByteArray(channels) << before;
        };
        using Backend = BeMaintenanceToolZrt;
        row("without channels", "", [](Backend& backend) { backend.setConnected(true); });
        row("without a connection", "a b", [](Backend&) {});
        // Nothing is looked at either.
        row("while a switch is pending", "- b", [](Backend& backend) {
            backend.setConnected(true);
            backend.clickedOnChannel(1);
        });
        row("while something else is pending", "a b", [](Backend& backend) {
            backend.setConnected(true);
            backend.queueTreatment(99, "calibrate"_s, {});
        });
    }

    void updateWaits()
    {
        QFETCH(QByteArray, channels);
        QFETCH(Action, before);
        Bench bench(channels);
        before(bench.backend);
        bench.take();
        bench.backend.updateChannelsValue();
        QCOMPARE(bench.take(), c_silence);
        // Nor is it tried again of its own accord.
        bench.backend.setConnected(true);
        bench.take();
        Bench::turn();
        QCOMPARE(bench.take(), c_silence);
    }

    void clickAsks()
    {
        Bench bench("a b");
        auto& backend = bench.backend;
        backend.setConnected(true);
        bench.take();
        backend.clickedOnChannel(1);
        backend.clickedOnChannel(0);
        Bench::turn();
        QCOMPARE(bench.take(), (QStringList{asksToSwitch(1, "b"), asksToSwitch(0, "a")}));
        backend.applyTreatmentReply(1, QString(), success(true));
        backend.treatmentReleased(1, QString(), true);
        backend.clickedOnChannel(1);
        QCOMPARE(bench.take(), QStringList{asksToSwitch(1, "b")});
    }

    void clickIsRetried_data()
    {
        QTest::addColumn<Action>("refuse");
        QTest::addColumn<Action>("allow");

        QTest::newRow("without a connection")
            << Action([](BeMaintenanceToolZrt&) {})
            << Action([](BeMaintenanceToolZrt& backend) { backend.setConnected(true); });
        QTest::newRow("while the same is pending") << Action([](BeMaintenanceToolZrt& backend) {
            backend.setConnected(true);
            backend.queueTreatment(1, QString(), {});
        }) << Action([](BeMaintenanceToolZrt& backend) { backend.treatmentReleased(1, QString(), false); });
    }

    void clickIsRetried()
    {
        QFETCH(Action, refuse);
        QFETCH(Action, allow);
        Bench bench("a b");
        refuse(bench.backend);
        bench.take();
        bench.backend.clickedOnChannel(1);
        // Once in each turn of the event loop, never within itself.
        for (int turns = 0; turns < 10; ++turns) {
            QCOMPARE(bench.take(), QStringList{"delayingClickedOnChannel[1]"_s});
            Bench::turn();
        }
        bench.take();
        allow(bench.backend);
        Bench::turn();
        QCOMPARE(bench.take().filter("["_s), QStringList{asksToSwitch(1, "b")});
        Bench::turn();
        QCOMPARE(bench.take(), c_silence);
    }

    void clicksAreRetriedEach()
    {
        Bench bench("a b c");
        bench.backend.clickedOnChannel(1);
        bench.backend.clickedOnChannel(0);
        bench.backend.clickedOnChannel(2);
        bench.backend.statusChannelsModel()->removeAt(2);
        bench.backend.setConnected(true);
        bench.take();
        Bench::turn();
        QCOMPARE(bench.take(), (QStringList{asksToSwitch(1, "b"), asksToSwitch(0, "a"),
                                            noChannel(76, "clickedOnChannel", 2)}));
        Bench::turn();
        QCOMPARE(bench.take(), c_silence);
    }

    void noSuchChannel()
    {
        Bench bench("a -");
        bench.backend.setConnected(true);
        bench.take();
        for (int const index : {-1, 1, 2, c_least, c_most}) {
            bench.backend.clickedOnChannel(index);
            Bench::turn();
            QCOMPARE(bench.take(), QStringList{noChannel(76, "clickedOnChannel", index)});
            QCOMPARE(bench.backend.applyTreatmentReply(index, QString(), success(true)), false);
            QCOMPARE(bench.take(), QStringList{noChannel(114, "applyTreatmentReply", index)});
        }
    }

    void replyToClick()
    {
        Bench bench("a b");
        QVector<QVariantMap> replies{{}, {{"CMD_SUCCESS"_s, false}}};
        auto const values = everyKindOfValue();
        for (auto const& [kind, value] : values)
            replies += success(value);
        // Whether it was asked for or not, and whatever it says.
        DAbstractPluginBackend& base = bench.backend;
        for (auto const& reply : qAsConst(replies)) {
            QCOMPARE(base.applyTreatmentReply(1, QString(), reply), true);
            QCOMPARE(base.applyTreatmentReply(1, ""_s, reply), true);
            QVERIFY(!bench.backend.getChannelAt(1)->value().isValid());
        }
        QCOMPARE(bench.take(), c_silence);
    }

    void otherReplyGoesToBase()
    {
        Bench bench("a");
        auto& backend = bench.backend;
        backend.setConnected(true);
        backend.queueTreatment(0, "read a"_s, {});
        backend.queueTreatment(7, "calibrate"_s, {});
        bench.take();
        // The base takes what is pending, with a channel or without.
        QCOMPARE(backend.applyTreatmentReply(0, "read a"_s, success(true)), true);
        QCOMPARE(backend.applyTreatmentReply(7, "calibrate"_s, success(true)), true);
        QCOMPARE(backend.applyTreatmentReply(0, "read b"_s, success(true)), false);
        QCOMPARE(backend.applyTreatmentReply(1, "read a"_s, success(true)), false);
        QCOMPARE(backend.applyTreatmentReply(0, " "_s, success(true)), false);
        QCOMPARE(bench.take(), c_silence);
    }

    void resetNeedsRecord()
    {
        Bench bench("a b");
        bench.backend.setElement(makeRecord());
        bench.backend.setDaysBeforeExpiration(7);
        bench.backend.setElement({});
        bench.take();
        bench.backend.resetBackend();
        QCOMPARE(bench.edits(), "alertBeforeExpiration = int(7)"_s);
        QCOMPARE(bench.backend.statusChannelsModel()->count(), 2);
        QVERIFY(!bench.backend.statusChannelsModel()->byKey("b"_s).isNull());
        QCOMPARE(bench.take(), c_silence);
    }

    void resetLetsGo()
    {
        Bench bench("a");
        auto& backend = bench.backend;
        auto* const model = backend.statusChannelsModel();
        auto record = makeRecord();
        backend.setElement(record);
        backend.setDaysBeforeExpiration(7);
        backend.setConnected(true);
        backend.updateChannelsValue();
        auto const channel = backend.getChannelAt(0).toWeakRef();
        bench.take();
        QStringList steps;
        auto const note = [&](char const* step) {
            steps += "%1: %2 record, %3 channels, edits %4"_s.arg(
                QLatin1String(step), backend.m_element ? "a"_s : "no"_s, QString::number(model->count()),
                bench.edits());
        };
        connect(model, &QAbstractItemModel::modelAboutToBeReset, this, [note] { note("before"); });
        connect(model, &QAbstractItemModel::modelReset, this, [note] { note("reset"); });
        connect(model, &OLM_DZrtToolChannel::changed, this, [note] { note("changed"); });

        backend.resetBackend();
        note("after");
        QStringList const expected{
            "before: no record, 1 channels, edits alertBeforeExpiration = int(7)"_s,
            "reset: no record, 0 channels, edits alertBeforeExpiration = int(7)"_s,
            "changed: no record, 0 channels, edits alertBeforeExpiration = int(7)"_s,
            "after: no record, 0 channels, edits "_s,
        };
        QCOMPARE(steps, expected);
        QCOMPARE(bench.take(), c_silence);
        QVERIFY(channel.isNull());
        QVERIFY(model->byKey("a"_s).isNull());
        // The record is as it was, and the device still at work.
        QCOMPARE(shown(*record), "'SN-1' '2026-12-31' int(7)"_s);
        QVERIFY(backend.hasPendingTreatments());
        QVERIFY(backend.isConnected());

        // Without a record there is nothing more to let go of.
        backend.resetBackend();
        QCOMPARE(steps, expected);
    }
};

QTEST_GUILESS_MAIN(TestMaintenanceBackend)
#include "tst_maintenance_backend.moc"
