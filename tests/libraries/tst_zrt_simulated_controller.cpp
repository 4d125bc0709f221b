#include "complaint.h"
#include "controller_bench.h"
#include "scratch_folder.h"

#include <QtTest>

#include <functional>
#include <thread>

namespace
{

constexpr int c_reply = 5;
constexpr int c_long = 10'000; // milliseconds, more than anything here takes

char const* const c_listen = "listenEventsData";

/// Something to hold that calls @p action when it goes.
std::shared_ptr<void> atItsEnd(std::function<void()> const& action)
{
    return {nullptr, [action](void* /*nothing*/) { action(); }};
}

void expectWarning(QString const& text)
{
    QTest::ignoreMessage(QtWarningMsg, qPrintable("ZrtSimulatedController::"_s + text));
}

void ignoreReply(QVariantMap const& /*reply*/) {}

} // namespace

Q_DECLARE_METATYPE(ZrtFault)

/// The simulated controller as a host meets it, through its public header alone: what it allows, and what a
/// callback may do.
class TestZrtSimulatedController : public QObject
{
    Q_OBJECT

private slots:
    void makes()
    {
        ZrtSetup setup;
        setup.state.model = "M"_s;
        setup.isConnected = false;
        setup.faults = {fault(ZrtFault::Loss, "setLock"), fault(ZrtFault::Refused, c_listen)};
        QString problem = "left from before"_s;
        auto const controller = ZrtSimulatedController::create(setup, ZrtClock(), &problem);
        QVERIFY(controller);
        QCOMPARE(problem, QString());
        QCOMPARE(shown(controller->state()), shown(setup.state));
        QVERIFY(!controller->isConnected());
        QCOMPARE(controller->faults().keys(), QList<int>({1, 2}));
        QCOMPARE(shown(controller->faults()[2]), shown(setup.faults[1]));
        QCOMPARE(ZrtSimulatedController::instructions().join(QLatin1Char(' ')),
                 "SetTriggerProgram getInfo getPresetData getRegister listenEventsData restoreBackup "
                 "setLock setLockScreen setProgram"_s);
        QCOMPARE(ZrtSimulatedController::schemas().keys().join(QLatin1Char(' ')),
                 "backup controller parameters presets"_s);
    }

    void refusesSetups()
    {
        auto const problemOf = [](auto const& change) {
            ZrtSetup setup;
            change(setup);
            QString problem;
            bool const isMade = ZrtSimulatedController::create(setup, ZrtClock(), &problem)
                                || ZrtSimulatedController::create(setup, ZrtClock()); // and nobody asks why
            return isMade ? "made"_s : problem;
        };
        QCOMPARE(problemOf([](ZrtSetup& setup) { setup.state.lock = 3; }),
                 "lock: must be a whole number from 0 to 2"_s);
        QCOMPARE(problemOf([](ZrtSetup& setup) { setup.times.reply = -1; }),
                 "replyTime: must be a whole number from 0 to 600000"_s);
        QCOMPARE(problemOf([](ZrtSetup& setup) { setup.state.program = 2; }),
                 "there is no preset 2, so \"program\" must name another"_s);
        for (int const number : {-1, 65536})
            QCOMPARE(problemOf([number](ZrtSetup& setup) { setup.state.presets.insert(number, {}); }),
                     "presets.%1: a preset's key must be its number, 0 to 65535"_s.arg(number));
        QCOMPARE(problemOf([](ZrtSetup& setup) { setup.state.presets[15].speed = 0; }),
                 "presets.15.speed: must be a whole number from 1 to 10000"_s);
        QCOMPARE(problemOf([](ZrtSetup& setup) { setup.state.presets[15].torque = 260; }),
                 "presets.15: \"maxTorque\" must be more than \"torque\""_s);
        QCOMPARE(problemOf([](ZrtSetup& setup) {
                     setup.state.unwritablePresets = QList<int>({0, -1});
                 }),
                 "unwritablePresets[1]: must be a whole number from 0 to 65535"_s);
        QString const screws = "screws[0]: unknown kind of screw, known are good, crossThreaded, ..."_s;
        QCOMPARE(asFarAs(screws, problemOf([](ZrtSetup& setup) {
                             setup.state.screws += static_cast<ZrtScrew>(100);
                         })),
                 screws);
    }

