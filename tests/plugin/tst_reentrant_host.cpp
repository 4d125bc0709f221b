#include "fatal.h"
#include "literals.h"
#include "message_capture.h"
#include "scripted_plugin.h"
#include "shipped_plugin.h"

#include <QPointer>
#include <QtTest>

#include <functional>
#include <memory>
#include <utility>

namespace
{

/// An order whose host does something in the middle of what it is told.
class MeddlingOrder : public RecordingOrder
{
public:
    enum Moment
    {
        Posted,
        Withdrawn,
        Result,
        Dropped,
        Finished,
    };

    /// At the next such moment, once.
    void meddle(Moment moment, std::function<void()> deed)
    {
        m_moment = moment;
        m_deed = std::move(deed);
    }

protected:
    quint64 instructionPosted(DInstruction const& instruction) override
    {
        quint64 const id = RecordingOrder::instructionPosted(instruction);
        have(Posted);
        return id;
    }
    void instructionWithdrawn(quint64 id) override
    {
        RecordingOrder::instructionWithdrawn(id);
        have(Withdrawn);
    }
    void resultUpdated(QString const& key, QVariant const& value) override
    {
        RecordingOrder::resultUpdated(key, value);
        have(Result);
    }
    void replyDropped(quint64 id) override
    {
        RecordingOrder::replyDropped(id);
        have(Dropped);
    }
    void commandFinished(bool success, QString const& message) override
    {
        RecordingOrder::commandFinished(success, message);
        have(Finished);
    }

private:
    void have(Moment moment)
    {
        if (!m_deed || moment != m_moment)
            return;
        std::function<void()> const deed = std::exchange(m_deed, nullptr); // it may be the order's end
        deed();
    }

    Moment m_moment = Posted;
    std::function<void()> m_deed;
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

QSharedPointer<ScriptedCommand> make(CommandScript const& script)
{
    return QSharedPointer<ScriptedCommand>::create(script, QVariantMap(),
                                                   QSharedPointer<QStringList>::create(), nullptr);
}

QVariantMap reply(int n)
{
    return {{c_result, n}};
}

QString refusal(char const* operation)
{
    return "The command \"go\" refused %1: it came from within its order's instructionPosted() "
           "or instructionWithdrawn()"_s.arg(QLatin1String(operation));
}

QString destruction(char const* command)
{
    return "The command \"%1\" was destroyed in the middle of its work: from within a handler, "
           "or from within its order's instructionPosted(), instructionWithdrawn() or "
           "resultUpdated()"_s.arg(QLatin1String(command));
}

using Operation = std::function<bool(MeddlingOrder&, ScriptedCommand&)>;
using Deed = std::function<void(MeddlingOrder&, QSharedPointer<ScriptedCommand>&)>;

/// The numbers that were published, in order.
QList<int> published(RecordingOrder const& order)
{
    QList<int> numbers;
    for (auto const& result : order.results)
        numbers += result.second.toInt();
    return numbers;
}

/// A reply that every handler of the shipped plugin takes.
QVariantMap goodReply(DInstruction const& instruction, int eventCount)
{
    if (instruction.name == QLatin1String("listenEventsData"))
        return {{"values"_s, QVariantMap{{"eventCountNo"_s, eventCount}}}};
    return {{"doneOk"_s, true},
            {"lockStatus"_s, 1},
            {"fasteningLocked"_s, true},
            {"looseningLocked"_s, true},
            {"presetData"_s, QVariantMap{{"torque"_s, 250}}},
            {"values"_s, QVariantList{1}},
            {"statusData"_s, QVariantMap{{"done"_s, 1}}}};
}

/// A working command of the shipped plugin with an order that meddles.
struct Shipped
{
    explicit Shipped(QString const& name) : instance(ShippedPlugin().makeInstance(QUuid::createUuid()))
    {
        instance->initPluginCommands();
        command = instance->commandPrototype(name)->createCommand({});
    }

    /// Answers all that is asked and what that leads to, each once; whoever listens gets two events.
    void converse()
    {
        answerOthers();
        sendEvent(1);
        sendEvent(2);
        answerOthers();
    }

