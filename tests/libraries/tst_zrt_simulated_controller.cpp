#include "complaint.h"
#include "literals.h"
#include "scratch_folder.h"

#include <zrt_controller/zrt_simulated_controller.h>

#include <QThread>
#include <QtTest>

#include <functional>
#include <limits>
#include <memory>
#include <thread>

namespace
{

using Change = std::function<void(ZrtSetup&)>;

constexpr int c_reply = 5;

QString const lock = "setLock"_s;
QString const listen = "listenEventsData"_s;
QString const restore = "restoreBackup"_s;

ZrtFault fault(ZrtFault::Kind kind, QString const& instruction = lock, int nth = 1)
{
    ZrtFault fault;
    fault.kind = kind;
    fault.instruction = instruction;
    fault.nth = nth;
    return fault;
}

/// A controller, and the instructions whose replies have arrived, by their ids.
struct Bench
{
    explicit Bench(ZrtSetup const& setup = {}) : controller(ZrtSimulatedController::create(setup, clock))
    {
        if (!controller)
            qFatal("the set-up is not valid");
    }

    bool post(quint64 id, QString const& instruction, QVariantMap const& arguments = {})
    {
        return controller->post(id, instruction, arguments,
                                [this, id](QVariantMap const& /*reply*/) { arrived += id; });
    }
    bool setLock(quint64 id, int code) { return post(id, lock, {{"lock"_s, code}}); }
    bool restoreAll(quint64 id, QString const& file)
    {
        return post(id, restore, {{"filePath"_s, file}, {"startPreset"_s, 0}, {"endPreset"_s, 0}});
    }

    ZrtClock clock;
    std::unique_ptr<ZrtSimulatedController> controller;
    QList<quint64> arrived;
};

} // namespace

Q_DECLARE_METATYPE(Change)
Q_DECLARE_METATYPE(ZrtFault)

/// The simulated controller as a host meets it: through its front door alone.
class TestZrtSimulatedController : public QObject
{
    Q_OBJECT

private slots:
    void makes()
    {
        ZrtSetup setup;
        setup.state.model = "M"_s;
        setup.isConnected = false;
        setup.faults = {fault(ZrtFault::Loss), fault(ZrtFault::Refused, listen)};
        QString problem = "left from before"_s;
        auto const controller = ZrtSimulatedController::create(setup, ZrtClock(), &problem);
        QVERIFY(controller);
        QCOMPARE(problem, QString());
        QCOMPARE(controller->state().model, "M"_s);
        QVERIFY(!controller->isConnected());
        QCOMPARE(controller->faults().keys(), QList<int>({1, 2}));
        QCOMPARE(controller->faults()[2].instruction, listen);
        QCOMPARE(ZrtSimulatedController::instructions().join(QLatin1Char(' ')),
                 "SetTriggerProgram getInfo getPresetData getRegister listenEventsData restoreBackup "
                 "setLock setLockScreen setProgram"_s);
    }

    void doesNotMake_data()
    {
        QTest::addColumn<Change>("change");
        QTest::addColumn<QString>("problem");
        auto const row = [](char const* problem, Change const& change) {
            QTest::newRow(problem) << change << QString::fromLatin1(problem);
        };
        row("lock: must be a whole number from 0 to 2", [](ZrtSetup& setup) { setup.state.lock = 3; });
        row("replyTime: must be a whole number from 0 to 600000",
            [](ZrtSetup& setup) { setup.times.reply = -1; });
        row("there is no preset 2, so \"program\" must name another",
            [](ZrtSetup& setup) { setup.state.program = 2; });
        for (int const number : {-1, 65536}) {
            QTest::addRow("preset %d", number)
                << Change([number](ZrtSetup& setup) { setup.state.presets.insert(number, {}); })
                << "presets.%1: a preset's key must be its number, 0 to 65535"_s.arg(number);
        }
        row("presets.15.speed: must be a whole number from 1 to 10000",
            [](ZrtSetup& setup) { setup.state.presets[15].speed = 0; });
        row("presets.15: \"maxTorque\" must be more than \"torque\"",
            [](ZrtSetup& setup) { setup.state.presets[15].torque = 260; });
        row("unwritablePresets[1]: must be a whole number from 0 to 65535", [](ZrtSetup& setup) {
            setup.state.unwritablePresets = {0, -1};
        });
        for (int const screw : {-1, 100})
            row("screws[0]: unknown kind of screw, known are good, crossThreaded, ...",
                [screw](ZrtSetup& setup) { setup.state.screws += static_cast<ZrtScrew>(screw); });
        row("faults[0].delay: goes with the kinds delay and late", [](ZrtSetup& setup) {
            setup.faults += fault(ZrtFault::Loss);
            setup.faults[0].delay = 1;
        });
    }

