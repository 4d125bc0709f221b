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
        : DAbstractTighteningTool(c_kind, QStringLiteral("Plugin under test"),
                                  versionFromString(QStringLiteral("1.0")), objectUuid, parent)
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
    QJsonObject const section{{QStringLiteral("port"), 4545}, {QStringLiteral("nothing"), QJsonValue()}};
    QJsonObject const other{{QStringLiteral("port"), 1}, {QStringLiteral("foreign"), 2}};
    return QSharedPointer<QJsonObject>::create(
        QJsonObject{{QStringLiteral("language"), QStringLiteral("fr")},
                    {QStringLiteral("nothing"), QJsonValue()},
                    {QStringLiteral("{00000000-0000-0000-0000-000000000001}"), other},
                    {c_kind.toString(), section}});
}

} // namespace

class TestAbstractPlugin : public QObject
{
    Q_OBJECT

private slots:
    void tellsIdentity();
    void tellsTypeAsGiven();
    void nameIsObjectName();
    void compatibility_data();
    void compatibility();
    void debugIdentification();
    void hasParent();

    void publishesNothingAtFirst();
    void publishesProperty();
    void propertyFallsBack_data();
    void propertyFallsBack();
    void propertiesKeepTheirOrder();
    void objectPropertyIsNotPublished();

    void namesCommandsInOrder();
    void functions_data();
    void functions();
    void describesFunction();
    void listsCommandParameters();
    void findsPrototype();
    void clonesPrototype();

    void takesCommandWithoutParent();
    void leavesCommandWithItsParent();
    void forgetsDestroyedCommand();
    void deletesItsCommands();
    void commandMayOutlivePlugin();

    void valueInMainConfig_data();
    void valueInMainConfig();
    void valueInPluginConfig_data();
    void valueInPluginConfig();
    void configIsShared();
    void writesMainConfig();
    void writesPluginConfig_data();
    void writesPluginConfig();
    void writesNothingWithoutConfig();

    void tellsWhenCommandsAreDeclared();
    void createsInstance();
    void isDeletedThroughInterface();
    void goesBeforeItsWorkingCommands();
    void goesBehindItsWorkingCommands();
};

void TestAbstractPlugin::tellsIdentity()
{
    TestPlugin const plugin;
    IPlugin const& face = plugin;
    QCOMPARE(face.objectUuid(), c_object);
    QCOMPARE(face.pluginUuid(), c_kind);
    QCOMPARE(face.pluginName(), QStringLiteral("Plugin under test"));
    QCOMPARE(face.pluginVersion(), Q_UINT64_C(0x0001000000000000));
    QCOMPARE(face.pluginType(), 0x546F6F6CU); // 'Tool'
    QCOMPARE(face.pluginSubTypeName(), "tightening");
    QVERIFY(TestPlugin(QUuid()).objectUuid().isNull());
}

void TestAbstractPlugin::tellsTypeAsGiven()
{
    OtherPlugin const plugin(c_kind, QStringLiteral("Other"), 7, 0x43616d65, c_object, nullptr);
    QCOMPARE(plugin.pluginType(), 0x43616d65U);
    QCOMPARE(plugin.pluginVersion(), quint64{7});
    QCOMPARE(plugin.objectUuid(), c_object);
    QCOMPARE(plugin.pluginUuid(), c_kind);
    QCOMPARE(plugin.pluginName(), QStringLiteral("Other"));
}

void TestAbstractPlugin::nameIsObjectName()
{
    TestPlugin plugin;
    QCOMPARE(plugin.getName(), QString());
    plugin.setObjectName(QStringLiteral("Station 4"));
    QCOMPARE(plugin.getName(), QStringLiteral("Station 4"));
    QCOMPARE(plugin.pluginName(), QStringLiteral("Plugin under test"));
}

void TestAbstractPlugin::compatibility_data()
{
    QTest::addColumn<QString>("version");

    QTest::newRow("two components") << QStringLiteral("1.0");
    QTest::newRow("four components") << QStringLiteral("3.2.1.9");
}

void TestAbstractPlugin::compatibility()
{
    QFETCH(QString, version);
    OtherPlugin const plugin(c_kind, QStringLiteral("Other"), versionFromString(version), 0, c_object,
                             nullptr);
    QCOMPARE(plugin.compatiblePlugins(), QList<QUuid>{c_kind});
    QCOMPARE(plugin.compatibilityString(),
             QStringLiteral("{fe68f24c-ac43-4833-abc7-7d9f33744448} ") + version);
}

