#pragma once

#include "loaded_tool.h"

#include <plugin_management/d_abstract_command.h>

/// What an order tells a command of its tool.
inline QVariantMap toolParameters()
{
    return {
        {QStringLiteral("name"), QStringLiteral("left bench")},
        {QStringLiteral("serialNumber"), QStringLiteral("ZRT-2026-0042")},
        {QStringLiteral("validityDate"), QStringLiteral("2027-03-31")},
    };
}

/// An event with this many values, four of them as every controller sends them.
inline QVariantMap eventValues(int count)
{
    QVariantMap values{
        {QStringLiteral("eventCountNo"), 1},
        {QStringLiteral("error"), 0},
        {QStringLiteral("torque"), 252},
        {QStringLiteral("status"), QStringLiteral("OK")},
    };
    for (int i = values.size(); i < count; ++i)
        values.insert(QStringLiteral("reading%1").arg(i, 4, 10, QLatin1Char('0')), i);
    return values;
}

inline QVariantMap eventMessage(int count)
{
    return {{QStringLiteral("values"), eventValues(count)}};
}

/// A tool of the shipped library whose events are listened to; each call is one event that reaches it through
/// its host.
class ListeningTool
{
public:
    explicit ListeningTool(int count) : m_tool(makeTool()), m_message(eventMessage(count))
    {
        m_command =
            m_tool->commandPrototype(QStringLiteral("startListening"))->createCommand(toolParameters());
        m_order = std::make_unique<QuietOrder>();
        m_order->execute(*m_command);
    }
    void operator()() const
    {
        if (!m_command->setReply(m_order->lastInstruction(), m_message))
            qFatal("the event was not taken");
    }

private:
    std::unique_ptr<DAbstractPlugin> m_tool;
    std::unique_ptr<QuietOrder> m_order;
    QSharedPointer<ICommand> m_command;
    QVariantMap m_message;
};
