#include "literals.h"
#include "message_capture.h"

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_tightening_tool.h>
#include <utilities/utilities.h>

#include <QJsonObject>
#include <QPointer>
#include <QSignalSpy>
#include <QUuid>
#include <QtTest>

#include <memory>

using Map = QMap<QString, QVariant>;
using Properties = QList<QPair<QString, QVariant>>;

namespace
{

QUuid const c_kind(0xfe68f24c, 0xac43, 0x4833, 0xab, 0xc7, 0x7d, 0x9f, 0x33, 0x74, 0x44, 0x48);
QUuid const c_object(0x12345678, 0x1234, 0x1234, 1, 2, 3, 4, 5, 6, 7, 8);

class TestCommand : public DAbstractCommand
{
    Q_OBJECT

public:
    using DAbstractCommand::declareAParameter;
    using DAbstractCommand::setDescription;

    TestCommand(QString const& name, QString const& stop, QObject* parent)
        : DAbstractCommand(name, stop, {}, parent)
    {}
    QSharedPointer<ICommand> createCommand(Map const&) const override
    {
        return QSharedPointer<TestCommand>(new TestCommand(commandName(), stopCommandName(), parent()));
    }
};

class TestPlugin : public DAbstractTighteningTool
{
    Q_OBJECT

public:
    using DAbstractPlugin::declareInstructionCommand;
    using DAbstractPlugin::setProperty;

    explicit TestPlugin(QUuid const& objectUuid = c_object, QObject* parent = nullptr)
        : DAbstractTighteningTool(c_kind, "Plugin under test"_s, versionFromString("1.0"_s), objectUuid,
                                  parent)
    {}

    void initPluginCommands() override { emit sigCommandsInitDone(objectUuid(), commandNames()); }
    IPlugin* createInstance(QUuid const& objectUuid) const override { return new TestPlugin(objectUuid); }
    char const* pluginSubTypeName() const override { return "tightening"; }

    TestCommand* declare(QString const& name, QString const& stop = QString())
    {
        auto* const command = new TestCommand(name, stop, this);
        declareInstructionCommand(command);
        return command;
    }
};

/// A plugin of a kind that has no class of its own.
class OtherPlugin : public DAbstractPlugin
{
    Q_OBJECT

public:
    using DAbstractPlugin::DAbstractPlugin;

    void initPluginCommands() override {}
    IPlugin* createInstance(QUuid const&) const override { return nullptr; }
    char const* pluginSubTypeName() const override { return ""; }
};

QSharedPointer<QJsonObject> makeConfig()
{
    QJsonObject const section{{"port"_s, 4545}, {"nothing"_s, QJsonValue()}};
    QJsonObject const other{{"port"_s, 1}, {"foreign"_s, 2}};
    return QSharedPointer<QJsonObject>::create(
        QJsonObject{{"language"_s, "fr"_s},
                    {"nothing"_s, QJsonValue()},
                    {"{00000000-0000-0000-0000-000000000001}"_s, other},
                    {c_kind.toString(), section}});
}

} // namespace

class TestAbstractPlugin : public QObject
{
    Q_OBJECT

private slots:
    void tellsIdentity()
    {
        TestPlugin const plugin;
        IPlugin const& face = plugin;
        QCOMPARE(face.objectUuid(), c_object);
        QCOMPARE(face.pluginUuid(), c_kind);
        QCOMPARE(face.pluginName(), "Plugin under test"_s);
        QCOMPARE(face.pluginVersion(), Q_UINT64_C(0x0001000000000000));
        QCOMPARE(face.pluginType(), 0x546F6F6CU); // 'Tool'
        QCOMPARE(face.pluginSubTypeName(), "tightening");
        QVERIFY(TestPlugin(QUuid()).objectUuid().isNull());
    }

    void tellsTypeAsGiven()
    {
        OtherPlugin const plugin(c_kind, "Other"_s, 7, 0x43616d65, c_object, nullptr);
        QCOMPARE(plugin.pluginType(), 0x43616d65U);
        QCOMPARE(plugin.pluginVersion(), quint64{7});
        QCOMPARE(plugin.objectUuid(), c_object);
        QCOMPARE(plugin.pluginUuid(), c_kind);
        QCOMPARE(plugin.pluginName(), "Other"_s);
    }