    void refusesFaults_data()
    {
        QTest::addColumn<ZrtFault>("fault");
        QTest::addColumn<QString>("problem");
        auto const row = [](char const* problem, ZrtFault::Kind kind, int nth, double probability, int delay,
                            char const* key = "", char const* instruction = "setLock") {
            ZrtFault one = fault(kind, instruction, nth, delay, key);
            one.probability = probability;
            QTest::newRow(problem) << one << QString::fromLatin1(problem);
        };
        row(".kind: unknown kind of fault, known are delay, late, ...", static_cast<ZrtFault::Kind>(-1), 1, 0,
            0);
        row(".instruction: unknown instruction, known are SetTriggerProgram, getInfo, ...", ZrtFault::Refused,
            1, 0, 0, "", "");
        row(".nth: must be a whole number from 1 to 2147483647", ZrtFault::Loss, -1, 0, 0);
        for (double const value : {-0.1, 1.1, qQNaN()})
            row(".percent: the probability must be from 0 to 1", ZrtFault::Loss, 0, value, 0);
        row(": \"nth\" and a probability exclude each other", ZrtFault::Loss, 1, 0.5, 0);
        row(".delay: must be a whole number from 0 to 600000", ZrtFault::Delay, 1, 0, -1);
        row(".delay: must be a whole number from 4000 to 600000", ZrtFault::Late, 1, 0, 3999);
        row(".delay: goes with the kinds delay and late", ZrtFault::Loss, 1, 0, 1);
        row(".key: goes with the kinds missingKey and wrongType", ZrtFault::Duplicate, 1, 0, 0, "k");
    }

    void refusesFaults()
    {
        QFETCH(ZrtFault, fault);
        QFETCH(QString, problem);
        ZrtSetup setup;
        setup.faults = {fault};
        QString found;
        QVERIFY(!ZrtSimulatedController::create(setup, ZrtClock(), &found));
        QCOMPARE(asFarAs("faults[0]"_s + problem, found), "faults[0]"_s + problem);
    }

    void needsAClockOfItsThread()
    {
        ZrtClock const clock;
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
    }

    void refusesInstructions()
    {
        ControllerBench bench;
        expectWarning("post: the callback of \"setLock\" is null"_s);
        QVERIFY(!bench.controller->post(1, "setLock"_s, lockArguments(1), nullptr));
        QVERIFY(bench.controller->setConnected(false));
        expectWarning("post: \"setLock\": the controller is not connected"_s);
        QVERIFY(!bench.setLock(1, 1));
        QCOMPARE(bench.allReplies(), QStringList());
        QCOMPARE(bench.controller->state().lock, int(ZrtState::Free));
    }

    // An id is in use until the last reply has arrived, or until it is withdrawn.
    void idsInUse()
    {
        ZrtSetup setup;
        setup.faults = {fault(ZrtFault::Duplicate, "setLock"), fault(ZrtFault::Loss, "getInfo")};
        ControllerBench bench(setup);
        auto const isRefused = [&bench](quint64 id) {
            expectWarning("post: \"setLock\": the id %1 is in use"_s.arg(id));
            return !bench.setLock(id, 1) && bench.controller->state().lock == ZrtState::Free;
        };
        QString const backup = m_folder.write("backup.json"_s, R"({"presets": {"1": {}}})");
        QVERIFY(bench.setLock(1, 0)); // answered twice
        QVERIFY(bench.post(2, c_listen));
        QVERIFY(bench.post(3, "restoreBackup", restoreArguments(backup, 0, 0)));
        QVERIFY(bench.post(4, "getInfo")); // never answered
        for (quint64 const id : {1U, 2U, 3U})
            QVERIFY(isRefused(id));
        QVERIFY(bench.post(4, "getInfo"));
        bench.clock.advance(c_reply);
        QCOMPARE(bench.answered, QList<quint64>({1, 1, 4}));
        QVERIFY(bench.setLock(1, 0));
        QVERIFY(isRefused(2));
        QVERIFY(isRefused(3));
        bench.clock.advance(50); // restored, and answered
        QVERIFY(bench.setLock(3, 0));
        QVERIFY(bench.controller->withdraw(2));
        QVERIFY(bench.setLock(2, 0));
        QVERIFY(!bench.controller->withdraw(2)); // which neither listens nor restores
    }

    void triggers()
    {
        ControllerBench bench;
        int const duration = bench.controller->pullTrigger().value_or(0);
        bench.clock.advance(duration - 1);
        expectWarning("pullTrigger: the tool still turns"_s);
        QVERIFY(!bench.controller->pullTrigger());
        bench.clock.advance(1);
        QVERIFY(bench.controller->pullTrigger());
        bench.clock.advance(c_long);
        QVERIFY(bench.setLock(2, ZrtState::LooseningLocked));
        QVERIFY(bench.controller->pressReverse());
        QVERIFY(!bench.controller->pullTrigger()); // locked, which is nothing to warn of
        QCOMPARE(bench.controller->state().eventCount, 2);
    }

