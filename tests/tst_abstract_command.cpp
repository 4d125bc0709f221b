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
        : DAbstractCommand(QStringLiteral("measure"), parameters, parent)
    {}
    explicit TestCommand(QString const& stopName, Map const& parameters = {}, QObject* parent = nullptr)
        : DAbstractCommand(QStringLiteral("listen"), stopName, parameters, parent)
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
        return addInstruction(QStringLiteral("device"), name, {}, timeAllowance,
                              OnReply(this, &TestCommand::onReply));
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
    return QStringLiteral("stopListening");
}

Map replyWith(int value)
{
    return {{QStringLiteral("value"), value}};
}

// The contract declares it without const, although nothing changes.
static_assert(std::is_same_v<decltype(&TestCommand::getParametersSection),
                             QVariant (DAbstractCommand::*)(QString const&)>);

} // namespace

class TestAbstractCommand : public QObject
{
    Q_OBJECT

private slots:
    void identity_data();
    void identity();
    void describesItself();
    void listsDeclarationsInOrder();
    void parameterOrderId_data();
    void parameterOrderId();

    void parameterValue_data();
    void parameterValue();
    void parametersSection_data();
    void parametersSection();

    void resultStartsAtDefault();
    void updateStoresAndReports();
    void undeclaredResultIsRefused();
    void updateWithoutOrderStoresOnly();

    void executeNeedsOrder_data();
    void executeNeedsOrder();
    void orderLinksAndExecutes();
    void refusingCommandDoesNotRun();
    void plainObjectMakesOrder();
    void foreignCommandIsExecuted();
    void orderId();
    void relinkingMovesCommand();
    void relinkingToSameOrderChangesNothing();
    void relinkingLeavesOthersOrderAlone();
    void unlinking();
    void orderDestroyedFirst();
    void idsStayDistinctWithoutOrder();
    void commandDestroyedFirst();

    void postedAsGiven();
    void replyReachesItsHandler();
    void handlerAnswerIsPassedOn_data();
    void handlerAnswerIsPassedOn();
    void emptyHandlerAccepts();

    void oneShotWithoutInstructionFinishes();
    void oneShotFinishesWithLastReply_data();
    void oneShotFinishesWithLastReply();
    void oneShotFailsAtItsEnd_data();
    void oneShotFailsAtItsEnd();
    void oneShotEndsWhenLastIsWithdrawn_data();
    void oneShotEndsWhenLastIsWithdrawn();
    void oneShotFinishedByHost_data();
    void oneShotFinishedByHost();
    void oneShotFinishesItself_data();
    void oneShotFinishesItself();
    void secondExecution();
    void secondExecutionKeepsUnanswered();
    void executionFromFinishedSlot();

    void chainFromHandlers();
    void handlerPostsSeveral();
    void handlerPostsAndFails();
    void handlerWithdrawsItself_data();
    void handlerWithdrawsItself();
    void handlerWithdrawsSibling();
    void handlerTakesReplyInside();

    void droppedReply_data();
    void droppedReply();
    void withdrawal();
    void withdrawalOfUnknownIsIgnored_data();
    void withdrawalOfUnknownIsIgnored();

    void allowancePassedFailsOneShot();
    void firstFailureIsTold();
    void allowanceOfAnsweredIsNothing();
    void allowanceOfUnknownIsNothing();
    void instructionFailedFailsOneShot();
    void instructionFailedTakesBackId();
    void failureWithinHandlerEndsOnce();

    void listeningTakesManyReplies();
    void listeningSurvivesRefusedReply();
    void listeningSurvivesAllowance();
    void listeningSurvivesFailedInstruction();
    void listeningWithoutInstructionRuns();
    void finishTheCommandWithdraws_data();
    void finishTheCommandWithdraws();
    void commandFinishKeepsUnanswered_data();
    void commandFinishKeepsUnanswered();
    void allowanceAfterFinishWithdraws();
    void failedInstructionAfterFinish();
    void finishingWhatDoesNotRun_data();
    void finishingWhatDoesNotRun();
    void awaitsReplies();

    void cloneIsIndependent();
    void cloneSharesParent();
    void cloneLivesAsLongAsItIsHeld();
    void cloneIsTrackedAsObject();
    void linkingCloneLeavesPrototype();
};

void TestAbstractCommand::identity_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("stop");
    QTest::addColumn<bool>("isRecurrent");
    QTest::addColumn<bool>("isValid");

    QTest::newRow("one-shot") << QStringLiteral("init") << QString() << false << true;
    QTest::newRow("listening") << QStringLiteral("startListening") << stopName() << true << true;
    QTest::newRow("without a name") << QString() << QString() << false << false;
    QTest::newRow("stop name alone") << QString() << stopName() << true << false;
}

void TestAbstractCommand::identity()
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

void TestAbstractCommand::describesItself()
{
    TestCommand command;
    QCOMPARE(command.description(), QString());
    command.setDescription(QStringLiteral("Measures once"));
    QCOMPARE(command.description(), QStringLiteral("Measures once"));
    QCOMPARE(command.fullDescription(), QStringLiteral("Measures once"));

    command.declareAResult(QStringLiteral("doneOk"), QStringLiteral("bool"), QStringLiteral("Job done"),
                           false);
    command.declareAParameter(QStringLiteral("program"), QStringLiteral("ui16"), QStringLiteral("Program"),
                              1);
    command.declareAParameter(QStringLiteral("locking"), QStringLiteral("int"), QStringLiteral("100 %1 %2"),
                              0);
    QCOMPARE(command.description(), QStringLiteral("Measures once"));

    QStringList const lines = command.fullDescription().split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 4);
    QCOMPARE(lines[0], QStringLiteral("Measures once"));
    auto const tells = [](QString const& line, QStringList const& parts) {
        return std::all_of(parts.cbegin(), parts.cend(),
                           [&line](QString const& part) { return line.contains(part); });
    };
    QVERIFY2(tells(lines[1], {QStringLiteral("parameter"), QStringLiteral("program"), QStringLiteral("ui16"),
                              QStringLiteral("Program")}),
             qPrintable(lines[1]));
    QVERIFY2(tells(lines[2], {QStringLiteral("parameter"), QStringLiteral("locking"), QStringLiteral("int"),
                              QStringLiteral("100 %1 %2")}),
             qPrintable(lines[2]));
    QVERIFY2(tells(lines[3], {QStringLiteral("result"), QStringLiteral("doneOk"), QStringLiteral("bool"),
                              QStringLiteral("Job done")}),
             qPrintable(lines[3]));
}