    std::unique_ptr<DAbstractPlugin> instance;
    MeddlingOrder order;
    QSharedPointer<ICommand> command;

private:
    static bool listens(RecordingOrder::Posted const& posted)
    {
        return posted.instruction.name == QLatin1String("listenEventsData");
    }

    void sendEvent(int count)
    {
        auto const all = order.posted;
        for (auto const& posted : all) {
            if (listens(posted))
                command->setReply(posted.id, goodReply(posted.instruction, count));
        }
    }

    void answerOthers()
    {
        for (; m_answered < order.posted.size(); ++m_answered) {
            auto const posted = order.posted[m_answered];
            if (!listens(posted))
                command->setReply(posted.id, goodReply(posted.instruction, 0));
        }
    }

    int m_answered = 0;
};

} // namespace

Q_DECLARE_METATYPE(Operation)
Q_DECLARE_METATYPE(Deed)

/// What a host does with a command from within what the command tells it.
class TestReentrantHost : public QObject
{
    Q_OBJECT

private slots:
    void handoverRefuses_data()
    {
        QTest::addColumn<bool>("whilePosting");
        QTest::addColumn<Operation>("operation");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("dropped");
        for (bool const whilePosting : {true, false}) {
            auto const row = [whilePosting](char const* name, char const* refused, Operation const& operation,
                                            int dropped = 0) {
                QTest::addRow("%s: %s", whilePosting ? "posting" : "withdrawing", name)
                    << whilePosting << operation << refusal(refused) << dropped;
            };
            row(
                "reply to it", "setReply()",
                [](MeddlingOrder& order, ScriptedCommand& command) {
                    return command.setReply(order.posted[1].id, reply(9));
                },
                1);
            row(
                "reply to another", "setReply()",
                [](MeddlingOrder& order, ScriptedCommand& command) {
                    return command.setReply(order.posted[0].id, reply(9));
                },
                1);
            row("execute by the order", "execute()",
                [](MeddlingOrder& order, ScriptedCommand& command) { return order.execute(command); });
            row("execute", "commandExecute()",
                [](MeddlingOrder&, ScriptedCommand& command) { return command.commandExecute(); });
            row("finish", "finishTheCommand()", [](MeddlingOrder&, ScriptedCommand& command) {
                bool success = true;
                return command.finishTheCommand(success) || success;
            });
            row("finish in its own way", "commandFinish()",
                [](MeddlingOrder&, ScriptedCommand& command) { return command.finish(true); });
            row("execute by another order", "linkWithItsOrder()",
                [](MeddlingOrder&, ScriptedCommand& command) {
                    RecordingOrder other;
                    return other.execute(command) || !other.posted.isEmpty();
                });
            row("execute another by the order", "linkWithItsOrder()",
                [](MeddlingOrder& order, ScriptedCommand&) {
                    auto const other = make(twoQuestions());
                    return order.execute(*other);
                });
            row("link with no order", "linkWithItsOrder()",
                [](MeddlingOrder& order, ScriptedCommand& command) {
                    command.linkWithItsOrder(nullptr);
                    return command.getOrderId() != order.id();
                });
            row("link with another order", "linkWithItsOrder()",
                [](MeddlingOrder& order, ScriptedCommand& command) {
                    RecordingOrder other(order.id() + 1);
                    command.linkWithItsOrder(&other);
                    return command.getOrderId() != order.id();
                });
            row("link another with the order", "linkWithItsOrder()",
                [](MeddlingOrder& order, ScriptedCommand&) {
                    auto const other = make(twoQuestions());
                    other->linkWithItsOrder(&order);
                    return other->getOrderId() != 0;
                });
            row("post in its own way", "addInstruction()",
                [](MeddlingOrder& order, ScriptedCommand& command) {
                    int const before = order.posted.size();
                    return command.post("device"_s, "three"_s) == 0 || order.posted.size() != before;
                });
            row("time passed", "allowancePassed()", [](MeddlingOrder& order, ScriptedCommand&) {
                order.allowancePassed(order.posted[0].id);
                return false;
            });
            row("cannot be answered", "instructionFailed()", [](MeddlingOrder& order, ScriptedCommand&) {
                order.instructionFailed(order.posted[1].id, "gone"_s);
                return false;
            });
        }
    }