void TestAbstractPlugin::debugIdentification()
{
    TestPlugin plugin;
    plugin.setObjectName(QStringLiteral("Station %3 %1"));
    QString const text = plugin.getDebugIdentification();
    QVERIFY2(text.contains(QStringLiteral("TestPlugin")), qPrintable(text));
    QVERIFY2(text.contains(QStringLiteral("Station %3 %1")), qPrintable(text));
    QVERIFY2(text.contains(c_object.toString()), qPrintable(text));
}

void TestAbstractPlugin::hasParent()
{
    QObject parent;
    auto* const plugin = new TestPlugin(c_object, &parent);
    QCOMPARE(plugin->parent(), &parent);
    QVERIFY(TestPlugin().parent() == nullptr);
}

void TestAbstractPlugin::publishesNothingAtFirst()
{
    TestPlugin const plugin;
    QCOMPARE(plugin.properties(), Properties());
    bool ok = true;
    QVERIFY(!plugin.getProperty(QStringLiteral("toolType"), &ok).isValid());
    QCOMPARE(ok, false);
    QVERIFY(plugin.commandNames().isEmpty());
}

void TestAbstractPlugin::publishesProperty()
{
    TestPlugin plugin;
    plugin.setProperty(QStringLiteral("toolType"), 4, false);
    for (bool const persistent : {false, true}) {
        plugin.setProperty(QStringLiteral("features"), QStringList{QStringLiteral("x")}, persistent);
        bool ok = false;
        QCOMPARE(plugin.getProperty(QStringLiteral("features"), &ok),
                 QVariant(QStringList{QStringLiteral("x")}));
        QCOMPARE(ok, true);
        QCOMPARE(plugin.getProperty(QStringLiteral("features"), static_cast<bool*>(nullptr)),
                 QVariant(QStringList{QStringLiteral("x")}));
        QCOMPARE(plugin.getProperty(QStringLiteral("features"), QVariant(5)),
                 QVariant(QStringList{QStringLiteral("x")}));
        QCOMPARE(plugin.getProperty(QStringLiteral("toolType"), QVariant()), QVariant(4));
    }
}

void TestAbstractPlugin::propertyFallsBack_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("found");

    QTest::newRow("published") << QStringLiteral("toolType") << QVariant(0) << true;
    QTest::newRow("published as invalid") << QStringLiteral("void") << QVariant() << true;
    QTest::newRow("absent") << QStringLiteral("absent") << QVariant(QStringLiteral("fallback")) << false;
    QTest::newRow("keys tell capitals")
        << QStringLiteral("tooltype") << QVariant(QStringLiteral("fallback")) << false;
}

void TestAbstractPlugin::propertyFallsBack()
{
    QFETCH(QString, key);
    QFETCH(QVariant, value);
    QFETCH(bool, found);
    TestPlugin plugin;
    plugin.setProperty(QStringLiteral("toolType"), 0, false);
    plugin.setProperty(QStringLiteral("void"), QVariant(), false);

    IPlugin const& face = plugin;
    QVariant const got = face.getProperty(key, QVariant(QStringLiteral("fallback")));
    QCOMPARE(got, value);
    QCOMPARE(got.isValid(), value.isValid());
    for (bool const before : {false, true}) {
        bool ok = before;
        QCOMPARE(face.getProperty(key, &ok), found ? value : QVariant());
        QCOMPARE(ok, found);
    }
    QCOMPARE(face.getProperty(key, static_cast<bool*>(nullptr)), found ? value : QVariant());
}

void TestAbstractPlugin::propertiesKeepTheirOrder()
{
    TestPlugin plugin;
    plugin.setProperty(QStringLiteral("zeta"), 1, false);
    plugin.setProperty(QStringLiteral("alpha"), 2, false);
    plugin.setProperty(QStringLiteral("mu"), 3, false);
    plugin.setProperty(QStringLiteral("zeta"), QStringLiteral("replaced"), false);
    QCOMPARE(plugin.properties(), (Properties{{QStringLiteral("zeta"), QStringLiteral("replaced")},
                                              {QStringLiteral("alpha"), 2},
                                              {QStringLiteral("mu"), 3}}));
}

