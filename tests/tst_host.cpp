#include "event_log.h"
#include "scripted_endpoint.h"
#include "scripted_plugin.h"

#include "host/log_tap.h"
#include "host/order.h"
#include "host/run_event.h"
#include "host/tool.h"
#include "host/workstation.h"

#include <utilities/utilities.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <QtTest>

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>

namespace
{

QString const device = QStringLiteral("device");

/// A command that posts instructions to "device", one for each name.
CommandScript::Execute posting(QStringList const& names)
{
    return [names](ScriptedCommand& command) {
        for (auto const& name : names)
            command.post(device, name);
        return true;
    };
}

CommandScript oneShot(QString const& name, CommandScript::Execute execute)
{
    CommandScript script;
    script.name = name;
    script.execute = std::move(execute);
    return script;
}

CommandScript listener(QString const& name, QString const& stopName, CommandScript::Execute execute)
{
    CommandScript script = oneShot(name, std::move(execute));
    script.stopName = stopName;
    return script;
}

/// A workstation with one tool whose commands are scripted.
struct Bench
{
    explicit Bench(QList<CommandScript> scripts) : plugin(std::move(scripts))
    {
        tool.emplace(plugin, QUuid(), workstation);
    }

    void runAll()
    {
        while (clock.step()) {
        }
    }
    Order& order(char const* name, QVariantMap const& parameters = {})
    {
        return tool->order(QString::fromLatin1(name), parameters);
    }

    ZrtClock clock{ZrtClock::Pace::Simulated};
    RunEvents events{clock};
    EventLog log{events};
    Workstation workstation{clock, events};
    ScriptedEndpoint endpoint{clock};
    ScriptedPlugin plugin;
    std::optional<Tool> tool;
};

QString stateName(Order const& order)
{
    switch (order.state()) {
    case Order::State::Running:
        return QStringLiteral("running");
    case Order::State::Succeeded:
        return QStringLiteral("succeeded");
    case Order::State::Failed:
        return QStringLiteral("failed: ") + order.message();
    }
    return {};
}

QStringList* s_captured = nullptr;
void capture(QtMsgType type, QMessageLogContext const& /*context*/, QString const& text)
{
    s_captured->append(QStringLiteral("%1 %2").arg(type).arg(text));
}

} // namespace

/// Orders under way: how instructions and replies find their way, and what becomes of everything.
class TstHost : public QObject
{
    Q_OBJECT

private slots:
    void routesToTheNamedEndpoint();
    void carriesInstructionAndReply();
    void idsAreNotUsedTwice();
    void noEndpoint_data();
    void noEndpoint();
    void endpointThatIsNotConnected();
    void noEndpointForAListener();
    void undeliveredIsNotWithdrawn();
    void overdueIsNotWaitedForAtTheEnd();
    void endpointThatIsReplaced();
    void replyTimes_data();
    void replyTimes();
    void listenerOutlivesItsAllowance();
    void duplicatesAreDropped();
    void lateReplyIsDropped();
    void replyToAReleasedOrder();
    void withdrawnInstruction();
    void refusedReply();
    void endpointThatAnswersAtOnce();
    void stopFromWithinAResult();
    void refusedStart_data();
    void refusedStart();
    void nothingPosted();
    void results();
    void parametersReachTheCommand();
    void queuedSignalOfACommand();

    void unknownCommand();
    void instanceThatIsNoPlugin();
    void instanceHasItsIdentity();
    void stopEndsAllOfThatName();
    void stopOfNothing();
    void stopIsNotForOthers();
    void stopAll();
    void releaseKeepsWhatRuns();
    void releaseKeepsWhatIsStillAnswered();
    void commandsGoBeforeTheirInstance();
    void toolGoesWithRepliesOnTheirWay();
    void toolGoesWithAllowancesOnTheirWay();

    void logLevels_data();
    void logLevels();
    void logAddresses_data();
    void logAddresses();
    void logTapGivesBackTheFormerHandler();
    void logTapDatesLines();
    void logLinesHaveTheirTime();
};

void TstHost::routesToTheNamedEndpoint()
{
    Bench bench({oneShot(QStringLiteral("both"), [](ScriptedCommand& command) {
        command.post(QStringLiteral("left"), QStringLiteral("l"));
        command.post(QStringLiteral("right"), QStringLiteral("r"));
        return true;
    })});
    ScriptedEndpoint right(bench.clock);
    bench.workstation.connectEndpoint(QStringLiteral("left"), bench.endpoint);
    bench.workstation.connectEndpoint(QStringLiteral("right"), right);
    Order const& order = bench.order("both");
    QCOMPARE(bench.endpoint.got.size(), 1);
    QCOMPARE(bench.endpoint.got[0].first, QStringLiteral("l"));
    QCOMPARE(right.got.size(), 1);
    QCOMPARE(right.got[0].first, QStringLiteral("r"));
    bench.runAll();
    QCOMPARE(stateName(order), QStringLiteral("succeeded"));
}

