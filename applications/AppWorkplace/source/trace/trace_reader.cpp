#include "trace_reader.h"

#include "event_json.h"

#include <files/input_error.h>
#include <files/json_input.h>
#include <files/variant_json.h>

#include <QFileInfo>

#include <limits>
#include <map>
#include <utility>

namespace
{

// Takes the members of an event one by one. Each must be there, and no other may.
class Members
{
public:
    explicit Members(JsonInput json) : m_json(std::move(json)) {}

    QString text(char const* key) { return take(key).toText(); }
    QString textIfAny(char const* key)
    {
        return m_json.has(QString::fromLatin1(key)) ? text(key) : QString();
    }
    bool truth(char const* key) { return take(key).toBool(); }
    QVariant value(char const* key) { return toTypedVariant(take(key)); }
    QVariantMap map(char const* key)
    {
        JsonInput const json = take(key);
        QVariant const value = toTypedVariant(json);
        if (value.type() != QVariant::Map)
            json.fail(QStringLiteral("must be an object"));
        return value.toMap();
    }
    int number(char const* key, int lowest = 0)
    {
        return static_cast<int>(take(key).toInteger(lowest, std::numeric_limits<int>::max()));
    }
    /// Far beyond any run, and far from an overflow.
    qint64 time(char const* key) { return take(key).toInteger(0, qint64(1) << 53); }
    quint64 id(char const* key)
    {
        return static_cast<quint64>(take(key).toInteger(0, std::numeric_limits<qint64>::max()));
    }
    QDateTime date(char const* key)
    {
        JsonInput const json = take(key);
        // As UTC, where no summer time leaves an hour out.
        auto date = QDateTime::fromString(json.toText() + QLatin1Char('Z'), Qt::ISODateWithMs);
        if (!date.isValid() || date.toString(QLatin1String(c_traceDateFormat)) != json.toText())
            json.fail(QStringLiteral("must be a date like 2000-01-01T00:00:00.000"));
        return date;
    }
    JsonInput take(char const* key)
    {
        m_taken += QString::fromLatin1(key);
        return m_json.at(m_taken.last());
    }
    void refuseOthers() const { m_json.allowKeys(m_taken); }

private:
    JsonInput m_json;
    QStringList m_taken;
};

void checkFormat(JsonInput const& json)
{
    qint64 const format = json.toInteger(1, std::numeric_limits<qint64>::max());
    if (format > c_traceFormat)
        json.fail(
            QStringLiteral("this trace has format %1, from a newer version; this version reads format %2")
                .arg(format)
                .arg(c_traceFormat));
}

// The order of the braces is the order of reading.
std::map<QString, RunEvent (*)(Members&)> const& readers()
{
    static std::map<QString, RunEvent (*)(Members&)> const all{
        {QStringLiteral("begin"),
         [](Members& json) -> RunEvent {
             checkFormat(json.take("format"));
             return RunStarted{json.text("plugin"), json.text("version"), json.text("controller"),
                               json.date("start")};
         }},
        {QStringLiteral("order"),
         [](Members& json) -> RunEvent {
             return OrderStarted{json.id("order"), json.text("command"), json.map("parameters")};
         }},
        {QStringLiteral("stop"),
         [](Members& json) -> RunEvent {
             return StopOrdered{json.text("command"), json.number("running")};
         }},
        {QStringLiteral("stopAll"),
         [](Members& json) -> RunEvent { return AllStopped{json.number("running")}; }},
        {QStringLiteral("instruction"),
         [](Members& json) -> RunEvent {
             return InstructionPosted{json.id("order"),
                                      json.id("instruction"),
                                      {json.text("target"), json.text("name"), json.map("arguments"),
                                       json.number("timeAllowance", std::numeric_limits<int>::min())}};
         }},
        {QStringLiteral("notDelivered"),
         [](Members& json) -> RunEvent {
             return InstructionFailed{json.id("order"), json.id("instruction"), json.text("name"),
                                      json.text("reason"), json.truth("goesOn")};
         }},
        {QStringLiteral("withdrawn"),
         [](Members& json) -> RunEvent {
             return InstructionWithdrawn{json.id("order"), json.id("instruction")};
         }},
        {QStringLiteral("reply"),
         [](Members& json) -> RunEvent {
             return ReplyArrived{json.id("order"), json.id("instruction"), json.map("reply")};
         }},
        {QStringLiteral("dropped"),
         [](Members& json) -> RunEvent {
             return ReplyDropped{json.id("order"), json.id("instruction")};
         }},
        {QStringLiteral("result"),
         [](Members& json) -> RunEvent {
             return ResultUpdated{json.id("order"), json.text("key"), json.value("value")};
         }},
        {QStringLiteral("finished"),
         [](Members& json) -> RunEvent {
             return OrderFinished{json.id("order"), json.text("command"), json.truth("success"),
                                  json.textIfAny("message")};
         }},
        {QStringLiteral("person"),
         [](Members& json) -> RunEvent {
             return PersonActed{json.text("action"), json.textIfAny("effect")};
         }},
        {QStringLiteral("waitFailed"),
         [](Members& json) -> RunEvent { return WaitFailed{json.text("message")}; }},
        {QStringLiteral("unexpected"),
         [](Members& json) -> RunEvent {
             return ExpectationMissed{json.id("order"), json.text("key"), json.value("expected"),
                                      json.value("actual")};
         }},
        {QStringLiteral("log"),
         [](Members& json) -> RunEvent {
             return LogWritten{json.text("level"), json.text("text")};
         }},
        {QStringLiteral("end"),
         [](Members& json) -> RunEvent {
             return RunFinished{json.number("done"), json.number("failed"), json.number("notRun"),
                                json.id("droppedReplies")};
         }},
    };
    return all;
}

TraceEntry toEntry(int line, JsonInput const& json)
{
    Members members(json);
    JsonInput const kind = members.take("event");
    auto const reader = readers().find(kind.toText());
    if (reader == readers().end())
        kind.fail(QStringLiteral("unknown event \"%1\"").arg(shown(kind.toText())));
    auto event = reader->second(members); // first of all, for a newer format may have other keys
    TraceEntry entry{line, members.time("time"), std::move(event)};
    members.refuseOthers();
    return entry;
}

// Of a file of another kind it is told that it is no trace rather than what is wrong with its JSON.
bool isBeginning(QByteArray const& text)
{
    try {
        auto const json = JsonInput::fromText(QString(), text);
        QString const event = QStringLiteral("event");
        return json.has(event) && json.at(event).toText() == QLatin1String("begin");
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
    TraceEntry const entry = toEntry(m_line, JsonInput::fromText(m_fileName, text, m_line));
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
