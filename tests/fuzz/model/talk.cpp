#include "talk.h"

#include "literals.h"

#include "variants.h"

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_plugin.h>
#include <plugin_management/d_order.h>

#include <QPointer>

#include <optional>
#include <utility>

namespace
{

ExpectedCommand::Declared declarationOf(ICommand const& command)
{
    auto const arguments = command.commandArguments();
    ExpectedCommand::Declared declared{command.stopCommandName(), {}, {}};
    for (auto const& parameter : arguments.parameters)
        declared.defaults.insert(parameter.key, parameter.defaultValue);
    for (auto const& result : arguments.results)
        declared.results.insert(result.key, result.defaultValue);
    return declared;
}

} // namespace

TalkHost::TalkHost(std::function<void(QString const& what)> complain)
    : m_complain(std::move(complain))
    , m_formerHandler(qInstallMessageHandler(hear))
{
    s_current = this;
}

TalkHost::~TalkHost()
{
    qInstallMessageHandler(m_formerHandler);
    s_current = nullptr;
}

void TalkHost::hear(QtMsgType type, QMessageLogContext const& /*context*/, QString const& text)
{
    if (type == QtDebugMsg) // a trace
        return;
    auto* const heard = s_current->m_heard;
    auto const error = type == QtCriticalMsg ? LoggedError::fromText(text) : std::nullopt;
    if (!heard)
        s_current->m_complain("nobody asked for this line: "_s + text);
    else if (error && error->className == s_current->m_className)
        heard->add(*error);
    else if (type == QtInfoMsg)
        heard->addInfo(text.trimmed());
    else
        heard->addWrong("another line: "_s + text);
}

/// An order that writes down what its command does.
class Talk::Order : public DOrder
{
public:
    Order(TalkHost& host, Effects& effects) : DOrder(1), m_host(host), m_effects(effects) {}

protected:
    quint64 instructionPosted(DInstruction const& instruction) override
    {
        if (instruction.target != QLatin1String("device"))
            m_effects.addWrong("an instruction to "_s + instruction.target);
        if (instruction.timeAllowance != c_timeAllowance)
            m_effects.addWrong("a time allowance of %1"_s.arg(instruction.timeAllowance));
        m_effects.add(Post{++m_host.m_lastId, instruction.name, instruction.arguments});
        return m_host.m_lastId;
    }
    void instructionWithdrawn(quint64 id) override { m_effects.addWithdrawn(id); }
    void resultUpdated(QString const& key, QVariant const& value) override
    {
        m_effects.addResult(key, value);
    }
    void replyDropped(quint64 id) override { m_effects.addDropped(id); }
    void commandFinished(bool success, QString const& message) override
    {
        if (success && !message.isEmpty())
            m_effects.addWrong("succeeded, but "_s + message);
        m_effects.addToldEnd(success);
    }

private:
    TalkHost& m_host;
    Effects& m_effects;
};

Talk::Talk(TalkHost& host, DAbstractPlugin const& tool, QString const& name,
           QMap<QString, QVariant> const& parameters)
    : m_host(host)
    , m_name(name)
    , m_command(tool.commandPrototype(name)->createCommand(parameters))
    , m_object(dynamic_cast<DAbstractCommand*>(m_command.data()))
    , m_expected(ExpectedCommand::make(name, declarationOf(*m_command), parameters, host.m_lastExpectedId))
{
    check(m_object && m_object->parent() == &tool, "has no parent"_s);
    QObject::connect(m_object, &DAbstractCommand::sigCommandFinished, m_object,
                     [this](bool success) { m_effects.addEnd(success); });
    giveOrder();
}

Talk::~Talk() = default;

void Talk::giveOrder()
{
    m_orders.push_back(std::make_unique<Order>(m_host, m_effects));
    m_order = m_orders.back().get();
    m_command->linkWithItsOrder(m_order);
    m_expected->setLinked(true);
}

void Talk::takeOrder()
{
    m_command->linkWithItsOrder(nullptr);
    m_order = nullptr;
    m_expected->setLinked(false);
}

void Talk::destroyOrders()
{
    m_orders.clear();
    m_order = nullptr;
    m_expected->setLinked(false);
}

void Talk::execute()
{
    call([this] { return m_order ? m_order->execute(*m_command) : m_command->commandExecute(); },
         [this] { return m_expected->execute(); });
}

void Talk::finish(bool success)
{
    bool flag = success;
    call([&] { return m_command->finishTheCommand(flag); }, [&] { return m_expected->finish(success); });
    check(flag == (success && m_effects.answer), "sets another success flag"_s);
}

void Talk::reply(quint64 id, QMap<QString, QVariant> const& reply)
{
    call([&] { return m_command->setReply(id, reply); }, [&] { return m_expected->reply(id, reply); });
}

void Talk::release()
{
    QPointer<QObject> const object = m_object;
    m_effects = {};
    m_command.reset();
    check(object.isNull(), "outlives its last holder"_s);
    m_object = nullptr;
}

void Talk::allowancePassed(quint64 id)
{
    throughOrder([id](DOrder& order) { order.allowancePassed(id); },
                 [this, id] { return m_expected->allowancePassed(id); });
}

void Talk::instructionFailed(quint64 id)
{
    throughOrder([id](DOrder& order) { order.instructionFailed(id, "gone"_s); },
                 [this, id] { return m_expected->instructionFailed(id); });
}

void Talk::check(bool isSo, QString const& otherwise) const
{
    if (!isSo)
        complain(otherwise);
}

void Talk::complain(QString const& what) const
{
    m_host.m_complain("\"%1\" %2"_s.arg(m_name, what));
}

template <class Do, class Expect> void Talk::throughOrder(Do const& doIt, Expect const& expect)
{
    if (!isAlive()) {
        // An order whose command is gone has nobody to tell.
        m_effects = {};
        for (auto const& order : m_orders) {
            doIt(*order);
            check(!order->awaitsReplies(), "is gone, and awaited"_s);
        }
        if (!m_effects.kinds.isEmpty())
            complain("is gone, but does"_s + shown(m_effects));
        return;
    }
    call(
        [this, &doIt] {
            if (m_order)
                doIt(*m_order);
            return false;
        },
        expect);
}

/// Calls the command, and compares what comes of it with what ought to.
template <class Do, class Expect> void Talk::call(Do const& doIt, Expect const& expect)
{
    m_effects = {};
    m_host.m_heard = &m_effects;
    m_host.m_className = QLatin1String(m_object->metaObject()->className());
    m_effects.answer = doIt();
    m_host.m_heard = nullptr;
    Effects const should = expect();
    if (!areSame(m_effects, should))
        check(false, "does"_s + shown(m_effects) + "\n   and not"_s + shown(should));
    auto const& results = m_expected->results();
    for (auto it = results.cbegin(); it != results.cend(); ++it) {
        if (!isSame(m_object->result(it.key()), *it))
            complain("keeps another "_s + it.key());
    }
    check(!m_order || m_order->awaitsReplies() == !awaited().isEmpty(), "waits for other replies"_s);
}