void TestAbstractCommand::listsDeclarationsInOrder()
{
    TestCommand command;
    command.declareAParameter(QStringLiteral("zeta"), QStringLiteral("ui16"), QStringLiteral("Z"), 1);
    command.declareAParameter(QStringLiteral("alpha"), QStringLiteral("strg"), QStringLiteral("A"),
                              QStringLiteral("a"));
    command.declareAResult(QStringLiteral("second"), QStringLiteral("varM"), QStringLiteral("S"), Map());
    command.declareAResult(QStringLiteral("first"), QStringLiteral("bool"), QStringLiteral("F"), true);

    auto const arguments = command.commandArguments();
    QCOMPARE(arguments.parameters.size(), 2);
    QCOMPARE(arguments.parameters[0].key, QStringLiteral("zeta"));
    QCOMPARE(arguments.parameters[0].typeTag, QStringLiteral("ui16"));
    QCOMPARE(arguments.parameters[0].label, QStringLiteral("Z"));
    QCOMPARE(arguments.parameters[0].defaultValue, QVariant(1));
    QCOMPARE(arguments.parameters[1].key, QStringLiteral("alpha"));
    QCOMPARE(arguments.parameters[1].defaultValue, QVariant(QStringLiteral("a")));
    QCOMPARE(arguments.results.size(), 2);
    QCOMPARE(arguments.results[0].key, QStringLiteral("second"));
    QCOMPARE(arguments.results[0].typeTag, QStringLiteral("varM"));
    QCOMPARE(arguments.results[0].label, QStringLiteral("S"));
    QCOMPARE(arguments.results[0].defaultValue, QVariant(Map()));
    QCOMPARE(arguments.results[1].key, QStringLiteral("first"));
    QCOMPARE(arguments.results[1].defaultValue, QVariant(true));
}

void TestAbstractCommand::parameterOrderId_data()
{
    QTest::addColumn<Map>("parameters");
    QTest::addColumn<quint64>("id");

    QTest::newRow("none") << Map() << quint64{0};
    QTest::newRow("given") << Map{{QStringLiteral("orderId"), Q_UINT64_C(0x123456789abcdef0)}}
                           << Q_UINT64_C(0x123456789abcdef0);
    QTest::newRow("given as text") << Map{{QStringLiteral("orderId"), QStringLiteral("17")}} << quint64{17};
    QTest::newRow("no number") << Map{{QStringLiteral("orderId"), QStringLiteral("x")}} << quint64{0};
}

void TestAbstractCommand::parameterOrderId()
{
    QFETCH(Map, parameters);
    QFETCH(quint64, id);
    RecordingOrder order(5);
    TestCommand command(parameters);
    QCOMPARE(command.getParameterOrderId(), id);
    order.execute(command);
    QCOMPARE(command.getParameterOrderId(), id);
}

void TestAbstractCommand::parameterValue_data()
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
        << QVariant(QStringLiteral("x")) << true << QVariant(2) << true << QVariant(QStringLiteral("x"));
    QTest::newRow("given as zero") << QVariant(0) << true << QVariant(2) << true << QVariant(0);
}

void TestAbstractCommand::parameterValue()
{
    QFETCH(QVariant, given);
    QFETCH(bool, isGiven);
    QFETCH(QVariant, declared);
    QFETCH(bool, isDeclared);
    QFETCH(QVariant, value);

    QString const key = QStringLiteral("key");
    Map parameters{{QStringLiteral("other"), 98}};
    if (isGiven)
        parameters.insert(key, given);
    TestCommand command(parameters);
    command.declareAParameter(QStringLiteral("another"), QStringLiteral("int"), QString(), 99);
    if (isDeclared)
        command.declareAParameter(key, QStringLiteral("vart"), QString(), declared);
    QVariant const got = command.getParameterValue(key, QVariant(3));
    QCOMPARE(got, value);
    QCOMPARE(got.isValid(), value.isValid());
}

void TestAbstractCommand::parametersSection_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("section");

    QTest::newRow("map") << QStringLiteral("tool") << QVariant(Map{{QStringLiteral("name"), 7}});
    QTest::newRow("single value, declared") << QStringLiteral("program") << QVariant(5);
    QTest::newRow("single value, not declared") << QStringLiteral("note") << QVariant(QStringLiteral("n"));
    QTest::newRow("declared but not given") << QStringLiteral("locking") << QVariant();
    QTest::newRow("neither") << QStringLiteral("absent") << QVariant();
}

void TestAbstractCommand::parametersSection()
{
    QFETCH(QString, key);
    QFETCH(QVariant, section);
    TestCommand command({{QStringLiteral("tool"), Map{{QStringLiteral("name"), 7}}},
                         {QStringLiteral("program"), 5},
                         {QStringLiteral("note"), QStringLiteral("n")}});
    command.declareAParameter(QStringLiteral("program"), QStringLiteral("ui16"), QString(), 1);
    command.declareAParameter(QStringLiteral("locking"), QStringLiteral("int"), QString(), 2);
    QVariant const got = command.getParametersSection(key);
    QCOMPARE(got, section);
    QCOMPARE(got.isValid(), section.isValid());
}

