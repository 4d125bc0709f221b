#include "complaint.h"
#include "literals.h"
#include "scratch_folder.h"
#include "shown_fault.h"

#include <zrt_controller/zrt_formats.h>

#include <QtTest>

namespace
{

using Shown = QMap<QString, QString>;

void show(Shown& all, QString const& path, ZrtPreset const& preset)
{
    auto const map = toMap(preset);
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        all.insert(path + it.key(), QString::fromLatin1(it->typeName()) + QLatin1Char(' ') + it->toString());
}

/// Everything in a set-up, by the names of the members.
Shown shown(ZrtSetup const& setup)
{
    auto const number = [](auto value) { return QString::number(value); };
    ZrtState const& state = setup.state;
    Shown all{{"model"_s, state.model},
              {"serialNumber"_s, state.serialNumber},
              {"firmware"_s, state.firmware},
              {"lock"_s, number(state.lock)},
              {"isScreenLocked"_s, number(state.isScreenLocked)},
              {"program"_s, number(state.program)},
              {"isTriggerMode"_s, number(state.isTriggerMode)},
              {"isReverse"_s, number(state.isReverse)},
              {"eventCount"_s, number(state.eventCount)},
              {"seed"_s, number(state.seed)},
              {"reply"_s, number(setup.times.reply)},
              {"preset"_s, number(setup.times.preset)},
              {"isConnected"_s, number(setup.isConnected)}};
    for (auto it = state.presets.cbegin(); it != state.presets.cend(); ++it)
        show(all, "presets %1 "_s.arg(it.key()), *it);
    for (auto it = state.parameters.cbegin(); it != state.parameters.cend(); ++it)
        all.insert("parameters "_s + it.key(), number(*it));
    for (int const preset : state.unwritablePresets)
        all["unwritable"_s] += number(preset) + QLatin1Char(' ');
    for (ZrtScrew const screw : state.screws)
        all["screws"_s] += number(static_cast<int>(screw));
    for (auto const& fault : setup.faults)
        all["faults"_s] += shown(fault) + QLatin1Char('\n');
    return all;
}

} // namespace

/// The files that the simulated controller reads: each key goes to its member, and what is wrong is said.
/// Which keys there are, of which ranges and with which defaults, docs/schemas has.
class TestZrtFormats : public QObject
{
    Q_OBJECT

private slots:
    void defaults()
    {
        QCOMPARE(shown(readZrtSetup(file("{}"))), shown(ZrtSetup()));
        QCOMPARE(shown(readZrtSetup(file(R"({"identity": {}, "$schema": "controller.schema.json"})"))),
                 shown(ZrtSetup()));
        // The empty ones count too.
        ZrtSetup setup;
        setup.state.presets = {{1, {}}};
        QCOMPARE(shown(readZrtSetup(file(R"({"presets": {"1": {}}, "screws": [], "faults": []})"))),
                 shown(setup));
    }

