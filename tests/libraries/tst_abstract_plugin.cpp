#include "literals.h"
#include "message_capture.h"

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_tightening_tool.h>
#include <utilities/utilities.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QUuid>
#include <QtTest>

#include <memory>

using Map = QMap<QString, QVariant>;
using Properties = QList<QPair<QString, QVariant>>;
using Config = QSharedPointer<QJsonObject>;
Q_DECLARE_METATYPE(Config)

namespace
{

QUuid const c_kind(0xfe68f24c, 0xac43, 0x4833, 0xab, 0xc7, 0x7d, 0x9f, 0x33, 0x74, 0x44, 0x48);
QUuid const c_object(0x12345678, 0x1234, 0x1234, 1, 2, 3, 4, 5, 6, 7, 8);

class OpenCommand : public DAbstractCommand
{
public:
    using DAbstractCommand::declareAParameter;
    using DAbstractCommand::setDescription;

    explicit OpenCommand(QString const& name, QString const& stop = {}, QObject* parent = nullptr)
        : DAbstractCommand(name, stop, {}, parent)
    {}
    QSharedPointer<ICommand> createCommand(Map const&) const override
    {
        return QSharedPointer<OpenCommand>::create(commandName(), stopCommandName(), parent());
    }
};

class TestPlugin : public DAbstractPlugin
{
    Q_OBJECT

public:
    using DAbstractPlugin::declareInstructionCommand;
    using DAbstractPlugin::setProperty;

    explicit TestPlugin(QObject* parent = nullptr)
        : DAbstractPlugin(c_kind, "Plugin under test"_s, versionFromString("3.2.1.9"_s), 0x43616d65, c_object,
                          parent)
    {}

    void initPluginCommands() override {}
    IPlugin* createInstance(QUuid const&) const override { return nullptr; }
    char const* pluginSubTypeName() const override { return ""; }

    OpenCommand* declare(QString const& name, QString const& stop = {})
    {
        auto* const command = new OpenCommand(name, stop);
        declareInstructionCommand(command);
        return command;
    }
};

class TighteningTool : public DAbstractTighteningTool
{
public:
    using DAbstractTighteningTool::DAbstractTighteningTool;
    void initPluginCommands() override {}
    IPlugin* createInstance(QUuid const&) const override { return nullptr; }
    char const* pluginSubTypeName() const override { return ""; }
};

QJsonValue const c_fallback("fallback"_s);

/// A configuration with this section for the plugin; undefined for none.
Config makeConfig(QJsonValue const& section)
{
    return Config::create(QJsonObject{
        {"language"_s, "fr"_s},
        {"nothing"_s, QJsonValue()},
        {"{00000000-0000-0000-0000-000000000001}"_s, QJsonObject{{"port"_s, 1}, {"foreign"_s, 2}}},
        {c_kind.toString(), section}});
}

QString shown(QJsonValue const& value)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact));
}

QString shown(QVariant const& value)
{
    return shown(QJsonValue::fromVariant(value));
}

/// What a getter answers that also tells whether it has found the value. What stood there before does not
/// count, and nobody need ask.
template <class Get> QString answerOf(Get const& get)
{
    bool before = false;
    bool beforeToo = true;
    QString const value = shown(get(&before));
    bool const isSame =
        shown(get(&beforeToo)) == value && before == beforeToo && shown(get(nullptr)) == value;
    return value + (isSame ? QString() : " or another"_s) + (before ? QString() : " not found"_s);
}

} // namespace

class TestAbstractPlugin : public QObject
{
    Q_OBJECT

private slots:
    void identity()
    {
        QObject parent;
        auto& plugin = *new TestPlugin(&parent);
        QCOMPARE(plugin.parent(), &parent);
        QCOMPARE(plugin.objectUuid(), c_object);
        QCOMPARE(plugin.pluginUuid(), c_kind);
        QCOMPARE(plugin.pluginName(), "Plugin under test"_s);
        QCOMPARE(plugin.pluginVersion(), Q_UINT64_C(0x0003000200010009));
        QCOMPARE(plugin.pluginType(), 0x43616d65U);
        QCOMPARE(plugin.compatiblePlugins(), QList<QUuid>{c_kind});
        QCOMPARE(plugin.compatibilityString(), "{fe68f24c-ac43-4833-abc7-7d9f33744448} 3.2.1.9"_s);
        plugin.setObjectName("Station %3 %1"_s);
        QCOMPARE(plugin.getName(), "Station %3 %1"_s);
        QCOMPARE(plugin.getDebugIdentification(),
                 "TestPlugin \"Station %3 %1\" {12345678-1234-1234-0102-030405060708}"_s);
    }

