#include "literals.h"
#include "scripted_station.h"

#include "host/log_tap.h"
#include "host/order.h"
#include "host/run_event.h"

#include <utilities/utilities.h>

#include <QtTest>

#include <stdexcept>

namespace
{

QString const device = "device"_s;

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
        ScriptedStation station({command("go"_s, [](ScriptedCommand& self) {
            self.post(device, "first"_s, {{"a"_s, self.parameter("p"_s)}}, 77);
            return true;
        })});
        Order const& order = station.order("go"_s, {{"p"_s, 7}});
        QCOMPARE(order.results(), QVariantMap({{"n"_s, -1}}));
        station.runAll();
        QCOMPARE(station.endpoint.got, QStringList{R"(1 first {"a":7})"_s});
        QCOMPARE(order.results(), QVariantMap({{"n"_s, 0}}));
        QCOMPARE(station.log.text(), R"(0 order 1 go {"p":7}
0 instruction 1 1 device first {"a":7} 77
5 reply 1 1 {"n":0}
5 result 1 n 0
5 finished 1 go true)"_s);
    }

    void routesToTheNamedEndpoint()
    {
        ScriptedStation station({command("both"_s, [](ScriptedCommand& self) {
            self.post("left"_s, "l"_s);
            self.post("right"_s, "r"_s);
            return true;
        })});
        ScriptedEndpoint right(station.clock);
        station.workstation.connectEndpoint("left"_s, right); // is replaced
        station.workstation.connectEndpoint("left"_s, station.endpoint);
        station.workstation.connectEndpoint("right"_s, right);
        station.order("both"_s);
        station.runAll();
        QCOMPARE(station.endpoint.got, QStringList{"1 l {}"_s});
        QCOMPARE(right.got, QStringList{"2 r {}"_s});
        QCOMPARE(station.log.of("finished"), QStringList{"5 finished 1 both true"_s});
    }

    void idsAreNotUsedTwice()
    {
        ScriptedStation station({posting("go"_s, {"a"_s, "b"_s})});
        Tool other(station.plugin, QUuid(), station.workstation);
        station.order("go"_s);
        other.order("go"_s, {});
        station.runAll();
        station.order("go"_s);
        QCOMPARE(station.log.of("order"),
                 QStringList({"0 order 1 go {}"_s, "0 order 2 go {}"_s, "4000 order 3 go {}"_s}));
        QCOMPARE(station.endpoint.got,
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
        ScriptedStation station({command("go"_s, [&](ScriptedCommand& self) {
            self.post(target, "first"_s);
            self.post(device, "second"_s);
            return true;
        })});
        station.workstation.connectEndpoint("gone"_s, station.endpoint);
        station.workstation.disconnectEndpoint("gone"_s);
        Order const& order = station.order("go"_s);
        station.runAll();
        QCOMPARE(station.log.text(), R"(0 order 1 go {}
0 instruction 1 1 %1 first {} 4000
0 notDelivered 1 1 first endpoint "%1" is gone false
0 instruction 1 2 device second {} 4000
0 withdrawn 1 2
0 finished 1 go false "first": endpoint "%1" is gone
5 reply 1 2 {"n":0}
5 dropped 1 2)"_s.arg(target));
        QCOMPARE(station.workstation.droppedReplies(), quint64{1});
        QCOMPARE(order.state(), Order::State::Failed);
        QCOMPARE(order.message(), "\"first\": endpoint \"%1\" is gone"_s.arg(target));
    }

    void listenerGoesOnWithoutAnEndpoint()
    {
        ScriptedStation station({posting("listen"_s, {"a"_s}, "halt"_s)});
        station.endpoint.connected = false;
        Order const& order = station.order("listen"_s);
        station.runAll();
        QCOMPARE(order.state(), Order::State::Running);
        station.tool->stop("halt"_s);
        QVERIFY(order.isOver());
        QCOMPARE(station.log.of("notDelivered"),
                 QStringList{"0 notDelivered 1 1 a endpoint \"device\" is gone true"_s});
    }

    // Whether the command has heard of it or not.
    void undeliveredIsNotWithdrawn()
    {
        ScriptedStation station({posting("listen"_s, {"a"_s}, "halt"_s)});
        station.endpoint.connected = false;
        station.order("listen"_s);
        station.tool->stop("halt"_s);
        station.order("listen"_s);
        station.runAll();
        station.tool->stop("halt"_s);
        station.endpoint.connected = true;
        station.order("listen"_s);
        station.tool->stop("halt"_s);
        QCOMPARE(station.log.of("withdrawn"), QStringList{"0 withdrawn 3 3"_s});
        QCOMPARE(station.endpoint.got, QStringList({"3 a {}"_s, "withdrawn 3"_s}));
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
        ScriptedStation station({command("go"_s,
                                         [&](ScriptedCommand& self) {
                                             self.post(device, "first"_s, {}, allowance);
                                             return true;
                                         })},
                                {replyTime});
        station.order("go"_s);
        station.runAll();
        QCOMPARE(station.log.of("finished"), QStringList{finished});
        QCOMPARE(station.log.of("result").size(), isInTime ? 1 : 0);
        QCOMPARE(station.log.of("dropped").size(), isInTime ? 0 : 1);
    }

    // Each right behind the reply that it is about.
    void duplicatesAreDropped()
    {
        ScriptedStation station({posting("go"_s, {"a"_s, "b"_s})}, {5, 8});
        station.order("go"_s);
        station.runAll();
        QCOMPARE(station.log.text(), R"(0 order 1 go {}
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

    void unknownCommand()
    {
        ScriptedStation station({posting("go"_s, {})});
        try {
            station.order("gone"_s);
            QFAIL("no exception");
        } catch (std::invalid_argument const& error) {
            QCOMPARE(error.what(), "the plugin has no command \"gone\"");
        }
        QVERIFY(!station.tool->hasOrders());
        QCOMPARE(station.log.text(), QString());
    }

    void instanceThatIsNoPlugin()
    {
        ScriptedStation station({});
        try {
            Tool const tool(BarePlugin(), QUuid(), station.workstation);
            QFAIL("no exception");
        } catch (std::runtime_error const& error) {
            QCOMPARE(error.what(), "the plugin's instances are no plugin objects");
        }
        QCOMPARE(BarePlugin::s_destroyed, 1);
    }

    void instanceHasItsIdentity()
    {
        ScriptedStation station({posting("go"_s, {}), posting("come"_s, {})});
        QUuid const id = QUuid::createUuid();
        Tool const tool(station.plugin, id, station.workstation);
        QCOMPARE(tool.plugin().objectUuid(), id);
        QCOMPARE(tool.plugin().commandNames(), QStringList({"go"_s, "come"_s}));
        QVERIFY(&tool.plugin() != &station.plugin);
    }

    void stopEndsAllOfThatName()
    {
        ScriptedStation station({posting("one"_s, {"a"_s}, "halt"_s), posting("two"_s, {}, "halt"_s),
                                 posting("other"_s, {}, "end"_s), posting("shot"_s, {"b"_s})});
        for (auto const& name : {"one"_s, "two"_s, "two"_s, "other"_s, "shot"_s})
            station.order(name);
        station.log.lines.clear();
        QCOMPARE(station.tool->stop("halt"_s), 3);
        QCOMPARE(station.tool->stop("halt"_s), 0);
        QCOMPARE(station.tool->stop("other"_s), 0); // the command, not what stops it
        QCOMPARE(station.tool->stop(QString()), 0); // what nothing stops has no stop name, not an empty one
        QCOMPARE(station.tool->stop("end"_s), 1);
        QCOMPARE(station.log.text(), R"(0 stop halt 3
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
        ScriptedStation station(
            {posting("one"_s, {}, "halt"_s), posting("two"_s, {}, "end"_s), posting("shot"_s, {"b"_s})});
        for (auto const& name : {"one"_s, "two"_s, "shot"_s})
            station.order(name);
        station.log.lines.clear();
        station.tool->stopAll();
        station.tool->stopAll(); // with nothing to stop there is nothing to tell
        QCOMPARE(station.log.text(), "0 stopAll 2\n0 finished 1 one true\n0 finished 2 two true"_s);
    }

    void releaseKeepsWhatRuns()
    {
        ScriptedStation station(
            {posting("quick"_s, {}), posting("one"_s, {}, "halt"_s), posting("shot"_s, {"b"_s})});
        for (auto const& name : {"one"_s, "quick"_s, "shot"_s})
            station.order(name);
        station.tool->releaseOrders();
        QCOMPARE(station.plugin.journal(), QStringList{"working quick"_s});
        station.runAll();
        station.tool->releaseOrders();
        QVERIFY(station.tool->hasOrders());
        station.tool->stopAll();
        station.tool->releaseOrders();
        QCOMPARE(station.plugin.journal(),
                 QStringList({"working quick"_s, "working shot"_s, "working one"_s}));
        QVERIFY(!station.tool->hasOrders());
    }

    void commandsGoBeforeTheirInstance()
    {
        ScriptedStation station({posting("one"_s, {}, "halt"_s), posting("shot"_s, {"b"_s})});
        station.order("one"_s);
        station.order("shot"_s);
        station.tool.reset();
        QStringList gone = station.plugin.journal();
        std::sort(gone.begin(), gone.begin() + 2);
        QCOMPARE(gone, QStringList({"working one"_s, "working shot"_s, "instance"_s, "prototype one"_s,
                                    "prototype shot"_s})); // prototypes are children of the instance
    }

    void toolGoesWithRepliesOnTheirWay()
    {
        ScriptedStation station({posting("shot"_s, {"a"_s, "b"_s}), posting("one"_s, {"c"_s}, "halt"_s),
                                 command("lost"_s, [](ScriptedCommand& self) {
                                     self.post("nowhere"_s, "d"_s);
                                     return true;
                                 })});
        for (auto const& name : {"shot"_s, "one"_s, "lost"_s})
            station.order(name);
        station.tool.reset();
        station.log.lines.clear();
        station.runAll();
        QCOMPARE(station.log.text(), R"(5 reply 1 1 {"n":0}
5 dropped 1 1
5 reply 1 2 {"n":0}
5 dropped 1 2
5 reply 2 3 {"n":0}
5 dropped 2 3)"_s);
        QCOMPARE(station.clock.now(), qint64{4000}); // the time allowances have passed as well
    }

    void logTapPublishesLines()
    {
        QString const today = QDate::currentDate().toString(Qt::ISODate);
        QStringList printed;
        static QStringList* s_printed = nullptr;
        s_printed = &printed;
        QtMessageHandler const print = [](QtMsgType, QMessageLogContext const&, QString const& text) {
            *s_printed += text;
        };
        QtMessageHandler const former = qInstallMessageHandler(print);
        ScriptedStation station({});
        {
            LogTap const tap(station.events);
            QMessageLogger const logger("file", 1, "function");
            logger.debug("a");
            logger.info("b");
            station.clock.after(5, [&logger] { logger.warning("c"); });
            station.runAll();
            logger.critical("d");
            QCOMPARE(getDate(), "2000-01-01 00:00:00.005"_s); // what a line of the plugin begins with
        }
        QVERIFY2(getDate() > today, qPrintable(getDate()));
        qWarning("for the former handler");
        QVERIFY(qInstallMessageHandler(former) == print);
        QCOMPARE(station.log.text(), "0 log debug a\n0 log info b\n5 log warning c\n5 log critical d"_s);
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
        ScriptedStation station({});
        LogTap const tap(station.events);
        QMessageLogger().critical().noquote() << text;
        QCOMPARE(station.log.text(), "0 log critical "_s + shown);
    }
};

QTEST_GUILESS_MAIN(TestHost)
#include "tst_host.moc"
