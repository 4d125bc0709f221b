#include "command_classes.h"
#include "literals.h"
#include "p_tool_vesk_zrt.h"

#include <QTest>

#include <memory>

using Make = DAbstractCommand* (*)(QObject* parent);
Q_DECLARE_METATYPE(Make)

namespace
{

template <class... Commands> QStringList namesOf(Classes<Commands...> /*all*/)
{
    return {QString::fromLatin1(Commands::staticMetaObject.className())...};
}

template <class Command> void addRow()
{
    QTest::newRow(Command::staticMetaObject.className())
        << Make([](QObject* parent) -> DAbstractCommand* { return new Command(parent); })
        << Make([](QObject* parent) -> DAbstractCommand* {
               return new Command(QMap<QString, QVariant>(), parent);
           });
}

template <class... Commands> void addRows(Classes<Commands...> /*all*/)
{
    (addRow<Commands>(), ...);
}

QStringList keysOf(QList<DDeclaration> const& declarations)
{
    QStringList keys;
    for (auto const& declaration : declarations)
        keys += declaration.key;
    return keys;
}

} // namespace

/// What of the command classes no host reaches through the library: their list, as the plugin's headers have
/// it, and a prototype made with a parent alone.
class TestCommandClasses : public QObject
{
    Q_OBJECT

private slots:
    // Each class makes one command of the catalogue.
    void catalogue()
    {
        PToolVeskZrt plugin;
        plugin.initPluginCommands();
        QStringList inCatalogue;
        auto const names = plugin.commandNames();
        for (auto const& name : names) {
            auto const* const prototype = dynamic_cast<QObject const*>(plugin.commandPrototype(name));
            inCatalogue += QString::fromLatin1(prototype->metaObject()->className());
        }
        QStringList classes = namesOf(CommandClasses());
        for (auto const& name : qAsConst(classes))
            QVERIFY2(inCatalogue.contains(name),
                     qPrintable("PToolVeskZrt::initPluginCommands() does not declare "_s + name));
        inCatalogue.sort();
        classes.sort();
        QCOMPARE(inCatalogue, classes);
    }

    void withoutParameters_data()
    {
        QTest::addColumn<Make>("make");
        QTest::addColumn<Make>("makeWithNone");

        addRows(CommandClasses());
    }

    void withoutParameters()
    {
        QFETCH(Make, make);
        QFETCH(Make, makeWithNone);
        QObject parent;
        auto const* const command = make(&parent);
        auto const* const same = makeWithNone(&parent);
        QCOMPARE(command->parent(), &parent);
        QVERIFY(!command->commandName().isEmpty());
        QCOMPARE(command->commandName(), same->commandName());
        QCOMPARE(command->stopCommandName(), same->stopCommandName());
        QCOMPARE(command->description(), same->description());
        QCOMPARE(keysOf(command->commandArguments().parameters), keysOf(same->commandArguments().parameters));
        QCOMPARE(keysOf(command->commandArguments().results), keysOf(same->commandArguments().results));
        QCOMPARE(command->getParameterOrderId(), quint64(0));

        std::unique_ptr<DAbstractCommand> const orphan(make(nullptr));
        QVERIFY(!orphan->parent());
    }
};

QTEST_GUILESS_MAIN(TestCommandClasses)
#include "tst_command_classes.moc"
