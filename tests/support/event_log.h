#pragma once

#include "host/run_event.h"
#include "literals.h"
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
    QStringList of(QString const& kind) const { return lines.filter("\"event\":\"%1\""_s.arg(kind)); }

    QStringList lines;
};