void TestAbstractCommand::resultStartsAtDefault()
{
    TestCommand command({{QStringLiteral("program"), 5}});
    command.declareAParameter(QStringLiteral("program"), QStringLiteral("ui16"), QString(), 1);
    command.declareAResult(QStringLiteral("doneOk"), QStringLiteral("bool"), QString(), false);
    command.declareAResult(QStringLiteral("data"), QStringLiteral("vart"), QString(), QVariant());
    QCOMPARE(command.result(QStringLiteral("doneOk")), QVariant(false));
    QVERIFY(!command.result(QStringLiteral("data")).isValid());
    QVERIFY(!command.result(QStringLiteral("program")).isValid());
    QVERIFY(!command.result(QStringLiteral("undeclared")).isValid());
}

void TestAbstractCommand::updateStoresAndReports()
{
    RecordingOrder order;
    TestCommand command;
    command.declareAResult(QStringLiteral("count"), QStringLiteral("int"), QString(), 0);
    command.declareAResult(QStringLiteral("data"), QStringLiteral("vart"), QString(), QVariant());
    command.onExecute = [&] { command.post(QStringLiteral("ask")); };
    order.execute(command);
    QVERIFY(order.results.isEmpty());

    QVERIFY(command.commandUpdateResult(QStringLiteral("count"), 1));
    QVERIFY(command.commandUpdateResult(QStringLiteral("count"), 1));
    QVERIFY(command.commandUpdateResult(QStringLiteral("data"), QStringLiteral("x")));
    QCOMPARE(command.result(QStringLiteral("count")), QVariant(1));
    QCOMPARE(command.result(QStringLiteral("data")), QVariant(QStringLiteral("x")));
    using Results = QList<QPair<QString, QVariant>>;
    QCOMPARE(order.results, (Results{{QStringLiteral("count"), 1},
                                     {QStringLiteral("count"), 1},
                                     {QStringLiteral("data"), QStringLiteral("x")}}));
    // The declaration keeps the default.
    QCOMPARE(command.commandArguments().results[0].defaultValue, QVariant(0));
}

void TestAbstractCommand::undeclaredResultIsRefused()
{
    RecordingOrder order;
    TestCommand command;
    command.declareAParameter(QStringLiteral("program"), QStringLiteral("ui16"), QString(), 1);
    order.execute(command);
    QCOMPARE(command.commandUpdateResult(QStringLiteral("absent"), 1), false);
    QCOMPARE(command.commandUpdateResult(QStringLiteral("program"), 1), false);
    QVERIFY(!command.result(QStringLiteral("absent")).isValid());
    QVERIFY(!command.result(QStringLiteral("program")).isValid());
    QVERIFY(order.results.isEmpty());
}

void TestAbstractCommand::updateWithoutOrderStoresOnly()
{
    TestCommand command;
    command.declareAResult(QStringLiteral("count"), QStringLiteral("int"), QString(), 0);
    QVERIFY(command.commandUpdateResult(QStringLiteral("count"), 4));
    QCOMPARE(command.result(QStringLiteral("count")), QVariant(4));
}

void TestAbstractCommand::executeNeedsOrder_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("starts");

    QTest::newRow("never linked") << QStringLiteral("never") << false;
    QTest::newRow("linked") << QStringLiteral("linked") << true;
    QTest::newRow("linked to null") << QStringLiteral("null") << false;
    QTest::newRow("unlinked again") << QStringLiteral("unlinked") << false;
    QTest::newRow("order destroyed") << QStringLiteral("destroyed") << false;
    QTest::newRow("plain object destroyed") << QStringLiteral("plain destroyed") << false;
}