    void faultsComeAndGo()
    {
        ControllerBench bench;
        ZrtFault const second = fault(ZrtFault::Loss, "setLock", 2);
        ZrtFault deaf = fault(ZrtFault::Loss, c_listen, 0);
        deaf.probability = 1;
        bench.setLock(1, 0);
        QCOMPARE(bench.controller->addFault(second), 1);
        bench.setLock(2, 0);
        bench.setLock(3, 0); // the second one since the fault was added
        bench.post(4, c_listen);
        QCOMPARE(bench.controller->addFault(deaf), 2);
        bench.post(5, c_listen);
        QCOMPARE(bench.controller->faults().keys(), QList<int>({1, 2}));
        QVERIFY(bench.controller->removeFault(2)); // which applies to what was posted before
        bench.post(6, c_listen);
        bench.controller->pullTrigger();
        bench.clock.advance(c_long);
        QCOMPARE(bench.answered, QList<quint64>({1, 2, 4, 6}));

        expectWarning("addFault: nth: must be a whole number from 1 to 2147483647"_s);
        QCOMPARE(bench.controller->addFault(fault(ZrtFault::Loss, "setLock", -1)), 0);
        expectWarning("removeFault: there is no fault 2"_s);
        QVERIFY(!bench.controller->removeFault(2));
        QCOMPARE(bench.controller->faults().keys(), QList<int>{1});
        QCOMPARE(bench.controller->addFault(deaf), 3); // a number is never used again
    }

    void chanceFollowsTheSeed()
    {
        auto const answered = [](quint64 seed) {
            ZrtSetup setup;
            setup.state.seed = seed;
            setup.faults = {fault(ZrtFault::Loss, "setLock", 0)};
            setup.faults[0].probability = 0.5;
            ControllerBench bench(setup);
            for (quint64 id = 1; id <= 64; ++id)
                bench.setLock(id, 0);
            bench.clock.advance(c_reply);
            return bench.answered;
        };
        QCOMPARE(answered(1), answered(1));
        QVERIFY(answered(1) != answered(2));
    }

    void tellsChanges()
    {
        QString const backup = m_folder.write("backup.json"_s, R"({"presets": {"1": {}, "2": {}}})");
        ZrtSetup setup;
        setup.faults = {fault(ZrtFault::Disconnected, "getInfo", 2)};
        ControllerBench bench(setup);
        auto& controller = *bench.controller;
        int changes = 0;
        QVERIFY(controller.onChange([&changes] { ++changes; }));
        auto const changesBy = [&](std::function<void()> const& call) {
            changes = 0;
            call();
            return changes;
        };
        QCOMPARE(changesBy([&] { bench.setLock(1, 1); }), 1); // when it arrives, not with its reply
        QCOMPARE(changesBy([&] { bench.clock.advance(c_reply); }), 0);
        QCOMPARE(changesBy([&] { bench.setLock(1, 1); }), 0);
        bench.setLock(2, 0);
        QCOMPARE(changesBy([&] { controller.pullTrigger(); }), 1);
        QCOMPARE(changesBy([&] { bench.clock.advance(c_long); }), 0);
        QCOMPARE(changesBy([&] { controller.pressReverse(); }), 1);
        bench.post(8, "restoreBackup", restoreArguments(backup, 0, 0));
        QCOMPARE(changesBy([&] { bench.clock.advance(c_long); }), 1); // once, when all is written
        QCOMPARE(changesBy([&] { controller.setConnected(true); }), 0);
        QCOMPARE(changesBy([&] { controller.setConnected(false); }), 1);
        QCOMPARE(changesBy([&] { controller.setConnected(true); }), 1);
        QCOMPARE(changesBy([&] { bench.post(9, "getInfo"); }), 0);
        QCOMPARE(changesBy([&] { bench.post(10, "getInfo"); }), 1);
        QVERIFY(!controller.isConnected());
        QVERIFY(controller.onChange(nullptr));
        QCOMPARE(changesBy([&] { controller.setConnected(true); }), 0);
    }