    void everyKey()
    {
        ZrtSetup setup;
        ZrtState& state = setup.state;
        state.model = "m"_s;
        state.serialNumber = "s"_s;
        state.firmware = QString();
        state.lock = ZrtState::LooseningLocked;
        state.isScreenLocked = true;
        state.presets = {{0, {ZrtPreset::Angle, 102, 103, 101, 105, 104, 106, 107, 108, 109}}, {65535, {}}};
        state.unwritablePresets = {7, 8};
        state.parameters = {{QString(), std::numeric_limits<int>::min()}, {"a"_s, 2}};
        state.program = 0;
        state.isTriggerMode = true;
        state.isReverse = true;
        state.eventCount = 11;
        state.seed = static_cast<quint64>(std::numeric_limits<qint64>::max());
        state.screws = {ZrtScrew::Good, ZrtScrew::CrossThreaded, ZrtScrew::Stripped,     ZrtScrew::Missing,
                        ZrtScrew::Soft, ZrtScrew::Blocked,       ZrtScrew::ReleasedEarly};
        setup.times = {12, 13};
        setup.isConnected = false;
        QCOMPARE(shown(readZrtSetup(file(R"({
        "identity": {"model": "m", "serialNumber": "s", "firmware": ""},
        "lock": 2, "screenLocked": true,
        "presets": {"0": {"tcamActm": 1, "torque": 102, "maxTorque": 103, "snugTorque": 101, "targetAngle": 105,
                          "minAngle": 104, "maxAngle": 106, "speed": 107, "freeSpeed": 108, "maxTime": 109},
                    "65535": {}},
        "unwritablePresets": [7, 8], "parameters": {"": -2147483648, "a": 2}, "program": 0,
        "triggerMode": true, "reverse": true, "eventCount": 11, "seed": 9223372036854775807,
        "screws": ["good", "crossThreaded", "stripped", "missing", "soft", "blocked", "releasedEarly"],
        "replyTime": 12, "presetTime": 13, "connected": false})"))),
                 shown(setup));
    }

    void faults()
    {
        QCOMPARE(shown(readZrtSetup(file(R"({"faults": [
        {"kind": "delay", "instruction": "getInfo", "nth": 1},
        {"kind": "delay", "instruction": "getInfo", "nth": 2, "delay": 0},
        {"kind": "late", "instruction": "getInfo", "nth": 2147483647},
        {"kind": "late", "instruction": "getInfo", "nth": 1, "delay": 4000},
        {"kind": "loss", "instruction": "getInfo", "percent": 0},
        {"kind": "duplicate", "instruction": "getInfo", "percent": 100},
        {"kind": "missingKey", "instruction": "getInfo", "percent": 25, "key": "k"},
        {"kind": "wrongType", "instruction": "getInfo", "nth": 3, "key": ""},
        {"kind": "refused", "instruction": "setLock", "nth": 1},
        {"kind": "disconnected", "instruction": "getInfo", "nth": 1}]})")))
                     .value("faults"_s),
                 "0 getInfo nth 1 probability 0 delay 100 key \"\"\n"
                 "0 getInfo nth 2 probability 0 delay 0 key \"\"\n"
                 "1 getInfo nth 2147483647 probability 0 delay 5000 key \"\"\n"
                 "1 getInfo nth 1 probability 0 delay 4000 key \"\"\n"
                 "2 getInfo nth 0 probability 0 delay 0 key \"\"\n"
                 "3 getInfo nth 0 probability 1 delay 0 key \"\"\n"
                 "4 getInfo nth 0 probability 0.25 delay 0 key \"k\"\n"
                 "5 getInfo nth 3 probability 0 delay 0 key \"\"\n"
                 "6 setLock nth 1 probability 0 delay 0 key \"\"\n"
                 "7 getInfo nth 1 probability 0 delay 0 key \"\"\n"_s);
    }

    void accepts_data()
    {
        QTest::addColumn<QByteArray>("preset");
        QTest::addColumn<QString>("key");
        QTest::addColumn<int>("value");
        auto const row = [](char const* name, char const* preset, char const* key, int value) {
            QTest::newRow(name) << QByteArray(preset) << QString::fromLatin1(key) << value;
        };
        row("snug", R"({"snugTorque": 199})", "snugTorque", 199);
        row("most", R"({"maxTorque": 201})", "maxTorque", 201);
        row("least angle", R"({"minAngle": 299})", "minAngle", 299);
        row("target angle", R"({"tcamActm": 1, "targetAngle": 300})", "targetAngle", 300);
        row("lowest target angle", R"({"tcamActm": 1, "targetAngle": 10})", "targetAngle", 10);
        row("target angle that does not count", R"({"tcamActm": 0, "targetAngle": 301})", "targetAngle", 301);
    }

    // Just not contradictory.
    void accepts()
    {
        QFETCH(QByteArray, preset);
        QFETCH(QString, key);
        QFETCH(int, value);
        auto const backup = readZrtBackup(file("{\"presets\": {\"3\": " + preset + "}}"));
        QCOMPARE(toMap(backup.presets.value(3)).value(key), QVariant(value));
    }

    void refuses_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("message");
        auto const row = [](QByteArray const& name, QByteArray const& content, char const* message) {
            QTest::newRow(name) << content << QString::fromLatin1(message);
        };
        row("list", "[]", "1: must be an object, not a list");
        row("unknown key", "{\n\"serial\": 1}", "2: unknown key \"serial\", known are identity, lock, ...");
        row("schema that is no text", R"({"$schema": 1})", "1: $schema: must be a text, not a number");
        row("schema further in", R"({"identity": {"$schema": ""}})",
            "1: identity: unknown key \"$schema\", known are model, serialNumber, firmware");
        row("identity as text", R"({"identity": "ZRT"})", "1: identity: must be an object, not a text");
        row("model as number", R"({"identity": {"model": 2}})",
            "1: identity.model: must be a text, not a number");
        row("lock below", R"({"lock": -1})", "1: lock: must be a whole number from 0 to 2");
        row("lock above", "{\n\n\"lock\": 3}", "3: lock: must be a whole number from 0 to 2");
        row("lock as text", R"({"lock": "1"})", "1: lock: must be a whole number from 0 to 2");
        row("screen as number", R"({"screenLocked": 1})",
            "1: screenLocked: must be true or false, not a number");
        row("screws as text", R"({"screws": "good"})", "1: screws: must be a list, not a text");
        row("unknown screw", R"({"screws": ["good", "Good"]})",
            "1: screws[1]: unknown kind of screw, known are good, crossThreaded, ...");
        row("unwritable preset", R"({"unwritablePresets": [65536]})",
            "1: unwritablePresets[0]: must be a whole number from 0 to 65535");
        row("program that is not there", "{\n\"program\": 2}",
            "2: program: there is no preset of this number");
        row("default program that is not there", R"({"presets": {"2": {}}})",
            "1: there is no preset 1, so \"program\" must name another");
        row("parameter", R"({"parameters": {"a": 1.5}})",
            "1: parameters.a: must be a whole number from -2147483648 to 2147483647");

        for (char const* const key :
             {"01", "-1", "+1", "65536", "4294967297", "x", "1.0", "1e1", "0x1", " 1"})
            QTest::addRow("preset number %s", key)
                << QByteArray("{\"presets\": {\"1\": {},\n\"") + key + "\": {}}}"
                << "2: presets.%1: a preset's key must be its number, 0 to 65535"_s.arg(
                       QString::fromLatin1(key));
        auto const preset = [](char const* values, char const* message) {
            QTest::newRow(values) << QByteArray("{\"presets\": {\n\"1\": {\n") + values + "}}}"
                                  << QString::fromLatin1(message);
        };
        preset("\"torque\": 0", "3: presets.1.torque: must be a whole number from 1 to 100000");
        preset("\"Torque\": 1", "3: presets.1: unknown key \"Torque\", known are tcamActm, torque, ...");
        preset("\"snugTorque\": 200", "2: presets.1: \"snugTorque\" must be less than \"torque\"");
        preset("\"torque\": 260", "2: presets.1: \"maxTorque\" must be more than \"torque\"");
        preset("\"maxAngle\": 10", "2: presets.1: \"minAngle\" must be less than \"maxAngle\"");
        preset("\"tcamActm\": 1, \"targetAngle\": 301",
               "2: presets.1: \"targetAngle\" must not be more than \"maxAngle\"");
        preset("\"tcamActm\": 1, \"targetAngle\": 9",
               "2: presets.1: \"targetAngle\" must not be less than \"minAngle\"");

        auto const fault = [](char const* values, char const* message) {
            QTest::newRow(values) << QByteArray("{\"faults\": [{") + values + "}]}"
                                  << QString::fromLatin1(message);
        };
        fault(R"("instruction": "getInfo", "nth": 1)", "1: faults[0]: the key \"kind\" is missing");
        fault(R"("kind": "Loss")", "1: faults[0].kind: unknown kind of fault, known are delay, late, ...");
        fault(R"("kind": "loss", "nth": 1)", "1: faults[0]: the key \"instruction\" is missing");
        fault(R"("kind": "loss", "instruction": "setlock", "nth": 1)",
              "1: faults[0].instruction: unknown instruction, known are SetTriggerProgram, getInfo, ...");
        fault(R"("kind": "loss", "often": 1)",
              "1: faults[0]: unknown key \"often\", known are kind, instruction, nth, percent, delay, key");
        fault(R"("kind": "loss", "instruction": "getInfo")",
              "1: faults[0]: must have one of \"nth\" and \"percent\"");
        fault(R"("kind": "loss", "instruction": "getInfo", "nth": 1, "percent": 0)",
              "1: faults[0]: must have one of \"nth\" and \"percent\"");
        fault(R"("kind": "loss", "instruction": "getInfo", "nth": 0)",
              "1: faults[0].nth: must be a whole number from 1 to 2147483647");
        fault(R"("kind": "loss", "instruction": "getInfo", "percent": 101)",
              "1: faults[0].percent: must be a whole number from 0 to 100");
        fault(R"("kind": "delay", "instruction": "getInfo", "nth": 1, "delay": -1)",
              "1: faults[0].delay: must be a whole number from 0 to 600000");
        fault(R"("kind": "late", "instruction": "getInfo", "nth": 1, "delay": 3999)",
              "1: faults[0].delay: must be a whole number from 4000 to 600000");
        for (char const* const kind :
             {"loss", "duplicate", "refused", "disconnected", "missingKey", "wrongType"})
            row(QByteArray("delay with ") + kind,
                QByteArray("{\"faults\": [{\"kind\": \"") + kind + "\", \"delay\": 0}]}",
                "1: faults[0].delay: goes with the kinds delay and late");
        for (char const* const kind : {"delay", "late", "loss", "duplicate", "refused", "disconnected"})
            row(QByteArray("key with ") + kind,
                QByteArray("{\"faults\": [{\"kind\": \"") + kind + "\", \"key\": \"\"}]}",
                "1: faults[0].key: goes with the kinds missingKey and wrongType");
        for (char const* const kind : {"missingKey", "wrongType"})
            row(QByteArray("no key with ") + kind,
                QByteArray("{\"faults\": [{\"kind\": \"") + kind
                    + "\", \"instruction\": \"getInfo\", \"nth\": 1}]}",
                "1: faults[0]: the key \"key\" is missing");
    }

