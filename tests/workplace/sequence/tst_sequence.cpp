#include "complaint.h"
#include "event_log.h"
#include "literals.h"
#include "scratch_folder.h"
#include "scripted_endpoint.h"
#include "scripted_plugin.h"

#include "host/run_event.h"
#include "host/tool.h"
#include "host/workstation.h"
#include "sequence/sequence.h"
#include "sequence/sequence_runner.h"

#include <files/variant_json.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <QtTest>

namespace
{

QString const device = "device"_s;

QList<DDeclaration> declared(QStringList const& keysAndTags)
{
    QList<DDeclaration> list;
    for (auto const& one : keysAndTags)
        list.append(
            {one.section(QLatin1Char(' '), 0, 0), one.section(QLatin1Char(' '), 1), QString(), QVariant()});
    return list;
}

/// The catalogue that the sequences are for.
QList<CommandScript> catalogue()
{
    auto const post = [](char const* target) {
        return [target](ScriptedCommand& command) {
            command.post(QString::fromLatin1(target), "go"_s);
            return true;
        };
    };
    CommandScript shot;
    shot.name = "shot"_s;
    shot.parameters = declared({"u ui16"_s, "i int"_s, "b bool"_s, "s strg"_s, "m varM"_s, "v vart"_s});
    shot.results = {{"n"_s, "int"_s, QString(), -1}, {"given"_s, "vart"_s, QString(), QVariant()}};
    shot.execute = [](ScriptedCommand& command) {
        command.post(device, "go"_s);
        command.publish("given"_s, command.parameter("v"_s));
        return true;
    };
    shot.onReply = [](ScriptedCommand& command, QVariantMap const& reply) {
        return command.publish("n"_s, reply.value("n"_s));
    };

    CommandScript listenA;
    listenA.name = "listenA"_s;
    listenA.stopName = "halt"_s;
    listenA.execute = post("device");
    listenA.results = shot.results;
    listenA.onReply = shot.onReply;

    CommandScript listenB = listenA;
    listenB.name = "listenB"_s;

    CommandScript locksAtTheEnd = listenA;
    locksAtTheEnd.name = "locksAtTheEnd"_s;
    locksAtTheEnd.stopName = "unlock"_s;
    locksAtTheEnd.onFinish = [](ScriptedCommand& command) {
        command.post(device, "lock"_s);
        return command.finish(true);
    };

    CommandScript silent;
    silent.name = "silent"_s;

    CommandScript lost;
    lost.name = "lost"_s;
    lost.execute = post("nowhere");

    CommandScript refuses;
    refuses.name = "refuses"_s;
    refuses.stopName = "never"_s;
    refuses.execute = [](ScriptedCommand&) { return false; };

    CommandScript stuck;
    stuck.name = "stuck"_s;
    stuck.skipsBase = true;

    CommandScript file;
    file.name = "file"_s;
    file.parameters = declared({"filePath strg"_s});

    return {shot, listenA, listenB, locksAtTheEnd, silent, lost, refuses, stuck, file};
}

char const* const c_knownOrders =
    "shot, listenA, listenB, locksAtTheEnd, silent, lost, refuses, stuck, file, halt, unlock, never";

/// A value's type and content in one text.
QString exactly(QVariant const& value)
{
    return QString::fromUtf8(toLine(toJson(value)).trimmed());
}

/// A sequence in one text, a line for each step.
QStringList shown(Sequence const& sequence)
{
    QStringList steps;
    for (auto const& step : sequence.steps) {
        if (auto const* const order = std::get_if<OrderStep>(&step))
            steps +=
                "order %1 %2 %3"_s.arg(order->command, exactly(order->parameters), exactly(order->expected))
                + (order->mustFail ? " fails"_s : QString());
        else if (auto const* const stop = std::get_if<StopStep>(&step))
            steps += "stop "_s + stop->stopCommand;
        else if (auto const* const await = std::get_if<AwaitStep>(&step))
            steps += "await %1 of %2 %3 within %4"_s.arg(await->key, await->command, exactly(await->value),
                                                         QString::number(await->within));
        else if (auto const* const trigger = std::get_if<TriggerStep>(&step))
            steps += "trigger %1"_s.arg(trigger->count);
        else if (auto const* const tighten = std::get_if<TightenStep>(&step))
            steps += "tighten %1"_s.arg(tighten->count);
        else if (std::holds_alternative<PressStep>(step))
            steps += "press reverse"_s;
        else
            steps += "wait %1"_s.arg(std::get<WaitStep>(step).duration);
    }
    return steps;
}

} // namespace

namespace
{

/// A workstation with one tool that has the catalogue, and a sequence that runs on it.
struct Bench
{
    Bench() { setup.state.presets[setup.state.program].maxTime = 100; } // no screw is tight then