void TestAbstractPlugin::objectPropertyIsNotPublished()
{
    OtherPlugin plugin(c_kind, QStringLiteral("Other"), 1, 0, c_object, nullptr);
    plugin.setProperty("dynamic", 1);
    QCOMPARE(plugin.property("dynamic"), QVariant(1));
    QVERIFY(plugin.properties().isEmpty());

    TestPlugin publishing;
    publishing.setProperty(QStringLiteral("published"), 1, false);
    QVERIFY(!publishing.property("published").isValid());
}

void TestAbstractPlugin::namesCommandsInOrder()
{
    TestPlugin plugin;
    QStringList const names{QStringLiteral("startTightening"), QStringLiteral("init"),
                            QStringLiteral("getDirection"), QStringLiteral("abort")};
    for (auto const& name : names)
        plugin.declare(name);
    QCOMPARE(plugin.commandNames(), names);
}

void TestAbstractPlugin::functions_data()
{
    QTest::addColumn<QStringList>("declared"); // name and stop name in turn
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("withStops");

    QString const none;
    QTest::newRow("none") << QStringList() << QStringList() << QStringList();
    QTest::newRow("one-shot only") << QStringList{QStringLiteral("b"), none, QStringLiteral("a"), none}
                                   << QStringList{QStringLiteral("b"), QStringLiteral("a")}
                                   << QStringList{QStringLiteral("b"), QStringLiteral("a")};
    QTest::newRow("stops behind the names")
        << QStringList{QStringLiteral("listen"), QStringLiteral("stopListen"), QStringLiteral("init"), none}
        << QStringList{QStringLiteral("listen"), QStringLiteral("init")}
        << QStringList{QStringLiteral("listen"), QStringLiteral("init"), QStringLiteral("stopListen")};
    QTest::newRow("two commands share one stop")
        << QStringList{QStringLiteral("listen"), QStringLiteral("stop"),    QStringLiteral("restore"),
                       QStringLiteral("stop"),   QStringLiteral("trigger"), QStringLiteral("stopTrigger")}
        << QStringList{QStringLiteral("listen"), QStringLiteral("restore"), QStringLiteral("trigger")}
        << QStringList{QStringLiteral("listen"), QStringLiteral("restore"), QStringLiteral("trigger"),
                       QStringLiteral("stop"), QStringLiteral("stopTrigger")};
    QTest::newRow("stop is a command itself")
        << QStringList{QStringLiteral("listen"), QStringLiteral("abort"), QStringLiteral("abort"), none}
        << QStringList{QStringLiteral("listen"), QStringLiteral("abort")}
        << QStringList{QStringLiteral("listen"), QStringLiteral("abort")};
}

void TestAbstractPlugin::functions()
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

void TestAbstractPlugin::describesFunction()
{
    TestPlugin plugin;
    plugin.declare(QStringLiteral("init"))->setDescription(QStringLiteral("Init tool"));
    plugin.declare(QStringLiteral("listen"), QStringLiteral("stop"))
        ->setDescription(QStringLiteral("Listen"));
    QCOMPARE(plugin.getFunctionDescription(QStringLiteral("init")), QStringLiteral("Init tool"));
    QCOMPARE(plugin.getFunctionDescription(QStringLiteral("listen")), QStringLiteral("Listen"));
    QCOMPARE(plugin.getFunctionDescription(QStringLiteral("stop")), QString());
    QCOMPARE(plugin.getFunctionDescription(QString()), QString());
}

void TestAbstractPlugin::listsCommandParameters()
{
    TestPlugin plugin;
    plugin.declare(QStringLiteral("init"));
    auto* const start = plugin.declare(QStringLiteral("start"));
    start->declareAParameter(QStringLiteral("program"), QStringLiteral("ui16"), QStringLiteral("Program"), 1);
    start->declareAParameter(QStringLiteral("locking"), QStringLiteral("int"), QStringLiteral("Locking"), 0);

    auto const parameters = plugin.getCommandParameters(QStringLiteral("start"));
    QCOMPARE(parameters.size(), 2);
    QCOMPARE(parameters[0].key, QStringLiteral("program"));
    QCOMPARE(parameters[0].typeTag, QStringLiteral("ui16"));
    QCOMPARE(parameters[0].label, QStringLiteral("Program"));
    QCOMPARE(parameters[0].defaultValue, QVariant(1));
    QCOMPARE(parameters[1].key, QStringLiteral("locking"));
    QVERIFY(plugin.getCommandParameters(QStringLiteral("init")).isEmpty());
    QVERIFY(plugin.getCommandParameters(QStringLiteral("absent")).isEmpty());
}