    void doesNotMake()
    {
        QFETCH(Change, change);
        QFETCH(QString, problem);
        ZrtSetup setup;
        change(setup);
        QString found;
        QVERIFY(!ZrtSimulatedController::create(setup, ZrtClock(), &found));
        QCOMPARE(asFarAs(problem, found), problem);
        QVERIFY(!ZrtSimulatedController::create(setup, ZrtClock())); // and nobody asks why
    }

    void needsAClockOfItsThread()
    {
        ZrtClock const clock;
        ZrtClock const looped(ZrtClock::Pace::EventLoop);
        QStringList problems;
        std::thread([&] {
            for (auto const& one :
                 {clock, ZrtClock(ZrtClock::Pace::EventLoop), ZrtClock(ZrtClock::Pace::RealTime)}) {
                QString problem;
                problems += ZrtSimulatedController::create({}, one, &problem) ? "made"_s : problem;
            }
        }).join();
        QString const noLoop = "the clock cannot be used: this thread has no event loop of Qt"_s;
        QCOMPARE(problems,
                 QStringList({"the clock cannot be used: called from another thread"_s, noLoop, noLoop}));
        QVERIFY(ZrtSimulatedController::create({}, looped));
    }

    void readsSetups()
    {
        QString problem = "left from before"_s;
        QString const good = m_folder.write("good.json"_s, R"({"lock": 2, "replyTime": 9})");
        auto const setup = ZrtSimulatedController::readSetup(good, &problem);
        QVERIFY(setup);
        QCOMPARE(problem, QString());
        QCOMPARE(setup->state.lock, 2);
        QCOMPARE(setup->times.reply, 9);

        QString const bad = m_folder.write("bad.json"_s, "{\n\"lock\": 3}");
        QVERIFY(!ZrtSimulatedController::readSetup(bad, &problem));
        QCOMPARE(problem, bad + ":2: lock: must be a whole number from 0 to 2"_s);
        QVERIFY(!ZrtSimulatedController::readSetup(bad));

        QCOMPARE(ZrtSimulatedController::schemas().keys().join(QLatin1Char(' ')),
                 "backup controller parameters presets"_s);
    }

    void refusesInstructions()
    {
        Bench bench;
        QTest::ignoreMessage(QtWarningMsg,
                             "ZrtSimulatedController::post: the callback of \"setLock\" is null");
        QVERIFY(!bench.controller->post(1, lock, {{"lock"_s, 1}}, nullptr));
        QVERIFY(bench.controller->setConnected(false));
        QTest::ignoreMessage(QtWarningMsg,
                             "ZrtSimulatedController::post: \"setLock\": the controller is not connected");
        QVERIFY(!bench.setLock(1, 1));
        bench.clock.advance(1000);
        QCOMPARE(bench.controller->state().lock, int(ZrtState::Free));
        QCOMPARE(bench.arrived, QList<quint64>());
    }

