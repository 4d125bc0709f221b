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

#include <optional>
#include <stdexcept>

namespace
{

QString const device = "device"_s;

/// A command that publishes the "n" of each reply; one with a stop name listens.
CommandScript command(QString const& name, CommandScript::Execute execute, QString const& stopName = {})
{
    CommandScript script;
    script.name = name;
    script.stopName = stopName;
    script.parameters = {{"p"_s, "int"_s, QString(), 0}};
    script.results = {{"n"_s, "int"_s, QString(), -1}};
    script.execute = std::move(execute);
    script.onReply = [](ScriptedCommand& self, QVariantMap const& reply) {
        return self.publish("n"_s, reply.value("n"_s));
    };
    return script;
}

/// The same, which posts these instructions to "device".
CommandScript posting(QString const& name, QStringList const& instructions, QString const& stopName = {})
{
    return command(
        name,
        [instructions](ScriptedCommand& self) {
            for (auto const& instruction : instructions)
                self.post(device, instruction);
            return true;
        },
        stopName);
}

/// A workstation with one tool whose commands are scripted, and an endpoint "device".
struct Bench
{
    explicit Bench(QList<CommandScript> scripts, QList<qint64> const& replyTimes = {5})
        : endpoint(clock, replyTimes)
        , plugin(std::move(scripts))
    {
        workstation.connectEndpoint(device, endpoint);
        tool.emplace(plugin, QUuid(), workstation);
    }

    Order& order(char const* name, QVariantMap const& parameters = {})
    {
        return tool->order(QString::fromLatin1(name), parameters);
    }
    void runAll()
    {
        while (clock.step()) {
        }
    }
    /// What happens from now on is what the log has.
    void forget() { log.lines.clear(); }

    ZrtClock clock{ZrtClock::Pace::Simulated};
    RunEvents events{clock};
    EventLog log{events};
    Workstation workstation{clock, events};
    ScriptedEndpoint endpoint;
    ScriptedPlugin plugin;
    std::optional<Tool> tool;
};

/// A plugin whose instances are a plugin interface and nothing more.
class BarePlugin : public ScriptedPlugin
{
public:
    BarePlugin() : ScriptedPlugin({}) {}
    IPlugin* createInstance(QUuid const& objectUuid) const override;

    inline static int s_destroyed = 0;
};

class BareInstance : public IPlugin
{
public:
    ~BareInstance() override { ++BarePlugin::s_destroyed; }
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
    return new BareInstance;
}

} // namespace

/// Orders under way: how instructions and replies find their way, and what becomes of everything.
class TestHost : public QObject
{
    Q_OBJECT

private slots:
    void carriesInstructionAndReply()
    {
        Bench bench({command("go"_s, [](ScriptedCommand& self) {
            self.post(device, "first"_s, {{"a"_s, self.parameter("p"_s)}}, 77);
            return true;
        })});
        Order const& order = bench.order("go", {{"p"_s, 7}});
        QCOMPARE(order.results(), QVariantMap({{"n"_s, -1}}));
        bench.runAll();
        QCOMPARE(bench.endpoint.got, QStringList{R"(1 first {"a":7})"_s});
        QCOMPARE(order.results(), QVariantMap({{"n"_s, 0}}));
        QCOMPARE(bench.log.text(), R"(0 order 1 go {"p":7}
0 instruction 1 1 device first {"a":7} 77
5 reply 1 1 {"n":0}
5 result 1 n 0
5 finished 1 go true)"_s);
    }

    void routesToTheNamedEndpoint()
    {
        Bench bench({command("both"_s, [](ScriptedCommand& self) {
            self.post("left"_s, "l"_s);
            self.post("right"_s, "r"_s);
            return true;
        })});
        ScriptedEndpoint right(bench.clock);
        bench.workstation.connectEndpoint("left"_s, right); // is replaced
        bench.workstation.connectEndpoint("left"_s, bench.endpoint);
        bench.workstation.connectEndpoint("right"_s, right);
        bench.order("both");
        bench.runAll();
        QCOMPARE(bench.endpoint.got, QStringList{"1 l {}"_s});
        QCOMPARE(right.got, QStringList{"2 r {}"_s});
        QCOMPARE(bench.log.of("finished"), QStringList{"5 finished 1 both true"_s});
    }

