#include "complaint.h"
#include "event_log.h"
#include "literals.h"
#include "scratch_folder.h"
#include "scripted_endpoint.h"
#include "scripted_plugin.h"

#include "host/log_tap.h"
#include "host/order.h"
#include "host/tool.h"
#include "host/workstation.h"
#include "trace/event_json.h"
#include "trace/replay.h"
#include "trace/trace_file.h"

#include <zrt_controller/zrt_simulated_controller.h>

#include <QtTest>

namespace
{

QString const c_device = "device"_s;
QDateTime const c_start(QDate(2026, 3, 9), QTime(7, 5), Qt::UTC);

/// A command that posts these instructions and publishes "n" of each reply.
CommandScript posting(char const* name, QList<DInstruction> const& instructions)
{
    CommandScript script;
    script.name = QString::fromLatin1(name);
    script.parameters = {{"count"_s, "ui16"_s, {}, 0}};
    script.results = {{"n"_s, "int"_s, {}, -1}};
    script.execute = [instructions](ScriptedCommand& command) {
        for (auto const& one : instructions)
            command.post(one.target, one.name, one.arguments, one.timeAllowance);
        return true;
    };
    script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
        return command.publish("n"_s, reply.value("n"_s));
    };
    return script;
}

DInstruction instruction(char const* name, QVariantMap const& arguments = {}, int timeAllowance = 4000)
{
    return {c_device, QString::fromLatin1(name), arguments, timeAllowance};
}

CommandScript shot()
{
    CommandScript script = posting("shot", {});
    script.execute = [](ScriptedCommand& command) {
        command.post(c_device, "go"_s, {{"c"_s, command.parameter("count"_s)}});
        return true;
    };
    return script;
}

CommandScript pair()
{
    return posting("pair", {instruction("first"), instruction("second")});
}

/// Listens. Locks when it ends, and tells it.
CommandScript keeper(char const* name = "keep")
{
    CommandScript script = posting(name, {instruction("go")});
    script.stopName = "halt"_s;
    script.onFinish = [](ScriptedCommand& command) {
        qCritical("locks");
        command.post(c_device, "lock"_s);
        return command.finish(true);
    };
    return script;
}

QList<CommandScript> commands()
{
    CommandScript listener = posting("listen", {instruction("go")});
    listener.stopName = "halt"_s;
    return {shot(), pair(), posting("twice", {instruction("go"), instruction("go")}), listener, keeper()};
}

/// The commands, one of them changed.
QList<CommandScript> commandsWith(CommandScript const& changed)
{
    auto all = commands();
    for (auto& command : all) {
        if (command.name == changed.name)
            command = changed;
    }
    return all;
}

/// A workstation with a scripted tool.
struct Bench
{
    explicit Bench(QList<CommandScript> scripts)
        : clock(c_start)
        , plugin(std::move(scripts))
        , tool(plugin, QUuid(), workstation)
    {}

    ZrtClock clock;
    RunEvents events{clock};
    Workstation workstation{clock, events};
    ScriptedEndpoint endpoint{clock};
    ScriptedPlugin plugin;
    Tool tool;
};

