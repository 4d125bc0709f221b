#include "event_log.h"
#include "literals.h"
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

QString const device = "device"_s;

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
        return "running"_s;
    case Order::State::Succeeded:
        return "succeeded"_s;
    case Order::State::Failed:
        return "failed: "_s + order.message();
    }
    return {};
}

QStringList* s_captured = nullptr;
void capture(QtMsgType type, QMessageLogContext const& /*context*/, QString const& text)
{
    s_captured->append("%1 %2"_s.arg(type).arg(text));
}

} // namespace

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

/// Orders under way: how instructions and replies find their way, and what becomes of everything.
class TestHost : public QObject
{
    Q_OBJECT

private slots:
    void routesToTheNamedEndpoint()
    {
        Bench bench({oneShot("both"_s, [](ScriptedCommand& command) {
            command.post("left"_s, "l"_s);
            command.post("right"_s, "r"_s);
            return true;
        })});
        ScriptedEndpoint right(bench.clock);
        bench.workstation.connectEndpoint("left"_s, bench.endpoint);
        bench.workstation.connectEndpoint("right"_s, right);
        Order const& order = bench.order("both");
        QCOMPARE(bench.endpoint.got.size(), 1);
        QCOMPARE(bench.endpoint.got[0].first, "l"_s);
        QCOMPARE(right.got.size(), 1);
        QCOMPARE(right.got[0].first, "r"_s);
        bench.runAll();
        QCOMPARE(stateName(order), "succeeded"_s);
    }