    void nameIsObjectName()
    {
        TestPlugin plugin;
        QCOMPARE(plugin.getName(), QString());
        plugin.setObjectName("Station 4"_s);
        QCOMPARE(plugin.getName(), "Station 4"_s);
        QCOMPARE(plugin.pluginName(), "Plugin under test"_s);
    }

    void compatibility_data()
    {
        QTest::addColumn<QString>("version");

        QTest::newRow("two components") << "1.0"_s;
        QTest::newRow("four components") << "3.2.1.9"_s;
    }

    void compatibility()
    {
        QFETCH(QString, version);
        OtherPlugin const plugin(c_kind, "Other"_s, versionFromString(version), 0, c_object, nullptr);
        QCOMPARE(plugin.compatiblePlugins(), QList<QUuid>{c_kind});
        QCOMPARE(plugin.compatibilityString(), "{fe68f24c-ac43-4833-abc7-7d9f33744448} "_s + version);
    }

    void debugIdentification()
    {
        TestPlugin plugin;
        plugin.setObjectName("Station %3 %1"_s);
        QString const text = plugin.getDebugIdentification();
        QVERIFY2(text.contains("TestPlugin"_s), qPrintable(text));
        QVERIFY2(text.contains("Station %3 %1"_s), qPrintable(text));
        QVERIFY2(text.contains(c_object.toString()), qPrintable(text));
    }

    void hasParent()
    {
        QObject parent;
        auto* const plugin = new TestPlugin(c_object, &parent);
        QCOMPARE(plugin->parent(), &parent);
        QVERIFY(TestPlugin().parent() == nullptr);
    }

    void publishesNothingAtFirst()
    {
        TestPlugin const plugin;
        QCOMPARE(plugin.properties(), Properties());
        bool ok = true;
        QVERIFY(!plugin.getProperty("toolType"_s, &ok).isValid());
        QCOMPARE(ok, false);
        QVERIFY(plugin.commandNames().isEmpty());
    }

    void publishesProperty()
    {
        TestPlugin plugin;
        plugin.setProperty("toolType"_s, 4, false);
        for (bool const persistent : {false, true}) {
            plugin.setProperty("features"_s, QStringList{"x"_s}, persistent);
            bool ok = false;
            QCOMPARE(plugin.getProperty("features"_s, &ok), QVariant(QStringList{"x"_s}));
            QCOMPARE(ok, true);
            QCOMPARE(plugin.getProperty("features"_s, static_cast<bool*>(nullptr)),
                     QVariant(QStringList{"x"_s}));
            QCOMPARE(plugin.getProperty("features"_s, QVariant(5)), QVariant(QStringList{"x"_s}));
            QCOMPARE(plugin.getProperty("toolType"_s, QVariant()), QVariant(4));
        }
    }

    void propertyFallsBack_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<bool>("found");