/// Does one thing after the other: "order shot; until 10".
void perform(Bench& bench, char const* actions)
{
    auto const all = QString::fromLatin1(actions).split("; "_s);
    for (auto const& action : all) {
        QString const verb = action.section(QLatin1Char(' '), 0, 0);
        QString const rest = action.section(QLatin1Char(' '), 1);
        if (verb == "order"_s) {
            bench.tool.order(rest, {{"count"_s, 7U}});
        } else if (verb == "stop"_s) {
            bench.tool.stop("halt"_s);
        } else if (verb == "stopAll"_s) {
            bench.tool.stopAll();
        } else if (verb == "release"_s) {
            bench.tool.releaseOrders();
        } else if (verb == "until"_s) { // what is due at that time has not happened yet
            while (bench.clock.nextDue().value_or(rest.toInt()) < rest.toInt())
                bench.clock.step();
            bench.clock.moveTo(rest.toInt());
        } else if (verb == "step"_s) {
            bench.clock.step();
        } else if (verb == "replies"_s) { // come so long after each instruction
            bench.endpoint.replyTimes.clear();
            for (auto const& time : rest.split(QLatin1Char(' '), Qt::SkipEmptyParts))
                bench.endpoint.replyTimes += time.toInt();
        } else if (verb == "unplug"_s) {
            bench.endpoint.connected = false;
        } else if (verb == "warn"_s) {
            qWarning("%s", qPrintable(rest));
        } else if (verb == "people"_s) { // what they and the sequence do is nothing to a replay
            bench.events.publish(PersonActed{"pulls the trigger"_s, {}});
            bench.events.publish(WaitFailed{"too late"_s});
            bench.events.publish(ExpectationMissed{1, "n"_s, 1, 2});
        } else {
            qFatal("cannot do \"%s\"", qPrintable(action));
        }
    }
}

/// A trace, and what comes of it when other commands do the same.
class Recording
{
public:
    Recording(QList<CommandScript> const& scripts, char const* actions)
    {
        Bench bench(scripts);
        TraceFile trace(m_fileName);
        bench.events.listen([&trace](qint64 time, RunEvent const& event) { trace.write(time, event); });
        bench.workstation.connectEndpoint(c_device, bench.endpoint);
        LogTap const tap(bench.events);
        bench.events.publish(RunStarted{"Scripted"_s, "0"_s, {}, bench.clock.date()});
        perform(bench, actions);
        bench.events.publish(RunFinished{0, 0, 0, 0});
        trace.close();
    }

    /// The steps that differ, "LINE: recorded | replayed" or "LINE: problem"; then how many steps there were.
    QStringList replay(QList<CommandScript> const& scripts) const
    {
        Bench bench(scripts);
        LogTap const tap(bench.events);
        Replay replay(bench.tool, bench.workstation, bench.clock, bench.events, {c_device});
        TraceReader trace(m_fileName);
        QStringList told;
        int steps = 0;
        for (; auto const step = replay.next(trace); ++steps) {
            if (!step->isSame())
                told += "%1: %2"_s.arg(QString::number(step->cause.line),
                                       step->problem.isEmpty() ? difference(*step) : step->problem);
            qWarning("between two steps, which is nobody's affair");
        }
        return told << "%1 steps"_s.arg(steps) + (bench.tool.hasOrders() ? ", orders are left"_s : QString());
    }

    /// Takes events of a kind out of the trace.
    void remove(char const* kind) const
    {
        QByteArrayList lines = contentOf(m_fileName).split('\n');
        auto const isOfKind = [kind](QByteArray const& line) { return line.contains(kind); };
        lines.erase(std::remove_if(lines.begin(), lines.end(), isOfKind), lines.end());
        m_folder.write("trace"_s, lines.join('\n'));
    }

private:
    static QString difference(ReplayStep const& step)
    {
        auto const linesOf = [](std::vector<ReplayStep::Outcome> const& outcomes) {
            QStringList lines;
            for (auto const& outcome : outcomes)
                lines += brief(outcome.time, outcome.event);
            return lines;
        };
        QStringList recorded = linesOf(step.recorded);
        QStringList replayed = linesOf(step.replayed);
        for (auto const& line : linesOf(step.recorded)) {
            if (replayed.removeOne(line))
                recorded.removeOne(line);
        }
        return recorded.join(", "_s) + " | "_s + replayed.join(", "_s);
    }

    ScratchFolder m_folder;
    QString const m_fileName = m_folder.filePath("trace"_s);
};

} // namespace

Q_DECLARE_METATYPE(QList<CommandScript>)

