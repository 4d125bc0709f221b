#include "literals.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QSignalSpy>
#include <QTest>

namespace
{

QUuid const c_object("{11111111-2222-4333-8444-555555555555}"_s);

} // namespace

/// What all commands of the shipped plugin have in common. What each of them declares is pinned by
/// tests/program/data/inspect.jsonl.
class TestCatalogue : public QObject
{
    Q_OBJECT

private slots:
    void announcement()
    {
        auto const instance = ShippedPlugin().makeInstance(c_object);
        QCOMPARE(instance->commandNames(), QStringList());
        QSignalSpy const done(instance.get(), &DAbstractPlugin::sigCommandsInitDone);
        instance->initPluginCommands();
        QVERIFY(!instance->commandNames().isEmpty());
        QCOMPARE(done.size(), 1);
        QCOMPARE(done[0][0].toUuid(), c_object);
        QCOMPARE(done[0][1].toStringList(), instance->commandNames());
    }

    void secondInitialisation()
    {
        auto const instance = ShippedPlugin().makeInstance(c_object);
        instance->initPluginCommands();
        auto const names = instance->commandNames();
        instance->initPluginCommands();
        QCOMPARE(instance->commandNames(), names + names);
    }

    // JSON does not tell a null text from an empty one.
    void nullDefaults()
    {
        auto const instance = ShippedPlugin().makeInstance(c_object);
        instance->initPluginCommands();
        QStringList found;
        auto const names = instance->commandNames();
        for (auto const& name : names) {
            auto const arguments = instance->commandPrototype(name)->commandArguments();
            auto const declarations = arguments.parameters + arguments.results;
            for (auto const& declaration : declarations) {
                if (declaration.defaultValue.isValid() && declaration.defaultValue.isNull())
                    found += name + QLatin1Char('.') + declaration.key;
            }
        }
        QCOMPARE(found, (QStringList{"startTightening.program"_s, "getPresetInfo.prog"_s}));
    }

    void declarations_data() { addCommandRows(); }

    // A clone declares what its prototype does.
    void declarations()
    {
        QFETCH(QString, name);
        WorkingCommand const working(name);
        auto const* const prototype = working.instance->commandPrototype(name);
        QCOMPARE(prototype->commandName(), name);
        QCOMPARE(working.command->commandName(), name);
        QCOMPARE(working.command->stopCommandName(), prototype->stopCommandName());
        QCOMPARE(working.command->isRecurrent(), !prototype->stopCommandName().isEmpty());
        QCOMPARE(working.command->description(), prototype->description());

        auto const compare = [](QList<DDeclaration> const& actual, QList<DDeclaration> const& expected) {
            QCOMPARE(actual.size(), expected.size());
            for (int i = 0; i < expected.size(); ++i) {
                QCOMPARE(actual[i].key, expected[i].key);
                QCOMPARE(actual[i].typeTag, expected[i].typeTag);
                QCOMPARE(actual[i].label, expected[i].label);
                QVERIFY(isSame(actual[i].defaultValue, expected[i].defaultValue));
            }
        };
        auto const arguments = prototype->commandArguments();
        compare(working.command->commandArguments().parameters, arguments.parameters);
        compare(working.command->commandArguments().results, arguments.results);
        for (auto const& result : arguments.results)
            QVERIFY(isSame(working.result(result.key), result.defaultValue));
    }

    void metaObject_data() { addCommandRows(); }

    void metaObject()
    {
        QFETCH(QString, name);
        WorkingCommand const working(name);
        auto const* const meta = working.command.dynamicCast<QObject>()->metaObject();
        QCOMPARE(meta->superClass(), &DAbstractCommand::staticMetaObject);
        // Nothing of its own is open to scripts or to connections by name.
        QCOMPARE(meta->methodCount(), DAbstractCommand::staticMetaObject.methodCount());
        QCOMPARE(meta->propertyCount(), DAbstractCommand::staticMetaObject.propertyCount());
    }

    void prototype_data() { addCommandRows(); }

    void prototype()
    {
        QFETCH(QString, name);
        auto const instance = ShippedPlugin().makeInstance(c_object);
        instance->initPluginCommands();
        auto const* const prototype = dynamic_cast<DAbstractCommand const*>(instance->commandPrototype(name));
        QVERIFY(prototype);
        QCOMPARE(prototype->parent(), instance.get());
        QCOMPARE(prototype->getOrderId(), quint64(0));
        QCOMPARE(prototype->getParameterOrderId(), quint64(0));
        QCOMPARE(instance->findChildren<DAbstractCommand*>().size(), instance->commandNames().size());
    }

    void clone_data() { addCommandRows(); }

    void clone()
    {
        QFETCH(QString, name);
        WorkingCommand const working(name, {{"orderId"_s, 11}});
        auto const* const prototype =
            dynamic_cast<DAbstractCommand const*>(working.instance->commandPrototype(name));
        auto const first = working.command.dynamicCast<DAbstractCommand>();
        QVERIFY(first.data() != prototype);
        QCOMPARE(first->metaObject(), prototype->metaObject());
        QCOMPARE(first->parent(), working.instance.get());
        QCOMPARE(first->getParameterOrderId(), quint64(11));
        QCOMPARE(prototype->getParameterOrderId(), quint64(0));

        // A clone can be cloned again; its parameters do not come along.
        auto const second = first->createCommand({{"orderId"_s, 12}}).dynamicCast<DAbstractCommand>();
        QCOMPARE(second->metaObject(), prototype->metaObject());
        QCOMPARE(second->parent(), working.instance.get());
        QCOMPARE(second->getParameterOrderId(), quint64(12));
        QCOMPARE(first->getParameterOrderId(), quint64(11));
    }

    void cloneIsReleasedOnce_data() { addCommandRows(); }

    void cloneIsReleasedOnce()
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
        QCOMPARE(working.instance->findChildren<DAbstractCommand*>().size(),
                 working.instance->commandNames().size());
    }
};

QTEST_GUILESS_MAIN(TestCatalogue)
#include "tst_catalogue.moc"