    void carriesInstructionAndReply()
    {
        auto script = oneShot("go"_s, [](ScriptedCommand& command) {
            command.post(device, "first"_s, {{"a"_s, 1}}, 77);
            return true;
        });
        script.results = {{"n"_s, "int"_s, QString(), -1}};
        script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
            return command.publish("n"_s, reply.value("n"_s));
        };
        Bench bench({script});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        bench.order("go", {{"p"_s, true}});
        QCOMPARE(bench.endpoint.got[0].second, QVariantMap({{"a"_s, 1}}));
        bench.runAll();
        QCOMPARE(bench.log.lines,
                 QStringList({
                     R"({"time":0,"event":"order","order":1,"command":"go","parameters":{"p":true}})"_s,
                     R"({"time":0,"event":"instruction","order":1,"instruction":1,"target":"device",)"
                     R"("name":"first","arguments":{"a":1},"timeAllowance":77})"_s,
                     R"({"time":5,"event":"reply","order":1,"instruction":1,"reply":{"n":0}})"_s,
                     R"({"time":5,"event":"result","order":1,"key":"n","value":0})"_s,
                     R"({"time":5,"event":"finished","order":1,"command":"go","success":true})"_s,
                 }));
        QCOMPARE(bench.workstation.droppedReplies(), quint64{0});
    }

    void idsAreNotUsedTwice()
    {
        Bench bench({oneShot("go"_s, posting({"a"_s, "b"_s}))});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        Tool other(bench.plugin, QUuid(), bench.workstation);
        QCOMPARE(bench.order("go").id(), quint64{1});
        QCOMPARE(other.order("go"_s, {}).id(), quint64{2});
        bench.runAll();
        QCOMPARE(bench.order("go").id(), quint64{3});
        auto const posted = bench.log.of("instruction"_s);
        QCOMPARE(posted.size(), 6);
        for (int i = 0; i < posted.size(); ++i)
            QVERIFY2(posted[i].contains("\"instruction\":%1,"_s.arg(i + 1)), qPrintable(posted[i]));
    }

    void noEndpoint_data()
    {
        QTest::addColumn<bool>("wasThere");
        QTest::addColumn<QString>("target");
        QTest::newRow("unknown") << false << "nowhere"_s;
        QTest::newRow("disconnected") << true << "nowhere"_s;
        QTest::newRow("another case") << false << "Device"_s;
        QTest::newRow("empty") << false << QString();
    }

    void noEndpoint()
    {
        QFETCH(bool, wasThere);
        QFETCH(QString, target);
        bool isThrough = false;
        Bench bench({oneShot("go"_s, [&](ScriptedCommand& command) {
            command.post(target, "first"_s);
            command.post(device, "second"_s);
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
        QCOMPARE(stateName(order), "running"_s);
        QVERIFY(bench.clock.step());
        QCOMPARE(stateName(order), "failed: \"first\": endpoint \"%1\" is gone"_s.arg(target));
        QCOMPARE(bench.clock.now(), qint64{0});
        // What else it had posted is withdrawn, and its reply dropped.
        QCOMPARE(bench.log.of("withdrawn"_s),
                 QStringList{R"({"time":0,"event":"withdrawn","order":1,"instruction":2})"_s});
        bench.runAll();
        QCOMPARE(bench.workstation.droppedReplies(), quint64{1});
        QCOMPARE(bench.log.of("finished"_s).size(), 1);
    }

    void endpointThatIsNotConnected()
    {
        Bench bench({oneShot("go"_s, posting({"a"_s}))});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        bench.endpoint.connected = false;
        Order const& order = bench.order("go");
        bench.runAll();
        QCOMPARE(stateName(order), "failed: \"a\": endpoint \"device\" is gone"_s);
        QCOMPARE(bench.log.of("notDelivered"_s),
                 QStringList{R"({"time":0,"event":"notDelivered","order":1,"instruction":1,"name":"a",)"
                             "\"reason\":\"endpoint \\\"device\\\" is gone\",\"goesOn\":false}"_s});
        QVERIFY(bench.endpoint.got.isEmpty());
        bench.endpoint.connected = true;
        Order const& again = bench.order("go");
        bench.runAll();
        QCOMPARE(stateName(again), "succeeded"_s);
    }

    void noEndpointForAListener()
    {
        Bench bench({listener("listen"_s, "halt"_s, posting({"a"_s}))});
        Order const& order = bench.order("listen");
        bench.runAll();
        QCOMPARE(stateName(order), "running"_s);
        QCOMPARE(bench.log.lines.filter("\"goesOn\":true"_s).size(), 1);
        QCOMPARE(bench.tool->stop("halt"_s), 1);
        QCOMPARE(stateName(order), "succeeded"_s);
        QVERIFY(order.isOver());
    }

    // Whether the command has heard of it or not.
    void undeliveredIsNotWithdrawn()
    {
        Bench bench({listener("listen"_s, "halt"_s, posting({"a"_s}))});
        bench.order("listen");
        bench.tool->stop("halt"_s);
        bench.order("listen");
        bench.runAll();
        bench.tool->stop("halt"_s);
        QCOMPARE(bench.log.of("notDelivered"_s).size(), 2);
        QCOMPARE(bench.log.of("withdrawn"_s), QStringList());
        // One that is there is.
        bench.workstation.connectEndpoint(device, bench.endpoint);
        bench.order("listen");
        bench.tool->stop("halt"_s);
        QCOMPARE(bench.log.of("withdrawn"_s).size(), 1);
        QCOMPARE(bench.endpoint.withdrawn, QList<quint64>{3});
    }

    // A command that leaves its instructions open when it is stopped gets one reply to each, but not to one
    // whose time was over before.
    void overdueIsNotWaitedForAtTheEnd()
    {
        auto script = listener("listen"_s, "halt"_s, posting({"a"_s}));
        script.onFinish = [](ScriptedCommand& command) {
            command.post(device, "last"_s);
            return command.finish(true);
        };
        Bench bench({script});
        bench.endpoint.replyTimes = {};
        bench.workstation.connectEndpoint(device, bench.endpoint);
        Order const& order = bench.order("listen");
        bench.runAll();
        QCOMPARE(bench.clock.now(), qint64{4000});
        QVERIFY(bench.log.of("withdrawn"_s).isEmpty());
        bench.tool->stop("halt"_s);
        QCOMPARE(
            bench.log.lines.mid(bench.log.lines.size() - 2),
            QStringList({R"({"time":4000,"event":"finished","order":1,"command":"listen","success":true})"_s,
                         R"({"time":4000,"event":"withdrawn","order":1,"instruction":1})"_s}));
        QVERIFY(!order.isOver());
        bench.runAll();
        QCOMPARE(bench.clock.now(), qint64{8000});
        QVERIFY(order.isOver());
    }

    void endpointThatIsReplaced()
    {
        Bench bench({oneShot("go"_s, posting({"a"_s}))});
        ScriptedEndpoint second(bench.clock);
        bench.workstation.connectEndpoint(device, bench.endpoint);
        bench.workstation.connectEndpoint(device, second);
        bench.order("go");
        QCOMPARE(bench.endpoint.got.size(), 0);
        QCOMPARE(second.got.size(), 1);
    }

    void replyTimes_data()
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

    void replyTimes()
    {
        QFETCH(qint64, replyTime);
        QFETCH(int, allowance);
        QFETCH(QString, state);
        QFETCH(qint64, finishedAt);
        Bench bench({oneShot("go"_s, [&](ScriptedCommand& command) {
            command.post(device, "first"_s, {}, allowance);
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
        QCOMPARE(bench.log.of("finished"_s).size(), 1);
    }

    void listenerOutlivesItsAllowance()
    {
        auto script = listener("listen"_s, "halt"_s, posting({"a"_s}));
        script.results = {{"n"_s, "int"_s, QString(), -1}};
        script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
            return command.publish("n"_s, reply.value("n"_s));
        };
        Bench bench({script});
        bench.endpoint.replyTimes = {9000, 9001, 20'000};
        bench.workstation.connectEndpoint(device, bench.endpoint);
        Order const& order = bench.order("listen");
        bench.runAll();
        QCOMPARE(stateName(order), "running"_s);
        QCOMPARE(order.results(), QVariantMap({{"n"_s, 2}}));
        QCOMPARE(bench.log.of("result"_s).size(), 3);
        QCOMPARE(bench.workstation.droppedReplies(), quint64{0});
    }

    void duplicatesAreDropped()
    {
        int handled = 0;
        auto script = oneShot("go"_s, posting({"a"_s, "b"_s}));
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
        QCOMPARE(stateName(order), "succeeded"_s);
        QCOMPARE(bench.workstation.droppedReplies(), quint64{4});
        QCOMPARE(bench.log.of("reply"_s).size(), 6);
        QCOMPARE(bench.log.of("dropped"_s),
                 QStringList({R"({"time":5,"event":"dropped","order":1,"instruction":1})"_s,
                              R"({"time":5,"event":"dropped","order":1,"instruction":2})"_s,
                              R"({"time":8,"event":"dropped","order":1,"instruction":1})"_s,
                              R"({"time":8,"event":"dropped","order":1,"instruction":2})"_s}));
        // Each is dropped right behind the reply that it is about.
        for (int i = 0; i < bench.log.lines.size(); ++i) {
            if (bench.log.lines[i].contains("\"dropped\""_s))
                QVERIFY(bench.log.lines[i - 1].contains("\"reply\""_s));
        }
    }

    void lateReplyIsDropped()
    {
        int handled = 0;
        auto script = oneShot("go"_s, posting({"a"_s}));
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
        QCOMPARE(stateName(order), "failed: no reply to \"a\" within 4000 ms"_s);
    }

    void replyToAReleasedOrder()
    {
        int handled = 0;
        auto script = oneShot("go"_s, posting({"a"_s}));
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
        QCOMPARE(bench.plugin.journal(), QStringList{"working go"_s});
        QCOMPARE(bench.workstation.droppedReplies(), quint64{0});
        bench.runAll();
        QCOMPARE(handled, 1);
        QCOMPARE(bench.workstation.droppedReplies(), quint64{1});
        QCOMPARE(bench.log.lines.mid(bench.log.lines.size() - 2),
                 QStringList({R"({"time":10,"event":"reply","order":1,"instruction":1,"reply":{"n":1}})"_s,
                              R"({"time":10,"event":"dropped","order":1,"instruction":1})"_s}));
    }

    void withdrawnInstruction()
    {
        int handled = 0;
        auto script = oneShot("go"_s, [](ScriptedCommand& command) {
            command.withdraw(command.post(device, "a"_s));
            command.post(device, "b"_s);
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
        QCOMPARE(stateName(order), "succeeded"_s);
        QCOMPARE(bench.log.of("withdrawn"_s),
                 QStringList{R"({"time":0,"event":"withdrawn","order":1,"instruction":1})"_s});
    }

    void refusedReply()
    {
        auto script = oneShot("go"_s, posting({"a"_s}));
        script.onReply = [](ScriptedCommand&, QVariantMap const&) { return false; };
        Bench bench({script});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        Order const& order = bench.order("go");
        bench.runAll();
        QCOMPARE(stateName(order), "failed: the reply to \"a\" was not accepted"_s);
        QCOMPARE(bench.log.lines.last(),
                 R"({"time":5,"event":"finished","order":1,"command":"go","success":false,)"
                 "\"message\":\"the reply to \\\"a\\\" was not accepted\"}"_s);
    }

    // It must not; the command does not know yet what it has asked. Nothing goes wrong unseen.
    void endpointThatAnswersAtOnce()
    {
        class Hasty : public Endpoint
        {
        public:
            void post(quint64, QString const&, QVariantMap const&, Reply onReply) override { onReply({}); }
            void withdraw(quint64) override {}
        };
        int handled = 0;
        auto script = oneShot("go"_s, posting({"a"_s}));
        script.onReply = [&](ScriptedCommand&, QVariantMap const&) { return ++handled > 0; };
        Bench bench({script});
        Hasty endpoint;
        bench.workstation.connectEndpoint(device, endpoint);
        LogTap const tap(bench.events);
        Order const& order = bench.order("go");
        QCOMPARE(bench.log.of("log"_s).size(), 1);
        QVERIFY2(bench.log.of("log"_s)[0].contains("refused setReply()"_s),
                 qPrintable(bench.log.lines.join(QLatin1Char('\n'))));
        QCOMPARE(bench.workstation.droppedReplies(), quint64{1});
        bench.runAll();
        QCOMPARE(handled, 0);
        QCOMPARE(stateName(order), "failed: no reply to \"a\" within 4000 ms"_s);
        QVERIFY(order.isOver());
    }

    void stopFromWithinAResult()
    {
        auto script = listener("listen"_s, "halt"_s, posting({"a"_s}));
        script.results = {{"n"_s, "int"_s, QString(), -1}};
        script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
            return command.publish("n"_s, reply.value("n"_s));
        };
        Bench bench({script});
        bench.endpoint.replyTimes = {5, 6};
        bench.workstation.connectEndpoint(device, bench.endpoint);
        bench.events.listen([&bench](qint64, RunEvent const& event) {
            if (std::holds_alternative<ResultUpdated>(event))
                bench.tool->stop("halt"_s);
        });
        Order const& order = bench.order("listen");
        bench.runAll();
        QCOMPARE(stateName(order), "succeeded"_s);
        QCOMPARE(order.results(), QVariantMap({{"n"_s, 0}}));
        QCOMPARE(bench.log.of("result"_s).size(), 1);
        QCOMPARE(bench.log.of("finished"_s).size(), 1);
        QCOMPARE(bench.workstation.droppedReplies(), quint64{1});
        bench.tool->releaseOrders();
        QVERIFY(!bench.tool->hasOrders());
    }

    void refusedStart_data()
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

    void refusedStart()
    {
        QFETCH(bool, listens);
        QFETCH(bool, posts);
        QFETCH(bool, asksBase);
        auto script = oneShot("go"_s, [posts](ScriptedCommand& command) {
            if (posts)
                command.post(device, "a"_s);
            return false;
        });
        script.skipsBase = !asksBase;
        if (listens)
            script.stopName = "halt"_s;
        Bench bench({script});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        Order const& order = bench.order("go");
        QCOMPARE(stateName(order), "failed: the command refused to start"_s);
        bench.runAll();
        // It stays at that, whatever is still answered.
        QCOMPARE(stateName(order), "failed: the command refused to start"_s);
        QCOMPARE(bench.log.of("finished"_s).size(), 1);
        QCOMPARE(bench.tool->stop("halt"_s), 0);
        bench.tool->releaseOrders();
        QVERIFY(!bench.tool->hasOrders());
    }

    void nothingPosted()
    {
        Bench bench({oneShot("go"_s, {})});
        Order const& order = bench.order("go");
        QCOMPARE(stateName(order), "succeeded"_s);
        QVERIFY(order.isOver());
        QVERIFY(!bench.clock.step());
    }

    void results()
    {
        auto script = oneShot("go"_s, [](ScriptedCommand& command) {
            command.publish("b"_s, "new"_s);
            command.publish("undeclared"_s, 1);
            return true;
        });
        script.results = {{"b"_s, "strg"_s, QString(), "old"_s}, {"a"_s, "vart"_s, QString(), QVariant()}};
        Bench bench({script});
        Order const& order = bench.order("go");
        QCOMPARE(order.results(), QVariantMap({{"a"_s, QVariant()}, {"b"_s, "new"_s}}));
        QCOMPARE(bench.log.of("result"_s),
                 QStringList{R"({"time":0,"event":"result","order":1,"key":"b","value":"new"})"_s});
    }

    void parametersReachTheCommand()
    {
        QVariantList seen;
        auto script = oneShot("go"_s, [&](ScriptedCommand& command) {
            seen += command.parameter("given"_s);
            seen += command.parameter("left out"_s);
            return true;
        });
        script.parameters = {{"given"_s, "int"_s, QString(), 1}, {"left out"_s, "int"_s, QString(), 2}};
        Bench bench({script});
        bench.order("go", {{"given"_s, 7}});
        bench.order("go");
        QCOMPARE(seen, QVariantList({7, 2, 1, 2}));
    }

    void queuedSignalOfACommand()
    {
        // The signal that a command has finished may be connected queued; it comes within the same moment.
        Bench bench({oneShot("go"_s, posting({"a"_s}))});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        Order const& order = bench.order("go");
        qint64 heardAt = -1;
        QObject context;
        connect(
            &dynamic_cast<DAbstractCommand&>(order.command()), &DAbstractCommand::sigCommandFinished,
            &context, [&](bool success) { heardAt = success ? bench.clock.now() : -2; },
            Qt::QueuedConnection);
        bench.clock.step();
        QCOMPARE(heardAt, qint64{5});
    }

    void unknownCommand()
    {
        Bench bench({oneShot("go"_s, {})});
        try {
            bench.order("gone");
            QFAIL("no exception");
        } catch (std::invalid_argument const& error) {
            QCOMPARE(error.what(), "the plugin has no command \"gone\"");
        }
        QVERIFY(!bench.tool->hasOrders());
        QVERIFY(bench.log.lines.isEmpty());
    }

    void instanceThatIsNoPlugin()
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

    void instanceHasItsIdentity()
    {
        Bench bench({oneShot("go"_s, {}), oneShot("come"_s, {})});
        QUuid const id = QUuid::createUuid();
        Tool const tool(bench.plugin, id, bench.workstation);
        QCOMPARE(tool.plugin().objectUuid(), id);
        QCOMPARE(tool.plugin().commandNames(), QStringList({"go"_s, "come"_s}));
        QVERIFY(&tool.plugin() != &bench.plugin);
    }

    void stopEndsAllOfThatName()
    {
        Bench bench({listener("one"_s, "halt"_s, posting({"a"_s})), listener("two"_s, "halt"_s, {}),
                     listener("other"_s, "halt others"_s, {}), oneShot("shot"_s, posting({"b"_s}))});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        Order const& one = bench.order("one");
        Order const& two = bench.order("two");
        Order const& again = bench.order("two");
        Order const& other = bench.order("other");
        Order const& shot = bench.order("shot");
        QCOMPARE(bench.tool->stop("halt"_s), 3);
        QCOMPARE(stateName(one), "succeeded"_s);
        QCOMPARE(stateName(two), "succeeded"_s);
        QCOMPARE(stateName(again), "succeeded"_s);
        QCOMPARE(stateName(other), "running"_s);
        QCOMPARE(stateName(shot), "running"_s);
        QCOMPARE(bench.tool->stop("halt"_s), 0);
        QCOMPARE(bench.log.lines.mid(7),
                 QStringList({R"({"time":0,"event":"stop","command":"halt","running":3})"_s,
                              R"({"time":0,"event":"withdrawn","order":1,"instruction":1})"_s,
                              R"({"time":0,"event":"finished","order":1,"command":"one","success":true})"_s,
                              R"({"time":0,"event":"finished","order":2,"command":"two","success":true})"_s,
                              R"({"time":0,"event":"finished","order":3,"command":"two","success":true})"_s,
                              R"({"time":0,"event":"stop","command":"halt","running":0})"_s}));
        QCOMPARE(bench.tool->stop("halt others"_s), 1);
        QCOMPARE(stateName(other), "succeeded"_s);
    }

    void stopOfNothing()
    {
        Bench bench({listener("one"_s, "halt"_s, {})});
        QCOMPARE(bench.tool->stop("halt"_s), 0);
        QCOMPARE(bench.tool->stop("unknown"_s), 0);
    }

    void stopIsNotForOthers()
    {
        Bench bench({oneShot("shot"_s, posting({"a"_s})), listener("one"_s, "halt"_s, {})});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        Order const& shot = bench.order("shot");
        Order const& one = bench.order("one");
        // The name of the command is not the name that stops it.
        QCOMPARE(bench.tool->stop("one"_s), 0);
        // A command that nothing stops has no stop name, not an empty one.
        QCOMPARE(bench.tool->stop(QString()), 0);
        QCOMPARE(stateName(shot), "running"_s);
        QCOMPARE(stateName(one), "running"_s);
    }

    void stopAll()
    {
        Bench bench({listener("one"_s, "halt"_s, {}), listener("two"_s, "end"_s, {}),
                     oneShot("shot"_s, posting({"b"_s}))});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        Order const& one = bench.order("one");
        Order const& two = bench.order("two");
        Order const& shot = bench.order("shot");
        bench.tool->stopAll();
        QCOMPARE(stateName(one), "succeeded"_s);
        QCOMPARE(stateName(two), "succeeded"_s);
        QCOMPARE(stateName(shot), "running"_s);
        QVERIFY(bench.log.of("stop"_s).isEmpty());
        QStringList const told{R"({"time":0,"event":"stopAll","running":2})"_s};
        QCOMPARE(bench.log.of("stopAll"_s), told);
        // With nothing to stop there is nothing to tell.
        bench.tool->stopAll();
        QCOMPARE(bench.log.of("stopAll"_s), told);
    }

    void releaseKeepsWhatRuns()
    {
        Bench bench(
            {oneShot("quick"_s, {}), listener("one"_s, "halt"_s, {}), oneShot("shot"_s, posting({"b"_s}))});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        bench.order("one");
        bench.order("quick");
        bench.order("shot");
        bench.tool->releaseOrders();
        QCOMPARE(bench.plugin.journal(), QStringList{"working quick"_s});
        bench.runAll();
        bench.tool->releaseOrders();
        QCOMPARE(bench.plugin.journal().last(), "working shot"_s);
        QVERIFY(bench.tool->hasOrders());
        bench.tool->stopAll();
        bench.tool->releaseOrders();
        QCOMPARE(bench.plugin.journal().last(), "working one"_s);
        QVERIFY(!bench.tool->hasOrders());
    }

    void releaseKeepsWhatIsStillAnswered()
    {
        // A listener whose last instruction is under way when it ends is over when that is answered.
        int handled = 0;
        auto script = listener("one"_s, "halt"_s, {});
        script.onFinish = [](ScriptedCommand& command) {
            command.post(device, "lock"_s);
            return command.finish(true);
        };
        script.onReply = [&](ScriptedCommand&, QVariantMap const&) {
            ++handled;
            return true;
        };
        Bench bench({script});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        Order const& order = bench.order("one");
        QCOMPARE(bench.tool->stop("halt"_s), 1);
        QCOMPARE(stateName(order), "succeeded"_s);
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

    void commandsGoBeforeTheirInstance()
    {
        Bench bench(
            {listener("one"_s, "halt"_s, {}), oneShot("shot"_s, posting({"b"_s})), oneShot("quick"_s, {})});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        bench.order("one");
        bench.order("shot");
        bench.order("quick");
        bench.tool.reset();
        QStringList const& gone = bench.plugin.journal();
        QCOMPARE(gone.size(), 7);
        QStringList working = gone.mid(0, 3);
        working.sort();
        QCOMPARE(working, QStringList({"working one"_s, "working quick"_s, "working shot"_s}));
        QCOMPARE(gone[3], "instance"_s); // its prototypes are its children
        QCOMPARE(gone.filter("prototype"_s).size(), 3);
    }

    void toolGoesWithRepliesOnTheirWay()
    {
        int handled = 0;
        auto script = oneShot("shot"_s, posting({"a"_s, "b"_s}));
        script.onReply = [&](ScriptedCommand&, QVariantMap const&) {
            ++handled;
            return true;
        };
        auto listening = listener("one"_s, "halt"_s, posting({"c"_s}));
        listening.onReply = script.onReply;
        Bench bench({script, listening});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        bench.order("shot");
        bench.order("one");
        bench.tool.reset();
        bench.runAll();
        QCOMPARE(handled, 0);
        QCOMPARE(bench.workstation.droppedReplies(), quint64{3});
        QVERIFY(bench.log.of("finished"_s).isEmpty());
    }

    void toolGoesWithAllowancesOnTheirWay()
    {
        Bench bench({oneShot("shot"_s, [](ScriptedCommand& command) {
            command.post(device, "a"_s);
            command.post("nowhere"_s, "b"_s);
            return true;
        })});
        bench.endpoint.replyTimes = {};
        bench.workstation.connectEndpoint(device, bench.endpoint);
        bench.order("shot");
        bench.tool.reset();
        bench.runAll();
        QCOMPARE(bench.clock.now(), qint64{4000});
        QVERIFY(bench.log.of("finished"_s).isEmpty());
    }

    void logLevels_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("level");
        QTest::newRow("debug") << int(QtDebugMsg) << "debug"_s;
        QTest::newRow("info") << int(QtInfoMsg) << "info"_s;
        QTest::newRow("warning") << int(QtWarningMsg) << "warning"_s;
        QTest::newRow("critical") << int(QtCriticalMsg) << "critical"_s;
    }

    void logLevels()
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
        QCOMPARE(bench.log.lines,
                 QStringList{R"({"time":0,"event":"log","level":"%1","text":"a line"})"_s.arg(level)});
    }

    void logAddresses_data()
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

    void logAddresses()
    {
        QFETCH(QString, text);
        QFETCH(QString, shown);
        Bench bench({});
        QStringList texts;
        bench.events.listen(
            [&](qint64, RunEvent const& event) { texts += std::get<LogWritten>(event).text; });
        LogTap const tap(bench.events);
        QMessageLogger().critical().noquote() << text;
        QCOMPARE(texts, QStringList{shown});
    }

    void logTapGivesBackTheFormerHandler()
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
        QCOMPARE(captured, QStringList({"1 for the former"_s, "1 for the former"_s}));
        QCOMPARE(bench.log.lines.size(), 2);
    }

    void logTapDatesLines()
    {
        QString const today = QDate::currentDate().toString(Qt::ISODate);
        Bench bench({});
        bench.clock.after(250, [] {});
        bench.runAll();
        {
            LogTap const tap(bench.events);
            QCOMPARE(getDate(), "2000-01-01 00:00:00.250"_s);
        }
        QVERIFY2(getDate() > today, qPrintable(getDate()));
    }

    void logLinesHaveTheirTime()
    {
        auto script = oneShot("go"_s, posting({"a"_s}));
        script.onReply = [](ScriptedCommand&, QVariantMap const&) {
            qInfo("got it");
            return true;
        };
        Bench bench({script});
        bench.workstation.connectEndpoint(device, bench.endpoint);
        LogTap const tap(bench.events);
        bench.order("go");
        bench.runAll();
        QCOMPARE(bench.log.of("log"_s),
                 QStringList{R"({"time":5,"event":"log","level":"info","text":"got it"})"_s});
    }
};

QTEST_GUILESS_MAIN(TestHost)
#include "tst_host.moc"
