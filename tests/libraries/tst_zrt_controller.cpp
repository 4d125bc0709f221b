#include "controller_bench.h"
#include "variants.h"

#include <zrt_controller/tightening.h>
#include <zrt_controller/zrt_controller.h>

#include <QtTest>

#include <functional>
#include <limits>

namespace
{

using Change = std::function<void(ZrtState&)>;

ZrtState const c_fresh;

/// A state that differs from a fresh one in all that an instruction tells or sets.
ZrtState usedState()
{
    ZrtState state;
    state.model = "M"_s;
    state.serialNumber = "S"_s;
    state.firmware = "F"_s;
    state.lock = ZrtState::LooseningLocked;
    state.isScreenLocked = true;
    state.presets[15].torque = 150;
    state.program = 15;
    state.isTriggerMode = true;
    state.isReverse = true;
    state.eventCount = 42;
    return state;
}

void unchanged(ZrtState& /*state*/) {}

} // namespace

Q_DECLARE_METATYPE(Change)
Q_DECLARE_METATYPE(ZrtState)

/// The controller alone, without time: what an instruction answers and changes, and what the tool does.
class TestZrtController : public QObject
{
    Q_OBJECT

private slots:
    void wholeNumbers()
    {
        auto const read = [](QVariant const& value) {
            return wholeNumber({{"n"_s, value}}, "n"_s).value_or(-1);
        };
        constexpr int highest = std::numeric_limits<int>::max();
        for (QVariant const& good :
             {QVariant(15), QVariant(15U), QVariant(15LL), QVariant(15ULL), QVariant::fromValue(15L),
              QVariant::fromValue(15UL), QVariant::fromValue<short>(15), QVariant::fromValue<ushort>(15)})
            QCOMPARE(read(good), 15);
        QCOMPARE(read(0), 0);
        QCOMPARE(read(qlonglong{highest}), highest);
        QCOMPARE(read(qulonglong{highest}), highest);
        QVariantList bad{-1,   (1LL << 32) + 15, qlonglong{highest} + 1, qulonglong{highest} + 1, "15"_s,
                         15.0, QVariantList{15}};
        auto const values = everyKindOfValue();
        for (auto const& [name, value] : values) {
            if (name != "uint" && name != "null int")
                bad += value;
        }
        for (auto const& value : qAsConst(bad))
            QVERIFY2(read(value) == -1, value.typeName());
        QCOMPARE(wholeNumber({{"N"_s, 15}}, "n"_s), std::nullopt);
    }

    void instructions_data()
    {
        QTest::addColumn<ZrtState>("state");
        QTest::addColumn<QString>("instruction");
        QTest::addColumn<QVariantMap>("arguments");
        QTest::addColumn<QString>("reply");
        QTest::addColumn<Change>("change");
        auto const rowIn = [](ZrtState const& state, char const* instruction, QVariantMap const& arguments,
                              QString const& reply, Change const& change = unchanged) {
            QTest::addRow("%s %s, program %d", instruction, qPrintable(exactly(arguments)), state.program)
                << state << QString::fromLatin1(instruction) << arguments << "{%1}"_s.arg(reply) << change;
        };
        auto const row = [&](char const* instruction, QVariantMap const& arguments, char const* reply,
                             Change const& change = unchanged) {
            for (auto const& state : {c_fresh, usedState()})
                rowIn(state, instruction, arguments, QString::fromLatin1(reply), change);
        };

        rowIn(c_fresh, "getInfo", {},
              "firmware: QString 1.0.0, model: QString ZRT, serialNumber: QString ZRT-SIM-0001"_s);
        rowIn(usedState(), "getInfo", {}, "firmware: QString F, model: QString M, serialNumber: QString S"_s);

        row("setLock", {{"lock"_s, 0}},
            "fasteningLocked: bool false, lockStatus: int 0, looseningLocked: bool false",
            [](ZrtState& state) { state.lock = ZrtState::Free; });
        row("setLock", {{"lock"_s, 1}},
            "fasteningLocked: bool true, lockStatus: int 1, looseningLocked: bool true",
            [](ZrtState& state) { state.lock = ZrtState::AllLocked; });
        row("setLock", {{"lock"_s, 2}},
            "fasteningLocked: bool false, lockStatus: int 2, looseningLocked: bool true",
            [](ZrtState& state) { state.lock = ZrtState::LooseningLocked; });
        for (QVariant const& lock : {QVariant(3), QVariant("1"_s), QVariant()})
            row("setLock", {{"lock"_s, lock}},
                "error: QString \"lock\" must be 0 (free), 1 (all locked) or 2 (loosening locked)");

        row("setLockScreen", {}, "doneOk: bool true", [](ZrtState& state) { state.isScreenLocked = true; });

        row("setProgram", {{"program"_s, 15}}, "doneOk: bool true, program: int 15",
            [](ZrtState& state) { state.program = 15; });
        char const* const noProgram = "error: QString there is no such program";
        for (QVariant const& number : {QVariant(2), QVariant("15"_s)})
            row("setProgram", {{"program"_s, number}}, noProgram);
        row("setProgram", {{"preset"_s, 15}}, noProgram);

        QString const preset =
            "presetData: {freeSpeed: int 800, maxAngle: int 300, maxTime: int 5000, maxTorque: int 260, "
            "minAngle: int 10, snugTorque: int 40, speed: int 400, targetAngle: int 90, tcamActm: int 0, "
            "torque: int %1}"_s;
        rowIn(usedState(), "getPresetData", {{"preset"_s, 1}}, preset.arg(200));
        rowIn(usedState(), "getPresetData", {{"preset"_s, 15}}, preset.arg(150));
        char const* const noPreset = "error: QString there is no such preset";
        for (QVariant const& number : {QVariant(2), QVariant("15"_s)})
            row("getPresetData", {{"preset"_s, number}}, noPreset);
        row("getPresetData", {{"program"_s, 15}}, noPreset);

        auto const registerRow = [&](char const* name, int fresh, int used) {
            QString const channel = QString::fromLatin1(name);
            QString const reply = "channel: QString %1, values: [int %2]"_s;
            rowIn(c_fresh, "getRegister", {{"channel"_s, channel}}, reply.arg(channel).arg(fresh));
            rowIn(usedState(), "getRegister", {{"channel"_s, channel}}, reply.arg(channel).arg(used));
        };
        registerRow("direction", 0, 1);
        registerRow("eventCount", 0, 42);
        registerRow("lock", 0, 2);
        registerRow("program", 1, 15);
        registerRow("triggerMode", 0, 1);
        for (QVariant const& channel : {QVariant("Direction"_s), QVariant(0), QVariant()})
            row("getRegister", {{"channel"_s, channel}}, "error: QString there is no such channel");

        Change const triggerMode = [](ZrtState& state) { state.isTriggerMode = true; };
        row("SetTriggerProgram", {}, "doneOk: bool true", triggerMode);
        row("SetTriggerProgram", {{"resetMode"_s, false}}, "doneOk: bool true", triggerMode);
        row("SetTriggerProgram", {{"resetMode"_s, true}}, "doneOk: bool true",
            [](ZrtState& state) { state.isTriggerMode = false; });
        for (QVariant const& mode : {QVariant("off"_s), QVariant(1), QVariant(QVariantMap())})
            row("SetTriggerProgram", {{"resetMode"_s, mode}},
                "error: QString \"resetMode\" must be true or false");

        row("getinfo", {}, "error: QString unknown instruction \"getinfo\"");
        row("%1", {}, "error: QString unknown instruction \"%1\"");
    }