void TestAbstractCommand::executeNeedsOrder()
{
    QFETCH(QString, how);
    QFETCH(bool, starts);

    auto order = std::make_unique<RecordingOrder>();
    auto plain = std::make_unique<QObject>();
    TestCommand command;
    command.onExecute = [&] { command.post(QStringLiteral("ask")); };
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

void TestAbstractCommand::orderLinksAndExecutes()
{
    RecordingOrder order(42);
    TestCommand command;
    int executions = 0;
    command.onExecute = [&] {
        ++executions;
        command.post(QStringLiteral("ask"));
    };
    QCOMPARE(order.id(), quint64{42});
    QVERIFY(order.execute(command));
    QCOMPARE(executions, 1);
    QCOMPARE(command.getOrderId(), quint64{42});
    QCOMPARE(order.names(), QStringList(QStringLiteral("ask")));
    QVERIFY(order.finishes.isEmpty());
}

void TestAbstractCommand::refusingCommandDoesNotRun()
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

void TestAbstractCommand::plainObjectMakesOrder()
{
    QObject order;
    TestCommand command;
    command.declareAResult(QStringLiteral("count"), QStringLiteral("int"), QString(), 0);
    quint64 first = 0;
    quint64 second = 0;
    command.onExecute = [&] {
        first = command.post(QStringLiteral("one"));
        second = command.post(QStringLiteral("two"));
    };
    command.answer = [&](quint64, Map const& reply) {
        return command.commandUpdateResult(QStringLiteral("count"), reply.value(QStringLiteral("value")));
    };
    QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
    command.linkWithItsOrder(&order);
    QCOMPARE(command.getOrderId(), quint64{0});
    QVERIFY(command.commandExecute());
    QVERIFY(first != 0);
    QVERIFY(second != 0);
    QVERIFY(first != second);
    QVERIFY(command.setReply(first, replyWith(8)));
    QCOMPARE(command.result(QStringLiteral("count")), QVariant(8));
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

void TestAbstractCommand::foreignCommandIsExecuted()
{
    RecordingOrder order;
    ForeignCommand command;
    QVERIFY(order.execute(command));
    QCOMPARE(command.executions, 1);
    QCOMPARE(command.linked, static_cast<QObject*>(&order));
    QCOMPARE(order.awaitsReplies(), false);
    order.allowancePassed(1);
    order.instructionFailed(1, QStringLiteral("gone"));
    QVERIFY(order.finishes.isEmpty());
}

void TestAbstractCommand::orderId()
{
    TestCommand command;
    QCOMPARE(command.getOrderId(), quint64{0});
    auto order = std::make_unique<RecordingOrder>(std::numeric_limits<quint64>::max());
    command.linkWithItsOrder(order.get());
    QCOMPARE(command.getOrderId(), std::numeric_limits<quint64>::max());
    order.reset();
    QCOMPARE(command.getOrderId(), quint64{0});
}

void TestAbstractCommand::relinkingMovesCommand()
{
    RecordingOrder former(1);
    RecordingOrder order(2);
    TestCommand command;
    command.declareAResult(QStringLiteral("count"), QStringLiteral("int"), QString(), 0);
    command.onExecute = [&] { command.post(QStringLiteral("ask")); };
    former.execute(command);
    quint64 const id = former.posted[0].id;
    QVERIFY(former.awaitsReplies());

    command.linkWithItsOrder(&order);
    QCOMPARE(command.getOrderId(), quint64{2});
    QVERIFY(!former.awaitsReplies());
    QVERIFY(order.awaitsReplies());
    former.allowancePassed(id);
    former.instructionFailed(id, QStringLiteral("gone"));
    QVERIFY(order.finishes.isEmpty());

    command.commandUpdateResult(QStringLiteral("count"), 1);
    QVERIFY(former.results.isEmpty());
    QCOMPARE(order.results.size(), 1);
    QVERIFY(command.setReply(id, {}));
    QVERIFY(former.finishes.isEmpty());
    QCOMPARE(order.finishes.size(), 1);
}

void TestAbstractCommand::relinkingToSameOrderChangesNothing()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] { command.post(QStringLiteral("ask")); };
    order.execute(command);
    command.linkWithItsOrder(&order);
    QVERIFY(order.awaitsReplies());
    QVERIFY(command.setReply(order.posted[0].id, {}));
    QCOMPARE(order.finishes.size(), 1);
}

void TestAbstractCommand::relinkingLeavesOthersOrderAlone()
{
    RecordingOrder shared;
    RecordingOrder elsewhere;
    TestCommand earlier;
    TestCommand later;
    later.onExecute = [&] { later.post(QStringLiteral("ask")); };
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

void TestAbstractCommand::unlinking()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] { command.post(QStringLiteral("ask")); };
    order.execute(command);
    command.linkWithItsOrder(nullptr);
    QCOMPARE(command.getOrderId(), quint64{0});
    QVERIFY(!order.awaitsReplies());
    QVERIFY(command.setReply(order.posted[0].id, {}));
    QCOMPARE(command.delivered.size(), 1);
    QVERIFY(order.finishes.isEmpty());
}

void TestAbstractCommand::orderDestroyedFirst()
{
    auto order = std::make_unique<RecordingOrder>();
    TestCommand command;
    command.declareAResult(QStringLiteral("count"), QStringLiteral("int"), QString(), 0);
    command.onExecute = [&] {
        command.post(QStringLiteral("one"));
        command.post(QStringLiteral("two"));
        command.post(QStringLiteral("three"));
    };
    command.answer = [&](quint64, Map const& reply) {
        return command.commandUpdateResult(QStringLiteral("count"), reply.value(QStringLiteral("value")));
    };
    QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
    order->execute(command);
    quint64 const first = order->posted[0].id;
    quint64 const second = order->posted[1].id;
    quint64 const third = order->posted[2].id;
    order.reset();

    QVERIFY(command.setReply(first, replyWith(6)));
    QCOMPARE(command.result(QStringLiteral("count")), QVariant(6));
    QCOMPARE(command.setReply(first, replyWith(7)), false);
    command.stopTheInstruction(second);
    QCOMPARE(command.setReply(second, replyWith(8)), false);
    QCOMPARE(finished.count(), 0);
    QVERIFY(command.setReply(third, replyWith(9)));
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished[0][0].toBool(), true);
    QCOMPARE(command.commandExecute(), false);
}

void TestAbstractCommand::idsStayDistinctWithoutOrder()
{
    auto order = std::make_unique<CountingOrder>();
    TestCommand command;
    QList<quint64> ids;
    command.onExecute = [&] {
        for (int i = 0; i < 3; ++i)
            ids += command.post(QStringLiteral("ask"));
    };
    order->execute(command);
    order.reset();
    quint64 const next = command.post(QStringLiteral("next"));
    QVERIFY(next != 0);
    QVERIFY2(!ids.contains(next), "an instruction that is still outstanding lost its id");
}

void TestAbstractCommand::commandDestroyedFirst()
{
    RecordingOrder order;
    auto command = std::make_unique<TestCommand>();
    command->onExecute = [&] { command->post(QStringLiteral("ask")); };
    order.execute(*command);
    quint64 const id = order.posted[0].id;
    command.reset();
    QCOMPARE(order.awaitsReplies(), false);
    order.allowancePassed(id);
    order.instructionFailed(id, QStringLiteral("gone"));
    QVERIFY(order.finishes.isEmpty());

    TestCommand next;
    next.onExecute = [&] { next.post(QStringLiteral("again")); };
    QVERIFY(order.execute(next));
    QVERIFY(order.awaitsReplies());
}

