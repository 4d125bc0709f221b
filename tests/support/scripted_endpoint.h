#pragma once

#include "host/endpoint.h"
#include "literals.h"

#include <files/variant_json.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <utility>

/// An endpoint that answers each instruction as many times, and as late, as it is told: {"n": 0}, {"n": 1}, …
/// It writes down what it gets, and goes on replying whatever is withdrawn.
class ScriptedEndpoint : public Endpoint
{
public:
    explicit ScriptedEndpoint(ZrtClock& clock, QList<qint64> times = {5})
        : replyTimes(std::move(times))
        , m_clock(clock)
    {}

    void post(quint64 id, QString const& instruction, QVariantMap const& arguments, Reply onReply) override
    {
        got += "%1 %2 %3"_s.arg(QString::number(id), instruction, toText(arguments));
        int n = 0;
        for (qint64 const time : qAsConst(replyTimes)) {
            QVariantMap const reply = {{"n"_s, n++}};
            m_clock.after(time, [onReply, reply] { onReply(reply); });
        }
    }

    bool isConnected() const override { return connected; }
    void withdraw(quint64 id) override { got += "withdrawn %1"_s.arg(id); }

    QList<qint64> replyTimes;
    bool connected = true;
    QStringList got; ///< "1 setLock {"lock":1}", "withdrawn 1"

private:
    ZrtClock& m_clock;
};
