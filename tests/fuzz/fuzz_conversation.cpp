// Makes a conversation of a host and a controller with the plugin out of any bytes, and holds whatever the
// plugin does against what it promises.

#include "any_value.h"
#include "byte_reader.h"
#include "check.h"
#include "expected_command.h"
#include "p_tool_vesk_zrt.h"

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_order.h>
#include <utilities/date_source.h>

#include <QDateTime>
#include <QDebug>
#include <QPointer>
#include <QSharedPointer>
#include <QUuid>

#include <sanitizer/allocator_interface.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

namespace
{

/// A conversation that is longer says nothing new.
constexpr int c_mostSteps = 48;
constexpr std::size_t c_mostCommands = 4;
/// Far from the ids that a command without an order gives its instructions.
constexpr quint64 c_firstId = 1000;
constexpr int c_timeAllowance = 4000;
/// Of so many conversations one is held twice, to see whether the second one leaves something behind.
constexpr unsigned c_heldAgain = 16;

/// What was called in a reply handler since the program started.
quint64 handlerCalls = 0;

/// Of the call that is looked at: what comes of it, and of which class whoever complains has to be.
Effects* heard = nullptr;
QByteArray complainingClass;

/// Takes an error line apart; every piece of its prefix has to be there.
ErrorLine parsed(QString const& text)
{
    QString const separator = QStringLiteral(" ;\t ");
    QString const folder = QStringLiteral("./plugins/p_tool_vesk_zrt/source/");
    QStringList pieces;
    int from = 0;
    for (int left = 5; left > 0; --left) {
        int const end = text.indexOf(separator, from);
        check(end >= 0, [&] { return QStringLiteral("no error line: ") + text; });
        pieces += text.mid(from, end - from);
        from = end + separator.size();
    }
    check(pieces[0].startsWith(QLatin1String("\n \"2"))
              && pieces[1].startsWith(QLatin1String("Thread = QThread(0x")) && pieces[3].startsWith(folder),
          [&] { return QStringLiteral("another error line: ") + text; });
    check(pieces[2].startsWith(QLatin1String("This = " + complainingClass + "(0x")),
          [&] { return QStringLiteral("another object complains: ") + text; });
    return {pieces[3].mid(folder.size()), pieces[4].toInt(), text.mid(from).trimmed()};
}

void keepLogLine(QtMsgType type, QMessageLogContext const& /*context*/, QString const& text)
{
    if (type == QtDebugMsg) // a trace
        return;
    check(heard && (type == QtCriticalMsg || type == QtInfoMsg),
          [&] { return QStringLiteral("nobody asked for this line: ") + text; });
    if (type == QtCriticalMsg)
        heard->add(parsed(text));
    else
        heard->addInfo(text.trimmed());
}

/// An order of the fuzzer's host: it writes down what its command does.
class FuzzOrder : public DOrder
{
public:
    FuzzOrder(quint64& lastId, Effects& effects) : DOrder(1), m_lastId(lastId), m_effects(effects) {}

protected:
    quint64 instructionPosted(DInstruction const& instruction) override
    {
        check(instruction.target == QLatin1String("device"),
              [&] { return QStringLiteral("an instruction to ") + instruction.target; });
        check(instruction.timeAllowance == c_timeAllowance,
              [&] { return QStringLiteral("a time allowance of %1").arg(instruction.timeAllowance); });
        m_effects.add(Post{++m_lastId, instruction.name, instruction.arguments});
        return m_lastId;
    }
    void instructionWithdrawn(quint64 id) override { m_effects.addWithdrawn(id); }
    void resultUpdated(QString const& key, QVariant const& value) override
    {
        m_effects.addResult(key, value);
    }
    void replyDropped(quint64 id) override { m_effects.addDropped(id); }
    void commandFinished(bool success, QString const& message) override
    {
        check(!success || message.isEmpty(), [&] { return QStringLiteral("succeeded, but ") + message; });
        m_effects.addToldEnd(success);
    }

private:
    quint64& m_lastId;
    Effects& m_effects;
};

QString shown(Effects const& effects)
{
    QString text;
    QDebug stream(&text);
    stream << "\n   answer" << effects.answer << "kinds, in order" << effects.kinds;
    for (auto const& post : effects.posts)
        stream << "\n   instruction" << post.id << post.name << post.arguments;
    for (auto const& result : effects.results)
        stream << "\n   result" << result.first << result.second;
    for (auto const& error : effects.errors)
        stream << "\n   error" << error.file << error.line << error.message;
    stream << "\n   infos" << effects.infos << "\n   withdrawn" << effects.withdrawn << "dropped"
           << effects.dropped << "ends" << effects.ends << "told" << effects.toldEnds;
    return text;
}

bool areSame(Effects const& did, Effects const& should)
{
    auto const eachSame = [](auto const& a, auto const& b, auto const& same) {
        return a.size() == b.size() && std::equal(a.cbegin(), a.cend(), b.cbegin(), same);
    };
    return did.answer == should.answer && did.kinds == should.kinds && did.infos == should.infos
           && did.withdrawn == should.withdrawn && did.dropped == should.dropped && did.ends == should.ends
           && did.toldEnds == should.toldEnds
           && eachSame(did.posts, should.posts,
                       [](Post const& a, Post const& b) {
                           return a.id == b.id && a.name == b.name && isSame(a.arguments, b.arguments);
                       })
           && eachSame(
               did.results, should.results,
               [](auto const& a, auto const& b) { return a.first == b.first && isSame(a.second, b.second); })
           && eachSame(did.errors, should.errors, [](ErrorLine const& a, ErrorLine const& b) {
                  return a.file == b.file && (b.line == 0 || a.line == b.line) && a.message == b.message;
              });
}

/// A working command between its host and its controller, and beside it what it ought to be.
class Talk
{
public:
    Talk(DAbstractPlugin const& tool, QString const& name, QMap<QString, QVariant> const& parameters,
         quint64& lastId, quint64& lastExpectedId)
        : m_name(name)
        , m_lastId(lastId)
        , m_expected(name, parameters, lastExpectedId)
        , m_command(tool.commandPrototype(name)->createCommand(parameters))
        , m_object(dynamic_cast<DAbstractCommand*>(m_command.data()))
    {
        check(m_object && m_object->parent() == &tool,
              [&] { return name + QStringLiteral(" has no parent"); });
        QObject::connect(m_object, &DAbstractCommand::sigCommandFinished, m_object,
                         [this](bool success) { m_effects.addEnd(success); });
        giveOrder();
    }

