#include "literals.h"

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_order.h>

#include <QPointer>
#include <QSet>
#include <QSharedPointer>
#include <QtTest>

#include <functional>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>

using Map = QMap<QString, QVariant>;

namespace
{

/// A command whose work the test writes down: it opens what DAbstractCommand offers to derived classes.
class OpenCommand : public DAbstractCommand
{
public:
    using DAbstractCommand::addInstruction;
    using DAbstractCommand::commandFinish;
    using DAbstractCommand::commandUpdateResult;
    using DAbstractCommand::DAbstractCommand;
    using DAbstractCommand::declareAParameter;
    using DAbstractCommand::declareAResult;
    using DAbstractCommand::getParametersSection;
    using DAbstractCommand::getParameterValue;
    using DAbstractCommand::OnReply;
    using DAbstractCommand::setDescription;
    using DAbstractCommand::stopTheInstruction;

    explicit OpenCommand(Map const& parameters = {}) : DAbstractCommand("measure"_s, parameters, nullptr) {}

    QSharedPointer<ICommand> createCommand(Map const& parameters) const override
    {
        return QSharedPointer<OpenCommand>::create("measure"_s, parameters, parent());
    }
    bool commandExecute() override
    {
        return DAbstractCommand::commandExecute() && (!onExecute || onExecute());
    }
    bool replied(quint64 id, Map const& reply) { return onReply(id, reply); }

    std::function<bool()> onExecute;
    std::function<bool(quint64, Map const&)> onReply;
};

// The contract declares it without const, although nothing changes.
static_assert(std::is_same_v<decltype(&OpenCommand::getParametersSection),
                             QVariant (DAbstractCommand::*)(QString const&)>);

/// An order that notes what it is told.
class LoggingOrder : public DOrder
{
public:
    explicit LoggingOrder(QStringList& log, quint64 id = 7) : DOrder(id), m_log(log) {}

    QList<DInstruction> posted;
    quint64 firstId = 101; // so that an id is never mistaken for an index or a count

protected:
    quint64 instructionPosted(DInstruction const& instruction) override
    {
        posted += instruction;
        m_log += "posted "_s + instruction.name;
        return firstId + static_cast<quint64>(posted.size()) - 1;
    }
    void instructionWithdrawn(quint64 id) override { m_log += "withdrawn "_s + nameOf(id); }
    void resultUpdated(QString const& key, QVariant const& value) override
    {
        m_log += "result %1 %2"_s.arg(key, value.toString());
    }
    void replyDropped(quint64 id) override { m_log += "dropped "_s + nameOf(id); }
    void commandFinished(bool success, QString const& message) override
    {
        m_log += (success ? "succeeded"_s : "failed: "_s) + message;
    }

private:
    QString nameOf(quint64 id) const { return posted.value(static_cast<int>(id - firstId)).name; }

    QStringList& m_log;
};

enum Kind
{
    OneShot,
    Listening,
};

class Bench;
using Step = std::function<void(Bench&)>;

/// A command with its order. What the two do and answer stands in the log, in words.
class Bench
{
public:
    explicit Bench(Kind kind = OneShot)
        : command("measure"_s, kind == Listening ? "stop"_s : QString(), {}, nullptr)
    {
        command.declareAResult("count"_s, "int"_s, QString(), 0);
        command.onExecute = [this] {
            for (auto const& name : qAsConst(toPost))
                post(name);
            react("execution"_s);
            log += "started"_s;
            return true;
        };
        command.onReply = [this](quint64 id, Map const& reply) {
            QString const name = ids.key(id);
            log += "handled %1 %2"_s.arg(name, reply.value("value"_s).toString()).trimmed();
            react(name);
            return !refused.contains(name);
        };
        QObject::connect(&command, &OpenCommand::sigCommandFinished, &command, [this](bool success) {
            log += success ? "signal true"_s : "signal false"_s;
            react("signal"_s);
        });
    }

    void post(QString const& name)
    {
        ids[name] = command.addInstruction("device"_s, name, {}, 1234,
                                           OpenCommand::OnReply(&command, &OpenCommand::replied));
    }
    quint64 idOf(char const* name) const { return ids.value(QLatin1String(name), 999); }
    void answers(bool answer) { log += answer ? "true"_s : "false"_s; }
    void answers(bool answer, bool success)
    {
        answers(answer);
        log += success ? "success"_s : "no success"_s;
    }

    /// What happens in a step.
    QString outcome(Step const& step)
    {
        log.clear();
        step(*this);
        return log.join(", "_s);
    }

