#include "child.h"
#include "scripted_plugin.h"
#include "working_command.h"

#include <QPointer>

#include <functional>

namespace
{

/// An order whose host acts from within what it is told.
class ReentrantOrder : public JournalOrder
{
public:
    /// At the next such moment, once.
    void at(Moment moment, std::function<void()> const& action)
    {
        m_moment = moment;
        m_action = action;
    }

protected:
    void happened(Moment moment, QString const& line) override
    {
        JournalOrder::happened(moment, line);
        if (m_action && moment == m_moment)
            std::exchange(m_action, nullptr)(); // it may be the order's end
    }

private:
    Moment m_moment = Posted;
    std::function<void()> m_action;
};

QString const c_result = "n"_s;

/// A command that posts "one" and "two" and publishes what is replied.
CommandScript twoQuestions(bool listens = false)
{
    CommandScript script;
    script.name = "go"_s;
    script.stopName = listens ? "halt"_s : QString();
    script.results = {{c_result, "int"_s, QString(), -1}};
    script.execute = [](ScriptedCommand& command) {
        command.post("device"_s, "one"_s);
        command.post("device"_s, "two"_s);
        return true;
    };
    script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
        return command.publish(c_result, reply.value(c_result));
    };
    return script;
}

/// A command that follows its script, and its order.
class Scripted
{
public:
    explicit Scripted(CommandScript const& script = twoQuestions()) { follow(script); }

    void follow(CommandScript const& script)
    {
        command.reset(new ScriptedCommand(script, {}, QSharedPointer<QStringList>::create(), nullptr));
    }
    bool execute() { return order->execute(*command); }
    /// Replies to an instruction, counted from 0.
    bool reply(int place, int number)
    {
        return command->setReply(order->posted[place].id, {{c_result, number}});
    }
    bool replyToNothing() { return command->setReply(4711, {}); }
    bool finish()
    {
        bool success = true;
        return command->finishTheCommand(success) && success;
    }
    QString journal() { return order->takeJournal(); }
    void destroyCommandAt(JournalOrder::Moment moment)
    {
        order->at(moment, [this] { command.reset(); });
    }

    std::unique_ptr<ReentrantOrder> order = std::make_unique<ReentrantOrder>();
    QSharedPointer<ScriptedCommand> command;
};

/// A command that publishes -1 after what is replied.
CommandScript twoResults(bool listens = false)
{
    CommandScript script = twoQuestions(listens);
    script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
        return command.publish(c_result, reply.value(c_result)) && command.publish(c_result, -1);
    };
    return script;
}

using Action = void (*)(Scripted&);

QString destruction(QString const& command)
{
    return "The command \"%1\" was destroyed in the middle of its work: from within a handler, "
           "or from within its order's instructionPosted(), instructionWithdrawn() or "
           "resultUpdated()"_s.arg(command);
}

/// The fatal message that @p action ends with, in a child process; "nothing fatal" if it ends well.
template <class Action> QString fatalInChild(Action const& action)
{
    return wordsOfChild([&action](auto const& say) {
        static std::function<void(QString const&)> s_say;
        s_say = say;
        qInstallMessageHandler([](QtMsgType type, QMessageLogContext const&, QString const& text) {
            if (type == QtFatalMsg)
                s_say(text);
        });
        action();
        say("nothing fatal"_s);
    });
}

/// A working command of the shipped plugin, with an order whose host acts.
class Shipped
{
public:
    explicit Shipped(QString const& name) : instance(ShippedPlugin().makeInstanceWithCommands())
    {
        command = instance->commandPrototype(name)->createCommand({});
    }

    /// Answers all that is asked and what that leads to, each once; whoever listens gets two events.
    void converse()
    {
        for (; m_answered < order.posted.size(); ++m_answered) {
            auto const posted = order.posted[m_answered];
            QString const name = posted.instruction.name;
            for (int count = 1; count <= (name == "listenEventsData"_s ? 2 : 1); ++count)
                command->setReply(posted.id, goodReply(name, count));
        }
    }

