#pragma once

#include "endpoint.h"

#include <QMap>
#include <QSet>
#include <QString>

class ZrtClock;
class Order;
class RunEvents;
struct DInstruction;

/// Carries instructions from orders to the endpoints they name and the replies back, and keeps their time
/// allowances. It outlives the tools whose orders it serves.
class Workstation
{
public:
    Workstation(ZrtClock& clock, RunEvents const& events);

    RunEvents const& events() const { return m_events; }

    /// Makes @p endpoint reachable under a name; it must outlive the workstation or be disconnected before.
    void connectEndpoint(QString const& name, Endpoint& endpoint);
    void disconnectEndpoint(QString const& name);

    quint64 nextOrderId() { return ++m_lastOrder; }

    /// Sends an instruction of @p order on its way and returns its id. To an endpoint that is not there it
    /// fails, once the order is through with what it is doing.
    quint64 carry(Order& order, DInstruction const& instruction);

    /// Tells the endpoints that no further reply to an instruction is wanted; one that was not delivered has
    /// none.
    void withdraw(quint64 order, quint64 instruction);

    /// Counts a reply that nobody waits for.
    void drop(quint64 order, quint64 instruction);
    quint64 droppedReplies() const { return m_droppedReplies; }

private:
    ZrtClock& m_clock;
    RunEvents const& m_events;
    QMap<QString, Endpoint*> m_endpoints;
    QSet<quint64> m_undelivered; // and their orders do not know yet
    quint64 m_lastOrder = 0;
    quint64 m_lastInstruction = 0;
    quint64 m_droppedReplies = 0;
};