    QStringList log;
    std::unique_ptr<LoggingOrder> order = std::make_unique<LoggingOrder>(log);
    OpenCommand command;
    QStringList toPost; ///< the instructions that an execution posts
    QMap<QString, quint64> ids;
    QSet<QString> refused;         ///< the instructions whose replies are not accepted
    QMap<QString, Step> reactions; ///< what is done within a handler, an "execution" or the end's "signal"

private:
    void react(QString const& occasion)
    {
        if (Step const step = reactions.take(occasion))
            step(*this);
    }
};

// Steps of the order.

/// The order executes the command, which posts these instructions.
Step execute(char const* instructions)
{
    return [=](Bench& bench) {
        bench.toPost = QString::fromLatin1(instructions).split(QLatin1Char(' '), Qt::SkipEmptyParts);
        bench.answers(bench.order->execute(bench.command));
    };
}
/// Executes the command; that it posts and starts is tested elsewhere.
Step start(char const* instructions)
{
    return [=](Bench& bench) {
        execute(instructions)(bench);
        bench.log.clear();
    };
}
Step passAllowance(char const* instruction)
{
    return [=](Bench& bench) { bench.order->allowancePassed(bench.idOf(instruction)); };
}
Step fail(char const* instruction)
{
    return [=](Bench& bench) { bench.order->instructionFailed(bench.idOf(instruction), "gone %1"_s); };
}
void awaitReplies(Bench& bench)
{
    bench.answers(bench.order->awaitsReplies());
}
void destroyOrder(Bench& bench)
{
    bench.order.reset();
}

// Steps of the command.

void link(Bench& bench)
{
    bench.command.linkWithItsOrder(bench.order.get());
}
void unlink(Bench& bench)
{
    bench.command.linkWithItsOrder(nullptr);
}
/// The command is executed without the order.
void executeAlone(Bench& bench)
{
    bench.answers(bench.command.commandExecute());
}
Step reply(char const* instruction, QVariant const& value = {})
{
    return [=](Bench& bench) {
        bench.answers(bench.command.setReply(bench.idOf(instruction), {{"value"_s, value}}));
    };
}
Step withdraw(char const* instruction)
{
    return [=](Bench& bench) { bench.command.stopTheInstruction(bench.idOf(instruction)); };
}
Step post(char const* instruction)
{
    return [=](Bench& bench) { bench.post(QLatin1String(instruction)); };
}
Step publish(char const* key, QVariant const& value)
{
    return [=](Bench& bench) { bench.answers(bench.command.commandUpdateResult(QLatin1String(key), value)); };
}
/// The host finishes the command.
Step finish(bool success)
{
    return [=](Bench& bench) {
        bool flag = success;
        bool const answer = bench.command.finishTheCommand(flag);
        bench.answers(answer, flag);
    };
}
/// The command finishes itself.
Step finishItself(bool success)
{
    return [=](Bench& bench) {
        bool flag = success;
        bool const answer = bench.command.commandFinish(flag);
        bench.answers(answer, flag);
    };
}

// What is to be done later.

/// In the handler of this instruction, in the "execution", or when the "signal" comes; once.
Step upon(char const* occasion, Step const& step)
{
    return [=](Bench& bench) { bench.reactions[QLatin1String(occasion)] = step; };
}
Step refuse(char const* instruction)
{
    return [=](Bench& bench) { bench.refused += QLatin1String(instruction); };
}

/// A step and what happens then; the last words are what the call answers.
struct Scene
{
    Step step;
    char const* outcome = "";
};

} // namespace

Q_DECLARE_METATYPE(Kind)
Q_DECLARE_METATYPE(Scene)

namespace
{

/// A row of a test that plays scenes one after another; it is added at the end of the statement.
class Row
{
public:
    /// The command has posted these instructions; without any, it is not executed yet.
    Row(char const* rule, Kind kind, char const* posted = nullptr) : m_rule(rule), m_kind(kind)
    {
        if (posted)
            then(start(posted));
    }
    ~Row()
    {
        QTest::addRow("%s: %s", m_kind == OneShot ? "one-shot" : "listening", m_rule) << m_kind << m_scenes;
    }
    Row(Row const&) = delete;
    Row& operator=(Row const&) = delete;