void TstHost::carriesInstructionAndReply()
{
    auto script = oneShot(QStringLiteral("go"), [](ScriptedCommand& command) {
        command.post(device, QStringLiteral("first"), {{QStringLiteral("a"), 1}}, 77);
        return true;
    });
    script.results = {{QStringLiteral("n"), QStringLiteral("int"), QString(), -1}};
    script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
        return command.publish(QStringLiteral("n"), reply.value(QStringLiteral("n")));
    };
    Bench bench({script});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    bench.order("go", {{QStringLiteral("p"), true}});
    QCOMPARE(bench.endpoint.got[0].second, QVariantMap({{QStringLiteral("a"), 1}}));
    bench.runAll();
    QCOMPARE(
        bench.log.lines,
        QStringList({
            QStringLiteral(R"({"time":0,"event":"order","order":1,"command":"go","parameters":{"p":true}})"),
            QStringLiteral(R"({"time":0,"event":"instruction","order":1,"instruction":1,"target":"device",)"
                           R"("name":"first","arguments":{"a":1},"timeAllowance":77})"),
            QStringLiteral(R"({"time":5,"event":"reply","order":1,"instruction":1,"reply":{"n":0}})"),
            QStringLiteral(R"({"time":5,"event":"result","order":1,"key":"n","value":0})"),
            QStringLiteral(R"({"time":5,"event":"finished","order":1,"command":"go","success":true})"),
        }));
    QCOMPARE(bench.workstation.droppedReplies(), quint64{0});
}

void TstHost::idsAreNotUsedTwice()
{
    Bench bench({oneShot(QStringLiteral("go"), posting({QStringLiteral("a"), QStringLiteral("b")}))});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Tool other(bench.plugin, QUuid(), bench.workstation);
    QCOMPARE(bench.order("go").id(), quint64{1});
    QCOMPARE(other.order(QStringLiteral("go"), {}).id(), quint64{2});
    bench.runAll();
    QCOMPARE(bench.order("go").id(), quint64{3});
    auto const posted = bench.log.of(QStringLiteral("instruction"));
    QCOMPARE(posted.size(), 6);
    for (int i = 0; i < posted.size(); ++i)
        QVERIFY2(posted[i].contains(QStringLiteral("\"instruction\":%1,").arg(i + 1)), qPrintable(posted[i]));
}

void TstHost::noEndpoint_data()
{
    QTest::addColumn<bool>("wasThere");
    QTest::addColumn<QString>("target");
    QTest::newRow("unknown") << false << QStringLiteral("nowhere");
    QTest::newRow("disconnected") << true << QStringLiteral("nowhere");
    QTest::newRow("another case") << false << QStringLiteral("Device");
    QTest::newRow("empty") << false << QString();
}

void TstHost::noEndpoint()
{
    QFETCH(bool, wasThere);
    QFETCH(QString, target);
    bool isThrough = false;
    Bench bench({oneShot(QStringLiteral("go"), [&](ScriptedCommand& command) {
        command.post(target, QStringLiteral("first"));
        command.post(device, QStringLiteral("second"));
        isThrough = true;
        return true;
    })});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    if (wasThere) {
        bench.workstation.connectEndpoint(target, bench.endpoint);
        bench.workstation.disconnectEndpoint(target);
    }
    Order const& order = bench.order("go");
    // It fails when it is through with what it is doing, not in the middle of it.
    QVERIFY(isThrough);
    QCOMPARE(stateName(order), QStringLiteral("running"));
    QVERIFY(bench.clock.step());
    QCOMPARE(stateName(order), QStringLiteral("failed: \"first\": endpoint \"%1\" is gone").arg(target));
    QCOMPARE(bench.clock.now(), qint64{0});
    // What else it had posted is withdrawn, and its reply dropped.
    QCOMPARE(bench.log.of(QStringLiteral("withdrawn")),
             QStringList{QStringLiteral(R"({"time":0,"event":"withdrawn","order":1,"instruction":2})")});
    bench.runAll();
    QCOMPARE(bench.workstation.droppedReplies(), quint64{1});
    QCOMPARE(bench.log.of(QStringLiteral("finished")).size(), 1);
}

