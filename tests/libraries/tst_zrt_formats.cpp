#include "complaint.h"
#include "controller_bench.h"
#include "scratch_folder.h"

#include <zrt_controller/zrt_formats.h>

#include <QtTest>

/// The files that the simulated controller reads: each key goes to its member, and what is wrong is said.
/// Which keys there are, of which ranges and with which defaults, docs/schemas has.
class TestZrtFormats : public QObject
{
    Q_OBJECT

private slots:
    void defaults()
    {
        ZrtSetup const standard;
        for (char const* const content :
             {"{}", R"({"identity": {}, "$schema": "controller.schema.json", "screws": [], "faults": []})"}) {
            ZrtSetup const setup = readZrtSetup(file(content));
            QCOMPARE(shown(setup.state), shown(standard.state));
            QCOMPARE(setup.times.reply, standard.times.reply);
            QCOMPARE(setup.times.preset, standard.times.preset);
            QCOMPARE(setup.isConnected, true);
            QVERIFY(setup.faults.isEmpty());
        }
        // What is given replaces the default as a whole.
        QCOMPARE(readZrtSetup(file(R"({"presets": {"1": {}}})")).state.presets.keys(), QList<int>{1});
    }

    void everyKey()
    {
        ZrtState state;
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
        ZrtSetup const setup = readZrtSetup(file(R"({
        "identity": {"model": "m", "serialNumber": "s", "firmware": ""},
        "lock": 2, "screenLocked": true,
        "presets": {"0": {"tcamActm": 1, "torque": 102, "maxTorque": 103, "snugTorque": 101, "targetAngle": 105,
                          "minAngle": 104, "maxAngle": 106, "speed": 107, "freeSpeed": 108, "maxTime": 109},
                    "65535": {}},
        "unwritablePresets": [7, 8], "parameters": {"": -2147483648, "a": 2}, "program": 0,
        "triggerMode": true, "reverse": true, "eventCount": 11, "seed": 9223372036854775807,
        "screws": ["good", "crossThreaded", "stripped", "missing", "soft", "blocked", "releasedEarly"],
        "replyTime": 12, "presetTime": 13, "connected": false})"));
        QCOMPARE(shown(setup.state), shown(state));
        QCOMPARE(setup.times.reply, 12);
        QCOMPARE(setup.times.preset, 13);
        QCOMPARE(setup.isConnected, false);
    }

    void faults()
    {
        char const* const name = "getInfo";
        auto const compare = [&](QByteArray const& content, ZrtFault const& expected) {
            auto const setup =
                readZrtSetup(file(R"({"faults": [{"instruction": "getInfo", )" + content + "}]}"));
            QCOMPARE(setup.faults.size(), 1);
            QCOMPARE(shown(setup.faults[0]), shown(expected));
        };
        compare(R"("kind": "delay", "nth": 1)", fault(ZrtFault::Delay, name, 1, 100));
        compare(R"("kind": "delay", "nth": 2, "delay": 0)", fault(ZrtFault::Delay, name, 2, 0));
        compare(R"("kind": "late", "nth": 1)", fault(ZrtFault::Late, name, 1, 5000));
        compare(R"("kind": "late", "nth": 1, "delay": 4000)", fault(ZrtFault::Late, name, 1, 4000));
        compare(R"("kind": "loss", "nth": 1)", fault(ZrtFault::Loss, name));
        compare(R"("kind": "duplicate", "percent": 0)", fault(ZrtFault::Duplicate, name, 0));
        compare(R"("kind": "wrongType", "nth": 3, "key": "")", fault(ZrtFault::WrongType, name, 3));
        compare(R"("kind": "refused", "nth": 1)", fault(ZrtFault::Refused, name));
        compare(R"("kind": "disconnected", "nth": 1)", fault(ZrtFault::Disconnected, name));
        ZrtFault chance = fault(ZrtFault::MissingKey, name, 0, 0, "k");
        chance.probability = 0.25;
        compare(R"("kind": "missingKey", "percent": 25, "key": "k")", chance);
    }

    void complaints_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("message"); // none if there is nothing to complain of
        auto const row = [](QByteArray const& content, char const* message) {
            QTest::newRow(content) << content << QString::fromLatin1(message);
        };
        row("[]", "1: must be an object, not a list");
        row("{\n\"serial\": 1}", "2: unknown key \"serial\", known are identity, lock, ...");
        row(R"({"$schema": 1})", "1: $schema: must be a text, not a number");
        row(R"({"identity": {"$schema": ""}})",
            "1: identity: unknown key \"$schema\", known are model, serialNumber, firmware");
        row("{\n\n\"lock\": 3}", "3: lock: must be a whole number from 0 to 2");
        row(R"({"screenLocked": 1})", "1: screenLocked: must be true or false, not a number");
        row(R"({"screws": ["good", "Good"]})",
            "1: screws[1]: unknown kind of screw, known are good, crossThreaded, ...");
        row("{\n\"program\": 2}", "2: program: there is no preset of this number");
        row(R"({"presets": {"2": {}}})", "1: there is no preset 1, so \"program\" must name another");
        row(R"({"parameters": {"a": 1.5}})",
            "1: parameters.a: must be a whole number from -2147483648 to 2147483647");

