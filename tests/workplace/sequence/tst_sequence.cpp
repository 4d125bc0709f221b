#include "complaint.h"
#include "literals.h"
#include "scratch_folder.h"
#include "scripted_station.h"

#include "sequence/sequence.h"
#include "sequence/sequence_runner.h"

#include <files/variant_json.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <QtTest>

namespace
{

/// Publishes its parameter "v" as "given", then "n" of the reply; one with a stop name listens.
CommandScript publishing(char const* name, char const* stopName = "", char const* target = "device")
{
    auto const post = [target](ScriptedCommand& self) {
        self.post(QString::fromLatin1(target), "go"_s);
        return self.publish("given"_s, self.parameter("v"_s));
    };
    CommandScript script = command(QString::fromLatin1(name), post, QString::fromLatin1(stopName));
    script.parameters = {{"u"_s, "ui16"_s, {}, {}}, {"i"_s, "int"_s, {}, {}},  {"b"_s, "bool"_s, {}, {}},
                         {"s"_s, "strg"_s, {}, {}}, {"m"_s, "varM"_s, {}, {}}, {"v"_s, "vart"_s, {}, {}}};
    script.results.append({"given"_s, "vart"_s, {}, {}});
    return script;
}

CommandScript commandThatPostsNothing(char const* name)
{
    CommandScript script;
    script.name = QString::fromLatin1(name);
    return script;
}

/// The catalogue that the sequences are for.
QList<CommandScript> catalogue()
{
    CommandScript locksAtTheEnd = publishing("locksAtTheEnd", "unlock");
    locksAtTheEnd.onFinish = [](ScriptedCommand& self) {
        self.post("device"_s, "lock"_s);
        return self.finish(true);
    };
    CommandScript refuses = publishing("refuses", "never");
    refuses.execute = [](ScriptedCommand& self) { return self.post("device"_s, "go"_s) == 0; };
    CommandScript stuck = commandThatPostsNothing("stuck");
    stuck.skipsBase = true;
    CommandScript file = commandThatPostsNothing("file");
    file.parameters = {{"filePath"_s, "strg"_s, {}, {}}};
    return {publishing("shot"),
            publishing("listenA", "halt"),
            publishing("listenB", "halt"),
            locksAtTheEnd,
            commandThatPostsNothing("silent"),
            publishing("lost", "", "nowhere"),
            refuses,
            stuck,
            file};
}

char const* const c_knownOrders =
    "shot, listenA, listenB, locksAtTheEnd, silent, lost, refuses, stuck, file, halt, unlock, never";

/// A station with the catalogue, and a sequence that runs on it.
struct Bench : ScriptedStation
{
    explicit Bench(QList<qint64> const& replyTimes = {5}) : ScriptedStation(catalogue(), replyTimes)
    {
        setup.state.presets[setup.state.program].maxTime = 100; // no screw is tight then
    }

    Sequence read(QByteArray const& content) const
    {
        return readSequence(folder.write("in.json"_s, content), tool->plugin());
    }
    bool run(QByteArray const& steps, QByteArray const& record = "{}")
    {
        Sequence const sequence = read("{\"tool\": " + record + ", \"steps\": [" + steps + "]}");
        auto const controller = ZrtSimulatedController::create(setup, clock);
        return SequenceRunner(*tool, *controller, workstation, clock).run(sequence);
    }
    /// What the sequence did, without what commands and the controller say to each other.
    QString happened() const
    {
        static QRegularExpression const conversation(
            "^\\d+ (instruction|notDelivered|withdrawn|reply|dropped|result) "_s);
        QStringList lines = log.lines;
        for (auto const& line : lines.filter(conversation))
            lines.removeOne(line);
        return lines.join("; "_s);
    }

    ScratchFolder folder;
    ZrtSetup setup;
};

} // namespace