    void callbacksMayDoEverything()
    {
        ZrtClock clock;
        auto controller = ZrtSimulatedController::create({}, clock);
        QStringList happened;
        controller->post(1, "setLock"_s, lockArguments(1), [&](QVariantMap const&) {
            // The id is free again, and the reply of this one does not come within the call.
            controller->post(1, "setLock"_s, lockArguments(0), [&](QVariantMap const&) {
                happened += "second"_s;
                controller.reset();
            });
            happened += "first"_s;
        });
        clock.advance(c_long);
        QCOMPARE(happened, QStringList({"first"_s, "second"_s}));
        QVERIFY(!controller);

        // Whatever makes a change can be the last call.
        QString const backup = m_folder.write("backup.json"_s, R"({"presets": {"1": {}}})");
        QList<std::function<void()>> const calls{
            [&] { controller->post(1, "setLock"_s, lockArguments(1), ignoreReply); },
            [&] { controller->setConnected(false); },
            [&] { QVERIFY(controller->pullTrigger()); },
            [&] { controller->pressReverse(); },
            [&] {
                controller->post(1, "restoreBackup"_s, restoreArguments(backup, 1, 1), ignoreReply);
                clock.advance(c_long);
            },
        };
        for (auto const& call : calls) {
            controller = ZrtSimulatedController::create({}, clock);
            controller->onChange([&controller] { controller.reset(); });
            call();
            QVERIFY(!controller);
            clock.advance(c_long);
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
        ControllerBench bench;
        auto* const controller = bench.controller.get();
        QString happened;
        auto const held = [&](char const* name) {
            return atItsEnd([&, name] {
                happened += QLatin1String(name);
                controller->withdraw(1);
                controller->withdraw(2);
                controller->onChange([] {});
                bench.clock.after(1, [] {});
            });
        };
        auto const listenWith = [&](quint64 id, char const* name) {
            controller->post(id, "listenEventsData"_s, {}, [guard = held(name)](QVariantMap const&) {});
        };
        listenWith(1, "a");
        listenWith(2, "b");
        QVERIFY(controller->withdraw(1));
        QCOMPARE(happened, "ab"_s);
        listenWith(1, "c");
        listenWith(2, "d");
        controller->onChange([guard = held("e")] {});
        controller->onChange([guard = held("f")] {});
        happened.clear();
        listenWith(1, "g");
        bench.controller.reset();
        QCOMPARE(happened, "g"_s);
    }

    void callbacksWithState()
    {
        ControllerBench bench;
        QList<int> counts;
        auto const counting = [&counts](int first) {
            return [&counts, next = first]() mutable { counts += next++; };
        };
        bench.controller->post(1, "listenEventsData"_s, {},
                               [count = counting(1)](QVariantMap const&) mutable { count(); });
        bench.controller->onChange(counting(11));
        for (int i = 0; i < 3; ++i) {
            bench.controller->pullTrigger();
            bench.clock.advance(c_long);
        }
        QCOMPARE(counts, QList<int>({11, 1, 12, 2, 13, 3}));
    }

    void outlivesAndIsOutlived()
    {
        ZrtClock clock;
        bool isCalled = false;
        auto const call = [&isCalled](QVariantMap const&) { isCalled = true; };
        auto controller = ZrtSimulatedController::create({}, clock);
        controller->post(1, "setLock"_s, lockArguments(0), call);
        controller->post(2, "listenEventsData"_s, {}, call);
        controller->pullTrigger();
        controller.reset();
        clock.advance(c_long);
        QVERIFY(!isCalled);

        auto ownClock = std::make_unique<ZrtClock>();
        controller = ZrtSimulatedController::create({}, *ownClock);
        ownClock.reset();
        QVERIFY(controller->post(2, "setLock"_s, lockArguments(2), call));
        QCOMPARE(controller->state().lock, 2);
    }

    void belongsToItsThread()
    {
        ControllerBench bench;
        bench.post(1, c_listen);
        bench.setLock(2, ZrtState::AllLocked);
        bench.controller->addFault(fault(ZrtFault::Loss, "setLock"));
        for (char const* const call : {"state", "isConnected", "onChange", "post", "withdraw", "setConnected",
                                       "pullTrigger", "pressReverse", "faults", "addFault", "removeFault"})
            expectWarning(QLatin1String(call) + ": called from another thread"_s);
        bool isRefused = false;
        std::thread([&] {
            auto& controller = *bench.controller;
            isRefused = controller.state().lock == ZrtState::Free && !controller.isConnected()
                        && !controller.onChange([] {}) && !bench.setLock(3, 0) && !controller.withdraw(1)
                        && !controller.setConnected(false) && !controller.pullTrigger()
                        && !controller.pressReverse() && controller.faults().isEmpty()
                        && controller.addFault(fault(ZrtFault::Loss, "setLock")) == 0
                        && !controller.removeFault(1);
        }).join();
        QVERIFY(isRefused);
        QVERIFY(bench.controller->isConnected());
        QCOMPARE(bench.controller->faults().keys(), QList<int>{1});
    }

private:
    ScratchFolder m_folder;
};

QTEST_GUILESS_MAIN(TestZrtSimulatedController)
#include "tst_zrt_simulated_controller.moc"
