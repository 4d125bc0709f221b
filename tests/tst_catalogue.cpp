#include "shipped_plugin.h"
#include "variants.h"

#include <QSignalSpy>
#include <QTest>

/// What the shipped plugin offers: its commands with everything that they declare, and what all of them have
/// in common.
class TestCatalogue : public QObject
{
    Q_OBJECT

private slots:
    void order();
    void announcement();
    void secondInitialisation();

    void declarations_data();
    void declarations();

    void prototype_data() { rowPerCommand(); }
    void prototype();
    void clone_data() { rowPerCommand(); }
    void clone();
    void cloneIsReleasedOnce_data() { rowPerCommand(); }
    void cloneIsReleasedOnce();
    void refusal_data() { rowPerCommand(); }
    void refusal();
    void instructionsGoToTheDevice_data() { rowPerCommand(); }
    void instructionsGoToTheDevice();

private:
    static void rowPerCommand();
};

namespace
{

QUuid const c_object(QStringLiteral("{11111111-2222-4333-8444-555555555555}"));

QStringList const c_names{
    QStringLiteral("startTightening"), QStringLiteral("stopTightening"), QStringLiteral("startListening"),
    QStringLiteral("getDirection"),    QStringLiteral("init"),           QStringLiteral("restore"),
    QStringLiteral("listenTrigger"),   QStringLiteral("getPresetInfo"),
};

using Declarations = QList<DDeclaration>;

QString const c_polling = QStringLiteral("Start polling current point state");

DDeclaration declared(char const* key, char const* typeTag, char const* label, QVariant const& defaultValue)
{
    return {QString::fromLatin1(key), QString::fromLatin1(typeTag), QString::fromLatin1(label), defaultValue};
}

} // namespace

Q_DECLARE_METATYPE(DDeclaration)

void TestCatalogue::rowPerCommand()
{
    QTest::addColumn<QString>("name");
    for (auto const& name : c_names)
        QTest::newRow(qPrintable(name)) << name;
}

void TestCatalogue::order()
{
    auto const instance = ShippedPlugin().makeInstance(c_object);
    QCOMPARE(instance->commandNames(), QStringList());
    instance->initPluginCommands();
    QCOMPARE(instance->commandNames(), c_names);
}

void TestCatalogue::announcement()
{
    auto const instance = ShippedPlugin().makeInstance(c_object);
    QSignalSpy const done(instance.get(), &DAbstractPlugin::sigCommandsInitDone);
    instance->initPluginCommands();
    QCOMPARE(done.size(), 1);
    QCOMPARE(done[0][0].toUuid(), c_object);
    QCOMPARE(done[0][1].toStringList(), c_names);
}

void TestCatalogue::secondInitialisation()
{
    auto const instance = ShippedPlugin().makeInstance(c_object);
    instance->initPluginCommands();
    instance->initPluginCommands();
    QCOMPARE(instance->commandNames(), c_names + c_names);
}

void TestCatalogue::declarations_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("stopName");
    QTest::addColumn<QString>("description");
    QTest::addColumn<Declarations>("parameters");
    QTest::addColumn<Declarations>("results");

    auto const row = [](char const* name, char const* className, char const* stopName,
                        QString const& description, Declarations const& parameters,
                        Declarations const& results) {
        QTest::newRow(name) << QString::fromLatin1(name) << QString::fromLatin1(className)
                            << QString::fromLatin1(stopName) << description << parameters << results;
    };
    row("startTightening", "DCmdStartTightening", "", c_polling,
        {declared("program", "ui16", "Tightening program", QString()),
         declared("locking", "ui16", "Locking state", 2)},
        {declared("presetData", "varM", "Preset data from ZRT", QVariant()),
         declared("lockingData", "varM", "Locking data from ZRT", QVariant())});
    row("stopTightening", "DCmdStopTightening", "", c_polling, {},
        {declared("lockStatus", "strg", "Locking status from ZRT", QVariant())});
    row("startListening", "DCmdEventListen", "stopListening", c_polling, {},
        {declared("eventData", "varM", "Event data from ZRT", QVariant())});
    row("getDirection", "DCmdGetDirection", "", c_polling, {},
        {declared("direction", "bool", "Direction", QVariant())});
    row("init", "DCmdInitZrt", "", QStringLiteral("Init zrt"), {},
        {declared("doneOk", "bool", "Job done", false)});
    row("restore", "DCmdRestore", "stopListening", QStringLiteral("Restore saved backup"),
        {declared("filePath", "strg", "Backup file path", QStringLiteral("")),
         declared("startPreset", "int", "Start preset", 0), declared("endPreset", "int", "End preset", 0),
         declared("loadControllerParams", "bool", "Load controller parameters", false)},
        {declared("statusData", "vart", "Restoring progress/status", QVariant())});
    row("listenTrigger", "DCmdTriggerListen", "stopTriggerListening", QStringLiteral("Listen trigger state"),
        {}, {declared("doneOk", "bool", "Trigger done", QVariant())});
    row("getPresetInfo", "DCmdGetPresetInfo", "", QStringLiteral("Get preset info"),
        {declared("prog", "ui16", "Tightening program", QString())},
        {declared("presetData", "varM", "Preset data from ZRT", QVariant())});
}

