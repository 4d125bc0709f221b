#include "error_line.h"
#include "literals.h"
#include "shipped_plugin.h"
#include "variants.h"

#include <QTest>

namespace
{

QString const c_name = "listenTrigger"_s;
QString const c_setTriggerProgram = "SetTriggerProgram"_s;
QString const c_setLock = "setLock"_s;
QString const c_setProgram = "setProgram"_s;
QString const c_listenEventsData = "listenEventsData"_s;
QString const c_doneOk = "doneOk"_s;
QString const c_values = "values"_s;
QString const c_eventCountNo = "eventCountNo"_s;
QString const c_file = "d_cmd_triggerListen.cpp"_s;

QVariantMap eventMessage(QVariant const& count)
{
    return {{c_values, QVariantMap{{c_eventCountNo, count}}}};
}

// Executes the command and hands it events with these counts.
void follow(WorkingCommand& trigger, QVector<int> const& counts)
{
    QVERIFY(trigger.execute());
    for (int const count : counts)
        QVERIFY(trigger.replyTo(c_listenEventsData, eventMessage(count)));
}

int resets(WorkingCommand const& trigger)
{
    int count = 0;
    for (auto const& posted : trigger.order.posted)
        count += posted.instruction.arguments.contains("resetMode"_s) ? 1 : 0;
    return count;
}

int pulses(WorkingCommand const& trigger)
{
    auto const& results = trigger.order.results;
    for (int i = 0; i < results.size(); ++i) {
        if (results[i].first != c_doneOk || !isSame(results[i].second, QVariant(i % 2 == 0)))
            return -1;
    }
    return results.size() % 2 == 0 ? results.size() / 2 : -1;
}

// Names and arguments of what was posted after the first @p skipped instructions: "setLock lock=1".
QStringList conversation(WorkingCommand const& trigger, int skipped)
{
    QStringList lines;
    for (auto const& posted : trigger.order.posted.mid(skipped)) {
        QString line = posted.instruction.name;
        auto const& arguments = posted.instruction.arguments;
        for (auto it = arguments.cbegin(); it != arguments.cend(); ++it)
            line += " %1=%2:%3"_s.arg(it.key(), it.value().toString(), QLatin1String(it.value().typeName()));
        lines += line;
    }
    return lines;
}

QStringList const c_startUp{"SetTriggerProgram"_s, "setLock lock=0:int"_s, "listenEventsData"_s};
QString const c_lock = "setLock lock=1:int"_s;
QString const c_reset = "SetTriggerProgram resetMode=true:bool"_s;

} // namespace

/// The command "listenTrigger" of the shipped library: a state machine, tested as sequences of messages.
class TestCmdTriggerListen : public QObject
{
    Q_OBJECT

private slots:
    void start()
    {
        WorkingCommand trigger(c_name, {{"program"_s, 3}});
        QVERIFY(trigger.execute());
        QCOMPARE(conversation(trigger, 0), c_startUp);
        QCOMPARE(trigger.order.results.size(), 0);
    }

    void programIsSelected_data()
    {
        QTest::addColumn<QVariantMap>("reply");
        QTest::addColumn<bool>("isSelected");
        QTest::newRow("done") << QVariantMap{{c_doneOk, true}} << true;
        QTest::newRow("not done") << QVariantMap{{c_doneOk, false}} << false;
        QTest::newRow("missing") << QVariantMap() << false;
        QTest::newRow("number") << QVariantMap{{c_doneOk, 1}} << true;
        QTest::newRow("text") << QVariantMap{{c_doneOk, "true"_s}} << true;
        QTest::newRow("map") << QVariantMap{{c_doneOk, QVariantMap()}} << false;
    }

    void programIsSelected()
    {
        QFETCH(QVariantMap, reply);
        QFETCH(bool, isSelected);
        MessageCapture const messages;
        WorkingCommand trigger(c_name);
        QVERIFY(trigger.execute());
        QVERIFY(trigger.replyTo(c_setTriggerProgram, reply));
        QCOMPARE(conversation(trigger, 3),
                 isSelected ? QStringList{"setProgram program=15:int"_s} : QStringList());
        if (isSelected)
            QVERIFY(trigger.replyTo(c_setProgram, {}));
        QCOMPARE(trigger.order.results.size(), 0);
        QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
    }