/// Work sequences: what is read from their files, and how they run.
class TestSequence : public QObject
{
    Q_OBJECT

private slots:
    void parametersHaveTheDeclaredType_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QByteArrayList>("taken");
        QTest::addColumn<QByteArrayList>("refused");
        QTest::addColumn<QString>("wanted");
        auto const row = [](char const* key, QByteArrayList const& taken, QByteArrayList const& refused,
                            char const* wanted) {
            QTest::newRow(key) << QString::fromLatin1(key) << taken << refused << QString::fromLatin1(wanted);
        };
        row("u", {"0", "65535"}, {"65536", "-1", "1.5", "\"1\""}, "a whole number from 0 to 65535");
        row("i", {"2147483647", "-2147483648"}, {"2147483648", "-2147483649", "1.5", "true"},
            "a whole number from -2147483648 to 2147483647");
        row("b", {"true", "false"}, {"1", "\"true\"", "null"}, "true or false, not ...");
        row("s", {"\"\"", "\"1\""}, {"1", "[]", "null"}, "a text, not ...");
        row("m", {"{}", R"({"a":{"b":[1,2.5,null]}})"}, {"[]", "\"{}\"", "null"}, "an object, not ...");
        row("v", {"-1", "4294967296", "1.5", "true", "\"1\"", "{}", "[1,\"x\"]", "null"}, {}, "");
    }

    void parametersHaveTheDeclaredType()
    {
        QFETCH(QString, key);
        QFETCH(QByteArrayList, taken);
        QFETCH(QByteArrayList, refused);
        QFETCH(QString, wanted);
        Bench const bench;
        auto const passedOn = [&](QByteArray const& value) {
            Sequence const sequence = bench.read("{\"steps\": [{\"order\": \"shot\", \"parameters\": {\""
                                                 + key.toUtf8() + "\":\n" + value + "}}]}");
            return toText(std::get<OrderStep>(sequence.steps[0]).parameters.value(key));
        };
        for (auto const& value : taken)
            QCOMPARE(passedOn(value), QString::fromUtf8(value));
        QString const complaint =
            "%1:2: steps[0].parameters.%2: must be %3"_s.arg(bench.folder.filePath("in.json"_s), key, wanted);
        for (auto const& value : refused)
            QCOMPARE(asFarAs(complaint, complaintOf([&] { passedOn(value); })), complaint);
    }

    // What depends on the plugin; the rest is in the schema.
    void refuses_data()
    {
        QTest::addColumn<QByteArray>("steps");
        QTest::addColumn<QString>("message");

        auto const row = [](char const* name, char const* steps, char const* message) {
            QTest::newRow(name) << QByteArray(
                steps) << QString::fromLatin1(message).replace("KNOWN"_s, QLatin1String(c_knownOrders));
        };
        row("step that is none", R"({"parameters": {}})",
            "2: steps[0]: must have one of the keys order, await, tighten, trigger, press, wait");
        row("unknown order", R"({"order": "init"})",
            "2: steps[0].order: unknown order \"init\", known are KNOWN");
        row("order in another case", R"({"order": "Shot"})",
            "2: steps[0].order: unknown order \"Shot\", known are KNOWN");
        row("empty order", R"({"order": ""})", "2: steps[0].order: unknown order \"\", known are KNOWN");
        row("two steps in one", "{\"order\": \"shot\",\n\"wait\": 1}",
            "3: steps[0]: unknown key \"wait\", known are order, parameters, expect, fails");
        row("unknown parameter", "{\"order\": \"shot\", \"parameters\": {\n\"x\": 1}}",
            "3: steps[0].parameters.x: unknown parameter, known are u, i, b, s, m, v");
        row("parameter where there are none", R"({"order": "silent", "parameters": {"x": 1}})",
            "2: steps[0].parameters.x: the command takes no parameters");
        row("unknown result", "{\"order\": \"shot\", \"expect\": {\n\"x\": 1}}",
            "3: steps[0].expect.x: unknown result, known are n, given");
        row("result where there are none", R"({"order": "silent", "expect": {"x": 1}})",
            "2: steps[0].expect.x: the command has no results");
        row("empty expect on a listener", "{\"order\": \"listenA\",\n\"expect\": {}}",
            "3: steps[0].expect: \"listenA\" runs until it is stopped; await its results");
        row("fails on a listener", "{\"order\": \"listenA\",\n\"fails\": true}",
            "3: steps[0].fails: \"listenA\" runs until it is stopped; await its results");
        row("stop with parameters", "{\"order\": \"halt\",\n\"parameters\": {}}",
            "3: steps[0]: unknown key \"parameters\", known are order");
        row("await of a one-shot command", "{\"await\": \"n\", \"value\": 1,\n\"of\": \"shot\"}",
            "3: steps[0].of: \"shot\" is no command that runs until it is stopped");
        row("await of a stop", R"({"await": "n", "value": 1, "of": "halt"})",
            "2: steps[0].of: \"halt\" is no command that runs until it is stopped");
        row("await of an unknown result", "{\"of\": \"listenA\", \"value\": 1,\n\"await\": \"x\"}",
            "3: steps[0].await: unknown result, known are n, given");
        // The whole is checked, not just what comes first.
        row("last of several", "{\"wait\": 1},\n{\"wait\": null}",
            "3: steps[1].wait: must be a whole number from 0 to 86400000");
    }

    void refuses()
    {
        QFETCH(QByteArray, steps);
        QFETCH(QString, message);
        Bench const bench;
        QCOMPARE(complaintOf([&] { bench.read("{\"steps\": [\n" + steps + "]}"); }),
                 bench.folder.filePath("in.json"_s) + QLatin1Char(':') + message);
    }

    void filesAreBesideTheSequence_data()
    {
        QTest::addColumn<QString>("given");
        QTest::addColumn<QString>("expected"); // %1 for the sequence's folder
        auto const row = [](char const* name, QString const& given, QString const& expected) {
            QTest::newRow(name) << given << expected;
        };
        row("beside", "c.json"_s, "%1/c.json"_s);
        row("above", "../a/c.json"_s, "%1/../a/c.json"_s);
        row("absolute", "/a/c.json"_s, "/a/c.json"_s);
    }

    void filesAreBesideTheSequence()
    {
        QFETCH(QString, given);
        QFETCH(QString, expected);
        Bench const bench;
        auto const inFolder = [&expected](QString const& folder) {
            return QString(expected).replace("%1"_s, folder);
        };
        Sequence const sequence = bench.read(R"({"controller": "%1",
            "steps": [{"order": "file", "parameters": {"filePath": "%1"}}]})"_s.arg(given)
                                                 .toUtf8());
        QString const file = inFolder(bench.folder.path());
        QCOMPARE(sequence.controllerFile, file);
        QCOMPARE(sequence.files, QStringList{file});
        QCOMPARE(std::get<OrderStep>(sequence.steps[0]).parameters.value("filePath"_s), QVariant(file));

        // The sequence itself may be named by a relative path.
        QString const before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(bench.folder.path()));
        QString const relative = readSequence("in.json"_s, bench.tool->plugin()).controllerFile;
        QVERIFY(QDir::setCurrent(before));
        QCOMPARE(relative, inFolder("."_s));
    }

    void runs_data()
    {
        QTest::addColumn<QByteArray>("steps");
        QTest::addColumn<QList<qint64>>("replyTimes");
        QTest::addColumn<QString>("happened"); // in the end: steps done, failed, not run; replies dropped

        auto const row = [](char const* name, char const* steps, char const* happened,
                            QList<qint64> const& replyTimes = {5}) {
            QTest::newRow(name) << QByteArray(steps) << replyTimes << QString::fromLatin1(happened);
        };
        row("nothing", "", "0 end 0 0 0 0");
        row("each step waits for the one before",
            R"({"order": "shot"}, {"order": "silent"}, {"order": "shot"})",
            "0 order 1 shot {}; 5 finished 1 shot true; 5 order 2 silent {}; 5 finished 2 silent true; "
            "5 order 3 shot {}; 10 finished 3 shot true; 10 end 3 0 0 0");
        row("waits", R"({"wait": 100}, {"order": "silent"}, {"wait": 0}, {"wait": 7})",
            "100 order 1 silent {}; 100 finished 1 silent true; 107 end 4 0 0 0");
        row("a listener goes on while time passes",
            R"({"order": "listenA"}, {"wait": 6}, {"order": "silent"}, {"order": "halt"})",
            "0 order 1 listenA {}; 6 order 2 silent {}; 6 finished 2 silent true; 6 stop halt 1; "
            "6 finished 1 listenA true; 6 end 4 0 0 0");
        row("a stop ends all of its name", R"({"order": "listenA"}, {"order": "listenB"}, {"order": "halt"})",
            "0 order 1 listenA {}; 0 order 2 listenB {}; 0 stop halt 2; 0 finished 1 listenA true; "
            "0 finished 2 listenB true; 0 end 3 0 0 0");
        row("listeners are finished at the end", R"({"order": "listenA"}, {"order": "listenB"}, {"wait": 5})",
            "0 order 1 listenA {}; 0 order 2 listenB {}; 5 stopAll 2; 5 finished 1 listenA true; "
            "5 finished 2 listenB true; 5 end 3 0 0 0");
        row("an order that fails ends it",
            R"({"order": "silent"}, {"order": "lost"}, {"order": "shot"}, {"wait": 1})",
            "0 order 1 silent {}; 0 finished 1 silent true; 0 order 2 lost {}; "
            "0 finished 2 lost false \"go\": endpoint \"nowhere\" is gone; 0 end 1 1 2 0");
        row("no reply in time ends it", R"({"order": "shot"}, {"order": "shot"})",
            "0 order 1 shot {}; 4000 finished 1 shot false no reply to \"go\" within 4000 ms; 4000 end 0 1 1 "
            "0",
            {4001});
        row("listeners are finished after a failure",
            R"({"order": "listenA"}, {"order": "halt"}, {"order": "listenA"},
                                                         {"order": "unlock"}, {"wait": 1})",
            "0 order 1 listenA {}; 0 stop halt 1; 0 finished 1 listenA true; 0 order 2 listenA {}; 0 stop "
            "unlock 0; "
            "0 stopAll 1; 0 finished 2 listenA true; 0 end 3 1 1 0");
        row("a listener that refuses to start, though it has posted", R"({"order": "refuses"}, {"wait": 1})",
            "0 order 1 refuses {}; 0 finished 1 refuses false the command refused to start; 0 end 0 1 1 0");
        // It says that it has started, but neither posts anything nor finishes: nobody waits for ever.
        row("a command that never ends", R"({"order": "stuck"}, {"wait": 1})",
            "0 order 1 stuck {}; 0 finished 1 stuck false the command waits for nothing and does not end; "
            "0 end 0 1 1 0");
        row("must fail and does", R"({"order": "lost", "fails": true}, {"order": "silent", "fails": false})",
            "0 order 1 lost {}; 0 finished 1 lost false \"go\": endpoint \"nowhere\" is gone; "
            "0 order 2 silent {}; 0 finished 2 silent true; 0 end 2 0 0 0");
        row("must fail and does not", R"({"order": "silent", "fails": true}, {"wait": 1})",
            "0 order 1 silent {}; 0 finished 1 silent true; "
            "0 waitFailed the order succeeded, but should have failed; 0 end 0 1 1 0");
        row("await what is there",
            R"({"order": "listenA"}, {"wait": 5}, {"await": "n", "of": "listenA", "value": 0})",
            "0 order 1 listenA {}; 5 stopAll 1; 5 finished 1 listenA true; 5 end 3 0 0 0");
        row("await what comes",
            R"({"order": "listenA"}, {"await": "n", "of": "listenA", "value": 1, "within": 8})",
            "0 order 1 listenA {}; 8 stopAll 1; 8 finished 1 listenA true; 8 end 2 0 0 0", {5, 8, 9});
        row("await what comes too late",
            R"({"order": "listenA"}, {"await": "n", "of": "listenA", "value": 1, "within": 7})",
            "0 order 1 listenA {}; 7 waitFailed n of \"listenA\" did not become 1 within 7 ms; "
            "7 stopAll 1; 7 finished 1 listenA true; 7 end 1 1 0 0",
            {5, 8, 9});
        row("await what never comes",
            R"({"order": "listenA"}, {"await": "n", "of": "listenA", "value": {"a": 1}})",
            "0 order 1 listenA {}; 10000 waitFailed n of \"listenA\" did not become {\"a\":1} within 10000 "
            "ms; "
            "10000 stopAll 1; 10000 finished 1 listenA true; 10000 end 1 1 0 0");
        row("await of what has been stopped",
            R"({"order": "listenA"}, {"order": "halt"}, {"await": "n", "of": "listenA", "value": -1})",
            "0 order 1 listenA {}; 0 stop halt 1; 0 finished 1 listenA true; "
            "0 waitFailed \"listenA\" is not running; 0 end 2 1 0 0");
        row("tighten", R"({"tighten": 2})",
            "0 person pulls the trigger; 600 person pulls the trigger; 1200 end 1 0 0 0");
        row("loosen", R"({"press": "reverse"}, {"trigger": 1}, {"press": "reverse"}, {"tighten": 1})",
            "0 person presses reverse the tool loosens now; 0 person pulls the trigger; "
            "600 person presses reverse the tool fastens now; 600 person pulls the trigger; 1200 end 4 0 0 "
            "0");
        row("tighten while set to loosen", R"({"press": "reverse"}, {"tighten": 1}, {"wait": 1})",
            "0 person presses reverse the tool loosens now; "
            "0 waitFailed the tool is set to loosen, it cannot tighten; 0 end 1 1 1 0");
        row("dropped replies are counted", R"({"order": "shot"}, {"wait": 10})",
            "0 order 1 shot {}; 5 finished 1 shot true; 15 end 2 0 0 2", {5, 5, 9});
    }

    void runs()
    {
        QFETCH(QByteArray, steps);
        QFETCH(QList<qint64>, replyTimes);
        QFETCH(QString, happened);
        Bench bench(replyTimes);
        bool const succeeds = bench.run(steps);
        QCOMPARE(bench.happened(), happened);
        QString const failed = happened.section(QLatin1Char(' '), -3, -3);
        QCOMPARE(succeeds, failed == "0"_s);
        QVERIFY(!bench.tool->hasOrders());
    }

    // The person tells and goes on.
    void lockedTool()
    {
        Bench bench;
        bench.setup.state.lock = ZrtState::AllLocked;
        QVERIFY(bench.run(R"({"tighten": 2})"));
        QCOMPARE(bench.happened(), "0 person pulls the trigger but the tool is locked; "
                                   "500 person pulls the trigger but the tool is locked; 1000 end 1 0 0 0"_s);
    }

    void everyOrderHasTheToolsRecord()
    {
        Bench bench;
        QVERIFY(
            bench.run(R"({"order": "silent"}, {"order": "shot", "parameters": {"s": "x", "i": 1, "u": 2}})",
                      R"({"name": "left", "serialNumber": "S", "validityDate": "2027-03-31"})"));
        QCOMPARE(bench.log.of("order"),
                 QStringList(
                     {R"(0 order 1 silent {"name":"left","serialNumber":"S","validityDate":"2027-03-31"})"_s,
                      R"(0 order 2 shot {"i":1,"name":"left","s":"x","serialNumber":"S","u":2,)"
                      R"("validityDate":"2027-03-31"})"_s}));
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
        row("7", "7.0", true);
        row("7", "7.5", false);
        row("4294967303", "7", false);
        row("\"a\"", "\"A\"", false);
        row("null", "null", true);
        row("[1,2]", "[1,2]", true);
        row("[1,2]", "[2,1]", false);
        row("[1,2]", "[1]", false);
        // Of a map, what is given counts.
        row(R"({"a":1})", R"({"a":2})", false);
        row(R"({"a":1,"b":2})", R"({"b":2})", true);
        row(R"({"a":{"b":2,"c":3}})", R"({"a":{"c":3}})", true);
        row(R"({"a":{"b":2,"c":3}})", R"({"a":{"c":2}})", false);
        row(R"({"a":1})", "{}", true);
        row("{}", R"({"a":null})", false);
        row(R"([{"a":1,"b":2}])", R"([{"b":2}])", false);
        // Another kind of value is another value.
        row("[]", "{}", false);
        row("true", "\"true\"", false);
        row("true", "1", false);
        row("7", "\"7\"", false);
        row("0", "false", false);
        row("\"\"", "false", false);
        row("null", "0", false);
        row("null", "\"\"", false);
        row("[]", "null", false);
        row("[1]", "[\"1\"]", false);
    }

    void expectations()
    {
        QFETCH(QByteArray, given);
        QFETCH(QByteArray, expected);
        QFETCH(bool, isMet);
        Bench bench;
        bool const succeeds = bench.run("{\"order\": \"shot\", \"parameters\": {\"v\": " + given
                                        + "}, \"expect\": {\"n\": 0, \"given\": " + expected + "}}");
        QCOMPARE(succeeds, isMet);
        QCOMPARE(bench.log.of("unexpected").size(), isMet ? 0 : 1);
        QCOMPARE(bench.log.lines.last(), isMet ? "5 end 1 0 0 0"_s : "5 end 0 1 0 0"_s);
    }

    void everyMissedExpectationIsTold()
    {
        Bench bench;
        QVERIFY(
            !bench.run(R"({"order": "shot", "parameters": {"v": [1]}, "expect": {"n": 7, "given": "a"}})"));
        QCOMPARE(bench.log.of("unexpected"),
                 QStringList({"5 unexpected 1 given a [1]"_s, "5 unexpected 1 n 7 0"_s}));
    }

    // What a listener posts at its end is still answered, or its time allowance passes.
    void listenersAreDrained()
    {
        Bench bench;
        QVERIFY(bench.run(R"({"order": "locksAtTheEnd"}, {"wait": 20})"));
        QCOMPARE(bench.log.lines.mid(bench.log.lines.size() - 4),
                 QStringList({"20 finished 1 locksAtTheEnd true"_s, R"(25 reply 1 2 {"n":0})"_s,
                              "25 result 1 n 0"_s, "25 end 2 0 0 0"_s}));
        Bench silent(QList<qint64>{});
        QVERIFY(silent.run(R"({"order": "locksAtTheEnd"}, {"wait": 20})"));
        QCOMPARE(silent.log.lines.last(), "4020 end 2 0 0 0"_s);
        QVERIFY(!silent.tool->hasOrders());
    }

    void ordersAreReleased()
    {
        Bench bench;
        QVERIFY(
            bench.run(R"({"order": "shot"}, {"order": "listenA"}, {"order": "silent"}, {"order": "halt"})"));
        QCOMPARE(bench.plugin.journal(),
                 QStringList({"working shot"_s, "working silent"_s, "working listenA"_s}));
    }
};

QTEST_GUILESS_MAIN(TestSequence)
#include "tst_sequence.moc"
