#include "literals.h"

#include <zrt_controller/zrt_simulated_controller.h>

#include <QElapsedTimer>
#include <QThread>
#include <QTimer>
#include <QtTest>

#include <limits>
#include <memory>

namespace
{

using Pace = ZrtClock::Pace;

class Notifier : public QObject
{
    Q_OBJECT

signals:
    void sigQueued();
    void sigQueuedNext();
};

void addPaces()
{
    QTest::addColumn<Pace>("pace");
    QTest::newRow("simulated") << Pace::Simulated;
    QTest::newRow("real time") << Pace::RealTime;
}

} // namespace

Q_DECLARE_METATYPE(ZrtClock::Pace)

/// The one source of time: which task runs when.
class TestClock : public QObject
{
    Q_OBJECT

private slots:
    void startsAtZero_data() { addPaces(); }

    void startsAtZero()
    {
        QFETCH(Pace, pace);
        ZrtClock const clock(pace);
        QCOMPARE(clock.now(), qint64{0});
        QCOMPARE(clock.pace(), pace);
    }

    void stepWithoutTasksIsFalse_data() { addPaces(); }

    void stepWithoutTasksIsFalse()
    {
        QFETCH(Pace, pace);
        ZrtClock clock(pace);
        QVERIFY(!clock.step());
        clock.after(3, [] {});
        QVERIFY(clock.step());
        QVERIFY(!clock.step());
        QCOMPARE(clock.now(), qint64{3});
    }

    void oneStepRunsOneTask_data() { addPaces(); }

    void oneStepRunsOneTask()
    {
        QFETCH(Pace, pace);
        ZrtClock clock(pace);
        int runs = 0;
        clock.after(2, [&runs] { ++runs; });
        clock.after(2, [&runs] { ++runs; });
        QVERIFY(clock.step());
        QCOMPARE(runs, 1);
        QVERIFY(clock.step());
        QCOMPARE(runs, 2);
    }

    void orderOfTasks_data() { addPaces(); }

    void orderOfTasks()
    {
        QFETCH(Pace, pace);
        ZrtClock clock(pace);
        QStringList ran;
        auto const plan = [&](qint64 delay, QString const& name) {
            clock.after(delay, [&ran, &clock, name] { ran += "%1@%2"_s.arg(name).arg(clock.now()); });
        };
        plan(20, "a"_s);
        plan(5, "b"_s);
        plan(20, "c"_s);
        plan(0, "d"_s);
        plan(5, "e"_s);
        while (clock.step()) {
        }
        QCOMPARE(ran.join(QLatin1Char(' ')), "d@0 b@5 e@5 a@20 c@20"_s);
    }

    void tasksPlannedByTasks_data() { addPaces(); }

    void tasksPlannedByTasks()
    {
        QFETCH(Pace, pace);
        ZrtClock clock(pace);
        QStringList ran;
        auto const note = [&](char const* name) {
            ran += "%1@%2"_s.arg(QLatin1String(name)).arg(clock.now());
        };
        clock.after(5, [&] {
            note("first");
            clock.after(0, [&] { note("at once"); });
            clock.after(5, [&] { note("later"); });
        });
        clock.after(5, [&] { note("second"); });
        clock.after(10, [&] { note("planned before"); });
        while (clock.step()) {
        }
        QCOMPARE(ran.join(QLatin1Char(' ')), "first@5 second@5 at once@5 planned before@10 later@10"_s);
    }

    void delaysThatAreNone_data()
    {
        QTest::addColumn<qint64>("delay");
        QTest::newRow("zero") << qint64{0};
        QTest::newRow("minus one") << qint64{-1};
        QTest::newRow("far back") << std::numeric_limits<qint64>::min();
    }

    void delaysThatAreNone()
    {
        QFETCH(qint64, delay);
        ZrtClock clock(Pace::Simulated);
        QStringList ran;
        clock.after(7, [&] {
            clock.after(delay, [&ran, &clock] { ran += "late %1"_s.arg(clock.now()); });
            ran += "first %1"_s.arg(clock.now());
        });
        clock.after(7, [&] { ran += "planned before"_s; });
        while (clock.step()) {
        }
        QCOMPARE(ran, QStringList({"first 7"_s, "planned before"_s, "late 7"_s}));
    }