    void idsInUse()
    {
        // A restore that fails has ended, too.
        ZrtSetup failing;
        failing.state.unwritablePresets = {1};
        Bench fails(failing);
        QString const one = m_folder.write("one.json"_s, R"({"presets": {"1": {}}})");
        QVERIFY(fails.restoreAll(1, one));
        fails.clock.advance(1000);
        QCOMPARE(fails.arrived, QList<quint64>{1});
        QVERIFY(fails.setLock(1, 0));

        QString const backup = m_folder.write("backup.json"_s, R"({"presets": {"1": {}}})");
        auto const isRefused = [](Bench& bench, quint64 id) {
            QByteArray const message =
                "ZrtSimulatedController::post: \"setLock\": the id " + QByteArray::number(id) + " is in use";
            QTest::ignoreMessage(QtWarningMsg, message.constData());
            return !bench.setLock(id, 1) && bench.controller->state().lock == ZrtState::Free;
        };
        ZrtSetup setup;
        setup.faults = {fault(ZrtFault::Duplicate), fault(ZrtFault::Loss, "getInfo"_s)};
        Bench bench(setup);
        QVERIFY(bench.setLock(1, 0)); // answered twice
        QVERIFY(bench.post(2, listen));
        QVERIFY(bench.restoreAll(3, backup));
        QVERIFY(bench.post(4, "getInfo"_s)); // never answered
        for (quint64 const id : {1U, 2U, 3U})
            QVERIFY(isRefused(bench, id));
        QVERIFY(bench.post(4, "getInfo"_s));
        bench.clock.advance(c_reply);
        QCOMPARE(bench.arrived, QList<quint64>({1, 1, 4}));
        QVERIFY(bench.setLock(1, 0));
        QVERIFY(isRefused(bench, 2));
        QVERIFY(isRefused(bench, 3));
        bench.clock.advance(50); // restored, and answered
        QVERIFY(bench.setLock(3, 0));
        bench.clock.advance(1000);
        QVERIFY(bench.controller->withdraw(2));
        QVERIFY(bench.setLock(2, 0));
    }