    bool run(QByteArray const& steps)
    {
        ScratchFolder const folder;
        Sequence const sequence =
            readSequence(folder.write("in.json"_s, "{\"steps\": [" + steps + "]}"), tool.plugin());
        return runSteps(sequence);
    }
    bool runSteps(Sequence const& sequence)
    {
        workstation.connectEndpoint(device, endpoint);
        auto const controller = ZrtSimulatedController::create(setup, clock);
        return SequenceRunner(tool, *controller, workstation, clock).run(sequence);
    }

    ZrtClock clock{ZrtClock::Pace::Simulated};
    RunEvents events{clock};
    EventLog log{events};
    Workstation workstation{clock, events};
    ScriptedEndpoint endpoint{clock};
    ZrtSetup setup;
    ScriptedPlugin plugin{catalogue()};
    Tool tool{plugin, QUuid(), workstation};
};

/// A line of the log in few words.
QString brief(QString const& line)
{
    QJsonObject const event = QJsonDocument::fromJson(line.toUtf8()).object();
    auto const text = [&event](char const* key) {
        QJsonValue const value = event.value(QLatin1String(key));
        if (value.isBool())
            return value.toBool() ? "ok"_s : "failed"_s;
        return value.isDouble() ? QString::number(value.toDouble()) : value.toString();
    };
    QStringList words{text("time"), text("event")};
    for (char const* const key :
         {"order", "command", "running", "instruction", "name", "key", "success", "message", "action",
          "effect", "done", "failed", "notRun", "droppedReplies"}) {
        if (event.contains(QLatin1String(key)))
            words += text(key);
    }
    return words.join(QLatin1Char(' '));
}

} // namespace

/// Work sequences: what is read from their files, and how they run.
class TestSequence : public QObject
{
    Q_OBJECT

private slots:
    void accepts_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QStringList>("steps");

