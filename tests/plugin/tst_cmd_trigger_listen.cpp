#include "working_command.h"

namespace
{

QString const c_setTriggerProgram = "SetTriggerProgram"_s;
QString const c_setLock = "setLock"_s;
QString const c_start = "SetTriggerProgram; setLock {lock: 0}; listenEventsData"_s;
QString const c_triggered =
    "SetTriggerProgram {resetMode: true}; withdrew listenEventsData; setLock {lock: 1}"_s;
QString const c_pulse = "doneOk = true; doneOk = false"_s;
QString const c_nothing;

/// A command that waits for the trigger.
class Trigger : public WorkingCommand
{
public:
    Trigger() : WorkingCommand("listenTrigger"_s, {{"program"_s, 3}}) { execute(); }

    QString event(QVariantMap const& message) { return reply("listenEventsData"_s, message); }
    QString count(QVariant const& number)
    {
        return event({{"values"_s, QVariantMap{{"eventCountNo"_s, number}}}});
    }
};

} // namespace

/// The command "listenTrigger" of the shipped library.
class TestCmdTriggerListen : public QObject
{
    Q_OBJECT

private slots:
    void course()
    {
        Trigger trigger;
        QCOMPARE(trigger.execute(), c_start);
        QCOMPARE(trigger.reply(c_setTriggerProgram, {{"doneOk"_s, true}}), "setProgram {program: 15}"_s);
        QCOMPARE(trigger.reply("setProgram"_s, {{"doneOk"_s, false}}), c_nothing);
        // The tool is free; that is no trigger.
        QCOMPARE(trigger.reply(c_setLock, {}), c_nothing);
        QCOMPARE(trigger.count(5), c_nothing);
        QCOMPARE(trigger.count(6), c_triggered);
        QCOMPARE(trigger.count(7), "dropped; refused"_s);
        // The reset does not select the trigger's program again.
        QCOMPARE(trigger.reply(c_setTriggerProgram, {{"doneOk"_s, true}}), c_nothing);
        // Each answer to the lock is a pulse, whatever it holds.
        QCOMPARE(trigger.reply(c_setLock, {{"error"_s, 1}}), c_pulse);
        QCOMPARE(trigger.reply(c_setLock, {}), c_pulse);
    }

    void programIsNotSelected()
    {
        Trigger trigger;
        QCOMPARE(trigger.reply(c_setTriggerProgram, {{"doneOk"_s, false}}), c_nothing);
        QCOMPARE(trigger.reply(c_setTriggerProgram, {}), c_nothing);
    }

    void trigger_data()
    {
        QTest::addColumn<QVariantList>("before");
        QTest::addColumn<QVariant>("count");
        QTest::addColumn<bool>("isTriggered");
        auto const row = [](char const* rule, QVariantList const& before, QVariant const& count,
                            bool isTriggered) { QTest::newRow(rule) << before << count << isTriggered; };
        row("the first is none", {}, 5, false);
        row("the same is none", {5}, 5, false);
        row("another is one", {5, 5}, 6, true);
        row("another than 0 is one", {0}, 1, true);
        row("0 is one", {7}, 0, true);
        row("a smaller one is one", {6}, 5, true);
        row("a negative one is none", {5}, -1, false);
        row("after a negative one there is a first again", {5, -1}, 6, false);
        row("after that first, another is one", {5, -1, 6}, 7, true);
        row("negative ones are none", {-1, -2}, -3, false);
        row("a text is read", {2}, "2"_s, false);
        row("a fraction is cut", {2}, 2.9, false);
        row("what is no number is 0", {2}, "two"_s, true);
    }

    void trigger()
    {
        QFETCH(QVariantList, before);
        QFETCH(QVariant, count);
        QFETCH(bool, isTriggered);
        Trigger trigger;
        for (auto const& number : before)
            QCOMPARE(trigger.count(number), c_nothing);
        QCOMPARE(trigger.count(count), isTriggered ? c_triggered : c_nothing);
    }

    void badEventsChangeNothing()
    {
        Trigger trigger;
        trigger.count(5);
        QCOMPARE(trigger.event({{"eventCountNo"_s, 6}}), "ERROR: Invalid reply format; refused"_s);
        QCOMPARE(trigger.event({{"values"_s, 6}}), "ERROR: Reply data format not managed, "
                                                   "received type : int , values = QVariant(int, 6)"_s);
        QCOMPARE(trigger.count(5), c_nothing);
        QCOMPARE(trigger.count(6), c_triggered);
    }

    void finishWhileListening()
    {
        Trigger trigger;
        quint64 const unlocking = trigger.order.posted[1].id;
        QCOMPARE(
            trigger.finish(),
            "withdrew listenEventsData; setLock {lock: 1}; SetTriggerProgram {resetMode: true}; ended well"_s);
        // Neither the late answer to the unlocking nor the one to the locking is a trigger.
        QVERIFY(trigger.command->setReply(unlocking, {}));
        QCOMPARE(trigger.reply(c_setLock, {}), c_nothing);
        QCOMPARE(trigger.finish(), "setLock {lock: 1}; SetTriggerProgram {resetMode: true}; refused"_s);
    }

    void finishAfterTrigger()
    {
        Trigger trigger;
        trigger.count(5);
        trigger.count(6);
        // Nothing listens any more; the tool is locked and reset all the same.
        QCOMPARE(trigger.finish(false), "setLock {lock: 1}; SetTriggerProgram {resetMode: true}; failed"_s);
        QCOMPARE(trigger.reply(c_setLock, {}), c_nothing);
    }

    void secondExecution()
    {
        Trigger trigger;
        trigger.count(5);
        trigger.count(6);
        QCOMPARE(trigger.execute(), c_start);
        // The last count is kept.
        QCOMPARE(trigger.count(6), c_nothing);
        QCOMPARE(trigger.count(7), c_triggered);
        QCOMPARE(trigger.reply(c_setLock, {}), c_pulse);
    }

    void executesWithoutOrder()
    {
        WorkingCommand const trigger("listenTrigger"_s);
        QVERIFY(trigger.command->commandExecute());
    }
};

QTEST_GUILESS_MAIN(TestCmdTriggerListen)
#include "tst_cmd_trigger_listen.moc"
