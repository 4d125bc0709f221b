#include "literals.h"
#include "recording_order.h"

#include <plugin_management/d_abstract_command.h>

#include <QPointer>
#include <QSharedPointer>
#include <QSignalSpy>
#include <QtTest>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <type_traits>

using Map = QMap<QString, QVariant>;

namespace
{

/// A command whose work the test writes down: it opens what DAbstractCommand offers to derived classes.
class TestCommand : public DAbstractCommand
{
    Q_OBJECT

public:
    using DAbstractCommand::addInstruction;
    using DAbstractCommand::commandFinish;
    using DAbstractCommand::commandUpdateResult;
    using DAbstractCommand::declareAParameter;
    using DAbstractCommand::declareAResult;
    using DAbstractCommand::getParametersSection;
    using DAbstractCommand::getParameterValue;
    using DAbstractCommand::OnReply;
    using DAbstractCommand::setDescription;
    using DAbstractCommand::stopTheInstruction;

    explicit TestCommand(Map const& parameters = {}, QObject* parent = nullptr)
        : DAbstractCommand("measure"_s, parameters, parent)
    {}
    explicit TestCommand(QString const& stopName, Map const& parameters = {}, QObject* parent = nullptr)
        : DAbstractCommand("listen"_s, stopName, parameters, parent)
    {}
    ~TestCommand() override
    {
        if (onDestroyed)
            onDestroyed();
    }

    QSharedPointer<ICommand> createCommand(Map const& parameters) const override
    {
        auto const clone = QSharedPointer<TestCommand>(new TestCommand(parameters, parent()));
        clone->onDestroyed = onDestroyed;
        return clone;
    }

    bool commandExecute() override
    {
        if (!DAbstractCommand::commandExecute())
            return false;
        if (onExecute)
            onExecute();
        return true;
    }

    quint64 post(QString const& name, int timeAllowance = 4000)
    {
        return addInstruction("device"_s, name, {}, timeAllowance, OnReply(this, &TestCommand::onReply));
    }

    bool onReply(quint64 id, Map const& reply)
    {
        delivered.append({id, reply});
        return answer ? answer(id, reply) : true;
    }

    std::function<void()> onExecute;
    std::function<bool(quint64, Map const&)> answer;
    std::function<void()> onDestroyed;
    QList<QPair<quint64, Map>> delivered;
};

/// A command that is none of this library's: it shows what an order needs of ICommand alone.
class ForeignCommand final : public ICommand // NOLINT(cppcoreguidelines-virtual-class-destructor)
{
public:
    QSharedPointer<ICommand> createCommand(Map const&) const override { return {}; }
    void linkWithItsOrder(QObject* order) override { linked = order; }
    QString commandName() const override { return {}; }
    QString stopCommandName() const override { return {}; }
    quint64 getOrderId() const override { return 0; }
    quint64 getParameterOrderId() const override { return 0; }
    bool isRecurrent() const override { return false; }
    bool isValid() const override { return true; }
    QString description() const override { return {}; }
    QString fullDescription() const override { return {}; }
    DCommandArguments commandArguments() const override { return {}; }
    bool commandExecute() override { return ++executions > 0; }
    bool setReply(quint64, Map const&) override { return false; }
    bool finishTheCommand(bool&) override { return false; }
    void sigCommandFinished(bool) override {}

    QObject* linked = nullptr;
    int executions = 0;
};

/// An order that numbers its instructions from 1, as a host may.
class CountingOrder : public RecordingOrder
{
protected:
    quint64 instructionPosted(DInstruction const& instruction) override
    {
        RecordingOrder::instructionPosted(instruction);
        return static_cast<quint64>(posted.size());
    }
};

QString stopName()
{
    return "stopListening"_s;
}

Map replyWith(int value)
{
    return {{"value"_s, value}};
}

// The contract declares it without const, although nothing changes.
static_assert(std::is_same_v<decltype(&TestCommand::getParametersSection),
                             QVariant (DAbstractCommand::*)(QString const&)>);

} // namespace

class TestAbstractCommand : public QObject
{
    Q_OBJECT

private slots:
    void identity_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("stop");
        QTest::addColumn<bool>("isRecurrent");
        QTest::addColumn<bool>("isValid");