    void toolTellsItsType()
    {
        TighteningTool const tool(c_kind, "Tool"_s, 7, c_object, this);
        QCOMPARE(tool.pluginType(), 0x546F6F6CU); // 'Tool'
        QCOMPARE(tool.pluginUuid(), c_kind);
        QCOMPARE(tool.pluginName(), "Tool"_s);
        QCOMPARE(tool.pluginVersion(), quint64{7});
        QCOMPARE(tool.objectUuid(), c_object);
        QCOMPARE(tool.parent(), this);
    }

    void property_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("withDefault");

        QTest::newRow("published") << "toolType"_s
                                   << "[0]"_s
                                   << "[0]"_s;
        QTest::newRow("published as invalid") << "void"_s
                                              << "[null]"_s
                                              << "[null]"_s;
        QTest::newRow("absent") << "absent"_s
                                << "[null] not found"_s
                                << "[5]"_s;
        QTest::newRow("keys tell capitals") << "tooltype"_s
                                            << "[null] not found"_s
                                            << "[5]"_s;
    }

    void property()
    {
        QFETCH(QString, key);
        TestPlugin plugin;
        plugin.setProperty("toolType"_s, 0, false);
        plugin.setProperty("void"_s, QVariant(), true);
        QTEST(answerOf([&](bool* ok) { return plugin.getProperty(key, ok); }), "answer");
        QTEST(shown(plugin.getProperty(key, QVariant(5))), "withDefault");
    }

    void properties()
    {
        TestPlugin plugin;
        QCOMPARE(plugin.properties(), Properties());
        plugin.setProperty("zeta"_s, 1, false);
        plugin.setProperty("alpha"_s, 2, true);
        plugin.setProperty("zeta"_s, "replaced"_s, true);
        QCOMPARE(plugin.properties(), (Properties{{"zeta"_s, "replaced"_s}, {"alpha"_s, 2}}));
        // Those of the object are others.
        QVERIFY(!plugin.QObject::property("zeta").isValid());
        plugin.setProperty("dynamic", 1);
        QCOMPARE(plugin.QObject::property("dynamic"), QVariant(1));
        QCOMPARE(plugin.properties().size(), 2);
    }

    void functions_data()
    {
        QTest::addColumn<QString>("declared"); // some with a stop name
        QTest::addColumn<QString>("names");
        QTest::addColumn<QString>("withStops");
        auto const row = [](char const* rule, QString const& declared, QString const& names,
                            QString const& withStops) {
            QTest::newRow(rule) << declared << names << withStops;
        };

        row("none", {}, {}, {});
        row("names stand as declared", "b a"_s, "b a"_s, "b a"_s);
        row("stops stand behind", "listen/stop init"_s, "listen init"_s, "listen init stop"_s);
        row("two have one stop", "b/stop a/stop c/end"_s, "b a c"_s, "b a c stop end"_s);
        row("a stop is a command itself", "listen/abort abort"_s, "listen abort"_s, "listen abort"_s);
    }

    void functions()
    {
        QFETCH(QString, declared);
        TestPlugin plugin;
        for (auto const& command : declared.split(QLatin1Char(' '), Qt::SkipEmptyParts))
            plugin.declare(command.section(QLatin1Char('/'), 0, 0), command.section(QLatin1Char('/'), 1));
        QTEST(plugin.getFunctions(false).join(QLatin1Char(' ')), "names");
        QTEST(plugin.getFunctions(true).join(QLatin1Char(' ')), "withStops");
        QTEST(plugin.commandNames().join(QLatin1Char(' ')), "names");
    }

    void catalogue()
    {
        TestPlugin plugin;
        QVERIFY(plugin.commandPrototype("init"_s) == nullptr);
        auto* const init = plugin.declare("init"_s);
        auto* const listen = plugin.declare("listen"_s, "stop"_s);
        listen->setDescription("Listens"_s);
        listen->declareAParameter("program"_s, "ui16"_s, "Program"_s, 1);
        QCOMPARE(plugin.commandPrototype("init"_s), static_cast<ICommand const*>(init));
        QCOMPARE(plugin.commandPrototype("listen"_s), static_cast<ICommand const*>(listen));
        QCOMPARE(plugin.getFunctionDescription("listen"_s), "Listens"_s);
        QCOMPARE(plugin.getCommandParameters("listen"_s)[0].key, "program"_s);
        QVERIFY(plugin.getCommandParameters("init"_s).isEmpty());
        for (auto const& unknown : {"stop"_s, QString()}) {
            QVERIFY(plugin.commandPrototype(unknown) == nullptr);
            QCOMPARE(plugin.getFunctionDescription(unknown), QString());
            QVERIFY(plugin.getCommandParameters(unknown).isEmpty());
        }
    }

    void prototypeGoesWithItsPlugin()
    {
        auto plugin = std::make_unique<TestPlugin>();
        QPointer<TestPlugin> const watched = plugin.get();
        QPointer<OpenCommand> const first = plugin->declare("first"_s);
        QPointer<OpenCommand> const second = plugin->declare("second"_s);
        QCOMPARE(first->parent(), plugin.get());
        delete first;
        QCOMPARE(plugin->commandNames(), QStringList{"second"_s});
        QVERIFY(plugin->commandPrototype("first"_s) == nullptr);
        IPlugin* const face = plugin.release();
        delete face;
        QVERIFY(watched.isNull());
        QVERIFY(second.isNull());
    }

    void prototypeStaysWithItsParent()
    {
        auto owner = std::make_unique<QObject>();
        auto plugin = std::make_unique<TestPlugin>();
        auto* const command = new OpenCommand("init"_s, "stopInit"_s, owner.get());
        plugin->declareInstructionCommand(command);
        QCOMPARE(command->parent(), owner.get());
        QCOMPARE(plugin->getFunctions(true), (QStringList{"init"_s, "stopInit"_s}));
        plugin.reset();
        QCOMPARE(owner->children(), QObjectList{command});

        plugin = std::make_unique<TestPlugin>();
        plugin->declareInstructionCommand(command);
        plugin->declare("other"_s);
        owner.reset();
        QCOMPARE(plugin->getFunctions(true), QStringList{"other"_s});
        QCOMPARE(plugin->commandNames(), QStringList{"other"_s});
        QVERIFY(plugin->commandPrototype("init"_s) == nullptr);
        QVERIFY(plugin->commandPrototype("other"_s) != nullptr);
    }

    void pluginGoesBeforeItsWorkingCommands()
    {
        auto plugin = std::make_unique<TestPlugin>();
        QPointer<OpenCommand> const prototype = plugin->declare("init"_s);
        auto init = prototype->createCommand({}).dynamicCast<OpenCommand>();
        auto const listen =
            plugin->declare("listen"_s, "stop"_s)->createCommand({}).dynamicCast<OpenCommand>();
        QPointer<OpenCommand> const watched = init.data();
        QCOMPARE(plugin->commandNames(), (QStringList{"init"_s, "listen"_s}));
        MessageCapture const log;
        plugin.reset();
        QCOMPARE(log.lines.size(), 1);
        QCOMPARE(log.lines[0].type, QtCriticalMsg);
        QCOMPARE(log.lines[0].text,
                 "The plugin instance %1 was destroyed before its working commands: init, listen"_s.arg(
                     c_object.toString()));
        QVERIFY(prototype.isNull());
        QVERIFY(!watched.isNull());
        QVERIFY(init->parent() == nullptr);
        QVERIFY(listen->parent() == nullptr);
        init.reset();
        QVERIFY(watched.isNull());
    }

    void pluginGoesAfterItsWorkingCommands()
    {
        QObject owner;
        MessageCapture const log;
        {
            TestPlugin plugin;
            plugin.declare("init"_s)->createCommand({});
            plugin.declareInstructionCommand(new OpenCommand("other"_s, {}, &owner));
        }
        QVERIFY(log.lines.isEmpty());
    }

    void configuration_data()
    {
        QTest::addColumn<Config>("config");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("inMain");
        QTest::addColumn<QString>("inSection");
        auto const row = [](char const* rule, Config const& config, QString const& key, QString const& inMain,
                            QString const& inSection) {
            QTest::newRow(rule) << config << key << inMain << inSection;
        };

        QString const none = "[\"fallback\"] not found"_s;
        auto const config = makeConfig(QJsonObject{{"port"_s, 4545}, {"void"_s, QJsonValue()}});
        row("in the main configuration", config, "language"_s, "[\"fr\"]"_s, none);
        row("null in the main configuration", config, "nothing"_s, "[null]"_s, none);
        row("in the section", config, "port"_s, none, "[4545]"_s);
        row("null in the section", config, "void"_s, none, "[null]"_s);
        row("in another plugin's section", config, "foreign"_s, none, none);
        row("absent", config, "absent"_s, none, none);
        row("no section", makeConfig(QJsonValue::Undefined), "port"_s, none, none);
        row("an empty section", makeConfig(QJsonObject()), "port"_s, none, none);
        row("a section that is no object", makeConfig(5), "port"_s, none, none);
        row("a section that is null", makeConfig(QJsonValue()), "port"_s, none, none);
        row("no configuration", {}, "language"_s, none, none);
    }

    void configuration()
    {
        QFETCH(Config, config);
        QFETCH(QString, key);
        TestPlugin plugin;
        plugin.setMainConfig(config);
        QCOMPARE(plugin.getMainConfig(), config);
        QTEST(answerOf([&](bool* ok) { return plugin.getInMainConfig(key, c_fallback, ok); }), "inMain");
        QTEST(answerOf([&](bool* ok) { return plugin.getInPluginConfig(key, c_fallback, ok); }), "inSection");
    }

    void configurationIsShared()
    {
        TestPlugin one;
        TestPlugin two;
        QVERIFY(one.getMainConfig().isNull());
        auto const config = makeConfig(QJsonValue::Undefined);
        one.setMainConfig(config);
        two.setMainConfig(config);
        one.setInMainConfig("language"_s, "en"_s);
        QCOMPARE(two.getInMainConfig("language"_s, {}, nullptr), QJsonValue("en"_s));
        // Two instances of a kind have one section.
        one.setInPluginConfig("port"_s, 1);
        QCOMPARE(two.getInPluginConfig("port"_s, {}, nullptr), QJsonValue(1));
    }

    void writesConfiguration_data()
    {
        QTest::addColumn<QJsonValue>("section");
        QTest::addColumn<QJsonObject>("expected");
        auto const row = [](char const* rule, QJsonValue const& section, QJsonObject const& expected) {
            QTest::newRow(rule) << section << expected;
        };

        row("adds a value", QJsonObject{{"a"_s, 1}}, {{"a"_s, 1}, {"new"_s, 7}});
        row("replaces a value", QJsonObject{{"new"_s, 1}}, {{"new"_s, 7}});
        row("makes the section", QJsonValue::Undefined, {{"new"_s, 7}});
        row("replaces a section that is no object", 5, {{"new"_s, 7}});
    }

    void writesConfiguration()
    {
        QFETCH(QJsonValue, section);
        QFETCH(QJsonObject, expected);
        auto const config = makeConfig(section);
        auto const whole = makeConfig(expected);
        TestPlugin plugin;
        plugin.setMainConfig(config);
        plugin.setInPluginConfig("new"_s, 7);
        QCOMPARE(*config, *whole);
        plugin.setInMainConfig("new"_s, 8);
        whole->insert("new"_s, 8);
        QCOMPARE(*config, *whole);
    }

    void writesNothingWithoutConfiguration()
    {
        TestPlugin plugin;
        plugin.setInMainConfig("a"_s, 1);
        plugin.setInPluginConfig("b"_s, 2);
        QVERIFY(plugin.getMainConfig().isNull());
        // Nothing was kept for a configuration that comes later.
        auto const config = Config::create();
        plugin.setMainConfig(config);
        QVERIFY(config->isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestAbstractPlugin)
#include "tst_abstract_plugin.moc"
