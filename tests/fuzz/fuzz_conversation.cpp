// Makes a conversation of a host and a controller with the plugin out of any bytes, and holds whatever the
// plugin does against what it promises.

#include "any_value.h"
#include "byte_reader.h"
#include "check.h"
#include "expected_command.h"
#include "literals.h"
#include "p_tool_vesk_zrt.h"
#include "talk.h"

#include <utilities/date_source.h>

#include <QDateTime>
#include <QUuid>

#include <sanitizer/allocator_interface.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace
{

/// A conversation that is longer says nothing new.
constexpr int c_mostSteps = 48;
constexpr std::size_t c_mostCommands = 4;
/// Of so many conversations one is held twice, to see whether the second one leaves something behind.
constexpr unsigned c_heldAgain = 16;

/// What was called in a reply handler since the program started.
quint64 handlerCalls = 0;

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
              [this] { return "%1 objects are left"_s.arg(children() - m_children); });
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
            return replyTo(lastId());
        case 1:
        case 2:
            return replyTo(anyId());
        case 3:
            return withLiving([this](Talk& talk) {
                for (auto const id : talk.awaited())
                    reply(talk, id, anyReply(m_bytes));
            });
        case 4:
            return withLiving([this](Talk& talk) {
                for (auto const id : {lastId(), lastId() - 1})
                    reply(talk, id, m_lastReply);
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
        m_talks.push_back(
            std::make_unique<Talk>(m_host, m_tools.tool((choice & 0x40) != 0), name,
                                   (choice & 0x80) != 0 ? anyMap(m_bytes) : QMap<QString, QVariant>()));
        m_talks.back()->execute();
    }

    void stop()
    {
        QString const name = m_bytes.truth() ? "stopListening"_s : "stopTriggerListening"_s;
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
            reply(**found, id, m_lastReply);
        else
            withLiving([this, id](Talk& talk) { reply(talk, id, m_lastReply); });
    }

    static void reply(Talk& talk, quint64 id, QMap<QString, QVariant> const& reply)
    {
        handlerCalls += talk.awaits(id) ? 1 : 0;
        talk.reply(id, reply);
    }

    quint64 lastId() const { return m_host.lastId(); }
    quint64 anyId() { return lastId() - quint64(m_bytes.below(8)); }
    Talk& anyTalk() { return *m_talks[m_bytes.byte() % m_talks.size()]; }
    template <class Do> void withLiving(Do const& doIt)
    {
        Talk& talk = anyTalk();
        if (talk.isAlive())
            doIt(talk);
    }

    Tools const& m_tools;
    ByteReader& m_bytes;
    TalkHost m_host{complain};
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
    QString const complaint = ExpectedCommand::complaint(tools().names());
    if (!complaint.isEmpty())
        refuseToStart(complaint);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    static auto const installed = [] {
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
        check(after <= before, [&] { return "%1 bytes are kept"_s.arg(after - before); });
    }
    return 0;
}
