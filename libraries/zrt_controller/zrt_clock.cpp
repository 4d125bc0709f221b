#include "own_thread.h"
#include "zrt_simulated_controller.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QEventLoop>
#include <QThread>
#include <QTimer>
#include <QVector>

#include <algorithm>
#include <chrono>
#include <limits>
#include <map>
#include <utility>

namespace
{

QDateTime startOf(ZrtClock::Pace pace)
{
    // A simulated run must not differ from the next one, so it does not ask what day it is.
    return pace == ZrtClock::Pace::Simulated ? QDateTime(QDate(2000, 1, 1), QTime(0, 0), Qt::UTC)
                                             : QDateTime::currentDateTime();
}

std::chrono::milliseconds timerInterval(qint64 left)
{
    return std::chrono::milliseconds(std::clamp<qint64>(left, 0, std::numeric_limits<int>::max()));
}

bool hasEventLoop()
{
    return QCoreApplication::instance() && QAbstractEventDispatcher::instance();
}

// What a task left in Qt's queue belongs to the same moment, and so does what follows from that. A slot that
// queues itself again and again must not hold up time, though.
void deliverPostedEvents()
{
    constexpr int rounds = 10;
    for (int i = 0; i < rounds; ++i)
        QCoreApplication::sendPostedEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace

struct ZrtClock::Private
{
    Private(Pace itsPace, QDateTime itsStart) : pace(itsPace), start(std::move(itsStart))
    {
        sinceStart.start();
    }

    // Tasks of the clock may destroy it, and what they hold may call it when it goes with them.
    ~Private() { std::exchange(tasks, {}); }

    qint64 now() const
    {
        if (pace == Pace::EventLoop)
            return sinceStart.elapsed();
        return waiting.isEmpty() ? reached : std::max(reached, sinceStart.elapsed());
    }
    qint64 nowPlus(qint64 delay) const
    {
        constexpr qint64 latest = std::numeric_limits<qint64>::max();
        qint64 const from = now();
        return delay > latest - from ? latest : from + std::max<qint64>(delay, 0);
    }
    qint64 nextDue() const { return tasks.begin()->first.first; }

    /// What keeps the clock from being used here; null if nothing does.
    char const* problem() const
    {
        if (!thread.isCurrent())
            return "called from another thread";
        return pace == Pace::Simulated || hasEventLoop() ? nullptr : "this thread has no event loop of Qt";
    }
    bool isAllowed(char const* call) const { return isAllowed(call, problem()); }
    bool mayGoOn(char const* call) const
    {
        return isAllowed(call)
               && isAllowed(call, pace == Pace::EventLoop ? "Qt's event loop runs the tasks of this clock"
                                                          : nullptr);
    }
    static bool isAllowed(char const* call, char const* problem)
    {
        if (problem)
            qWarning("ZrtClock::%s: %s", call, problem);
        return !problem;
    }

    void plan(qint64 due, std::function<void()> task)
    {
        tasks.emplace(std::pair(due, ++planned), std::move(task));
        for (auto* const loop : std::as_const(waiting))
            loop->quit();
    }
    /// Waits in real time, but no longer than until a task is planned: it may be due before.
    void waitUntil(qint64 time)
    {
        quint64 const before = planned;
        qint64 left = 0;
        while (pace == Pace::RealTime && planned == before && (left = time - sinceStart.elapsed()) > 0) {
            QEventLoop loop;
            waiting.append(&loop);
            QTimer::singleShot(timerInterval(left), Qt::PreciseTimer, &loop, &QEventLoop::quit);
            // Once the application has been told to quit, it handles no events.
            if (loop.exec() != 0)
                QThread::msleep(1);
            waiting.removeOne(&loop);
        }
    }
    /// Goes to a time before which nothing is planned, or returns false: while this waits, something was.
    bool goTo(qint64 time)
    {
        waitUntil(time);
        bool const isThere = isDue(time) && (tasks.empty() || nextDue() > time);
        if (isThere)
            reached = std::max(reached, time);
        return isThere;
    }
    bool isDue(qint64 time) const { return pace == Pace::Simulated || time <= sinceStart.elapsed(); }
    void runNext()
    {
        auto const next = tasks.extract(tasks.begin());
        reached = std::max(reached, next.key().first);
        ++ran;
        next.mapped()();
    }
    /// Runs the next task that is due until @p end, if there is one. What is handled while this waits may
    /// plan tasks, and run some.
    bool step(qint64 end)
    {
        quint64 const before = ran;
        while (ran == before && !tasks.empty() && nextDue() <= end) {
            waitUntil(nextDue());
            if (ran == before && !tasks.empty() && nextDue() <= end && isDue(nextDue()))
                runNext();
        }
        if (ran == before)
            return false;
        deliverPostedEvents();
        return true;
    }

    OwnThread const thread;
    Pace const pace;
    QDateTime const start;
    QElapsedTimer sinceStart;
    qint64 reached = 0;
    quint64 planned = 0;
    quint64 ran = 0;
    QVector<QEventLoop*> waiting;
    std::map<std::pair<qint64, quint64>, std::function<void()>> tasks;
};

namespace
{

/// Has Qt's event loop run the next task when its time has come. Each task has a timer of its own, and each
/// timer runs the task that is next when it fires.
template <class Clock> void runFromEventLoop(std::weak_ptr<Clock> const& clock, qint64 left)
{
    QTimer::singleShot(timerInterval(left), Qt::PreciseTimer, [clock] {
        auto const d = clock.lock();
        if (!d || d->tasks.empty())
            return;
        // A timer may fire a little early.
        if (d->nextDue() <= d->now())
            d->runNext();
        else
            runFromEventLoop(clock, d->nextDue() - d->now());
    });
}

} // namespace

ZrtClock::ZrtClock(Pace pace) : m_d(std::make_shared<Private>(pace, startOf(pace))) {}

ZrtClock::ZrtClock(QDateTime const& start) : m_d(std::make_shared<Private>(Pace::Simulated, start)) {}

ZrtClock::Pace ZrtClock::pace() const
{
    return m_d->pace;
}

char const* ZrtClock::problem() const
{
    return m_d->problem();
}

qint64 ZrtClock::now() const
{
    return m_d->isAllowed("now") ? m_d->now() : 0;
}

QDateTime ZrtClock::date() const
{
    return m_d->start.addMSecs(now());
}

bool ZrtClock::after(qint64 delay, std::function<void()> task)
{
    if (!m_d->isAllowed("after") || !Private::isAllowed("after", task ? nullptr : "the task is null"))
        return false;
    qint64 const due = m_d->nowPlus(delay);
    m_d->plan(due, std::move(task));
    if (m_d->pace == Pace::EventLoop)
        runFromEventLoop(std::weak_ptr(m_d), due - m_d->now());
    return true;
}

std::optional<qint64> ZrtClock::nextDue() const
{
    bool const isKnown = m_d->isAllowed("nextDue") && !m_d->tasks.empty();
    return isKnown ? std::optional(m_d->nextDue()) : std::nullopt;
}

bool ZrtClock::step()
{
    auto const d = m_d; // a task may destroy this clock
    return d->mayGoOn("step") && d->step(std::numeric_limits<qint64>::max());
}

bool ZrtClock::advance(qint64 duration)
{
    std::weak_ptr<Private> const clock = m_d;
    if (!m_d->mayGoOn("advance")
        || !Private::isAllowed("advance", duration < 0 ? "time does not go back" : nullptr))
        return false;
    qint64 const end = m_d->nowPlus(duration);
    // A task may destroy this clock, and then there is nothing left to run.
    for (;;) {
        auto const d = clock.lock();
        if (!d || (!d->step(end) && d->goTo(end)))
            return true;
    }
}

bool ZrtClock::moveTo(qint64 time)
{
    if (!m_d->mayGoOn("moveTo"))
        return false;
    char const* problem = nullptr;
    if (m_d->pace != Pace::Simulated)
        problem = "the time is not simulated";
    else if (time < m_d->reached)
        problem = "time does not go back";
    else if (time > nextDue().value_or(time))
        problem = "a task is planned before";
    if (!Private::isAllowed("moveTo", problem))
        return false;
    m_d->reached = time;
    return true;
}