    std::unique_ptr<DAbstractPlugin> instance;
    ReentrantOrder order;
    QSharedPointer<ICommand> command;

private:
    int m_answered = 0;
};

/// Answer whether they had an effect.
using Refused = bool (*)(Scripted&);
using RefusedByShipped = bool (*)(Shipped&);

} // namespace

Q_DECLARE_METATYPE(Action)
Q_DECLARE_METATYPE(Refused)
Q_DECLARE_METATYPE(RefusedByShipped)
Q_DECLARE_METATYPE(JournalOrder::Moment)

/// What a host does with a command from within what the command tells it.
class TestReentrantHost : public QObject
{
    Q_OBJECT

private slots:
    void handoverRefuses_data()
    {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<Refused>("call");
        auto const row = [](char const* name, char const* operation, Refused call) {
            QTest::newRow(name) << QString::fromLatin1(operation) << call;
        };
        row("reply to it", "setReply()", [](Scripted& it) { return it.reply(1, 9); });
        row("reply to another", "setReply()", [](Scripted& it) { return it.reply(0, 9); });
        row("execute by the order", "execute()", [](Scripted& it) { return it.execute(); });
        row("execute", "commandExecute()", [](Scripted& it) { return it.command->commandExecute(); });
        row("finish", "finishTheCommand()", [](Scripted& it) {
            bool success = true;
            return it.command->finishTheCommand(success) || success;
        });
        row("finish in its own way", "commandFinish()",
            [](Scripted& it) { return it.command->finish(true); });
        row("execute by another order", "linkWithItsOrder()", [](Scripted& it) {
            RecordingOrder other;
            return other.execute(*it.command) || !other.posted.isEmpty();
        });
        row("execute another by the order", "linkWithItsOrder()",
            [](Scripted& it) { return it.order->execute(*Scripted().command); });
        row("link with no order", "linkWithItsOrder()", [](Scripted& it) {
            it.command->linkWithItsOrder(nullptr);
            return it.command->getOrderId() != it.order->id();
        });
        row("link with another order", "linkWithItsOrder()", [](Scripted& it) {
            RecordingOrder other(it.order->id() + 1);
            it.command->linkWithItsOrder(&other);
            return it.command->getOrderId() != it.order->id();
        });
        row("link another with the order", "linkWithItsOrder()", [](Scripted& it) {
            Scripted const other;
            other.command->linkWithItsOrder(it.order.get());
            return other.command->getOrderId() != 0;
        });
        row("post in its own way", "addInstruction()",
            [](Scripted& it) { return it.command->post("device"_s, "three"_s) == 0; });
        row("time passed", "allowancePassed()", [](Scripted& it) {
            it.order->allowancePassed(it.order->posted[0].id);
            return false;
        });
        row("cannot be answered", "instructionFailed()", [](Scripted& it) {
            it.order->instructionFailed(it.order->posted[1].id, "gone"_s);
            return false;
        });
    }

    void handoverRefuses()
    {
        QFETCH(QString, operation);
        QFETCH(Refused, call);
        QString const dropped = operation == "setReply()"_s ? "dropped; "_s : QString();
        for (auto const moment : {JournalOrder::Posted, JournalOrder::Withdrawn}) {
            MessageCapture const log;
            int refused = 0;
            Scripted it;
            CommandScript script = twoQuestions();
            script.execute = [&](ScriptedCommand& command) {
                command.post("device"_s, "one"_s);
                it.order->at(moment, [&] { refused += call(it) ? 0 : 1; });
                quint64 const two = command.post("device"_s, "two"_s);
                if (moment == JournalOrder::Withdrawn)
                    command.withdraw(two);
                return true;
            };
            it.follow(script);
            QVERIFY(it.execute());
            QCOMPARE(refused, 1);
            // It goes on as if nothing had been.
            it.reply(0, 1);
            it.reply(1, 2);
            QCOMPARE(it.journal(),
                     moment == JournalOrder::Posted
                         ? "one; two; "_s + dropped + "n = 1; n = 2; ended well"_s
                         : "one; two; withdrew two; "_s + dropped + "n = 1; ended well; dropped"_s);
            QCOMPARE(log.lines.size(), 1);
            QCOMPARE(log.lines[0].type, QtCriticalMsg);
            QCOMPARE(log.lines[0].text, "The command \"go\" refused %1: it came from within its order's "
                                        "instructionPosted() or instructionWithdrawn()"_s.arg(operation));
        }
    }

