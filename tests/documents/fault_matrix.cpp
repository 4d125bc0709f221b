// Writes the tables of docs/faults.md: what becomes of each command when one of its instructions meets each
// fault.
//
//   fault_matrix PLUGIN_FILE BACKUP_FILE
//
// The plugin is loaded and works as in the workplace, on simulated time; nothing of what it does is known
// here. A run without a fault tells which instructions there are and what is in their replies.

#include "host/log_tap.h"
#include "host/order.h"
#include "host/plugin_library.h"
#include "host/run_event.h"
#include "host/tool.h"
#include "host/workstation.h"
#include "host/zrt_device.h"
#include "log_lines/find_log_lines.h"

#include <files/variant_json.h>
#include <plugin_management/d_abstract_plugin.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QTextStream>

#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

namespace
{

constexpr int c_hold = 3500;   // how much later a reply comes that others overtake
constexpr int c_away = 2000;   // how long a controller is away that comes back
constexpr int c_stop = 10'000; // when a listening command is stopped
constexpr int c_pulls[] = {1000, 3000};
constexpr int c_shown = 24; // a longer value is shown once, and has a number elsewhere

/// An instruction of a run, with all that is needed to meet it again in another run.
struct Sent
{
    QString name;
    QString arguments;
    int nth = 0; // of its name
    QStringList replyKeys;
    int replies = 0;
    int step = 0; // the place among the steps of the run
};

/// What became of an order.
struct Course
{
    QList<Sent> sent;
    QStringList steps; // what was sent and withdrawn
    QList<std::pair<QString, QString>> results;
    QStringList log;
    QString end;
};

struct Fault
{
    enum Kind
    {
        None,
        OfTheController, // one that it can be set up with
        HeldBack,        // the first reply comes behind others
        FirstSpoiled,    // the first reply of several lacks a key
        GoneBefore,      // nobody is there to take the instruction
        GoneBeforeAndBack,
        GoneAfter, // the instruction arrives, and then nobody is there
        GoneAfterAndBack,
    };

    QString name;
    Kind kind = None;
    ZrtFault::Kind kindThere = ZrtFault::Delay;
    QString key;
    Sent instruction;
};

QString code(QString const& text)
{
    return QLatin1Char('`') + text + QLatin1Char('`');
}

QString withArguments(QString const& name, QString const& arguments)
{
    return code(arguments == QLatin1String("{}") ? name : name + QLatin1Char(' ') + arguments);
}

/// The way to a controller, on which something befalls the first reply to one instruction.
class Detour final : public Endpoint
{
public:
    using Deed = std::function<void(QVariantMap const& reply, Reply const& onReply)>;

    /// @p deed  is done instead of handing that reply on; empty for none
    Detour(Endpoint& controller, Sent instruction, Deed deed)
        : m_controller(controller)
        , m_instruction(std::move(instruction))
        , m_deed(std::move(deed))
    {}

    bool isConnected() const override { return m_controller.isConnected(); }
    void withdraw(quint64 id) override { m_controller.withdraw(id); }
    void post(quint64 id, QString const& instruction, QVariantMap const& arguments, Reply onReply) override
    {
        if (!m_deed || instruction != m_instruction.name || ++m_count != m_instruction.nth) {
            m_controller.post(id, instruction, arguments, std::move(onReply));
            return;
        }
        m_controller.post(id, instruction, arguments, [this, onReply](QVariantMap const& reply) {
            if (auto const deed = std::exchange(m_deed, nullptr))
                deed(reply, onReply);
            else
                onReply(reply);
        });
    }

private:
    Endpoint& m_controller;
    Sent const m_instruction;
    Deed m_deed;
    int m_count = 0;
};

/// An order of one command, from its start until nothing happens any more.
class Run
{
public:
    Run(IPlugin const& plugin, QString command, QString const& backup, Fault fault)
        : m_command(std::move(command))
        , m_fault(std::move(fault))
        , m_device(ZrtSimulatedController::create({state(), {}, true, faults()}, m_clock))
        , m_detour(m_device, m_fault.instruction, onTheWay())
    {
        m_events.listen([this](qint64 time, RunEvent const& event) {
            std::visit([this, time](auto const& one) { note(time, one); }, event);
        });
        LogTap const tap(m_events);
        m_workstation.connectEndpoint(QStringLiteral("device"), m_detour);
        Tool tool(plugin, QUuid(), m_workstation);
        for (int const pull : c_pulls)
            m_clock.after(pull, [this] { m_device.controller().pullTrigger(); });
        Order const& order = tool.order(m_command, parameters(backup));
        QString const stop = order.command().stopCommandName();
        if (!stop.isEmpty())
            m_clock.after(c_stop, [&tool, stop] { tool.stop(stop); });
        while (m_clock.step()) {
        }
        if (!order.isOver())
            throw std::runtime_error("an order is never over: " + m_command.toStdString());
        if (m_dropped > 0)
            m_course.end += QStringLiteral("; replies dropped: %1").arg(m_dropped);
    }