void TstHost::endpointThatIsNotConnected()
{
    Bench bench({oneShot(QStringLiteral("go"), posting({QStringLiteral("a")}))});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    bench.endpoint.connected = false;
    Order const& order = bench.order("go");
    bench.runAll();
    QCOMPARE(stateName(order), QStringLiteral("failed: \"a\": endpoint \"device\" is gone"));
    QCOMPARE(
        bench.log.of(QStringLiteral("notDelivered")),
        QStringList{QStringLiteral(R"({"time":0,"event":"notDelivered","order":1,"instruction":1,"name":"a",)"
                                   R"("reason":"endpoint \"device\" is gone","goesOn":false})")});
    QVERIFY(bench.endpoint.got.isEmpty());
    bench.endpoint.connected = true;
    Order const& again = bench.order("go");
    bench.runAll();
    QCOMPARE(stateName(again), QStringLiteral("succeeded"));
}

void TstHost::noEndpointForAListener()
{
    Bench bench({listener(QStringLiteral("listen"), QStringLiteral("halt"), posting({QStringLiteral("a")}))});
    Order const& order = bench.order("listen");
    bench.runAll();
    QCOMPARE(stateName(order), QStringLiteral("running"));
    QCOMPARE(bench.log.lines.filter(QStringLiteral("\"goesOn\":true")).size(), 1);
    QCOMPARE(bench.tool->stop(QStringLiteral("halt")), 1);
    QCOMPARE(stateName(order), QStringLiteral("succeeded"));
    QVERIFY(order.isOver());
}

// Whether the command has heard of it or not.
void TstHost::undeliveredIsNotWithdrawn()
{
    Bench bench({listener(QStringLiteral("listen"), QStringLiteral("halt"), posting({QStringLiteral("a")}))});
    bench.order("listen");
    bench.tool->stop(QStringLiteral("halt"));
    bench.order("listen");
    bench.runAll();
    bench.tool->stop(QStringLiteral("halt"));
    QCOMPARE(bench.log.of(QStringLiteral("notDelivered")).size(), 2);
    QCOMPARE(bench.log.of(QStringLiteral("withdrawn")), QStringList());
    // One that is there is.
    bench.workstation.connectEndpoint(device, bench.endpoint);
    bench.order("listen");
    bench.tool->stop(QStringLiteral("halt"));
    QCOMPARE(bench.log.of(QStringLiteral("withdrawn")).size(), 1);
    QCOMPARE(bench.endpoint.withdrawn, QList<quint64>{3});
}

// A command that leaves its instructions open when it is stopped gets one reply to each, but not to one whose
// time was over before.
void TstHost::overdueIsNotWaitedForAtTheEnd()
{
    auto script = listener(QStringLiteral("listen"), QStringLiteral("halt"), posting({QStringLiteral("a")}));
    script.onFinish = [](ScriptedCommand& command) {
        command.post(device, QStringLiteral("last"));
        return command.finish(true);
    };
    Bench bench({script});
    bench.endpoint.replyTimes = {};
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& order = bench.order("listen");
    bench.runAll();
    QCOMPARE(bench.clock.now(), qint64{4000});
    QVERIFY(bench.log.of(QStringLiteral("withdrawn")).isEmpty());
    bench.tool->stop(QStringLiteral("halt"));
    QCOMPARE(
        bench.log.lines.mid(bench.log.lines.size() - 2),
        QStringList({QStringLiteral(
                         R"({"time":4000,"event":"finished","order":1,"command":"listen","success":true})"),
                     QStringLiteral(R"({"time":4000,"event":"withdrawn","order":1,"instruction":1})")}));
    QVERIFY(!order.isOver());
    bench.runAll();
    QCOMPARE(bench.clock.now(), qint64{8000});
    QVERIFY(order.isOver());
}

void TstHost::endpointThatIsReplaced()
{
    Bench bench({oneShot(QStringLiteral("go"), posting({QStringLiteral("a")}))});
    ScriptedEndpoint second(bench.clock);
    bench.workstation.connectEndpoint(device, bench.endpoint);
    bench.workstation.connectEndpoint(device, second);
    bench.order("go");
    QCOMPARE(bench.endpoint.got.size(), 0);
    QCOMPARE(second.got.size(), 1);
}

void TstHost::replyTimes_data()
{
    QTest::addColumn<qint64>("replyTime");
    QTest::addColumn<int>("allowance");
    QTest::addColumn<QString>("state");
    QTest::addColumn<qint64>("finishedAt");
    auto const row = [](char const* name, qint64 replyTime, int allowance, char const* state, qint64 at) {
        QTest::newRow(name) << replyTime << allowance << QString::fromLatin1(state) << at;
    };
    row("at once", 0, 4000, "succeeded", 0);
    row("just before", 3999, 4000, "succeeded", 3999);
    row("exactly", 4000, 4000, "succeeded", 4000);
    row("just after", 4001, 4000, "failed: no reply to \"first\" within 4000 ms", 4000);
    row("long after", 600'000, 4000, "failed: no reply to \"first\" within 4000 ms", 4000);
    row("no time at all", 0, 0, "succeeded", 0);
    row("too late for no time", 1, 0, "failed: no reply to \"first\" within 0 ms", 0);
    row("another allowance", 77, 76, "failed: no reply to \"first\" within 76 ms", 76);
}

void TstHost::replyTimes()
{
    QFETCH(qint64, replyTime);
    QFETCH(int, allowance);
    QFETCH(QString, state);
    QFETCH(qint64, finishedAt);
    Bench bench({oneShot(QStringLiteral("go"), [&](ScriptedCommand& command) {
        command.post(device, QStringLiteral("first"), {}, allowance);
        return true;
    })});
    bench.endpoint.replyTimes = {replyTime};
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& order = bench.order("go");
    while (order.state() == Order::State::Running && bench.clock.step()) {
    }
    QCOMPARE(stateName(order), state);
    QCOMPARE(bench.clock.now(), finishedAt);
    QVERIFY(order.isOver());
    bench.runAll();
    QCOMPARE(bench.workstation.droppedReplies(), quint64{replyTime > allowance ? 1U : 0U});
    QCOMPARE(stateName(order), state);
    QCOMPARE(bench.log.of(QStringLiteral("finished")).size(), 1);
}

void TstHost::listenerOutlivesItsAllowance()
{
    auto script = listener(QStringLiteral("listen"), QStringLiteral("halt"), posting({QStringLiteral("a")}));
    script.results = {{QStringLiteral("n"), QStringLiteral("int"), QString(), -1}};
    script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
        return command.publish(QStringLiteral("n"), reply.value(QStringLiteral("n")));
    };
    Bench bench({script});
    bench.endpoint.replyTimes = {9000, 9001, 20'000};
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& order = bench.order("listen");
    bench.runAll();
    QCOMPARE(stateName(order), QStringLiteral("running"));
    QCOMPARE(order.results(), QVariantMap({{QStringLiteral("n"), 2}}));
    QCOMPARE(bench.log.of(QStringLiteral("result")).size(), 3);
    QCOMPARE(bench.workstation.droppedReplies(), quint64{0});
}

void TstHost::duplicatesAreDropped()
{
    int handled = 0;
    auto script = oneShot(QStringLiteral("go"), posting({QStringLiteral("a"), QStringLiteral("b")}));
    script.onReply = [&](ScriptedCommand&, QVariantMap const&) {
        ++handled;
        return true;
    };
    Bench bench({script});
    bench.endpoint.replyTimes = {5, 5, 8};
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& order = bench.order("go");
    bench.runAll();
    QCOMPARE(handled, 2);
    QCOMPARE(stateName(order), QStringLiteral("succeeded"));
    QCOMPARE(bench.workstation.droppedReplies(), quint64{4});
    QCOMPARE(bench.log.of(QStringLiteral("reply")).size(), 6);
    QCOMPARE(bench.log.of(QStringLiteral("dropped")),
             QStringList({QStringLiteral(R"({"time":5,"event":"dropped","order":1,"instruction":1})"),
                          QStringLiteral(R"({"time":5,"event":"dropped","order":1,"instruction":2})"),
                          QStringLiteral(R"({"time":8,"event":"dropped","order":1,"instruction":1})"),
                          QStringLiteral(R"({"time":8,"event":"dropped","order":1,"instruction":2})")}));
    // Each is dropped right behind the reply that it is about.
    for (int i = 0; i < bench.log.lines.size(); ++i) {
        if (bench.log.lines[i].contains(QStringLiteral("\"dropped\"")))
            QVERIFY(bench.log.lines[i - 1].contains(QStringLiteral("\"reply\"")));
    }
}

void TstHost::lateReplyIsDropped()
{
    int handled = 0;
    auto script = oneShot(QStringLiteral("go"), posting({QStringLiteral("a")}));
    script.onReply = [&](ScriptedCommand&, QVariantMap const&) {
        ++handled;
        return true;
    };
    Bench bench({script});
    bench.endpoint.replyTimes = {4001, 4002};
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& order = bench.order("go");
    bench.runAll();
    QCOMPARE(handled, 0);
    QCOMPARE(bench.workstation.droppedReplies(), quint64{2});
    QCOMPARE(stateName(order), QStringLiteral("failed: no reply to \"a\" within 4000 ms"));
}

void TstHost::replyToAReleasedOrder()
{
    int handled = 0;
    auto script = oneShot(QStringLiteral("go"), posting({QStringLiteral("a")}));
    script.onReply = [&](ScriptedCommand&, QVariantMap const&) {
        ++handled;
        return true;
    };
    Bench bench({script});
    bench.endpoint.replyTimes = {5, 10};
    bench.workstation.connectEndpoint(device, bench.endpoint);
    bench.order("go");
    bench.clock.step();
    bench.tool->releaseOrders();
    QVERIFY(!bench.tool->hasOrders());
    QCOMPARE(bench.plugin.journal(), QStringList{QStringLiteral("working go")});
    QCOMPARE(bench.workstation.droppedReplies(), quint64{0});
    bench.runAll();
    QCOMPARE(handled, 1);
    QCOMPARE(bench.workstation.droppedReplies(), quint64{1});
    QCOMPARE(bench.log.lines.mid(bench.log.lines.size() - 2),
             QStringList(
                 {QStringLiteral(R"({"time":10,"event":"reply","order":1,"instruction":1,"reply":{"n":1}})"),
                  QStringLiteral(R"({"time":10,"event":"dropped","order":1,"instruction":1})")}));
}

void TstHost::withdrawnInstruction()
{
    int handled = 0;
    auto script = oneShot(QStringLiteral("go"), [](ScriptedCommand& command) {
        command.withdraw(command.post(device, QStringLiteral("a")));
        command.post(device, QStringLiteral("b"));
        return true;
    });
    script.onReply = [&](ScriptedCommand&, QVariantMap const&) {
        ++handled;
        return true;
    };
    Bench bench({script});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& order = bench.order("go");
    bench.runAll();
    QCOMPARE(handled, 1);
    QCOMPARE(bench.endpoint.ids, QList<quint64>({1, 2}));
    QCOMPARE(bench.endpoint.withdrawn, QList<quint64>{1}); // it may spare itself the work
    QCOMPARE(bench.workstation.droppedReplies(), quint64{1});
    QCOMPARE(stateName(order), QStringLiteral("succeeded"));
    QCOMPARE(bench.log.of(QStringLiteral("withdrawn")),
             QStringList{QStringLiteral(R"({"time":0,"event":"withdrawn","order":1,"instruction":1})")});
}

void TstHost::refusedReply()
{
    auto script = oneShot(QStringLiteral("go"), posting({QStringLiteral("a")}));
    script.onReply = [](ScriptedCommand&, QVariantMap const&) { return false; };
    Bench bench({script});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& order = bench.order("go");
    bench.runAll();
    QCOMPARE(stateName(order), QStringLiteral("failed: the reply to \"a\" was not accepted"));
    QCOMPARE(bench.log.lines.last(),
             QStringLiteral(R"({"time":5,"event":"finished","order":1,"command":"go","success":false,)"
                            R"("message":"the reply to \"a\" was not accepted"})"));
}

// It must not; the command does not know yet what it has asked. Nothing goes wrong unseen.
void TstHost::endpointThatAnswersAtOnce()
{
    class Hasty : public Endpoint
    {
    public:
        void post(quint64, QString const&, QVariantMap const&, Reply onReply) override { onReply({}); }
        void withdraw(quint64) override {}
    };
    int handled = 0;
    auto script = oneShot(QStringLiteral("go"), posting({QStringLiteral("a")}));
    script.onReply = [&](ScriptedCommand&, QVariantMap const&) { return ++handled > 0; };
    Bench bench({script});
    Hasty endpoint;
    bench.workstation.connectEndpoint(device, endpoint);
    LogTap const tap(bench.events);
    Order const& order = bench.order("go");
    QCOMPARE(bench.log.of(QStringLiteral("log")).size(), 1);
    QVERIFY2(bench.log.of(QStringLiteral("log"))[0].contains(QStringLiteral("refused setReply()")),
             qPrintable(bench.log.lines.join(QLatin1Char('\n'))));
    QCOMPARE(bench.workstation.droppedReplies(), quint64{1});
    bench.runAll();
    QCOMPARE(handled, 0);
    QCOMPARE(stateName(order), QStringLiteral("failed: no reply to \"a\" within 4000 ms"));
    QVERIFY(order.isOver());
}

void TstHost::stopFromWithinAResult()
{
    auto script = listener(QStringLiteral("listen"), QStringLiteral("halt"), posting({QStringLiteral("a")}));
    script.results = {{QStringLiteral("n"), QStringLiteral("int"), QString(), -1}};
    script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
        return command.publish(QStringLiteral("n"), reply.value(QStringLiteral("n")));
    };
    Bench bench({script});
    bench.endpoint.replyTimes = {5, 6};
    bench.workstation.connectEndpoint(device, bench.endpoint);
    bench.events.listen([&bench](qint64, RunEvent const& event) {
        if (std::holds_alternative<ResultUpdated>(event))
            bench.tool->stop(QStringLiteral("halt"));
    });
    Order const& order = bench.order("listen");
    bench.runAll();
    QCOMPARE(stateName(order), QStringLiteral("succeeded"));
    QCOMPARE(order.results(), QVariantMap({{QStringLiteral("n"), 0}}));
    QCOMPARE(bench.log.of(QStringLiteral("result")).size(), 1);
    QCOMPARE(bench.log.of(QStringLiteral("finished")).size(), 1);
    QCOMPARE(bench.workstation.droppedReplies(), quint64{1});
    bench.tool->releaseOrders();
    QVERIFY(!bench.tool->hasOrders());
}

void TstHost::refusedStart_data()
{
    QTest::addColumn<bool>("listens");
    QTest::addColumn<bool>("posts");
    QTest::addColumn<bool>("asksBase");
    QTest::newRow("one-shot") << false << false << true;
    QTest::newRow("one-shot that has posted") << false << true << true;
    QTest::newRow("one-shot at once") << false << false << false;
    QTest::newRow("listener") << true << false << true;
    QTest::newRow("listener that has posted") << true << true << true;
    QTest::newRow("listener at once") << true << false << false;
}

void TstHost::refusedStart()
{
    QFETCH(bool, listens);
    QFETCH(bool, posts);
    QFETCH(bool, asksBase);
    auto script = oneShot(QStringLiteral("go"), [posts](ScriptedCommand& command) {
        if (posts)
            command.post(device, QStringLiteral("a"));
        return false;
    });
    script.skipsBase = !asksBase;
    if (listens)
        script.stopName = QStringLiteral("halt");
    Bench bench({script});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& order = bench.order("go");
    QCOMPARE(stateName(order), QStringLiteral("failed: the command refused to start"));
    bench.runAll();
    // It stays at that, whatever is still answered.
    QCOMPARE(stateName(order), QStringLiteral("failed: the command refused to start"));
    QCOMPARE(bench.log.of(QStringLiteral("finished")).size(), 1);
    QCOMPARE(bench.tool->stop(QStringLiteral("halt")), 0);
    bench.tool->releaseOrders();
    QVERIFY(!bench.tool->hasOrders());
}

void TstHost::nothingPosted()
{
    Bench bench({oneShot(QStringLiteral("go"), {})});
    Order const& order = bench.order("go");
    QCOMPARE(stateName(order), QStringLiteral("succeeded"));
    QVERIFY(order.isOver());
    QVERIFY(!bench.clock.step());
}

void TstHost::results()
{
    auto script = oneShot(QStringLiteral("go"), [](ScriptedCommand& command) {
        command.publish(QStringLiteral("b"), QStringLiteral("new"));
        command.publish(QStringLiteral("undeclared"), 1);
        return true;
    });
    script.results = {{QStringLiteral("b"), QStringLiteral("strg"), QString(), QStringLiteral("old")},
                      {QStringLiteral("a"), QStringLiteral("vart"), QString(), QVariant()}};
    Bench bench({script});
    Order const& order = bench.order("go");
    QCOMPARE(order.results(),
             QVariantMap({{QStringLiteral("a"), QVariant()}, {QStringLiteral("b"), QStringLiteral("new")}}));
    QCOMPARE(bench.log.of(QStringLiteral("result")),
             QStringList{QStringLiteral(R"({"time":0,"event":"result","order":1,"key":"b","value":"new"})")});
}

void TstHost::parametersReachTheCommand()
{
    QVariantList seen;
    auto script = oneShot(QStringLiteral("go"), [&](ScriptedCommand& command) {
        seen += command.parameter(QStringLiteral("given"));
        seen += command.parameter(QStringLiteral("left out"));
        return true;
    });
    script.parameters = {{QStringLiteral("given"), QStringLiteral("int"), QString(), 1},
                         {QStringLiteral("left out"), QStringLiteral("int"), QString(), 2}};
    Bench bench({script});
    bench.order("go", {{QStringLiteral("given"), 7}});
    bench.order("go");
    QCOMPARE(seen, QVariantList({7, 2, 1, 2}));
}

void TstHost::queuedSignalOfACommand()
{
    // The signal that a command has finished may be connected queued; it comes within the same moment.
    Bench bench({oneShot(QStringLiteral("go"), posting({QStringLiteral("a")}))});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& order = bench.order("go");
    qint64 heardAt = -1;
    QObject context;
    connect(
        &dynamic_cast<DAbstractCommand&>(order.command()), &DAbstractCommand::sigCommandFinished, &context,
        [&](bool success) { heardAt = success ? bench.clock.now() : -2; }, Qt::QueuedConnection);
    bench.clock.step();
    QCOMPARE(heardAt, qint64{5});
}

void TstHost::unknownCommand()
{
    Bench bench({oneShot(QStringLiteral("go"), {})});
    try {
        bench.order("gone");
        QFAIL("no exception");
    } catch (std::invalid_argument const& error) {
        QCOMPARE(error.what(), "the plugin has no command \"gone\"");
    }
    QVERIFY(!bench.tool->hasOrders());
    QVERIFY(bench.log.lines.isEmpty());
}

namespace
{

/// A plugin interface and nothing more.
class BarePlugin : public ScriptedPlugin
{
public:
    explicit BarePlugin(bool makesNothing) : ScriptedPlugin({}), m_makesNothing(makesNothing) {}
    IPlugin* createInstance(QUuid const& objectUuid) const override;

    static int s_destroyed;

private:
    bool m_makesNothing;
};

int BarePlugin::s_destroyed = 0;

class NoPluginObject : public IPlugin
{
public:
    ~NoPluginObject() override { ++BarePlugin::s_destroyed; }
    QUuid objectUuid() const override { return {}; }
    QString getName() const override { return {}; }
    QUuid pluginUuid() const override { return {}; }
    QString pluginName() const override { return {}; }
    quint64 pluginVersion() const override { return 0; }
    quint32 pluginType() const override { return 0; }
    QList<QUuid> compatiblePlugins() const override { return {}; }
    QString compatibilityString() const override { return {}; }
    QVariant getProperty(QString const&, bool*) const override { return {}; }
    QVariant getProperty(QString const&, QVariant const&) const override { return {}; }
    void setMainConfig(QSharedPointer<QJsonObject>) override {}
    QJsonValue getInMainConfig(QString const&, QJsonValue const&, bool*) const override { return {}; }
    QJsonValue getInPluginConfig(QString const&, QJsonValue const&, bool*) const override { return {}; }
    QString getDebugIdentification() const override { return {}; }
    IPlugin* createInstance(QUuid const&) const override { return nullptr; }
    char const* pluginSubTypeName() const override { return ""; }
    QStringList getFunctions(bool) const override { return {}; }
    QString getFunctionDescription(QString const&) const override { return {}; }
    QList<DDeclaration> getCommandParameters(QString const&) const override { return {}; }
    QSharedPointer<QJsonObject> getMainConfig() const override { return {}; }
    void setInPluginConfig(QString const&, QJsonValue const&) override {}
    void setInMainConfig(QString const&, QJsonValue const&) override {}
};

IPlugin* BarePlugin::createInstance(QUuid const& /*objectUuid*/) const
{
    return m_makesNothing ? nullptr : new NoPluginObject;
}

} // namespace

void TstHost::instanceThatIsNoPlugin()
{
    ZrtClock clock(ZrtClock::Pace::Simulated);
    RunEvents const events(clock);
    Workstation workstation(clock, events);
    for (bool const makesNothing : {true, false}) {
        BarePlugin const plugin(makesNothing);
        BarePlugin::s_destroyed = 0;
        try {
            Tool const tool(plugin, QUuid(), workstation);
            QFAIL("no exception");
        } catch (std::runtime_error const& error) {
            QCOMPARE(error.what(), "the plugin's instances are no plugin objects");
        }
        QCOMPARE(BarePlugin::s_destroyed, makesNothing ? 0 : 1);
    }
}

void TstHost::instanceHasItsIdentity()
{
    Bench bench({oneShot(QStringLiteral("go"), {}), oneShot(QStringLiteral("come"), {})});
    QUuid const id = QUuid::createUuid();
    Tool const tool(bench.plugin, id, bench.workstation);
    QCOMPARE(tool.plugin().objectUuid(), id);
    QCOMPARE(tool.plugin().commandNames(), QStringList({QStringLiteral("go"), QStringLiteral("come")}));
    QVERIFY(&tool.plugin() != &bench.plugin);
}

void TstHost::stopEndsAllOfThatName()
{
    Bench bench({listener(QStringLiteral("one"), QStringLiteral("halt"), posting({QStringLiteral("a")})),
                 listener(QStringLiteral("two"), QStringLiteral("halt"), {}),
                 listener(QStringLiteral("other"), QStringLiteral("halt others"), {}),
                 oneShot(QStringLiteral("shot"), posting({QStringLiteral("b")}))});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& one = bench.order("one");
    Order const& two = bench.order("two");
    Order const& again = bench.order("two");
    Order const& other = bench.order("other");
    Order const& shot = bench.order("shot");
    QCOMPARE(bench.tool->stop(QStringLiteral("halt")), 3);
    QCOMPARE(stateName(one), QStringLiteral("succeeded"));
    QCOMPARE(stateName(two), QStringLiteral("succeeded"));
    QCOMPARE(stateName(again), QStringLiteral("succeeded"));
    QCOMPARE(stateName(other), QStringLiteral("running"));
    QCOMPARE(stateName(shot), QStringLiteral("running"));
    QCOMPARE(bench.tool->stop(QStringLiteral("halt")), 0);
    QCOMPARE(bench.log.lines.mid(7),
             QStringList(
                 {QStringLiteral(R"({"time":0,"event":"stop","command":"halt","running":3})"),
                  QStringLiteral(R"({"time":0,"event":"withdrawn","order":1,"instruction":1})"),
                  QStringLiteral(R"({"time":0,"event":"finished","order":1,"command":"one","success":true})"),
                  QStringLiteral(R"({"time":0,"event":"finished","order":2,"command":"two","success":true})"),
                  QStringLiteral(R"({"time":0,"event":"finished","order":3,"command":"two","success":true})"),
                  QStringLiteral(R"({"time":0,"event":"stop","command":"halt","running":0})")}));
    QCOMPARE(bench.tool->stop(QStringLiteral("halt others")), 1);
    QCOMPARE(stateName(other), QStringLiteral("succeeded"));
}

void TstHost::stopOfNothing()
{
    Bench bench({listener(QStringLiteral("one"), QStringLiteral("halt"), {})});
    QCOMPARE(bench.tool->stop(QStringLiteral("halt")), 0);
    QCOMPARE(bench.tool->stop(QStringLiteral("unknown")), 0);
}

void TstHost::stopIsNotForOthers()
{
    Bench bench({oneShot(QStringLiteral("shot"), posting({QStringLiteral("a")})),
                 listener(QStringLiteral("one"), QStringLiteral("halt"), {})});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& shot = bench.order("shot");
    Order const& one = bench.order("one");
    // The name of the command is not the name that stops it.
    QCOMPARE(bench.tool->stop(QStringLiteral("one")), 0);
    // A command that nothing stops has no stop name, not an empty one.
    QCOMPARE(bench.tool->stop(QString()), 0);
    QCOMPARE(stateName(shot), QStringLiteral("running"));
    QCOMPARE(stateName(one), QStringLiteral("running"));
}

void TstHost::stopAll()
{
    Bench bench({listener(QStringLiteral("one"), QStringLiteral("halt"), {}),
                 listener(QStringLiteral("two"), QStringLiteral("end"), {}),
                 oneShot(QStringLiteral("shot"), posting({QStringLiteral("b")}))});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& one = bench.order("one");
    Order const& two = bench.order("two");
    Order const& shot = bench.order("shot");
    bench.tool->stopAll();
    QCOMPARE(stateName(one), QStringLiteral("succeeded"));
    QCOMPARE(stateName(two), QStringLiteral("succeeded"));
    QCOMPARE(stateName(shot), QStringLiteral("running"));
    QVERIFY(bench.log.of(QStringLiteral("stop")).isEmpty());
    QStringList const told{QStringLiteral(R"({"time":0,"event":"stopAll","running":2})")};
    QCOMPARE(bench.log.of(QStringLiteral("stopAll")), told);
    // With nothing to stop there is nothing to tell.
    bench.tool->stopAll();
    QCOMPARE(bench.log.of(QStringLiteral("stopAll")), told);
}

void TstHost::releaseKeepsWhatRuns()
{
    Bench bench({oneShot(QStringLiteral("quick"), {}),
                 listener(QStringLiteral("one"), QStringLiteral("halt"), {}),
                 oneShot(QStringLiteral("shot"), posting({QStringLiteral("b")}))});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    bench.order("one");
    bench.order("quick");
    bench.order("shot");
    bench.tool->releaseOrders();
    QCOMPARE(bench.plugin.journal(), QStringList{QStringLiteral("working quick")});
    bench.runAll();
    bench.tool->releaseOrders();
    QCOMPARE(bench.plugin.journal().last(), QStringLiteral("working shot"));
    QVERIFY(bench.tool->hasOrders());
    bench.tool->stopAll();
    bench.tool->releaseOrders();
    QCOMPARE(bench.plugin.journal().last(), QStringLiteral("working one"));
    QVERIFY(!bench.tool->hasOrders());
}

void TstHost::releaseKeepsWhatIsStillAnswered()
{
    // A listener whose last instruction is under way when it ends is over when that is answered.
    int handled = 0;
    auto script = listener(QStringLiteral("one"), QStringLiteral("halt"), {});
    script.onFinish = [](ScriptedCommand& command) {
        command.post(device, QStringLiteral("lock"));
        return command.finish(true);
    };
    script.onReply = [&](ScriptedCommand&, QVariantMap const&) {
        ++handled;
        return true;
    };
    Bench bench({script});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    Order const& order = bench.order("one");
    QCOMPARE(bench.tool->stop(QStringLiteral("halt")), 1);
    QCOMPARE(stateName(order), QStringLiteral("succeeded"));
    QVERIFY(!order.isOver());
    bench.tool->releaseOrders();
    QVERIFY(bench.tool->hasOrders());
    bench.clock.step();
    QCOMPARE(handled, 1);
    QVERIFY(order.isOver());
    bench.tool->releaseOrders();
    QVERIFY(!bench.tool->hasOrders());
    QCOMPARE(bench.workstation.droppedReplies(), quint64{0});
}

void TstHost::commandsGoBeforeTheirInstance()
{
    Bench bench({listener(QStringLiteral("one"), QStringLiteral("halt"), {}),
                 oneShot(QStringLiteral("shot"), posting({QStringLiteral("b")})),
                 oneShot(QStringLiteral("quick"), {})});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    bench.order("one");
    bench.order("shot");
    bench.order("quick");
    bench.tool.reset();
    QStringList const& gone = bench.plugin.journal();
    QCOMPARE(gone.size(), 7);
    QStringList working = gone.mid(0, 3);
    working.sort();
    QCOMPARE(working, QStringList({QStringLiteral("working one"), QStringLiteral("working quick"),
                                   QStringLiteral("working shot")}));
    QCOMPARE(gone[3], QStringLiteral("instance")); // its prototypes are its children
    QCOMPARE(gone.filter(QStringLiteral("prototype")).size(), 3);
}

void TstHost::toolGoesWithRepliesOnTheirWay()
{
    int handled = 0;
    auto script = oneShot(QStringLiteral("shot"), posting({QStringLiteral("a"), QStringLiteral("b")}));
    script.onReply = [&](ScriptedCommand&, QVariantMap const&) {
        ++handled;
        return true;
    };
    auto listening = listener(QStringLiteral("one"), QStringLiteral("halt"), posting({QStringLiteral("c")}));
    listening.onReply = script.onReply;
    Bench bench({script, listening});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    bench.order("shot");
    bench.order("one");
    bench.tool.reset();
    bench.runAll();
    QCOMPARE(handled, 0);
    QCOMPARE(bench.workstation.droppedReplies(), quint64{3});
    QVERIFY(bench.log.of(QStringLiteral("finished")).isEmpty());
}

void TstHost::toolGoesWithAllowancesOnTheirWay()
{
    Bench bench({oneShot(QStringLiteral("shot"), [](ScriptedCommand& command) {
        command.post(device, QStringLiteral("a"));
        command.post(QStringLiteral("nowhere"), QStringLiteral("b"));
        return true;
    })});
    bench.endpoint.replyTimes = {};
    bench.workstation.connectEndpoint(device, bench.endpoint);
    bench.order("shot");
    bench.tool.reset();
    bench.runAll();
    QCOMPARE(bench.clock.now(), qint64{4000});
    QVERIFY(bench.log.of(QStringLiteral("finished")).isEmpty());
}

void TstHost::logLevels_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("level");
    QTest::newRow("debug") << int(QtDebugMsg) << QStringLiteral("debug");
    QTest::newRow("info") << int(QtInfoMsg) << QStringLiteral("info");
    QTest::newRow("warning") << int(QtWarningMsg) << QStringLiteral("warning");
    QTest::newRow("critical") << int(QtCriticalMsg) << QStringLiteral("critical");
}