    void unlockReplyIsNoPulse()
    {
        WorkingCommand trigger(c_name);
        QVERIFY(trigger.execute());
        QVERIFY(trigger.replyTo(c_setLock, {{"lockStatus"_s, 0}}));
        QCOMPARE(trigger.order.results.size(), 0);
        QCOMPARE(trigger.order.posted.size(), 3);
    }

    void triggers_data()
    {
        QTest::addColumn<QVector<int>>("counts");
        QTest::addColumn<bool>("isTriggered");
        QTest::newRow("none") << QVector<int>() << false;
        QTest::newRow("first") << QVector<int>{5} << false;
        QTest::newRow("same") << QVector<int>{5, 5} << false;
        QTest::newRow("moves") << QVector<int>{5, 5, 6} << true;
        QTest::newRow("moves from zero") << QVector<int>{0, 1} << true;
        QTest::newRow("moves to zero") << QVector<int>{7, 0} << true;
        QTest::newRow("moves back") << QVector<int>{6, 5} << true;
        QTest::newRow("negative first") << QVector<int>{-1, 3} << false;
        QTest::newRow("negative first, then moves") << QVector<int>{-1, 3, 4} << true;
        QTest::newRow("negative resets") << QVector<int>{5, -1, 6} << false;
        QTest::newRow("negative resets, then moves") << QVector<int>{5, -1, 6, 7} << true;
        QTest::newRow("negative ones") << QVector<int>{-1, -2, -3} << false;
        QTest::newRow("to a negative one") << QVector<int>{5, -1} << false;
    }

    void triggers()
    {
        QFETCH(QVector<int>, counts);
        QFETCH(bool, isTriggered);
        WorkingCommand trigger(c_name);
        follow(trigger, counts);
        QCOMPARE(conversation(trigger, 3), isTriggered ? (QStringList{c_reset, c_lock}) : QStringList());
        QCOMPARE(trigger.order.withdrawn,
                 isTriggered ? QList<quint64>{trigger.order.posted[2].id} : QList<quint64>());
        // Behind the reset, and before the lock.
        QCOMPARE(trigger.order.withdrawnBehind, isTriggered ? QList<int>{4} : QList<int>());
        QCOMPARE(trigger.order.results.size(), 0);
        QCOMPARE(trigger.order.finishes.size(), 0);
    }

    void countsOfOtherKinds_data()
    {
        QTest::addColumn<QVariantMap>("values");
        QTest::addColumn<bool>("isTriggered");
        auto const row = [](char const* name, QVariant const& count, bool isTriggered) {
            QTest::newRow(name) << QVariantMap{{c_eventCountNo, count}} << isTriggered;
        };
        // After a count of 2; what reads as 0 has moved.
        QTest::newRow("missing") << QVariantMap() << true;
        row("2", 2, false);
        row("text 2", "2"_s, false);
        row("text 3", "3"_s, true);
        row("fraction is cut", 2.9, false);
        row("garbage", "two"_s, true);
        row("too large", Q_INT64_C(1) << 40, true);
        row("invalid", QVariant(), true);
    }

    void countsOfOtherKinds()
    {
        QFETCH(QVariantMap, values);
        QFETCH(bool, isTriggered);
        WorkingCommand trigger(c_name);
        follow(trigger, {2});
        QVERIFY(trigger.replyTo(c_listenEventsData, {{c_values, values}}));
        QCOMPARE(resets(trigger), isTriggered ? 1 : 0);
    }

    void cycle()
    {
        WorkingCommand trigger(c_name);
        QVERIFY(trigger.execute());
        QVERIFY(trigger.replyTo(c_setTriggerProgram, {{c_doneOk, true}}));
        QVERIFY(trigger.replyTo(c_setLock, {}));
        QVERIFY(trigger.replyTo(c_setProgram, {}));
        for (int const count : {5, 5, 6})
            QVERIFY(trigger.replyTo(c_listenEventsData, eventMessage(count)));
        QCOMPARE(pulses(trigger), 0);
        QVERIFY(trigger.replyTo(c_setTriggerProgram, {{c_doneOk, true}}));
        QCOMPARE(pulses(trigger), 0);
        QVERIFY(trigger.replyTo(c_setLock, {{"lockStatus"_s, 1}}));
        QCOMPARE(pulses(trigger), 1);
        QVERIFY(isSame(trigger.result(c_doneOk), QVariant(false)));
        // The reset does not select the trigger's program again.
        QCOMPARE(conversation(trigger, 3), (QStringList{"setProgram program=15:int"_s, c_reset, c_lock}));
        QCOMPARE(trigger.order.finishes.size(), 0);
    }