    void refuses()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, message);
        QString const fileName = file(content);
        QString const expected = fileName + QLatin1Char(':') + message;
        QCOMPARE(asFarAs(expected, complaintOf([&] { readZrtSetup(fileName); })), expected);
    }

    void backup()
    {
        ZrtBackup const backup =
            readZrtBackup(file(R"({"presets": {"15": {}, "3": {}}, "parameters": {"language": 2}})"));
        QCOMPARE(backup.presets.keys(), QList<int>({3, 15}));
        QCOMPARE(backup.parameters, (QMap<QString, int>{{"language"_s, 2}}));
        QVERIFY(readZrtBackup(file(R"({"presets": {}})")).presets.isEmpty());
    }

    void backupRefuses_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, char const* content, char const* message) {
            QTest::newRow(name) << QByteArray(content) << QString::fromLatin1(message);
        };
        row("no presets", R"({"parameters": {}})", "1: the key \"presets\" is missing");
        row("unknown key", "{\"presets\": {},\n\"preset\": {}}",
            "2: unknown key \"preset\", known are presets, parameters");
        row("wrong preset", "{\"presets\": {\"1\": {},\n\"2\": {\"speed\": 0}}}",
            "2: presets.2.speed: must be a whole number from 1 to 10000");
        row("parameters as null", R"({"presets": {}, "parameters": null})",
            "1: parameters: must be an object, not null");
    }

    void backupRefuses()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, message);
        QString const fileName = file(content);
        QCOMPARE(complaintOf([&] { readZrtBackup(fileName); }), fileName + QLatin1Char(':') + message);
    }

private:
    QString file(QByteArray const& content) const { return m_folder.write("input.json"_s, content); }

    ScratchFolder m_folder;
};

QTEST_GUILESS_MAIN(TestZrtFormats)
#include "tst_zrt_formats.moc"
