#include "complaint.h"
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

#include <functional>

namespace
{

QString const c_device = "device"_s;
QVariantMap const c_parameters = {{"count"_s, 7U}};

CommandScript shot()
{
    CommandScript script;
    script.name = "shot"_s;
    script.parameters = {{"count"_s, "ui16"_s, {}, 0}};
    script.results = {{"n"_s, "int"_s, {}, -1}};
    script.execute = [](ScriptedCommand& command) {
        command.post(c_device, "go"_s, {{"c"_s, command.parameter("count"_s)}});
        return true;
    };
    script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
        return command.publish("n"_s, reply.value("n"_s));
    };
    return script;
}

/// Posts two instructions at once.
CommandScript pair()
{
    CommandScript script = shot();
    script.name = "pair"_s;
    script.execute = [](ScriptedCommand& command) {
        command.post(c_device, "first"_s);
        command.post(c_device, "second"_s);
        return true;
    };
    return script;
}

/// Posts the same instruction twice.
CommandScript twice()
{
    CommandScript script = shot();
    script.name = "twice"_s;
    script.execute = [](ScriptedCommand& command) {
        return shot().execute(command) && shot().execute(command);
    };
    return script;
}

CommandScript listener()
{
    CommandScript script = shot();
    script.name = "listen"_s;
    script.stopName = "halt"_s;
    return script;
}

/// Locks when it ends, and tells it.
CommandScript keeper()
{
    CommandScript script = listener();
    script.name = "keep"_s;
    script.onFinish = [](ScriptedCommand& command) {
        qCritical("locks");
        command.post(c_device, "lock"_s);
        return command.finish(true);
    };
    return script;
}

QList<CommandScript> scripts()
{
    return {shot(), pair(), twice(), listener(), keeper()};
}

/// A workstation with a scripted tool; its clock begins when it is told.
struct Bench
{
    explicit Bench(QList<CommandScript> commands,
                   QDateTime const& start = QDateTime(QDate(2026, 3, 9), QTime(7, 5), Qt::UTC))
        : clock(start)
        , plugin(std::move(commands))
        , tool(plugin, QUuid(), workstation)
    {}

    void runUntil(qint64 time)
    {
        while (clock.nextDue().value_or(time) < time)
            clock.step();
        clock.moveTo(time);
    }
    Order& order(char const* name) { return tool.order(QString::fromLatin1(name), c_parameters); }

    ZrtClock clock;
    RunEvents events{clock};
    Workstation workstation{clock, events};
    ScriptedEndpoint endpoint{clock};
    ScriptedPlugin plugin;
    Tool tool;
};

using Action = std::function<void(Bench&)>;

void record(QString const& fileName, QList<CommandScript> const& commands, Action const& action)
{
    Bench bench(commands);
    TraceFile trace(fileName);
    bench.events.listen([&trace](qint64 time, RunEvent const& event) { trace.write(time, event); });
    bench.workstation.connectEndpoint(c_device, bench.endpoint);
    LogTap const tap(bench.events);
    bench.events.publish(RunStarted{"Scripted"_s, "0"_s, {}, bench.clock.date()});
    action(bench);
    bench.events.publish(RunFinished{0, 0, 0, 0});
    trace.close();
}

QStringList linesOf(std::vector<ReplayStep::Outcome> const& outcomes)
{
    QStringList lines;
    for (auto const& outcome : outcomes)
        lines += QString::fromUtf8(toLine(toJson(outcome.time, outcome.event)).trimmed());
    return lines;
}

struct Replayed
{
    int steps = 0;
    /// Of the steps that differ: "LINE: recorded | replayed" or "LINE: problem".
    QStringList differences;
};