void TstHost::logLevels()
{
    QFETCH(int, type);
    QFETCH(QString, level);
    Bench bench({});
    {
        LogTap const tap(bench.events);
        QMessageLogger const logger("file", 1, "function");
        switch (type) {
        case QtDebugMsg:
            logger.debug("a line");
            break;
        case QtInfoMsg:
            logger.info("a line");
            break;
        case QtWarningMsg:
            logger.warning("a line");
            break;
        default:
            logger.critical("a line");
        }
    }
    QCOMPARE(
        bench.log.lines,
        QStringList{QStringLiteral(R"({"time":0,"event":"log","level":"%1","text":"a line"})").arg(level)});
}

void TstHost::logAddresses_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shown");
    auto const row = [](char const* name, char const* text, char const* shown) {
        QTest::newRow(name) << QString::fromLatin1(text) << QString::fromLatin1(shown);
    };
    row("none", "no address", "no address");
    row("object", "This = DCmdInitZrt(0x55d0c8a2b1f0)", "This = DCmdInitZrt(0x..)");
    row("several", "QThread(0x7ffe1234, name = \"0x7ffe12345678\") 0x00abcdef;",
        "QThread(0x.., name = \"0x..\") 0x..;");
    // A code that a device gives is no address.
    row("low address", "This = DCmdInitZrt(0x4e5a2c0)", "This = DCmdInitZrt(0x..)");
    row("code", "controller error 0x21", "controller error 0x21");
    row("only the mark", "0x and 0xyz", "0x and 0xyz");
}

