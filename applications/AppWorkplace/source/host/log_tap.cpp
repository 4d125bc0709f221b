#include "log_tap.h"

#include "run_event.h"

#include <utilities/date_source.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <QRegularExpression>

namespace
{

RunEvents const* s_events = nullptr;

void publish(QtMsgType type, QMessageLogContext const& /*context*/, QString const& text)
{
    static QRegularExpression const address(QStringLiteral("0x[0-9a-f]{6,}"));
    QString stable = text;
    stable.replace(address, QStringLiteral("0x.."));
    s_events->publish(LogWritten{type, stable});
}

} // namespace

LogTap::LogTap(RunEvents const& events)
{
    setDateSource([&events] { return events.clock().date(); });
    s_events = &events;
    m_former = qInstallMessageHandler(publish);
}

LogTap::~LogTap()
{
    qInstallMessageHandler(m_former);
    s_events = nullptr;
    setDateSource({});
}