    void idsAreNotUsedTwice()
    {
        Bench bench({posting("go"_s, {"a"_s, "b"_s})});
        Tool other(bench.plugin, QUuid(), bench.workstation);
        bench.order("go");
        other.order("go"_s, {});
        bench.runAll();
        bench.order("go");
        QCOMPARE(bench.log.of("order"),
                 QStringList({"0 order 1 go {}"_s, "0 order 2 go {}"_s, "4000 order 3 go {}"_s}));
        QCOMPARE(bench.endpoint.got,
                 QStringList({"1 a {}"_s, "2 b {}"_s, "3 a {}"_s, "4 b {}"_s, "5 a {}"_s, "6 b {}"_s}));
    }

    void noEndpoint_data()
    {
        QTest::addColumn<QString>("target");
        QTest::newRow("unknown") << "nowhere"_s;
        QTest::newRow("disconnected") << "gone"_s;
        QTest::newRow("another case") << "Device"_s;
        QTest::newRow("empty") << QString();
    }

    // The order fails when it is through with what it is doing, not in the middle of it. What else it has
    // posted is withdrawn, and its reply dropped.
    void noEndpoint()
    {
        QFETCH(QString, target);
        Bench bench({command("go"_s, [&](ScriptedCommand& self) {
            self.post(target, "first"_s);
            self.post(device, "second"_s);
            return true;
        })});
        bench.workstation.connectEndpoint("gone"_s, bench.endpoint);
        bench.workstation.disconnectEndpoint("gone"_s);
        bench.order("go");
        bench.runAll();
        QCOMPARE(bench.log.text(), R"(0 order 1 go {}
0 instruction 1 1 %1 first {} 4000
0 notDelivered 1 1 first endpoint "%1" is gone false
0 instruction 1 2 device second {} 4000
0 withdrawn 1 2
0 finished 1 go false "first": endpoint "%1" is gone
5 reply 1 2 {"n":0}
5 dropped 1 2)"_s.arg(target));
        QCOMPARE(bench.workstation.droppedReplies(), quint64{1});
    }

    void endpointThatIsNotConnected()
    {
        Bench bench({posting("go"_s, {"a"_s})});
        bench.endpoint.connected = false;
        Order const& order = bench.order("go");
        bench.runAll();
        QCOMPARE(order.state(), Order::State::Failed);
        QCOMPARE(order.message(), "\"a\": endpoint \"device\" is gone"_s);
        QCOMPARE(bench.endpoint.got, QStringList());
        bench.endpoint.connected = true;
        Order const& again = bench.order("go");
        bench.runAll();
        QCOMPARE(again.state(), Order::State::Succeeded);
    }

    void listenerGoesOnWithoutAnEndpoint()
    {
        Bench bench({posting("listen"_s, {"a"_s}, "halt"_s)});
        bench.endpoint.connected = false;
        Order const& order = bench.order("listen");
        bench.runAll();
        QCOMPARE(order.state(), Order::State::Running);
        bench.tool->stop("halt"_s);
        QVERIFY(order.isOver());
        QCOMPARE(bench.log.of("notDelivered"),
                 QStringList{"0 notDelivered 1 1 a endpoint \"device\" is gone true"_s});
    }

    // Whether the command has heard of it or not.
    void undeliveredIsNotWithdrawn()
    {
        Bench bench({posting("listen"_s, {"a"_s}, "halt"_s)});
        bench.endpoint.connected = false;
        bench.order("listen");
        bench.tool->stop("halt"_s);
        bench.order("listen");
        bench.runAll();
        bench.tool->stop("halt"_s);
        bench.endpoint.connected = true;
        bench.order("listen");
        bench.tool->stop("halt"_s);
        QCOMPARE(bench.log.of("withdrawn"), QStringList{"0 withdrawn 3 3"_s});
        QCOMPARE(bench.endpoint.got, QStringList({"3 a {}"_s, "withdrawn 3"_s}));
    }