    void withdraws()
    {
        Bench bench;
        QVERIFY(!bench.controller->withdraw(1));
        QVERIFY(bench.setLock(1, 1));
        QVERIFY(!bench.controller->withdraw(1)); // its reply is on its way
        QVERIFY(bench.setLock(3, 0));
        QVERIFY(bench.post(2, listen));
        bench.clock.advance(bench.controller->pullTrigger().value_or(0));
        QVERIFY(bench.controller->withdraw(2));
        QVERIFY(!bench.controller->withdraw(2));
        bench.clock.advance(c_reply);
        QCOMPARE(bench.arrived, QList<quint64>({1, 3, 2})); // and the event that was on its way
        bench.controller->pullTrigger();
        bench.clock.advance(10'000);
        QCOMPARE(bench.arrived.size(), 3);
    }

    void connects()
    {
        Bench bench;
        QVERIFY(bench.post(1, listen));
        QVERIFY(bench.setLock(2, 0));
        QVERIFY(bench.controller->setConnected(false));
        QVERIFY(!bench.controller->isConnected());
        bench.clock.advance(c_reply);
        QCOMPARE(bench.arrived, QList<quint64>()); // the reply is lost
        QVERIFY(bench.controller->pullTrigger());  // the tool still turns
        bench.clock.advance(10'000);
        QCOMPARE(bench.controller->state().eventCount, 1);
        QCOMPARE(bench.arrived, QList<quint64>());
        QVERIFY(bench.controller->setConnected(true));
        QVERIFY(bench.controller->pullTrigger());
        bench.clock.advance(10'000);
        QCOMPARE(bench.arrived, QList<quint64>{1});
    }

    void restoreEndsWithTheConnection()
    {
        QString const backup =
            m_folder.write("backup.json"_s, R"({"presets": {"1": {"torque": 101}, "2": {}}})");
        Bench bench;
        QVERIFY(bench.restoreAll(1, backup));
        bench.clock.advance(60);
        QCOMPARE(bench.arrived.size(), 1);
        bench.controller->setConnected(false);
        bench.clock.advance(60);
        bench.controller->setConnected(true);
        bench.clock.advance(1000);
        QCOMPARE(bench.arrived.size(), 1);
        QCOMPARE(bench.controller->state().presets[1].torque, 200);
        QVERIFY(bench.restoreAll(1, backup));
        bench.clock.advance(1000);
        QCOMPARE(bench.arrived.size(), 3);
        QCOMPARE(bench.controller->state().presets[1].torque, 101);
    }

    void triggers()
    {
        Bench bench;
        QVERIFY(bench.post(1, listen));
        int const duration = bench.controller->pullTrigger().value_or(0);
        QVERIFY(duration > 0);
        bench.clock.advance(duration - 1);
        QTest::ignoreMessage(QtWarningMsg, "ZrtSimulatedController::pullTrigger: the tool still turns");
        QVERIFY(!bench.controller->pullTrigger());
        bench.clock.advance(1);
        QVERIFY(bench.controller->pullTrigger());
        bench.clock.advance(10'000);
        QCOMPARE(bench.arrived, QList<quint64>({1, 1}));
        QCOMPARE(bench.controller->state().eventCount, 2);

        QVERIFY(bench.setLock(2, ZrtState::LooseningLocked));
        QVERIFY(bench.controller->pressReverse());
        QVERIFY(bench.controller->state().isReverse);
        QVERIFY(!bench.controller->pullTrigger()); // locked, which is nothing to warn of
        QCOMPARE(bench.controller->state().eventCount, 2);
    }

    void faultsComeAndGo()
    {
        ZrtSetup setup;
        setup.faults = {fault(ZrtFault::Loss, lock, 2)};
        Bench bench(setup);
        quint64 id = 0;
        auto const isAnswered = [&] {
            bench.setLock(++id, 0);
            bench.clock.advance(c_reply);
            return bench.arrived.contains(id);
        };
        QVERIFY(isAnswered());
        QVERIFY(!isAnswered());
        QCOMPARE(bench.controller->addFault(fault(ZrtFault::Loss, lock, 2)), 2);
        QCOMPARE(bench.controller->faults().size(), 2);
        QVERIFY(isAnswered());
        QVERIFY(!isAnswered()); // the second one since the fault was added

        ZrtFault always = fault(ZrtFault::Loss, lock, 0);
        always.probability = 1;
        QCOMPARE(bench.controller->addFault(always), 3);
        QVERIFY(!isAnswered());
        // It still applies to what was posted before.
        QVERIFY(bench.post(90, listen));
        ZrtFault deaf = always;
        deaf.instruction = listen;
        QCOMPARE(bench.controller->addFault(deaf), 4);
        QVERIFY(bench.post(91, listen));
        QVERIFY(bench.controller->removeFault(4));
        QVERIFY(bench.controller->removeFault(3));
        QVERIFY(isAnswered());
        bench.controller->pullTrigger();
        bench.clock.advance(10'000);
        QVERIFY(bench.arrived.contains(90));
        QVERIFY(!bench.arrived.contains(91));

        QTest::ignoreMessage(QtWarningMsg, "ZrtSimulatedController::removeFault: there is no fault 3");
        QVERIFY(!bench.controller->removeFault(3));
        QCOMPARE(bench.controller->faults().keys(), QList<int>({1, 2}));
        QCOMPARE(bench.controller->addFault(always), 5); // a number is never used again
    }

    void chanceFollowsTheSeed()
    {
        auto const arrivals = [](quint64 seed) {
            ZrtSetup setup;
            setup.state.seed = seed;
            setup.faults = {fault(ZrtFault::Loss, lock, 0)};
            setup.faults[0].probability = 0.5;
            Bench bench(setup);
            for (quint64 id = 1; id <= 64; ++id)
                bench.setLock(id, 0);
            bench.clock.advance(c_reply);
            return bench.arrived;
        };
        QCOMPARE(arrivals(1), arrivals(1));
        QVERIFY(arrivals(1) != arrivals(2));
    }

    void refusesFaults_data()
    {
        QTest::addColumn<ZrtFault>("fault");
        QTest::addColumn<QString>("problem");
        auto const row = [](
                             char const* problem, ZrtFault::Kind kind,
                             std::function<void(ZrtFault&)> const& change = [](ZrtFault&) {}) {
            ZrtFault one = fault(kind);
            change(one);
            QTest::newRow(problem) << one << QString::fromLatin1(problem);
        };
        row("kind: unknown kind of fault, known are delay, late, ...", static_cast<ZrtFault::Kind>(-1));
        row("instruction: unknown instruction, known are SetTriggerProgram, getInfo, ...", ZrtFault::Refused,
            [](ZrtFault& one) { one.instruction.clear(); });
        row("nth: must be a whole number from 1 to 2147483647", ZrtFault::Loss,
            [](ZrtFault& one) { one.nth = -1; });
        for (double const value : {-0.1, 1.1, std::numeric_limits<double>::quiet_NaN()}) {
            row("percent: the probability must be from 0 to 1", ZrtFault::Loss, [value](ZrtFault& one) {
                one.nth = 0;
                one.probability = value;
            });
        }
        row("\"nth\" and a probability exclude each other", ZrtFault::Loss,
            [](ZrtFault& one) { one.probability = 0.5; });
        row("delay: must be a whole number from 0 to 600000", ZrtFault::Delay,
            [](ZrtFault& one) { one.delay = -1; });
        row("delay: must be a whole number from 4000 to 600000", ZrtFault::Late,
            [](ZrtFault& one) { one.delay = 3999; });
        row("delay: goes with the kinds delay and late", ZrtFault::Loss,
            [](ZrtFault& one) { one.delay = 1; });
        row("key: goes with the kinds missingKey and wrongType", ZrtFault::Duplicate,
            [](ZrtFault& one) { one.key = "k"_s; });
    }

    void refusesFaults()
    {
        QFETCH(ZrtFault, fault);
        QFETCH(QString, problem);
        Bench bench;
        QString const pattern = QRegularExpression::escape("ZrtSimulatedController::addFault: "_s + problem);
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(QString(pattern).replace("\\.\\.\\."_s, ".*"_s)));
        QCOMPARE(bench.controller->addFault(fault), 0);
        QVERIFY(bench.controller->faults().isEmpty());
    }

    void tellsChanges()
    {
        QString const backup = m_folder.write("backup.json"_s, R"({"presets": {"1": {}, "2": {}}})");
        ZrtSetup setup;
        setup.faults = {fault(ZrtFault::Disconnected, "getInfo"_s, 2)};
        Bench bench(setup);
        int changes = 0;
        QVERIFY(bench.controller->onChange([&changes] { ++changes; }));
        auto const changesBy = [&](std::function<void()> const& call) {
            changes = 0;
            call();
            return changes;
        };
        QCOMPARE(changesBy([&] { bench.setLock(1, 1); }), 1); // when it arrives, not with its reply
        QCOMPARE(changesBy([&] { bench.clock.advance(c_reply); }), 0);
        QCOMPARE(changesBy([&] { bench.setLock(1, 1); }), 0);
        QCOMPARE(changesBy([&] { bench.setLock(2, 3); }), 0); // refused
        QCOMPARE(changesBy([&] { bench.controller->pullTrigger(); }), 0);
        QCOMPARE(changesBy([&] { bench.setLock(3, 0); }), 1);
        QCOMPARE(changesBy([&] { bench.controller->pullTrigger(); }), 1);
        QCOMPARE(changesBy([&] { bench.clock.advance(10'000); }), 0);
        QCOMPARE(changesBy([&] { bench.controller->pressReverse(); }), 1);
        QCOMPARE(changesBy([&] { bench.post(4, "setLockScreen"_s); }), 1);
        QCOMPARE(changesBy([&] { bench.post(5, "setLockScreen"_s); }), 0);
        QVariantMap const fifteen{{"program"_s, 15}};
        QCOMPARE(changesBy([&] { bench.post(6, "setProgram"_s, fifteen); }), 1);
        QCOMPARE(changesBy([&] { bench.post(7, "SetTriggerProgram"_s); }), 1);
        QCOMPARE(changesBy([&] { bench.restoreAll(8, backup); }), 0);
        QCOMPARE(changesBy([&] { bench.clock.advance(10'000); }), 1); // once, when all is written
        QCOMPARE(changesBy([&] { bench.controller->setConnected(true); }), 0);
        QCOMPARE(changesBy([&] { bench.controller->setConnected(false); }), 1);
        QCOMPARE(changesBy([&] { bench.controller->setConnected(true); }), 1);
        QCOMPARE(changesBy([&] { bench.post(9, "getInfo"_s); }), 0);
        QCOMPARE(changesBy([&] { bench.post(10, "getInfo"_s); }), 1);
        QVERIFY(!bench.controller->isConnected());
        QVERIFY(bench.controller->onChange(nullptr));
        QCOMPARE(changesBy([&] { bench.controller->setConnected(true); }), 0);
    }

    void callbacksMayDoEverything()
    {
        ZrtClock clock;
        auto controller = ZrtSimulatedController::create({}, clock);
        QStringList happened;
        auto const ignore = [](QVariantMap const&) {};
        controller->post(1, lock, {{"lock"_s, 1}}, [&](QVariantMap const&) {
            // The id is free again, and the reply of this one does not come within the call.
            controller->post(1, lock, {{"lock"_s, 0}}, [&](QVariantMap const&) {
                happened += "second"_s;
                controller.reset();
            });
            happened += "first"_s;
        });
        clock.advance(1000);
        QCOMPARE(happened, QStringList({"first"_s, "second"_s}));
        QVERIFY(!controller);

        // Whatever makes a change can be the last call.
        QString const backup = m_folder.write("backup.json"_s, R"({"presets": {"1": {}}})");
        QList<std::function<void()>> const calls{
            [&] {
                controller->post(1, lock, {{"lock"_s, 1}}, ignore);
            },
            [&] { controller->setConnected(false); },
            [&] { QVERIFY(controller->pullTrigger()); },
            [&] { controller->pressReverse(); },
            [&] {
                controller->post(1, restore,
                                 {{"filePath"_s, backup}, {"startPreset"_s, 1}, {"endPreset"_s, 1}}, ignore);
                clock.advance(1000);
            },
        };
        for (auto const& call : calls) {
            controller = ZrtSimulatedController::create({}, clock);
            controller->onChange([&controller] { controller.reset(); });
            call();
            QVERIFY(!controller);
            clock.advance(1000);
        }

        controller = ZrtSimulatedController::create({}, clock);
        int changes = 0;
        controller->onChange([&] {
            controller->onChange([&changes] { changes += 10; });
            ++changes;
            controller->pressReverse();
        });
        controller->pressReverse();
        QCOMPARE(changes, 11);
    }

    // What a callback holds goes with it, and may call the controller then.
    void whatCallbacksHold()
    {
        Bench bench;
        auto* const controller = bench.controller.get();
        QStringList happened;
        auto const held = [&](QString const& name) {
            return std::shared_ptr<void>(nullptr, [&, name](void*) {
                happened += name;
                controller->withdraw(1);
                controller->withdraw(2);
                controller->onChange([] {});
                bench.clock.after(1, [] {});
            });
        };
        auto const listenWith = [&](quint64 id, QString const& name) {
            controller->post(id, listen, {}, [guard = held(name)](QVariantMap const&) {});
        };
        listenWith(1, "a"_s);
        listenWith(2, "b"_s);
        QVERIFY(controller->withdraw(1));
        QCOMPARE(happened, QStringList({"a"_s, "b"_s}));
        listenWith(1, "c"_s);
        listenWith(2, "d"_s);
        controller->onChange([guard = held("e"_s)] {});
        controller->onChange([guard = held("f"_s)] {});
        happened.clear();
        listenWith(1, "g"_s);
        bench.controller.reset();
        QCOMPARE(happened.size(), 1);

        auto clock = std::make_unique<ZrtClock>();
        auto const task = [&](QString const& name) {
            clock->after(
                1, [&, guard = std::shared_ptr<void>(nullptr, [&, name](void*) { happened += name; })] {});
        };
        happened.clear();
        task("h"_s);
        task("i"_s);
        clock.reset();
        QCOMPARE(happened.size(), 2);
    }

    void callbacksWithState()
    {
        Bench bench;
        QList<int> counts;
        auto const counting = [&counts](int first) {
            return [&counts, next = first]() mutable { counts += next++; };
        };
        bench.controller->post(1, listen, {}, [count = counting(1)](QVariantMap const&) mutable { count(); });
        bench.controller->onChange(counting(11));
        for (int i = 0; i < 3; ++i) {
            bench.controller->pullTrigger();
            bench.clock.advance(10'000);
        }
        QCOMPARE(counts, QList<int>({11, 1, 12, 2, 13, 3}));
    }

    void outlivesAndIsOutlived()
    {
        bool isCalled = false;
        auto const call = [&isCalled](QVariantMap const&) { isCalled = true; };
        ZrtClock clock;
        {
            auto const controller = ZrtSimulatedController::create({}, clock);
            controller->post(1, lock, {{"lock"_s, 0}}, call);
            controller->post(2, listen, {}, call);
            controller->pullTrigger();
        }
        clock.advance(10'000);
        QVERIFY(!isCalled);

        auto ownClock = std::make_unique<ZrtClock>();
        auto const controller = ZrtSimulatedController::create({}, *ownClock);
        controller->post(1, lock, {{"lock"_s, 1}}, call);
        ownClock.reset();
        QVERIFY(controller->post(2, lock, {{"lock"_s, 2}}, call));
        QCOMPARE(controller->state().lock, 2);
        QVERIFY(!isCalled);
    }

    void belongsToItsThread()
    {
        Bench bench;
        bench.post(1, listen);
        bench.controller->addFault(fault(ZrtFault::Loss));
        for (char const* const call : {"state", "isConnected", "onChange", "post", "withdraw", "setConnected",
                                       "pullTrigger", "pressReverse", "faults", "addFault", "removeFault"}) {
            QByteArray const message =
                QByteArray("ZrtSimulatedController::") + call + ": called from another thread";
            QTest::ignoreMessage(QtWarningMsg, message.constData());
        }
        bool isRefused = false;
        std::unique_ptr<QThread> const other(QThread::create([&] {
            auto& controller = *bench.controller;
            isRefused = controller.state().eventCount == 0 && !controller.isConnected()
                        && !controller.onChange([] {}) && !bench.setLock(2, 1) && !controller.withdraw(1)
                        && !controller.setConnected(false) && !controller.pullTrigger()
                        && !controller.pressReverse() && controller.faults().isEmpty()
                        && controller.addFault(fault(ZrtFault::Loss)) == 0 && !controller.removeFault(1);
        }));
        other->start();
        QVERIFY(other->wait());
        QVERIFY(isRefused);
        QVERIFY(bench.controller->isConnected());
        QCOMPARE(bench.controller->faults().keys(), QList<int>{1});
    }

    void worksInTheEventLoop()
    {
        ZrtClock const clock(ZrtClock::Pace::EventLoop);
        auto const controller = ZrtSimulatedController::create({}, clock);
        int events = 0;
        controller->post(1, listen, {},
                         [&](QVariantMap const& reply) { events += reply.contains("values"_s) ? 1 : 0; });
        QVERIFY(controller->pullTrigger());
        QTRY_COMPARE(events, 1);
    }

private:
    ScratchFolder m_folder;
};

QTEST_GUILESS_MAIN(TestZrtSimulatedController)
#include "tst_zrt_simulated_controller.moc"