        QTest::newRow("published") << "toolType"_s << QVariant(0) << true;
        QTest::newRow("published as invalid") << "void"_s << QVariant() << true;
        QTest::newRow("absent") << "absent"_s << QVariant("fallback"_s) << false;
        QTest::newRow("keys tell capitals") << "tooltype"_s << QVariant("fallback"_s) << false;
    }

    void propertyFallsBack()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        QFETCH(bool, found);
        TestPlugin plugin;
        plugin.setProperty("toolType"_s, 0, false);
        plugin.setProperty("void"_s, QVariant(), false);

        IPlugin const& face = plugin;
        QVariant const got = face.getProperty(key, QVariant("fallback"_s));
        QCOMPARE(got, value);
        QCOMPARE(got.isValid(), value.isValid());
        for (bool const before : {false, true}) {
            bool ok = before;
            QCOMPARE(face.getProperty(key, &ok), found ? value : QVariant());
            QCOMPARE(ok, found);
        }
        QCOMPARE(face.getProperty(key, static_cast<bool*>(nullptr)), found ? value : QVariant());
    }

    void propertiesKeepTheirOrder()
    {
        TestPlugin plugin;
        plugin.setProperty("zeta"_s, 1, false);
        plugin.setProperty("alpha"_s, 2, false);
        plugin.setProperty("mu"_s, 3, false);
        plugin.setProperty("zeta"_s, "replaced"_s, false);
        QCOMPARE(plugin.properties(), (Properties{{"zeta"_s, "replaced"_s}, {"alpha"_s, 2}, {"mu"_s, 3}}));
    }

    void objectPropertyIsNotPublished()
    {
        OtherPlugin plugin(c_kind, "Other"_s, 1, 0, c_object, nullptr);
        plugin.setProperty("dynamic", 1);
        QCOMPARE(plugin.property("dynamic"), QVariant(1));
        QVERIFY(plugin.properties().isEmpty());

        TestPlugin publishing;
        publishing.setProperty("published"_s, 1, false);
        QVERIFY(!publishing.property("published").isValid());
    }

    void namesCommandsInOrder()
    {
        TestPlugin plugin;
        QStringList const names{"startTightening"_s, "init"_s, "getDirection"_s, "abort"_s};
        for (auto const& name : names)
            plugin.declare(name);
        QCOMPARE(plugin.commandNames(), names);
    }

    void functions_data()
    {
        QTest::addColumn<QStringList>("declared"); // name and stop name in turn
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QStringList>("withStops");

        QString const none;
        QTest::newRow("none") << QStringList() << QStringList() << QStringList();
        QTest::newRow("one-shot only") << QStringList{"b"_s, none, "a"_s, none} << QStringList{"b"_s, "a"_s}
                                       << QStringList{"b"_s, "a"_s};
        QTest::newRow("stops behind the names")
            << QStringList{"listen"_s, "stopListen"_s, "init"_s, none} << QStringList{"listen"_s, "init"_s}
            << QStringList{"listen"_s, "init"_s, "stopListen"_s};
        QTest::newRow("two commands share one stop")
            << QStringList{"listen"_s, "stop"_s, "restore"_s, "stop"_s, "trigger"_s, "stopTrigger"_s}
            << QStringList{"listen"_s, "restore"_s, "trigger"_s}
            << QStringList{"listen"_s, "restore"_s, "trigger"_s, "stop"_s, "stopTrigger"_s};
        QTest::newRow("stop is a command itself")
            << QStringList{"listen"_s, "abort"_s, "abort"_s, none} << QStringList{"listen"_s, "abort"_s}
            << QStringList{"listen"_s, "abort"_s};
    }

    void functions()
    {
        QFETCH(QStringList, declared);
        QFETCH(QStringList, names);
        QFETCH(QStringList, withStops);
        TestPlugin plugin;
        for (int i = 0; i < declared.size(); i += 2)
            plugin.declare(declared[i], declared[i + 1]);
        QCOMPARE(plugin.getFunctions(false), names);
        QCOMPARE(plugin.getFunctions(true), withStops);
    }

    void describesFunction()
    {
        TestPlugin plugin;
        plugin.declare("init"_s)->setDescription("Init tool"_s);
        plugin.declare("listen"_s, "stop"_s)->setDescription("Listen"_s);
        QCOMPARE(plugin.getFunctionDescription("init"_s), "Init tool"_s);
        QCOMPARE(plugin.getFunctionDescription("listen"_s), "Listen"_s);
        QCOMPARE(plugin.getFunctionDescription("stop"_s), QString());
        QCOMPARE(plugin.getFunctionDescription(QString()), QString());
    }

    void listsCommandParameters()
    {
        TestPlugin plugin;
        plugin.declare("init"_s);
        auto* const start = plugin.declare("start"_s);
        start->declareAParameter("program"_s, "ui16"_s, "Program"_s, 1);
        start->declareAParameter("locking"_s, "int"_s, "Locking"_s, 0);

        auto const parameters = plugin.getCommandParameters("start"_s);
        QCOMPARE(parameters.size(), 2);
        QCOMPARE(parameters[0].key, "program"_s);
        QCOMPARE(parameters[0].typeTag, "ui16"_s);
        QCOMPARE(parameters[0].label, "Program"_s);
        QCOMPARE(parameters[0].defaultValue, QVariant(1));
        QCOMPARE(parameters[1].key, "locking"_s);
        QVERIFY(plugin.getCommandParameters("init"_s).isEmpty());
        QVERIFY(plugin.getCommandParameters("absent"_s).isEmpty());
    }

    void findsPrototype()
    {
        TestPlugin plugin;
        QVERIFY(plugin.commandPrototype("init"_s) == nullptr);
        auto* const init = plugin.declare("init"_s);
        auto* const listen = plugin.declare("listen"_s, "stop"_s);
        QCOMPARE(plugin.commandPrototype("init"_s), static_cast<ICommand const*>(init));
        QCOMPARE(plugin.commandPrototype("listen"_s), static_cast<ICommand const*>(listen));
        QVERIFY(plugin.commandPrototype("stop"_s) == nullptr);
        QVERIFY(plugin.commandPrototype(QString()) == nullptr);
    }

    void clonesPrototype()
    {
        TestPlugin plugin;
        plugin.declare("init"_s);
        auto const clone = plugin.commandPrototype("init"_s)->createCommand({});
        QCOMPARE(clone->commandName(), "init"_s);
        QCOMPARE(dynamic_cast<QObject*>(clone.data())->parent(), &plugin);
        // A working command is no prototype.
        QCOMPARE(plugin.commandNames(), QStringList{"init"_s});
    }

    void takesCommandWithoutParent()
    {
        auto plugin = std::make_unique<TestPlugin>();
        QPointer<TestCommand> const command = new TestCommand("init"_s, QString(), nullptr);
        plugin->declareInstructionCommand(command);
        QCOMPARE(command->parent(), plugin.get());
        QCOMPARE(plugin->commandNames(), QStringList{"init"_s});
        plugin.reset();
        QVERIFY(command.isNull());
    }

    void leavesCommandWithItsParent()
    {
        auto owner = std::make_unique<QObject>();
        TestPlugin plugin;
        plugin.declare("first"_s, "stopFirst"_s);
        auto* const command = new TestCommand("init"_s, "stopInit"_s, owner.get());
        plugin.declareInstructionCommand(command);
        QCOMPARE(command->parent(), owner.get());
        QCOMPARE(plugin.commandNames(), (QStringList{"first"_s, "init"_s}));

        owner.reset();
        QCOMPARE(plugin.commandNames(), QStringList{"first"_s});
        QCOMPARE(plugin.getFunctions(true), (QStringList{"first"_s, "stopFirst"_s}));
        QVERIFY(plugin.commandPrototype("init"_s) == nullptr);
        QCOMPARE(plugin.getFunctionDescription("init"_s), QString());
        QVERIFY(plugin.getCommandParameters("init"_s).isEmpty());
    }

    void forgetsDestroyedCommand()
    {
        TestPlugin plugin;
        auto* const first = plugin.declare("first"_s);
        plugin.declare("second"_s);
        delete first;
        QCOMPARE(plugin.commandNames(), QStringList{"second"_s});
        QVERIFY(plugin.commandPrototype("first"_s) == nullptr);
        QVERIFY(plugin.commandPrototype("second"_s) != nullptr);
    }

    void deletesItsCommands()
    {
        auto plugin = std::make_unique<TestPlugin>();
        QPointer<TestCommand> const command = plugin->declare("init"_s);
        QCOMPARE(command->parent(), plugin.get());
        plugin.reset();
        QVERIFY(command.isNull());
    }

    void commandMayOutlivePlugin()
    {
        QObject owner;
        auto plugin = std::make_unique<TestPlugin>();
        QPointer<TestCommand> const command = new TestCommand("init"_s, QString(), &owner);
        plugin->declareInstructionCommand(command);
        plugin.reset();
        QVERIFY(!command.isNull());
        QCOMPARE(command->commandName(), "init"_s);
    }

    void valueInMainConfig_data()
    {
        QTest::addColumn<bool>("hasConfig");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QJsonValue>("value");
        QTest::addColumn<bool>("found");

        QJsonValue const fallback("fallback"_s);
        QTest::newRow("found") << true << "language"_s << QJsonValue("fr"_s) << true;
        QTest::newRow("found null") << true << "nothing"_s << QJsonValue(QJsonValue::Null) << true;
        QTest::newRow("absent") << true << "absent"_s << fallback << false;
        QTest::newRow("in the plugin's section only") << true << "port"_s << fallback << false;
        QTest::newRow("no config") << false << "language"_s << fallback << false;
    }

    void valueInMainConfig()
    {
        QFETCH(bool, hasConfig);
        QFETCH(QString, key);
        QFETCH(QJsonValue, value);
        QFETCH(bool, found);
        TestPlugin plugin;
        if (hasConfig)
            plugin.setMainConfig(makeConfig());
        IPlugin const& face = plugin;
        for (bool const before : {false, true}) {
            bool ok = before;
            QCOMPARE(face.getInMainConfig(key, "fallback"_s, &ok), value);
            QCOMPARE(ok, found);
        }
        QCOMPARE(face.getInMainConfig(key, "fallback"_s, nullptr), value);
    }

    void valueInPluginConfig_data()
    {
        QTest::addColumn<QJsonValue>("section"); // undefined: as makeConfig() has it
        QTest::addColumn<QString>("key");
        QTest::addColumn<QJsonValue>("value");
        QTest::addColumn<bool>("found");

        QJsonValue const fallback("fallback"_s);
        QJsonValue const asMade(QJsonValue::Undefined);
        QTest::newRow("found") << asMade << "port"_s << QJsonValue(4545) << true;
        QTest::newRow("found null") << asMade << "nothing"_s << QJsonValue(QJsonValue::Null) << true;
        QTest::newRow("absent") << asMade << "absent"_s << fallback << false;
        QTest::newRow("in another plugin's section") << asMade << "foreign"_s << fallback << false;
        QTest::newRow("in the main config") << asMade << "language"_s << fallback << false;
        QTest::newRow("empty section") << QJsonValue(QJsonObject()) << "port"_s << fallback << false;
        QTest::newRow("section is no object") << QJsonValue(5) << "port"_s << fallback << false;
        QTest::newRow("section is null") << QJsonValue(QJsonValue::Null) << "port"_s << fallback << false;
    }

    void valueInPluginConfig()
    {
        QFETCH(QJsonValue, section);
        QFETCH(QString, key);
        QFETCH(QJsonValue, value);
        QFETCH(bool, found);
        auto const config = makeConfig();
        if (!section.isUndefined())
            config->insert(c_kind.toString(), section);
        TestPlugin plugin;
        IPlugin const& face = plugin;
        bool ok = true;
        QCOMPARE(face.getInPluginConfig(key, "fallback"_s, &ok), QJsonValue("fallback"_s));
        QCOMPARE(ok, false);

        plugin.setMainConfig(config);
        for (bool const before : {false, true}) {
            ok = before;
            QCOMPARE(face.getInPluginConfig(key, "fallback"_s, &ok), value);
            QCOMPARE(ok, found);
        }
        QCOMPARE(face.getInPluginConfig(key, "fallback"_s, nullptr), value);
    }

    void configIsShared()
    {
        TestPlugin one;
        TestPlugin two;
        QVERIFY(one.getMainConfig().isNull());
        auto const config = makeConfig();
        one.setMainConfig(config);
        two.setMainConfig(config);
        QCOMPARE(one.getMainConfig(), config);

        config->insert("language"_s, "de"_s);
        QCOMPARE(one.getInMainConfig("language"_s, QJsonValue(), nullptr), QJsonValue("de"_s));
        one.setInMainConfig("language"_s, "en"_s);
        QCOMPARE(two.getInMainConfig("language"_s, QJsonValue(), nullptr), QJsonValue("en"_s));
        // Two instances of a kind have one section.
        one.setInPluginConfig("port"_s, 1);
        QCOMPARE(two.getInPluginConfig("port"_s, QJsonValue(), nullptr), QJsonValue(1));

        one.setMainConfig({});
        QVERIFY(one.getMainConfig().isNull());
        QCOMPARE(config->value("language"_s), QJsonValue("en"_s));
    }

    void writesMainConfig()
    {
        auto const config = makeConfig();
        auto const expected = makeConfig();
        expected->insert("new"_s, 7);
        TestPlugin plugin;
        plugin.setMainConfig(config);
        plugin.setInMainConfig("new"_s, 7);
        QCOMPARE(*config, *expected);
    }

    void writesPluginConfig_data()
    {
        QTest::addColumn<QJsonValue>("section");
        QTest::addColumn<QJsonObject>("expected");

        QTest::newRow("section there")
            << QJsonValue(QJsonObject{{"a"_s, 1}}) << QJsonObject{{"a"_s, 1}, {"new"_s, 7}};
        QTest::newRow("replaces a value")
            << QJsonValue(QJsonObject{{"new"_s, 1}}) << QJsonObject{{"new"_s, 7}};
        QTest::newRow("no section") << QJsonValue(QJsonValue::Undefined) << QJsonObject{{"new"_s, 7}};
        QTest::newRow("section is no object") << QJsonValue(5) << QJsonObject{{"new"_s, 7}};
    }

    void writesPluginConfig()
    {
        QFETCH(QJsonValue, section);
        QFETCH(QJsonObject, expected);
        auto const config = makeConfig();
        if (section.isUndefined())
            config->remove(c_kind.toString());
        else
            config->insert(c_kind.toString(), section);
        QJsonObject whole = *config;
        whole.insert(c_kind.toString(), expected);
        TestPlugin plugin;
        plugin.setMainConfig(config);
        plugin.setInPluginConfig("new"_s, 7);
        QCOMPARE(*config, whole);
    }

    void writesNothingWithoutConfig()
    {
        TestPlugin plugin;
        plugin.setInMainConfig("a"_s, 1);
        plugin.setInPluginConfig("b"_s, 2);
        QVERIFY(plugin.getMainConfig().isNull());
        // Nothing was kept for a configuration that comes later.
        auto const config = QSharedPointer<QJsonObject>::create();
        plugin.setMainConfig(config);
        QVERIFY(config->isEmpty());
    }

    void tellsWhenCommandsAreDeclared()
    {
        TestPlugin plugin;
        plugin.declare("init"_s);
        plugin.declare("abort"_s);
        QSignalSpy const done(&plugin, &DAbstractPlugin::sigCommandsInitDone);
        QVERIFY(done.isValid());
        DAbstractPlugin& face = plugin;
        face.initPluginCommands();
        QCOMPARE(done.count(), 1);
        QCOMPARE(done[0][0].toUuid(), c_object);
        QCOMPARE(done[0][1].toStringList(), (QStringList{"init"_s, "abort"_s}));
    }

    void createsInstance()
    {
        TestPlugin const root{QUuid()};
        IPlugin const& face = root;
        std::unique_ptr<IPlugin> const instance(face.createInstance(c_object));
        QCOMPARE(instance->objectUuid(), c_object);
        QCOMPARE(instance->pluginUuid(), c_kind);
        auto* const plugin = dynamic_cast<DAbstractPlugin*>(instance.get());
        QVERIFY(plugin);
        QVERIFY(plugin->parent() == nullptr);
    }

    void isDeletedThroughInterface()
    {
        auto plugin = std::make_unique<TestPlugin>();
        QPointer<TestPlugin> const watched = plugin.get();
        QPointer<TestCommand> const command = plugin->declare("init"_s);
        IPlugin* const face = plugin.release();
        QVERIFY(static_cast<void*>(face) != static_cast<void*>(watched.data()));
        delete face;
        QVERIFY(watched.isNull());
        QVERIFY(command.isNull());
    }

    void goesBeforeItsWorkingCommands()
    {
        auto plugin = std::make_unique<TestPlugin>();
        QPointer<TestCommand> const prototype = plugin->declare("init"_s);
        QPointer<TestCommand> const other = plugin->declare("listen"_s, "stop"_s);
        auto init = prototype->createCommand({});
        auto listen = other->createCommand({});
        QPointer<QObject> const working[] = {init.dynamicCast<TestCommand>().data(),
                                             listen.dynamicCast<TestCommand>().data()};
        MessageCapture const log;
        plugin.reset();
        QCOMPARE(log.lines.size(), 1);
        QCOMPARE(log.lines[0].type, QtCriticalMsg);
        QCOMPARE(log.lines[0].text,
                 "The plugin instance %1 was destroyed before its working commands: init, listen"_s.arg(
                     c_object.toString()));
        QVERIFY(prototype.isNull());
        QVERIFY(other.isNull());
        for (auto const& command : working) {
            QVERIFY(!command.isNull());
            QVERIFY(command->parent() == nullptr);
        }
        QCOMPARE(init->commandName(), "init"_s);
        init.reset();
        listen.reset();
        QVERIFY(working[0].isNull());
        QVERIFY(working[1].isNull());
    }

    void goesBehindItsWorkingCommands()
    {
        auto plugin = std::make_unique<TestPlugin>();
        auto command = plugin->declare("init"_s)->createCommand({});
        QObject owner;
        plugin->declareInstructionCommand(new TestCommand("other"_s, QString(), &owner));
        MessageCapture const log;
        command.reset();
        plugin.reset();
        QVERIFY(log.lines.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestAbstractPlugin)
#include "tst_abstract_plugin.moc"