void TestAbstractPlugin::findsPrototype()
{
    TestPlugin plugin;
    QVERIFY(plugin.commandPrototype(QStringLiteral("init")) == nullptr);
    auto* const init = plugin.declare(QStringLiteral("init"));
    auto* const listen = plugin.declare(QStringLiteral("listen"), QStringLiteral("stop"));
    QCOMPARE(plugin.commandPrototype(QStringLiteral("init")), static_cast<ICommand const*>(init));
    QCOMPARE(plugin.commandPrototype(QStringLiteral("listen")), static_cast<ICommand const*>(listen));
    QVERIFY(plugin.commandPrototype(QStringLiteral("stop")) == nullptr);
    QVERIFY(plugin.commandPrototype(QString()) == nullptr);
}

void TestAbstractPlugin::clonesPrototype()
{
    TestPlugin plugin;
    plugin.declare(QStringLiteral("init"));
    auto const clone = plugin.commandPrototype(QStringLiteral("init"))->createCommand({});
    QCOMPARE(clone->commandName(), QStringLiteral("init"));
    QCOMPARE(dynamic_cast<QObject*>(clone.data())->parent(), &plugin);
    // A working command is no prototype.
    QCOMPARE(plugin.commandNames(), QStringList{QStringLiteral("init")});
}

void TestAbstractPlugin::takesCommandWithoutParent()
{
    auto plugin = std::make_unique<TestPlugin>();
    QPointer<TestCommand> const command = new TestCommand(QStringLiteral("init"), QString(), nullptr);
    plugin->declareInstructionCommand(command);
    QCOMPARE(command->parent(), plugin.get());
    QCOMPARE(plugin->commandNames(), QStringList{QStringLiteral("init")});
    plugin.reset();
    QVERIFY(command.isNull());
}

void TestAbstractPlugin::leavesCommandWithItsParent()
{
    auto owner = std::make_unique<QObject>();
    TestPlugin plugin;
    plugin.declare(QStringLiteral("first"), QStringLiteral("stopFirst"));
    auto* const command = new TestCommand(QStringLiteral("init"), QStringLiteral("stopInit"), owner.get());
    plugin.declareInstructionCommand(command);
    QCOMPARE(command->parent(), owner.get());
    QCOMPARE(plugin.commandNames(), (QStringList{QStringLiteral("first"), QStringLiteral("init")}));

    owner.reset();
    QCOMPARE(plugin.commandNames(), QStringList{QStringLiteral("first")});
    QCOMPARE(plugin.getFunctions(true), (QStringList{QStringLiteral("first"), QStringLiteral("stopFirst")}));
    QVERIFY(plugin.commandPrototype(QStringLiteral("init")) == nullptr);
    QCOMPARE(plugin.getFunctionDescription(QStringLiteral("init")), QString());
    QVERIFY(plugin.getCommandParameters(QStringLiteral("init")).isEmpty());
}

void TestAbstractPlugin::forgetsDestroyedCommand()
{
    TestPlugin plugin;
    auto* const first = plugin.declare(QStringLiteral("first"));
    plugin.declare(QStringLiteral("second"));
    delete first;
    QCOMPARE(plugin.commandNames(), QStringList{QStringLiteral("second")});
    QVERIFY(plugin.commandPrototype(QStringLiteral("first")) == nullptr);
    QVERIFY(plugin.commandPrototype(QStringLiteral("second")) != nullptr);
}

void TestAbstractPlugin::deletesItsCommands()
{
    auto plugin = std::make_unique<TestPlugin>();
    QPointer<TestCommand> const command = plugin->declare(QStringLiteral("init"));
    QCOMPARE(command->parent(), plugin.get());
    plugin.reset();
    QVERIFY(command.isNull());
}

void TestAbstractPlugin::commandMayOutlivePlugin()
{
    QObject owner;
    auto plugin = std::make_unique<TestPlugin>();
    QPointer<TestCommand> const command = new TestCommand(QStringLiteral("init"), QString(), &owner);
    plugin->declareInstructionCommand(command);
    plugin.reset();
    QVERIFY(!command.isNull());
    QCOMPARE(command->commandName(), QStringLiteral("init"));
}

