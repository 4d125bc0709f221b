#pragma once

#include "host/run_event.h"

#include <files/atomic_file.h>

#include <QString>

/// Writes every event of a run into a file, one JSON object a line.
///
/// A regular file appears under its name only when it is complete (close()); until then, and if anything goes
/// wrong, a file that was there before stays as it was. Devices and pipes are written directly.
class TraceFile
{
public:
    /// InputError if the file cannot be opened.
    explicit TraceFile(QString const& fileName);

    void write(qint64 time, RunEvent const& event);
    /// InputError if not everything could be written; then no trace is left behind.
    void close();

private:
    QString const m_fileName;
    AtomicFile m_file;
};
