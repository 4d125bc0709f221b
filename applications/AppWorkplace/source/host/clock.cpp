#include "clock.h"

#include <QCoreApplication>
#include <QEvent>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <chrono>

namespace
{

QDateTime startOf(Clock::Pace pace)
{
    // A simulated run must not differ from the next one, so it does not ask what day it is.
    return pace == Clock::Pace::RealTime ? QDateTime::currentDateTime()
                                         : QDateTime(QDate(2000, 1, 1), QTime(0, 0), Qt::UTC);
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

Clock::Clock(Pace pace) : m_pace(pace), m_start(startOf(pace))
{
    m_sinceStart.start();
}

Clock::Clock(QDateTime start) : m_pace(Pace::Simulated), m_start(std::move(start)) {}

void Clock::after(qint64 delay, std::function<void()> task)
{
    m_tasks.emplace(std::pair(m_now + std::max<qint64>(delay, 0), ++m_planned), std::move(task));
}

bool Clock::step()
{
    if (m_tasks.empty())
        return false;
    auto const next = m_tasks.extract(m_tasks.begin());
    qint64 const due = next.key().first;
    if (m_pace == Pace::RealTime)
        waitFor(m_sinceStart, due);
    m_now = due;
    next.mapped()();
    deliverPostedEvents();
    return true;
}

std::optional<qint64> Clock::nextDue() const
{
    return m_tasks.empty() ? std::nullopt : std::optional(m_tasks.begin()->first.first);
}

void Clock::moveTo(qint64 time)
{
    Q_ASSERT(time >= m_now && time <= nextDue().value_or(time));
    m_now = time;
}
