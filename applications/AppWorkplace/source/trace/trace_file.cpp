#include "trace_file.h"

#include "event_json.h"

#include <files/input_error.h>

TraceFile::TraceFile(QString const& fileName) : m_fileName(fileName), m_file(fileName)
{
    if (!m_file.open())
        throw InputError(QStringLiteral("%1: %2").arg(m_fileName, m_file.problem()));
}

void TraceFile::write(qint64 time, RunEvent const& event)
{
    // The run goes on when the disk is full; close() reports it.
    m_file.write(toLine(toJson(time, event)));
}

void TraceFile::close()
{
    if (!m_file.commit())
        throw InputError(
            QStringLiteral("%1: the trace could not be written: %2").arg(m_fileName, m_file.problem()));
}