Replayed replay(QString const& fileName, QList<CommandScript> const& commands)
{
    Bench bench(commands);
    LogTap const tap(bench.events);
    Replay replay(bench.tool, bench.workstation, bench.clock, bench.events, {c_device, "nowhere"_s});
    TraceReader trace(fileName);
    Replayed result;
    while (auto const step = replay.next(trace)) {
        ++result.steps;
        if (step->isSame())
            continue;
        QStringList const recorded = linesOf(step->recorded);
        QStringList const replayed = linesOf(step->replayed);
        QStringList missing;
        QStringList added;
        for (auto const& line : recorded) {
            if (!replayed.contains(line))
                missing += line;
        }
        for (auto const& line : replayed) {
            if (!recorded.contains(line))
                added += line;
        }
        result.differences += "%1: %2"_s.arg(
            QString::number(step->cause.line),
            step->problem.isEmpty() ? missing.join(QLatin1Char(' ')) + " | "_s + added.join(QLatin1Char(' '))
                                    : step->problem);
    }
    return result;
}

} // namespace

Q_DECLARE_METATYPE(Action)
Q_DECLARE_METATYPE(QList<CommandScript>)

/// A recorded conversation, held again with the same plugin and with another one.
class TestReplay : public QObject
{
    Q_OBJECT

private slots:
    void same_data()
    {
        QTest::addColumn<Action>("action");
        QTest::addColumn<int>("steps");
        auto const row = [](char const* name, int steps, Action const& action) {
            QTest::newRow(name) << action << steps;
        };
        row("nothing", 1, [](Bench& bench) { bench.runUntil(10); });
        row("reply", 3, [](Bench& bench) {
            bench.order("shot");
            bench.runUntil(10);
        });
        row("two instructions, two orders", 8, [](Bench& bench) {
            bench.order("pair");
            bench.order("shot");
            bench.runUntil(10);
            bench.order("shot");
            bench.runUntil(20);
        });
        row("the same instruction twice", 4, [](Bench& bench) {
            bench.order("twice");
            bench.runUntil(10);
        });
        row("lost", 2, [](Bench& bench) {
            bench.endpoint.replyTimes = {};
            bench.order("shot");
            bench.runUntil(5000);
        });
        row("late", 3, [](Bench& bench) {
            bench.endpoint.replyTimes = {4100};
            bench.order("shot");
            bench.runUntil(5000);
        });
        row("late and released", 3, [](Bench& bench) {
            bench.endpoint.replyTimes = {4100};
            bench.order("shot");
            bench.runUntil(4050);
            bench.tool.releaseOrders();
            bench.runUntil(5000);
        });
        row("exactly in time", 3, [](Bench& bench) {
            bench.endpoint.replyTimes = {4000};
            bench.order("shot");
            bench.runUntil(5000);
        });
        row("twice", 4, [](Bench& bench) {
            bench.endpoint.replyTimes = {5, 5};
            bench.order("shot");
            bench.runUntil(10);
        });
        row("listens, is stopped", 5, [](Bench& bench) {
            bench.endpoint.replyTimes = {5, 4500};
            bench.order("listen");
            bench.runUntil(4600);
            bench.tool.stop("halt"_s);
            bench.runUntil(4700);
        });
        row("ends with everything, is answered after", 5, [](Bench& bench) {
            bench.endpoint.replyTimes = {7};
            bench.order("keep");
            bench.runUntil(1);
            bench.tool.stopAll();
            bench.runUntil(20);
        });
        row("not connected", 4, [](Bench& bench) {
            bench.order("shot");
            bench.endpoint.connected = false;
            bench.runUntil(1);
            bench.order("shot");
            bench.runUntil(10);
        });
        row("not connected, listens", 3, [](Bench& bench) {
            bench.endpoint.connected = false;
            bench.order("listen");
            bench.runUntil(5000);
            bench.tool.stop("halt"_s);
        });
        row("no such endpoint", 2, [](Bench& bench) {
            bench.workstation.disconnectEndpoint(c_device);
            bench.order("pair");
            bench.runUntil(10);
        });
        // At one time, in both orders.
        row("allowance passes before the next order", 4, [](Bench& bench) {
            bench.endpoint.replyTimes = {};
            bench.order("shot");
            bench.runUntil(4000);
            bench.clock.step();
            bench.endpoint.replyTimes = {5};
            bench.order("shot");
            bench.runUntil(5000);
        });
        row("allowance passes after the next order", 4, [](Bench& bench) {
            bench.endpoint.replyTimes = {};
            bench.order("shot");
            bench.runUntil(4000);
            bench.endpoint.replyTimes = {5};
            bench.order("shot");
            bench.clock.step();
            bench.runUntil(5000);
        });
        // What a listener does not hear of its allowance makes no difference, whichever comes first.
        for (bool const isFirst : {false, true}) {
            row(isFirst ? "listener's allowance passes before it ends"
                        : "listener's allowance passes after it ends",
                3, [isFirst](Bench& bench) {
                    bench.endpoint.replyTimes = {};
                    bench.order("keep");
                    bench.runUntil(4000);
                    if (isFirst)
                        bench.clock.step();
                    bench.tool.stop("halt"_s);
                    bench.runUntil(9000);
                });
            row(isFirst ? "learns that nobody is there before it ends"
                        : "learns that nobody is there after it ends",
                3, [isFirst](Bench& bench) {
                    bench.endpoint.connected = false;
                    bench.order("listen");
                    if (isFirst)
                        bench.clock.step();
                    bench.tool.stop("halt"_s);
                    bench.runUntil(5000);
                });
        }
        row("withdraws", 4, [](Bench& bench) {
            bench.endpoint.replyTimes = {5};
            bench.order("listen");
            bench.order("pair");
            bench.tool.stop("halt"_s);
            bench.endpoint.replyTimes = {};
        });
        row("what people and the sequence do is nothing to it", 1, [](Bench& bench) {
            bench.events.publish(PersonActed{"pulls the trigger"_s, {}});
            bench.events.publish(WaitFailed{"too late"_s});
            bench.events.publish(ExpectationMissed{1, "n"_s, 1, 2});
        });
    }