    void handoverRefuses()
    {
        QFETCH(bool, whilePosting);
        QFETCH(Operation, operation);
        QFETCH(QString, message);
        QFETCH(int, dropped);
        MeddlingOrder order;
        int refused = 0;
        CommandScript script = twoQuestions();
        script.execute = [&](ScriptedCommand& command) {
            auto const meddle = [&] { refused += operation(order, command) ? 0 : 1; };
            command.post("device"_s, "one"_s);
            if (whilePosting)
                order.meddle(MeddlingOrder::Posted, meddle);
            quint64 const second = command.post("device"_s, "two"_s);
            if (!whilePosting) {
                order.meddle(MeddlingOrder::Withdrawn, meddle);
                command.withdraw(second);
            }
            return true;
        };
        auto const command = make(script);
        MessageCapture log;
        QVERIFY(order.execute(*command));
        QCOMPARE(refused, 1);
        QCOMPARE(log.lines.size(), 1);
        QCOMPARE(log.lines[0].type, QtCriticalMsg);
        QCOMPARE(log.lines[0].text, message);
        QCOMPARE(order.dropped.size(), dropped);

        // It goes on as if nothing had been.
        QCOMPARE(order.posted.size(), 2);
        QVERIFY(order.finishes.isEmpty());
        QVERIFY(command->setReply(order.posted[0].id, reply(1)));
        QCOMPARE(command->setReply(order.posted[1].id, reply(2)), whilePosting);
        QCOMPARE(order.results.size(), whilePosting ? 2 : 1);
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
        QCOMPARE(log.lines.size(), 1);
    }

    void stopFromWithinAHandover_data()
    {
        QTest::addColumn<bool>("whilePosting");
        QTest::newRow("posting") << true;
        QTest::newRow("withdrawing") << false;
    }

    void stopFromWithinAHandover()
    {
        QFETCH(bool, whilePosting);
        MeddlingOrder order;
        auto const command = make(twoQuestions());
        order.execute(*command);
        quint64 const first = order.posted[0].id;
        quint64 const second = order.posted[1].id;
        if (whilePosting)
            command->withdraw(second);
        // Of what the command knows nothing is outstanding then, but it is not done yet.
        order.meddle(whilePosting ? MeddlingOrder::Posted : MeddlingOrder::Withdrawn, [&] {
            command->withdraw(first);
            QVERIFY(order.finishes.isEmpty());
        });
        if (whilePosting) {
            quint64 const third = command->post("device"_s, "three"_s);
            QVERIFY(order.finishes.isEmpty());
            QVERIFY(command->setReply(third, reply(3)));
        } else {
            command->withdraw(second);
        }
        QCOMPARE(order.withdrawn, (QList<quint64>{second, first}));
        QCOMPARE(order.finishes.size(), 1);
    }

    void replyFromWithinAResult()
    {
        MeddlingOrder order;
        auto const command = make(twoQuestions());
        order.execute(*command);
        order.meddle(MeddlingOrder::Result,
                     [&] { QVERIFY(command->setReply(order.posted[1].id, reply(2))); });
        QVERIFY(command->setReply(order.posted[0].id, reply(1)));
        QCOMPARE(published(order), QList<int>({1, 2}));
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
    }

    void lastReplyFromWithinAResult()
    {
        MeddlingOrder order;
        CommandScript script = twoQuestions();
        script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
            bool const isPublished = command.publish(c_result, reply.value(c_result));
            if (reply == ::reply(1))
                command.post("device"_s, "three"_s);
            return isPublished;
        };
        auto const command = make(script);
        order.execute(*command);
        order.meddle(MeddlingOrder::Result,
                     [&] { QVERIFY(command->setReply(order.posted[1].id, reply(2))); });
        QVERIFY(command->setReply(order.posted[0].id, reply(1)));
        // Nothing was outstanding meanwhile, but the first handler had not returned.
        QVERIFY(order.finishes.isEmpty());
        QVERIFY(command->setReply(order.posted[2].id, reply(3)));
        QCOMPARE(published(order), QList<int>({1, 2, 3}));
        QCOMPARE(order.finishes.size(), 1);
    }