void TestAbstractPlugin::valueInMainConfig_data()
{
    QTest::addColumn<bool>("hasConfig");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<bool>("found");

    QJsonValue const fallback(QStringLiteral("fallback"));
    QTest::newRow("found") << true << QStringLiteral("language") << QJsonValue(QStringLiteral("fr")) << true;
    QTest::newRow("found null") << true << QStringLiteral("nothing") << QJsonValue(QJsonValue::Null) << true;
    QTest::newRow("absent") << true << QStringLiteral("absent") << fallback << false;
    QTest::newRow("in the plugin's section only") << true << QStringLiteral("port") << fallback << false;
    QTest::newRow("no config") << false << QStringLiteral("language") << fallback << false;
}

void TestAbstractPlugin::valueInMainConfig()
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
        QCOMPARE(face.getInMainConfig(key, QStringLiteral("fallback"), &ok), value);
        QCOMPARE(ok, found);
    }
    QCOMPARE(face.getInMainConfig(key, QStringLiteral("fallback"), nullptr), value);
}

void TestAbstractPlugin::valueInPluginConfig_data()
{
    QTest::addColumn<QJsonValue>("section"); // undefined: as makeConfig() has it
    QTest::addColumn<QString>("key");
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<bool>("found");

    QJsonValue const fallback(QStringLiteral("fallback"));
    QJsonValue const asMade(QJsonValue::Undefined);
    QTest::newRow("found") << asMade << QStringLiteral("port") << QJsonValue(4545) << true;
    QTest::newRow("found null") << asMade << QStringLiteral("nothing") << QJsonValue(QJsonValue::Null)
                                << true;
    QTest::newRow("absent") << asMade << QStringLiteral("absent") << fallback << false;
    QTest::newRow("in another plugin's section") << asMade << QStringLiteral("foreign") << fallback << false;
    QTest::newRow("in the main config") << asMade << QStringLiteral("language") << fallback << false;
    QTest::newRow("empty section") << QJsonValue(QJsonObject()) << QStringLiteral("port") << fallback
                                   << false;
    QTest::newRow("section is no object") << QJsonValue(5) << QStringLiteral("port") << fallback << false;
    QTest::newRow("section is null") << QJsonValue(QJsonValue::Null) << QStringLiteral("port") << fallback
                                     << false;
}

void TestAbstractPlugin::valueInPluginConfig()
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
    QCOMPARE(face.getInPluginConfig(key, QStringLiteral("fallback"), &ok),
             QJsonValue(QStringLiteral("fallback")));
    QCOMPARE(ok, false);

    plugin.setMainConfig(config);
    for (bool const before : {false, true}) {
        ok = before;
        QCOMPARE(face.getInPluginConfig(key, QStringLiteral("fallback"), &ok), value);
        QCOMPARE(ok, found);
    }
    QCOMPARE(face.getInPluginConfig(key, QStringLiteral("fallback"), nullptr), value);
}

void TestAbstractPlugin::configIsShared()
{
    TestPlugin one;
    TestPlugin two;
    QVERIFY(one.getMainConfig().isNull());
    auto const config = makeConfig();
    one.setMainConfig(config);
    two.setMainConfig(config);
    QCOMPARE(one.getMainConfig(), config);

    config->insert(QStringLiteral("language"), QStringLiteral("de"));
    QCOMPARE(one.getInMainConfig(QStringLiteral("language"), QJsonValue(), nullptr),
             QJsonValue(QStringLiteral("de")));
    one.setInMainConfig(QStringLiteral("language"), QStringLiteral("en"));
    QCOMPARE(two.getInMainConfig(QStringLiteral("language"), QJsonValue(), nullptr),
             QJsonValue(QStringLiteral("en")));
    // Two instances of a kind have one section.
    one.setInPluginConfig(QStringLiteral("port"), 1);
    QCOMPARE(two.getInPluginConfig(QStringLiteral("port"), QJsonValue(), nullptr), QJsonValue(1));

    one.setMainConfig({});
    QVERIFY(one.getMainConfig().isNull());
    QCOMPARE(config->value(QStringLiteral("language")), QJsonValue(QStringLiteral("en")));
}

void TestAbstractPlugin::writesMainConfig()
{
    auto const config = makeConfig();
    auto const expected = makeConfig();
    expected->insert(QStringLiteral("new"), 7);
    TestPlugin plugin;
    plugin.setMainConfig(config);
    plugin.setInMainConfig(QStringLiteral("new"), 7);
    QCOMPARE(*config, *expected);
}