    bool isAlive() const { return !m_command.isNull(); }
    QString stopName() const { return m_expected.stopName(); }
    bool isRunning() const { return m_expected.isRunning(); }
    bool awaits(quint64 id) const { return m_expected.awaits(id); }
    QList<quint64> awaited() const { return m_expected.awaited(); }

    /// Links the command to an order of its own, a new one.
    void giveOrder()
    {
        m_orders.push_back(std::make_unique<FuzzOrder>(m_lastId, m_effects));
        m_order = m_orders.back().get();
        m_command->linkWithItsOrder(m_order);
        m_expected.setLinked(true);
    }
    void takeOrder()
    {
        m_command->linkWithItsOrder(nullptr);
        m_order = nullptr;
        m_expected.setLinked(false);
    }

    void execute()
    {
        call([this] { return m_order ? m_order->execute(*m_command) : m_command->commandExecute(); },
             [this] { return m_expected.execute(); });
    }
    void finish(bool success)
    {
        call(
            [this, success] {
                bool flag = success;
                bool const answer = m_command->finishTheCommand(flag);
                check(flag == (success && answer), [] { return QStringLiteral("another success flag"); });
                return answer;
            },
            [this, success] { return m_expected.finish(success); });
    }
    void reply(quint64 id, QMap<QString, QVariant> const& reply)
    {
        handlerCalls += m_expected.awaits(id) ? 1 : 0;
        call([&] { return m_command->setReply(id, reply); }, [&] { return m_expected.reply(id, reply); });
    }
    void allowancePassed(quint64 id)
    {
        throughOrder([id](DOrder& order) { order.allowancePassed(id); },
                     [this, id] { return m_expected.allowancePassed(id); });
    }
    void instructionFailed(quint64 id)
    {
        throughOrder([id](DOrder& order) { order.instructionFailed(id, QStringLiteral("gone")); },
                     [this, id] { return m_expected.instructionFailed(id); });
    }