void TestAbstractCommand::postedAsGiven()
{
    RecordingOrder order;
    TestCommand command;
    Map const arguments{{QStringLiteral("lock"), 1}};
    quint64 first = 0;
    quint64 second = 0;
    command.onExecute = [&] {
        first = command.addInstruction(QStringLiteral("device"), QStringLiteral("setLock"), arguments, 4000,
                                       TestCommand::OnReply(&command, &TestCommand::onReply));
        second = command.addInstruction(QStringLiteral("elsewhere"), QStringLiteral("getInfo"), {}, -1,
                                        TestCommand::OnReply(&command, &TestCommand::onReply));
    };
    order.execute(command);
    QCOMPARE(order.posted.size(), 2);
    QCOMPARE(order.posted[0].id, first);
    QCOMPARE(order.posted[0].instruction.target, QStringLiteral("device"));
    QCOMPARE(order.posted[0].instruction.name, QStringLiteral("setLock"));
    QCOMPARE(order.posted[0].instruction.arguments, arguments);
    QCOMPARE(order.posted[0].instruction.timeAllowance, 4000);
    QCOMPARE(order.posted[1].id, second);
    QCOMPARE(order.posted[1].instruction.target, QStringLiteral("elsewhere"));
    QCOMPARE(order.posted[1].instruction.arguments, Map());
    QCOMPARE(order.posted[1].instruction.timeAllowance, -1);
    QVERIFY(order.withdrawn.isEmpty());
}

void TestAbstractCommand::replyReachesItsHandler()
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
        command.post(QStringLiteral("one"));
        command.addInstruction(QStringLiteral("device"), QStringLiteral("two"), {}, 4000,
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

void TestAbstractCommand::handlerAnswerIsPassedOn_data()
{
    QTest::addColumn<bool>("listens");
    QTest::addColumn<bool>("answer");

    QTest::newRow("one-shot, true") << false << true;
    QTest::newRow("one-shot, false") << false << false;
    QTest::newRow("listening, true") << true << true;
    QTest::newRow("listening, false") << true << false;
}

void TestAbstractCommand::handlerAnswerIsPassedOn()
{
    QFETCH(bool, listens);
    QFETCH(bool, answer);
    RecordingOrder order;
    TestCommand command(listens ? stopName() : QString());
    command.onExecute = [&] { command.post(QStringLiteral("ask")); };
    command.answer = [answer](quint64, Map const&) { return answer; };
    order.execute(command);
    QCOMPARE(command.setReply(order.posted[0].id, {}), answer);
}

void TestAbstractCommand::emptyHandlerAccepts()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        command.addInstruction(QStringLiteral("device"), QStringLiteral("tell"), {}, 4000, nullptr);
    };
    order.execute(command);
    QVERIFY(command.setReply(order.posted[0].id, {}));
    QCOMPARE(order.finishes.size(), 1);
    QVERIFY(order.finishes[0].success);
}

void TestAbstractCommand::oneShotWithoutInstructionFinishes()
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

void TestAbstractCommand::oneShotFinishesWithLastReply_data()
{
    QTest::addColumn<QList<int>>("sequence");

    QTest::newRow("one") << QList<int>{0};
    QTest::newRow("three in order") << QList<int>{0, 1, 2};
    QTest::newRow("three backwards") << QList<int>{2, 1, 0};
}