void TestCatalogue::declarations()
{
    QFETCH(QString, name);
    QFETCH(QString, className);
    QFETCH(QString, stopName);
    QFETCH(QString, description);
    QFETCH(Declarations, parameters);
    QFETCH(Declarations, results);

    WorkingCommand const working(name);
    QCOMPARE(working.command->commandName(), name);
    QCOMPARE(working.command->stopCommandName(), stopName);
    QCOMPARE(working.command->isRecurrent(), !stopName.isEmpty());
    QCOMPARE(working.command->description(), description);

    auto const compare = [](Declarations const& actual, Declarations const& expected) {
        QCOMPARE(actual.size(), expected.size());
        for (int i = 0; i < expected.size(); ++i) {
            QCOMPARE(actual[i].key, expected[i].key);
            QCOMPARE(actual[i].typeTag, expected[i].typeTag);
            QCOMPARE(actual[i].label, expected[i].label);
            QVERIFY(isSame(actual[i].defaultValue, expected[i].defaultValue));
        }
    };
    compare(working.command->commandArguments().parameters, parameters);
    compare(working.command->commandArguments().results, results);
    for (auto const& result : results)
        QVERIFY(isSame(working.result(result.key), result.defaultValue));

    auto const* const object = dynamic_cast<QObject const*>(working.command.data());
    QCOMPARE(QString::fromLatin1(object->metaObject()->className()), className);
    QCOMPARE(object->metaObject()->superClass(), &DAbstractCommand::staticMetaObject);
    // Nothing of its own is open to scripts or to connections by name.
    QCOMPARE(object->metaObject()->methodCount(), DAbstractCommand::staticMetaObject.methodCount());
    QCOMPARE(object->metaObject()->propertyCount(), DAbstractCommand::staticMetaObject.propertyCount());
}

void TestCatalogue::prototype()
{
    QFETCH(QString, name);
    auto const instance = ShippedPlugin().makeInstance(c_object);
    instance->initPluginCommands();
    auto const* const prototype = dynamic_cast<DAbstractCommand const*>(instance->commandPrototype(name));
    QVERIFY(prototype);
    QCOMPARE(prototype->parent(), instance.get());
    QCOMPARE(prototype->getOrderId(), quint64(0));
    QCOMPARE(prototype->getParameterOrderId(), quint64(0));
    QCOMPARE(instance->findChildren<DAbstractCommand*>().size(), c_names.size());
}

void TestCatalogue::clone()
{
    QFETCH(QString, name);
    WorkingCommand const working(name, {{QStringLiteral("orderId"), 11}});
    auto const* const prototype =
        dynamic_cast<DAbstractCommand const*>(working.instance->commandPrototype(name));
    auto const first = working.command.dynamicCast<DAbstractCommand>();
    QVERIFY(first.data() != prototype);
    QCOMPARE(first->metaObject(), prototype->metaObject());
    QCOMPARE(first->parent(), working.instance.get());
    QCOMPARE(first->getParameterOrderId(), quint64(11));
    QCOMPARE(prototype->getParameterOrderId(), quint64(0));

    // A clone can be cloned again; its parameters do not come along.
    auto const second =
        first->createCommand({{QStringLiteral("orderId"), 12}}).dynamicCast<DAbstractCommand>();
    QCOMPARE(second->metaObject(), prototype->metaObject());
    QCOMPARE(second->parent(), working.instance.get());
    QCOMPARE(second->getParameterOrderId(), quint64(12));
    QCOMPARE(first->getParameterOrderId(), quint64(11));
}

void TestCatalogue::cloneIsReleasedOnce()
{
    QFETCH(QString, name);
    WorkingCommand working(name);
    QPointer<QObject> const watched = working.command.dynamicCast<QObject>().data();
    QWeakPointer<ICommand> const tracked = working.command;
    QSharedPointer<ICommand> other = working.command;
    working.command.reset();
    QVERIFY(watched);
    QVERIFY(tracked.toStrongRef());
    other.reset();
    QVERIFY(!watched);
    QVERIFY(!tracked.toStrongRef());
    // It is no child of the plugin instance any more, which would delete it again.
    QCOMPARE(working.instance->findChildren<DAbstractCommand*>().size(), c_names.size());
}

void TestCatalogue::refusal()
{
    QFETCH(QString, name);
    WorkingCommand working(name);
    // An order that is gone when the command is executed: the base refuses.
    {
        RecordingOrder passing;
        working.command->linkWithItsOrder(&passing);
    }
    // The trigger command goes to work all the same.
    QCOMPARE(working.command->commandExecute(), name == QLatin1String("listenTrigger"));
    working.command->linkWithItsOrder(&working.order);
    QCOMPARE(working.order.posted.size(), 0);
    QVERIFY(working.execute());
    QVERIFY(!working.order.posted.isEmpty());
}

void TestCatalogue::instructionsGoToTheDevice()
{
    QFETCH(QString, name);
    WorkingCommand working(name);
    QVERIFY(working.execute());
    // Replies keep a chain going, whatever they lead to.
    for (int i = 0; i < 5 && i < working.order.posted.size(); ++i)
        working.command->setReply(working.order.posted[i].id, {{QStringLiteral("doneOk"), true}});
    bool success = true;
    working.command->finishTheCommand(success);
    for (auto const& posted : working.order.posted) {
        QCOMPARE(posted.instruction.target, QStringLiteral("device"));
        QCOMPARE(posted.instruction.timeAllowance, 4000);
    }
}

QTEST_GUILESS_MAIN(TestCatalogue)
#include "tst_catalogue.moc"