    Course const& course() const { return m_course; }

private:
    ZrtState state() const
    {
        ZrtState state;
        state.presets.insert(3, {});
        // Who only listens finds the tool free; the others start as a tool is left by who was there before.
        state.lock = m_command == QLatin1String("startListening") ? ZrtState::Free : ZrtState::AllLocked;
        return state;
    }

    QList<ZrtFault> faults() const
    {
        if (m_fault.kind != Fault::OfTheController)
            return {};
        ZrtFault fault;
        fault.kind = m_fault.kindThere;
        fault.instruction = m_fault.instruction.name;
        fault.nth = m_fault.instruction.nth;
        fault.delay = fault.kind == ZrtFault::Late ? 5000 : 0;
        fault.key = m_fault.key;
        return {fault};
    }

    Detour::Deed onTheWay()
    {
        if (m_fault.kind == Fault::HeldBack)
            return [this](QVariantMap const& reply, Endpoint::Reply const& onReply) {
                m_clock.after(c_hold, [onReply, reply] { onReply(reply); });
            };
        if (m_fault.kind == Fault::FirstSpoiled)
            return [this](QVariantMap reply, Endpoint::Reply const& onReply) {
                reply.remove(m_fault.key);
                onReply(reply);
            };
        return {};
    }

    static QVariantMap parameters(QString const& backup)
    {
        return {{QStringLiteral("name"), QStringLiteral("left bench")},
                {QStringLiteral("serialNumber"), QStringLiteral("SN-7")},
                {QStringLiteral("validityDate"), QStringLiteral("2027-01-31")},
                {QStringLiteral("program"), 3},
                {QStringLiteral("prog"), 3},
                {QStringLiteral("filePath"), backup},
                {QStringLiteral("startPreset"), 1},
                {QStringLiteral("endPreset"), 3}};
    }

    void note(qint64 /*time*/, InstructionPosted const& event)
    {
        QVariantMap arguments = event.content.arguments;
        if (arguments.contains(QStringLiteral("filePath")))
            arguments.insert(QStringLiteral("filePath"), QStringLiteral("..."));
        Sent sent;
        sent.name = event.content.name;
        sent.arguments = toText(arguments);
        sent.nth = 1
                   + static_cast<int>(std::count_if(m_course.sent.cbegin(), m_course.sent.cend(),
                                                    [&](auto const& one) { return one.name == sent.name; }));
        sent.step = m_course.steps.size();
        m_course.steps += withArguments(sent.name, sent.arguments);
        m_numbers.insert(event.instruction, m_course.sent.size());
        m_course.sent += sent;
        if (sent.name == m_fault.instruction.name && sent.nth == m_fault.instruction.nth)
            meet();
    }
    void note(qint64 /*time*/, InstructionFailed const& event)
    {
        m_course.steps[sent(event.instruction).step] += QStringLiteral(" (not delivered)");
    }
    void note(qint64 /*time*/, InstructionWithdrawn const& event)
    {
        m_course.steps += QStringLiteral("withdraws ") + code(sent(event.instruction).name);
    }
    void note(qint64 /*time*/, ReplyArrived const& event)
    {
        auto& answered = sent(event.instruction);
        answered.replyKeys = event.reply.keys();
        ++answered.replies;
    }
    void note(qint64 /*time*/, ReplyDropped const& /*event*/) { ++m_dropped; }
    void note(qint64 /*time*/, ResultUpdated const& event)
    {
        m_course.results += {event.key, toText(event.value)};
    }
    void note(qint64 time, OrderFinished const& event)
    {
        if (!event.success)
            m_course.end = QStringLiteral("FAILED after %1 ms: %2").arg(time).arg(event.message);
        else if (m_stopped)
            m_course.end = QStringLiteral("done, when stopped");
        else
            m_course.end = QStringLiteral("done after %1 ms").arg(time);
    }
    void note(qint64 /*time*/, StopOrdered const& /*event*/) { m_stopped = true; }
    void note(qint64 /*time*/, LogWritten const& event)
    {
        QStringList pieces = withoutPlaces(event.text).trimmed().split(QStringLiteral(";\t"));
        for (auto& piece : pieces)
            piece = piece.trimmed();
        // Date, thread and object say nothing here, nor does a line that is only the place in the file.
        if (pieces.size() == 6)
            pieces = QStringList{QFileInfo(pieces[3]).fileName(), pieces[4], pieces[5]};
        pieces.removeOne(QStringLiteral(".."));
        m_course.log += code(event.level + QStringLiteral(": ") + pieces.join(QStringLiteral("; ")));
    }
    template <class Event> void note(qint64 /*time*/, Event const& /*event*/) {}