void TestAbstractCommand::oneShotFinishesWithLastReply()
{
    QFETCH(QList<int>, sequence);
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        for (int i = 0; i < sequence.size(); ++i)
            command.post(QStringLiteral("ask%1").arg(i));
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

void TestAbstractCommand::oneShotFailsAtItsEnd_data()
{
    QTest::addColumn<QList<int>>("refused");
    QTest::addColumn<QString>("named");

    QTest::newRow("first refused") << QList<int>{0} << QStringLiteral("ask0");
    QTest::newRow("last refused") << QList<int>{2} << QStringLiteral("ask2");
    QTest::newRow("the first of two is told") << QList<int>{1, 2} << QStringLiteral("ask1");
    QTest::newRow("all refused") << QList<int>{0, 1, 2} << QStringLiteral("ask0");
}

void TestAbstractCommand::oneShotFailsAtItsEnd()
{
    QFETCH(QList<int>, refused);
    QFETCH(QString, named);
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        for (int i = 0; i < 3; ++i)
            command.post(QStringLiteral("ask%1").arg(i));
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

void TestAbstractCommand::oneShotEndsWhenLastIsWithdrawn_data()
{
    QTest::addColumn<QString>("when");

    QTest::newRow("while executing") << QStringLiteral("executing");
    QTest::newRow("in a handler") << QStringLiteral("handler");
    QTest::newRow("from outside") << QStringLiteral("outside");
}

void TestAbstractCommand::oneShotEndsWhenLastIsWithdrawn()
{
    QFETCH(QString, when);
    RecordingOrder order;
    TestCommand command;
    quint64 last = 0;
    command.onExecute = [&] {
        if (when == QLatin1String("handler"))
            command.post(QStringLiteral("other"));
        last = command.post(QStringLiteral("last"));
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

void TestAbstractCommand::oneShotFinishedByHost_data()
{
    QTest::addColumn<bool>("success");

    QTest::newRow("succeeds") << true;
    QTest::newRow("fails") << false;
}

void TestAbstractCommand::oneShotFinishedByHost()
{
    QFETCH(bool, success);
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        command.post(QStringLiteral("one"));
        command.post(QStringLiteral("two"));
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

void TestAbstractCommand::oneShotFinishesItself_data()
{
    QTest::addColumn<bool>("success");

    QTest::newRow("succeeds") << true;
    QTest::newRow("fails") << false;
}

void TestAbstractCommand::oneShotFinishesItself()
{
    QFETCH(bool, success);
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        command.post(QStringLiteral("one"));
        command.post(QStringLiteral("two"));
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

void TestAbstractCommand::secondExecution()
{
    RecordingOrder order;
    TestCommand command;
    command.declareAResult(QStringLiteral("count"), QStringLiteral("int"), QString(), 0);
    command.onExecute = [&] { command.post(QStringLiteral("ask")); };
    bool answer = false;
    command.answer = [&](quint64, Map const&) { return answer; };
    order.execute(command);
    command.commandUpdateResult(QStringLiteral("count"), 3);
    command.setReply(order.posted[0].id, {});
    QCOMPARE(order.finishes.size(), 1);
    QVERIFY(!order.finishes[0].success);

    answer = true;
    QVERIFY(order.execute(command));
    QCOMPARE(order.posted.size(), 2);
    QCOMPARE(order.finishes.size(), 1);
    // The last value stored stays until another is.
    QCOMPARE(command.result(QStringLiteral("count")), QVariant(3));
    QCOMPARE(command.setReply(order.posted[0].id, {}), false);
    QCOMPARE(order.dropped, QList<quint64>{order.posted[0].id});
    QVERIFY(command.setReply(order.posted[1].id, {}));
    QCOMPARE(order.finishes.size(), 2);
    QVERIFY(order.finishes[1].success);
    QCOMPARE(order.finishes[1].message, QString());
}

void TestAbstractCommand::secondExecutionKeepsUnanswered()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] { command.post(QStringLiteral("ask")); };
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

void TestAbstractCommand::executionFromFinishedSlot()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] { command.post(QStringLiteral("ask")); };
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
    QVERIFY2(order.finishes[0].message.contains(QStringLiteral("ask")),
             qPrintable(order.finishes[0].message));
    QCOMPARE(order.posted.size(), 2);
    command.setReply(order.posted[1].id, {});
    QCOMPARE(order.finishes.size(), 2);
    QVERIFY(order.finishes[1].success);
}

void TestAbstractCommand::chainFromHandlers()
{
    constexpr int length = 4;
    RecordingOrder order;
    TestCommand command;
    int step = 0;
    auto const next = [&] { command.post(QStringLiteral("step%1").arg(step++)); };
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

void TestAbstractCommand::handlerPostsSeveral()
{
    constexpr int count = 100; // enough for a table to be rearranged under the handler's feet
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] { command.post(QStringLiteral("first")); };
    command.answer = [&](quint64 id, Map const& reply) {
        if (id == order.posted[0].id) {
            for (int i = 0; i < count; ++i)
                command.post(QStringLiteral("next"));
        }
        return reply.value(QStringLiteral("value")).toInt() == 7;
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

void TestAbstractCommand::handlerPostsAndFails()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] { command.post(QStringLiteral("first")); };
    command.answer = [&](quint64 id, Map const&) {
        if (id != order.posted[0].id)
            return true;
        command.post(QStringLiteral("second"));
        return false;
    };
    order.execute(command);
    QCOMPARE(command.setReply(order.posted[0].id, {}), false);
    QVERIFY(order.finishes.isEmpty());
    QVERIFY(command.setReply(order.posted[1].id, {}));
    QCOMPARE(order.finishes.size(), 1);
    QVERIFY(!order.finishes[0].success);
    QVERIFY2(order.finishes[0].message.contains(QStringLiteral("first")),
             qPrintable(order.finishes[0].message));
}

void TestAbstractCommand::handlerWithdrawsItself_data()
{
    QTest::addColumn<bool>("listens");

    QTest::newRow("one-shot") << false;
    QTest::newRow("listening") << true;
}

void TestAbstractCommand::handlerWithdrawsItself()
{
    QFETCH(bool, listens);
    RecordingOrder order;
    TestCommand command(listens ? stopName() : QString());
    command.onExecute = [&] { command.post(QStringLiteral("ask")); };
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

void TestAbstractCommand::handlerWithdrawsSibling()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        command.post(QStringLiteral("one"));
        command.post(QStringLiteral("two"));
        command.post(QStringLiteral("three"));
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

void TestAbstractCommand::handlerTakesReplyInside()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        command.post(QStringLiteral("outer"));
        command.post(QStringLiteral("inner"));
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

void TestAbstractCommand::droppedReply_data()
{
    QTest::addColumn<bool>("listens");
    QTest::addColumn<QString>("after");

    QTest::newRow("one-shot, unknown id") << false << QStringLiteral("unknown");
    QTest::newRow("one-shot, withdrawn") << false << QStringLiteral("withdrawn");
    QTest::newRow("one-shot, answered") << false << QStringLiteral("answered");
    QTest::newRow("one-shot, refused") << false << QStringLiteral("refused");
    QTest::newRow("one-shot, allowance passed") << false << QStringLiteral("allowance");
    QTest::newRow("one-shot, another's allowance passed") << false << QStringLiteral("other allowance");
    QTest::newRow("one-shot, failed") << false << QStringLiteral("failed");
    QTest::newRow("one-shot, another failed") << false << QStringLiteral("other failed");
    QTest::newRow("one-shot, finished") << false << QStringLiteral("finished");
    QTest::newRow("listening, unknown id") << true << QStringLiteral("unknown");
    QTest::newRow("listening, withdrawn") << true << QStringLiteral("withdrawn");
    QTest::newRow("listening, failed") << true << QStringLiteral("failed");
    QTest::newRow("listening, finished") << true << QStringLiteral("finished");
}

void TestAbstractCommand::droppedReply()
{
    QFETCH(bool, listens);
    QFETCH(QString, after);
    RecordingOrder order;
    TestCommand command(listens ? stopName() : QString());
    command.onExecute = [&] {
        command.post(QStringLiteral("ask"));
        command.post(QStringLiteral("other"));
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
        order.instructionFailed(id, QStringLiteral("gone"));
    else if (after == QLatin1String("other failed"))
        order.instructionFailed(other, QStringLiteral("gone"));
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

void TestAbstractCommand::withdrawal()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        command.post(QStringLiteral("one"));
        command.post(QStringLiteral("two"));
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

void TestAbstractCommand::withdrawalOfUnknownIsIgnored_data()
{
    QTest::addColumn<QString>("which");

    QTest::newRow("never posted") << QStringLiteral("never");
    QTest::newRow("nothing") << QStringLiteral("0");
    QTest::newRow("withdrawn before") << QStringLiteral("withdrawn");
    QTest::newRow("answered") << QStringLiteral("answered");
}

void TestAbstractCommand::withdrawalOfUnknownIsIgnored()
{
    QFETCH(QString, which);
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        command.post(QStringLiteral("one"));
        command.post(QStringLiteral("two"));
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

void TestAbstractCommand::allowancePassedFailsOneShot()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        command.post(QStringLiteral("getInfo"), 4000);
        command.post(QStringLiteral("setLock"), 1234);
        command.post(QStringLiteral("setProgram"), 4000);
    };
    QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
    order.execute(command);
    command.setReply(order.posted[0].id, {});
    order.allowancePassed(order.posted[1].id);
    QCOMPARE(order.finishes.size(), 1);
    QVERIFY(!order.finishes[0].success);
    QString const message = order.finishes[0].message;
    QVERIFY2(message.contains(QStringLiteral("setLock")), qPrintable(message));
    QVERIFY2(message.contains(QStringLiteral("1234")), qPrintable(message));
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished[0][0].toBool(), false);
    // Nothing of a failed command is wanted any more.
    QCOMPARE(order.withdrawn, (QList<quint64>{order.posted[1].id, order.posted[2].id}));
    QVERIFY(!order.awaitsReplies());

    order.allowancePassed(order.posted[2].id);
    QCOMPARE(order.finishes.size(), 1);
}

void TestAbstractCommand::firstFailureIsTold()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        command.post(QStringLiteral("getInfo"));
        command.post(QStringLiteral("setLock"));
    };
    command.answer = [](quint64, Map const&) { return false; };
    order.execute(command);
    command.setReply(order.posted[0].id, {});
    order.allowancePassed(order.posted[1].id);
    QCOMPARE(order.finishes.size(), 1);
    QVERIFY2(order.finishes[0].message.contains(QStringLiteral("getInfo")),
             qPrintable(order.finishes[0].message));
}

void TestAbstractCommand::allowanceOfAnsweredIsNothing()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        command.post(QStringLiteral("one"));
        command.post(QStringLiteral("two"));
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

void TestAbstractCommand::allowanceOfUnknownIsNothing()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] { command.post(QStringLiteral("one")); };
    order.execute(command);
    order.allowancePassed(999);
    order.instructionFailed(999, QStringLiteral("gone"));
    QVERIFY(order.finishes.isEmpty());
    QVERIFY(order.withdrawn.isEmpty());
    QVERIFY(order.awaitsReplies());
}