/// A recorded conversation, held again with the same plugin and with another one.
class TestReplay : public QObject
{
    Q_OBJECT

private slots:
    void same_data()
    {
        QTest::addColumn<QByteArray>("actions");
        QTest::addColumn<int>("steps");
        auto const row = [](char const* name, int steps, char const* actions) {
            QTest::newRow(name) << QByteArray(actions) << steps;
        };
        row("nothing", 1, "people; until 10");
        row("reply", 3, "order shot; until 10");
        row("two instructions, two orders", 8, "order pair; order shot; until 10; order shot; until 20");
        row("the same instruction twice", 4, "order twice; until 10");
        row("lost reply", 2, "replies; order shot; until 5000");
        row("late reply", 3, "replies 4100; order shot; until 5000");
        row("late reply to a released order", 3, "replies 4100; order shot; until 4050; release; until 5000");
        row("reply exactly in time", 3, "replies 4000; order shot; until 5000");
        row("reply twice", 4, "replies 5 5; order shot; until 10");
        row("listens, is stopped", 5, "replies 5 4500; order listen; until 4600; stop; until 4700");
        row("ends with everything, is answered after", 5,
            "replies 7; order keep; until 1; stopAll; until 20");
        row("not connected", 4, "order shot; unplug; until 1; order shot; until 10");
        row("not connected, listens", 3, "unplug; order listen; until 5000; stop");
        row("withdraws", 7, "order listen; order pair; stop; until 10");
        // At one time, in both orders.
        row("allowance passes before the next order", 4,
            "replies; order shot; until 4000; step; replies 5; order shot; until 5000");
        row("allowance passes after the next order", 4,
            "replies; order shot; until 4000; replies 5; order shot; step; until 5000");
        // What a listener does not hear of its allowance makes no difference, whichever comes first.
        row("listener's allowance passes before it ends", 3,
            "replies; order keep; until 4000; step; stop; until 9000");
        row("listener's allowance passes after it ends", 3,
            "replies; order keep; until 4000; stop; until 9000");
        row("learns that nobody is there before it ends", 3, "unplug; order listen; step; stop; until 5000");
        row("learns that nobody is there after it ends", 3, "unplug; order listen; stop; until 5000");
    }

    void same()
    {
        QFETCH(QByteArray, actions);
        QFETCH(int, steps);
        Recording const recording(commands(), actions.constData());
        QCOMPARE(recording.replay(commands()), QStringList{"%1 steps"_s.arg(steps)});
    }