    /// The instruction that meets the fault is about to leave.
    void meet()
    {
        switch (m_fault.kind) {
        case Fault::GoneBefore:
            m_device.controller().setConnected(false);
            break;
        case Fault::GoneBeforeAndBack:
            m_device.controller().setConnected(false);
            m_clock.after(c_away, [this] { m_device.controller().setConnected(true); });
            break;
        case Fault::GoneAfter:
            m_clock.after(1, [this] { m_device.controller().setConnected(false); });
            break;
        case Fault::GoneAfterAndBack:
            m_clock.after(1, [this] { m_device.controller().setConnected(false); });
            m_clock.after(c_away, [this] { m_device.controller().setConnected(true); });
            break;
        default:
            break;
        }
    }

    Sent& sent(quint64 instruction)
    {
        if (!m_numbers.contains(instruction))
            throw std::runtime_error("an instruction that was never posted");
        return m_course.sent[m_numbers[instruction]];
    }

    QString const m_command;
    Fault const m_fault;
    Course m_course;
    QMap<quint64, int> m_numbers;
    int m_dropped = 0;
    bool m_stopped = false;

    ZrtClock m_clock{ZrtClock::Pace::Simulated};
    RunEvents m_events{m_clock};
    Workstation m_workstation{m_clock, m_events};
    ZrtDevice m_device;
    Detour m_detour;
};

QList<Fault> faultsOf(Sent const& instruction)
{
    QList<Fault> faults;
    auto const there = [&](QString const& name, ZrtFault::Kind kind, QString const& key = {}) {
        faults += Fault{name, Fault::OfTheController, kind, key, instruction};
    };
    auto const onTheWay = [&](QString const& name, Fault::Kind kind, QString const& key = {}) {
        faults += Fault{name, kind, ZrtFault::Delay, key, instruction};
    };
    there(QStringLiteral("lost"), ZrtFault::Loss);
    there(QStringLiteral("late"), ZrtFault::Late);
    there(QStringLiteral("twice"), ZrtFault::Duplicate);
    onTheWay(QStringLiteral("out of order"), Fault::HeldBack);
    for (auto const& key : instruction.replyKeys)
        there(QStringLiteral("missing ") + code(key), ZrtFault::MissingKey, key);
    if (instruction.replies > 1) {
        for (auto const& key : instruction.replyKeys)
            onTheWay(QStringLiteral("missing %1 at first").arg(code(key)), Fault::FirstSpoiled, key);
    }
    for (auto const& key : instruction.replyKeys)
        there(QStringLiteral("wrong type of ") + code(key), ZrtFault::WrongType, key);
    there(QStringLiteral("refused"), ZrtFault::Refused);
    onTheWay(QStringLiteral("gone before"), Fault::GoneBefore);
    there(QStringLiteral("gone with it"), ZrtFault::Disconnected);
    onTheWay(QStringLiteral("gone after"), Fault::GoneAfter);
    onTheWay(QStringLiteral("gone before, and back"), Fault::GoneBeforeAndBack);
    onTheWay(QStringLiteral("gone after, and back"), Fault::GoneAfterAndBack);
    return faults;
}

/// The section of one command.
class Section
{
public:
    Section(IPlugin const& plugin, QString command, QString backup)
        : m_plugin(plugin)
        , m_command(std::move(command))
        , m_backup(std::move(backup))
        , m_usual(Run(m_plugin, m_command, m_backup, Fault()).course())
    {}