        auto const row = [](char const* name, char const* steps, QStringList const& expected) {
            QTest::newRow(name) << "{\"steps\": [" + QByteArray(steps) + "]}" << expected;
        };
        row("no steps", "", {});
        row("order", R"({"order": "silent"})", {"order silent {} {}"_s});
        row("empty parameters", R"({"order": "silent", "parameters": {}, "expect": {}})",
            {"order silent {} {}"_s});
        row("some parameters", R"({"order": "shot", "parameters": {"i": 1, "s": "x"}})",
            {R"(order shot {"i":1,"s":"x"} {})"_s});
        row("expectations of any type", R"({"order": "shot", "expect": {"n": "text", "given": [1.5, null]}})",
            {R"(order shot {} {"given":[1.5,null],"n":"text"})"_s});
        row("listener", R"({"order": "listenA"})", {"order listenA {} {}"_s});
        row("stop", R"({"order": "halt"})", {"stop halt"_s});
        row("order that must fail", R"({"order": "lost", "fails": true})", {"order lost {} {} fails"_s});
        row("order that need not fail", R"({"order": "lost", "fails": false})", {"order lost {} {}"_s});
        row("await", R"({"await": "n", "of": "listenA", "value": {"x": [1]}})",
            {R"(await n of listenA {"x":[1]} within 10000)"_s});
        row("await for some time", R"({"await": "given", "of": "listenB", "value": null, "within": 0})",
            {"await given of listenB null within 0"_s});
        row("tighten", R"({"tighten": 1}, {"tighten": 10000})", {"tighten 1"_s, "tighten 10000"_s});
        row("trigger", R"({"trigger": 1}, {"trigger": 10000})", {"trigger 1"_s, "trigger 10000"_s});
        row("press", R"({"press": "reverse"})", {"press reverse"_s});
        row("no wait", R"({"wait": 0})", {"wait 0"_s});
        row("longest wait", R"({"wait": 86400000})", {"wait 86400000"_s});
        row("in order", R"({"order": "listenA"}, {"wait": 5}, {"order": "silent"}, {"order": "halt"})",
            {"order listenA {} {}"_s, "wait 5"_s, "order silent {} {}"_s, "stop halt"_s});
    }

    void accepts()
    {
        QFETCH(QByteArray, content);
        QFETCH(QStringList, steps);
        Sequence const sequence = read(content);
        QCOMPARE(shown(sequence), steps);
        QCOMPARE(sequence.controllerFile, QString());
    }

    void parameterValues_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QString>("result"); // the value as it is passed on, or the complaint

        QString const ui16 = "must be a whole number from 0 to 65535"_s;
        QString const int32 = "must be a whole number from -2147483648 to 2147483647"_s;
        auto const wrong = [](char const* wanted, char const* given) {
            return "must be %1, not %2"_s.arg(QLatin1String(wanted), QLatin1String(given));
        };
        auto const row = [](char const* value, QStringList const& results) {
            char const* const keys[] = {"u", "i", "b", "s", "m", "v"};
            for (int i = 0; i < 6; ++i)
                QTest::addRow("%s = %s", keys[i], value)
                    << QString::fromLatin1(keys[i]) << QByteArray(value)
                    << (results[i].isEmpty() ? QString::fromUtf8(value) : results[i]);
        };
        auto const number = [&](char const* value, QString const& asUi16, QString const& asInt,
                                char const* asVart = "") {
            char const* const kind = "a number";
            row(value, {asUi16, asInt, wrong("true or false", kind), wrong("a text", kind),
                        wrong("an object", kind), QString::fromLatin1(asVart)});
        };
        number("0", {}, {});
        number("65535", {}, {});
        number("65536", ui16, {});
        number("-1", ui16, {});
        number("2147483647", ui16, {});
        number("-2147483648", ui16, {});
        number("2147483648", ui16, int32, R"({"@type":"qlonglong","@value":2147483648})");
        number("-2147483649", ui16, int32, R"({"@type":"qlonglong","@value":-2147483649})");
        number("18446744073709551615", ui16, int32,
               R"({"@type":"qulonglong","@value":18446744073709551615})");
        number("1.5", ui16, int32);
        number("1.0", ui16, int32);
        number("1e3", ui16, int32, "1000.0");
        auto const other = [&](char const* value, char const* kind, int fitsTag) {
            QStringList results = {ui16,
                                   int32,
                                   wrong("true or false", kind),
                                   wrong("a text", kind),
                                   wrong("an object", kind),
                                   QString()};
            if (fitsTag >= 0)
                results[fitsTag].clear();
            row(value, results);
        };
        other("true", "a truth value", 2);
        other("false", "a truth value", 2);
        other("\"\"", "a text", 3);
        other("\"1\"", "a text", 3);
        other("{}", "an object", 4);
        other(R"({"a":{"b":[1,2.5,null]}})", "an object", 4);
        other("[]", "a list", -1);
        other("[1,\"x\"]", "a list", -1);
        other("null", "null", -1);
    }

    void parameterValues()
    {
        QFETCH(QString, key);
        QFETCH(QByteArray, value);
        QFETCH(QString, result);
        QByteArray const content = "{\"steps\": [{\"order\": \"shot\", \"parameters\": {\"" + key.toUtf8()
                                   + "\":\n" + value + "}}]}";
        if (!result.startsWith("must"_s)) {
            QCOMPARE(shown(read(content)), QStringList{"order shot {\"%1\":%2} {}"_s.arg(key, result)});
            return;
        }
        QCOMPARE(complaintOf([&] { read(content); }),
                 m_folder.filePath("in.json"_s) + ":2: steps[0].parameters.%1: %2"_s.arg(key, result));
    }

    void refuses_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("message");

        auto const row = [](char const* name, QByteArray const& content, char const* message) {
            QTest::newRow(name) << content << QString::fromLatin1(message);
        };
        auto const step = [&row](char const* name, char const* content, char const* message) {
            row(name, "{\"steps\": [\n" + QByteArray(content) + "]}", message);
        };
        row("list", "[]", "1: must be an object, not a list");
        row("no steps", "{}", "1: the key \"steps\" is missing");
        row("unknown key", "{\"steps\": [],\n\"step\": []}",
            "2: unknown key \"step\", known are tool, controller, steps");
        row("steps as object", "{\"steps\": {}}", "1: steps: must be a list, not an object");
        row("controller as number", "{\"steps\": [], \"controller\": 1}",
            "1: controller: must be a text, not a number");
        row("key twice", "{\"steps\": [],\n\"steps\": []}",
            "2: the key \"steps\" stands twice in one object");
        step("step as text", "\"init\"", "2: steps[0]: must be an object, not a text");
        step("empty step", "{}",
             "2: steps[0]: must have one of the keys order, await, tighten, trigger, press, wait");
        step("step without order", "{\"parameters\": {}}",
             "2: steps[0]: must have one of the keys order, await, tighten, trigger, press, wait");
        step("order as number", "{\"order\": 1}", "2: steps[0].order: must be a text, not a number");
        QByteArray const known = c_knownOrders;
        step("unknown order", "{\"order\": \"init\"}",
             "2: steps[0].order: unknown order \"init\", known are " + known);
        step("order in another case", "{\"order\": \"Shot\"}",
             "2: steps[0].order: unknown order \"Shot\", known are " + known);
        step("empty order", "{\"order\": \"\"}", "2: steps[0].order: unknown order \"\", known are " + known);
        step("second step", "{\"order\": \"silent\"},\n{\"order\":\n\"x\"}",
             "4: steps[1].order: unknown order \"x\", known are " + known);
        step("unknown key of an order", "{\"order\": \"shot\",\n\"parameter\": {}}",
             "3: steps[0]: unknown key \"parameter\", known are order, parameters, expect, fails");
        step("order and wait", "{\"order\": \"shot\",\n\"wait\": 1}",
             "3: steps[0]: unknown key \"wait\", known are order, parameters, expect, fails");
        step("unknown parameter", "{\"order\": \"shot\", \"parameters\": {\n\"x\": 1}}",
             "3: steps[0].parameters.x: unknown parameter, known are u, i, b, s, m, v");
        step("parameter where there are none", "{\"order\": \"silent\", \"parameters\": {\n\"x\": 1}}",
             "3: steps[0].parameters.x: the command takes no parameters");
        step("parameters as list", "{\"order\": \"shot\", \"parameters\": []}",
             "2: steps[0].parameters: must be an object, not a list");
        step("unknown result", "{\"order\": \"shot\", \"expect\": {\n\"x\": 1}}",
             "3: steps[0].expect.x: unknown result, known are n, given");
        step("result where there are none", "{\"order\": \"silent\", \"expect\": {\n\"x\": 1}}",
             "3: steps[0].expect.x: the command has no results");
        step("expect as list", "{\"order\": \"shot\", \"expect\": []}",
             "2: steps[0].expect: must be an object, not a list");
        step("expect on a listener", "{\"order\": \"listenA\",\n\"expect\": {\"n\": 1}}",
             "3: steps[0].expect: \"listenA\" runs until it is stopped; await its results");
        step("empty expect on a listener", "{\"order\": \"listenA\",\n\"expect\": {}}",
             "3: steps[0].expect: \"listenA\" runs until it is stopped; await its results");
        step("stop with parameters", "{\"order\": \"halt\",\n\"parameters\": {}}",
             "3: steps[0]: unknown key \"parameters\", known are order");
        step("stop with expect", "{\"order\": \"halt\",\n\"expect\": {}}",
             "3: steps[0]: unknown key \"expect\", known are order");
        step("fails as number", "{\"order\": \"shot\",\n\"fails\": 1}",
             "3: steps[0].fails: must be true or false, not a number");
        step("fails on a listener", "{\"order\": \"listenA\",\n\"fails\": true}",
             "3: steps[0].fails: \"listenA\" runs until it is stopped; await its results");
        step("await without a command", "{\"await\": \"n\", \"value\": 1}",
             "2: steps[0]: the key \"of\" is missing");
        step("await without a value", "{\"await\": \"n\", \"of\": \"listenA\"}",
             "2: steps[0]: the key \"value\" is missing");
        step("await of a one-shot command", "{\"await\": \"n\", \"value\": 1,\n\"of\": \"shot\"}",
             "3: steps[0].of: \"shot\" is no command that runs until it is stopped");
        step("await of an unknown command", "{\"await\": \"n\", \"value\": 1,\n\"of\": \"x\"}",
             "3: steps[0].of: \"x\" is no command that runs until it is stopped");
        step("await of a stop", "{\"await\": \"n\", \"value\": 1,\n\"of\": \"halt\"}",
             "3: steps[0].of: \"halt\" is no command that runs until it is stopped");
        step("await of an unknown result", "{\"of\": \"listenA\", \"value\": 1,\n\"await\": \"x\"}",
             "3: steps[0].await: unknown result, known are n, given");
        step("await for less than no time",
             "{\"await\": \"n\", \"of\": \"listenA\", \"value\": 1, \"within\": -1}",
             "2: steps[0].within: must be a whole number from 0 to 86400000");
        step("await for more than a day",
             "{\"await\": \"n\", \"of\": \"listenA\", \"value\": 1, \"within\": 86400001}",
             "2: steps[0].within: must be a whole number from 0 to 86400000");
        step("await with more", "{\"await\": \"n\", \"of\": \"listenA\", \"value\": 1,\n\"for\": 1}",
             "3: steps[0]: unknown key \"for\", known are await, of, value, within");
        step("tighten nothing", "{\"tighten\": 0}",
             "2: steps[0].tighten: must be a whole number from 1 to 10000");
        step("tighten too often", "{\"tighten\": 10001}",
             "2: steps[0].tighten: must be a whole number from 1 to 10000");
        step("tighten with more", "{\"tighten\": 1,\n\"within\": 1}",
             "3: steps[0]: unknown key \"within\", known are tighten");
        step("no pull of the trigger", "{\"trigger\": 0}",
             "2: steps[0].trigger: must be a whole number from 1 to 10000");
        step("trigger with more", "{\"trigger\": 1,\n\"wait\": 1}",
             "3: steps[0]: unknown key \"wait\", known are trigger");
        step("press another", "{\"press\":\n\"start\"}", "3: steps[0].press: must be \"reverse\"");
        step("press with more", "{\"press\": \"reverse\",\n\"times\": 2}",
             "3: steps[0]: unknown key \"times\", known are press");
        row("tool as text", "{\"steps\": [], \"tool\": \"left\"}", "1: tool: must be an object, not a text");
        row("unknown key of the tool", "{\"steps\": [], \"tool\": {\n\"serial\": \"\"}}",
            "2: tool: unknown key \"serial\", known are name, serialNumber, validityDate");
        row("serial number as number", "{\"steps\": [], \"tool\": {\"serialNumber\": 7}}",
            "1: tool.serialNumber: must be a text, not a number");
        step("wait below", "{\"wait\": -1}", "2: steps[0].wait: must be a whole number from 0 to 86400000");
        step("wait above", "{\"wait\": 86400001}",
             "2: steps[0].wait: must be a whole number from 0 to 86400000");
        step("wait as text", "{\"wait\": \"1 s\"}",
             "2: steps[0].wait: must be a whole number from 0 to 86400000");
        step("wait with more", "{\"wait\": 1,\n\"unit\": \"s\"}",
             "3: steps[0]: unknown key \"unit\", known are wait");
        // The whole is checked, not just what comes first.
        step("last of many", (QByteArray("{\"wait\": 1},\n").repeated(99) + "{\"wait\": null}").constData(),
             "101: steps[99].wait: must be a whole number from 0 to 86400000");
    }

    void refuses()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, message);
        QCOMPARE(complaintOf([&] { read(content); }),
                 m_folder.filePath("in.json"_s) + QLatin1Char(':') + message);
    }

    void controllerFile_data()
    {
        QTest::addColumn<QString>("given");
        QTest::addColumn<QString>("expected"); // FOLDER for the sequence's folder
        QTest::newRow("beside") << "c.json"_s
                                << "FOLDER/c.json"_s;
        QTest::newRow("below") << "a/b/c.json"_s
                               << "FOLDER/a/b/c.json"_s;
        QTest::newRow("above") << "../c.json"_s
                               << "FOLDER/../c.json"_s;
        QTest::newRow("absolute") << "/a/c.json"_s
                                  << "/a/c.json"_s;
    }

    void controllerFile()
    {
        QFETCH(QString, given);
        QFETCH(QString, expected);
        QByteArray const content = "{\"controller\": \"" + given.toUtf8() + "\", \"steps\": []}";
        QCOMPARE(read(content).controllerFile, QString(expected).replace("FOLDER"_s, m_folder.path()));

        // A sequence that is named by a relative path has its controller beside it too.
        QString const before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(m_folder.path()));
        QString const relative = readSequence("in.json"_s, m_plugin).controllerFile;
        QVERIFY(QDir::setCurrent(before));
        QCOMPARE(QDir(m_folder.path()).absoluteFilePath(relative),
                 QDir(m_folder.path()).absoluteFilePath(QString(expected).replace("FOLDER"_s, "."_s)));
    }

    void runs_data()
    {
        QTest::addColumn<QByteArray>("steps");
        QTest::addColumn<QList<qint64>>("replyTimes");
        QTest::addColumn<bool>("succeeds");
        QTest::addColumn<QStringList>("events");

        auto const row = [](char const* name, char const* steps, bool succeeds, char const* events,
                            QList<qint64> const& replyTimes = {5}) {
            QTest::newRow(name) << QByteArray(steps) << replyTimes << succeeds
                                << QString::fromLatin1(events).split("; "_s);
        };
        row("nothing", "", true, "0 end 0 0 0 0");
        row("one", R"({"order": "shot"})", true,
            "0 order 1 shot; 0 instruction 1 1 go; 0 result 1 given; 5 reply 1 1; 5 result 1 n; "
            "5 finished 1 shot ok; 5 end 1 0 0 0");
        row("each waits for the one before", R"({"order": "shot"}, {"order": "silent"}, {"order": "shot"})",
            true,
            "0 order 1 shot; 0 instruction 1 1 go; 0 result 1 given; 5 reply 1 1; 5 result 1 n; "
            "5 finished 1 shot ok; 5 order 2 silent; 5 finished 2 silent ok; "
            "5 order 3 shot; 5 instruction 3 2 go; 5 result 3 given; 10 reply 3 2; 10 result 3 n; "
            "10 finished 3 shot ok; 10 end 3 0 0 0");
        row("waits", R"({"wait": 100}, {"order": "silent"}, {"wait": 0}, {"wait": 7}, {"order": "silent"})",
            true,
            "100 order 1 silent; 100 finished 1 silent ok; 107 order 2 silent; 107 finished 2 silent ok; "
            "107 end 5 0 0 0");
        row("listener goes on while time passes",
            R"({"order": "listenA"}, {"wait": 6}, {"order": "silent"}, {"order": "halt"})", true,
            "0 order 1 listenA; 0 instruction 1 1 go; 5 reply 1 1; 5 result 1 n; 6 order 2 silent; "
            "6 finished 2 silent ok; 6 stop halt 1; 6 withdrawn 1 1; 6 finished 1 listenA ok; 6 end 4 0 0 0");
        row("stop ends all of its name", R"({"order": "listenA"}, {"order": "listenB"}, {"order": "halt"})",
            true,
            "0 order 1 listenA; 0 instruction 1 1 go; 0 order 2 listenB; 0 instruction 2 2 go; 0 stop halt "
            "2; "
            "0 withdrawn 1 1; 0 finished 1 listenA ok; 0 withdrawn 2 2; 0 finished 2 listenB ok; 0 end 3 0 0 "
            "0");
        row("listeners are finished at the end", R"({"order": "listenA"}, {"order": "listenB"}, {"wait": 5})",
            true,
            "0 order 1 listenA; 0 instruction 1 1 go; 0 order 2 listenB; 0 instruction 2 2 go; "
            "5 reply 1 1; 5 result 1 n; 5 reply 2 2; 5 result 2 n; "
            "5 stopAll 2; 5 withdrawn 1 1; 5 finished 1 listenA ok; 5 withdrawn 2 2; 5 finished 2 listenB "
            "ok; 5 "
            "end 3 0 0 0");
        row("failing order ends it",
            R"({"order": "silent"}, {"order": "lost"}, {"order": "shot"}, {"wait": 1})", false,
            "0 order 1 silent; 0 finished 1 silent ok; 0 order 2 lost; 0 instruction 2 1 go; 0 notDelivered "
            "2 1 "
            "go; "
            "0 finished 2 lost failed \"go\": endpoint \"nowhere\" is gone; 0 end 1 1 2 0");
        row("no reply in time ends it", R"({"order": "shot"}, {"order": "shot"})", false,
            "0 order 1 shot; 0 instruction 1 1 go; 0 result 1 given; 4000 withdrawn 1 1; "
            "4000 finished 1 shot failed no reply to \"go\" within 4000 ms; 4000 end 0 1 1 0",
            {4001});
        row("listeners are finished after a failure",
            R"({"order": "listenA"}, {"order": "lost"}, {"wait": 1})", false,
            "0 order 1 listenA; 0 instruction 1 1 go; 0 order 2 lost; 0 instruction 2 2 go; 0 notDelivered 2 "
            "2 "
            "go; "
            "0 finished 2 lost failed \"go\": endpoint \"nowhere\" is gone; 0 stopAll 1; "
            "0 withdrawn 1 1; 0 finished 1 listenA ok; 0 end 1 1 1 0");
        row("listener that refuses to start", R"({"order": "refuses"}, {"wait": 1})", false,
            "0 order 1 refuses; 0 finished 1 refuses failed the command refused to start; 0 end 0 1 1 0");
        row("stop with nothing running", R"({"order": "halt"}, {"wait": 1})", false,
            "0 stop halt 0; 0 end 0 1 1 0");
        row("stop twice", R"({"order": "listenA"}, {"order": "halt"}, {"order": "halt"})", false,
            "0 order 1 listenA; 0 instruction 1 1 go; 0 stop halt 1; 0 withdrawn 1 1; "
            "0 finished 1 listenA ok; 0 stop halt 0; 0 end 2 1 0 0");
        row("stop of another", R"({"order": "listenA"}, {"order": "unlock"})", false,
            "0 order 1 listenA; 0 instruction 1 1 go; 0 stop unlock 0; 0 stopAll 1; 0 withdrawn 1 1; "
            "0 finished 1 listenA ok; 0 end 1 1 0 0");
        row("must fail and does", R"({"order": "lost", "fails": true}, {"order": "silent"})", true,
            "0 order 1 lost; 0 instruction 1 1 go; 0 notDelivered 1 1 go; "
            "0 finished 1 lost failed \"go\": endpoint \"nowhere\" is gone; "
            "0 order 2 silent; 0 finished 2 silent ok; 0 end 2 0 0 0");
        row("must fail and does not", R"({"order": "silent", "fails": true}, {"wait": 1})", false,
            "0 order 1 silent; 0 finished 1 silent ok; "
            "0 waitFailed the order succeeded, but should have failed; 0 end 0 1 1 0");
        row("await what is there",
            R"({"order": "listenA"}, {"wait": 5}, {"await": "n", "of": "listenA", "value": 0})", true,
            "0 order 1 listenA; 0 instruction 1 1 go; 5 reply 1 1; 5 result 1 n; 5 stopAll 1; 5 withdrawn 1 "
            "1; "
            "5 finished 1 listenA ok; 5 end 3 0 0 0");
        row("await what comes",
            R"({"order": "listenA"}, {"await": "n", "of": "listenA", "value": 1, "within": 8})", true,
            "0 order 1 listenA; 0 instruction 1 1 go; 5 reply 1 1; 5 result 1 n; 8 reply 1 1; 8 result 1 n; "
            "8 stopAll 1; 8 withdrawn 1 1; 8 finished 1 listenA ok; 8 end 2 0 0 0",
            {5, 8, 9});
        row("await what comes too late",
            R"({"order": "listenA"}, {"await": "n", "of": "listenA", "value": 1, "within": 7})", false,
            "0 order 1 listenA; 0 instruction 1 1 go; 5 reply 1 1; 5 result 1 n; "
            "7 waitFailed n of \"listenA\" did not become 1 within 7 ms; "
            "7 stopAll 1; 7 withdrawn 1 1; 7 finished 1 listenA ok; 7 end 1 1 0 0",
            {5, 8, 9});
        row("await of what does not run", R"({"await": "n", "of": "listenA", "value": 1})", false,
            "0 waitFailed \"listenA\" is not running; 0 end 0 1 0 0");
        row("await of what has been stopped",
            R"({"order": "listenA"}, {"order": "halt"}, {"await": "n", "of": "listenA", "value": -1})", false,
            "0 order 1 listenA; 0 instruction 1 1 go; 0 stop halt 1; 0 withdrawn 1 1; 0 finished 1 listenA "
            "ok; "
            "0 waitFailed \"listenA\" is not running; 0 end 2 1 0 0");
        row("tighten", R"({"tighten": 2}, {"order": "silent"})", true,
            "0 person pulls the trigger; 600 person pulls the trigger; 1200 order 1 silent; 1200 finished 1 "
            "silent ok; "
            "1200 end 2 0 0 0");
        row("loosen", R"({"press": "reverse"}, {"trigger": 1}, {"press": "reverse"}, {"tighten": 1})", true,
            "0 person presses reverse the tool loosens now; 0 person pulls the trigger; "
            "600 person presses reverse the tool fastens now; 600 person pulls the trigger; 1200 end 4 0 0 "
            "0");
        row("tighten while set to loosen", R"({"press": "reverse"}, {"tighten": 1}, {"wait": 1})", false,
            "0 person presses reverse the tool loosens now; "
            "0 waitFailed the tool is set to loosen, it cannot tighten; 0 end 1 1 1 0");
        row("duplicate replies are counted", R"({"order": "shot"}, {"wait": 10})", true,
            "0 order 1 shot; 0 instruction 1 1 go; 0 result 1 given; 5 reply 1 1; 5 result 1 n; 5 finished 1 "
            "shot ok; "
            "5 reply 1 1; 5 dropped 1 1; 9 reply 1 1; 9 dropped 1 1; 15 end 2 0 0 2",
            {5, 5, 9});
    }

    void runs()
    {
        QFETCH(QByteArray, steps);
        QFETCH(QList<qint64>, replyTimes);
        QFETCH(bool, succeeds);
        QFETCH(QStringList, events);
        Bench bench;
        bench.endpoint.replyTimes = replyTimes;
        QCOMPARE(bench.run(steps), succeeds);
        QStringList happened;
        for (auto const& line : qAsConst(bench.log.lines))
            happened += brief(line);
        QCOMPARE(happened.join("\n"_s), events.join("\n"_s));
        QVERIFY(!bench.tool.hasOrders());
    }

    void lockedTool()
    {
        // The person tells and goes on.
        Bench bench;
        bench.setup.state.lock = ZrtState::AllLocked;
        QVERIFY(bench.run(R"({"tighten": 2})"));
        QStringList happened;
        for (auto const& line : qAsConst(bench.log.lines))
            happened += brief(line);
        QCOMPARE(happened.join("; "_s),
                 "0 person pulls the trigger but the tool is locked; "
                 "500 person pulls the trigger but the tool is locked; 1000 end 1 0 0 0"_s);
    }

    void toolRecord()
    {
        Sequence const sequence =
            read(R"({"tool": {"name": "left", "serialNumber": "S", "validityDate": "2027-03-31"},
                                       "steps": [{"order": "silent"},
                                                 {"order": "shot", "parameters": {"s": "x", "i": 1}}]})");
        Bench bench;
        QVERIFY(bench.runSteps(sequence));
        QCOMPARE(bench.log.of("order"_s).filter("\"command\":\"silent\""_s).first(),
                 R"({"time":0,"event":"order","order":1,"command":"silent",)"
                 R"("parameters":{"name":"left","serialNumber":"S","validityDate":"2027-03-31"}})"_s);
        QVERIFY(bench.log.lines.contains(
            R"({"time":0,"event":"order","order":2,"command":"shot",)"
            R"("parameters":{"i":1,"name":"left","s":"x","serialNumber":"S","validityDate":"2027-03-31"}})"_s));
    }

    void filePath()
    {
        // Like the controller's set-up, a file is looked for beside the sequence.
        auto const given = [this](char const* path) {
            auto const sequence = read("{\"steps\": [{\"order\": \"file\", \"parameters\": {\"filePath\": \""
                                       + QByteArray(path) + "\"}}]}");
            return std::get<OrderStep>(sequence.steps[0]).parameters.value("filePath"_s).toString();
        };
        QCOMPARE(given("a/b.json"), m_folder.path() + "/a/b.json"_s);
        QCOMPARE(given("/a/b.json"), "/a/b.json"_s);
    }

    void expectations_data()
    {
        QTest::addColumn<QByteArray>("given");    // what the command publishes as "given"
        QTest::addColumn<QByteArray>("expected"); // what is expected of it
        QTest::addColumn<bool>("isMet");

        auto const row = [](char const* given, char const* expected, bool isMet) {
            QTest::addRow("%s is %s", given, expected) << QByteArray(given) << QByteArray(expected) << isMet;
        };
        row("true", "true", true);
        row("true", "false", false);
        row("7", "7", true);
        row("7", "8", false);
        row("7", "7.0", true);
        row("7", "7.5", false);
        row("4294967303", "7", false);
        row("\"a\"", "\"a\"", true);
        row("\"a\"", "\"A\"", false);
        row("\"\"", "\"\"", true);
        row("null", "null", true);
        row("[1,2]", "[1,2]", true);
        row("[1,2]", "[2,1]", false);
        row("[1,2]", "[1]", false);
        row(R"({"a":1})", R"({"a":1})", true);
        row(R"({"a":1})", R"({"a":2})", false);
        // Of a map, what is given counts.
        row(R"({"a":1,"b":2})", R"({"b":2})", true);
        row(R"({"a":{"b":2,"c":3}})", R"({"a":{"c":3}})", true);
        row(R"({"a":{"b":2,"c":3}})", R"({"a":{"c":2}})", false);
        row(R"({"a":1})", R"({})", true);
        row("{}", R"({"a":null})", false);
        row(R"([{"a":1,"b":2}])", R"([{"b":2}])", false);
        row("[]", "{}", false);
        // Another kind of value is another value.
        row("true", "\"true\"", false);
        row("true", "1", false);
        row("true", "\"yes\"", false);
        row("7", "\"7\"", false);
        row("\"7\"", "7", false);
        row("0", "false", false);
        row("\"\"", "false", false);
        row("null", "false", false);
        row("null", "0", false);
        row("null", "\"\"", false);
        row("0", "null", false);
        row("[]", "null", false);
        row("[1]", "[\"1\"]", false);
        row(R"({"a":true})", R"({"a":1})", false);
    }

    void expectations()
    {
        QFETCH(QByteArray, given);
        QFETCH(QByteArray, expected);
        QFETCH(bool, isMet);
        Bench bench;
        bool const succeeded = bench.run("{\"order\": \"shot\", \"parameters\": {\"v\": " + given
                                         + "}, \"expect\": {\"n\": 0, \"given\": " + expected + "}}");
        QCOMPARE(succeeded, isMet);
        auto const missed = bench.log.of("unexpected"_s);
        QCOMPARE(missed.size(), isMet ? 0 : 1);
        if (!isMet) {
            QByteArray const actual =
                given == "4294967303" ? R"({"@type":"qlonglong","@value":4294967303})" : given;
            QCOMPARE(
                missed.first(),
                R"({"time":5,"event":"unexpected","order":1,"key":"given","expected":%1,"actual":%2})"_s.arg(
                    QString::fromUtf8(expected), QString::fromUtf8(actual)));
        }
        QCOMPARE(brief(bench.log.lines.last()), isMet ? "5 end 1 0 0 0"_s : "5 end 0 1 0 0"_s);
    }

    void listenersAreDrained()
    {
        // What a listener posts at its end is still answered.
        Bench bench;
        QVERIFY(bench.run(R"({"order": "locksAtTheEnd"}, {"wait": 20})"));
        QCOMPARE(bench.endpoint.got.last().first, "lock"_s);
        QStringList happened;
        for (auto const& line : bench.log.lines.mid(bench.log.lines.size() - 5))
            happened += brief(line);
        QCOMPARE(happened.join("\n"_s),
                 "20 instruction 1 2 lock\n20 finished 1 locksAtTheEnd ok\n25 reply 1 2\n25 result 1 n\n"
                 "25 end 2 0 0 0"_s);

        // Or its time allowance passes.
        Bench silent;
        silent.endpoint.replyTimes = {};
        QVERIFY(silent.run(R"({"order": "locksAtTheEnd"}, {"wait": 20})"));
        QCOMPARE(brief(silent.log.lines.last()), "4020 end 2 0 0 0"_s);
        QVERIFY(!silent.tool.hasOrders());
    }

    void ordersAreReleased()
    {
        Bench bench;
        QVERIFY(
            bench.run(R"({"order": "shot"}, {"order": "listenA"}, {"order": "silent"}, {"order": "halt"})"));
        QCOMPARE(bench.plugin.journal(),
                 QStringList({"working shot"_s, "working silent"_s, "working listenA"_s}));
    }

    void commandThatNeverEnds()
    {
        // It says that it has started, but neither posts anything nor finishes: nobody waits for ever, and
        // the order tells why it failed.
        Bench bench;
        QVERIFY(!bench.run(R"({"order": "stuck"}, {"wait": 1})"));
        QStringList happened;
        for (auto const& line : qAsConst(bench.log.lines))
            happened += brief(line);
        QCOMPARE(happened.join("; "_s),
                 "0 order 1 stuck; 0 finished 1 stuck failed the command waits for nothing and does not "
                 "end; 0 end 0 1 1 0"_s);
    }

private:
    Sequence read(QByteArray const& content)
    {
        return readSequence(m_folder.write("in.json"_s, content), m_plugin);
    }

    ScratchFolder m_folder;
    ScriptedPlugin m_plugin{catalogue()};

public:
    TestSequence() { m_plugin.initPluginCommands(); }
};

QTEST_GUILESS_MAIN(TestSequence)
#include "tst_sequence.moc"
