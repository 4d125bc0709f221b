#include "own_thread.h"
#include "zrt_simulated_controller.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QEventLoop>
#include <QTimer>

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

void waitFor(QElapsedTimer const& timer, qint64 due)
{
    // A timer may fire a little early.
    for (qint64 left = 0; (left = due - timer.elapsed()) > 0;) {
        QEventLoop loop;
        QTimer::singleShot(std::chrono::milliseconds(left), Qt::PreciseTimer, &loop, &QEventLoop::quit);
        loop.exec();
    }
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

    qint64 now() const { return pace == Pace::EventLoop ? sinceStart.elapsed() : reached; }
    qint64 nowPlus(qint64 delay) const
    {
        constexpr qint64 latest = std::numeric_limits<qint64>::max();
        qint64 const from = now();
        return delay > latest - from ? latest : from + std::max<qint64>(delay, 0);
    }
    qint64 nextDue() const { return tasks.begin()->first.first; }

    bool mayGoOn(char const* call) const
    {
        if (!thread.isCurrent(call))
            return false;
        if (pace == Pace::EventLoop)
            qWarning("ZrtClock::%s: Qt's event loop runs the tasks of this clock", call);
        return pace != Pace::EventLoop;
    }
    // Tasks and events that are handled while this waits may go further.
    void goTo(qint64 time)
    {
        if (pace == Pace::RealTime)
            waitFor(sinceStart, time);
        reached = std::max(reached, time);
    }
    void runNext()
    {
        auto const next = tasks.extract(tasks.begin());
        next.mapped()();
    }
    void step()
    {
        goTo(nextDue());
        if (!tasks.empty())
            runNext();
        deliverPostedEvents();
    }

    OwnThread const thread{"ZrtClock"};
    Pace const pace;
    QDateTime const start;
    QElapsedTimer sinceStart;
    qint64 reached = 0;
    quint64 planned = 0;
    std::map<std::pair<qint64, quint64>, std::function<void()>> tasks;
};

namespace
{

/// Has Qt's event loop run the next task when its time has come. Each task has a timer of its own, and each
/// timer runs the task that is next when it fires.
template <class Clock> void runFromEventLoop(std::weak_ptr<Clock> const& clock, qint64 left)
{
    auto const interval = static_cast<int>(std::clamp<qint64>(left, 0, std::numeric_limits<int>::max()));
    QTimer::singleShot(std::chrono::milliseconds(interval), Qt::PreciseTimer, [clock] {
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

qint64 ZrtClock::now() const
{
    return m_d->thread.isCurrent("now") ? m_d->now() : 0;
}

QDateTime ZrtClock::date() const
{
    return m_d->start.addMSecs(now());
}

bool ZrtClock::after(qint64 delay, std::function<void()> task)
{
    if (!m_d->thread.isCurrent("after"))
        return false;
    if (!task) {
        qWarning("ZrtClock::after: the task is null");
        return false;
    }
    qint64 const due = m_d->nowPlus(delay);
    m_d->tasks.emplace(std::pair(due, ++m_d->planned), std::move(task));
    if (m_d->pace == Pace::EventLoop)
        runFromEventLoop(std::weak_ptr(m_d), due - m_d->now());
    return true;
}

std::optional<qint64> ZrtClock::nextDue() const
{
    bool const isKnown = m_d->thread.isCurrent("nextDue") && !m_d->tasks.empty();
    return isKnown ? std::optional(m_d->nextDue()) : std::nullopt;
}

bool ZrtClock::step()
{
    auto const d = m_d; // a task may destroy this clock
    if (!d->mayGoOn("step") || d->tasks.empty())
        return false;
    d->step();
    return true;
}

bool ZrtClock::advance(qint64 duration)
{
    auto const d = m_d;
    if (!d->mayGoOn("advance"))
        return false;
    if (duration < 0) {
        qWarning("ZrtClock::advance: time does not go back");
        return false;
    }
    qint64 const end = d->nowPlus(duration);
    while (!d->tasks.empty() && d->nextDue() <= end)
        d->step();
    d->goTo(end);
    return true;
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
    if (problem) {
        qWarning("ZrtClock::moveTo: %s", problem);
        return false;
    }
    m_d->reached = time;
    return true;
}