    void write(QTextStream& out) const
    {
        out << "## " << m_command << "\n\nWithout a fault it sends "
            << m_usual.steps.join(QStringLiteral(", ")) << ", publishes "
            << (m_usual.results.isEmpty() ? QStringLiteral("nothing") : resultsOf(m_usual)) << ", and is "
            << m_usual.end << ".\n\n";
        QString values;
        int number = 0;
        for (auto const& [key, value] : m_usual.results) {
            ++number;
            if (value.size() > c_shown)
                values += QStringLiteral("- %1: %2\n").arg(numbered(code(key), number), code(value));
        }
        out << (values.isEmpty() ? values : values + QLatin1Char('\n'));
        out << "| instruction | fault | results | log lines | sent afterwards | the order |\n"
               "|---|---|---|---|---|---|\n";
        for (auto const& instruction : m_usual.sent) {
            auto const faults = faultsOf(instruction);
            for (auto const& fault : faults)
                writeRow(out, fault);
        }
        out << '\n';
    }

private:
    static QString numbered(QString const& what, int number)
    {
        return QStringLiteral("%1 (%2)").arg(what).arg(number);
    }

    /// As much of an instruction as tells it from the others.
    QString nameOf(Sent const& instruction) const
    {
        int sameName = 0;
        int same = 0;
        int number = 0;
        for (auto const& one : m_usual.sent) {
            bool const isSame = one.name == instruction.name && one.arguments == instruction.arguments;
            sameName += one.name == instruction.name ? 1 : 0;
            same += isSame ? 1 : 0;
            number += isSame && one.step <= instruction.step ? 1 : 0;
        }
        if (sameName == 1)
            return code(instruction.name);
        QString const name = withArguments(instruction.name, instruction.arguments);
        return same == 1 ? name : numbered(name, number);
    }

    QString resultsOf(Course const& course) const
    {
        QStringList results;
        for (auto const& result : course.results) {
            auto const usual = m_usual.results.indexOf(result);
            results += result.second.size() > c_shown && usual >= 0
                           ? numbered(code(result.first), static_cast<int>(usual) + 1)
                           : code(result.first + QStringLiteral(" = ") + result.second);
        }
        return results.join(QStringLiteral(", "));
    }

    /// Each line once, with how often it was written.
    static QString logOf(Course const& course)
    {
        QStringList lines = course.log;
        lines.removeDuplicates();
        for (auto& line : lines) {
            auto const count = course.log.count(line);
            if (count > 1)
                line.prepend(QStringLiteral("%1 times ").arg(count));
        }
        return lines.join(QStringLiteral(", "));
    }

    static QString orNone(QString const& text) { return text.isEmpty() ? QStringLiteral("none") : text; }

    void writeRow(QTextStream& out, Fault const& fault) const
    {
        Course const course = Run(m_plugin, m_command, m_backup, fault).course();
        QString const asUsual = QStringLiteral("as usual");
        int const step = fault.instruction.step;
        QStringList const usualSteps = m_usual.steps.mid(step + 1);
        QStringList steps = course.steps.mid(step + 1);
        if (course.steps[step] != m_usual.steps[step])
            steps.prepend(QStringLiteral("not delivered itself"));
        out << "| " << nameOf(fault.instruction) << " | " << fault.name << " | "
            << (course.results == m_usual.results ? asUsual : orNone(resultsOf(course))) << " | "
            << orNone(logOf(course)) << " | "
            << (steps == usualSteps ? asUsual : orNone(steps.join(QStringLiteral(", ")))) << " | "
            << course.end << " |\n";
    }

    IPlugin const& m_plugin;
    QString const m_command;
    QString const m_backup;
    Course const m_usual;
};

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication const application(argc, argv);
    QStringList const arguments = QCoreApplication::arguments();
    if (arguments.size() != 3)
        return 2;
    PluginLibrary library(arguments[1]);
    // The order of the catalogue.
    std::unique_ptr<IPlugin> const instance(library.plugin().createInstance(QUuid()));
    auto& plugin = dynamic_cast<DAbstractPlugin&>(*instance);
    plugin.initPluginCommands();
    QTextStream out(stdout);
    out.setCodec("UTF-8");
    auto const commands = plugin.commandNames();
    for (auto const& command : commands)
        Section(plugin, command, arguments[2]).write(out);
    return 0;
}
