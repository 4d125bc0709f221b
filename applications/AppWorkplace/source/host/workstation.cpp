#include "workstation.h"

#include "order.h"
#include "run_event.h"

#include <zrt_controller/zrt_simulated_controller.h>

#include <QPointer>

Workstation::Workstation(ZrtClock& clock, RunEvents const& events) : m_clock(clock), m_events(events) {}

void Workstation::connectEndpoint(QString const& name, Endpoint& endpoint)
{
    m_endpoints.insert(name, &endpoint);
}

void Workstation::disconnectEndpoint(QString const& name)
{
    m_endpoints.remove(name);
}

quint64 Workstation::carry(Order& order, DInstruction const& instruction)
{
    quint64 const id = ++m_lastInstruction;
    quint64 const orderId = order.id();
    QPointer<Order> const target = &order;
    m_events.publish(InstructionPosted{orderId, id, instruction});

    Endpoint* const endpoint = m_endpoints.value(instruction.target);
    if (!endpoint || !endpoint->isConnected()) {
        QString const reason = QStringLiteral("endpoint \"%1\" is gone").arg(instruction.target);
        // A one-shot command fails for this reason and says so; one that listens goes on.
        m_events.publish(
            InstructionFailed{orderId, id, instruction.name, reason, order.command().isRecurrent()});
        m_undelivered.insert(id);
        m_clock.after(0, [this, target, id, reason] {
            m_undelivered.remove(id);
            if (target)
                target->instructionFailed(id, reason);
        });
        return id;
    }
    endpoint->post(id, instruction.name, instruction.arguments,
                   [this, target, orderId, id](QVariantMap const& reply) {
                       m_events.publish(ReplyArrived{orderId, id, reply});
                       if (target)
                           target->command().setReply(id, reply);
                       else
                           drop(orderId, id);
                   });
    // Planned behind the endpoint's work: a reply that takes exactly the allowance is in time.
    m_clock.after(instruction.timeAllowance, [target, id] {
        if (target)
            target->allowancePassed(id);
    });
    return id;
}

void Workstation::withdraw(quint64 order, quint64 instruction)
{
    if (m_undelivered.contains(instruction))
        return;
    m_events.publish(InstructionWithdrawn{order, instruction});
    for (auto* const endpoint : qAsConst(m_endpoints))
        endpoint->withdraw(instruction);
}

void Workstation::drop(quint64 order, quint64 instruction)
{
    ++m_droppedReplies;
    m_events.publish(ReplyDropped{order, instruction});
}
