#pragma once

#include <QDateTime>
#include <QElapsedTimer>

#include <functional>
#include <map>
#include <optional>
#include <utility>

/// The one source of time. Everything that takes time is a task planned here; tasks run one after the other,
/// in the order of their times and, at the same time, of their planning.
///
/// Both paces give the same times and the same order; they differ in whether anybody waits.
class Clock
{
public:
    enum class Pace
    {
        Simulated, ///< as fast as possible, and starting at the same date in every run
        RealTime,  ///< a task runs when its time has come, meanwhile Qt's events are handled
    };

    explicit Clock(Pace pace);
    /// Simulated, starting at this date.
    explicit Clock(QDateTime start);

    /// Milliseconds since the start.
    qint64 now() const { return m_now; }
    QDateTime date() const { return m_start.addMSecs(m_now); }
    Pace pace() const { return m_pace; }

    /// Plans @p task for @p delay milliseconds from now.
    void after(qint64 delay, std::function<void()> task);

    /// Goes to the time of the next task and runs it; false when none is planned.
    bool step();
    /// When the next task is planned.
    std::optional<qint64> nextDue() const;
    /// Goes to a time that no task is planned before.
    void moveTo(qint64 time);

private:
    Pace const m_pace;
    QDateTime const m_start;
    QElapsedTimer m_sinceStart;
    qint64 m_now = 0;
    quint64 m_planned = 0;
    std::map<std::pair<qint64, quint64>, std::function<void()>> m_tasks;
};