    void other_data()
    {
        QTest::addColumn<QList<CommandScript>>("scripts");
        QTest::addColumn<QStringList>("differences");
        // The record: "pair" on line 2, its replies on lines 5 and 7, then "keep" on line 10.
        auto const row = [](char const* name, CommandScript const& changed, QStringList const& differences,
                            char const* end = "6 steps") {
            QTest::newRow(name) << commandsWith(changed)
                                << differences + QStringList{QString::fromLatin1(end)};
        };
        DInstruction const first = instruction("first");
        DInstruction const second = instruction("second");
        row("argument", posting("pair", {instruction("first", {{"a"_s, 1}}), second}),
            {R"(2: 0 instruction 1 1 device first {} 4000 | 0 instruction 1 1 device first {"a":1} 4000)"_s});
        row("time allowance", posting("pair", {instruction("first", {}, 3000), second}),
            {"2: 0 instruction 1 1 device first {} 4000 | 0 instruction 1 1 device first {} 3000"_s});
        row("the same in another order", posting("pair", {second, first}), {"2:  | "_s});
        // What is missing or too much is told once, and does not shift what follows.
        row("not sent", posting("pair", {second}),
            {"2: 0 instruction 1 1 device first {} 4000 | "_s,
             "5: nobody waits for this reply: the instruction was not sent"_s});
        row("sent too much", posting("pair", {instruction("more"), first, second}),
            {"2:  | 0 instruction 1 0 device more {} 4000"_s, "7: 5 finished 1 pair true | "_s,
             "12:  | 4000 withdrawn 1 0, 4000 finished 1 pair false no reply to \"more\" within 4000 ms"_s});
        CommandScript changed = pair();
        changed.onReply = [](ScriptedCommand& command, QVariantMap const& /*reply*/) {
            return command.publish("n"_s, 0U);
        };
        row("type of a result", changed,
            {R"(5: 5 result 1 n 0 | 5 result 1 n {"@type":"uint","@value":0})"_s,
             R"(7: 5 result 1 n 0 | 5 result 1 n {"@type":"uint","@value":0})"_s});
        changed.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
            qWarning("odd");
            command.publish("n"_s, reply.value("n"_s));
            return false;
        };
        row("refused and logged", changed,
            {"5:  | 5 log warning odd"_s,
             "7: 5 finished 1 pair true | "
             "5 log warning odd, 5 finished 1 pair false the reply to \"first\" was not accepted"_s});
        auto const toWithdraw = QSharedPointer<quint64>::create();
        changed.execute = [toWithdraw](ScriptedCommand& command) {
            command.post(c_device, "first"_s);
            *toWithdraw = command.post(c_device, "second"_s);
            return true;
        };
        changed.onReply = [toWithdraw](ScriptedCommand& command, QVariantMap const& reply) {
            command.withdraw(*toWithdraw);
            return command.publish("n"_s, reply.value("n"_s));
        };
        row("withdrawn", changed,
            {"5:  | 5 withdrawn 1 2, 5 finished 1 pair true"_s,
             "7: 5 result 1 n 0, 5 finished 1 pair true | 5 dropped 1 2"_s});
        changed = keeper();
        changed.onFinish = [](ScriptedCommand& command) { return command.finish(true); };
        row("log line and last instruction", changed,
            {"12: 8 log critical locks, 8 instruction 2 4 device lock {} 4000, 4008 withdrawn 2 4 | "_s});
        changed = keeper();
        changed.stopName = "end"_s;
        row("another stop name", changed,
            {"12: 8 log critical locks, 8 instruction 2 4 device lock {} 4000, 8 finished 2 keep true, "
             "4007 withdrawn 2 3, 4008 withdrawn 2 4 | "_s},
            "6 steps, orders are left");
    }

    void other()
    {
        QFETCH(QList<CommandScript>, scripts);
        QFETCH(QStringList, differences);
        Recording const recording(commands(),
                                  "order pair; until 7; replies; order keep; until 8; stop; until 4100");
        QCOMPARE(recording.replay(scripts), differences);
    }

    // Two orders that end together post the same instruction; the first does not any more.
    void instructionsOfSeveralOrders()
    {
        Recording const recording({keeper(), keeper("keep_too")}, "order keep; order keep_too; stopAll");
        CommandScript changed = keeper();
        changed.onFinish = [](ScriptedCommand& command) { return command.finish(true); };
        QCOMPARE(recording.replay({changed, keeper("keep_too")}),
                 QStringList({"6: 0 instruction 1 3 device lock {} 4000, 0 log critical locks | "_s,
                              "4 steps, orders are left"_s}));
    }

    void sameStep()
    {
        ReplayStep::Outcome const result{5, ResultUpdated{1, "n"_s, 0}};
        ReplayStep step{{1, 0, AllStopped{1}}, {result}, {result}, {}};
        QVERIFY(step.isSame());
        step.replayed[0].time = 6;
        QVERIFY(!step.isSame());
        step.replayed = {};
        QVERIFY(!step.isSame());
        step.replayed = {result, result};
        QVERIFY(!step.isSame());
        // Even a reply of which nothing came is to be given.
        step.replayed = {result};
        step.problem = "cannot be given"_s;
        QVERIFY(!step.isSame());
    }

    void debugLinesDoNotCount()
    {
        CommandScript chatty = shot();
        chatty.execute = [](ScriptedCommand& command) {
            qDebug("about to post");
            return shot().execute(command);
        };
        QCOMPARE(Recording({chatty}, "order shot; until 10").replay({shot()}), QStringList{"3 steps"_s});
        QCOMPARE(Recording({shot()}, "order shot; until 10").replay({chatty}), QStringList{"3 steps"_s});
    }

    void loggedAtTheBeginning()
    {
        Recording const recording({shot()}, "warn before all; order shot");
        QCOMPARE(recording.replay({shot()}),
                 QStringList({"1: 0 log warning before all | "_s, "2 steps, orders are left"_s}));
    }

    // At the time of the end as well, everything that comes counts.
    void differenceAtTheEnd()
    {
        Recording const recording({shot()}, "replies; order shot; until 4000; step");
        recording.remove("withdrawn");
        recording.remove("finished");
        QCOMPARE(recording.replay({shot()}),
                 QStringList({"2:  | 4000 withdrawn 1 1, "
                              "4000 finished 1 shot false no reply to \"go\" within 4000 ms"_s,
                              "2 steps"_s}));
    }

    void check_data()
    {
        QTest::addColumn<QByteArrayList>("lines"); // from line 2 on
        QTest::addColumn<QString>("complaint");
        auto const row = [](char const* name, QByteArrayList const& lines, char const* complaint) {
            QTest::newRow(name) << lines << QString::fromUtf8(complaint);
        };
        auto const line = [](RunEvent const& event) { return toLine(toJson(0, event)); };
        auto const order = [&line](quint64 id, char const* command = "shot") {
            return line(OrderStarted{id, QString::fromLatin1(command), {}});
        };
        auto const posted = [&line](quint64 id, quint64 orderId) {
            return line(InstructionPosted{orderId, id, instruction("go")});
        };
        auto const reply = [&line](quint64 id, quint64 orderId) {
            return line(ReplyArrived{orderId, id, {}});
        };
        row("right", {order(1), posted(1, 1), order(2), posted(2, 2), reply(1, 1), reply(2, 2), reply(1, 1)},
            "");
        row("unknown command", {order(1, "walk")}, ":2: the plugin has no command \"walk\"");
        row("order with another number", {order(2)}, ":2: order 2 stands where order 1 should");
        row("instruction 0", {order(1), posted(0, 1)}, ":3: instruction 0 stands where instruction 1 should");
        row("instruction twice", {order(1), posted(1, 1), posted(1, 1)},
            ":4: instruction 1 stands where instruction 2 should");
        row("instruction of order 0", {order(1), posted(1, 0)}, ":3: there is no order 0");
        row("instruction of an order to come", {order(1), posted(1, 2), order(2)}, ":3: there is no order 2");
        row("reply before its instruction", {order(1), reply(1, 1), posted(1, 1)},
            ":3: order 1 has no instruction 1");
        row("reply to instruction 0", {order(1), posted(1, 1), reply(0, 0)},
            ":4: order 0 has no instruction 0");
        row("reply for another order", {order(1), order(2), posted(1, 1), reply(1, 2)},
            ":5: order 2 has no instruction 1");
        row("withdrawn without an instruction", {order(1), line(InstructionWithdrawn{1, 1})},
            ":3: order 1 has no instruction 1");
    }

    void check()
    {
        QFETCH(QByteArrayList, lines);
        QFETCH(QString, complaint);
        ScratchFolder const folder;
        lines.prepend(toLine(toJson(0, RunStarted{"P"_s, "1"_s, {}, c_start})));
        lines += toLine(toJson(0, RunFinished{0, 0, 0, 0}));
        QString const fileName = folder.write("trace"_s, lines.join());
        Bench bench(commands());
        TraceSummary told;
        QString const heard = complaintOf([&] { told = checkTrace(fileName, bench.tool); });
        QCOMPARE(heard, complaint.isEmpty() ? "no complaint"_s : fileName + complaint);
        if (complaint.isEmpty()) {
            QCOMPARE(told.begin.plugin, "P"_s);
            QCOMPARE(told.targets, QStringList{c_device});
        }
    }
};

QTEST_GUILESS_MAIN(TestReplay)
#include "tst_replay.moc"