    void instructions()
    {
        QFETCH(ZrtState, state);
        QFETCH(QString, instruction);
        QFETCH(QVariantMap, arguments);
        QFETCH(QString, reply);
        QFETCH(Change, change);
        QString const former = shown(state);
        ZrtController controller(state);
        QCOMPARE(exactly(controller.execute(instruction, arguments)), reply);
        change(state);
        QCOMPARE(shown(controller.state()), shown(state));
        QCOMPARE(controller.takeChange(), shown(state) != former);
        QCOMPARE(controller.takeChange(), false);
    }

    void locks_data()
    {
        QTest::addColumn<int>("lock");
        QTest::addColumn<bool>("isReverse");
        QTest::addColumn<bool>("turns");
        QTest::newRow("a free tool fastens") << 0 << false << true;
        QTest::newRow("a free tool loosens") << 0 << true << true;
        QTest::newRow("a locked tool does not fasten") << 1 << false << false;
        QTest::newRow("a locked tool does not loosen") << 1 << true << false;
        QTest::newRow("one that must not loosen fastens") << 2 << false << true;
        QTest::newRow("one that must not loosen does not") << 2 << true << false;
    }

    void locks()
    {
        QFETCH(int, lock);
        QFETCH(bool, isReverse);
        QFETCH(bool, turns);
        ZrtState state;
        state.lock = lock;
        state.isReverse = isReverse;
        ZrtController controller(state);
        QCOMPARE(controller.pullTrigger().has_value(), turns);
        QCOMPARE(controller.takeChange(), turns);
        state.eventCount = turns ? 1 : 0;
        QCOMPARE(shown(controller.state()), shown(state));
    }

    // The screws of the set-up come in turn, then good ones. All are drawn from one generator, and tightened
    // as the program in use says.
    void events()
    {
        ZrtState state;
        state.screws = {ZrtScrew::Blocked, ZrtScrew::Good, ZrtScrew::Missing};
        state.eventCount = 41;
        state.presets[15].torque = 150;
        state.program = 15;
        state.seed = 3;
        ZrtController controller(state);
        std::mt19937_64 random(3);
        auto const compare = [&](TighteningResult const& result, int count, char const* status) {
            auto const run = controller.pullTrigger();
            QVERIFY(run.has_value());
            QVariantMap event{{"eventCountNo"_s, count},
                              {"program"_s, 15},
                              {"status"_s, QString::fromLatin1(status)},
                              {"torque"_s, result.torque},
                              {"angle"_s, result.angle},
                              {"speed"_s, result.speed},
                              {"time"_s, result.time},
                              {"direction"_s, controller.state().isReverse ? 1 : 0}};
            if (result.error != 0)
                event.insert("error"_s, result.error);
            QCOMPARE(exactly(run->event), exactly(event));
            QCOMPARE(run->duration, result.time);
            QCOMPARE(controller.state().eventCount, count);
        };
        ZrtPreset const preset = state.presets[15];
        compare(tighten(preset, ZrtScrew::Blocked, random), 42, "NOK");
        compare(tighten(preset, ZrtScrew::Good, random), 43, "OK");
        controller.pressReverse();
        QCOMPARE(controller.state().isReverse, true);
        compare(loosen(preset, random), 44, "loosened"); // which takes none of the screws
        controller.pressReverse();
        QCOMPARE(controller.state().isReverse, false);
        compare(tighten(preset, ZrtScrew::Missing, random), 45, "NOK");
        compare(tighten(preset, ZrtScrew::Good, random), 46, "OK");
    }

    void noEventCountIsNegative()
    {
        ZrtState state;
        state.eventCount = std::numeric_limits<int>::max();
        ZrtController controller(state);
        QCOMPARE(controller.pullTrigger()->event.value("eventCountNo"_s), QVariant(0));
        QCOMPARE(controller.state().eventCount, 0);
    }
};

QTEST_GUILESS_MAIN(TestZrtController)
#include "tst_zrt_controller.moc"