void TestAbstractCommand::instructionFailedFailsOneShot()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        command.post(QStringLiteral("getInfo"));
        command.post(QStringLiteral("setLock"));
    };
    QSignalSpy const finished(&command, &TestCommand::sigCommandFinished);
    order.execute(command);
    order.instructionFailed(order.posted[0].id, QStringLiteral("endpoint \"device\" is gone %1"));
    QCOMPARE(order.finishes.size(), 1);
    QVERIFY(!order.finishes[0].success);
    QString const message = order.finishes[0].message;
    QVERIFY2(message.contains(QStringLiteral("getInfo")), qPrintable(message));
    QVERIFY2(message.contains(QStringLiteral("endpoint \"device\" is gone %1")), qPrintable(message));
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished[0][0].toBool(), false);
    QVERIFY(order.withdrawn.contains(order.posted[1].id));
    QVERIFY(!order.awaitsReplies());
}

void TestAbstractCommand::instructionFailedTakesBackId()
{
    // The host said itself that this one is over; to withdraw it would be to tell it twice.
    RecordingOrder order;
    TestCommand command(stopName());
    command.onExecute = [&] { command.post(QStringLiteral("listen")); };
    order.execute(command);
    order.instructionFailed(order.posted[0].id, QStringLiteral("gone"));
    bool success = true;
    command.finishTheCommand(success);
    QVERIFY(order.withdrawn.isEmpty());
}

