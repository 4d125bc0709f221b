#pragma once

#include "host/endpoint.h"
#include "zrt_controller.h"

class Clock;

/// The way to a simulated controller: instructions reach it at once, its replies take their time.
class ZrtEndpoint final : public Endpoint
{
public:
    /// @param replyTime  milliseconds from an instruction to its reply
    ZrtEndpoint(ZrtController& controller, int replyTime, Clock& clock);

    void post(QString const& instruction, QVariantMap const& arguments, Reply onReply) override;

private:
    ZrtController& m_controller;
    int const m_replyTime;
    Clock& m_clock;
};
