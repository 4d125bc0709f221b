#include "d_cmd_eventListen.h"
#include "d_cmd_getDirection.h"
#include "d_cmd_getPresetInfo.h"
#include "d_cmd_init_zrt.h"
#include "d_cmd_restore.h"
#include "d_cmd_startTightening.h"
#include "d_cmd_stopTightening.h"
#include "d_cmd_triggerListen.h"

#include <QTest>

#include <memory>

using Make = DAbstractCommand* (*)(QObject* parent);
Q_DECLARE_METATYPE(Make)

/// What of the command classes no host reaches through the library: a prototype made with a parent alone.
class TestCommandClasses : public QObject
{
    Q_OBJECT

private slots:
    void withoutParameters_data();
    void withoutParameters();
};

namespace
{

template <class Command> void rowFor(char const* name)
{
    QTest::newRow(name) << Make([](QObject* parent) -> DAbstractCommand* { return new Command(parent); })
                        << Make([](QObject* parent) -> DAbstractCommand* {
                               return new Command(QMap<QString, QVariant>(), parent);
                           });
}

QStringList keysOf(QList<DDeclaration> const& declarations)
{
    QStringList keys;
    for (auto const& declaration : declarations)
        keys += declaration.key;
    return keys;
}

} // namespace

void TestCommandClasses::withoutParameters_data()
{
    QTest::addColumn<Make>("make");
    QTest::addColumn<Make>("makeWithNone");

    rowFor<DCmdStartTightening>("startTightening");
    rowFor<DCmdStopTightening>("stopTightening");
    rowFor<DCmdEventListen>("startListening");
    rowFor<DCmdGetDirection>("getDirection");
    rowFor<DCmdInitZrt>("init");
    rowFor<DCmdRestore>("restore");
    rowFor<DCmdTriggerListen>("listenTrigger");
    rowFor<DCmdGetPresetInfo>("getPresetInfo");
}

void TestCommandClasses::withoutParameters()
{
    QFETCH(Make, make);
    QFETCH(Make, makeWithNone);
    QObject parent;
    auto const* const command = make(&parent);
    auto const* const same = makeWithNone(&parent);
    QCOMPARE(command->parent(), &parent);
    QCOMPARE(command->commandName(), QString::fromLatin1(QTest::currentDataTag()));
    QCOMPARE(command->stopCommandName(), same->stopCommandName());
    QCOMPARE(command->description(), same->description());
    QCOMPARE(keysOf(command->commandArguments().parameters), keysOf(same->commandArguments().parameters));
    QCOMPARE(keysOf(command->commandArguments().results), keysOf(same->commandArguments().results));
    QCOMPARE(command->getParameterOrderId(), quint64(0));

    std::unique_ptr<DAbstractCommand> const orphan(make(nullptr));
    QVERIFY(!orphan->parent());
}

QTEST_GUILESS_MAIN(TestCommandClasses)
#include "tst_command_classes.moc"
