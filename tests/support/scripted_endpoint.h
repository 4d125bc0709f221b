#pragma once

#include "host/endpoint.h"
#include "literals.h"

#include <zrt_controller/zrt_simulated_controller.h>

#include <QList>
#include <QString>
#include <QVariant>

#include <utility>

/// An endpoint that answers each instruction as many times, and as late, as it is told: {"n": 0}, {"n": 1}, …
/// It writes down what it gets,
/// and goes on replying whatever is withdrawn.
class ScriptedEndpoint : public Endpoint
{
public:
    explicit ScriptedEndpoint(ZrtClock& clock, QList<qint64> times = {5})
        : replyTimes(std::move(times))
        , m_clock(clock)
    {}

    void post(quint64 id, QString const& instruction, QVariantMap const& arguments, Reply onReply) override
    {
        ids.append(id);
        got.append({instruction, arguments});
        int n = 0;
        for (qint64 const time : qAsConst(replyTimes)) {
            QVariantMap const reply = {{"n"_s, n++}};
            m_clock.after(time, [onReply, reply] { onReply(reply); });
        }
    }

    bool isConnected() const override { return connected; }
    void withdraw(quint64 id) override { withdrawn.append(id); }

    QList<qint64> replyTimes;
    bool connected = true;
    QList<quint64> ids;
    QList<quint64> withdrawn;
    QList<QPair<QString, QVariantMap>> got;

private:
    ZrtClock& m_clock;
};
