#pragma once

#include "host/run_event.h"
#include "literals.h"
#include "trace/event_json.h"

#include <QString>
#include <QStringList>

/// An event in few words, its values: "5 finished 1 init true".
inline QString brief(qint64 time, RunEvent const& event)
{
    QStringList words;
    for (auto const& value : toJson(time, event))
        words += QString::fromStdString(value.is_string() ? value.get<std::string>() : value.dump());
    return words.join(QLatin1Char(' '));
}

/// Writes down the events of a run, each in few words.
class EventLog
{
public:
    explicit EventLog(RunEvents& events)
    {
        events.listen([this](qint64 time, RunEvent const& event) { lines += brief(time, event); });
    }
    EventLog(EventLog const&) = delete;
    EventLog& operator=(EventLog const&) = delete;

    QString text() const { return lines.join(QLatin1Char('\n')); }
    /// The lines of events of one kind.
    QStringList of(char const* kind) const
    {
        QStringList found;
        for (auto const& line : lines) {
            if (line.section(QLatin1Char(' '), 1, 1) == QLatin1String(kind))
                found += line;
        }
        return found;
    }

    QStringList lines;
};