    Row& then(Step const& step, char const* outcome = "")
    {
        m_scenes.append({step, outcome});
        return *this;
    }

private:
    char const* m_rule;
    Kind m_kind;
    QVector<Scene> m_scenes;
};

void addColumns()
{
    QTest::addColumn<Kind>("kind");
    QTest::addColumn<QVector<Scene>>("scenes");
}

void play()
{
    QFETCH(Kind, kind);
    QFETCH(QVector<Scene>, scenes);
    Bench bench(kind);
    QStringList actual;
    QStringList expected;
    for (auto const& scene : qAsConst(scenes)) {
        actual += bench.outcome(scene.step);
        expected += QString::fromLatin1(scene.outcome);
    }
    QCOMPARE(actual, expected);
}

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

QStringList shown(QList<DDeclaration> const& declarations)
{
    QStringList lines;
    for (auto const& one : declarations)
        lines +=
            QStringList{one.key, one.typeTag, one.label, one.defaultValue.toString()}.join(QLatin1Char('|'));
    return lines;
}

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
        QTest::newRow("listening") << "startListening"_s
                                   << "stopListening"_s << true << true;
        QTest::newRow("without a name") << QString() << QString() << false << false;
        QTest::newRow("stop name alone") << QString() << "stopListening"_s << true << false;
    }

    void identity()
    {
        QFETCH(QString, name);
        QFETCH(QString, stop);
        OpenCommand const command(name, stop, {}, nullptr);
        QCOMPARE(command.commandName(), name);
        QCOMPARE(command.stopCommandName(), stop);
        QTEST(command.isRecurrent(), "isRecurrent");
        QTEST(command.isValid(), "isValid");

        OpenCommand const oneShot(name, {}, nullptr);
        QCOMPARE(oneShot.commandName(), name);
        QCOMPARE(oneShot.stopCommandName(), QString());
    }

    void declarations()
    {
        OpenCommand command;
        command.setDescription("Measures once"_s);
        command.declareAParameter("zeta"_s, "ui16"_s, "Z %1"_s, 1);
        command.declareAResult("second"_s, "int"_s, "S"_s, 2);
        command.declareAParameter("alpha"_s, "strg"_s, "A"_s, "a"_s);
        command.declareAResult("first"_s, "bool"_s, "F"_s, true);
        QCOMPARE(shown(command.commandArguments().parameters),
                 QStringList({"zeta|ui16|Z %1|1"_s, "alpha|strg|A|a"_s}));
        QCOMPARE(shown(command.commandArguments().results),
                 QStringList({"second|int|S|2"_s, "first|bool|F|true"_s}));
        QCOMPARE(command.description(), "Measures once"_s);
        QCOMPARE(command.fullDescription(), "Measures once\n"
                                            "parameter \"zeta\" (ui16): Z %1\n"
                                            "parameter \"alpha\" (strg): A\n"
                                            "result \"second\" (int): S\n"
                                            "result \"first\" (bool): F"_s);
    }

    void parameters_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QVariant>("section");
        auto const row = [](char const* key, QVariant const& value, QVariant const& section) {
            QTest::newRow(key) << QString::fromLatin1(key) << value << section;
        };
        QVariant const invalid;
        row("given and declared", 1, 1);
        row("given alone", 1, 1);
        row("given as zero", 0, 0);
        row("given as invalid", invalid, invalid);
        row("given with another type", "x"_s, "x"_s);
        row("given as a map", Map{{"name"_s, 7}}, Map{{"name"_s, 7}});
        row("declared alone", 2, invalid);
        row("declared as invalid", invalid, invalid);
        row("neither", 3, invalid);
    }

    void parameters()
    {
        OpenCommand command({{"given and declared"_s, 1},
                             {"given alone"_s, 1},
                             {"given as zero"_s, 0},
                             {"given as invalid"_s, QVariant()},
                             {"given with another type"_s, "x"_s},
                             {"given as a map"_s, Map{{"name"_s, 7}}}});
        for (auto const& key : {"given and declared"_s, "given as zero"_s, "given as invalid"_s,
                                "given with another type"_s, "given as a map"_s, "declared alone"_s})
            command.declareAParameter(key, "vart"_s, QString(), 2);
        command.declareAParameter("declared as invalid"_s, "vart"_s, QString(), QVariant());
        QFETCH(QString, key);
        QTEST(command.getParameterValue(key, QVariant(3)), "value");
        QTEST(command.getParametersSection(key), "section");
    }

    void parameterOrderId()
    {
        auto const idOf = [](Map const& parameters) {
            Bench bench;
            OpenCommand command(parameters);
            bench.order->execute(command);
            return command.getParameterOrderId();
        };
        QCOMPARE(idOf({}), quint64{0});
        QCOMPARE(idOf({{"orderId"_s, Q_UINT64_C(0x123456789abcdef0)}}), Q_UINT64_C(0x123456789abcdef0));
        QCOMPARE(idOf({{"orderId"_s, "17"_s}}), quint64{17});
        QCOMPARE(idOf({{"orderId"_s, "x"_s}}), quint64{0});
    }

    void results()
    {
        Bench bench;
        auto& command = bench.command;
        command.declareAParameter("program"_s, "ui16"_s, QString(), 1);
        command.declareAResult("data"_s, "vart"_s, QString(), QVariant());
        QCOMPARE(command.result("count"_s), QVariant(0));
        QCOMPARE(bench.outcome(publish("count", 4)), "true"_s); // nobody hears of it
        QCOMPARE(command.result("count"_s), QVariant(4));

        bench.outcome(start("one"));
        QCOMPARE(bench.outcome(publish("count", 5)), "result count 5, true"_s);
        QCOMPARE(bench.outcome(publish("count", 5)), "result count 5, true"_s);
        QCOMPARE(command.result("count"_s), QVariant(5));
        QCOMPARE(command.result("data"_s), QVariant());
        QCOMPARE(bench.outcome(publish("data", "x"_s)), "result data x, true"_s);
        for (char const* const undeclared : {"absent", "program"}) {
            QCOMPARE(bench.outcome(publish(undeclared, 1)), "false"_s);
            QCOMPARE(command.result(QLatin1String(undeclared)), QVariant());
        }
        QCOMPARE(command.commandArguments().results[0].defaultValue, QVariant(0));

        // The last value stays until another is stored.
        bench.outcome(reply("one"));
        bench.outcome(start("two"));
        QCOMPARE(command.result("count"_s), QVariant(5));
    }

    void instructionsArePostedAsGiven()
    {
        Bench bench;
        auto& order = *bench.order;
        OpenCommand command;
        order.execute(command);
        QCOMPARE(command.addInstruction("device"_s, "setLock"_s, {{"lock"_s, 1}}, 4000, {}), quint64{101});
        QCOMPARE(command.addInstruction("elsewhere"_s, "getInfo"_s, {}, -1, {}), quint64{102});
        QCOMPARE(order.posted[0].target, "device"_s);
        QCOMPARE(order.posted[0].name, "setLock"_s);
        QCOMPARE(order.posted[0].arguments, (Map{{"lock"_s, 1}}));
        QCOMPARE(order.posted[0].timeAllowance, 4000);
        QCOMPARE(order.posted[1].target, "elsewhere"_s);
        QCOMPARE(order.posted[1].name, "getInfo"_s);
        QCOMPARE(order.posted[1].arguments, Map());
        QCOMPARE(order.posted[1].timeAllowance, -1);
    }

    void replyReachesItsHandler()
    {
        class TwoHandlers : public OpenCommand
        {
        public:
            bool onOther(quint64 id, Map const& /*reply*/) { return id == 102; }
        };
        Bench bench;
        TwoHandlers command;
        command.onReply = [](quint64 id, Map const&) { return id == 101; };
        bench.order->execute(command);
        command.addInstruction("device"_s, "one"_s, {}, 0,
                               OpenCommand::OnReply(&command, &OpenCommand::replied));
        command.addInstruction("device"_s, "two"_s, {}, 0,
                               OpenCommand::OnReply(&command, &TwoHandlers::onOther));
        command.addInstruction("device"_s, "three"_s, {}, 0, nullptr);
        QVERIFY(command.setReply(102, {}));
        QVERIFY(command.setReply(101, {}));
        QVERIFY2(command.setReply(103, {}), "without a handler, any reply is accepted");
    }

    void oneShot_data()
    {
        addColumns();
        Row("executed, it posts its instructions", OneShot)
            .then(execute("one two"), "posted one, posted two, started, true")
            .then(awaitReplies, "true");
        Row("without instructions, it ends when it has started", OneShot)
            .then(execute(""), "started, signal true, succeeded, true")
            .then(awaitReplies, "false");
        Row("it ends with the last reply", OneShot, "one two three")
            .then(reply("three"), "handled three, true")
            .then(reply("one"), "handled one, true")
            .then(awaitReplies, "true")
            .then(reply("two", 8), "handled two 8, signal true, succeeded, true")
            .then(awaitReplies, "false");
        Row("a reply that is not accepted fails it, at its end", OneShot, "one two")
            .then(refuse("one"))
            .then(reply("one"), "handled one, false")
            .then(reply("two"),
                  "handled two, signal false, failed: the reply to \"one\" was not accepted, true");
        Row("the first reply that is not accepted is told", OneShot, "one two three")
            .then(refuse("two"))
            .then(refuse("three"))
            .then(reply("one"), "handled one, true")
            .then(reply("two"), "handled two, false")
            .then(reply("three"),
                  "handled three, signal false, failed: the reply to \"two\" was not accepted, false");
        Row("an instruction takes one reply", OneShot, "one two")
            .then(refuse("two"))
            .then(reply("one"), "handled one, true")
            .then(reply("one"), "dropped one, false")
            .then(reply("one"), "dropped one, false")
            .then(reply("two"),
                  "handled two, signal false, failed: the reply to \"two\" was not accepted, false")
            .then(reply("two"), "dropped two, false");
        Row("an answered instruction is never late", OneShot, "one two")
            .then(reply("one"), "handled one, true")
            .then(passAllowance("one"))
            .then(fail("one"))
            .then(withdraw("one"))
            .then(reply("two"), "handled two, signal true, succeeded, true");
        Row("a passed allowance fails it at once", OneShot, "one two three")
            .then(reply("one"), "handled one, true")
            .then(passAllowance("two"),
                  "withdrawn two, withdrawn three, signal false, failed: no reply to \"two\" within 1234 ms")
            .then(awaitReplies, "false")
            .then(passAllowance("three"))
            .then(reply("two"), "dropped two, false")
            .then(reply("three"), "dropped three, false");
        Row("a failed instruction fails it at once", OneShot, "one two")
            .then(fail("one"), "withdrawn two, signal false, failed: \"one\": gone %1")
            .then(awaitReplies, "false")
            .then(reply("one"), "dropped one, false")
            .then(reply("two"), "dropped two, false");
        Row("of a refused reply and a passed allowance, the first is told", OneShot, "one two")
            .then(refuse("one"))
            .then(reply("one"), "handled one, false")
            .then(passAllowance("two"),
                  "withdrawn two, signal false, failed: the reply to \"one\" was not accepted");
        Row("withdrawing one leaves the others", OneShot, "one two")
            .then(withdraw("one"), "withdrawn one")
            .then(withdraw("one"))
            .then(awaitReplies, "true")
            .then(reply("one"), "dropped one, false")
            .then(reply("two"), "handled two, signal true, succeeded, true");
        Row("withdrawing the last ends it", OneShot, "one")
            .then(withdraw("one"), "withdrawn one, signal true, succeeded");
        Row("withdrawing the last ends it, but not before it has started", OneShot)
            .then(upon("execution", withdraw("one")))
            .then(execute("one"), "posted one, withdrawn one, started, signal true, succeeded, true");
        Row("withdrawing the last in a handler ends it", OneShot, "one two")
            .then(upon("one", withdraw("two")))
            .then(reply("one"), "handled one, withdrawn two, signal true, succeeded, true");
        Row("a handler can withdraw one of several", OneShot, "one two three")
            .then(upon("one", withdraw("two")))
            .then(reply("one"), "handled one, withdrawn two, true")
            .then(reply("two"), "dropped two, false")
            .then(reply("three"), "handled three, signal true, succeeded, true");
        Row("a handler has nothing of its own to withdraw", OneShot, "one")
            .then(upon("one", withdraw("one")))
            .then(reply("one"), "handled one, signal true, succeeded, true")
            .then(reply("one"), "dropped one, false");
        Row("a handler can post another", OneShot, "one")
            .then(upon("one", post("two")))
            .then(upon("two", post("three")))
            .then(reply("one"), "handled one, posted two, true")
            .then(reply("two"), "handled two, posted three, true")
            .then(reply("three"), "handled three, signal true, succeeded, true");
        Row("a handler can post another and not accept", OneShot, "one")
            .then(upon("one", post("two")))
            .then(refuse("one"))
            .then(reply("one"), "handled one, posted two, false")
            .then(reply("two"),
                  "handled two, signal false, failed: the reply to \"one\" was not accepted, true");
        Row("a reply within a handler does not end it", OneShot, "one two")
            .then(upon("one", reply("two")))
            .then(reply("one"), "handled one, handled two, true, signal true, succeeded, true");
        Row("finished by the host in a handler, it withdraws the others", OneShot, "one two")
            .then(upon("one", finish(true)))
            .then(reply("one"), "handled one, withdrawn two, signal true, succeeded, true, success, true")
            .then(reply("two"), "dropped two, false");
        Row("failed within a handler, it ends once", OneShot, "one two")
            .then(upon("one", passAllowance("two")))
            .then(reply("one"), "handled one, withdrawn two, signal false, "
                                "failed: no reply to \"two\" within 1234 ms, true");
        Row("executed anew, it forgets its failure", OneShot, "one")
            .then(refuse("one"))
            .then(reply("one"),
                  "handled one, signal false, failed: the reply to \"one\" was not accepted, false")
            .then(execute("two"), "posted two, started, true")
            .then(reply("one"), "dropped one, false")
            .then(reply("two"), "handled two, signal true, succeeded, true");
        Row("executed anew, it takes what was left open", OneShot, "one")
            .then(finishItself(true), "signal true, succeeded, true, success")
            .then(execute("two"), "posted two, started, true")
            .then(reply("one"), "handled one, true")
            .then(reply("two"), "handled two, signal true, succeeded, true");
        Row("executed anew when it signals, it still tells of its former end", OneShot, "one")
            .then(refuse("one"))
            .then(upon("signal", executeAlone))
            .then(reply("one"), "handled one, signal false, posted one, started, true, "
                                "failed: the reply to \"one\" was not accepted, false")
            .then(withdraw("one"), "withdrawn one, signal true, succeeded");
    }

    void oneShot() { play(); }

    void listening_data()
    {
        addColumns();
        Row("without instructions, it runs until it is finished", Listening)
            .then(execute(""), "started, true")
            .then(finish(true), "signal true, succeeded, true, success");
        Row("an instruction takes any number of replies", Listening, "one")
            .then(reply("one", 1), "handled one 1, true")
            .then(reply("one", 2), "handled one 2, true")
            .then(awaitReplies, "false")
            .then(reply("one", 3), "handled one 3, true");
        Row("a reply that is not accepted changes nothing", Listening, "one")
            .then(refuse("one"))
            .then(reply("one"), "handled one, false")
            .then(reply("one"), "handled one, false")
            .then(finish(true), "withdrawn one, signal true, succeeded, true, success");
        Row("a passed allowance changes nothing", Listening, "one")
            .then(passAllowance("one"))
            .then(reply("one"), "handled one, true")
            .then(passAllowance("one"))
            .then(reply("one"), "handled one, true")
            .then(finish(true), "withdrawn one, signal true, succeeded, true, success");
        Row("it goes on without a failed instruction", Listening, "one two")
            .then(fail("one"))
            .then(reply("one"), "dropped one, false")
            .then(reply("two"), "handled two, true")
            .then(finish(true), "withdrawn two, signal true, succeeded, true, success");
        Row("it goes on without a withdrawn instruction", Listening, "one")
            .then(upon("one", withdraw("one")))
            .then(reply("one"), "handled one, withdrawn one, true")
            .then(reply("one"), "dropped one, false")
            .then(finish(true), "signal true, succeeded, true, success");
        Row("finished by the host in a handler, it withdraws all", Listening, "one two")
            .then(upon("one", finish(false)))
            .then(reply("one"), "handled one, withdrawn one, withdrawn two, signal false, failed: , "
                                "true, no success, true")
            .then(reply("one"), "dropped one, false");
        Row("when it finishes itself, those with a reply get no more, the others one", Listening, "one two")
            .then(reply("one"), "handled one, true")
            .then(finishItself(true), "signal true, succeeded, true, success")
            .then(awaitReplies, "true")
            .then(reply("one"), "dropped one, false")
            .then(reply("two"), "handled two, true")
            .then(awaitReplies, "false")
            .then(reply("two"), "dropped two, false");
        Row("when it finishes itself, what is late is withdrawn", Listening, "one two three")
            .then(passAllowance("one"))
            .then(passAllowance("two"))
            .then(reply("one"), "handled one, true")
            .then(finishItself(true), "signal true, succeeded, withdrawn two, true, success")
            .then(reply("three"), "handled three, true");
    }

    void listening() { play(); }

    void bothKinds_data()
    {
        addColumns();
        for (Kind const kind : {OneShot, Listening}) {
            Row("finished by the host, with success", kind, "one two")
                .then(finish(true), "withdrawn one, withdrawn two, signal true, succeeded, true, success")
                .then(awaitReplies, "false")
                .then(reply("one"), "dropped one, false");
            Row("finished by the host, without success", kind, "one")
                .then(finish(false), "withdrawn one, signal false, failed: , true, no success");
            Row("finishes itself in a handler, with success", kind, "one two")
                .then(upon("one", finishItself(true)))
                .then(reply("one"), "handled one, signal true, succeeded, true, success, true")
                .then(reply("two"), "handled two, true")
                .then(reply("two"), "dropped two, false");
            Row("finishes itself in a handler, without success", kind, "one two")
                .then(upon("one", finishItself(false)))
                .then(reply("one"), "handled one, signal false, failed: , true, no success, true")
                .then(reply("two"), "handled two, true");
            Row("what is left open may still be late", kind, "one two")
                .then(finishItself(true), "signal true, succeeded, true, success")
                .then(passAllowance("one"), "withdrawn one")
                .then(reply("one"), "dropped one, false")
                .then(awaitReplies, "true")
                .then(fail("two"))
                .then(awaitReplies, "false");
            Row("never executed, it cannot be finished", kind)
                .then(link)
                .then(finish(true), "false, no success")
                .then(finishItself(true), "false, no success");
            Row("it cannot be finished twice", kind, "one")
                .then(finish(true), "withdrawn one, signal true, succeeded, true, success")
                .then(finish(true), "false, no success")
                .then(finishItself(true), "false, no success");
            Row("what it does not know, it ignores", kind, "one")
                .then(passAllowance("unknown"))
                .then(fail("unknown"))
                .then(withdraw("unknown"))
                .then(reply("unknown"), "dropped , false")
                .then(awaitReplies, "true");
            Row("it awaits first replies of what it has posted", kind)
                .then(awaitReplies, "false")
                .then(link)
                .then(awaitReplies, "false")
                .then(start("one two"))
                .then(withdraw("one"), "withdrawn one")
                .then(awaitReplies, "true");
            Row("execution needs an order", kind)
                .then(executeAlone, "false")
                .then(finish(true), "false, no success")
                .then(link)
                .then(unlink)
                .then(executeAlone, "false")
                .then(link)
                .then(destroyOrder)
                .then(executeAlone, "false");
            Row("linked with its order again, it goes on", kind, "one two")
                .then(link)
                .then(awaitReplies, "true")
                .then(withdraw("one"), "withdrawn one");
            Row("without its order, it goes on to itself", kind, "one two three")
                .then(unlink)
                .then(awaitReplies, "false")
                .then(reply("one"), "handled one, true")
                .then(withdraw("two"))
                .then(reply("two"), "false")
                .then(finish(true), "signal true, true, success");
            Row("it outlives its order", kind, "one two three")
                .then(destroyOrder)
                .then(reply("one"), "handled one, true")
                .then(publish("count", 1), "true")
                .then(withdraw("two"))
                .then(reply("two"), "false")
                .then(executeAlone, "false")
                .then(finish(true), "signal true, true, success");
        }
    }

    void bothKinds() { play(); }

    void refusingCommandDoesNotRun()
    {
        class Refusing : public OpenCommand
        {
        public:
            bool commandExecute() override { return false; }
        };
        Bench bench;
        Refusing command;
        QCOMPARE(bench.order->execute(command), false);
        QCOMPARE(bench.log, QStringList());
    }

    void orderId()
    {
        QStringList log;
        auto order = std::make_unique<LoggingOrder>(log, std::numeric_limits<quint64>::max());
        QCOMPARE(order->id(), std::numeric_limits<quint64>::max());
        OpenCommand command;
        QCOMPARE(command.getOrderId(), quint64{0});
        command.linkWithItsOrder(order.get());
        QCOMPARE(command.getOrderId(), order->id());
        command.linkWithItsOrder(nullptr);
        QCOMPARE(command.getOrderId(), quint64{0});
        command.linkWithItsOrder(order.get());
        order.reset();
        QCOMPARE(command.getOrderId(), quint64{0});
    }

    void plainObjectMakesOrder()
    {
        Bench bench;
        auto object = std::make_unique<QObject>();
        bench.toPost = QStringList{"one"_s, "two"_s};
        bench.command.linkWithItsOrder(object.get());
        QCOMPARE(bench.command.getOrderId(), quint64{0});
        QCOMPARE(bench.outcome(executeAlone), "started, true"_s);
        QCOMPARE(bench.idOf("one"), quint64{1});
        QCOMPARE(bench.idOf("two"), quint64{2});
        QCOMPARE(bench.outcome(reply("one")), "handled one, true"_s);
        QCOMPARE(bench.outcome(reply("one")), "false"_s);
        QCOMPARE(bench.outcome(reply("two")), "handled two, signal true, true"_s);

        // Another run goes on counting: a late reply of the first run must not meet the second.
        QCOMPARE(bench.outcome(executeAlone), "started, true"_s);
        QCOMPARE(bench.idOf("one"), quint64{3});
        object.reset();
        QCOMPARE(bench.outcome(executeAlone), "false"_s);
    }

    void idsStayDistinctWithoutOrder()
    {
        Bench bench;
        bench.order->firstId = 1;
        bench.outcome(start("one two three"));
        bench.outcome(destroyOrder);
        bench.post("next"_s);
        QVERIFY2(bench.idOf("next") > 3, "an instruction that is still outstanding lost its id");
    }

    void foreignCommandIsExecuted()
    {
        Bench bench;
        auto& order = *bench.order;
        ForeignCommand command;
        QVERIFY(order.execute(command));
        QCOMPARE(command.executions, 1);
        QCOMPARE(command.linked, static_cast<QObject*>(&order));
        QCOMPARE(order.awaitsReplies(), false);
        order.allowancePassed(1);
        order.instructionFailed(1, "gone"_s);
        QCOMPARE(bench.log, QStringList());
    }

    void relinkingMovesCommand()
    {
        Bench bench;
        bench.outcome(start("one"));
        auto const former = std::move(bench.order);
        bench.order = std::make_unique<LoggingOrder>(bench.log, 8);
        bench.outcome(link);
        QCOMPARE(bench.command.getOrderId(), quint64{8});
        QVERIFY(!former->awaitsReplies());
        QVERIFY(bench.order->awaitsReplies());
        former->allowancePassed(bench.idOf("one"));
        former->instructionFailed(bench.idOf("one"), "gone"_s);
        QCOMPARE(bench.log, QStringList());
        // The new order has not posted the instruction and does not know its name.
        QCOMPARE(bench.outcome(fail("one")), "signal false, failed: \"one\": gone %1"_s);
    }

    void relinkingLeavesOthersOrderAlone()
    {
        Bench bench;
        OpenCommand earlier;
        bench.order->execute(earlier);
        bench.outcome(start("one"));
        // The order serves the later command now; what becomes of the earlier one is none of its business.
        Bench elsewhere;
        earlier.linkWithItsOrder(elsewhere.order.get());
        QCOMPARE(bench.outcome(awaitReplies), "true"_s);
    }

    void orderOutlivesCommand()
    {
        Bench bench;
        auto& order = *bench.order;
        {
            OpenCommand command;
            command.onExecute = [&command] { return command.addInstruction({}, "one"_s, {}, 0, {}) != 0; };
            QVERIFY(order.execute(command));
            QVERIFY(order.awaitsReplies());
        }
        QCOMPARE(order.awaitsReplies(), false);
        order.allowancePassed(101);
        order.instructionFailed(101, "gone"_s);
        QCOMPARE(bench.log, QStringList{"posted one"_s});

        OpenCommand next;
        QVERIFY(order.execute(next));
        QCOMPARE(bench.log, (QStringList{"posted one"_s, "succeeded"_s}));
    }

    void clonesAreIndependent()
    {
        QObject parent;
        OpenCommand prototype("measure"_s, {{"program"_s, 1}}, &parent);
        prototype.declareAResult("count"_s, "int"_s, QString(), 0);
        auto clone = prototype.createCommand({{"program"_s, 2}}).dynamicCast<OpenCommand>();
        QPointer<QObject> const watched = clone.data();
        QCOMPARE(clone->parent(), &parent);
        QCOMPARE(clone->getParametersSection("program"_s), QVariant(2));
        QCOMPARE(prototype.getParametersSection("program"_s), QVariant(1));
        clone->declareAResult("count"_s, "int"_s, QString(), 0);
        clone->commandUpdateResult("count"_s, 5);
        QCOMPARE(prototype.result("count"_s), QVariant(0));

        Bench bench;
        QVERIFY(bench.order->execute(*clone));
        QCOMPARE(prototype.getOrderId(), quint64{0});

        // It goes when the last who holds it lets go, even if that knows the interface alone.
        QSharedPointer<ICommand> face = clone;
        clone.reset();
        QVERIFY(watched);
        face.reset();
        QVERIFY(watched.isNull());
        QCOMPARE(parent.children(), QObjectList{&prototype});
    }
};

QTEST_GUILESS_MAIN(TestAbstractCommand)
#include "tst_abstract_command.moc"
