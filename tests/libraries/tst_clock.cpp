#include "literals.h"

#include <zrt_controller/zrt_simulated_controller.h>

#include <QElapsedTimer>
#include <QTimer>
#include <QtTest>

#include <limits>
#include <memory>
#include <thread>

namespace
{

using Pace = ZrtClock::Pace;

constexpr qint64 c_longest = std::numeric_limits<qint64>::max();

/// A clock, and who was there when.
struct Bench
{
    explicit Bench(Pace pace = Pace::Simulated) : clock(pace) {}

    void note(char const* name) { log += "%1@%2"_s.arg(QLatin1String(name)).arg(clock.now()); }
    bool plan(qint64 delay, char const* name)
    {
        return clock.after(delay, [this, name] { note(name); });
    }
    QString noted() const { return log.join(QLatin1Char(' ')); }
    QString notedInAllSteps()
    {
        while (clock.step()) {
        }
        return noted();
    }

    ZrtClock clock;
    QStringList log;
};

void expectWarning(char const* call, char const* what)
{
    QTest::ignoreMessage(QtWarningMsg, "ZrtClock::" + QByteArray(call) + ": " + what);
}

} // namespace

Q_DECLARE_METATYPE(ZrtClock::Pace)

/// The one source of time: which task runs when. Tests of a pace that waits compare no times but those that
/// the clock tells.
class TestClock : public QObject
{
    Q_OBJECT

private slots:
    void order_data() { addPaces(); }

    void order()
    {
        QFETCH(Pace, pace);
        Bench bench(pace);
        QCOMPARE(bench.clock.pace(), pace);
        QCOMPARE(bench.clock.now(), qint64{0});
        QVERIFY(!bench.clock.step()); // nothing is planned
        bench.plan(20, "a");
        bench.plan(5, "b");
        bench.clock.after(5, [&] {
            bench.note("c");
            bench.plan(0, "at-once");
            bench.plan(-1, "negative");
            bench.plan(std::numeric_limits<qint64>::min(), "far-back");
            bench.plan(15, "later");
        });
        bench.plan(0, "d");
        bench.plan(5, "e");
        QVERIFY(bench.clock.step());
        QCOMPARE(bench.noted(), "d@0"_s); // one step, one task
        QCOMPARE(bench.notedInAllSteps(), "d@0 b@5 c@5 e@5 at-once@5 negative@5 far-back@5 a@20 later@20"_s);
        QCOMPARE(bench.clock.now(), qint64{20});
    }

    void latestTime()
    {
        Bench bench;
        bench.clock.advance(10);
        bench.plan(c_longest, "latest");
        QCOMPARE(bench.notedInAllSteps(), "latest@%1"_s.arg(c_longest));
    }

