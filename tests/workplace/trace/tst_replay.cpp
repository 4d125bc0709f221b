#include "complaint.h"
#include "literals.h"
#include "scratch_folder.h"
#include "scripted_station.h"

#include "host/log_tap.h"
#include "trace/event_json.h"
#include "trace/replay.h"
#include "trace/trace_file.h"

#include <QtTest>

namespace
{

QString const c_device = "device"_s;

CommandScript shot()
{
    return command("shot"_s, [](ScriptedCommand& self) {
        self.post(c_device, "go"_s, {{"c"_s, self.parameter("p"_s)}});
        return true;
    });
}

/// A pair whose first instruction is another.
CommandScript pairWith(QVariantMap const& arguments, int timeAllowance)
{
    return command("pair"_s, [arguments, timeAllowance](ScriptedCommand& self) {
        self.post(c_device, "first"_s, arguments, timeAllowance);
        self.post(c_device, "second"_s);
        return true;
    });
}

/// Listens. Locks when it ends, and tells it.
CommandScript keeper(QString const& name = "keep"_s)
{
    CommandScript script = posting(name, {"go"_s}, "halt"_s);
    script.onFinish = [](ScriptedCommand& self) {
        qCritical("locks");
        self.post(c_device, "lock"_s);
        return self.finish(true);
    };
    return script;
}

QList<CommandScript> commands()
{
    return {shot(), posting("pair"_s, {"first"_s, "second"_s}), posting("twice"_s, {"go"_s, "go"_s}),
            posting("listen"_s, {"go"_s}, "halt"_s), keeper()};
}

/// The commands, one of them changed.
QList<CommandScript> commandsWith(CommandScript const& changed)
{
    auto all = commands();
    for (auto& one : all) {
        if (one.name == changed.name)
            one = changed;
    }
    return all;
}

/// Does one thing after the other: "order shot; until 10".
void perform(ScriptedStation& station, char const* actions)
{
    auto const all = QString::fromLatin1(actions).split("; "_s);
    for (auto const& action : all) {
        QString const verb = action.section(QLatin1Char(' '), 0, 0);
        QString const rest = action.section(QLatin1Char(' '), 1);
        if (verb == "order"_s) {
            station.order(rest, {{"p"_s, 7U}});
        } else if (verb == "stop"_s) {
            station.tool->stop("halt"_s);
        } else if (verb == "stopAll"_s) {
            station.tool->stopAll();
        } else if (verb == "release"_s) {
            station.tool->releaseOrders();
        } else if (verb == "until"_s) { // what is due at that time has not happened yet
            while (station.clock.nextDue().value_or(rest.toInt()) < rest.toInt())
                station.clock.step();
            station.clock.moveTo(rest.toInt());
        } else if (verb == "step"_s) {
            station.clock.step();
        } else if (verb == "replies"_s) { // come so long after each instruction
            station.endpoint.replyTimes.clear();
            for (auto const& time : rest.split(QLatin1Char(' '), Qt::SkipEmptyParts))
                station.endpoint.replyTimes += time.toInt();
        } else if (verb == "unplug"_s) {
            station.endpoint.connected = false;
        } else if (verb == "warn"_s) {
            qWarning("%s", qPrintable(rest));
        } else if (verb == "people"_s) { // what they and the sequence do is nothing to a replay
            station.events.publish(PersonActed{"pulls the trigger"_s, {}});
            station.events.publish(WaitFailed{"too late"_s});
            station.events.publish(ExpectationMissed{1, "n"_s, 1, 2});
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
        ScriptedStation station(scripts);
        TraceFile trace(m_fileName);
        station.events.listen([&trace](qint64 time, RunEvent const& event) { trace.write(time, event); });
        LogTap const tap(station.events);
        station.events.publish(RunStarted{"Scripted"_s, "0"_s, {}, station.clock.date()});
        perform(station, actions);
        station.events.publish(RunFinished{0, 0, 0, 0});
        trace.close();
    }

    /// The steps that differ, "LINE: recorded | replayed" or "LINE: problem"; then how many steps there were.
    QStringList replay(QList<CommandScript> const& scripts) const
    {
        ScriptedStation station(scripts);
        LogTap const tap(station.events);
        Replay replay(*station.tool, station.workstation, station.clock, station.events, {c_device});
        TraceReader trace(m_fileName);
        QStringList told;
        int steps = 0;
        for (; auto const step = replay.next(trace); ++steps) {
            if (!step->isSame())
                told += "%1: %2"_s.arg(QString::number(step->cause.line),
                                       step->problem.isEmpty() ? difference(*step) : step->problem);
            qWarning("between two steps, which is nobody's affair");
        }
        return told << "%1 steps"_s.arg(steps)
                           + (station.tool->hasOrders() ? ", orders are left"_s : QString());
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
        row("argument", pairWith({{"a"_s, 1}}, 4000),
            {R"(2: 0 instruction 1 1 device first {} 4000 | 0 instruction 1 1 device first {"a":1} 4000)"_s});
        row("time allowance", pairWith({}, 3000),
            {"2: 0 instruction 1 1 device first {} 4000 | 0 instruction 1 1 device first {} 3000"_s});
        row("the same in another order", posting("pair"_s, {"second"_s, "first"_s}), {"2:  | "_s});
        // What is missing or too much is told once, and does not shift what follows.
        row("not sent", posting("pair"_s, {"second"_s}),
            {"2: 0 instruction 1 1 device first {} 4000 | "_s,
             "5: nobody waits for this reply: the instruction was not sent"_s});
        row("sent too much", posting("pair"_s, {"more"_s, "first"_s, "second"_s}),
            {"2:  | 0 instruction 1 0 device more {} 4000"_s, "7: 5 finished 1 pair true | "_s,
             "12:  | 4000 withdrawn 1 0, 4000 finished 1 pair false no reply to \"more\" within 4000 ms"_s});
        CommandScript changed = pairWith({}, 4000);
        changed.onReply = [](ScriptedCommand& self, QVariantMap const& /*reply*/) {
            return self.publish("n"_s, 0U);
        };
        row("type of a result", changed,
            {R"(5: 5 result 1 n 0 | 5 result 1 n {"@type":"uint","@value":0})"_s,
             R"(7: 5 result 1 n 0 | 5 result 1 n {"@type":"uint","@value":0})"_s});
        changed.onReply = [](ScriptedCommand& self, QVariantMap const& reply) {
            qWarning("odd");
            self.publish("n"_s, reply.value("n"_s));
            return false;
        };
        row("refused and logged", changed,
            {"5:  | 5 log warning odd"_s,
             "7: 5 finished 1 pair true | "
             "5 log warning odd, 5 finished 1 pair false the reply to \"first\" was not accepted"_s});
        auto const toWithdraw = QSharedPointer<quint64>::create();
        changed.execute = [toWithdraw](ScriptedCommand& self) {
            self.post(c_device, "first"_s);
            *toWithdraw = self.post(c_device, "second"_s);
            return true;
        };
        changed.onReply = [toWithdraw](ScriptedCommand& self, QVariantMap const& reply) {
            self.withdraw(*toWithdraw);
            return self.publish("n"_s, reply.value("n"_s));
        };
        row("withdrawn", changed,
            {"5:  | 5 withdrawn 1 2, 5 finished 1 pair true"_s,
             "7: 5 result 1 n 0, 5 finished 1 pair true | 5 dropped 1 2"_s});
        changed = keeper();
        changed.onFinish = [](ScriptedCommand& self) { return self.finish(true); };
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
        Recording const recording({keeper(), keeper("keep_too"_s)}, "order keep; order keep_too; stopAll");
        CommandScript changed = keeper();
        changed.onFinish = [](ScriptedCommand& self) { return self.finish(true); };
        QCOMPARE(recording.replay({changed, keeper("keep_too"_s)}),
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
        chatty.execute = [](ScriptedCommand& self) {
            qDebug("about to post");
            return shot().execute(self);
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
            return line(InstructionPosted{orderId, id, {c_device, "go"_s, {}, 4000}});
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
        lines.prepend(
            toLine(toJson(0, RunStarted{"P"_s, "1"_s, {}, QDateTime(QDate(2026, 3, 9), QTime(7, 5))})));
        lines += toLine(toJson(0, RunFinished{0, 0, 0, 0}));
        QString const fileName = folder.write("trace"_s, lines.join());
        ScriptedStation station(commands());
        TraceSummary told;
        QString const heard = complaintOf([&] { told = checkTrace(fileName, *station.tool); });
        QCOMPARE(heard, complaint.isEmpty() ? "no complaint"_s : fileName + complaint);
        if (complaint.isEmpty()) {
            QCOMPARE(told.begin.plugin, "P"_s);
            QCOMPARE(told.targets, QStringList{c_device});
        }
    }
};

QTEST_GUILESS_MAIN(TestReplay)
#include "tst_replay.moc"