    void release()
    {
        QPointer<QObject> const object = m_object;
        m_command.reset();
        check(object.isNull(), [this] { return m_name + QStringLiteral(" outlives its last holder"); });
        m_object = nullptr;
    }
    void destroyOrders()
    {
        m_orders.clear();
        m_order = nullptr;
        m_expected.setLinked(false);
    }

private:
    template <class Do, class Expect> void throughOrder(Do const& doIt, Expect const& expect)
    {
        if (!isAlive()) {
            // An order whose command is gone has nobody to tell.
            for (auto const& order : m_orders) {
                doIt(*order);
                check(!order->awaitsReplies(), [] { return QStringLiteral("waits for nobody"); });
            }
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
    template <class Do, class Expect> void call(Do const& doIt, Expect const& expect)
    {
        m_effects = {};
        heard = &m_effects;
        complainingClass = m_expected.className();
        m_effects.answer = doIt();
        heard = nullptr;
        Effects const should = expect();
        check(areSame(m_effects, should), [&] {
            return m_name + QStringLiteral(" does") + shown(m_effects) + QStringLiteral("\n   and not")
                   + shown(should);
        });
        auto const& results = m_expected.results();
        for (auto it = results.cbegin(); it != results.cend(); ++it)
            check(isSame(m_object->result(it.key()), *it),
                  [&] { return m_name + QStringLiteral(" keeps another ") + it.key(); });
        check(!m_order || m_order->awaitsReplies() == m_expected.awaitsReplies(),
              [this] { return m_name + QStringLiteral(" waits for other replies"); });
    }

    QString m_name;
    quint64& m_lastId;
    Effects m_effects;
    ExpectedCommand m_expected;
    std::vector<std::unique_ptr<FuzzOrder>> m_orders;
    FuzzOrder* m_order = nullptr;
    QSharedPointer<ICommand> m_command;
    DAbstractCommand* m_object;
};

/// Two tools, made once: each construction of a plugin object registers QML types, for good.
class Tools
{
public:
    Tools() : m_first(QUuid::createUuid()), m_second(QUuid::createUuid())
    {
        m_first.initPluginCommands();
        m_second.initPluginCommands();
        m_names = m_first.commandNames();
        m_children = children();
    }

    QStringList const& names() const { return m_names; }
    DAbstractPlugin const& tool(bool second) const { return second ? m_second : m_first; }

    void checkForLeftovers() const
    {
        check(children() == m_children,
              [this] { return QStringLiteral("%1 objects are left").arg(children() - m_children); });
    }

private:
    int children() const { return m_first.children().size() + m_second.children().size(); }

    PToolVeskZrt m_first;
    PToolVeskZrt m_second;
    QStringList m_names;
    int m_children = 0;
};

class Conversation
{
public:
    Conversation(Tools const& tools, ByteReader& bytes) : m_tools(tools), m_bytes(bytes) {}

    void hold()
    {
        order();
        for (int left = c_mostSteps; left > 0 && !m_bytes.atEnd(); --left)
            step();
        // A host may let go of an order and its command in either order.
        bool const ordersFirst = m_bytes.truth();
        for (auto const& talk : m_talks) {
            if (ordersFirst)
                talk->destroyOrders();
            if (talk->isAlive())
                talk->release();
        }
    }

private:
    void step()
    {
        switch (m_bytes.below(16)) {
        case 0:
            return replyTo(m_lastId);
        case 1:
        case 2:
            return replyTo(anyId());
        case 3:
            return withLiving([this](Talk& talk) {
                for (auto const id : talk.awaited())
                    talk.reply(id, anyReply(m_bytes));
            });
        case 4:
            return withLiving([this](Talk& talk) {
                for (auto const id : {m_lastId, m_lastId - 1})
                    talk.reply(id, m_lastReply);
            });
        case 5:
            return order();
        case 6:
            return withLiving([this](Talk& talk) { talk.finish(m_bytes.truth()); });
        case 7:
            return stop();
        case 8:
            return anyTalk().allowancePassed(anyId());
        case 9:
            return anyTalk().instructionFailed(anyId());
        case 10:
            return withLiving([](Talk& talk) { talk.execute(); });
        case 11:
            return withLiving([](Talk& talk) {
                talk.giveOrder();
                talk.execute();
            });
        case 12:
            return withLiving([](Talk& talk) {
                talk.takeOrder();
                talk.execute();
            });
        case 13:
            return anyTalk().destroyOrders();
        case 14:
            return withLiving([](Talk& talk) { talk.release(); });
        default:
            // What a command without an order has posted goes by its own numbers.
            return replyTo(quint64(1) + m_bytes.byte() % 8);
        }
    }

    void order()
    {
        auto const& names = m_tools.names();
        int const choice = m_bytes.byte();
        QString const& name = names[choice % names.size()];
        if (m_talks.size() == c_mostCommands)
            m_talks.erase(m_talks.begin());
        m_talks.push_back(std::make_unique<Talk>(
            m_tools.tool((choice & 0x40) != 0), name,
            (choice & 0x80) != 0 ? anyMap(m_bytes) : QMap<QString, QVariant>(), m_lastId, m_lastExpectedId));
        m_talks.back()->execute();
    }

    void stop()
    {
        QString const name =
            m_bytes.truth() ? QStringLiteral("stopListening") : QStringLiteral("stopTriggerListening");
        for (auto const& talk : m_talks) {
            if (talk->isAlive() && talk->isRunning() && talk->stopName() == name)
                talk->finish(true);
        }
    }

    /// To whoever waits for it, or to somebody: a host may be wrong about whose instruction it was.
    void replyTo(quint64 id)
    {
        m_lastReply = anyReply(m_bytes);
        auto const found = std::find_if(m_talks.cbegin(), m_talks.cend(), [id](auto const& talk) {
            return talk->isAlive() && talk->awaits(id);
        });
        if (found != m_talks.cend())
            (*found)->reply(id, m_lastReply);
        else
            withLiving([this, id](Talk& talk) { talk.reply(id, m_lastReply); });
    }

    quint64 anyId() { return m_lastId - quint64(m_bytes.below(8)); }
    Talk& anyTalk() { return *m_talks[m_bytes.byte() % m_talks.size()]; }
    template <class Do> void withLiving(Do const& doIt)
    {
        Talk& talk = anyTalk();
        if (talk.isAlive())
            doIt(talk);
    }

    Tools const& m_tools;
    ByteReader& m_bytes;
    quint64 m_lastId = c_firstId;
    quint64 m_lastExpectedId = c_firstId;
    std::vector<std::unique_ptr<Talk>> m_talks;
    QMap<QString, QVariant> m_lastReply;
};

Tools const& tools()
{
    static Tools const made;
    return made;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    // All of them now: it may take long until an input orders the one that the model does not know.
    for (auto const& name : tools().names())
        ExpectedCommand::checkKnows(name);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    static auto const installed = [] {
        qInstallMessageHandler(keepLogLine);
        // The system's clock takes longer than the rest of a log line.
        setDateSource([] { return QDateTime(QDate(2026, 3, 9), QTime(14, 5), Qt::UTC); });
        std::atexit([] { std::fprintf(stderr, "handler calls: %llu\n", handlerCalls); });
        return true;
    }();
    static_cast<void>(installed);

    auto const hold = [&] {
        ByteReader bytes(data, size);
        Conversation(tools(), bytes).hold();
        tools().checkForLeftovers();
        return __sanitizer_get_current_allocated_bytes();
    };
    std::size_t const before = hold();
    // What is kept and can be reached is no leak, but there is nothing of a conversation that should be kept.
    // The first time something is made that lasts.
    static unsigned conversations = 0;
    if (conversations++ % c_heldAgain == 0) {
        std::size_t const after = hold();
        check(after <= before, [&] { return QStringLiteral("%1 bytes are kept").arg(after - before); });
    }
    return 0;
}
