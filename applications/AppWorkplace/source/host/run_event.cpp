#include "run_event.h"

#include <files/object_format.h>
#include <zrt_controller/zrt_simulated_controller.h>

namespace
{

struct LogLevel
{
    QtMsgType value = QtDebugMsg;
    char const* name = "";
    char const* meaning = "";
};

constexpr LogLevel c_levels[] = {
    {QtDebugMsg, "debug"},       {QtInfoMsg, "info"},   {QtWarningMsg, "warning"},
    {QtCriticalMsg, "critical"}, {QtFatalMsg, "fatal"},
};

auto levels()
{
    return format::OneOf("level", c_levels);
}

} // namespace

void TraceFormat::read(JsonInput const& input, int& value) const
{
    qint64 const read = input.toInteger(1, std::numeric_limits<qint64>::max());
    if (read > c_current)
        input.fail(
            QStringLiteral("this trace has format %1, from a newer version; this version reads format %2")
                .arg(read)
                .arg(c_current));
    value = static_cast<int>(read);
}

format::Json TraceFormat::write(int value) const
{
    return value;
}

format::Json TraceFormat::schema() const
{
    return {{"const", c_current}};
}

void LogLevelFormat::read(JsonInput const& input, QtMsgType& level) const
{
    levels().read(input, level);
}

format::Json LogLevelFormat::write(QtMsgType level) const
{
    return levels().write(level);
}

format::Json LogLevelFormat::schema() const
{
    return levels().schema();
}

QString nameOf(QtMsgType level)
{
    return QString::fromLatin1(levels().find(level)->name);
}

EventKind const& kindOf(RunEvent const& event)
{
    return std::visit([](auto const& one) -> EventKind const& { return one.c_kind; }, event);
}

void RunEvents::publish(RunEvent const& event) const
{
    for (auto const& listener : m_listeners)
        listener(m_clock.now(), event);
}