    void replyTimes_data()
    {
        QTest::addColumn<qint64>("replyTime");
        QTest::addColumn<int>("allowance");
        QTest::addColumn<QString>("finished");
        auto const row = [](char const* name, qint64 replyTime, int allowance, char const* finished) {
            QTest::newRow(name) << replyTime << allowance << QString::fromLatin1(finished);
        };
        row("at once", 0, 4000, "0 finished 1 go true");
        row("exactly", 4000, 4000, "4000 finished 1 go true");
        row("just after", 4001, 4000, "4000 finished 1 go false no reply to \"first\" within 4000 ms");
        row("long after", 600'000, 76, "76 finished 1 go false no reply to \"first\" within 76 ms");
        row("no time at all", 0, 0, "0 finished 1 go true");
        row("too late for no time", 1, 0, "0 finished 1 go false no reply to \"first\" within 0 ms");
    }

    void replyTimes()
    {
        QFETCH(qint64, replyTime);
        QFETCH(int, allowance);
        QFETCH(QString, finished);
        bool const isInTime = replyTime <= allowance;
        Bench bench({command("go"_s,
                             [&](ScriptedCommand& self) {
                                 self.post(device, "first"_s, {}, allowance);
                                 return true;
                             })},
                    {replyTime});
        bench.order("go");
        bench.runAll();
        QCOMPARE(bench.log.of("finished"), QStringList{finished});
        QCOMPARE(bench.log.of("result").size(), isInTime ? 1 : 0);
        QCOMPARE(bench.log.of("dropped").size(), isInTime ? 0 : 1);
    }

    // Each right behind the reply that it is about.
    void duplicatesAreDropped()
    {
        Bench bench({posting("go"_s, {"a"_s, "b"_s})}, {5, 8});
        bench.order("go");
        bench.runAll();
        QCOMPARE(bench.log.text(), R"(0 order 1 go {}
0 instruction 1 1 device a {} 4000
0 instruction 1 2 device b {} 4000
5 reply 1 1 {"n":0}
5 result 1 n 0
5 reply 1 2 {"n":0}
5 result 1 n 0
5 finished 1 go true
8 reply 1 1 {"n":1}
8 dropped 1 1
8 reply 1 2 {"n":1}
8 dropped 1 2)"_s);
    }

    // Once, and it stays at that, whatever is still answered.
    void refusedStart()
    {
        auto script = command("go"_s, [](ScriptedCommand& self) {
            self.post(device, "a"_s);
            return false;
        });
        Bench bench({script});
        bench.order("go");
        bench.runAll();
        QCOMPARE(bench.log.of("finished"),
                 QStringList{"0 finished 1 go false the command refused to start"_s});
        bench.tool->releaseOrders();
        QVERIFY(!bench.tool->hasOrders());
    }

    void unknownCommand()
    {
        Bench bench({posting("go"_s, {})});
        try {
            bench.order("gone");
            QFAIL("no exception");
        } catch (std::invalid_argument const& error) {
            QCOMPARE(error.what(), "the plugin has no command \"gone\"");
        }
        QVERIFY(!bench.tool->hasOrders());
        QCOMPARE(bench.log.text(), QString());
    }

    void instanceThatIsNoPlugin()
    {
        Bench bench({});
        try {
            Tool const tool(BarePlugin(), QUuid(), bench.workstation);
            QFAIL("no exception");
        } catch (std::runtime_error const& error) {
            QCOMPARE(error.what(), "the plugin's instances are no plugin objects");
        }
        QCOMPARE(BarePlugin::s_destroyed, 1);
    }

    void instanceHasItsIdentity()
    {
        Bench bench({posting("go"_s, {}), posting("come"_s, {})});
        QUuid const id = QUuid::createUuid();
        Tool const tool(bench.plugin, id, bench.workstation);
        QCOMPARE(tool.plugin().objectUuid(), id);
        QCOMPARE(tool.plugin().commandNames(), QStringList({"go"_s, "come"_s}));
        QVERIFY(&tool.plugin() != &bench.plugin);
    }

    void stopEndsAllOfThatName()
    {
        Bench bench({posting("one"_s, {"a"_s}, "halt"_s), posting("two"_s, {}, "halt"_s),
                     posting("other"_s, {}, "end"_s), posting("shot"_s, {"b"_s})});
        for (char const* const name : {"one", "two", "two", "other", "shot"})
            bench.order(name);
        bench.forget();
        QCOMPARE(bench.tool->stop("halt"_s), 3);
        QCOMPARE(bench.tool->stop("halt"_s), 0);
        QCOMPARE(bench.tool->stop("other"_s), 0); // the command, not what stops it
        QCOMPARE(bench.tool->stop(QString()), 0); // what nothing stops has no stop name, not an empty one
        QCOMPARE(bench.tool->stop("end"_s), 1);
        QCOMPARE(bench.log.text(), R"(0 stop halt 3
0 withdrawn 1 1
0 finished 1 one true
0 finished 2 two true
0 finished 3 two true
0 stop halt 0
0 stop other 0
0 stop  0
0 stop end 1
0 finished 4 other true)"_s);
    }

    void stopAll()
    {
        Bench bench(
            {posting("one"_s, {}, "halt"_s), posting("two"_s, {}, "end"_s), posting("shot"_s, {"b"_s})});
        for (char const* const name : {"one", "two", "shot"})
            bench.order(name);
        bench.forget();
        bench.tool->stopAll();
        bench.tool->stopAll(); // with nothing to stop there is nothing to tell
        QCOMPARE(bench.log.text(), "0 stopAll 2\n0 finished 1 one true\n0 finished 2 two true"_s);
    }

    void releaseKeepsWhatRuns()
    {
        Bench bench({posting("quick"_s, {}), posting("one"_s, {}, "halt"_s), posting("shot"_s, {"b"_s})});
        for (char const* const name : {"one", "quick", "shot"})
            bench.order(name);
        bench.tool->releaseOrders();
        QCOMPARE(bench.plugin.journal(), QStringList{"working quick"_s});
        bench.runAll();
        bench.tool->releaseOrders();
        QVERIFY(bench.tool->hasOrders());
        bench.tool->stopAll();
        bench.tool->releaseOrders();
        QCOMPARE(bench.plugin.journal(), QStringList({"working quick"_s, "working shot"_s, "working one"_s}));
        QVERIFY(!bench.tool->hasOrders());
    }

    void commandsGoBeforeTheirInstance()
    {
        Bench bench({posting("one"_s, {}, "halt"_s), posting("shot"_s, {"b"_s})});
        bench.order("one");
        bench.order("shot");
        bench.tool.reset();
        QStringList gone = bench.plugin.journal();
        std::sort(gone.begin(), gone.begin() + 2);
        QCOMPARE(gone, QStringList({"working one"_s, "working shot"_s, "instance"_s, "prototype one"_s,
                                    "prototype shot"_s})); // prototypes are children of the instance
    }

    void toolGoesWithRepliesOnTheirWay()
    {
        Bench bench({posting("shot"_s, {"a"_s, "b"_s}), posting("one"_s, {"c"_s}, "halt"_s),
                     command("lost"_s, [](ScriptedCommand& self) {
                         self.post("nowhere"_s, "d"_s);
                         return true;
                     })});
        for (char const* const name : {"shot", "one", "lost"})
            bench.order(name);
        bench.tool.reset();
        bench.forget();
        bench.runAll();
        QCOMPARE(bench.log.text(), R"(5 reply 1 1 {"n":0}
5 dropped 1 1
5 reply 1 2 {"n":0}
5 dropped 1 2
5 reply 2 3 {"n":0}
5 dropped 2 3)"_s);
        QCOMPARE(bench.clock.now(), qint64{4000}); // the time allowances have passed as well
    }

    void logTapPublishesLines()
    {
        QStringList printed;
        static QStringList* s_printed = nullptr;
        s_printed = &printed;
        QtMessageHandler const print = [](QtMsgType, QMessageLogContext const&, QString const& text) {
            *s_printed += text;
        };
        QtMessageHandler const former = qInstallMessageHandler(print);
        Bench bench({});
        {
            LogTap const tap(bench.events);
            QMessageLogger const logger("file", 1, "function");
            logger.debug("a");
            logger.info("b");
            bench.clock.after(5, [&logger] { logger.warning("c"); });
            bench.runAll();
            logger.critical("d");
        }
        qWarning("for the former handler");
        QVERIFY(qInstallMessageHandler(former) == print);
        QCOMPARE(bench.log.text(), "0 log debug a\n0 log info b\n5 log warning c\n5 log critical d"_s);
        QCOMPARE(printed, QStringList{"for the former handler"_s});
    }

    void logTapHidesAddresses_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("shown");
        auto const row = [](char const* name, char const* text, char const* shown) {
            QTest::newRow(name) << QString::fromLatin1(text) << QString::fromLatin1(shown);
        };
        row("object", "This = DCmdInitZrt(0x55d0c8a2b1f0)", "This = DCmdInitZrt(0x..)");
        row("several", "QThread(0x7ffe1234, name = \"0x7ffe12345678\") 0x00abcdef;",
            "QThread(0x.., name = \"0x..\") 0x..;");
        row("a code that a device gives is no address", "controller error 0x21", "controller error 0x21");
        row("only the mark", "0x and 0xyz", "0x and 0xyz");
    }

    void logTapHidesAddresses()
    {
        QFETCH(QString, text);
        QFETCH(QString, shown);
        Bench bench({});
        LogTap const tap(bench.events);
        QMessageLogger().critical().noquote() << text;
        QCOMPARE(bench.log.text(), "0 log critical "_s + shown);
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
};

QTEST_GUILESS_MAIN(TestHost)
#include "tst_host.moc"