        QTest::newRow("one-shot") << "init"_s << QString() << false << true;
        QTest::newRow("listening") << "startListening"_s << stopName() << true << true;
        QTest::newRow("without a name") << QString() << QString() << false << false;
        QTest::newRow("stop name alone") << QString() << stopName() << true << false;
    }

    void identity()
    {
        QFETCH(QString, name);
        QFETCH(QString, stop);
        QFETCH(bool, isRecurrent);
        QFETCH(bool, isValid);

        class Bare : public DAbstractCommand
        {
        public:
            using DAbstractCommand::DAbstractCommand;
            QSharedPointer<ICommand> createCommand(Map const&) const override { return {}; }
        };

        Bare const command(name, stop, {}, nullptr);
        QCOMPARE(command.commandName(), name);
        QCOMPARE(command.stopCommandName(), stop);
        QCOMPARE(command.isRecurrent(), isRecurrent);
        QCOMPARE(command.isValid(), isValid);
        if (stop.isEmpty()) {
            Bare const oneShot(name, {}, nullptr);
            QCOMPARE(oneShot.commandName(), name);
            QCOMPARE(oneShot.stopCommandName(), QString());
            QCOMPARE(oneShot.isRecurrent(), false);
            QCOMPARE(oneShot.isValid(), isValid);
        }
    }

    void describesItself()
    {
        TestCommand command;
        QCOMPARE(command.description(), QString());
        command.setDescription("Measures once"_s);
        QCOMPARE(command.description(), "Measures once"_s);
        QCOMPARE(command.fullDescription(), "Measures once"_s);

        command.declareAResult("doneOk"_s, "bool"_s, "Job done"_s, false);
        command.declareAParameter("program"_s, "ui16"_s, "Program"_s, 1);
        command.declareAParameter("locking"_s, "int"_s, "100 %1 %2"_s, 0);
        QCOMPARE(command.description(), "Measures once"_s);

        QStringList const lines = command.fullDescription().split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines[0], "Measures once"_s);
        auto const tells = [](QString const& line, QStringList const& parts) {
            return std::all_of(parts.cbegin(), parts.cend(),
                               [&line](QString const& part) { return line.contains(part); });
        };
        QVERIFY2(tells(lines[1], {"parameter"_s, "program"_s, "ui16"_s, "Program"_s}), qPrintable(lines[1]));
        QVERIFY2(tells(lines[2], {"parameter"_s, "locking"_s, "int"_s, "100 %1 %2"_s}), qPrintable(lines[2]));
        QVERIFY2(tells(lines[3], {"result"_s, "doneOk"_s, "bool"_s, "Job done"_s}), qPrintable(lines[3]));
    }

    void listsDeclarationsInOrder()
    {
        TestCommand command;
        command.declareAParameter("zeta"_s, "ui16"_s, "Z"_s, 1);
        command.declareAParameter("alpha"_s, "strg"_s, "A"_s, "a"_s);
        command.declareAResult("second"_s, "varM"_s, "S"_s, Map());
        command.declareAResult("first"_s, "bool"_s, "F"_s, true);

        auto const arguments = command.commandArguments();
        QCOMPARE(arguments.parameters.size(), 2);
        QCOMPARE(arguments.parameters[0].key, "zeta"_s);
        QCOMPARE(arguments.parameters[0].typeTag, "ui16"_s);
        QCOMPARE(arguments.parameters[0].label, "Z"_s);
        QCOMPARE(arguments.parameters[0].defaultValue, QVariant(1));
        QCOMPARE(arguments.parameters[1].key, "alpha"_s);
        QCOMPARE(arguments.parameters[1].defaultValue, QVariant("a"_s));
        QCOMPARE(arguments.results.size(), 2);
        QCOMPARE(arguments.results[0].key, "second"_s);
        QCOMPARE(arguments.results[0].typeTag, "varM"_s);
        QCOMPARE(arguments.results[0].label, "S"_s);
        QCOMPARE(arguments.results[0].defaultValue, QVariant(Map()));
        QCOMPARE(arguments.results[1].key, "first"_s);
        QCOMPARE(arguments.results[1].defaultValue, QVariant(true));
    }

    void parameterOrderId_data()
    {
        QTest::addColumn<Map>("parameters");
        QTest::addColumn<quint64>("id");

        QTest::newRow("none") << Map() << quint64{0};
        QTest::newRow("given") << Map{{"orderId"_s, Q_UINT64_C(0x123456789abcdef0)}}
                               << Q_UINT64_C(0x123456789abcdef0);
        QTest::newRow("given as text") << Map{{"orderId"_s, "17"_s}} << quint64{17};
        QTest::newRow("no number") << Map{{"orderId"_s, "x"_s}} << quint64{0};
    }

    void parameterOrderId()
    {
        QFETCH(Map, parameters);
        QFETCH(quint64, id);
        RecordingOrder order(5);
        TestCommand command(parameters);
        QCOMPARE(command.getParameterOrderId(), id);
        order.execute(command);
        QCOMPARE(command.getParameterOrderId(), id);
    }

    void parameterValue_data()
    {
        QTest::addColumn<QVariant>("given");
        QTest::addColumn<bool>("isGiven");
        QTest::addColumn<QVariant>("declared");
        QTest::addColumn<bool>("isDeclared");
        QTest::addColumn<QVariant>("value");

        QVariant const none;
        QTest::newRow("given, declared") << QVariant(1) << true << QVariant(2) << true << QVariant(1);
        QTest::newRow("given, not declared") << QVariant(1) << true << none << false << QVariant(1);
        QTest::newRow("declared") << none << false << QVariant(2) << true << QVariant(2);
        QTest::newRow("neither") << none << false << none << false << QVariant(3);
        QTest::newRow("given as invalid") << none << true << QVariant(2) << true << none;
        QTest::newRow("declared as invalid") << none << false << none << true << none;
        QTest::newRow("given with another type")
            << QVariant("x"_s) << true << QVariant(2) << true << QVariant("x"_s);
        QTest::newRow("given as zero") << QVariant(0) << true << QVariant(2) << true << QVariant(0);
    }

    void parameterValue()
    {
        QFETCH(QVariant, given);
        QFETCH(bool, isGiven);
        QFETCH(QVariant, declared);
        QFETCH(bool, isDeclared);
        QFETCH(QVariant, value);

        QString const key = "key"_s;
        Map parameters{{"other"_s, 98}};
        if (isGiven)
            parameters.insert(key, given);
        TestCommand command(parameters);
        command.declareAParameter("another"_s, "int"_s, QString(), 99);
        if (isDeclared)
            command.declareAParameter(key, "vart"_s, QString(), declared);
        QVariant const got = command.getParameterValue(key, QVariant(3));
        QCOMPARE(got, value);
        QCOMPARE(got.isValid(), value.isValid());
    }

    void parametersSection_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("section");

        QTest::newRow("map") << "tool"_s << QVariant(Map{{"name"_s, 7}});
        QTest::newRow("single value, declared") << "program"_s << QVariant(5);
        QTest::newRow("single value, not declared") << "note"_s << QVariant("n"_s);
        QTest::newRow("declared but not given") << "locking"_s << QVariant();
        QTest::newRow("neither") << "absent"_s << QVariant();
    }

    void parametersSection()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, section);
        TestCommand command({{"tool"_s, Map{{"name"_s, 7}}}, {"program"_s, 5}, {"note"_s, "n"_s}});
        command.declareAParameter("program"_s, "ui16"_s, QString(), 1);
        command.declareAParameter("locking"_s, "int"_s, QString(), 2);
        QVariant const got = command.getParametersSection(key);
        QCOMPARE(got, section);
        QCOMPARE(got.isValid(), section.isValid());
    }

    void resultStartsAtDefault()
    {
        TestCommand command({{"program"_s, 5}});
        command.declareAParameter("program"_s, "ui16"_s, QString(), 1);
        command.declareAResult("doneOk"_s, "bool"_s, QString(), false);
        command.declareAResult("data"_s, "vart"_s, QString(), QVariant());
        QCOMPARE(command.result("doneOk"_s), QVariant(false));
        QVERIFY(!command.result("data"_s).isValid());
        QVERIFY(!command.result("program"_s).isValid());
        QVERIFY(!command.result("undeclared"_s).isValid());
    }

    void updateStoresAndReports()
    {
        RecordingOrder order;
        TestCommand command;
        command.declareAResult("count"_s, "int"_s, QString(), 0);
        command.declareAResult("data"_s, "vart"_s, QString(), QVariant());
        command.onExecute = [&] { command.post("ask"_s); };
        order.execute(command);
        QVERIFY(order.results.isEmpty());

        QVERIFY(command.commandUpdateResult("count"_s, 1));
        QVERIFY(command.commandUpdateResult("count"_s, 1));
        QVERIFY(command.commandUpdateResult("data"_s, "x"_s));
        QCOMPARE(command.result("count"_s), QVariant(1));
        QCOMPARE(command.result("data"_s), QVariant("x"_s));
        using Results = QList<QPair<QString, QVariant>>;
        QCOMPARE(order.results, (Results{{"count"_s, 1}, {"count"_s, 1}, {"data"_s, "x"_s}}));
        // The declaration keeps the default.
        QCOMPARE(command.commandArguments().results[0].defaultValue, QVariant(0));
    }

    void undeclaredResultIsRefused()
    {
        RecordingOrder order;
        TestCommand command;
        command.declareAParameter("program"_s, "ui16"_s, QString(), 1);
        order.execute(command);
        QCOMPARE(command.commandUpdateResult("absent"_s, 1), false);
        QCOMPARE(command.commandUpdateResult("program"_s, 1), false);
        QVERIFY(!command.result("absent"_s).isValid());
        QVERIFY(!command.result("program"_s).isValid());
        QVERIFY(order.results.isEmpty());
    }

    void updateWithoutOrderStoresOnly()
    {
        TestCommand command;
        command.declareAResult("count"_s, "int"_s, QString(), 0);
        QVERIFY(command.commandUpdateResult("count"_s, 4));
        QCOMPARE(command.result("count"_s), QVariant(4));
    }

    void executeNeedsOrder_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addColumn<bool>("starts");

        QTest::newRow("never linked") << "never"_s << false;
        QTest::newRow("linked") << "linked"_s << true;
        QTest::newRow("linked to null") << "null"_s << false;
        QTest::newRow("unlinked again") << "unlinked"_s << false;
        QTest::newRow("order destroyed") << "destroyed"_s << false;
        QTest::newRow("plain object destroyed") << "plain destroyed"_s << false;
    }

    void executeNeedsOrder()
    {
        QFETCH(QString, how);
        QFETCH(bool, starts);

        auto order = std::make_unique<RecordingOrder>();
        auto plain = std::make_unique<QObject>();
        TestCommand command;
        command.onExecute = [&] { command.post("ask"_s); };
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        if (how == QLatin1String("plain destroyed")) {
            command.linkWithItsOrder(plain.get());
            plain.reset();
        } else if (how == QLatin1String("null")) {
            command.linkWithItsOrder(nullptr);
        } else if (how != QLatin1String("never")) {
            command.linkWithItsOrder(order.get());
        }
        if (how == QLatin1String("unlinked"))
            command.linkWithItsOrder(nullptr);
        if (how == QLatin1String("destroyed"))
            order.reset();

        QCOMPARE(command.commandExecute(), starts);
        if (order)
            QCOMPARE(order->posted.size(), starts ? 1 : 0);
        QCOMPARE(finished.count(), 0);
        // A command that was refused does not run, so there is nothing to finish.
        bool success = true;
        QCOMPARE(command.finishTheCommand(success), starts);
        QCOMPARE(success, starts);
    }

    void orderLinksAndExecutes()
    {
        RecordingOrder order(42);
        TestCommand command;
        int executions = 0;
        command.onExecute = [&] {
            ++executions;
            command.post("ask"_s);
        };
        QCOMPARE(order.id(), quint64{42});
        QVERIFY(order.execute(command));
        QCOMPARE(executions, 1);
        QCOMPARE(command.getOrderId(), quint64{42});
        QCOMPARE(order.names(), QStringList("ask"_s));
        QVERIFY(order.finishes.isEmpty());
    }

    void refusingCommandDoesNotRun()
    {
        class Refusing : public TestCommand
        {
        public:
            bool commandExecute() override { return false; }
        };
        RecordingOrder order;
        Refusing command;
        QCOMPARE(order.execute(command), false);
        QVERIFY(order.posted.isEmpty());
        QVERIFY(order.finishes.isEmpty());
    }

    void plainObjectMakesOrder()
    {
        QObject order;
        TestCommand command;
        command.declareAResult("count"_s, "int"_s, QString(), 0);
        quint64 first = 0;
        quint64 second = 0;
        command.onExecute = [&] {
            first = command.post("one"_s);
            second = command.post("two"_s);
        };
        command.answer = [&](quint64, Map const& reply) {
            return command.commandUpdateResult("count"_s, reply.value("value"_s));
        };
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        command.linkWithItsOrder(&order);
        QCOMPARE(command.getOrderId(), quint64{0});
        QVERIFY(command.commandExecute());
        QVERIFY(first != 0);
        QVERIFY(second != 0);
        QVERIFY(first != second);
        QVERIFY(command.setReply(first, replyWith(8)));
        QCOMPARE(command.result("count"_s), QVariant(8));
        QCOMPARE(command.setReply(first, replyWith(9)), false);
        QCOMPARE(finished.count(), 0);
        QVERIFY(command.setReply(second, replyWith(10)));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished[0][0].toBool(), true);
        QCOMPARE(command.delivered.size(), 2);

        // Another run goes on counting: a late reply of the first run must not meet the second.
        quint64 const formerSecond = second;
        QVERIFY(command.commandExecute());
        QVERIFY(first > formerSecond);
    }

    void foreignCommandIsExecuted()
    {
        RecordingOrder order;
        ForeignCommand command;
        QVERIFY(order.execute(command));
        QCOMPARE(command.executions, 1);
        QCOMPARE(command.linked, static_cast<QObject*>(&order));
        QCOMPARE(order.awaitsReplies(), false);
        order.allowancePassed(1);
        order.instructionFailed(1, "gone"_s);
        QVERIFY(order.finishes.isEmpty());
    }

    void orderId()
    {
        TestCommand command;
        QCOMPARE(command.getOrderId(), quint64{0});
        auto order = std::make_unique<RecordingOrder>(std::numeric_limits<quint64>::max());
        command.linkWithItsOrder(order.get());
        QCOMPARE(command.getOrderId(), std::numeric_limits<quint64>::max());
        order.reset();
        QCOMPARE(command.getOrderId(), quint64{0});
    }

    void relinkingMovesCommand()
    {
        RecordingOrder former(1);
        RecordingOrder order(2);
        TestCommand command;
        command.declareAResult("count"_s, "int"_s, QString(), 0);
        command.onExecute = [&] { command.post("ask"_s); };
        former.execute(command);
        quint64 const id = former.posted[0].id;
        QVERIFY(former.awaitsReplies());

        command.linkWithItsOrder(&order);
        QCOMPARE(command.getOrderId(), quint64{2});
        QVERIFY(!former.awaitsReplies());
        QVERIFY(order.awaitsReplies());
        former.allowancePassed(id);
        former.instructionFailed(id, "gone"_s);
        QVERIFY(order.finishes.isEmpty());

        command.commandUpdateResult("count"_s, 1);
        QVERIFY(former.results.isEmpty());
        QCOMPARE(order.results.size(), 1);
        QVERIFY(command.setReply(id, {}));
        QVERIFY(former.finishes.isEmpty());
        QCOMPARE(order.finishes.size(), 1);
    }

    void relinkingToSameOrderChangesNothing()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] { command.post("ask"_s); };
        order.execute(command);
        command.linkWithItsOrder(&order);
        QVERIFY(order.awaitsReplies());
        QVERIFY(command.setReply(order.posted[0].id, {}));
        QCOMPARE(order.finishes.size(), 1);
    }

    void relinkingLeavesOthersOrderAlone()
    {
        RecordingOrder shared;
        RecordingOrder elsewhere;
        TestCommand earlier;
        TestCommand later;
        later.onExecute = [&] { later.post("ask"_s); };
        shared.execute(earlier);
        shared.finishes.clear();
        shared.execute(later);
        QVERIFY(shared.awaitsReplies());

        // The order serves the later command now; what becomes of the earlier one is none of its business.
        earlier.linkWithItsOrder(&elsewhere);
        QVERIFY(shared.awaitsReplies());
        shared.allowancePassed(shared.posted[0].id);
        QCOMPARE(shared.finishes.size(), 1);
    }

    void unlinking()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] { command.post("ask"_s); };
        order.execute(command);
        command.linkWithItsOrder(nullptr);
        QCOMPARE(command.getOrderId(), quint64{0});
        QVERIFY(!order.awaitsReplies());
        QVERIFY(command.setReply(order.posted[0].id, {}));
        QCOMPARE(command.delivered.size(), 1);
        QVERIFY(order.finishes.isEmpty());
    }

    void orderDestroyedFirst()
    {
        auto order = std::make_unique<RecordingOrder>();
        TestCommand command;
        command.declareAResult("count"_s, "int"_s, QString(), 0);
        command.onExecute = [&] {
            command.post("one"_s);
            command.post("two"_s);
            command.post("three"_s);
        };
        command.answer = [&](quint64, Map const& reply) {
            return command.commandUpdateResult("count"_s, reply.value("value"_s));
        };
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        order->execute(command);
        quint64 const first = order->posted[0].id;
        quint64 const second = order->posted[1].id;
        quint64 const third = order->posted[2].id;
        order.reset();

        QVERIFY(command.setReply(first, replyWith(6)));
        QCOMPARE(command.result("count"_s), QVariant(6));
        QCOMPARE(command.setReply(first, replyWith(7)), false);
        command.stopTheInstruction(second);
        QCOMPARE(command.setReply(second, replyWith(8)), false);
        QCOMPARE(finished.count(), 0);
        QVERIFY(command.setReply(third, replyWith(9)));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished[0][0].toBool(), true);
        QCOMPARE(command.commandExecute(), false);
    }

    void idsStayDistinctWithoutOrder()
    {
        auto order = std::make_unique<CountingOrder>();
        TestCommand command;
        QList<quint64> ids;
        command.onExecute = [&] {
            for (int i = 0; i < 3; ++i)
                ids += command.post("ask"_s);
        };
        order->execute(command);
        order.reset();
        quint64 const next = command.post("next"_s);
        QVERIFY(next != 0);
        QVERIFY2(!ids.contains(next), "an instruction that is still outstanding lost its id");
    }

    void commandDestroyedFirst()
    {
        RecordingOrder order;
        auto command = std::make_unique<TestCommand>();
        command->onExecute = [&] { command->post("ask"_s); };
        order.execute(*command);
        quint64 const id = order.posted[0].id;
        command.reset();
        QCOMPARE(order.awaitsReplies(), false);
        order.allowancePassed(id);
        order.instructionFailed(id, "gone"_s);
        QVERIFY(order.finishes.isEmpty());

        TestCommand next;
        next.onExecute = [&] { next.post("again"_s); };
        QVERIFY(order.execute(next));
        QVERIFY(order.awaitsReplies());
    }

    void postedAsGiven()
    {
        RecordingOrder order;
        TestCommand command;
        Map const arguments{{"lock"_s, 1}};
        quint64 first = 0;
        quint64 second = 0;
        command.onExecute = [&] {
            first = command.addInstruction("device"_s, "setLock"_s, arguments, 4000,
                                           TestCommand::OnReply(&command, &TestCommand::onReply));
            second = command.addInstruction("elsewhere"_s, "getInfo"_s, {}, -1,
                                            TestCommand::OnReply(&command, &TestCommand::onReply));
        };
        order.execute(command);
        QCOMPARE(order.posted.size(), 2);
        QCOMPARE(order.posted[0].id, first);
        QCOMPARE(order.posted[0].instruction.target, "device"_s);
        QCOMPARE(order.posted[0].instruction.name, "setLock"_s);
        QCOMPARE(order.posted[0].instruction.arguments, arguments);
        QCOMPARE(order.posted[0].instruction.timeAllowance, 4000);
        QCOMPARE(order.posted[1].id, second);
        QCOMPARE(order.posted[1].instruction.target, "elsewhere"_s);
        QCOMPARE(order.posted[1].instruction.arguments, Map());
        QCOMPARE(order.posted[1].instruction.timeAllowance, -1);
        QVERIFY(order.withdrawn.isEmpty());
    }

    void replyReachesItsHandler()
    {
        class TwoHandlers : public TestCommand
        {
        public:
            bool onOther(quint64 id, Map const& reply)
            {
                other.append({id, reply});
                return true;
            }
            QList<QPair<quint64, Map>> other;
        };
        RecordingOrder order;
        TwoHandlers command;
        command.onExecute = [&] {
            command.post("one"_s);
            command.addInstruction("device"_s, "two"_s, {}, 4000,
                                   TestCommand::OnReply(&command, &TwoHandlers::onOther));
        };
        order.execute(command);
        quint64 const one = order.posted[0].id;
        quint64 const two = order.posted[1].id;

        QVERIFY(command.setReply(two, replyWith(2)));
        QVERIFY(command.delivered.isEmpty());
        QVERIFY(command.setReply(one, replyWith(1)));
        using Delivered = QList<QPair<quint64, Map>>;
        QCOMPARE(command.delivered, (Delivered{{one, replyWith(1)}}));
        QCOMPARE(command.other, (Delivered{{two, replyWith(2)}}));
        QVERIFY(order.dropped.isEmpty());
    }

    void handlerAnswerIsPassedOn_data()
    {
        QTest::addColumn<bool>("listens");
        QTest::addColumn<bool>("answer");

        QTest::newRow("one-shot, true") << false << true;
        QTest::newRow("one-shot, false") << false << false;
        QTest::newRow("listening, true") << true << true;
        QTest::newRow("listening, false") << true << false;
    }

    void handlerAnswerIsPassedOn()
    {
        QFETCH(bool, listens);
        QFETCH(bool, answer);
        RecordingOrder order;
        TestCommand command(listens ? stopName() : QString());
        command.onExecute = [&] { command.post("ask"_s); };
        command.answer = [answer](quint64, Map const&) { return answer; };
        order.execute(command);
        QCOMPARE(command.setReply(order.posted[0].id, {}), answer);
    }

    void emptyHandlerAccepts()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] { command.addInstruction("device"_s, "tell"_s, {}, 4000, nullptr); };
        order.execute(command);
        QVERIFY(command.setReply(order.posted[0].id, {}));
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
    }

    void oneShotWithoutInstructionFinishes()
    {
        RecordingOrder order;
        TestCommand command;
        bool finishedWithin = true;
        command.onExecute = [&] { finishedWithin = !order.finishes.isEmpty(); };
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        QVERIFY(order.execute(command));
        QVERIFY(!finishedWithin);
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
        QCOMPARE(order.finishes[0].message, QString());
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished[0][0].toBool(), true);
    }

    void oneShotFinishesWithLastReply_data()
    {
        QTest::addColumn<QList<int>>("sequence");

        QTest::newRow("one") << QList<int>{0};
        QTest::newRow("three in order") << QList<int>{0, 1, 2};
        QTest::newRow("three backwards") << QList<int>{2, 1, 0};
    }

    void oneShotFinishesWithLastReply()
    {
        QFETCH(QList<int>, sequence);
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            for (int i = 0; i < sequence.size(); ++i)
                command.post("ask%1"_s.arg(i));
        };
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        order.execute(command);
        for (int const i : sequence) {
            QVERIFY(order.finishes.isEmpty());
            QCOMPARE(finished.count(), 0);
            QVERIFY(order.awaitsReplies());
            QVERIFY(command.setReply(order.posted[i].id, {}));
        }
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
        QCOMPARE(order.finishes[0].message, QString());
        QCOMPARE(finished.count(), 1);
        QVERIFY(!order.awaitsReplies());
        QVERIFY(order.withdrawn.isEmpty());
    }

    void oneShotFailsAtItsEnd_data()
    {
        QTest::addColumn<QList<int>>("refused");
        QTest::addColumn<QString>("named");

        QTest::newRow("first refused") << QList<int>{0} << "ask0"_s;
        QTest::newRow("last refused") << QList<int>{2} << "ask2"_s;
        QTest::newRow("the first of two is told") << QList<int>{1, 2} << "ask1"_s;
        QTest::newRow("all refused") << QList<int>{0, 1, 2} << "ask0"_s;
    }

    void oneShotFailsAtItsEnd()
    {
        QFETCH(QList<int>, refused);
        QFETCH(QString, named);
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            for (int i = 0; i < 3; ++i)
                command.post("ask%1"_s.arg(i));
        };
        int index = 0;
        command.answer = [&](quint64, Map const&) { return !refused.contains(index); };
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        order.execute(command);
        for (index = 0; index < 3; ++index) {
            QVERIFY(order.finishes.isEmpty());
            QCOMPARE(command.setReply(order.posted[index].id, {}), !refused.contains(index));
        }
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(!order.finishes[0].success);
        QVERIFY2(order.finishes[0].message.contains(named), qPrintable(order.finishes[0].message));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished[0][0].toBool(), false);
        QCOMPARE(command.delivered.size(), 3);
        QVERIFY(order.withdrawn.isEmpty());
    }

    void oneShotEndsWhenLastIsWithdrawn_data()
    {
        QTest::addColumn<QString>("when");

        QTest::newRow("while executing") << "executing"_s;
        QTest::newRow("in a handler") << "handler"_s;
        QTest::newRow("from outside") << "outside"_s;
    }

    void oneShotEndsWhenLastIsWithdrawn()
    {
        QFETCH(QString, when);
        RecordingOrder order;
        TestCommand command;
        quint64 last = 0;
        command.onExecute = [&] {
            if (when == QLatin1String("handler"))
                command.post("other"_s);
            last = command.post("last"_s);
            if (when == QLatin1String("executing"))
                command.stopTheInstruction(last);
            QVERIFY(order.finishes.isEmpty());
        };
        command.answer = [&](quint64, Map const&) {
            command.stopTheInstruction(last);
            return true;
        };
        order.execute(command);
        if (when == QLatin1String("handler"))
            command.setReply(order.posted[0].id, {});
        if (when == QLatin1String("outside"))
            command.stopTheInstruction(last);
        QCOMPARE(order.withdrawn, QList<quint64>{last});
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
    }

    void oneShotFinishedByHost_data()
    {
        QTest::addColumn<bool>("success");

        QTest::newRow("succeeds") << true;
        QTest::newRow("fails") << false;
    }

    void oneShotFinishedByHost()
    {
        QFETCH(bool, success);
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            command.post("one"_s);
            command.post("two"_s);
        };
        order.execute(command);
        command.setReply(order.posted[0].id, {});
        bool flag = success;
        QVERIFY(command.finishTheCommand(flag));
        QCOMPARE(flag, success);
        QCOMPARE(order.withdrawn, QList<quint64>{order.posted[1].id});
        QCOMPARE(order.finishes.size(), 1);
        QCOMPARE(order.finishes[0].success, success);
        QVERIFY(!order.awaitsReplies());
    }

    void oneShotFinishesItself_data()
    {
        QTest::addColumn<bool>("success");

        QTest::newRow("succeeds") << true;
        QTest::newRow("fails") << false;
    }

    void oneShotFinishesItself()
    {
        QFETCH(bool, success);
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            command.post("one"_s);
            command.post("two"_s);
        };
        command.answer = [&](quint64 id, Map const&) {
            bool flag = success;
            return id != order.posted[0].id || (command.commandFinish(flag) && flag == success);
        };
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        order.execute(command);
        QVERIFY(command.setReply(order.posted[0].id, {}));
        QCOMPARE(order.finishes.size(), 1);
        QCOMPARE(order.finishes[0].success, success);
        QVERIFY(order.withdrawn.isEmpty());

        // The other one is still delivered, and does not finish the command again.
        QVERIFY(command.setReply(order.posted[1].id, {}));
        QCOMPARE(command.delivered.size(), 2);
        QCOMPARE(order.finishes.size(), 1);
        QCOMPARE(finished.count(), 1);
    }

    void secondExecution()
    {
        RecordingOrder order;
        TestCommand command;
        command.declareAResult("count"_s, "int"_s, QString(), 0);
        command.onExecute = [&] { command.post("ask"_s); };
        bool answer = false;
        command.answer = [&](quint64, Map const&) { return answer; };
        order.execute(command);
        command.commandUpdateResult("count"_s, 3);
        command.setReply(order.posted[0].id, {});
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(!order.finishes[0].success);

        answer = true;
        QVERIFY(order.execute(command));
        QCOMPARE(order.posted.size(), 2);
        QCOMPARE(order.finishes.size(), 1);
        // The last value stored stays until another is.
        QCOMPARE(command.result("count"_s), QVariant(3));
        QCOMPARE(command.setReply(order.posted[0].id, {}), false);
        QCOMPARE(order.dropped, QList<quint64>{order.posted[0].id});
        QVERIFY(command.setReply(order.posted[1].id, {}));
        QCOMPARE(order.finishes.size(), 2);
        QVERIFY(order.finishes[1].success);
        QCOMPARE(order.finishes[1].message, QString());
    }

    void secondExecutionKeepsUnanswered()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] { command.post("ask"_s); };
        order.execute(command);
        bool success = true;
        command.commandFinish(success);
        order.execute(command);
        QVERIFY(command.setReply(order.posted[0].id, replyWith(1)));
        QVERIFY(command.setReply(order.posted[1].id, replyWith(2)));
        QCOMPARE(command.delivered.size(), 2);
        QVERIFY(order.dropped.isEmpty());
        QCOMPARE(order.finishes.size(), 2);
    }

    void executionFromFinishedSlot()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] { command.post("ask"_s); };
        command.answer = [&](quint64 id, Map const&) { return id != order.posted[0].id; };
        int runs = 1;
        connect(&command, &TestCommand::sigCommandFinished, this, [&] {
            if (runs++ == 1)
                command.commandExecute();
        });
        order.execute(command);
        command.setReply(order.posted[0].id, {});
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(!order.finishes[0].success);
        QVERIFY2(order.finishes[0].message.contains("ask"_s), qPrintable(order.finishes[0].message));
        QCOMPARE(order.posted.size(), 2);
        command.setReply(order.posted[1].id, {});
        QCOMPARE(order.finishes.size(), 2);
        QVERIFY(order.finishes[1].success);
    }

    void chainFromHandlers()
    {
        constexpr int length = 4;
        RecordingOrder order;
        TestCommand command;
        int step = 0;
        auto const next = [&] { command.post("step%1"_s.arg(step++)); };
        command.onExecute = next;
        command.answer = [&](quint64, Map const&) {
            if (step < length)
                next();
            return true;
        };
        order.execute(command);
        for (int i = 0; i < length; ++i) {
            QCOMPARE(order.posted.size(), i + 1);
            QVERIFY(order.finishes.isEmpty());
            QVERIFY(command.setReply(order.posted[i].id, replyWith(i)));
            QCOMPARE(command.delivered[i], (QPair<quint64, Map>{order.posted[i].id, replyWith(i)}));
        }
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
    }

    void handlerPostsSeveral()
    {
        constexpr int count = 100; // enough for a table to be rearranged under the handler's feet
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] { command.post("first"_s); };
        command.answer = [&](quint64 id, Map const& reply) {
            if (id == order.posted[0].id) {
                for (int i = 0; i < count; ++i)
                    command.post("next"_s);
            }
            return reply.value("value"_s).toInt() == 7;
        };
        order.execute(command);
        QVERIFY(command.setReply(order.posted[0].id, replyWith(7)));
        QCOMPARE(order.posted.size(), count + 1);
        for (int i = count; i > 0; --i) {
            QVERIFY(order.finishes.isEmpty());
            QVERIFY(command.setReply(order.posted[i].id, replyWith(7)));
        }
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
    }

    void handlerPostsAndFails()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] { command.post("first"_s); };
        command.answer = [&](quint64 id, Map const&) {
            if (id != order.posted[0].id)
                return true;
            command.post("second"_s);
            return false;
        };
        order.execute(command);
        QCOMPARE(command.setReply(order.posted[0].id, {}), false);
        QVERIFY(order.finishes.isEmpty());
        QVERIFY(command.setReply(order.posted[1].id, {}));
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(!order.finishes[0].success);
        QVERIFY2(order.finishes[0].message.contains("first"_s), qPrintable(order.finishes[0].message));
    }

    void handlerWithdrawsItself_data()
    {
        QTest::addColumn<bool>("listens");

        QTest::newRow("one-shot") << false;
        QTest::newRow("listening") << true;
    }

    void handlerWithdrawsItself()
    {
        QFETCH(bool, listens);
        RecordingOrder order;
        TestCommand command(listens ? stopName() : QString());
        command.onExecute = [&] { command.post("ask"_s); };
        command.answer = [&](quint64 id, Map const& reply) {
            command.stopTheInstruction(id);
            return reply == replyWith(1);
        };
        order.execute(command);
        quint64 const id = order.posted[0].id;
        QVERIFY(command.setReply(id, replyWith(1)));
        // A one-shot instruction that has its reply is over; there is nothing left to withdraw.
        QCOMPARE(order.withdrawn, listens ? QList<quint64>{id} : QList<quint64>());
        QCOMPARE(order.finishes.size(), listens ? 0 : 1);
        QCOMPARE(command.setReply(id, replyWith(1)), false);
        QCOMPARE(command.delivered.size(), 1);
        QCOMPARE(order.dropped, QList<quint64>{id});
    }

    void handlerWithdrawsSibling()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            command.post("one"_s);
            command.post("two"_s);
            command.post("three"_s);
        };
        command.answer = [&](quint64 id, Map const&) {
            if (id == order.posted[0].id)
                command.stopTheInstruction(order.posted[1].id);
            return true;
        };
        order.execute(command);
        command.setReply(order.posted[0].id, {});
        QCOMPARE(order.withdrawn, QList<quint64>{order.posted[1].id});
        QVERIFY(order.finishes.isEmpty());
        QCOMPARE(command.setReply(order.posted[1].id, {}), false);
        QVERIFY(order.finishes.isEmpty());
        command.setReply(order.posted[2].id, {});
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
        QCOMPARE(command.delivered.size(), 2);
    }

    void handlerTakesReplyInside()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            command.post("outer"_s);
            command.post("inner"_s);
        };
        bool finishedWithin = false;
        command.answer = [&](quint64 id, Map const&) {
            if (id == order.posted[0].id) {
                command.setReply(order.posted[1].id, {});
                finishedWithin = !order.finishes.isEmpty();
            }
            return true;
        };
        order.execute(command);
        QVERIFY(command.setReply(order.posted[0].id, {}));
        QVERIFY(!finishedWithin);
        QCOMPARE(command.delivered.size(), 2);
        QCOMPARE(order.finishes.size(), 1);
    }

    void droppedReply_data()
    {
        QTest::addColumn<bool>("listens");
        QTest::addColumn<QString>("after");

        QTest::newRow("one-shot, unknown id") << false << "unknown"_s;
        QTest::newRow("one-shot, withdrawn") << false << "withdrawn"_s;
        QTest::newRow("one-shot, answered") << false << "answered"_s;
        QTest::newRow("one-shot, refused") << false << "refused"_s;
        QTest::newRow("one-shot, allowance passed") << false << "allowance"_s;
        QTest::newRow("one-shot, another's allowance passed") << false << "other allowance"_s;
        QTest::newRow("one-shot, failed") << false << "failed"_s;
        QTest::newRow("one-shot, another failed") << false << "other failed"_s;
        QTest::newRow("one-shot, finished") << false << "finished"_s;
        QTest::newRow("listening, unknown id") << true << "unknown"_s;
        QTest::newRow("listening, withdrawn") << true << "withdrawn"_s;
        QTest::newRow("listening, failed") << true << "failed"_s;
        QTest::newRow("listening, finished") << true << "finished"_s;
    }

    void droppedReply()
    {
        QFETCH(bool, listens);
        QFETCH(QString, after);
        RecordingOrder order;
        TestCommand command(listens ? stopName() : QString());
        command.onExecute = [&] {
            command.post("ask"_s);
            command.post("other"_s);
        };
        command.answer = [&](quint64, Map const&) { return after != QLatin1String("refused"); };
        order.execute(command);
        quint64 const id = after == QLatin1String("unknown") ? 999 : order.posted[0].id;
        quint64 const other = order.posted[1].id;
        bool success = true;
        if (after == QLatin1String("withdrawn"))
            command.stopTheInstruction(id);
        else if (after == QLatin1String("answered") || after == QLatin1String("refused"))
            command.setReply(id, {});
        else if (after == QLatin1String("allowance"))
            order.allowancePassed(id);
        else if (after == QLatin1String("other allowance"))
            order.allowancePassed(other);
        else if (after == QLatin1String("failed"))
            order.instructionFailed(id, "gone"_s);
        else if (after == QLatin1String("other failed"))
            order.instructionFailed(other, "gone"_s);
        else if (after == QLatin1String("finished"))
            command.finishTheCommand(success);

        auto const deliveredBefore = command.delivered.size();
        auto const finishesBefore = order.finishes.size();
        QVERIFY(order.dropped.isEmpty());
        QCOMPARE(command.setReply(id, replyWith(1)), false);
        QCOMPARE(command.setReply(id, replyWith(2)), false);
        QCOMPARE(command.delivered.size(), deliveredBefore);
        QCOMPARE(order.finishes.size(), finishesBefore);
        QCOMPARE(order.dropped, (QList<quint64>{id, id}));
    }

    void withdrawal()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            command.post("one"_s);
            command.post("two"_s);
        };
        order.execute(command);
        command.stopTheInstruction(order.posted[0].id);
        QCOMPARE(order.withdrawn, QList<quint64>{order.posted[0].id});
        QVERIFY(order.awaitsReplies());
        QVERIFY(order.finishes.isEmpty());
        QVERIFY(command.setReply(order.posted[1].id, {}));
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
    }

    void withdrawalOfUnknownIsIgnored_data()
    {
        QTest::addColumn<QString>("which");

        QTest::newRow("never posted") << "never"_s;
        QTest::newRow("nothing") << "0"_s;
        QTest::newRow("withdrawn before") << "withdrawn"_s;
        QTest::newRow("answered") << "answered"_s;
    }

    void withdrawalOfUnknownIsIgnored()
    {
        QFETCH(QString, which);
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            command.post("one"_s);
            command.post("two"_s);
        };
        order.execute(command);
        quint64 id = order.posted[0].id;
        if (which == QLatin1String("never"))
            id = 999;
        else if (which == QLatin1String("0"))
            id = 0;
        else if (which == QLatin1String("withdrawn"))
            command.stopTheInstruction(id);
        else
            command.setReply(id, {});
        order.withdrawn.clear();
        command.stopTheInstruction(id);
        QVERIFY(order.withdrawn.isEmpty());
        QVERIFY(order.dropped.isEmpty());
        QVERIFY(order.finishes.isEmpty());
        QVERIFY(order.awaitsReplies());
    }

    void allowancePassedFailsOneShot()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            command.post("getInfo"_s, 4000);
            command.post("setLock"_s, 1234);
            command.post("setProgram"_s, 4000);
        };
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        order.execute(command);
        command.setReply(order.posted[0].id, {});
        order.allowancePassed(order.posted[1].id);
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(!order.finishes[0].success);
        QString const message = order.finishes[0].message;
        QVERIFY2(message.contains("setLock"_s), qPrintable(message));
        QVERIFY2(message.contains("1234"_s), qPrintable(message));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished[0][0].toBool(), false);
        // Nothing of a failed command is wanted any more.
        QCOMPARE(order.withdrawn, (QList<quint64>{order.posted[1].id, order.posted[2].id}));
        QVERIFY(!order.awaitsReplies());

        order.allowancePassed(order.posted[2].id);
        QCOMPARE(order.finishes.size(), 1);
    }

    void firstFailureIsTold()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            command.post("getInfo"_s);
            command.post("setLock"_s);
        };
        command.answer = [](quint64, Map const&) { return false; };
        order.execute(command);
        command.setReply(order.posted[0].id, {});
        order.allowancePassed(order.posted[1].id);
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY2(order.finishes[0].message.contains("getInfo"_s), qPrintable(order.finishes[0].message));
    }

    void allowanceOfAnsweredIsNothing()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            command.post("one"_s);
            command.post("two"_s);
        };
        order.execute(command);
        command.setReply(order.posted[0].id, {});
        order.allowancePassed(order.posted[0].id);
        QVERIFY(order.finishes.isEmpty());
        QVERIFY(order.withdrawn.isEmpty());
        command.setReply(order.posted[1].id, {});
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
    }

    void allowanceOfUnknownIsNothing()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] { command.post("one"_s); };
        order.execute(command);
        order.allowancePassed(999);
        order.instructionFailed(999, "gone"_s);
        QVERIFY(order.finishes.isEmpty());
        QVERIFY(order.withdrawn.isEmpty());
        QVERIFY(order.awaitsReplies());
    }

    void instructionFailedFailsOneShot()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            command.post("getInfo"_s);
            command.post("setLock"_s);
        };
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        order.execute(command);
        order.instructionFailed(order.posted[0].id, "endpoint \"device\" is gone %1"_s);
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(!order.finishes[0].success);
        QString const message = order.finishes[0].message;
        QVERIFY2(message.contains("getInfo"_s), qPrintable(message));
        QVERIFY2(message.contains("endpoint \"device\" is gone %1"_s), qPrintable(message));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished[0][0].toBool(), false);
        QVERIFY(order.withdrawn.contains(order.posted[1].id));
        QVERIFY(!order.awaitsReplies());
    }

    void instructionFailedTakesBackId()
    {
        // The host said itself that this one is over; to withdraw it would be to tell it twice.
        RecordingOrder order;
        TestCommand command(stopName());
        command.onExecute = [&] { command.post("listen"_s); };
        order.execute(command);
        order.instructionFailed(order.posted[0].id, "gone"_s);
        bool success = true;
        command.finishTheCommand(success);
        QVERIFY(order.withdrawn.isEmpty());
    }

    void failureWithinHandlerEndsOnce()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] {
            command.post("one"_s);
            command.post("two"_s);
        };
        command.answer = [&](quint64, Map const&) {
            order.allowancePassed(order.posted[1].id);
            return true;
        };
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        order.execute(command);
        QVERIFY(command.setReply(order.posted[0].id, {}));
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(!order.finishes[0].success);
        QCOMPARE(finished.count(), 1);
    }

    void listeningTakesManyReplies()
    {
        RecordingOrder order;
        TestCommand command(stopName());
        command.onExecute = [&] { command.post("listen"_s); };
        order.execute(command);
        quint64 const id = order.posted[0].id;
        for (int i = 0; i < 5; ++i) {
            QVERIFY(command.setReply(id, replyWith(i)));
            QCOMPARE(command.delivered.size(), i + 1);
            QCOMPARE(command.delivered[i], (QPair<quint64, Map>{id, replyWith(i)}));
        }
        QVERIFY(order.finishes.isEmpty());
        QVERIFY(order.dropped.isEmpty());
        QVERIFY(order.withdrawn.isEmpty());
    }

    void listeningSurvivesRefusedReply()
    {
        RecordingOrder order;
        TestCommand command(stopName());
        command.onExecute = [&] { command.post("listen"_s); };
        bool answer = false;
        command.answer = [&](quint64, Map const&) { return answer; };
        order.execute(command);
        QCOMPARE(command.setReply(order.posted[0].id, {}), false);
        QVERIFY(order.finishes.isEmpty());
        answer = true;
        QVERIFY(command.setReply(order.posted[0].id, {}));
        bool success = true;
        QVERIFY(command.finishTheCommand(success));
        QVERIFY(success);
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
        QCOMPARE(order.finishes[0].message, QString());
    }

    void listeningSurvivesAllowance()
    {
        RecordingOrder order;
        TestCommand command(stopName());
        command.onExecute = [&] { command.post("listen"_s); };
        order.execute(command);
        quint64 const id = order.posted[0].id;
        order.allowancePassed(id);
        QVERIFY(order.finishes.isEmpty());
        QVERIFY(order.withdrawn.isEmpty());
        QVERIFY(command.setReply(id, replyWith(1)));
        order.allowancePassed(id);
        QVERIFY(command.setReply(id, replyWith(2)));
        QCOMPARE(command.delivered.size(), 2);
        bool success = true;
        QVERIFY(command.finishTheCommand(success));
        QVERIFY(success);
        QCOMPARE(order.finishes[0].message, QString());
    }

    void listeningSurvivesFailedInstruction()
    {
        RecordingOrder order;
        TestCommand command(stopName());
        command.onExecute = [&] {
            command.post("listen"_s);
            command.post("other"_s);
        };
        order.execute(command);
        order.instructionFailed(order.posted[0].id, "gone"_s);
        QVERIFY(order.finishes.isEmpty());
        QVERIFY(order.withdrawn.isEmpty());
        QVERIFY(command.setReply(order.posted[1].id, {}));
        QVERIFY(order.finishes.isEmpty());
        bool success = true;
        QVERIFY(command.finishTheCommand(success));
        QVERIFY(success);
        QCOMPARE(order.withdrawn, QList<quint64>{order.posted[1].id});
    }

    void listeningWithoutInstructionRuns()
    {
        RecordingOrder order;
        TestCommand command(stopName());
        QVERIFY(order.execute(command));
        QVERIFY(order.finishes.isEmpty());
        bool success = true;
        QVERIFY(command.finishTheCommand(success));
        QCOMPARE(order.finishes.size(), 1);
    }

    void finishTheCommandWithdraws_data()
    {
        QTest::addColumn<bool>("success");
        QTest::addColumn<bool>("fromHandler");

        QTest::newRow("succeeds") << true << false;
        QTest::newRow("fails") << false << false;
        QTest::newRow("succeeds, from its handler") << true << true;
        QTest::newRow("fails, from its handler") << false << true;
    }

    void finishTheCommandWithdraws()
    {
        QFETCH(bool, success);
        QFETCH(bool, fromHandler);
        RecordingOrder order;
        TestCommand command(stopName());
        command.onExecute = [&] {
            command.post("answered"_s);
            command.post("unanswered"_s);
        };
        bool flag = success;
        bool ended = false;
        auto const finish = [&] { ended = command.finishTheCommand(flag); };
        command.answer = [&](quint64, Map const&) {
            if (fromHandler)
                finish();
            return true;
        };
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        order.execute(command);
        QVERIFY(command.setReply(order.posted[0].id, {}));
        if (!fromHandler)
            finish();
        QVERIFY(ended);
        QCOMPARE(flag, success);
        QCOMPARE(order.withdrawn, (QList<quint64>{order.posted[0].id, order.posted[1].id}));
        QCOMPARE(order.finishes.size(), 1);
        QCOMPARE(order.finishes[0].success, success);
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished[0][0].toBool(), success);
        QVERIFY(!order.awaitsReplies());
        QCOMPARE(command.setReply(order.posted[0].id, {}), false);
        QCOMPARE(command.setReply(order.posted[1].id, {}), false);
        QCOMPARE(command.delivered.size(), 1);
    }

    void commandFinishKeepsUnanswered_data()
    {
        QTest::addColumn<bool>("success");

        QTest::newRow("succeeds") << true;
        QTest::newRow("fails") << false;
    }

    void commandFinishKeepsUnanswered()
    {
        QFETCH(bool, success);
        RecordingOrder order;
        TestCommand command(stopName());
        command.onExecute = [&] {
            command.post("answered"_s);
            command.post("unanswered"_s);
        };
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        order.execute(command);
        quint64 const answered = order.posted[0].id;
        quint64 const unanswered = order.posted[1].id;
        command.setReply(answered, {});
        bool flag = success;
        QVERIFY(command.commandFinish(flag));
        QCOMPARE(flag, success);
        QCOMPARE(order.finishes.size(), 1);
        QCOMPARE(order.finishes[0].success, success);
        QVERIFY(!order.withdrawn.contains(unanswered));
        QVERIFY(order.awaitsReplies());

        QCOMPARE(command.setReply(answered, {}), false);
        QCOMPARE(order.dropped, QList<quint64>{answered});
        QVERIFY(command.setReply(unanswered, replyWith(1)));
        QVERIFY(!order.awaitsReplies());
        QCOMPARE(command.setReply(unanswered, replyWith(2)), false);
        QCOMPARE(command.delivered.size(), 2);
        QCOMPARE(command.delivered[1], (QPair<quint64, Map>{unanswered, replyWith(1)}));
        QCOMPARE(order.finishes.size(), 1);
        QCOMPARE(finished.count(), 1);
    }

    void allowanceAfterFinishWithdraws()
    {
        RecordingOrder order;
        TestCommand command(stopName());
        command.onExecute = [&] { command.post("listen"_s); };
        order.execute(command);
        bool success = true;
        command.commandFinish(success);
        QVERIFY(order.awaitsReplies());
        order.allowancePassed(order.posted[0].id);
        QVERIFY(!order.awaitsReplies());
        QCOMPARE(order.withdrawn, QList<quint64>{order.posted[0].id});
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
        QCOMPARE(command.setReply(order.posted[0].id, {}), false);
    }

    void failedInstructionAfterFinish()
    {
        RecordingOrder order;
        TestCommand command;
        command.onExecute = [&] { command.post("ask"_s); };
        order.execute(command);
        bool success = true;
        command.commandFinish(success);
        order.instructionFailed(order.posted[0].id, "gone"_s);
        QVERIFY(!order.awaitsReplies());
        QCOMPARE(order.finishes.size(), 1);
        QVERIFY(order.finishes[0].success);
    }

    void finishingWhatDoesNotRun_data()
    {
        QTest::addColumn<bool>("listens");
        QTest::addColumn<bool>("executed");
        QTest::addColumn<bool>("withdraws");
        QTest::addColumn<bool>("success");

        for (bool const listens : {false, true}) {
            for (bool const executed : {false, true}) {
                for (bool const withdraws : {false, true}) {
                    for (bool const success : {false, true}) {
                        QTest::addRow("%s, %s, %s, %s", listens ? "listening" : "one-shot",
                                      executed ? "finished before" : "never executed",
                                      withdraws ? "finishTheCommand" : "commandFinish",
                                      success ? "success" : "failure")
                            << listens << executed << withdraws << success;
                    }
                }
            }
        }
    }

    void finishingWhatDoesNotRun()
    {
        QFETCH(bool, listens);
        QFETCH(bool, executed);
        QFETCH(bool, withdraws);
        QFETCH(bool, success);
        RecordingOrder order;
        TestCommand command(listens ? stopName() : QString());
        QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
        command.linkWithItsOrder(&order);
        if (executed) {
            bool before = true;
            command.commandExecute();
            QVERIFY(command.finishTheCommand(before));
        }
        bool flag = success;
        QCOMPARE(withdraws ? command.finishTheCommand(flag) : command.commandFinish(flag), false);
        QCOMPARE(flag, false);
        QCOMPARE(order.finishes.size(), executed ? 1 : 0);
        QCOMPARE(finished.count(), executed ? 1 : 0);
    }

    void awaitsReplies()
    {
        RecordingOrder order;
        QCOMPARE(order.awaitsReplies(), false);
        TestCommand command(stopName());
        command.onExecute = [&] {
            command.post("one"_s);
            command.post("two"_s);
        };
        command.linkWithItsOrder(&order);
        QCOMPARE(order.awaitsReplies(), false);
        command.commandExecute();
        QCOMPARE(order.awaitsReplies(), true);
        command.setReply(order.posted[0].id, {});
        QCOMPARE(order.awaitsReplies(), true);
        command.setReply(order.posted[1].id, {});
        QCOMPARE(order.awaitsReplies(), false);
        command.post("three"_s);
        QCOMPARE(order.awaitsReplies(), true);
        command.stopTheInstruction(order.posted[2].id);
        QCOMPARE(order.awaitsReplies(), false);
    }

    void cloneIsIndependent()
    {
        RecordingOrder order;
        TestCommand prototype({{"program"_s, 1}});
        prototype.declareAResult("count"_s, "int"_s, QString(), 0);
        ICommand const& face = prototype;
        QSharedPointer<ICommand> const clone = face.createCommand({{"program"_s, 2}});
        QVERIFY(clone);
        QVERIFY(clone.data() != &face);
        auto* const command = dynamic_cast<TestCommand*>(clone.data());
        QVERIFY(command);
        QCOMPARE(clone->commandName(), prototype.commandName());
        QCOMPARE(command->getParametersSection("program"_s), QVariant(2));
        QCOMPARE(prototype.getParametersSection("program"_s), QVariant(1));
        command->declareAResult("count"_s, "int"_s, QString(), 0);
        command->commandUpdateResult("count"_s, 5);
        QCOMPARE(prototype.result("count"_s), QVariant(0));
    }

    void cloneSharesParent()
    {
        QObject parent;
        auto* const prototype = new TestCommand(Map(), &parent);
        QCOMPARE(prototype->parent(), &parent);
        QSharedPointer<ICommand> clone = prototype->createCommand({});
        QCOMPARE(dynamic_cast<QObject*>(clone.data())->parent(), &parent);
        QCOMPARE(parent.children().size(), 2);
        clone.reset();
        QCOMPARE(parent.children(), QObjectList{prototype});

        TestCommand const orphan(stopName());
        QVERIFY(dynamic_cast<QObject*>(orphan.createCommand({}).data())->parent() == nullptr);
        auto* const listening = new TestCommand(stopName(), Map(), &parent);
        QCOMPARE(listening->parent(), &parent);
    }

    void cloneLivesAsLongAsItIsHeld()
    {
        int destroyed = 0;
        TestCommand prototype;
        prototype.onDestroyed = [&destroyed] { ++destroyed; };
        QSharedPointer<ICommand> first = prototype.createCommand({});
        QSharedPointer<ICommand> second = first;
        QWeakPointer<ICommand> const weak = first;
        first.reset();
        QCOMPARE(destroyed, 0);
        QVERIFY(!weak.isNull());
        QCOMPARE(weak.toStrongRef()->commandName(), "measure"_s);
        second.reset();
        QCOMPARE(destroyed, 1);
        QVERIFY(weak.isNull());
        prototype.onDestroyed = nullptr;
    }

    void cloneIsTrackedAsObject()
    {
        TestCommand prototype;
        QSharedPointer<ICommand> clone = prototype.createCommand({});
        QPointer<QObject> const pointer = dynamic_cast<QObject*>(clone.data());
        QVERIFY(pointer);
        QSharedPointer<QObject> object = clone.dynamicCast<QObject>();
        clone.reset();
        QVERIFY(pointer);
        object.reset();
        QVERIFY(pointer.isNull());
    }

    void linkingCloneLeavesPrototype()
    {
        RecordingOrder order(9);
        TestCommand prototype;
        QSharedPointer<ICommand> const clone = prototype.createCommand({});
        QVERIFY(order.execute(*clone));
        QCOMPARE(clone->getOrderId(), quint64{9});
        QCOMPARE(prototype.getOrderId(), quint64{0});
        QCOMPARE(prototype.commandExecute(), false);
    }
};

QTEST_GUILESS_MAIN(TestAbstractCommand)
#include "tst_abstract_command.moc"
