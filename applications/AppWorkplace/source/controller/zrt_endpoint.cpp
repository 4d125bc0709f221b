#include "zrt_endpoint.h"

#include "host/clock.h"

#include <utility>

ZrtEndpoint::ZrtEndpoint(ZrtController& controller, int replyTime, Clock& clock)
    : m_controller(controller)
    , m_replyTime(replyTime)
    , m_clock(clock)
{}

void ZrtEndpoint::post(QString const& instruction, QVariantMap const& arguments, Reply onReply)
{
    QVariantMap const reply = m_controller.execute(instruction, arguments);
    m_clock.after(m_replyTime, [onReply = std::move(onReply), reply] { onReply(reply); });
}
