#include "controller_bench.h"
#include "scratch_folder.h"

#include <QtTest>

#include <functional>

namespace
{

constexpr int c_reply = 5;
constexpr int c_preset = 50;

QString torquesOf(ZrtState const& state)
{
    QStringList list;
    for (auto it = state.presets.cbegin(); it != state.presets.cend(); ++it)
        list += "%1: %2"_s.arg(it.key()).arg(it->torque);
    return list.join(", "_s);
}

/// A message about a preset that was written.
QString written(int time, int preset, int done, int total)
{
    return "%1 #1 {statusData: {done: int %2, preset: int %3, progress: int %4, state: QString %5, total: int %6}}"_s
        .arg(time)
        .arg(done)
        .arg(preset)
        .arg(100 * done / total)
        .arg(done == total ? "done"_s : "running"_s)
        .arg(total);
}

QString failed(int time, QString const& why)
{
    return "%1 #1 {statusData: {error: QString %2, state: QString failed}}"_s.arg(time).arg(why);
}

ZrtSetup setupWith(QList<ZrtFault> const& faults)
{
    ZrtSetup setup;
    setup.faults = faults;
    return setup;
}

} // namespace

Q_DECLARE_METATYPE(ZrtFault)

/// What comes back from a controller and when: replies, events and the progress of a restore; and what goes
/// wrong on the way.
class TestZrtEndpoint : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_backup = m_folder.write("backup.json"_s, R"({
            "presets": {"1": {"torque": 101}, "2": {"torque": 102}, "3": {"torque": 103}, "15": {"torque": 115}},
            "parameters": {"language": 2, "timeout": 30}})");
    }

    // An instruction takes effect at once, and its reply tells what was the case then.
    void replyTime()
    {
        for (int const time : {0, 1, 600'000}) {
            ZrtSetup setup;
            setup.times.reply = time;
            ControllerBench bench(setup);
            bench.setLock(1, ZrtState::AllLocked);
            QCOMPARE(bench.controller->state().lock, int(ZrtState::AllLocked));
            bench.setLock(2, ZrtState::Free);
            bench.post(3, "wrong");
            QCOMPARE(bench.replies, QStringList());
            QString const lock =
                "%1 #%2 {fasteningLocked: bool %4, lockStatus: int %3, looseningLocked: bool %4}"_s;
            QCOMPARE(bench.allReplies(),
                     QStringList({lock.arg(time).arg(1).arg(1).arg("true"_s),
                                  lock.arg(time).arg(2).arg(0).arg("false"_s),
                                  "%1 #3 {error: QString unknown instruction \"wrong\"}"_s.arg(time)}));
        }
    }

    void eventTime()
    {
        ControllerBench bench;
        bench.post(1, "listenEventsData");
        QCOMPARE(bench.allReplies(), QStringList()); // listening is not answered by itself
        int const duration = bench.controller->pullTrigger().value_or(-1);
        auto const events = bench.allReplies();
        QCOMPARE(events.size(), 1);
        QVERIFY(events[0].startsWith("%1 #1 {values: {angle: "_s.arg(duration + c_reply)));
        QVERIFY(events[0].contains("time: int %1,"_s.arg(duration)));
    }

    void listeners()
    {
        ControllerBench bench;
        auto& controller = *bench.controller;
        auto const listenersOfAPull = [&](std::function<void()> const& meanwhile = [] {}) {
            bench.answered.clear();
            controller.pullTrigger();
            meanwhile();
            bench.allReplies();
            return bench.answered;
        };
        QCOMPARE(listenersOfAPull(), QList<quint64>());
        bench.post(1, "listenEventsData");
        bench.post(2, "listenEventsData");
        QCOMPARE(listenersOfAPull(), QList<quint64>({1, 2}));
        auto const replaceFirst = [&] {
            controller.withdraw(1);
            bench.post(3, "listenEventsData");
        };
        QCOMPARE(listenersOfAPull(replaceFirst), QList<quint64>({2, 3}));
        auto const withdrawLate = [&] {
            bench.clock.step();
            controller.withdraw(2);
        };
        QCOMPARE(listenersOfAPull(withdrawLate), QList<quint64>({2, 3})); // the event was on its way
        bench.setLock(4, ZrtState::Free);
        controller.setConnected(false);
        QCOMPARE(listenersOfAPull(), QList<quint64>()); // and the reply that was on its way is lost
        controller.setConnected(true);
        QCOMPARE(listenersOfAPull(), QList<quint64>{3});
        QCOMPARE(controller.state().eventCount, 6); // unheard ones count too
        QVERIFY(bench.setLock(4, ZrtState::AllLocked));
        bench.allReplies();
        QCOMPARE(listenersOfAPull(), QList<quint64>());
    }

    void faults_data()
    {
        QTest::addColumn<QList<ZrtFault>>("faults");
        QTest::addColumn<QStringList>("replies");
        QTest::addColumn<QString>("state");
        char const* const name = "setLock";
        QString const reply =
            " #1 {fasteningLocked: bool true, lockStatus: int 1, looseningLocked: bool true}"_s;
        QString const refused = " #1 {error: QString refused}"_s;
        auto const row = [](char const* rule, QList<ZrtFault> const& faults, QStringList const& replies,
                            char const* state = "locked") {
            QTest::newRow(rule) << faults << replies << QString::fromLatin1(state);
        };
        row("the fault of another instruction does not apply", {fault(ZrtFault::Loss, "getInfo")},
            {"5"_s + reply});
        row("delays add up", {fault(ZrtFault::Delay, name, 1, 100), fault(ZrtFault::Late, name, 1, 5000)},
            {"5105"_s + reply});
        row("a lost reply was carried out", {fault(ZrtFault::Loss, name)}, {});
        row("both of a duplicate are late",
            {fault(ZrtFault::Duplicate, name), fault(ZrtFault::Delay, name, 1, 100)},
            {"105"_s + reply, "105"_s + reply});
        row("a duplicate is lost as a whole", {fault(ZrtFault::Duplicate, name), fault(ZrtFault::Loss, name)},
            {});
        row("keys miss or have another type",
            {fault(ZrtFault::WrongType, name, 1, 0, "lockStatus"),
             fault(ZrtFault::MissingKey, name, 1, 0, "fasteningLocked"),
             fault(ZrtFault::MissingKey, name, 1, 0, "looseningLocked")},
            {"5 #1 {lockStatus: QString ???}"_s});
        row("a key that is not there stays away",
            {fault(ZrtFault::MissingKey, name, 1, 0, "doneOk"),
             fault(ZrtFault::WrongType, name, 1, 0, "doneOk")},
            {"5"_s + reply});
        row("what is refused is not carried out",
            {fault(ZrtFault::Refused, name), fault(ZrtFault::Late, name, 1, 5000)}, {"5005"_s + refused},
            "free");
        row("a refusal can be lost", {fault(ZrtFault::Refused, name), fault(ZrtFault::Loss, name)}, {},
            "free");
        row("the controller is gone before it refuses",
            {fault(ZrtFault::Refused, name), fault(ZrtFault::Disconnected, name)}, {}, "free, gone");
    }

    void faults()
    {
        QFETCH(QList<ZrtFault>, faults);
        QFETCH(QStringList, replies);
        QFETCH(QString, state);
        ControllerBench bench(setupWith(faults));
        bench.setLock(1, ZrtState::AllLocked);
        QCOMPARE(bench.allReplies(), replies);
        QCOMPARE((bench.controller->state().lock == ZrtState::Free ? "free"_s : "locked"_s)
                     + (bench.controller->isConnected() ? ""_s : ", gone"_s),
                 state);
    }

    // The faults of an instruction that listens or restores apply to all replies to it.
    void faultsOfManyReplies()
    {
        struct Case
        {
            char const* instruction;
            char const* key;
            int pulls;
        };
        for (auto const& [name, key, pulls] :
             {Case{"listenEventsData", "values", 2}, Case{"restoreBackup", "statusData", 0}}) {
            ControllerBench bench(
                setupWith({fault(ZrtFault::WrongType, name, 1, 0, key), fault(ZrtFault::Duplicate, name)}));
            bench.post(1, name, restoreArguments(m_backup, 1, 2));
            for (int i = 0; i < pulls; ++i) {
                bench.controller->pullTrigger();
                bench.allReplies();
            }
            QCOMPARE(bench.allReplies().size(), 4);
            QCOMPARE(bench.replies.filter(" #1 {%1: QString ???}"_s.arg(QLatin1String(key))).size(), 4);
        }
    }

    void refusedOrDisconnected()
    {
        for (char const* const name : {"listenEventsData", "restoreBackup"}) {
            for (auto const kind : {ZrtFault::Refused, ZrtFault::Disconnected}) {
                ControllerBench bench(setupWith({fault(kind, name)}));
                bench.post(1, name, restoreArguments(m_backup, 1, 2));
                QStringList const refusal{"5 #1 {error: QString refused}"_s};
                QCOMPARE(bench.allReplies(), kind == ZrtFault::Refused ? refusal : QStringList());
                bench.replies.clear();
                bench.controller->setConnected(true);
                bench.controller->pullTrigger();
                QCOMPARE(bench.allReplies(), QStringList());
                QCOMPARE(torquesOf(bench.controller->state()), "1: 200, 15: 200"_s);
            }
        }
    }

    void restoreRange_data()
    {
        QTest::addColumn<QVariant>("first");
        QTest::addColumn<QVariant>("last");
        QTest::addColumn<QStringList>("replies");
        QTest::addColumn<QString>("torques");
        auto const row = [](char const* rule, QVariant const& first, QVariant const& last,
                            QStringList const& replies, char const* torques = "1: 200, 15: 200") {
            QTest::newRow(rule) << first << last << replies << QString::fromLatin1(torques);
        };
        QStringList const all{written(55, 1, 1, 4), written(105, 2, 2, 4), written(155, 3, 3, 4),
                              written(205, 15, 4, 4)};
        row("0 to 0 is all", 0, 0U, all, "1: 101, 2: 102, 3: 103, 15: 115");
        row("both ends belong to it", 1, 3,
            {written(55, 1, 1, 3), written(105, 2, 2, 3), written(155, 3, 3, 3)},
            "1: 101, 2: 102, 3: 103, 15: 200");
        row("from 0", 0, 1, {written(55, 1, 1, 1)}, "1: 101, 15: 200");
        row("what the backup lacks stays", 2, 14, {written(55, 2, 1, 2), written(105, 3, 2, 2)},
            "1: 200, 2: 102, 3: 103, 15: 200");
        row("none of them", 4, 14, {failed(5, "the backup holds no preset from 4 to 14"_s)});
        row("the wrong way round", 3, 0, {failed(5, "the backup holds no preset from 3 to 0"_s)});
        QStringList const noNumbers{failed(5, "\"startPreset\" and \"endPreset\" must be whole numbers"_s)};
        row("a first preset that is no number is not 0", "0"_s, 0, noNumbers);
        row("a last preset that is no number is not 0", 0, QVariant(), noNumbers);
    }

    void restoreRange()
    {
        QFETCH(QVariant, first);
        QFETCH(QVariant, last);
        QFETCH(QStringList, replies);
        QFETCH(QString, torques);
        ControllerBench bench;
        bench.post(1, "restoreBackup", restoreArguments(m_backup, first, last));
        QCOMPARE(bench.allReplies(), replies);
        QCOMPARE(torquesOf(bench.controller->state()), torques);
    }

    void restoreParameters()
    {
        for (bool const withParameters : {false, true}) {
            ZrtSetup setup;
            setup.state.parameters = {{"language"_s, 1}, {"volume"_s, 9}};
            ControllerBench bench(setup);
            bench.post(1, "restoreBackup", restoreArguments(m_backup, 2, 2, withParameters));
            QCOMPARE(bench.allReplies(), QStringList{written(55, 2, 1, 1)});
            setup.state.presets[2].torque = 102;
            if (withParameters)
                setup.state.parameters = {{"language"_s, 2}, {"timeout"_s, 30}};
            QCOMPARE(shown(bench.controller->state()), shown(setup.state));
        }
    }

    // Nothing is touched before the whole file has been found right, and it is read then.
    void restoreReadsTheFileFirst()
    {
        QString const bad =
            m_folder.write("bad.json"_s, R"({"presets": {"1": {}}, "parameters": {"a": null}})");
        ControllerBench refusing;
        refusing.post(1, "restoreBackup", restoreArguments(bad, 1, 1));
        QString const why = ":1: parameters.a: must be a whole number from -2147483648 to 2147483647"_s;
        QCOMPARE(refusing.allReplies(), QStringList{failed(5, bad + why)});
        QCOMPARE(shown(refusing.controller->state()), shown(ZrtState()));

        ControllerBench bench;
        bench.post(1, "restoreBackup", restoreArguments(m_backup, 1, 3));
        m_folder.write("backup.json"_s, "gone bad meanwhile");
        bench.clock.advance(3 * c_preset - 1);
        QCOMPARE(torquesOf(bench.controller->state()), "1: 200, 15: 200"_s);
        bench.clock.advance(1); // with the last preset
        QCOMPARE(torquesOf(bench.controller->state()), "1: 101, 2: 102, 3: 103, 15: 200"_s);
    }

    void unwritablePreset()
    {
        ZrtSetup setup;
        setup.state.unwritablePresets = {15, 3};
        ControllerBench bench(setup);
        bench.post(1, "restoreBackup", restoreArguments(m_backup, 0, 0, true));
        QCOMPARE(bench.allReplies(),
                 QStringList({written(55, 1, 1, 4), written(105, 2, 2, 4),
                              failed(155, "preset 3 cannot be written; nothing was restored"_s)}));
        QCOMPARE(shown(bench.controller->state()), shown(setup.state));

        // It does not matter unless it is in the range; and the id is free again.
        bench.post(1, "restoreBackup", restoreArguments(m_backup, 1, 2));
        bench.allReplies();
        QCOMPARE(torquesOf(bench.controller->state()), "1: 101, 2: 102, 15: 200"_s);
    }

    // One that is withdrawn or whose controller is gone changes nothing, and does not go on.
    void restoreEnds()
    {
        struct Case
        {
            int time;
            int repliesIfWithdrawn;
            int repliesIfDisconnected;
        };
        for (auto const& [time, ifWithdrawn, ifDisconnected] :
             {Case{0, 0, 0}, Case{49, 0, 0}, Case{103, 2, 1}, Case{120, 2, 2}, Case{199, 3, 3}}) {
            for (bool const isWithdrawn : {true, false}) {
                ControllerBench bench;
                bench.post(1, "restoreBackup", restoreArguments(m_backup, 0, 0, true));
                bench.clock.advance(time);
                if (isWithdrawn)
                    bench.controller->withdraw(1);
                else
                    bench.controller->setConnected(false);
                bench.clock.advance(c_preset);
                bench.controller->setConnected(true);
                QCOMPARE(bench.allReplies().size(), isWithdrawn ? ifWithdrawn : ifDisconnected);
                QCOMPARE(shown(bench.controller->state()), shown(ZrtState()));
                QVERIFY(bench.setLock(1, 0)); // the id is free
            }
        }
    }

private:
    ScratchFolder m_folder;
    QString m_backup;
};

QTEST_GUILESS_MAIN(TestZrtEndpoint)
#include "tst_zrt_endpoint.moc"