    void farDelay()
    {
        ZrtClock clock(Pace::Simulated);
        constexpr qint64 tenYears = 10LL * 365 * 24 * 3600 * 1000;
        clock.after(tenYears, [] {});
        QVERIFY(clock.step());
        QCOMPARE(clock.now(), tenYears);
    }

    void simulatedDate()
    {
        ZrtClock clock(Pace::Simulated);
        QDateTime const start(QDate(2000, 1, 1), QTime(0, 0), Qt::UTC);
        QCOMPARE(clock.date(), start);
        QCOMPARE(clock.date().timeSpec(), Qt::UTC);
        clock.after(61'250, [] {});
        QCOMPARE(clock.date(), start); // planning is not passing
        clock.step();
        QCOMPARE(clock.date(), QDateTime(QDate(2000, 1, 1), QTime(0, 1, 1, 250), Qt::UTC));
        QCOMPARE(ZrtClock(Pace::Simulated).date(), start);
        // One that was asked for.
        QDateTime const other(QDate(2026, 3, 9), QTime(7, 5), Qt::UTC);
        ZrtClock at(other);
        QVERIFY(at.pace() == Pace::Simulated);
        at.after(250, [] {});
        QVERIFY(at.step());
        QCOMPARE(at.date(), other.addMSecs(250));
    }

    void moveTo()
    {
        ZrtClock clock(Pace::Simulated);
        QVERIFY(!clock.nextDue());
        clock.moveTo(7);
        QCOMPARE(clock.now(), qint64{7});
        clock.after(5, [] {});
        clock.after(3, [] {});
        QCOMPARE(clock.nextDue(), std::optional<qint64>(10));
        clock.moveTo(10); // which does not run it
        QCOMPARE(clock.nextDue(), std::optional<qint64>(10));
        QVERIFY(clock.step());
        QCOMPARE(clock.now(), qint64{10});
        QCOMPARE(clock.nextDue(), std::optional<qint64>(12));
    }

    void realDate()
    {
        QDateTime const before = QDateTime::currentDateTime();
        ZrtClock clock(Pace::RealTime);
        QDateTime const after = QDateTime::currentDateTime();
        QDateTime const start = clock.date();
        QVERIFY(before <= start && start <= after);
        clock.after(5, [] {});
        clock.step();
        QCOMPARE(start.msecsTo(clock.date()), qint64{5});
    }

    void waitsInRealTimeOnly_data() { addPaces(); }

    void waitsInRealTimeOnly()
    {
        // While somebody waits, Qt's own timers go off.
        QFETCH(Pace, pace);
        ZrtClock clock(pace);
        QTimer timer;
        QStringList ran;
        connect(&timer, &QTimer::timeout, [&ran] { ran += "timer"_s; });
        timer.setSingleShot(true);
        timer.start(1);
        clock.after(30, [&ran] { ran += "task"_s; });
        clock.step();
        QStringList expected{"task"_s};
        if (pace == Pace::RealTime)
            expected.prepend("timer"_s);
        QCOMPARE(ran, expected);
    }

    void queuedSignalsBelongToTheStep_data() { addPaces(); }

    void queuedSignalsBelongToTheStep()
    {
        QFETCH(Pace, pace);
        ZrtClock clock(pace);
        Notifier notifier;
        QStringList heard;
        connect(
            &notifier, &Notifier::sigQueued, &notifier, [&] { heard += "signal@%1"_s.arg(clock.now()); },
            Qt::QueuedConnection);
        clock.after(4, [&] {
            emit notifier.sigQueued();
            heard += "task"_s;
        });
        clock.after(9, [] {});
        clock.step();
        QCOMPARE(heard, QStringList({"task"_s, "signal@4"_s}));
    }

    void queuedSignalsOfQueuedSignalsToo_data() { addPaces(); }

    void queuedSignalsOfQueuedSignalsToo()
    {
        QFETCH(Pace, pace);
        ZrtClock clock(pace);
        Notifier notifier;
        QStringList heard;
        connect(&notifier, &Notifier::sigQueued, &notifier, &Notifier::sigQueuedNext, Qt::QueuedConnection);
        connect(
            &notifier, &Notifier::sigQueuedNext, &notifier, [&] { heard += "signal@%1"_s.arg(clock.now()); },
            Qt::QueuedConnection);
        clock.after(4, [&] { emit notifier.sigQueued(); });
        clock.after(9, [&] { heard += "next task"_s; });
        clock.step();
        clock.step();
        QCOMPARE(heard, QStringList({"signal@4"_s, "next task"_s}));
    }

    void queuedSignalsPlanAtTheSameTime_data() { addPaces(); }

    void queuedSignalsPlanAtTheSameTime()
    {
        QFETCH(Pace, pace);
        ZrtClock clock(pace);
        Notifier notifier;
        qint64 ran = -1;
        connect(
            &notifier, &Notifier::sigQueued, &notifier, [&] { clock.after(3, [&] { ran = clock.now(); }); },
            Qt::QueuedConnection);
        clock.after(4, [&] { emit notifier.sigQueued(); });
        clock.after(20, [] {});
        clock.step();
        clock.step();
        QCOMPARE(ran, qint64{7});
    }

    void deletedLater_data() { addPaces(); }

    void deletedLater()
    {
        // An object that is to be deleted later is gone with the step, however fast time passes.
        QFETCH(Pace, pace);
        ZrtClock clock(pace);
        QPointer<QObject> const object = new QObject;
        clock.after(1, [&] { object->deleteLater(); });
        bool isThere = true;
        clock.after(10, [&] { isThere = !object.isNull(); });
        clock.step();
        clock.step();
        delete object;
        QVERIFY(!isThere);
    }

    void plannedTasksGoWithTheClock()
    {
        auto const held = std::make_shared<int>(1);
        {
            ZrtClock clock(Pace::Simulated);
            clock.after(1, [held] {});
            clock.after(2, [held] {});
            QCOMPARE(held.use_count(), 3L);
            clock.step();
            QCOMPARE(held.use_count(), 2L); // a task that has run is gone
        }
        QCOMPARE(held.use_count(), 1L);
    }

    void advance_data() { addPaces(); }

    void advance()
    {
        QFETCH(Pace, pace);
        ZrtClock clock(pace);
        QStringList ran;
        clock.after(10, [&] {
            ran += QString::number(clock.now());
            clock.after(10, [&] { ran += QString::number(clock.now()); });
            clock.after(11, [&] { ran += "beyond"_s; });
        });
        QVERIFY(clock.advance(9));
        QCOMPARE(clock.now(), qint64{9});
        QCOMPARE(ran, QStringList());
        QVERIFY(clock.advance(11)); // what is planned for its end belongs to it
        QCOMPARE(clock.now(), qint64{20});
        QCOMPARE(ran, QStringList({"10"_s, "20"_s}));
    }

    void eventLoop()
    {
        ZrtClock clock(Pace::EventLoop);
        QStringList ran;
        QList<qint64> times;
        auto const plan = [&](qint64 delay, QString const& name) {
            QVERIFY(clock.after(delay, [&, name] {
                ran += name;
                times += clock.now();
            }));
        };
        plan(60, "c"_s);
        plan(0, "a"_s);
        plan(20, "b"_s);
        clock.after(61, [&] { plan(20, "d"_s); });
        QCOMPARE(ran, QStringList()); // never before after() has returned
        QTRY_COMPARE(ran.join(QLatin1Char(' ')), "a b c d"_s);
        QVERIFY(times[1] >= 20);
        QVERIFY(times[2] >= 60);
        QVERIFY(times[3] >= 81);
        QVERIFY(!clock.nextDue());
        QVERIFY(clock.now() >= times[3]);
    }

    // What is handled while the clock waits knows the real time, and what it plans runs in its turn.
    void eventsPlanWhileItWaits()
    {
        ZrtClock clock(Pace::RealTime);
        QStringList ran;
        qint64 planned = 0;
        clock.after(60, [&] { ran += "late"_s; });
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
        QVERIFY(clock.advance(200));
        QCOMPARE(ran.mid(1), QStringList({"meanwhile"_s, "late"_s}));
        QCOMPARE(clock.now(), planned + 201);
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
        QCOMPARE(ran, QStringList{"first"_s});
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
        QCOMPARE(runs, 1);
        QCOMPARE(first->now(), qint64{5});
        first->after(5, [&runs] { ++runs; });
        first.reset();
        QVERIFY(second.step());
        QCOMPARE(runs, 2);
    }

    void mayGoWithinATask()
    {
        auto clock = std::make_unique<ZrtClock>();
        bool ran = false;
        clock->after(5, [&] { clock.reset(); });
        clock->after(5, [&] { ran = true; });
        QVERIFY(clock->step());
        QVERIFY(!clock);
        QVERIFY(!ran);

        // The last one within advance(): no other task runs.
        clock = std::make_unique<ZrtClock>();
        clock->after(5, [&] { clock.reset(); });
        clock->after(5, [&] { ran = true; });
        QVERIFY(clock->advance(10));
        QVERIFY(!ran);

        ZrtClock looped(Pace::EventLoop);
        auto held = std::make_unique<ZrtClock>(Pace::EventLoop);
        held->after(0, [&] { held.reset(); });
        held->after(0, [&] { ran = true; });
        looped.after(30, [] {});
        QTRY_VERIFY(!looped.nextDue());
        QVERIFY(!held);
        QVERIFY(!ran);
    }

    void refuses()
    {
        ZrtClock clock;
        QTest::ignoreMessage(QtWarningMsg, "ZrtClock::after: the task is null");
        QVERIFY(!clock.after(1, nullptr));
        QTest::ignoreMessage(QtWarningMsg, "ZrtClock::advance: time does not go back");
        QVERIFY(!clock.advance(-1));
        clock.advance(10);
        QTest::ignoreMessage(QtWarningMsg, "ZrtClock::moveTo: time does not go back");
        QVERIFY(!clock.moveTo(9));
        clock.after(5, [] {});
        QTest::ignoreMessage(QtWarningMsg, "ZrtClock::moveTo: a task is planned before");
        QVERIFY(!clock.moveTo(16));
        QCOMPARE(clock.now(), qint64{10});
        QCOMPARE(clock.nextDue(), std::optional<qint64>(15));

        // The latest time that there is.
        clock.after(std::numeric_limits<qint64>::max(), [] {});
        QVERIFY(clock.step());
        QVERIFY(clock.step());
        QCOMPARE(clock.now(), std::numeric_limits<qint64>::max());

        ZrtClock real(Pace::RealTime);
        QTest::ignoreMessage(QtWarningMsg, "ZrtClock::moveTo: the time is not simulated");
        QVERIFY(!real.moveTo(1));

        ZrtClock looped(Pace::EventLoop);
        looped.after(0, [] { QFAIL("ran without the event loop"); });
        for (char const* const call : {"step", "advance", "moveTo"}) {
            QByteArray const message =
                QByteArray("ZrtClock::") + call + ": Qt's event loop runs the tasks of this clock";
            QTest::ignoreMessage(QtWarningMsg, message.constData());
        }
        QVERIFY(!looped.step());
        QVERIFY(!looped.advance(1));
        QVERIFY(!looped.moveTo(1));
    }

    void belongsToItsThread()
    {
        ZrtClock clock;
        clock.advance(7);
        for (char const* const call : {"now", "after", "nextDue", "step", "advance", "moveTo"}) {
            QByteArray const message = QByteArray("ZrtClock::") + call + ": called from another thread";
            QTest::ignoreMessage(QtWarningMsg, message.constData());
        }
        bool isRefused = false;
        std::unique_ptr<QThread> const other(QThread::create([&] {
            isRefused = clock.now() == 0 && !clock.after(1, [] {}) && !clock.nextDue() && !clock.step()
                        && !clock.advance(1) && !clock.moveTo(8);
        }));
        other->start();
        QVERIFY(other->wait());
        QVERIFY(isRefused);
        QCOMPARE(clock.now(), qint64{7});
        QVERIFY(!clock.nextDue());
    }
};

QTEST_GUILESS_MAIN(TestClock)
#include "tst_clock.moc"
