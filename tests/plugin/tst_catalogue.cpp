#include "meta_entries.h"
#include "working_command.h"

#include <QSignalSpy>

namespace
{

/// All that a command declares.
QString declared(ICommand const& command)
{
    QString text = command.commandName() + "|"_s + command.stopCommandName() + "|"_s + command.description();
    auto const add = [&text](QString const& kind, QList<DDeclaration> const& declarations) {
        for (auto const& one : declarations)
            text +=
                "\n%1 %2 (%3) %4: %5"_s.arg(kind, one.key, one.typeTag, one.label, textOf(one.defaultValue));
    };
    add("parameter"_s, command.commandArguments().parameters);
    add("result"_s, command.commandArguments().results);
    return text;
}

} // namespace

/// What all commands of the shipped plugin have in common. What each of them declares is pinned by
/// tests/program/data/inspect.jsonl.
class TestCatalogue : public QObject
{
    Q_OBJECT

private slots:
    void announcement()
    {
        QUuid const object = QUuid::createUuid();
        auto const instance = ShippedPlugin().makeInstance(object);
        QCOMPARE(instance->commandNames(), QStringList());
        QSignalSpy const done(instance.get(), &DAbstractPlugin::sigCommandsInitDone);
        instance->initPluginCommands();
        auto const names = instance->commandNames();
        QVERIFY(!names.isEmpty());
        QCOMPARE(done, (QList<QVariantList>{{object, names}}));
        QCOMPARE(instance->findChildren<DAbstractCommand*>().size(), names.size());

        instance->initPluginCommands();
        QCOMPARE(instance->commandNames(), names + names);
    }

    // JSON does not tell a null text from an empty one.
    void nullDefaults()
    {
        auto const instance = ShippedPlugin().makeInstanceWithCommands();
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

    void prototype_data() { addCommandRows(); }

    void prototype()
    {
        QFETCH(QString, name);
        auto const instance = ShippedPlugin().makeInstanceWithCommands();
        auto const* const prototype = dynamic_cast<DAbstractCommand const*>(instance->commandPrototype(name));
        QVERIFY(prototype);
        QCOMPARE(prototype->parent(), instance.get());
        QCOMPARE(prototype->commandName(), name);
        QCOMPARE(prototype->getParameterOrderId(), quint64(0));
        // Nothing of its own is open to scripts or to connections by name.
        QCOMPARE(prototype->metaObject()->superClass(), &DAbstractCommand::staticMetaObject);
        QCOMPARE(ownEntries(*prototype->metaObject()), QStringList());
    }

    void clone_data() { addCommandRows(); }

    // A clone declares what its prototype does, and can be cloned again; its parameters do not come along.
    void clone()
    {
        QFETCH(QString, name);
        auto const instance = ShippedPlugin().makeInstanceWithCommands();
        auto const* const prototype = dynamic_cast<DAbstractCommand const*>(instance->commandPrototype(name));
        auto const first = prototype->createCommand({{"orderId"_s, 11}});
        auto const second = first->createCommand({{"orderId"_s, 12}});
        quint64 orderId = 11;
        for (auto const& made : {first, second}) {
            auto const* const clone = dynamic_cast<DAbstractCommand const*>(made.data());
            QVERIFY(clone != prototype);
            QCOMPARE(clone->metaObject(), prototype->metaObject());
            QCOMPARE(clone->parent(), instance.get());
            QCOMPARE(clone->getParameterOrderId(), orderId++);
            QCOMPARE(declared(*clone), declared(*prototype));
        }
    }
};

QTEST_GUILESS_MAIN(TestCatalogue)
#include "tst_catalogue.moc"
