// One event of the controller: how far the listening command is from the least work, and from what
// an integrator would write in a script.

#include "listening_tool.h"
#include "measure.h"

#include <plugin_management/d_abstract_command.h>

#include <QCoreApplication>
#include <QFile>
#include <QJSEngine>

#include <vector>

namespace
{

/// A command that asks its host for what the plugin's asks for, and does nothing with it: what the host
/// costs.
class HostOnlyCommand final : public DAbstractCommand
{
public:
    HostOnlyCommand(QVariantMap const& parameters, QVariant const& published)
        : DAbstractCommand(QStringLiteral("startListening"), QStringLiteral("stopListening"), parameters,
                           nullptr)
        , m_published(published)
    {
        declareAResult(QStringLiteral("eventData"), QStringLiteral("varM"), QString(), QVariant());
    }
    bool commandExecute() override
    {
        return DAbstractCommand::commandExecute()
               && addInstruction(QStringLiteral("device"), QStringLiteral("listenEventsData"), {}, 4000,
                                 OnReply(this, &HostOnlyCommand::onEvent))
                      != 0;
    }
    QSharedPointer<ICommand> createCommand(QVariantMap const& parameters) const override
    {
        return QSharedPointer<HostOnlyCommand>::create(parameters, m_published);
    }

private:
    bool onEvent(quint64 /*instructionId*/, QVariantMap const& /*reply*/)
    {
        QVariant const none;
        benchmark::DoNotOptimize(getParameterValue(QStringLiteral("serialNumber"), none));
        benchmark::DoNotOptimize(getParameterValue(QStringLiteral("validityDate"), none));
        benchmark::DoNotOptimize(getParametersSection(QStringLiteral("name")));
        return commandUpdateResult(QStringLiteral("eventData"), m_published);
    }

    QVariant const m_published;
};

class HostEvent
{
public:
    explicit HostEvent(int count)
        : m_message(eventMessage(count))
        , m_command(std::make_unique<HostOnlyCommand>(toolParameters(), QVariant(m_message)))
        , m_order(std::make_unique<QuietOrder>())
    {
        m_order->execute(*m_command);
    }
    void operator()() const
    {
        if (!m_command->setReply(m_order->lastInstruction(), m_message))
            qFatal("the event was not taken");
    }

private:
    QVariantMap m_message;
    std::unique_ptr<HostOnlyCommand> m_command;
    std::unique_ptr<QuietOrder> m_order;
};

/// The least work: to detach the controller's map, insert three values and make one variant of it,
/// which replaces the former one.
class IrreducibleEvent
{
public:
    explicit IrreducibleEvent(int count) : m_values(eventValues(count)) {}
    void operator()()
    {
        QVariantMap values = m_values;
        values.insert(QStringLiteral("serialNumber"), m_serialNumber);
        values.insert(QStringLiteral("validityDate"), m_validityDate);
        values.insert(QStringLiteral("toolName"), m_toolName);
        m_published = QVariant(values);
    }

private:
    QVariantMap const m_values;
    QVariant const m_serialNumber = toolParameters().value(QStringLiteral("serialNumber"));
    QVariant const m_validityDate = toolParameters().value(QStringLiteral("validityDate"));
    QVariant const m_toolName = toolParameters().value(QStringLiteral("name"));
    QVariant m_published;
};

/// What a host offers to a handler that is written in a script.
class ScriptHost final : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE QVariant parameter(QString const& key) const { return m_parameters.value(key); }
    Q_INVOKABLE bool publish(QString const& /*key*/, QVariantMap const& value)
    {
        m_published = value;
        return true;
    }

private:
    QVariantMap const m_parameters = toolParameters();
    QVariant m_published;
};

/// The same handler as JavaScript in the host's process.
class ScriptEvent
{
public:
    explicit ScriptEvent(int count) : m_engine(std::make_unique<QJSEngine>()), m_message(eventMessage(count))
    {
        QFile source(QStringLiteral(ZRT_EVENT_SCRIPT));
        if (!source.open(QIODevice::ReadOnly))
            qFatal("%s: %s", qPrintable(source.fileName()), qPrintable(source.errorString()));
        m_engine->installExtensions(QJSEngine::ConsoleExtension);
        m_engine->globalObject().setProperty(QStringLiteral("host"), m_engine->newQObject(new ScriptHost));
        m_handler = m_engine->evaluate(QString::fromUtf8(source.readAll()), source.fileName());
    }
    void operator()()
    {
        if (!m_handler.call({m_engine->toScriptValue(m_message)}).toBool())
            qFatal("the script did not take the event");
    }

private:
    std::unique_ptr<QJSEngine> m_engine;
    QVariantMap m_message;
    QJSValue m_handler;
};

constexpr int c_toolRounds = 2000;

/// Events to many tools in turn: what one costs must not depend on how many there are.
class EventAmongTools
{
public:
    explicit EventAmongTools(int tools)
    {
        for (int i = 0; i < tools; ++i)
            m_events.emplace_back(c_eventSize);
        // The first event of each has no former one to replace.
        for (auto const& event : m_events)
            event();
    }
    void operator()()
    {
        m_events[m_next]();
        m_next = m_next + 1 == m_events.size() ? 0 : m_next + 1;
    }

    static constexpr int c_eventSize = 16;

private:
    std::vector<ListeningTool> m_events;
    std::size_t m_next = 0;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication const application(argc, argv);
    for (int const count : {4, 16, 64, 256, 1024}) {
        std::string const event = "event/" + std::to_string(count) + '/';
        measure::add(event + "plugin", [count] { return ListeningTool(count); });
        measure::add(event + "host", [count] { return HostEvent(count); });
        measure::add(event + "baseline", [count] { return IrreducibleEvent(count); });
        measure::add(event + "script", [count] { return ScriptEvent(count); });
    }
    for (int const tools : {1, 10, 100, 1000}) {
        // So many rounds that each tool has its turn, and the allocator's housekeeping its share.
        measure::add(
            "tools/" + std::to_string(tools) + "/plugin", [tools] { return EventAmongTools(tools); },
            c_toolRounds);
    }
    return measure::run(argc, argv);
}

#include "bench_event.moc"
