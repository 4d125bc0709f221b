#include "trace_reader.h"

#include "event_json.h"

#include <files/input_error.h>
#include <files/json_input.h>

#include <QFileInfo>

namespace
{

// Of a file of another kind it is told that it is no trace rather than what is wrong with its JSON.
bool isBeginning(QByteArray const& text)
{
    try {
        auto const json = JsonInput::fromText(QString(), text);
        QLatin1String const event(c_eventKey);
        return json.has(event) && json.at(event).toText() == QLatin1String(RunStarted::c_kind.name);
    } catch (InputError const&) {
        return false;
    }
}

} // namespace

TraceReader::TraceReader(QString const& fileName) : m_fileName(fileName), m_file(fileName)
{
    if (QFileInfo const info(fileName); info.exists() && !info.isFile())
        throw InputError(QStringLiteral("%1: must be a regular file, for it is read twice").arg(fileName));
    if (!m_file.open(QIODevice::ReadOnly))
        throw InputError(QStringLiteral("%1: %2").arg(fileName, m_file.errorString()));
}

std::optional<TraceEntry> TraceReader::next()
{
    QByteArray text = m_file.readLine(JsonInput::c_maximalSize + 2); // a byte more than the longest line
    if (m_file.error() != QFileDevice::NoError)
        throw InputError(QStringLiteral("%1: %2").arg(m_fileName, m_file.errorString()));
    if (text.isEmpty()) {
        if (!m_isOver)
            fail(qMax(m_line, 1), m_line == 0 ? QStringLiteral("this is no trace, it is empty")
                                              : QStringLiteral("the trace is cut off behind this line"));
        return std::nullopt;
    }
    ++m_line;
    if (text.size() > JsonInput::c_maximalSize)
        fail(m_line, QStringLiteral("longer than %1 MiB").arg(JsonInput::c_maximalSize >> 20));
    if (!text.endsWith('\n'))
        fail(m_line, QStringLiteral("the trace is cut off in this line"));
    text.chop(1);
    if (m_line == 1 && !isBeginning(text))
        fail(m_line, QStringLiteral("this is no trace, it does not start with \"begin\""));
    auto const [time, event] = toEvent(JsonInput::fromText(m_fileName, text, m_line));
    TraceEntry const entry{m_line, time, event};
    checkOrder(entry);
    m_time = entry.time;
    m_isOver = std::holds_alternative<RunFinished>(entry.event);
    return entry;
}

void TraceReader::checkOrder(TraceEntry const& entry) const
{
    if (std::holds_alternative<RunStarted>(entry.event) && m_line != 1)
        fail(m_line, QStringLiteral("\"begin\" stands on the first line alone"));
    if (m_isOver)
        fail(m_line, QStringLiteral("nothing stands behind \"end\""));
    if (entry.time < m_time)
        fail(m_line, QStringLiteral("the time goes back, from %1 to %2").arg(m_time).arg(entry.time));
}

int TraceReader::progress() const
{
    constexpr qint64 percent = 100;
    return static_cast<int>(m_file.pos() * percent / qMax<qint64>(m_file.size(), 1));
}

void TraceReader::fail(int line, QString const& what) const
{
    throw InputError(QStringLiteral("%1:%2: %3").arg(m_fileName, QString::number(line), what));
}