    void same()
    {
        QFETCH(Action, action);
        QFETCH(int, steps);
        ScratchFolder const folder;
        QString const fileName = folder.filePath("trace"_s);
        record(fileName, scripts(), action);
        Replayed const replayed = replay(fileName, scripts());
        QCOMPARE(replayed.differences, QStringList());
        QCOMPARE(replayed.steps, steps);
    }

    void other_data()
    {
        QTest::addColumn<QList<CommandScript>>("commands");
        QTest::addColumn<QStringList>("differences");
        // The record: "pair" on line 2, its replies on lines 5 and 7, then "keep" on line 10.
        auto const row = [](char const* name, CommandScript const& changed, QStringList const& differences) {
            auto commands = scripts();
            for (auto& command : commands) {
                if (command.name == changed.name)
                    command = changed;
            }
            QTest::newRow(name) << commands << differences;
        };
        auto const json = [](char const* text) { return QString::fromUtf8(text); };
        QString const unanswered = "nobody waits for this reply: the instruction was not sent"_s;

        CommandScript changed = pair();
        row("nothing", changed, {});
        changed.execute = [](ScriptedCommand& command) {
            command.post(c_device, "first"_s, {{"a"_s, 1}});
            command.post(c_device, "second"_s);
            return true;
        };
        row("argument", changed,
            {json(
                R"(2: {"time":0,"event":"instruction","order":1,"instruction":1,"target":"device","name":"first",)"
                R"("arguments":{},"timeAllowance":4000} | {"time":0,"event":"instruction","order":1,"instruction":1,)"
                R"("target":"device","name":"first","arguments":{"a":1},"timeAllowance":4000})")});
        changed.execute = [](ScriptedCommand& command) {
            command.post(c_device, "first"_s, {}, 3000);
            command.post(c_device, "second"_s);
            return true;
        };
        row("time allowance", changed,
            {json(
                R"(2: {"time":0,"event":"instruction","order":1,"instruction":1,"target":"device","name":"first",)"
                R"("arguments":{},"timeAllowance":4000} | {"time":0,"event":"instruction","order":1,"instruction":1,)"
                R"("target":"device","name":"first","arguments":{},"timeAllowance":3000})")});
        changed.execute = [](ScriptedCommand& command) {
            command.post(c_device, "second"_s);
            command.post(c_device, "first"_s);
            return true;
        };
        row("the other way round", changed, {json("2:  | ")}); // the same lines, in another order
        // What is missing or too much is told once, and does not shift what follows.
        changed.execute = [](ScriptedCommand& command) {
            command.post(c_device, "second"_s);
            return true;
        };
        row("not sent", changed,
            {json(
                 R"(2: {"time":0,"event":"instruction","order":1,"instruction":1,"target":"device","name":"first",)"
                 R"("arguments":{},"timeAllowance":4000} | )"),
             "5: "_s + unanswered});
        changed.execute = [](ScriptedCommand& command) {
            command.post(c_device, "more"_s);
            command.post(c_device, "first"_s);
            command.post(c_device, "second"_s);
            return true;
        };
        row("sent too much", changed,
            {json(R"(2:  | {"time":0,"event":"instruction","order":1,"instruction":0,"target":"device",)"
                  R"("name":"more","arguments":{},"timeAllowance":4000})"),
             json(R"(7: {"time":5,"event":"finished","order":1,"command":"pair","success":true} | )"),
             json(R"(12:  | {"time":4000,"event":"withdrawn","order":1,"instruction":0} )"
                  R"({"time":4000,"event":"finished","order":1,"command":"pair","success":false,)"
                  "\"message\":\"no reply to \\\"more\\\" within 4000 ms\"}")});
        changed = pair();
        changed.onReply = [](ScriptedCommand& command, QVariantMap const& /*reply*/) {
            return command.publish("n"_s, 0U);
        };
        row("type of a result", changed,
            {json(R"(5: {"time":5,"event":"result","order":1,"key":"n","value":0} | )"
                  R"({"time":5,"event":"result","order":1,"key":"n","value":{"@type":"uint","@value":0}})"),
             json(R"(7: {"time":5,"event":"result","order":1,"key":"n","value":0} | )"
                  R"({"time":5,"event":"result","order":1,"key":"n","value":{"@type":"uint","@value":0}})")});
        changed.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
            qWarning("odd");
            command.publish("n"_s, reply.value("n"_s));
            return false;
        };
        row("refused and logged", changed,
            {json(R"(5:  | {"time":5,"event":"log","level":"warning","text":"odd"})"),
             json(R"(7: {"time":5,"event":"finished","order":1,"command":"pair","success":true} | )"
                  R"({"time":5,"event":"log","level":"warning","text":"odd"} )"
                  R"({"time":5,"event":"finished","order":1,"command":"pair","success":false,)"
                  "\"message\":\"the reply to \\\"first\\\" was not accepted\"}")});
        auto const second = QSharedPointer<quint64>::create();
        changed = pair();
        changed.execute = [second](ScriptedCommand& command) {
            command.post(c_device, "first"_s);
            *second = command.post(c_device, "second"_s);
            return true;
        };
        changed.onReply = [second](ScriptedCommand& command, QVariantMap const& reply) {
            command.withdraw(*second);
            return command.publish("n"_s, reply.value("n"_s));
        };
        row("withdrawn", changed,
            {json(R"(5:  | {"time":5,"event":"withdrawn","order":1,"instruction":2} )"
                  R"({"time":5,"event":"finished","order":1,"command":"pair","success":true})"),
             json(R"(7: {"time":5,"event":"result","order":1,"key":"n","value":0} )"
                  R"({"time":5,"event":"finished","order":1,"command":"pair","success":true} | )"
                  R"({"time":5,"event":"dropped","order":1,"instruction":2})")});
        changed = keeper();
        changed.onFinish = [](ScriptedCommand& command) { return command.finish(true); };
        row("log line and last instruction", changed,
            {json(
                R"(12: {"time":8,"event":"log","level":"critical","text":"locks"} )"
                R"({"time":8,"event":"instruction","order":2,"instruction":4,"target":"device","name":"lock",)"
                R"("arguments":{},"timeAllowance":4000} )"
                R"({"time":4008,"event":"withdrawn","order":2,"instruction":4} | )")});
        changed = keeper();
        changed.stopName = "end"_s;
        row("another stop name", changed,
            {json(
                R"(12: {"time":8,"event":"log","level":"critical","text":"locks"} )"
                R"({"time":8,"event":"instruction","order":2,"instruction":4,"target":"device","name":"lock",)"
                R"("arguments":{},"timeAllowance":4000} )"
                R"({"time":8,"event":"finished","order":2,"command":"keep","success":true} )"
                R"({"time":4007,"event":"withdrawn","order":2,"instruction":3} )"
                R"({"time":4008,"event":"withdrawn","order":2,"instruction":4} | )")});
    }

    void other()
    {
        QFETCH(QList<CommandScript>, commands);
        QFETCH(QStringList, differences);
        ScratchFolder const folder;
        QString const fileName = folder.filePath("trace"_s);
        record(fileName, scripts(), [](Bench& bench) {
            bench.order("pair");
            bench.runUntil(7);
            bench.endpoint.replyTimes = {};
            bench.order("keep");
            bench.runUntil(8);
            bench.tool.stop("halt"_s);
            bench.runUntil(4100);
        });
        Replayed const replayed = replay(fileName, commands);
        QCOMPARE(replayed.differences.join(QLatin1Char('\n')), differences.join(QLatin1Char('\n')));
        QCOMPARE(replayed.steps, 6);
    }

    // Two orders that end together post the same instruction; the first does not any more.
    void instructionsOfSeveralOrders()
    {
        CommandScript other = keeper();
        other.name = "keep too"_s;
        ScratchFolder const folder;
        QString const fileName = folder.filePath("trace"_s);
        record(fileName, {keeper(), other}, [](Bench& bench) {
            bench.order("keep");
            bench.order("keep too");
            bench.tool.stopAll();
        });
        CommandScript changed = keeper();
        changed.onFinish = [](ScriptedCommand& command) { return command.finish(true); };
        QCOMPARE(
            replay(fileName, {changed, other}).differences,
            QStringList{R"(6: {"time":0,"event":"instruction","order":1,"instruction":3,"target":"device",)"
                        R"("name":"lock","arguments":{},"timeAllowance":4000} | )"_s});
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

    void ordersAreReleased()
    {
        ScratchFolder const folder;
        QString const fileName = folder.filePath("trace"_s);
        record(fileName, scripts(), [](Bench& bench) {
            bench.order("shot");
            bench.runUntil(10);
        });
        Bench bench(scripts());
        Replay replay(bench.tool, bench.workstation, bench.clock, bench.events, {c_device, "nowhere"_s});
        TraceReader trace(fileName);
        LogTap const tap(bench.events);
        while (auto const step = replay.next(trace)) {
            QVERIFY(step->isSame());
            qWarning("between two steps, which is nobody's affair");
        }
        QCOMPARE(bench.plugin.journal(), QStringList{"working shot"_s});
        QVERIFY(!bench.tool.hasOrders());
    }

    void debugLinesDoNotCount()
    {
        ScratchFolder const folder;
        QString const fileName = folder.filePath("trace"_s);
        CommandScript chatty = shot();
        chatty.execute = [](ScriptedCommand& command) {
            qDebug("about to post");
            return shot().execute(command);
        };
        auto const action = [](Bench& bench) {
            bench.order("shot");
            bench.runUntil(10);
        };
        record(fileName, {chatty}, action);
        QVERIFY(contentOf(fileName).contains("about to post"));
        QCOMPARE(replay(fileName, {shot()}).differences, QStringList());
        record(fileName, {shot()}, action);
        QCOMPARE(replay(fileName, {chatty}).differences, QStringList());
    }

    void loggedAtTheBeginning()
    {
        ScratchFolder const folder;
        QString const fileName = folder.filePath("trace"_s);
        record(fileName, scripts(), [](Bench& bench) {
            qWarning("before all");
            bench.order("shot");
        });
        QCOMPARE(replay(fileName, scripts()).differences,
                 QStringList{R"(1: {"time":0,"event":"log","level":"warning","text":"before all"} | )"_s});
    }

    // At the time of the end as well, everything that comes counts.
    void differenceAtTheEnd()
    {
        ScratchFolder const folder;
        QString const fileName = folder.filePath("trace"_s);
        record(fileName, scripts(), [](Bench& bench) {
            bench.endpoint.replyTimes = {};
            bench.order("shot");
            bench.runUntil(4000);
            bench.clock.step();
        });
        QByteArray content = contentOf(fileName);
        QByteArray const finished =
            R"({"time":4000,"event":"finished","order":1,"command":"shot","success":false,)"
            "\"message\":\"no reply to \\\"go\\\" within 4000 ms\"}"
            "\n";
        QByteArray const withdrawn = R"({"time":4000,"event":"withdrawn","order":1,"instruction":1})"
                                     "\n";
        QCOMPARE(content.count(withdrawn + finished), 1);
        folder.write("trace"_s, content.replace(withdrawn + finished, ""));
        QCOMPARE(replay(fileName, scripts()).differences,
                 QStringList{QString::fromUtf8("2:  | " + withdrawn.trimmed() + ' ' + finished.trimmed())});
    }

    void check_data()
    {
        QTest::addColumn<QByteArray>("lines");
        QTest::addColumn<QString>("complaint");
        auto const row = [](char const* name, QByteArrayList const& lines, char const* complaint = "") {
            QTest::newRow(name) << lines.join() << QString::fromUtf8(complaint);
        };
        auto const order = [](quint64 id, char const* command = "shot") {
            return toLine(toJson(0, OrderStarted{id, QString::fromLatin1(command), {}}));
        };
        auto const instruction = [](quint64 id, quint64 orderId) {
            return toLine(toJson(0, InstructionPosted{orderId, id, {c_device, "go"_s, {}, 4000}}));
        };
        auto const reply = [](quint64 id, quint64 orderId) {
            return toLine(toJson(0, ReplyArrived{orderId, id, {}}));
        };
        row("right", {order(1), instruction(1, 1), order(2), instruction(2, 2), reply(1, 1), reply(2, 2),
                      reply(1, 1)});
        row("unknown command", {order(1, "walk")}, ":2: the plugin has no command \"walk\"");
        row("order with another number", {order(2)}, ":2: order 2 stands where order 1 should");
        row("instruction 0", {order(1), instruction(0, 1)},
            ":3: instruction 0 stands where instruction 1 should");
        row("instruction twice", {order(1), instruction(1, 1), instruction(1, 1)},
            ":4: instruction 1 stands where instruction 2 should");
        row("instruction of order 0", {order(1), instruction(1, 0)}, ":3: there is no order 0");
        row("instruction of an order to come", {order(1), instruction(1, 2), order(2)},
            ":3: there is no order 2");
        row("reply before its instruction", {order(1), reply(1, 1), instruction(1, 1)},
            ":3: order 1 has no instruction 1");
        row("reply to instruction 0", {order(1), instruction(1, 1), reply(0, 0)},
            ":4: order 0 has no instruction 0");
        row("reply for another order", {order(1), order(2), instruction(1, 1), reply(1, 2)},
            ":5: order 2 has no instruction 1");
        row("withdrawn without an instruction", {order(1), toLine(toJson(0, InstructionWithdrawn{1, 1}))},
            ":3: order 1 has no instruction 1");
    }

    void check()
    {
        QFETCH(QByteArray, lines);
        QFETCH(QString, complaint);
        ScratchFolder const folder;
        QByteArray const begin =
            toLine(toJson(0, RunStarted{"P"_s, "1"_s, {}, QDateTime(QDate(2026, 3, 9), QTime(0, 0))}));
        QString const fileName =
            folder.write("trace"_s, begin + lines + toLine(toJson(0, RunFinished{0, 0, 0, 0})));
        Bench bench(scripts());
        TraceSummary told;
        QString const heard = complaintOf([&] { told = checkTrace(fileName, bench.tool); });
        if (!complaint.isEmpty()) {
            QCOMPARE(heard, fileName + complaint);
            return;
        }
        QCOMPARE(heard, "no complaint"_s);
        QCOMPARE(told.begin.plugin, "P"_s);
        QCOMPARE(told.targets, QStringList{c_device});
    }
};

QTEST_GUILESS_MAIN(TestReplay)
#include "tst_replay.moc"