    void pulsePerLockReply()
    {
        WorkingCommand trigger(c_name);
        follow(trigger, {5, 6});
        // Whatever the reply holds.
        QVERIFY(trigger.replyTo(c_setLock, {}));
        QCOMPARE(pulses(trigger), 1);
        QVERIFY(trigger.replyTo(c_setLock, {{"error"_s, 1}}));
        QCOMPARE(pulses(trigger), 2);
    }

    void eventsAfterTheStop()
    {
        WorkingCommand trigger(c_name);
        follow(trigger, {5, 6});
        // The host drops what it withdrew, so the device's message goes nowhere.
        QVERIFY(!trigger.replyTo(c_listenEventsData, eventMessage(7)));
        QCOMPARE(trigger.order.dropped.size(), 1);
        QCOMPARE(resets(trigger), 1);
    }

    void unexaminedReplies_data()
    {
        QTest::addColumn<QVariantMap>("reply");
        QTest::newRow("empty") << QVariantMap();
        QTest::newRow("not done") << QVariantMap{{c_doneOk, false}};
        QTest::newRow("error") << QVariantMap{{"error"_s, "no"_s}};
        QTest::newRow("running") << QVariantMap{{"isRunning"_s, true}};
    }

    void unexaminedReplies()
    {
        QFETCH(QVariantMap, reply);
        MessageCapture const messages;
        WorkingCommand trigger(c_name);
        QVERIFY(trigger.execute());
        QVERIFY(trigger.replyTo(c_setTriggerProgram, {{c_doneOk, true}}));
        QVERIFY(trigger.replyTo(c_setProgram, reply));
        QVERIFY(trigger.replyTo(c_listenEventsData, eventMessage(1)));
        QVERIFY(trigger.replyTo(c_listenEventsData, eventMessage(2)));
        int const posted = trigger.order.posted.size();
        QVERIFY(trigger.replyTo(c_setTriggerProgram, reply));
        QCOMPARE(trigger.order.posted.size(), posted);
        QCOMPARE(messages.of(QtCriticalMsg).size(), 0);
        QCOMPARE(pulses(trigger), 0);
    }

    void finishWhileListening()
    {
        WorkingCommand trigger(c_name);
        follow(trigger, {5});
        QVERIFY(trigger.replyTo(c_setLock, {}));
        bool success = true;
        QVERIFY(trigger.command->finishTheCommand(success));
        QVERIFY(success);
        QCOMPARE(conversation(trigger, 3), (QStringList{c_lock, c_reset}));
        QCOMPARE(trigger.order.withdrawn, QList<quint64>{trigger.order.posted[2].id});
        QCOMPARE(trigger.order.withdrawnBehind, QList<int>{3});
        QCOMPARE(trigger.order.finishes.size(), 1);
        QVERIFY(trigger.order.finishes[0].success);
        // The tool is locked, but that is no trigger.
        QVERIFY(trigger.replyTo(c_setLock, {{"lockStatus"_s, 1}}));
        QVERIFY(trigger.replyTo(c_setTriggerProgram, {}));
        QCOMPARE(trigger.order.results.size(), 0);
    }

    void finishBeforeAnyEvent()
    {
        WorkingCommand trigger(c_name);
        QVERIFY(trigger.execute());
        quint64 const unlock = trigger.order.posted[1].id;
        bool success = true;
        QVERIFY(trigger.command->finishTheCommand(success));
        QCOMPARE(conversation(trigger, 3), (QStringList{c_lock, c_reset}));
        // The answer to the unlocking is late, the one to the locking follows.
        QVERIFY(trigger.command->setReply(unlock, {}));
        QVERIFY(trigger.replyTo(c_setLock, {}));
        QCOMPARE(trigger.order.results.size(), 0);
    }

    void finishAfterATrigger()
    {
        WorkingCommand trigger(c_name);
        follow(trigger, {5, 6});
        QVERIFY(trigger.replyTo(c_setLock, {}));
        QCOMPARE(pulses(trigger), 1);
        bool success = true;
        QVERIFY(trigger.command->finishTheCommand(success));
        // Nothing listens any more, so nothing is withdrawn again; the tool is locked and reset all the same.
        QCOMPARE(trigger.order.withdrawn.size(), 1);
        QCOMPARE(conversation(trigger, 5), (QStringList{c_lock, c_reset}));
        QVERIFY(trigger.replyTo(c_setLock, {}));
        QCOMPARE(pulses(trigger), 1);
    }

