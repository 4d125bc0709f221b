#pragma once

#include <plugin_management/d_order.h>
#include <plugin_management/i_command.h>

#include <QSharedPointer>
#include <QString>
#include <QVariant>

class Workstation;

/// An order under way: a working command and what has become of it. Made by Tool::order().
class Order final : public DOrder
{
public:
    enum class State
    {
        Running,
        Succeeded,
        Failed,
    };

    Order(quint64 id, QSharedPointer<ICommand> command, Workstation& workstation);

    ICommand& command() const { return *m_command; }
    State state() const { return m_state; }
    /// Why the order failed, in words for the operator.
    QString message() const { return m_message; }
    /// The declared results with their present values.
    QVariantMap results() const { return m_results; }
    /// Whether the order has ended and nothing is under way for it any more.
    bool isOver() const { return m_state != State::Running && !awaitsReplies(); }

    void start();
    /// Gives up an order whose command does not end.
    void abandon(QString const& why) { commandFinished(false, why); }
    /// Ends a listening command.
    void stop();

protected:
    quint64 instructionPosted(DInstruction const& instruction) override;
    void instructionWithdrawn(quint64 instructionId) override;
    void resultUpdated(QString const& key, QVariant const& value) override;
    void replyDropped(quint64 instructionId) override;
    void commandFinished(bool success, QString const& message) override;

private:
    Workstation& m_workstation;
    QSharedPointer<ICommand> const m_command;
    State m_state = State::Running;
    QString m_message;
    QVariantMap m_results;
};