void TestAbstractPlugin::writesPluginConfig_data()
{
    QTest::addColumn<QJsonValue>("section");
    QTest::addColumn<QJsonObject>("expected");

    QTest::newRow("section there") << QJsonValue(QJsonObject{{QStringLiteral("a"), 1}})
                                   << QJsonObject{{QStringLiteral("a"), 1}, {QStringLiteral("new"), 7}};
    QTest::newRow("replaces a value")
        << QJsonValue(QJsonObject{{QStringLiteral("new"), 1}}) << QJsonObject{{QStringLiteral("new"), 7}};
    QTest::newRow("no section") << QJsonValue(QJsonValue::Undefined)
                                << QJsonObject{{QStringLiteral("new"), 7}};
    QTest::newRow("section is no object") << QJsonValue(5) << QJsonObject{{QStringLiteral("new"), 7}};
}

void TestAbstractPlugin::writesPluginConfig()
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
    plugin.setInPluginConfig(QStringLiteral("new"), 7);
    QCOMPARE(*config, whole);
}

void TestAbstractPlugin::writesNothingWithoutConfig()
{
    TestPlugin plugin;
    plugin.setInMainConfig(QStringLiteral("a"), 1);
    plugin.setInPluginConfig(QStringLiteral("b"), 2);
    QVERIFY(plugin.getMainConfig().isNull());
    // Nothing was kept for a configuration that comes later.
    auto const config = QSharedPointer<QJsonObject>::create();
    plugin.setMainConfig(config);
    QVERIFY(config->isEmpty());
}

void TestAbstractPlugin::tellsWhenCommandsAreDeclared()
{
    TestPlugin plugin;
    plugin.declare(QStringLiteral("init"));
    plugin.declare(QStringLiteral("abort"));
    QSignalSpy const done(&plugin, &DAbstractPlugin::sigCommandsInitDone);
    QVERIFY(done.isValid());
    DAbstractPlugin& face = plugin;
    face.initPluginCommands();
    QCOMPARE(done.count(), 1);
    QCOMPARE(done[0][0].toUuid(), c_object);
    QCOMPARE(done[0][1].toStringList(), (QStringList{QStringLiteral("init"), QStringLiteral("abort")}));
}

void TestAbstractPlugin::createsInstance()
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

void TestAbstractPlugin::isDeletedThroughInterface()
{
    auto plugin = std::make_unique<TestPlugin>();
    QPointer<TestPlugin> const watched = plugin.get();
    QPointer<TestCommand> const command = plugin->declare(QStringLiteral("init"));
    IPlugin* const face = plugin.release();
    QVERIFY(static_cast<void*>(face) != static_cast<void*>(watched.data()));
    delete face;
    QVERIFY(watched.isNull());
    QVERIFY(command.isNull());
}

void TestAbstractPlugin::goesBeforeItsWorkingCommands()
{
    auto plugin = std::make_unique<TestPlugin>();
    QPointer<TestCommand> const prototype = plugin->declare(QStringLiteral("init"));
    QPointer<TestCommand> const other = plugin->declare(QStringLiteral("listen"), QStringLiteral("stop"));
    auto init = prototype->createCommand({});
    auto listen = other->createCommand({});
    QPointer<QObject> const working[] = {init.dynamicCast<TestCommand>().data(),
                                         listen.dynamicCast<TestCommand>().data()};
    MessageCapture const log;
    plugin.reset();
    QCOMPARE(log.lines.size(), 1);
    QCOMPARE(log.lines[0].type, QtCriticalMsg);
    QCOMPARE(log.lines[0].text,
             QStringLiteral("The plugin instance %1 was destroyed before its working commands: init, listen")
                 .arg(c_object.toString()));
    QVERIFY(prototype.isNull());
    QVERIFY(other.isNull());
    for (auto const& command : working) {
        QVERIFY(!command.isNull());
        QVERIFY(command->parent() == nullptr);
    }
    QCOMPARE(init->commandName(), QStringLiteral("init"));
    init.reset();
    listen.reset();
    QVERIFY(working[0].isNull());
    QVERIFY(working[1].isNull());
}

void TestAbstractPlugin::goesBehindItsWorkingCommands()
{
    auto plugin = std::make_unique<TestPlugin>();
    auto command = plugin->declare(QStringLiteral("init"))->createCommand({});
    QObject owner;
    plugin->declareInstructionCommand(new TestCommand(QStringLiteral("other"), QString(), &owner));
    MessageCapture const log;
    command.reset();
    plugin.reset();
    QVERIFY(log.lines.isEmpty());
}

QTEST_GUILESS_MAIN(TestAbstractPlugin)
#include "tst_abstract_plugin.moc"