void TestAbstractCommand::failureWithinHandlerEndsOnce()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] {
        command.post(QStringLiteral("one"));
        command.post(QStringLiteral("two"));
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

void TestAbstractCommand::listeningTakesManyReplies()
{
    RecordingOrder order;
    TestCommand command(stopName());
    command.onExecute = [&] { command.post(QStringLiteral("listen")); };
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

void TestAbstractCommand::listeningSurvivesRefusedReply()
{
    RecordingOrder order;
    TestCommand command(stopName());
    command.onExecute = [&] { command.post(QStringLiteral("listen")); };
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

void TestAbstractCommand::listeningSurvivesAllowance()
{
    RecordingOrder order;
    TestCommand command(stopName());
    command.onExecute = [&] { command.post(QStringLiteral("listen")); };
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

void TestAbstractCommand::listeningSurvivesFailedInstruction()
{
    RecordingOrder order;
    TestCommand command(stopName());
    command.onExecute = [&] {
        command.post(QStringLiteral("listen"));
        command.post(QStringLiteral("other"));
    };
    order.execute(command);
    order.instructionFailed(order.posted[0].id, QStringLiteral("gone"));
    QVERIFY(order.finishes.isEmpty());
    QVERIFY(order.withdrawn.isEmpty());
    QVERIFY(command.setReply(order.posted[1].id, {}));
    QVERIFY(order.finishes.isEmpty());
    bool success = true;
    QVERIFY(command.finishTheCommand(success));
    QVERIFY(success);
    QCOMPARE(order.withdrawn, QList<quint64>{order.posted[1].id});
}

void TestAbstractCommand::listeningWithoutInstructionRuns()
{
    RecordingOrder order;
    TestCommand command(stopName());
    QVERIFY(order.execute(command));
    QVERIFY(order.finishes.isEmpty());
    bool success = true;
    QVERIFY(command.finishTheCommand(success));
    QCOMPARE(order.finishes.size(), 1);
}

void TestAbstractCommand::finishTheCommandWithdraws_data()
{
    QTest::addColumn<bool>("success");
    QTest::addColumn<bool>("fromHandler");

    QTest::newRow("succeeds") << true << false;
    QTest::newRow("fails") << false << false;
    QTest::newRow("succeeds, from its handler") << true << true;
    QTest::newRow("fails, from its handler") << false << true;
}

void TestAbstractCommand::finishTheCommandWithdraws()
{
    QFETCH(bool, success);
    QFETCH(bool, fromHandler);
    RecordingOrder order;
    TestCommand command(stopName());
    command.onExecute = [&] {
        command.post(QStringLiteral("answered"));
        command.post(QStringLiteral("unanswered"));
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

void TestAbstractCommand::commandFinishKeepsUnanswered_data()
{
    QTest::addColumn<bool>("success");

    QTest::newRow("succeeds") << true;
    QTest::newRow("fails") << false;
}

void TestAbstractCommand::commandFinishKeepsUnanswered()
{
    QFETCH(bool, success);
    RecordingOrder order;
    TestCommand command(stopName());
    command.onExecute = [&] {
        command.post(QStringLiteral("answered"));
        command.post(QStringLiteral("unanswered"));
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

void TestAbstractCommand::allowanceAfterFinishWithdraws()
{
    RecordingOrder order;
    TestCommand command(stopName());
    command.onExecute = [&] { command.post(QStringLiteral("listen")); };
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

void TestAbstractCommand::failedInstructionAfterFinish()
{
    RecordingOrder order;
    TestCommand command;
    command.onExecute = [&] { command.post(QStringLiteral("ask")); };
    order.execute(command);
    bool success = true;
    command.commandFinish(success);
    order.instructionFailed(order.posted[0].id, QStringLiteral("gone"));
    QVERIFY(!order.awaitsReplies());
    QCOMPARE(order.finishes.size(), 1);
    QVERIFY(order.finishes[0].success);
}

void TestAbstractCommand::finishingWhatDoesNotRun_data()
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

void TestAbstractCommand::finishingWhatDoesNotRun()
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

void TestAbstractCommand::awaitsReplies()
{
    RecordingOrder order;
    QCOMPARE(order.awaitsReplies(), false);
    TestCommand command(stopName());
    command.onExecute = [&] {
        command.post(QStringLiteral("one"));
        command.post(QStringLiteral("two"));
    };
    command.linkWithItsOrder(&order);
    QCOMPARE(order.awaitsReplies(), false);
    command.commandExecute();
    QCOMPARE(order.awaitsReplies(), true);
    command.setReply(order.posted[0].id, {});
    QCOMPARE(order.awaitsReplies(), true);
    command.setReply(order.posted[1].id, {});
    QCOMPARE(order.awaitsReplies(), false);
    command.post(QStringLiteral("three"));
    QCOMPARE(order.awaitsReplies(), true);
    command.stopTheInstruction(order.posted[2].id);
    QCOMPARE(order.awaitsReplies(), false);
}

void TestAbstractCommand::cloneIsIndependent()
{
    RecordingOrder order;
    TestCommand prototype({{QStringLiteral("program"), 1}});
    prototype.declareAResult(QStringLiteral("count"), QStringLiteral("int"), QString(), 0);
    ICommand const& face = prototype;
    QSharedPointer<ICommand> const clone = face.createCommand({{QStringLiteral("program"), 2}});
    QVERIFY(clone);
    QVERIFY(clone.data() != &face);
    auto* const command = dynamic_cast<TestCommand*>(clone.data());
    QVERIFY(command);
    QCOMPARE(clone->commandName(), prototype.commandName());
    QCOMPARE(command->getParametersSection(QStringLiteral("program")), QVariant(2));
    QCOMPARE(prototype.getParametersSection(QStringLiteral("program")), QVariant(1));
    command->declareAResult(QStringLiteral("count"), QStringLiteral("int"), QString(), 0);
    command->commandUpdateResult(QStringLiteral("count"), 5);
    QCOMPARE(prototype.result(QStringLiteral("count")), QVariant(0));
}

void TestAbstractCommand::cloneSharesParent()
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

void TestAbstractCommand::cloneLivesAsLongAsItIsHeld()
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
    QCOMPARE(weak.toStrongRef()->commandName(), QStringLiteral("measure"));
    second.reset();
    QCOMPARE(destroyed, 1);
    QVERIFY(weak.isNull());
    prototype.onDestroyed = nullptr;
}

void TestAbstractCommand::cloneIsTrackedAsObject()
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

void TestAbstractCommand::linkingCloneLeavesPrototype()
{
    RecordingOrder order(9);
    TestCommand prototype;
    QSharedPointer<ICommand> const clone = prototype.createCommand({});
    QVERIFY(order.execute(*clone));
    QCOMPARE(clone->getOrderId(), quint64{9});
    QCOMPARE(prototype.getOrderId(), quint64{0});
    QCOMPARE(prototype.commandExecute(), false);
}

QTEST_GUILESS_MAIN(TestAbstractCommand)
#include "tst_abstract_command.moc"
