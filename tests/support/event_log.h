#pragma once

#include "host/run_event.h"
#include "trace/event_json.h"

#include <QString>
#include <QStringList>

/// Writes down the events of a run, each as its line of a trace.
class EventLog
{
public:
    explicit EventLog(RunEvents& events)
    {
        events.listen([this](qint64 time, RunEvent const& event) {
            lines += QString::fromUtf8(toLine(toJson(time, event))).trimmed();
        });
    }
    EventLog(EventLog const&) = delete;
    EventLog& operator=(EventLog const&) = delete;

    /// The lines of events of one kind.
    QStringList of(QString const& kind) const
    {
        return lines.filter(QStringLiteral("\"event\":\"%1\"").arg(kind));
    }

    QStringList lines;
};