    void lastReplyFromWithinAResultOfItsOwn()
    {
        // A result that no reply has brought.
        MeddlingOrder order;
        auto const command = make(twoQuestions());
        order.execute(*command);
        QVERIFY(command->setReply(order.posted[0].id, reply(1)));
        order.meddle(MeddlingOrder::Result,
                     [&] { QVERIFY(command->setReply(order.posted[1].id, reply(2))); });
        QVERIFY(command->publish(c_result, 0));
        QCOMPARE(published(order), QList<int>({1, 0, 2}));
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
    }

    void finishFromWithinAResult_data()
    {
        QTest::addColumn<bool>("listens");
        QTest::newRow("one-shot") << false;
        QTest::newRow("listening") << true;
    }

    void finishFromWithinAResult()
    {
        QFETCH(bool, listens);
        MeddlingOrder order;
        CommandScript script = twoQuestions(listens);
        script.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
            return command.publish(c_result, reply.value(c_result)) && command.publish(c_result, -1);
        };
        auto const command = make(script);
        order.execute(*command);
        order.meddle(MeddlingOrder::Result, [&] {
            bool success = true;
            QVERIFY(command->finishTheCommand(success));
            QVERIFY(success);
            QCOMPARE(order.finishes.size(), 1); // there and then
        });
        QVERIFY(command->setReply(order.posted[0].id, reply(1)));
        QCOMPARE(published(order), QList<int>({1, -1}));
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
        QVERIFY(order.withdrawn.contains(order.posted[1].id));
        for (auto const& posted : qAsConst(order.posted))
            QCOMPARE(command->setReply(posted.id, reply(2)), false);
        QCOMPARE(published(order), QList<int>({1, -1}));
        QCOMPARE(order.finishes.size(), 1);
    }

    void failureFromWithinAResult_data()
    {
        QTest::addColumn<bool>("isTime");
        QTest::newRow("time passed") << true;
        QTest::newRow("cannot be answered") << false;
    }

    void failureFromWithinAResult()
    {
        QFETCH(bool, isTime);
        MeddlingOrder order;
        auto const command = make(twoQuestions());
        order.execute(*command);
        order.meddle(MeddlingOrder::Result, [&] {
            if (isTime)
                order.allowancePassed(order.posted[1].id);
            else
                order.instructionFailed(order.posted[1].id, "gone"_s);
            QCOMPARE(order.finishes.size(), 1); // there and then
        });
        MessageCapture log;
        QVERIFY(command->setReply(order.posted[0].id, reply(1)));
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(!order.finishes[0].success);
        QCOMPARE(log.lines.size(), 0);
    }

    void executionFromWithinAResult()
    {
        MeddlingOrder order;
        auto const command = make(twoQuestions());
        order.execute(*command);
        order.meddle(MeddlingOrder::Result, [&] { QVERIFY(order.execute(*command)); });
        command->setReply(order.posted[0].id, reply(1));
        QCOMPARE(order.names(), QStringList({"one"_s, "two"_s, "one"_s, "two"_s}));
        for (int i = 1; i < 4; ++i) {
            QVERIFY(order.finishes.isEmpty());
            QVERIFY(command->setReply(order.posted[i].id, reply(i + 1)));
        }
        QCOMPARE(published(order), QList<int>({1, 2, 3, 4}));
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
    }

    void executionKeepsFailure()
    {
        MeddlingOrder order;
        CommandScript script = twoQuestions();
        script.onReply = [](ScriptedCommand&, QVariantMap const& reply) { return reply != ::reply(0); };
        auto const command = make(script);
        order.execute(*command);
        QVERIFY(!command->setReply(order.posted[0].id, reply(0)));
        order.execute(*command);
        for (int i = 1; i < 4; ++i)
            QVERIFY(command->setReply(order.posted[i].id, reply(1)));
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(!order.finishes[0].success);
        QCOMPARE(order.finishes[0].message, "the reply to \"one\" was not accepted"_s);

        // What comes after the end is another matter.
        order.execute(*command);
        for (int i = 4; i < 6; ++i)
            QVERIFY(command->setReply(order.posted[i].id, reply(1)));
        QCOMPARE(order.finishes.size(), 2);
        QVERIFY(order.finishes[1].success);
    }

    void finishFromWithinADroppedReply()
    {
        MeddlingOrder order;
        auto const command = make(twoQuestions(true));
        order.execute(*command);
        order.meddle(MeddlingOrder::Dropped, [&] {
            bool success = true;
            QVERIFY(command->finishTheCommand(success));
        });
        QVERIFY(!command->setReply(4711, {}));
        QCOMPARE(order.finishes.size(), 1);
        QCOMPARE(order.withdrawn.size(), 2);
    }

    void destroyedInTheMiddle_data()
    {
        QTest::addColumn<Deed>("deed");
        auto const at = [](MeddlingOrder::Moment moment, Deed const& then) {
            return [moment, then](MeddlingOrder& order, QSharedPointer<ScriptedCommand>& command) {
                order.meddle(moment, [&command] { command.reset(); });
                then(order, command);
            };
        };
        Deed const execute = [](MeddlingOrder& order, QSharedPointer<ScriptedCommand>& command) {
            order.execute(*command);
        };
        Deed const executeAlone = [](MeddlingOrder& order, QSharedPointer<ScriptedCommand>& command) {
            command->linkWithItsOrder(&order);
            command->commandExecute();
        };
        Deed const answer = [](MeddlingOrder& order, QSharedPointer<ScriptedCommand>& command) {
            order.execute(*command);
            command->setReply(order.posted[0].id, reply(1));
        };
        Deed const finish = [](MeddlingOrder& order, QSharedPointer<ScriptedCommand>& command) {
            order.execute(*command);
            bool success = true;
            command->finishTheCommand(success);
        };
        QTest::newRow("posting") << Deed(at(MeddlingOrder::Posted, execute));
        QTest::newRow("posting, executed without the order") << Deed(at(MeddlingOrder::Posted, executeAlone));
        QTest::newRow("withdrawing") << Deed(at(MeddlingOrder::Withdrawn, finish));
        QTest::newRow("a result") << Deed(at(MeddlingOrder::Result, answer));
        QTest::newRow("a result, executed without the order")
            << Deed([](MeddlingOrder& order, QSharedPointer<ScriptedCommand>& command) {
                   CommandScript script = twoQuestions();
                   script.execute = [](ScriptedCommand& started) { return started.publish(c_result, 1); };
                   command = make(script);
                   command->linkWithItsOrder(&order);
                   order.meddle(MeddlingOrder::Result, [&command] { command.reset(); });
                   command->commandExecute();
               });
        QTest::newRow("a start that failed")
            << Deed([](MeddlingOrder& order, QSharedPointer<ScriptedCommand>& command) {
                   CommandScript script = twoQuestions();
                   script.execute = [](ScriptedCommand&) { return false; };
                   command = make(script);
                   order.meddle(MeddlingOrder::Finished, [&command] { command.reset(); });
                   order.execute(*command);
               });
        QTest::newRow("finished from within a result")
            << Deed([](MeddlingOrder& order, QSharedPointer<ScriptedCommand>& command) {
                   order.execute(*command);
                   order.meddle(MeddlingOrder::Result, [&] {
                       order.meddle(MeddlingOrder::Finished, [&] { command.reset(); });
                       bool success = true;
                       command->finishTheCommand(success);
                   });
                   command->setReply(order.posted[0].id, reply(1));
               });
    }

    void destroyedInTheMiddle()
    {
        QFETCH(Deed, deed);
        QCOMPARE(fatalInChild([&] {
                     MeddlingOrder order;
                     auto command = make(twoQuestions());
                     deed(order, command);
                 }),
                 destruction("go"));
    }

    void destroyedWhenEnded_data()
    {
        QTest::addColumn<Deed>("deed");
        QTest::newRow("by its last reply")
            << Deed([](MeddlingOrder& order, QSharedPointer<ScriptedCommand>& command) {
                   command->setReply(order.posted[0].id, reply(1));
                   command->setReply(order.posted[1].id, reply(2));
               });
        QTest::newRow("by the host") << Deed([](MeddlingOrder&, QSharedPointer<ScriptedCommand>& command) {
            bool success = true;
            command->finishTheCommand(success);
        });
        QTest::newRow("by time") << Deed([](MeddlingOrder& order, QSharedPointer<ScriptedCommand>&) {
            order.allowancePassed(order.posted[1].id);
        });
        QTest::newRow("by a missing endpoint")
            << Deed([](MeddlingOrder& order, QSharedPointer<ScriptedCommand>&) {
                   order.instructionFailed(order.posted[1].id, "gone"_s);
               });
    }

    void destroyedWhenEnded()
    {
        QFETCH(Deed, deed);
        MeddlingOrder order;
        auto command = make(twoQuestions());
        QPointer<DAbstractCommand> const watched = command.data();
        order.execute(*command);
        order.meddle(MeddlingOrder::Finished, [&] { command.reset(); });
        deed(order, command);
        QVERIFY(watched.isNull());
        QCOMPARE(order.finishes.size(), 1);
    }

    void destroyedInADroppedReply()
    {
        MeddlingOrder order;
        auto command = make(twoQuestions());
        QPointer<DAbstractCommand> const watched = command.data();
        order.execute(*command);
        order.meddle(MeddlingOrder::Dropped, [&] { command.reset(); });
        QVERIFY(!command->setReply(4711, {}));
        QVERIFY(watched.isNull());
        QVERIFY(order.finishes.isEmpty());
    }

    void orderDestroyedInTheMiddle_data()
    {
        QTest::addColumn<int>("moment");
        QTest::newRow("posting") << int(MeddlingOrder::Posted);
        QTest::newRow("withdrawing") << int(MeddlingOrder::Withdrawn);
        QTest::newRow("a result") << int(MeddlingOrder::Result);
        QTest::newRow("a dropped reply") << int(MeddlingOrder::Dropped);
        QTest::newRow("its end") << int(MeddlingOrder::Finished);
    }

    void orderDestroyedInTheMiddle()
    {
        QFETCH(int, moment);
        auto order = std::make_unique<MeddlingOrder>();
        auto const command = make(twoQuestions());
        auto const end = [&] { order->meddle(MeddlingOrder::Moment(moment), [&] { order.reset(); }); };
        if (moment == MeddlingOrder::Posted) {
            end();
            QVERIFY(order->execute(*command));
            QVERIFY(!order);
            return;
        }
        order->execute(*command);
        quint64 const first = order->posted[0].id;
        quint64 const second = order->posted[1].id;
        end();
        command->setReply(4711, reply(0));
        command->setReply(first, reply(1));
        if (moment == MeddlingOrder::Withdrawn)
            command->withdraw(second);
        else
            command->setReply(second, reply(2));
        QVERIFY(!order);
        QCOMPARE(command->result(c_result), QVariant(moment == MeddlingOrder::Withdrawn ? 1 : 2));
    }

    void shippedAnsweredAtOnce_data() { addCommandRows(); }

    void shippedAnsweredAtOnce()
    {
        QFETCH(QString, name);
        Shipped shipped(name);
        MeddlingOrder& order = shipped.order;
        std::function<void()> const answer = [&] {
            order.meddle(MeddlingOrder::Posted, answer);
            auto const posted = order.posted.last();
            QVERIFY(!shipped.command->setReply(posted.id, goodReply(posted.instruction, 1)));
        };
        MessageCapture log;
        order.meddle(MeddlingOrder::Posted, answer);
        QVERIFY(order.execute(*shipped.command));
        QCOMPARE(log.lines.size(), order.posted.size());
        for (auto const& line : qAsConst(log.lines))
            QVERIFY2(line.text.contains("refused setReply()"_s), qPrintable(line.text));
        QCOMPARE(order.dropped.size(), order.posted.size());
        QVERIFY(order.results.isEmpty());
        QVERIFY(order.finishes.isEmpty());

        // Nothing is lost: it still takes the answers when they come again.
        order.meddle(MeddlingOrder::Posted, {});
        log.lines.clear();
        shipped.converse();
        QVERIFY(!order.results.isEmpty());
        QVERIFY(log.of(QtCriticalMsg).isEmpty());
    }

    void shippedMeddledWithAtOnce_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("executes");
        auto const instance = ShippedPlugin().makeInstance(QUuid());
        instance->initPluginCommands();
        auto const names = instance->commandNames();
        for (auto const& name : names) {
            QTest::addRow("%s executed", qPrintable(name)) << name << true;
            QTest::addRow("%s finished", qPrintable(name)) << name << false;
        }
    }

    void shippedMeddledWithAtOnce()
    {
        QFETCH(QString, name);
        QFETCH(bool, executes);
        Shipped alone(name);
        alone.order.execute(*alone.command);

        Shipped shipped(name);
        MeddlingOrder& order = shipped.order;
        std::function<void()> const meddle = [&] {
            order.meddle(MeddlingOrder::Posted, meddle);
            bool success = true;
            if (executes)
                shipped.command->commandExecute();
            else
                QVERIFY(!shipped.command->finishTheCommand(success) && !success);
        };
        MessageCapture log;
        order.meddle(MeddlingOrder::Posted, meddle);
        QVERIFY(order.execute(*shipped.command));
        // It has asked what it asks when it is left alone, in that order, and nothing else.
        QCOMPARE(order.names(), alone.order.names());
        QVERIFY(log.lines.size() >= order.posted.size());
        for (auto const& line : qAsConst(log.lines))
            QVERIFY2(line.text.contains(" refused "_s), qPrintable(line.text));
        QVERIFY(order.finishes.isEmpty());

        // At another time it can be stopped, and a tool that listened for its trigger is locked then.
        order.meddle(MeddlingOrder::Posted, {});
        bool success = true;
        QVERIFY(shipped.command->finishTheCommand(success));
        QCOMPARE(order.finishes.size(), 1);
        if (name == QLatin1String("listenTrigger"))
            QCOMPARE(order.posted[3].instruction.arguments.value("lock"_s), QVariant(1));
    }

    void shippedFinishedFromWithinAResult_data() { addCommandRows(); }

    void shippedFinishedFromWithinAResult()
    {
        QFETCH(QString, name);
        Shipped shipped(name);
        MeddlingOrder& order = shipped.order;
        int postedAtTheEnd = -1;
        order.meddle(MeddlingOrder::Result, [&] {
            bool success = true;
            shipped.command->finishTheCommand(success);
            QVERIFY(success);
            postedAtTheEnd = order.posted.size();
        });
        MessageCapture log;
        order.execute(*shipped.command);
        shipped.converse();
        QVERIFY(postedAtTheEnd > 0);
        QCOMPARE(order.posted.size(), postedAtTheEnd);
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
        // The pulse of a trigger is brought to its end.
        QCOMPARE(order.results.size(), name == QLatin1String("listenTrigger") ? 2 : 1);
        QVERIFY(log.of(QtCriticalMsg).isEmpty());
    }

    void shippedExecutedFromWithinAResult_data() { addCommandRows(); }

    void shippedExecutedFromWithinAResult()
    {
        QFETCH(QString, name);
        Shipped alone(name);
        alone.order.execute(*alone.command);
        alone.converse();

        Shipped shipped(name);
        MeddlingOrder& order = shipped.order;
        order.meddle(MeddlingOrder::Result, [&] { QVERIFY(order.execute(*shipped.command)); });
        MessageCapture log;
        order.execute(*shipped.command);
        shipped.converse();
        shipped.converse();
        // Both times it asks all that it asks when it is executed once, and it ends once.
        QStringList const once = alone.order.names();
        QStringList twice = order.names();
        for (auto const& instruction : once + once)
            QVERIFY2(twice.removeOne(instruction), qPrintable(instruction));
        QCOMPARE(twice, QStringList());
        QCOMPARE(order.finishes.size(), alone.order.finishes.size());
        QVERIFY(order.results.size() > alone.order.results.size());
        QVERIFY(log.of(QtCriticalMsg).isEmpty());
    }

    void shippedDestroyedFromWithinAResult_data() { addCommandRows(); }

    void shippedDestroyedFromWithinAResult()
    {
        QFETCH(QString, name);
        QCOMPARE(fatalInChild([&] {
                     Shipped shipped(name);
                     shipped.order.meddle(MeddlingOrder::Result, [&] { shipped.command.reset(); });
                     shipped.order.execute(*shipped.command);
                     shipped.converse();
                 }),
                 destruction(qPrintable(name)));
    }
};

QTEST_GUILESS_MAIN(TestReentrantHost)
#include "tst_reentrant_host.moc"