void TstHost::logAddresses()
{
    QFETCH(QString, text);
    QFETCH(QString, shown);
    Bench bench({});
    QStringList texts;
    bench.events.listen([&](qint64, RunEvent const& event) { texts += std::get<LogWritten>(event).text; });
    LogTap const tap(bench.events);
    QMessageLogger().critical().noquote() << text;
    QCOMPARE(texts, QStringList{shown});
}

void TstHost::logTapGivesBackTheFormerHandler()
{
    QStringList captured;
    s_captured = &captured;
    QtMessageHandler const former = qInstallMessageHandler(capture);
    Bench bench({});
    for (int i = 0; i < 2; ++i) {
        {
            LogTap const tap(bench.events);
            qWarning("for the run");
        }
        qWarning("for the former");
    }
    QtMessageHandler const installed = qInstallMessageHandler(former);
    QVERIFY(installed == capture);
    QCOMPARE(captured, QStringList({QStringLiteral("1 for the former"), QStringLiteral("1 for the former")}));
    QCOMPARE(bench.log.lines.size(), 2);
}

void TstHost::logTapDatesLines()
{
    QString const today = QDate::currentDate().toString(Qt::ISODate);
    Bench bench({});
    bench.clock.after(250, [] {});
    bench.runAll();
    {
        LogTap const tap(bench.events);
        QCOMPARE(getDate(), QStringLiteral("2000-01-01 00:00:00.250"));
    }
    QVERIFY2(getDate() > today, qPrintable(getDate()));
}

void TstHost::logLinesHaveTheirTime()
{
    auto script = oneShot(QStringLiteral("go"), posting({QStringLiteral("a")}));
    script.onReply = [](ScriptedCommand&, QVariantMap const&) {
        qInfo("got it");
        return true;
    };
    Bench bench({script});
    bench.workstation.connectEndpoint(device, bench.endpoint);
    LogTap const tap(bench.events);
    bench.order("go");
    bench.runAll();
    QCOMPARE(bench.log.of(QStringLiteral("log")),
             QStringList{QStringLiteral(R"({"time":5,"event":"log","level":"info","text":"got it"})")});
}

QTEST_GUILESS_MAIN(TstHost)
#include "tst_host.moc"
