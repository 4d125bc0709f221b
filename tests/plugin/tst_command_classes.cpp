#include "command_classes.h"
#include "literals.h"
#include "p_tool_vesk_zrt.h"

#include <QTest>

#include <memory>

using Make = DAbstractCommand* (*)(QObject* parent);
Q_DECLARE_METATYPE(Make)

namespace
{

QString className(QObject const& object)
{
    return QString::fromLatin1(object.metaObject()->className());
}

template <class... Commands> void addRows(Classes<Commands...> /*all*/)
{
    QTest::addColumn<Make>("make");
    (..., (QTest::newRow(Commands::staticMetaObject.className())
           << Make([](QObject* parent) -> DAbstractCommand* { return new Commands(parent); })));
}

} // namespace

/// The command classes that the plugin's headers have. The library hides them, so they are tested on what it
/// is linked from.
class TestCommandClasses : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_plugin.initPluginCommands(); }

    // Each is in the catalogue, and makes the same command if it is made with a parent alone.
    void madeWithParent_data() { addRows(CommandClasses()); }

    void madeWithParent()
    {
        QFETCH(Make, make);
        QObject parent;
        auto const* const command = make(&parent);
        QCOMPARE(command->parent(), &parent);
        QVERIFY(!std::unique_ptr<DAbstractCommand>(make(nullptr))->parent());

        auto const* const prototype =
            dynamic_cast<DAbstractCommand const*>(m_plugin.commandPrototype(command->commandName()));
        QVERIFY2(prototype, "PToolVeskZrt::initPluginCommands() does not declare it");
        QCOMPARE(className(*prototype), className(*command));
        QCOMPARE(command->stopCommandName(), prototype->stopCommandName());
        QCOMPARE(command->fullDescription(), prototype->fullDescription());
        QCOMPARE(command->getParameterOrderId(), quint64(0));
    }

private:
    PToolVeskZrt m_plugin;
};

QTEST_GUILESS_MAIN(TestCommandClasses)
#include "tst_command_classes.moc"
