#pragma once

#include "host/run_event.h"

#include <QFile>
#include <QString>

#include <optional>

/// An event of a trace, and on which line it stands.
struct TraceEntry
{
    int line;
    qint64 time;
    RunEvent event;
};

/// Reads a trace, one event after the other. Whatever is not as TraceFile writes it is an InputError that
/// names the file and the line: no trace at all, one of a newer format, one that is cut off.
class TraceReader
{
public:
    explicit TraceReader(QString const& fileName);

    /// The next event; nothing behind the last one.
    std::optional<TraceEntry> next();
    /// How much of the file has been read, in percent.
    int progress() const;

    [[noreturn]] void fail(int line, QString const& what) const;

private:
    void checkOrder(TraceEntry const& entry) const;

    QString const m_fileName;
    QFile m_file;
    int m_line = 0;
    qint64 m_time = 0;
    bool m_isOver = false;
};
