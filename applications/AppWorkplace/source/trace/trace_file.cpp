#include "trace_file.h"

#include "event_json.h"
#include "json/input_error.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace
{

std::unique_ptr<QFileDevice> makeFile(QString const& fileName)
{
    QFileInfo const info(fileName);
    if (info.exists() && !info.isFile() && !info.isDir())
        return std::make_unique<QFile>(fileName);
    return std::make_unique<QSaveFile>(fileName);
}

} // namespace

TraceFile::TraceFile(QString const& fileName) : m_fileName(fileName), m_file(makeFile(fileName))
{
    if (!m_file->open(QIODevice::WriteOnly))
        throw InputError(QStringLiteral("%1: %2").arg(m_fileName, m_file->errorString()));
}

TraceFile::~TraceFile() = default;

void TraceFile::write(qint64 time, RunEvent const& event)
{
    // The run goes on when the disk is full; close() reports it.
    if (m_file->error() == QFileDevice::NoError)
        m_file->write(toLine(toJson(time, event)));
}

void TraceFile::close()
{
    bool isWhole = m_file->error() == QFileDevice::NoError && m_file->flush();
    // A disk that fills up takes a part first; it says why only when it is asked for the rest.
    if (!isWhole)
        m_file->flush();
    QString const reason = m_file->errorString();
    auto* const saved = qobject_cast<QSaveFile*>(m_file.get());
    if (isWhole && (!saved || saved->commit()))
        return;
    if (saved && !isWhole)
        saved->cancelWriting();
    throw InputError(QStringLiteral("%1: the trace could not be written: %2")
                         .arg(m_fileName, isWhole ? m_file->errorString() : reason));
}