    // Of what the command knows nothing is outstanding then, but it is not done yet.
    void withdrawFromWithinPosting()
    {
        Scripted it;
        it.execute();
        it.command->withdraw(it.order->posted[1].id);
        it.order->at(JournalOrder::Posted, [&] { it.command->withdraw(it.order->posted[0].id); });
        it.command->post("device"_s, "three"_s);
        QVERIFY(it.reply(2, 3));
        QCOMPARE(it.journal(), "one; two; withdrew two; three; withdrew one; n = 3; ended well"_s);
    }

    void withdrawFromWithinWithdrawing()
    {
        Scripted it;
        it.execute();
        it.order->at(JournalOrder::Withdrawn, [&] {
            it.command->withdraw(it.order->posted[0].id);
            QVERIFY(it.order->finishes.isEmpty());
        });
        it.command->withdraw(it.order->posted[1].id);
        QCOMPARE(it.journal(), "one; two; withdrew two; withdrew one; ended well"_s);
    }

    // Nothing is outstanding meanwhile, but the first handler has not returned.
    void lastReplyFromWithinResult()
    {
        CommandScript script = twoQuestions();
        script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
            bool const isPublished = command.publish(c_result, reply.value(c_result));
            if (reply.value(c_result) == 1)
                command.post("device"_s, "three"_s);
            return isPublished;
        };
        Scripted it(script);
        it.execute();
        it.order->at(JournalOrder::Result, [&] { QVERIFY(it.reply(1, 2)); });
        QVERIFY(it.reply(0, 1));
        QVERIFY(it.reply(2, 3));
        QCOMPARE(it.journal(), "one; two; n = 1; n = 2; three; n = 3; ended well"_s);
    }

    void lastReplyFromWithinResultWithoutReply()
    {
        Scripted it;
        it.execute();
        it.reply(0, 1);
        it.order->at(JournalOrder::Result, [&] { QVERIFY(it.reply(1, 2)); });
        QVERIFY(it.command->publish(c_result, 0));
        QCOMPARE(it.journal(), "one; two; n = 1; n = 0; n = 2; ended well"_s);
    }

    // There and then, and the handler goes on.
    void finishFromWithinResult()
    {
        for (bool const listens : {false, true}) {
            Scripted it(twoResults(listens));
            it.execute();
            it.order->at(JournalOrder::Result, [&] { QVERIFY(it.finish()); });
            QVERIFY(it.reply(0, 1));
            // Who listens still listens to the first instruction.
            QString const withdrawn = listens ? "withdrew one; withdrew two"_s : "withdrew two"_s;
            QCOMPARE(it.journal(), "one; two; n = 1; %1; ended well; n = -1"_s.arg(withdrawn));
            QVERIFY(!it.reply(0, 2));
            QVERIFY(!it.reply(1, 2));
            QCOMPARE(it.journal(), "dropped; dropped"_s);
        }
    }

    void failureFromWithinResult()
    {
        for (bool const isTime : {false, true}) {
            Scripted it(twoResults());
            it.execute();
            it.order->at(JournalOrder::Result, [&] {
                if (isTime)
                    it.order->allowancePassed(it.order->posted[1].id);
                else
                    it.order->instructionFailed(it.order->posted[1].id, "gone"_s);
            });
            QVERIFY(it.reply(0, 1));
            QCOMPARE(it.journal(),
                     "one; two; n = 1; %1failed; n = -1"_s.arg(isTime ? "withdrew two; "_s : QString()));
        }
    }

    void executionFromWithinResult()
    {
        Scripted it;
        it.execute();
        it.order->at(JournalOrder::Result, [&] { QVERIFY(it.execute()); });
        for (int i = 0; i < 4; ++i)
            QVERIFY(it.reply(i, i));
        QCOMPARE(it.journal(), "one; two; n = 0; one; two; n = 1; n = 2; n = 3; ended well"_s);
    }

    void executionKeepsFailure()
    {
        CommandScript script = twoQuestions();
        script.onReply = [](ScriptedCommand&, QVariantMap const& reply) {
            return reply.value(c_result) != 0;
        };
        Scripted it(script);
        it.execute();
        QVERIFY(!it.reply(0, 0));
        it.execute();
        for (int i = 1; i < 4; ++i)
            QVERIFY(it.reply(i, 1));
        QCOMPARE(it.journal(), "one; two; one; two; failed"_s);
        QCOMPARE(it.order->finishes[0].message, "the reply to \"one\" was not accepted"_s);

        // What comes after the end is another matter.
        it.execute();
        for (int i = 4; i < 6; ++i)
            QVERIFY(it.reply(i, 1));
        QCOMPARE(it.journal(), "one; two; ended well"_s);
    }

    void finishFromWithinDroppedReply()
    {
        Scripted it(twoQuestions(true));
        it.execute();
        it.order->at(JournalOrder::Dropped, [&] { QVERIFY(it.finish()); });
        QVERIFY(!it.replyToNothing());
        QCOMPARE(it.journal(), "one; two; dropped; withdrew one; withdrew two; ended well"_s);
    }

    void destroyedInTheMiddle_data()
    {
        QTest::addColumn<Action>("action");
        auto const row = [](char const* name, Action action) { QTest::newRow(name) << action; };
        row("posting", [](Scripted& it) {
            it.destroyCommandAt(JournalOrder::Posted);
            it.execute();
        });
        row("posting, executed without the order", [](Scripted& it) {
            it.destroyCommandAt(JournalOrder::Posted);
            it.command->linkWithItsOrder(it.order.get());
            it.command->commandExecute();
        });
        row("withdrawing", [](Scripted& it) {
            it.destroyCommandAt(JournalOrder::Withdrawn);
            it.execute();
            it.finish();
        });
        row("a result", [](Scripted& it) {
            it.destroyCommandAt(JournalOrder::Result);
            it.execute();
            it.reply(0, 1);
        });
        row("a result that no reply has brought", [](Scripted& it) {
            it.destroyCommandAt(JournalOrder::Result);
            it.command->linkWithItsOrder(it.order.get());
            it.command->publish(c_result, 1);
        });
        row("a start that failed", [](Scripted& it) {
            CommandScript script = twoQuestions();
            script.execute = [](ScriptedCommand&) { return false; };
            it.follow(script);
            it.destroyCommandAt(JournalOrder::Finished);
            it.execute();
        });
        row("finished from within a result", [](Scripted& it) {
            it.execute();
            it.order->at(JournalOrder::Result, [&] {
                it.destroyCommandAt(JournalOrder::Finished);
                it.finish();
            });
            it.reply(0, 1);
        });
    }

    void destroyedInTheMiddle()
    {
        QFETCH(Action, action);
        QCOMPARE(fatalInChild([action] {
                     Scripted it;
                     action(it);
                 }),
                 destruction("go"_s));
    }

    void destroyedAtTheEnd_data()
    {
        QTest::addColumn<JournalOrder::Moment>("moment");
        QTest::addColumn<Action>("action");
        QTest::addColumn<QString>("journal");
        auto const row = [](char const* name, JournalOrder::Moment moment, char const* journal,
                            Action action) {
            QTest::newRow(name) << moment << action << QString::fromLatin1(journal);
        };
        row("by its last reply", JournalOrder::Finished, "n = 1; n = 2; ended well", [](Scripted& it) {
            it.reply(0, 1);
            it.reply(1, 2);
        });
        row("by the host", JournalOrder::Finished, "withdrew one; withdrew two; ended well",
            [](Scripted& it) { it.finish(); });
        row("by time", JournalOrder::Finished, "withdrew one; withdrew two; failed",
            [](Scripted& it) { it.order->allowancePassed(it.order->posted[1].id); });
        row("by a missing endpoint", JournalOrder::Finished, "withdrew one; failed",
            [](Scripted& it) { it.order->instructionFailed(it.order->posted[1].id, "gone"_s); });
        row("in a dropped reply", JournalOrder::Dropped, "dropped",
            [](Scripted& it) { it.replyToNothing(); });
    }

    void destroyedAtTheEnd()
    {
        QFETCH(JournalOrder::Moment, moment);
        QFETCH(Action, action);
        QFETCH(QString, journal);
        Scripted it;
        QPointer<DAbstractCommand> const watched = it.command.data();
        it.execute();
        it.destroyCommandAt(moment);
        action(it);
        QVERIFY(watched.isNull());
        QCOMPARE(it.journal(), "one; two; "_s + journal);
    }

    void orderDestroyedInTheMiddle_data()
    {
        QTest::addColumn<JournalOrder::Moment>("moment");
        QTest::addColumn<Action>("action");
        auto const row = [](char const* name, JournalOrder::Moment moment, Action action) {
            QTest::newRow(name) << moment << action;
        };
        row("posting", JournalOrder::Posted, [](Scripted& it) { it.command->post("device"_s, "three"_s); });
        row("withdrawing", JournalOrder::Withdrawn,
            [](Scripted& it) { it.command->withdraw(it.order->posted[1].id); });
        row("a result", JournalOrder::Result, [](Scripted& it) { it.reply(0, 1); });
        row("a dropped reply", JournalOrder::Dropped, [](Scripted& it) { it.replyToNothing(); });
        row("its end", JournalOrder::Finished, [](Scripted& it) { it.finish(); });
    }

    void orderDestroyedInTheMiddle()
    {
        QFETCH(JournalOrder::Moment, moment);
        QFETCH(Action, action);
        Scripted it;
        it.execute();
        quint64 const first = it.order->posted[0].id;
        it.order->at(moment, [&] { it.order.reset(); });
        action(it);
        QVERIFY(!it.order);
        // The command goes on without.
        bool const isAnswered = moment == JournalOrder::Result || moment == JournalOrder::Finished;
        QCOMPARE(it.command->setReply(first, {{c_result, 5}}), !isAnswered);
        QCOMPARE(it.command->result(c_result),
                 isAnswered ? QVariant(moment == JournalOrder::Result ? 1 : -1) : QVariant(5));
    }

    void executionWhoseOrderIsDestroyed()
    {
        Scripted it;
        it.order->at(JournalOrder::Posted, [&] { it.order.reset(); });
        QVERIFY(it.execute());
        QVERIFY(!it.order);
    }

    void shippedRefusesWhilePosting_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<RefusedByShipped>("call");
        QTest::addColumn<bool>("isFinish");
        auto const names = ShippedPlugin().makeInstanceWithCommands()->commandNames();
        for (auto const& name : names) {
            auto const row = [&name](char const* call, RefusedByShipped refused, bool isFinish = false) {
                QTest::addRow("%s %s", qPrintable(name), call) << name << refused << isFinish;
            };
            row("answered", [](Shipped& it) {
                auto const& posted = it.order.posted.last();
                return it.command->setReply(posted.id, goodReply(posted.instruction.name, 1));
            });
            row("executed", [](Shipped& it) {
                it.command->commandExecute();
                return false;
            });
            row(
                "finished",
                [](Shipped& it) {
                    bool success = true;
                    return it.command->finishTheCommand(success) || success;
                },
                true);
        }
    }

    // It does what it does when it is left alone, and nothing is lost.
    void shippedRefusesWhilePosting()
    {
        QFETCH(QString, name);
        QFETCH(RefusedByShipped, call);
        QFETCH(bool, isFinish);
        Shipped alone(name);
        Shipped shipped(name);
        std::function<void()> const act = [&] {
            shipped.order.at(JournalOrder::Posted, act);
            QVERIFY(!call(shipped));
        };
        shipped.order.at(JournalOrder::Posted, act);
        MessageCapture log;
        QVERIFY(shipped.order.execute(*shipped.command));
        alone.order.execute(*alone.command);
        QCOMPARE(shipped.order.takeJournal().remove("; dropped"_s), alone.order.takeJournal());
        QVERIFY(log.lines.size() >= shipped.order.posted.size());
        for (auto const& line : qAsConst(log.lines))
            QVERIFY2(line.text.contains(" refused "_s), qPrintable(line.text));

        log.lines.clear();
        shipped.order.at(JournalOrder::Posted, {});
        for (auto* const one : {&shipped, &alone}) {
            bool success = true;
            if (!isFinish) // what is to end counts no trigger any more
                one->converse();
            one->command->finishTheCommand(success);
        }
        QCOMPARE(shipped.order.takeJournal(), alone.order.takeJournal());
        QVERIFY(log.of(QtCriticalMsg).isEmpty());
    }

    void shippedFinishedFromWithinResult_data() { addCommandRows(); }

    void shippedFinishedFromWithinResult()
    {
        QFETCH(QString, name);
        Shipped shipped(name);
        MessageCapture const log;
        shipped.order.execute(*shipped.command);
        shipped.order.at(JournalOrder::Result, [&] {
            bool success = true;
            shipped.command->finishTheCommand(success);
            QVERIFY(success);
            shipped.order.takeJournal();
        });
        shipped.converse();
        QCOMPARE(shipped.order.finishes.size(), 1);
        // The pulse of a trigger is brought to its end, and nothing else comes.
        QString const rest = shipped.order.takeJournal().remove("dropped; "_s).remove("dropped"_s);
        QCOMPARE(rest, name == "listenTrigger"_s ? "doneOk = false"_s : QString());
        QVERIFY(log.of(QtCriticalMsg).isEmpty());
    }

    void shippedExecutedFromWithinResult_data() { addCommandRows(); }

    void shippedExecutedFromWithinResult()
    {
        QFETCH(QString, name);
        Shipped alone(name);
        Shipped shipped(name);
        MessageCapture const log;
        shipped.order.at(JournalOrder::Result, [&] { QVERIFY(shipped.order.execute(*shipped.command)); });
        for (auto* const one : {&alone, &shipped}) {
            one->order.execute(*one->command);
            one->converse();
        }
        // Both times it asks all that it asks when it is executed once, and it ends once.
        auto twice = shipped.order.names();
        auto const once = alone.order.names();
        for (auto const& instruction : once + once)
            QVERIFY2(twice.removeOne(instruction), qPrintable(instruction));
        QCOMPARE(twice, QStringList());
        QCOMPARE(shipped.order.finishes.size(), alone.order.finishes.size());
        QVERIFY(shipped.order.results.size() > alone.order.results.size());
        QVERIFY(log.of(QtCriticalMsg).isEmpty());
    }

    void shippedDestroyedFromWithinResult_data() { addCommandRows(); }

    void shippedDestroyedFromWithinResult()
    {
        QFETCH(QString, name);
        QCOMPARE(fatalInChild([&] {
                     Shipped shipped(name);
                     shipped.order.at(JournalOrder::Result, [&] { shipped.command.reset(); });
                     shipped.order.execute(*shipped.command);
                     shipped.converse();
                 }),
                 destruction(name));
    }
};

QTEST_GUILESS_MAIN(TestReentrantHost)
#include "tst_reentrant_host.moc"