        for (auto const& key :
             QByteArrayList{"01", "-1", "+1", "65536", "4294967297", "x", "1.0", "1e1", "0x1", " 1"})
            row("{\"presets\": {\n\"" + key + "\": {}}}",
                "2: presets." + key + ": a preset's key must be its number, 0 to 65535");
        auto const preset = [&row](char const* values, char const* message) {
            row(QByteArray("{\"presets\": {\n\"1\": {\n") + values + "}}}", message);
        };
        // Just not contradictory; the angle does not count in torque control.
        for (char const* const good :
             {R"("snugTorque": 199)", R"("maxTorque": 201)", R"("minAngle": 299)",
              R"("tcamActm": 1, "targetAngle": 300)", R"("tcamActm": 1, "targetAngle": 10)",
              R"("tcamActm": 0, "targetAngle": 301)", R"("tcamActm": 0, "targetAngle": 9)"})
            preset(good, "");
        preset("\"torque\": 0", "3: presets.1.torque: must be a whole number from 1 to 100000");
        preset("\"snugTorque\": 200", "2: presets.1: \"snugTorque\" must be less than \"torque\"");
        preset("\"torque\": 260", "2: presets.1: \"maxTorque\" must be more than \"torque\"");
        preset("\"maxAngle\": 10", "2: presets.1: \"minAngle\" must be less than \"maxAngle\"");
        preset("\"tcamActm\": 1, \"targetAngle\": 301",
               "2: presets.1: \"targetAngle\" must not be more than \"maxAngle\"");
        preset("\"tcamActm\": 1, \"targetAngle\": 9",
               "2: presets.1: \"targetAngle\" must not be less than \"minAngle\"");

        auto const fault = [&row](QByteArray const& values, char const* message) {
            row("{\"faults\": [{" + values + "}]}", message);
        };
        fault(R"("instruction": "getInfo", "nth": 1)", "1: faults[0]: the key \"kind\" is missing");
        fault(R"("kind": "loss", "instruction": "getInfo")",
              "1: faults[0]: must have one of \"nth\" and \"percent\"");
        fault(R"("kind": "loss", "instruction": "getInfo", "nth": 1, "percent": 0)",
              "1: faults[0]: must have one of \"nth\" and \"percent\"");
        for (auto const& kind :
             QByteArrayList{"loss", "duplicate", "refused", "disconnected", "missingKey", "wrongType"})
            fault("\"kind\": \"" + kind + "\", \"delay\": 0",
                  "1: faults[0].delay: goes with the kinds delay and late");
        for (auto const& kind :
             QByteArrayList{"delay", "late", "loss", "duplicate", "refused", "disconnected"})
            fault("\"kind\": \"" + kind + "\", \"key\": \"\"",
                  "1: faults[0].key: goes with the kinds missingKey and wrongType");
        for (auto const& kind : QByteArrayList{"missingKey", "wrongType"})
            fault("\"kind\": \"" + kind + "\", \"instruction\": \"getInfo\", \"nth\": 1",
                  "1: faults[0]: the key \"key\" is missing");
    }

    void complaints()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, message);
        QString const fileName = file(content);
        QString const expected = message.isEmpty() ? "no complaint"_s : fileName + QLatin1Char(':') + message;
        QCOMPARE(asFarAs(expected, complaintOf([&] { readZrtSetup(fileName); })), expected);
    }

    void backup()
    {
        auto const backup = readZrtBackup(
            file(R"({"presets": {"15": {"torque": 115}, "3": {}}, "parameters": {"language": 2}})"));
        QCOMPARE(backup.presets.keys(), QList<int>({3, 15}));
        QCOMPARE(backup.presets[15].torque, 115);
        QCOMPARE(backup.parameters, (QMap<QString, int>{{"language"_s, 2}}));
        QString const bad = file("{\n\"parameters\": {}}");
        QCOMPARE(complaintOf([&] { readZrtBackup(bad); }), bad + ":1: the key \"presets\" is missing"_s);
    }

private:
    QString file(QByteArray const& content) const { return m_folder.write("input.json"_s, content); }

    ScratchFolder m_folder;
};

QTEST_GUILESS_MAIN(TestZrtFormats)
#include "tst_zrt_formats.moc"