    void finishFlag_data()
    {
        QTest::addColumn<bool>("success");
        QTest::newRow("success") << true;
        QTest::newRow("failure") << false;
    }

    void finishFlag()
    {
        QFETCH(bool, success);
        WorkingCommand trigger(c_name);
        QVERIFY(trigger.execute());
        bool flag = success;
        QVERIFY(trigger.command->finishTheCommand(flag));
        QCOMPARE(flag, success);
        QCOMPARE(trigger.order.finishes.size(), 1);
        QCOMPARE(trigger.order.finishes[0].success, success);
        // It is over now: the base says so, and its word is passed on.
        QVERIFY(!trigger.command->finishTheCommand(flag));
        QVERIFY(!flag);
    }

    void secondExecution()
    {
        WorkingCommand trigger(c_name);
        follow(trigger, {5, 6});
        QVERIFY(trigger.replyTo(c_setLock, {}));
        QCOMPARE(pulses(trigger), 1);
        QVERIFY(trigger.execute());
        QCOMPARE(conversation(trigger, 5), c_startUp);
        // The last count is kept, so the same one is no trigger and another one is.
        QVERIFY(trigger.replyTo(c_listenEventsData, eventMessage(6)));
        QCOMPARE(resets(trigger), 1);
        QVERIFY(trigger.replyTo(c_listenEventsData, eventMessage(7)));
        QCOMPARE(resets(trigger), 2);
        QVERIFY(trigger.replyTo(c_setLock, {}));
        QCOMPARE(pulses(trigger), 2);
    }

    void executesWithoutAnOrder()
    {
        WorkingCommand const trigger(c_name);
        QVERIFY(trigger.command->commandExecute());
    }

    void valuesAreMissing()
    {
        WorkingCommand trigger(c_name);
        QVERIFY(trigger.execute());
        MessageCapture const messages;
        QVERIFY(!trigger.replyTo(c_listenEventsData, {{c_eventCountNo, 5}}));
        QCOMPARE(ErrorLine::only(messages).message, c_invalidReply);
        QCOMPARE(ErrorLine::only(messages).line, 149);
        QCOMPARE(ErrorLine::only(messages).file, c_file);
        QCOMPARE(messages.lines.size(), 1);
    }

    void valuesOfAnotherKind_data()
    {
        QTest::addColumn<QVariant>("values");
        for (auto const& [name, value] : everyKindOfValue()) {
            if (value.userType() != QMetaType::QVariantMap)
                QTest::newRow(name.constData()) << value;
        }
    }

    void valuesOfAnotherKind()
    {
        QFETCH(QVariant, values);
        WorkingCommand trigger(c_name);
        QVERIFY(trigger.execute());
        MessageCapture const messages;
        QVERIFY(trigger.replyTo(c_listenEventsData, {{c_values, values}}));
        QString shown;
        QDebug(&shown).nospace() << values;
        QCOMPARE(ErrorLine::only(messages).message,
                 c_unmanagedFormat
                     + ", received type : %1 , values = %2"_s.arg(QLatin1String(values.typeName()),
                                                                  shown.trimmed()));
        QCOMPARE(ErrorLine::only(messages).line, 145);
        QCOMPARE(ErrorLine::only(messages).file, c_file);
        QCOMPARE(messages.lines.size(), 1);
        QCOMPARE(trigger.order.posted.size(), 3);
    }

    void invalidMessagesChangeNothing()
    {
        MessageCapture const messages;
        WorkingCommand trigger(c_name);
        follow(trigger, {5});
        QVERIFY(!trigger.replyTo(c_listenEventsData, {}));
        QVERIFY(trigger.replyTo(c_listenEventsData, {{c_values, -1}}));
        QVERIFY(trigger.replyTo(c_listenEventsData, eventMessage(5)));
        QCOMPARE(resets(trigger), 0);
        QVERIFY(trigger.replyTo(c_listenEventsData, eventMessage(6)));
        QCOMPARE(resets(trigger), 1);
    }
};

QTEST_GUILESS_MAIN(TestCmdTriggerListen)
#include "tst_cmd_trigger_listen.moc"