    void date()
    {
        // Every simulated run starts on the same day, or on the one that was asked for.
        QDateTime const usual(QDate(2000, 1, 1), QTime(0, 0), Qt::UTC);
        QDateTime const other(QDate(2026, 3, 9), QTime(7, 5), Qt::UTC);
        for (auto const& [clock, start] : {std::pair(ZrtClock(), usual), std::pair(ZrtClock(other), other)}) {
            ZrtClock running = clock;
            QCOMPARE(running.pace(), Pace::Simulated);
            QCOMPARE(running.date().timeSpec(), Qt::UTC);
            running.after(61'250, [] {});
            QCOMPARE(running.date(), start); // planning is not passing
            running.step();
            QCOMPARE(running.date(), start.addMSecs(61'250));
        }

        QDateTime const before = QDateTime::currentDateTime();
        ZrtClock real(Pace::RealTime);
        QDateTime const start = real.date();
        QVERIFY(before <= start && start <= QDateTime::currentDateTime());
        real.after(5, [] {});
        real.step();
        QCOMPARE(start.msecsTo(real.date()), qint64{5});
    }

    void moveTo()
    {
        ZrtClock clock;
        QVERIFY(!clock.nextDue());
        QVERIFY(clock.moveTo(7));
        QCOMPARE(clock.now(), qint64{7});
        clock.after(5, [] {});
        clock.after(3, [] {});
        QCOMPARE(clock.nextDue(), std::optional<qint64>(10));
        QVERIFY(clock.moveTo(10)); // which does not run it
        QCOMPARE(clock.nextDue(), std::optional<qint64>(10));
        QVERIFY(clock.step());
        QCOMPARE(clock.nextDue(), std::optional<qint64>(12));
    }

    void advance_data() { addPaces(); }

    void advance()
    {
        QFETCH(Pace, pace);
        Bench bench(pace);
        bench.clock.after(10, [&] {
            bench.note("a");
            bench.plan(10, "b");
            bench.plan(11, "beyond");
        });
        QVERIFY(bench.clock.advance(9));
        QCOMPARE(bench.clock.now(), qint64{9});
        QCOMPARE(bench.noted(), QString());
        QVERIFY(bench.clock.advance(0));
        QVERIFY(bench.clock.advance(11)); // what is planned for its end belongs to it
        QCOMPARE(bench.clock.now(), qint64{20});
        QCOMPARE(bench.noted(), "a@10 b@20"_s);
    }

    void waitsInRealTimeOnly_data() { addPaces(); }

    void waitsInRealTimeOnly()
    {
        // While somebody waits, Qt's own timers go off.
        QFETCH(Pace, pace);
        Bench bench(pace);
        QTimer timer;
        timer.setSingleShot(true);
        timer.callOnTimeout([&bench] { bench.log += "timer"_s; });
        timer.start(1);
        bench.plan(30, "task");
        bench.clock.step();
        QCOMPARE(bench.noted(), pace == Pace::RealTime ? "timer task@30"_s : "task@30"_s);
    }

    void eventsBelongToTheStep_data() { addPaces(); }

    // What a task leaves to Qt's queue happens at its time, and so does what follows from that.
    void eventsBelongToTheStep()
    {
        QFETCH(Pace, pace);
        Bench bench(pace);
        QPointer<QObject> const object = new QObject;
        auto const queue = [this](auto const& action) {
            QMetaObject::invokeMethod(this, action, Qt::QueuedConnection);
        };
        bench.clock.after(4, [&] {
            object->deleteLater();
            queue([&] {
                bench.note("event");
                queue([&] {
                    bench.note("next-event");
                    bench.plan(3, "planned");
                });
            });
            bench.note("task");
        });
        bench.clock.after(5, [&] { bench.note(object ? "object is there" : "object is gone"); });
        QCOMPARE(bench.notedInAllSteps(), "task@4 event@4 next-event@4 object is gone@5 planned@7"_s);
        delete object;
    }

    void eventLoop()
    {
        Bench bench(Pace::EventLoop);
        for (auto const& [delay, name] : {std::pair(60, "c"), std::pair(0, "a"), std::pair(20, "b")})
            QVERIFY(bench.plan(delay, name));
        bench.clock.after(61, [&bench] { bench.plan(20, "d"); });
        QCOMPARE(bench.noted(), QString()); // never before after() has returned
        QTRY_COMPARE(bench.log.size(), 4);
        auto const timeOf = [&bench](int index, char const* name) {
            QString const expected = QLatin1String(name) + QLatin1Char('@');
            return bench.log[index].startsWith(expected) ? bench.log[index].midRef(2).toInt() : -1;
        };
        QVERIFY(timeOf(0, "a") >= 0);
        QVERIFY(timeOf(1, "b") >= 20);
        QVERIFY(timeOf(2, "c") >= 60);
        QVERIFY(timeOf(3, "d") >= 81);
        QVERIFY(!bench.clock.nextDue());
        QVERIFY(bench.clock.now() >= timeOf(3, "d"));
    }

    // What is handled while the clock waits knows the real time, and what it plans runs in its turn.
    void eventsPlanWhileItWaits()
    {
        ZrtClock clock(Pace::RealTime);
        QStringList ran;
        qint64 planned = 0;
        clock.after(300, [&] { ran += "late"_s; });
        QTimer::singleShot(10, this, [&] {
            planned = clock.now();
            clock.after(1, [&] { ran += "early"_s; });
        });
        QVERIFY(clock.step());
        QCOMPARE(ran, QStringList{"early"_s});
        QVERIFY(planned >= 9);
        QCOMPARE(clock.now(), planned + 1);
        // With nothing planned before.
        QTimer::singleShot(0, this, [&] { clock.after(2, [&] { ran += "meanwhile"_s; }); });
        QVERIFY(clock.advance(400));
        QCOMPARE(ran.mid(1), QStringList({"meanwhile"_s, "late"_s}));
        QCOMPARE(clock.now(), planned + 401);
        QVERIFY(!clock.nextDue());
    }

    // An event may step too; no task runs before its time.
    void eventsGoOnWhileItWaits()
    {
        ZrtClock clock(Pace::RealTime);
        QStringList ran;
        clock.after(30, [&] { ran += "first"_s; });
        clock.after(100'000, [&] { ran += "far"_s; });
        QTimer::singleShot(1, this, [&] { clock.step(); });
        QVERIFY(clock.step());
        QCOMPARE(clock.now(), qint64{30});
        QTimer::singleShot(1, this, [&] { clock.advance(5); });
        QVERIFY(clock.advance(20));
        QCOMPARE(ran, QStringList{"first"_s});
        QVERIFY(clock.now() >= 50);
    }

    void waitsAfterTheApplicationHasQuit()
    {
        ZrtClock clock(Pace::RealTime);
        QElapsedTimer timer;
        timer.start();
        clock.after(30, [] {});
        clock.after(0, [] { QCoreApplication::quit(); });
        QVERIFY(clock.step());
        QVERIFY(clock.step());
        QVERIFY(timer.elapsed() >= 29);
    }

    void copiesShareTheTime()
    {
        auto first = std::make_unique<ZrtClock>();
        ZrtClock second = *first;
        int runs = 0;
        first->after(5, [&runs] { ++runs; });
        QVERIFY(second.step());
        QCOMPARE(first->now(), qint64{5});
        first->after(5, [&runs] { ++runs; });
        first.reset();
        QVERIFY(second.step());
        QCOMPARE(runs, 2);
    }

    // A task goes when it has run or with its clock, and what it holds may call the clock then.
    void plannedTasksGoWithTheClock()
    {
        int gone = 0;
        {
            ZrtClock clock;
            auto const guard = [&] {
                return std::shared_ptr<void>(nullptr, [&](void* /*nothing*/) {
                    ++gone;
                    clock.after(1, [] {});
                });
            };
            for (qint64 delay = 1; delay <= 3; ++delay)
                clock.after(delay, [held = guard()] {});
            clock.step();
            QCOMPARE(gone, 1);
        }
        QCOMPARE(gone, 3);
    }

    void mayGoWithinATask()
    {
        bool ran = false;
        std::unique_ptr<ZrtClock> clock;
        auto const plan = [&](Pace pace) {
            clock = std::make_unique<ZrtClock>(pace);
            clock->after(0, [&] { clock.reset(); });
            clock->after(0, [&] { ran = true; });
        };
        plan(Pace::Simulated);
        QVERIFY(clock->step());
        QVERIFY(!clock);
        plan(Pace::Simulated);
        QVERIFY(clock->advance(10));
        QVERIFY(!clock);
        plan(Pace::EventLoop);
        ZrtClock other(Pace::EventLoop);
        other.after(30, [] {});
        QTRY_VERIFY(!other.nextDue());
        QVERIFY(!clock);
        QVERIFY(!ran);
    }

    void refuses()
    {
        ZrtClock clock;
        clock.advance(10);
        clock.after(5, [] {});
        expectWarning("after", "the task is null");
        QVERIFY(!clock.after(1, nullptr));
        expectWarning("advance", "time does not go back");
        QVERIFY(!clock.advance(-1));
        expectWarning("moveTo", "time does not go back");
        QVERIFY(!clock.moveTo(9));
        expectWarning("moveTo", "a task is planned before");
        QVERIFY(!clock.moveTo(16));
        QCOMPARE(clock.now(), qint64{10});
        QCOMPARE(clock.nextDue(), std::optional<qint64>(15));

        expectWarning("moveTo", "the time is not simulated");
        QVERIFY(!ZrtClock(Pace::RealTime).moveTo(1));

        ZrtClock looped(Pace::EventLoop);
        looped.after(0, [] { QFAIL("ran without the event loop"); });
        for (char const* const call : {"step", "advance", "moveTo"})
            expectWarning(call, "Qt's event loop runs the tasks of this clock");
        QVERIFY(!looped.step());
        QVERIFY(!looped.advance(1));
        QVERIFY(!looped.moveTo(1));
    }

    void belongsToItsThread()
    {
        ZrtClock clock;
        clock.advance(7);
        for (char const* const call : {"now", "after", "nextDue", "step", "advance", "moveTo"})
            expectWarning(call, "called from another thread");
        bool isRefused = false;
        std::thread([&] {
            isRefused = clock.now() == 0 && !clock.after(1, [] {}) && !clock.nextDue() && !clock.step()
                        && !clock.advance(1) && !clock.moveTo(8);
        }).join();
        QVERIFY(isRefused);
        QCOMPARE(clock.now(), qint64{7});
        QVERIFY(!clock.nextDue());
    }

private:
    static void addPaces()
    {
        QTest::addColumn<Pace>("pace");
        QTest::newRow("simulated") << Pace::Simulated;
        QTest::newRow("real time") << Pace::RealTime;
    }
};

QTEST_GUILESS_MAIN(TestClock)
#include "tst_clock.moc"
