#include "complaint.h"
#include "literals.h"
#include "scratch_folder.h"

#include <zrt_controller/tightening.h>
#include <zrt_controller/zrt_controller.h>
#include <zrt_controller/zrt_formats.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <QtTest>

#include <limits>

namespace
{

constexpr int c_reply = 5;
constexpr int c_preset = 50;

/// A value with its type, whatever it is made of.
QString exactly(QVariant const& value)
{
    QStringList entries;
    if (value.userType() == QMetaType::QVariantMap) {
        QVariantMap const map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            entries += it.key() + ": "_s + exactly(*it);
        return QLatin1Char('{') + entries.join(", "_s) + QLatin1Char('}');
    }
    if (value.userType() == QMetaType::QVariantList) {
        QVariantList const list = value.toList();
        for (auto const& item : list)
            entries += exactly(item);
        return QLatin1Char('[') + entries.join(", "_s) + QLatin1Char(']');
    }
    return value.isValid() ? QString::fromLatin1(value.typeName()) + QLatin1Char(' ') + value.toString()
                           : "invalid"_s;
}

/// All that a state is made of, to compare it as a whole.
QString shown(ZrtState const& state)
{
    QVariantMap presets;
    for (auto it = state.presets.cbegin(); it != state.presets.cend(); ++it)
        presets.insert(QString::number(it.key()), toMap(*it));
    QVariantMap parameters;
    for (auto it = state.parameters.cbegin(); it != state.parameters.cend(); ++it)
        parameters.insert(it.key(), it.value());
    return exactly(QVariantMap{{"model"_s, state.model},
                               {"serialNumber"_s, state.serialNumber},
                               {"firmware"_s, state.firmware},
                               {"lock"_s, state.lock},
                               {"screenLocked"_s, state.isScreenLocked},
                               {"presets"_s, presets},
                               {"parameters"_s, parameters},
                               {"program"_s, state.program},
                               {"triggerMode"_s, state.isTriggerMode},
                               {"reverse"_s, state.isReverse},
                               {"eventCount"_s, state.eventCount},
                               {"screws"_s, state.screws.size()}});
}

QString torquesOf(ZrtState const& state)
{
    QStringList list;
    for (auto it = state.presets.cbegin(); it != state.presets.cend(); ++it)
        list += "%1: %2"_s.arg(it.key()).arg(it->torque);
    return list.join(", "_s);
}

ZrtFault fault(ZrtFault::Kind kind, char const* instruction, int nth, int delay = 0, char const* key = "")
{
    ZrtFault fault;
    fault.kind = kind;
    fault.instruction = QString::fromLatin1(instruction);
    fault.nth = nth;
    fault.delay = delay;
    fault.key = QString::fromLatin1(key);
    return fault;
}

/// A controller with the way to it, and all that comes back.
struct Bench
{
    explicit Bench(ZrtState const& state = {}, QList<ZrtFault> const& list = {},
                   ZrtTimes times = {c_reply, c_preset})
        : controller(ZrtSimulatedController::create({state, times, true, list}, clock))
    {
        if (!controller)
            qFatal("the set-up is not valid");
    }

    quint64 post(char const* instruction, QVariantMap const& arguments = {})
    {
        quint64 const id = ++m_lastId;
        controller->post(id, QString::fromLatin1(instruction), arguments,
                         [this, id](QVariantMap const& reply) {
                             replies += "%1 #%2 %3"_s.arg(clock.now()).arg(id).arg(exactly(reply));
                         });
        return id;
    }
    /// Lets all happen that is planned.
    void finish()
    {
        while (clock.step()) {
        }
    }
    void wait(qint64 duration)
    {
        bool isOver = false;
        clock.after(duration, [&isOver] { isOver = true; });
        while (!isOver)
            clock.step();
    }
    QString answerTo(char const* instruction, QVariantMap const& arguments = {})
    {
        QString answer;
        controller->post(++m_lastId, QString::fromLatin1(instruction), arguments,
                         [&answer](QVariantMap const& reply) { answer = exactly(reply); });
        finish();
        return answer;
    }

    ZrtClock clock{ZrtClock::Pace::Simulated};
    std::unique_ptr<ZrtSimulatedController> controller;
    QStringList replies;

private:
    quint64 m_lastId = 0;
};

QVariantMap lockArguments(int lock)
{
    return {{"lock"_s, lock}};
}

QVariantMap range(QString const& fileName, QVariant const& first, QVariant const& last,
                  bool withParameters = false)
{
    return {{"filePath"_s, fileName},
            {"startPreset"_s, first},
            {"endPreset"_s, last},
            {"loadControllerParams"_s, withParameters}};
}

/// A message about a preset that was written.
QString written(int time, int preset, int done, int total)
{
    return "%1 #1 {statusData: {done: int %2, preset: int %3, progress: int %4, "
           "state: QString %5, total: int %6}}"_s.arg(time)
               .arg(done)
               .arg(preset)
               .arg(100 * done / total)
               .arg(done == total ? "done"_s : "running"_s)
               .arg(total);
}

QString failedAt(int time, QString const& why)
{
    return "%1 #1 {statusData: {error: QString %2, state: QString failed}}"_s.arg(time).arg(why);
}

char const* const c_backup = R"({
    "presets": {"1": {"torque": 101}, "2": {"torque": 102}, "3": {"torque": 103}, "15": {"torque": 115}},
    "parameters": {"language": 2, "timeout": 30}
})";

ZrtState stateWithParameters()
{
    ZrtState state;
    state.parameters = {{"language"_s, 1}, {"volume"_s, 9}};
    return state;
}

} // namespace

Q_DECLARE_METATYPE(ZrtFault)
Q_DECLARE_METATYPE(ZrtScrew)

/// A controller at the end of its line: the instructions that change it, what comes back and when, what
/// happens at the tool, and what goes wrong on the way.
class TestZrtEndpoint : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_backup = m_folder.write("backup.json"_s, c_backup); }

    void presetNumbers_data()
    {
        QTest::addColumn<QVariant>("number");
        QTest::addColumn<bool>("isGood");
        QTest::newRow("int") << QVariant(15) << true;
        QTest::newRow("unsigned") << QVariant(15U) << true;
        QTest::newRow("long") << QVariant(15LL) << true;
        QTest::newRow("unsigned long") << QVariant(15ULL) << true;
        QTest::newRow("digits as text") << QVariant("15"_s) << false;
        QTest::newRow("no such preset") << QVariant(2) << false;
        QTest::newRow("no such preset, unsigned") << QVariant(2U) << false;
        QTest::newRow("negative") << QVariant(-1) << false;
        QTest::newRow("below int") << QVariant(std::numeric_limits<int>::min()) << false;
        QTest::newRow("beyond int") << QVariant(std::numeric_limits<uint>::max()) << false;
        QTest::newRow("15 in its lower half") << QVariant((1LL << 32) + 15) << false;
        QTest::newRow("lowest") << QVariant(std::numeric_limits<qlonglong>::min()) << false;
        QTest::newRow("highest") << QVariant(std::numeric_limits<qulonglong>::max()) << false;
        QTest::newRow("invalid") << QVariant() << false;
        QTest::newRow("true") << QVariant(true) << false;
        QTest::newRow("fraction") << QVariant(15.5) << false;
        QTest::newRow("almost one") << QVariant(0.9) << false;
        QTest::newRow("not a number") << QVariant(qQNaN()) << false;
        QTest::newRow("infinite") << QVariant(qInf()) << false;
        QTest::newRow("empty text") << QVariant(QString()) << false;
        QTest::newRow("text") << QVariant("fifteen"_s) << false;
        QTest::newRow("fraction as text") << QVariant("15.5"_s) << false;
        QTest::newRow("list") << QVariant(QVariantList{15}) << false;
        QTest::newRow("list of texts") << QVariant(QStringList{"15"_s}) << false;
        QTest::newRow("map") << QVariant(QVariantMap{{"program"_s, 15}}) << false;
        QTest::newRow("hash") << QVariant(QVariantHash()) << false;
        QTest::newRow("date") << QVariant(QDate(2000, 1, 15)) << false;
    }

    void presetNumbers()
    {
        QFETCH(QVariant, number);
        QFETCH(bool, isGood);
        ZrtState state;
        state.presets[15].torque = 150;

        Bench bench(state);
        QString const former = shown(bench.controller->state());
        QString const data = bench.answerTo("getPresetData", {{"preset"_s, number}});
        QString const expected = "{presetData: "_s + exactly(toMap(state.presets[15])) + QLatin1Char('}');
        QCOMPARE(data, isGood ? expected : "{error: QString there is no such preset}"_s);
        QCOMPARE(shown(bench.controller->state()), former);

        QString const program = bench.answerTo("setProgram", {{"program"_s, number}});
        QCOMPARE(program, isGood ? "{doneOk: bool true, program: int 15}"_s
                                 : "{error: QString there is no such program}"_s);
        if (isGood)
            state.program = 15;
        QCOMPARE(shown(bench.controller->state()), shown(state));
    }

    void presetData()
    {
        Bench bench;
        QCOMPARE(bench.answerTo("getPresetData", {{"preset"_s, 1}}),
                 "{presetData: {freeSpeed: int 800, maxAngle: int 300, maxTime: int 5000, maxTorque: "
                 "int 260, minAngle: int 10, snugTorque: int 40, speed: int 400, targetAngle: int 90, "
                 "tcamActm: int 0, torque: int 200}}"_s);
        QCOMPARE(bench.answerTo("getPresetData"), "{error: QString there is no such preset}"_s);
        QCOMPARE(bench.answerTo("setProgram"), "{error: QString there is no such program}"_s);
        // Not under another instruction's key.
        QCOMPARE(bench.answerTo("getPresetData", {{"program"_s, 1}}),
                 "{error: QString there is no such preset}"_s);
    }

    void registers_data()
    {
        QTest::addColumn<QString>("channel");
        QTest::addColumn<int>("standard");
        QTest::addColumn<int>("changed");
        QTest::newRow("direction") << "direction"_s << 0 << 1;
        QTest::newRow("event counter") << "eventCount"_s << 0 << 42;
        QTest::newRow("lock") << "lock"_s << 0 << 2;
        QTest::newRow("program") << "program"_s << 1 << 15;
        QTest::newRow("trigger mode") << "triggerMode"_s << 0 << 1;
    }

    void registers()
    {
        QFETCH(QString, channel);
        QFETCH(int, standard);
        QFETCH(int, changed);
        QString const reply = "{channel: QString %1, values: [int %2]}"_s;
        Bench bench;
        QCOMPARE(bench.answerTo("getRegister", {{"channel"_s, channel}}), reply.arg(channel).arg(standard));
        QCOMPARE(shown(bench.controller->state()), shown(ZrtState()));

        ZrtState state;
        state.isReverse = true;
        state.eventCount = 42;
        state.lock = ZrtState::LooseningLocked;
        state.program = 15;
        state.isTriggerMode = true;
        Bench other(state);
        QCOMPARE(other.answerTo("getRegister", {{"channel"_s, channel}}), reply.arg(channel).arg(changed));
    }

    void unknownRegisters_data()
    {
        QTest::addColumn<QVariantMap>("arguments");
        auto const row = [](char const* name, QVariant const& channel) {
            QTest::newRow(name) << QVariantMap{{"channel"_s, channel}};
        };
        QTest::newRow("none") << QVariantMap();
        row("unknown", "temperature"_s);
        row("empty", QString());
        row("another case", "Direction"_s);
        row("with a space", "direction "_s);
        row("number", 0);
        row("invalid", QVariant());
        row("list", QVariantList{"direction"_s});
        row("map", QVariantMap());
    }

    void unknownRegisters()
    {
        QFETCH(QVariantMap, arguments);
        Bench bench;
        QCOMPARE(bench.answerTo("getRegister", arguments), "{error: QString there is no such channel}"_s);
        QCOMPARE(shown(bench.controller->state()), shown(ZrtState()));
    }

    void triggerMode_data()
    {
        QTest::addColumn<QVariantMap>("arguments");
        QTest::addColumn<bool>("isOn");
        QTest::newRow("without resetMode") << QVariantMap() << true;
        QTest::newRow("resetMode false") << QVariantMap{{"resetMode"_s, false}} << true;
        QTest::newRow("resetMode true") << QVariantMap{{"resetMode"_s, true}} << false;
    }

    void triggerMode()
    {
        QFETCH(QVariantMap, arguments);
        QFETCH(bool, isOn);
        for (bool const wasOn : {false, true}) {
            ZrtState state;
            state.isTriggerMode = wasOn;
            Bench bench(state);
            QCOMPARE(bench.answerTo("SetTriggerProgram", arguments), "{doneOk: bool true}"_s);
            state.isTriggerMode = isOn;
            QCOMPARE(shown(bench.controller->state()), shown(state));
        }
    }

    void triggerModeRefuses_data()
    {
        QTest::addColumn<QVariant>("resetMode");
        QTest::newRow("text") << QVariant("off"_s);
        QTest::newRow("number") << QVariant(1);
        QTest::newRow("list") << QVariant(QVariantList());
        QTest::newRow("map") << QVariant(QVariantMap());
    }

    void triggerModeRefuses()
    {
        QFETCH(QVariant, resetMode);
        for (bool const wasOn : {false, true}) {
            ZrtState state;
            state.isTriggerMode = wasOn;
            Bench bench(state);
            QString const reply = bench.answerTo("SetTriggerProgram", {{"resetMode"_s, resetMode}});
            QVERIFY2(reply.startsWith("{error: QString "_s), qPrintable(reply));
            QCOMPARE(shown(bench.controller->state()), shown(state));
        }
    }

    void programOfASetupIsThere_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("neither given") << QByteArray("{}");
        QTest::newRow("program") << QByteArray(R"({"program": 15})");
        QTest::newRow("both") << QByteArray(R"({"presets": {"3": {}}, "program": 3})");
        QTest::newRow("presets without the default program") << QByteArray(R"({"presets": {"3": {}}})");
    }

    // Either the file is refused, or the program in use is one of the presets.
    void programOfASetupIsThere()
    {
        QFETCH(QByteArray, content);
        QString const fileName = m_folder.write("setup.json"_s, content);
        ZrtSetup setup;
        QString const complaint = complaintOf([&] { setup = readZrtSetup(fileName); });
        QVERIFY(complaint != QLatin1String("no complaint")
                || setup.state.presets.contains(setup.state.program));
    }

    void locks_data()
    {
        QTest::addColumn<int>("lock");
        QTest::addColumn<bool>("isReverse");
        QTest::addColumn<bool>("turns");
        QTest::newRow("free, fasten") << 0 << false << true;
        QTest::newRow("free, loosen") << 0 << true << true;
        QTest::newRow("all locked, fasten") << 1 << false << false;
        QTest::newRow("all locked, loosen") << 1 << true << false;
        QTest::newRow("loosening locked, fasten") << 2 << false << true;
        QTest::newRow("loosening locked, loosen") << 2 << true << false;
    }

    void locks()
    {
        QFETCH(int, lock);
        QFETCH(bool, isReverse);
        QFETCH(bool, turns);
        ZrtState state;
        state.isReverse = isReverse;
        state.screws = {ZrtScrew::Blocked};
        Bench bench(state);
        bench.post("setLock", lockArguments(lock));
        QCOMPARE(bench.controller->pullTrigger().has_value(), turns);
        state.lock = lock;
        if (turns) {
            state.eventCount = 1;
            if (!isReverse)
                state.screws.clear();
        }
        QCOMPARE(shown(bench.controller->state()), shown(state));
    }

    void reverse()
    {
        Bench bench;
        for (bool const isReverse : {true, false, true}) {
            bench.controller->pressReverse();
            QCOMPARE(bench.controller->state().isReverse, isReverse);
            QCOMPARE(bench.controller->state().isReverse, isReverse);
            QCOMPARE(bench.answerTo("getRegister", {{"channel"_s, "direction"_s}}),
                     "{channel: QString direction, values: [int %1]}"_s.arg(isReverse ? 1 : 0));
        }
    }

    void eventOfAScrew_data()
    {
        QTest::addColumn<bool>("isReverse");
        QTest::addColumn<ZrtScrew>("screw");
        QTest::addColumn<QString>("status");
        QTest::addColumn<int>("error");
        QTest::newRow("good") << false << ZrtScrew::Good << "OK"_s << 0;
        QTest::newRow("cross-threaded") << false << ZrtScrew::CrossThreaded << "NOK"_s << 330;
        QTest::newRow("stripped") << false << ZrtScrew::Stripped << "NOK"_s << 332;
        QTest::newRow("missing") << false << ZrtScrew::Missing << "NOK"_s << 311;
        QTest::newRow("soft") << false << ZrtScrew::Soft << "NOK"_s << 332;
        QTest::newRow("blocked") << false << ZrtScrew::Blocked << "NOK"_s << 337;
        QTest::newRow("released early") << false << ZrtScrew::ReleasedEarly << "NOK"_s << 333;
        QTest::newRow("loosened") << true << ZrtScrew::Missing << "loosened"_s << 0;
    }

    void eventOfAScrew()
    {
        QFETCH(bool, isReverse);
        QFETCH(ZrtScrew, screw);
        QFETCH(QString, status);
        QFETCH(int, error);
        ZrtState state;
        state.isReverse = isReverse;
        state.screws = {screw};
        state.eventCount = 41;
        state.program = 15;
        state.presets[15].torque = 150; // what is in use, not what stands first
        state.seed = 3;
        ZrtController controller(state);
        auto const run = controller.pullTrigger();
        QVERIFY(run.has_value());

        std::mt19937_64 random(3);
        ZrtPreset const preset = state.presets[15];
        TighteningResult const result = isReverse ? loosen(preset, random) : tighten(preset, screw, random);
        QCOMPARE(result.error, error);
        QString const expected =
            "{angle: int %1, direction: int %2, %3eventCountNo: int 42, program: int 15, speed: int "
            "%4, status: QString %5, time: int %6, torque: int %7}"_s.arg(result.angle)
                .arg(isReverse ? 1 : 0)
                .arg(error == 0 ? QString() : "error: int %1, "_s.arg(error))
                .arg(result.speed)
                .arg(status)
                .arg(result.time)
                .arg(result.torque);
        QCOMPARE(exactly(run->event), expected);
        QCOMPARE(run->duration, result.time);
    }

    void eventCounter()
    {
        ZrtState state;
        state.eventCount = 7;
        ZrtController controller(state);
        for (int count = 8; count < 12; ++count) {
            QCOMPARE(controller.pullTrigger()->event.value("eventCountNo"_s), QVariant(count));
            QCOMPARE(controller.state().eventCount, count);
            controller.pressReverse(); // loosening counts, too
        }
    }

    void highestEventCount()
    {
        ZrtState state;
        state.eventCount = std::numeric_limits<int>::max(); // a set-up file may say so
        ZrtController controller(state);
        auto const run = controller.pullTrigger();
        QVERIFY(run.has_value());
        QVERIFY(run->event.value("eventCountNo"_s).toInt() >= 0);
        QVERIFY(controller.state().eventCount >= 0);
    }

    void screwsInTurn()
    {
        ZrtState state;
        state.screws = {ZrtScrew::Blocked, ZrtScrew::Good, ZrtScrew::Missing};
        ZrtController controller(state);
        QList<int> errors;
        for (int i = 0; i < 6; ++i)
            errors += controller.pullTrigger()->event.value("error"_s).toInt();
        QCOMPARE(errors, QList<int>({337, 0, 311, 0, 0, 0}));
    }

    void sameSeedSameDay()
    {
        auto const day = [](quint64 seed) {
            ZrtState state;
            state.seed = seed;
            Bench bench(state);
            bench.post("listenEventsData");
            for (int i = 0; i < 5; ++i) {
                bench.controller->pullTrigger();
                bench.finish();
            }
            return bench.replies;
        };
        QCOMPARE(day(7).size(), 5);
        QCOMPARE(day(7), day(7));
        QVERIFY(day(7) != day(8));
    }

    void eventsToAllWhoListen()
    {
        Bench bench;
        bench.post("listenEventsData");
        bench.post("listenEventsData");
        QStringList expected;
        for (int pull = 1; pull <= 3; ++pull) {
            int const duration = bench.controller->pullTrigger().value_or(-1);
            QVERIFY(duration > 0);
            qint64 const time = bench.clock.now() + duration + c_reply;
            bench.finish();
            QCOMPARE(bench.replies.size(), 2 * pull);
            for (int id = 1; id <= 2; ++id) {
                QString const reply = bench.replies[2 * pull - 3 + id];
                QVERIFY2(reply.startsWith("%1 #%2 {values: {angle: "_s.arg(time).arg(id)), qPrintable(reply));
                QVERIFY2(reply.contains("eventCountNo: int %1, "_s.arg(pull)), qPrintable(reply));
            }
            QCOMPARE(bench.replies[2 * pull - 1].section(QLatin1Char(' '), 2),
                     bench.replies[2 * pull - 2].section(QLatin1Char(' '), 2));
        }
    }

    void eventAfterTheTool()
    {
        Bench bench;
        bench.post("listenEventsData");
        bench.finish();
        QCOMPARE(bench.replies, QStringList()); // listening is not answered by itself
        int const duration = bench.controller->pullTrigger().value_or(-1);
        bench.wait(duration + c_reply - 1);
        QCOMPARE(bench.replies, QStringList());
        bench.wait(1);
        QCOMPARE(bench.replies.size(), 1);
        QVERIFY2(bench.replies[0].contains("time: int %1, "_s.arg(duration)), qPrintable(bench.replies[0]));
    }

    void listenersComeAndGo()
    {
        Bench bench;
        bench.controller->pullTrigger(); // nobody listens
        bench.finish();
        QCOMPARE(bench.replies, QStringList());

        quint64 const first = bench.post("listenEventsData");
        bench.controller->pullTrigger();
        quint64 const second = bench.post("listenEventsData"); // while the tool turns
        bench.controller->withdraw(first);
        bench.finish();
        QCOMPARE(bench.replies.size(), 1);
        QVERIFY(bench.replies[0].contains(" #%1 "_s.arg(second)));
        QVERIFY(bench.replies[0].contains("eventCountNo: int 2, "_s)); // those unheard count, too

        bench.controller->withdraw(99); // nobody's
        bench.controller->withdraw(second);
        bench.controller->withdraw(second);
        bench.controller->pullTrigger();
        bench.finish();
        QCOMPARE(bench.replies.size(), 1);
    }

    void noEventFromALockedTool()
    {
        ZrtState state;
        state.lock = ZrtState::AllLocked;
        Bench bench(state);
        bench.post("listenEventsData");
        QVERIFY(!bench.controller->pullTrigger());
        bench.finish();
        QCOMPARE(bench.replies, QStringList());
    }

    void faults_data()
    {
        QTest::addColumn<QList<ZrtFault>>("faults");
        QTest::addColumn<QStringList>("replies");
        QTest::addColumn<int>("lock"); // whether the instruction was carried out
        QTest::addColumn<bool>("isConnected");

        QString const reply =
            " #1 {fasteningLocked: bool true, lockStatus: int 1, looseningLocked: bool true}"_s;
        auto const at = [](int time, QString const& rest) { return QString::number(time) + rest; };
        QString const refused = " #1 {error: QString refused}"_s;
        auto const row = [](char const* name, QList<ZrtFault> const& faults, QStringList const& replies,
                            int lock = 1, bool isConnected = true) {
            QTest::newRow(name) << faults << replies << lock << isConnected;
        };
        char const* const name = "setLock";
        row("none", {}, {at(5, reply)});
        row("of another instruction", {fault(ZrtFault::Loss, "getInfo", 1)}, {at(5, reply)});
        row("of the next one", {fault(ZrtFault::Loss, name, 2)}, {at(5, reply)});
        row("delay", {fault(ZrtFault::Delay, name, 1, 100)}, {at(105, reply)});
        row("late", {fault(ZrtFault::Late, name, 1, 5000)}, {at(5005, reply)});
        row("loss", {fault(ZrtFault::Loss, name, 1)}, {});
        row("duplicate", {fault(ZrtFault::Duplicate, name, 1)}, {at(5, reply), at(5, reply)});
        row("missing key", {fault(ZrtFault::MissingKey, name, 1, 0, "lockStatus")},
            {"5 #1 {fasteningLocked: bool true, looseningLocked: bool true}"_s});
        row("key that misses anyway", {fault(ZrtFault::MissingKey, name, 1, 0, "doneOk")}, {at(5, reply)});
        row("wrong type", {fault(ZrtFault::WrongType, name, 1, 0, "lockStatus")},
            {"5 #1 {fasteningLocked: bool true, lockStatus: QString ???, looseningLocked: bool true}"_s});
        row("wrong type of a key that misses", {fault(ZrtFault::WrongType, name, 1, 0, "doneOk")},
            {at(5, reply)});
        row("refused", {fault(ZrtFault::Refused, name, 1)}, {at(5, refused)}, 0);
        row("disconnected", {fault(ZrtFault::Disconnected, name, 1)}, {}, 0, false);

        row("delay and late", {fault(ZrtFault::Delay, name, 1, 100), fault(ZrtFault::Late, name, 1, 5000)},
            {at(5105, reply)});
        row("delay and duplicate",
            {fault(ZrtFault::Delay, name, 1, 100), fault(ZrtFault::Duplicate, name, 1)},
            {at(105, reply), at(105, reply)});
        row("duplicate and loss", {fault(ZrtFault::Duplicate, name, 1), fault(ZrtFault::Loss, name, 1)}, {});
        row("wrong type and missing keys",
            {fault(ZrtFault::WrongType, name, 1, 0, "lockStatus"),
             fault(ZrtFault::MissingKey, name, 1, 0, "fasteningLocked"),
             fault(ZrtFault::MissingKey, name, 1, 0, "looseningLocked")},
            {"5 #1 {lockStatus: QString ???}"_s});
        row("refused late", {fault(ZrtFault::Refused, name, 1), fault(ZrtFault::Late, name, 1, 5000)},
            {at(5005, refused)}, 0);
        row("refused and lost", {fault(ZrtFault::Refused, name, 1), fault(ZrtFault::Loss, name, 1)}, {}, 0);
        row("refused and disconnected",
            {fault(ZrtFault::Refused, name, 1), fault(ZrtFault::Disconnected, name, 1)}, {}, 0, false);
    }

    void faults()
    {
        QFETCH(QList<ZrtFault>, faults);
        QFETCH(QStringList, replies);
        QFETCH(int, lock);
        QFETCH(bool, isConnected);
        Bench bench({}, faults);
        bench.post("setLock", lockArguments(1));
        bench.finish();
        QCOMPARE(bench.replies, replies);
        QCOMPARE(bench.controller->isConnected(), isConnected);
        ZrtState state;
        state.lock = lock;
        QCOMPARE(shown(bench.controller->state()), shown(state));
    }

    void faultsOfEvents_data()
    {
        QTest::addColumn<ZrtFault>("matching");
        QTest::addColumn<int>("messages"); // for each pull
        QTest::addColumn<int>("delay");
        QTest::addColumn<QString>("content"); // what all begin with
        QString const values = "{values: {angle: int "_s;
        char const* const name = "listenEventsData";
        QTest::newRow("delay") << fault(ZrtFault::Delay, name, 1, 100) << 1 << 100 << values;
        QTest::newRow("late") << fault(ZrtFault::Late, name, 1, 5000) << 1 << 5000 << values;
        QTest::newRow("loss") << fault(ZrtFault::Loss, name, 1) << 0 << 0 << QString();
        QTest::newRow("duplicate") << fault(ZrtFault::Duplicate, name, 1) << 2 << 0 << values;
        QTest::newRow("missing key") << fault(ZrtFault::MissingKey, name, 1, 0, "values") << 1 << 0 << "{}"_s;
        QTest::newRow("wrong type") << fault(ZrtFault::WrongType, name, 1, 0, "values") << 1 << 0
                                    << "{values: QString ???}"_s;
        QTest::newRow("refused") << fault(ZrtFault::Refused, name, 1) << 0 << 0 << QString();
        QTest::newRow("disconnected") << fault(ZrtFault::Disconnected, name, 1) << 0 << 0 << QString();
    }

    void faultsOfEvents()
    {
        QFETCH(ZrtFault, matching);
        QFETCH(int, messages);
        QFETCH(int, delay);
        QFETCH(QString, content);
        Bench bench({}, {matching});
        bench.post("listenEventsData");
        bench.finish();
        QCOMPARE(bench.replies, matching.kind == ZrtFault::Refused
                                    ? QStringList{"5 #1 {error: QString refused}"_s}
                                    : QStringList());
        bench.replies.clear();
        for (int pull = 1; pull <= 2; ++pull) { // all replies, not the first alone
            qint64 const pulled = bench.clock.now();
            int const duration = bench.controller->pullTrigger().value_or(-1);
            QVERIFY(duration > 0);
            bench.finish();
            QCOMPARE(bench.replies.size(), pull * messages);
            QString const expected = "%1 #1 "_s.arg(pulled + duration + c_reply + delay) + content;
            for (int i = (pull - 1) * messages; i < pull * messages; ++i)
                QVERIFY2(bench.replies[i].startsWith(expected), qPrintable(bench.replies[i]));
        }
        QCOMPARE(bench.controller->state().eventCount, 2);
    }

    void faultsOfARestore_data()
    {
        QTest::addColumn<ZrtFault>("matching");
        QTest::addColumn<QStringList>("replies");
        QTest::addColumn<bool>("isRestored");
        auto const row = [](char const* name, ZrtFault const& matching, QStringList const& replies,
                            bool isRestored = true) {
            QTest::newRow(name) << matching << replies << isRestored;
        };
        char const* const name = "restoreBackup";
        row("of another instruction", fault(ZrtFault::Loss, "setLock", 1),
            {written(55, 1, 1, 2), written(105, 2, 2, 2)});
        row("delay", fault(ZrtFault::Delay, name, 1, 100), {written(155, 1, 1, 2), written(205, 2, 2, 2)});
        row("late", fault(ZrtFault::Late, name, 1, 5000), {written(5055, 1, 1, 2), written(5105, 2, 2, 2)});
        row("loss", fault(ZrtFault::Loss, name, 1), {});
        row("duplicate", fault(ZrtFault::Duplicate, name, 1),
            {written(55, 1, 1, 2), written(55, 1, 1, 2), written(105, 2, 2, 2), written(105, 2, 2, 2)});
        row("missing key", fault(ZrtFault::MissingKey, name, 1, 0, "statusData"),
            {"55 #1 {}"_s, "105 #1 {}"_s});
        row("wrong type", fault(ZrtFault::WrongType, name, 1, 0, "statusData"),
            {"55 #1 {statusData: QString ???}"_s, "105 #1 {statusData: QString ???}"_s});
        row("refused", fault(ZrtFault::Refused, name, 1), {"5 #1 {error: QString refused}"_s}, false);
        row("disconnected", fault(ZrtFault::Disconnected, name, 1), {}, false);
    }

    void faultsOfARestore()
    {
        QFETCH(ZrtFault, matching);
        QFETCH(QStringList, replies);
        QFETCH(bool, isRestored);
        Bench bench({}, {matching});
        bench.post("restoreBackup", range(m_backup, 1, 2));
        bench.finish();
        QCOMPARE(bench.replies, replies);
        QCOMPARE(torquesOf(bench.controller->state()),
                 isRestored ? "1: 101, 2: 102, 15: 200"_s : "1: 200, 15: 200"_s);
    }

    void gone()
    {
        Bench bench({}, {fault(ZrtFault::Disconnected, "getInfo", 1)});
        bench.post("listenEventsData");
        bench.post("setLock", lockArguments(2));
        bench.controller->pullTrigger();
        QVERIFY(bench.controller->isConnected());
        bench.post("getInfo");
        QVERIFY(!bench.controller->isConnected());
        ZrtState state;
        state.lock = 2;
        state.eventCount = 1;
        QCOMPARE(shown(bench.controller->state()), shown(state));
        for (char const* const instruction : {"setLock", "restoreBackup"}) {
            QByteArray const message = QByteArray("ZrtSimulatedController::post: \"") + instruction
                                       + "\": the controller is not connected";
            QTest::ignoreMessage(QtWarningMsg, message.constData());
        }
        bench.post("setLock", lockArguments(1));
        bench.post("restoreBackup", range(m_backup, 0, 0));
        bench.finish();
        QCOMPARE(bench.replies, QStringList()); // what was on its way neither
        QCOMPARE(shown(bench.controller->state()), shown(state));
    }

    void restoreRange_data()
    {
        QTest::addColumn<QVariant>("first");
        QTest::addColumn<QVariant>("last");
        QTest::addColumn<QStringList>("replies");
        QTest::addColumn<QString>("torques");
        auto const row = [](char const* name, QVariant const& first, QVariant const& last,
                            QStringList const& replies, char const* torques) {
            QTest::newRow(name) << first << last << replies << QString::fromLatin1(torques);
        };
        QStringList const all{written(55, 1, 1, 4), written(105, 2, 2, 4), written(155, 3, 3, 4),
                              written(205, 15, 4, 4)};
        row("all", 0, 0, all, "1: 101, 2: 102, 3: 103, 15: 115");
        row("all, unsigned", 0U, 0U, all, "1: 101, 2: 102, 3: 103, 15: 115");
        row("more than all", 0, 65'535, all, "1: 101, 2: 102, 3: 103, 15: 115");
        row("just all", 1, 15, all, "1: 101, 2: 102, 3: 103, 15: 115");
        row("up to", 0, 2, {written(55, 1, 1, 2), written(105, 2, 2, 2)}, "1: 101, 2: 102, 15: 200");
        row("from", 3, 100, {written(55, 3, 1, 2), written(105, 15, 2, 2)}, "1: 200, 3: 103, 15: 115");
        row("some", 2, 14, {written(55, 2, 1, 2), written(105, 3, 2, 2)}, "1: 200, 2: 102, 3: 103, 15: 200");
        row("one", 2, 2, {written(55, 2, 1, 1)}, "1: 200, 2: 102, 15: 200");
        row("thirds", 1, 3, {written(55, 1, 1, 3), written(105, 2, 2, 3), written(155, 3, 3, 3)},
            "1: 101, 2: 102, 3: 103, 15: 200");
        row("none of them", 4, 14, {failedAt(5, "the backup holds no preset from 4 to 14"_s)},
            "1: 200, 15: 200");
        row("wrong way round", 3, 1, {failedAt(5, "the backup holds no preset from 3 to 1"_s)},
            "1: 200, 15: 200");
        row("no end", 3, 0, {failedAt(5, "the backup holds no preset from 3 to 0"_s)}, "1: 200, 15: 200");
    }

    void restoreRange()
    {
        QFETCH(QVariant, first);
        QFETCH(QVariant, last);
        QFETCH(QStringList, replies);
        QFETCH(QString, torques);
        Bench bench;
        bench.post("restoreBackup", range(m_backup, first, last));
        bench.finish();
        QCOMPARE(bench.replies, replies);
        QCOMPARE(torquesOf(bench.controller->state()), torques);
    }

    void restoreParameters_data()
    {
        QTest::addColumn<bool>("withParameters");
        QTest::newRow("with") << true;
        QTest::newRow("without") << false;
    }

    void restoreParameters()
    {
        QFETCH(bool, withParameters);
        ZrtState state = stateWithParameters();
        Bench bench(state);
        bench.post("restoreBackup", range(m_backup, 2, 2, withParameters));
        bench.finish();
        QCOMPARE(bench.replies, QStringList{written(55, 2, 1, 1)});
        state.presets[2].torque = 102;
        if (withParameters)
            state.parameters = {{"language"_s, 2}, {"timeout"_s, 30}};
        QCOMPARE(shown(bench.controller->state()), shown(state));
    }

    void restoreIsCheckedFirst_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("message");
        auto const row = [](char const* name, char const* content, char const* message) {
            QTest::newRow(name) << QByteArray(content) << QString::fromLatin1(message);
        };
        row("no presets", R"({"parameters": {}})", "1: the key \"presets\" is missing");
        row("bad preset in the range", R"({"presets": {"1": {}, "2": {"torque": 0}}})",
            "1: presets.2.torque: must be a whole number from 1 to 100000");
        row("bad preset beyond the range", R"({"presets": {"1": {}, "15": {"torque": 0}}})",
            "1: presets.15.torque: must be a whole number from 1 to 100000");
        row("contradictory preset", R"({"presets": {"1": {}, "2": {"torque": 400}}})",
            "1: presets.2: \"maxTorque\" must be more than \"torque\"");
        row("bad parameter that is not asked for", R"({"presets": {"1": {}}, "parameters": {"a": null}})",
            "1: parameters.a: must be a whole number from -2147483648 to 2147483647");
        row("unknown key", R"({"presets": {"1": {}}, "screws": []})",
            "1: unknown key \"screws\", known are presets, parameters");
    }

    void restoreIsCheckedFirst()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, message);
        QString const fileName = m_folder.write("bad.json"_s, content);
        Bench bench(stateWithParameters());
        bench.post("restoreBackup", range(fileName, 1, 2));
        bench.finish();
        QCOMPARE(bench.replies, QStringList{failedAt(5, fileName + QLatin1Char(':') + message)});
        QCOMPARE(shown(bench.controller->state()), shown(stateWithParameters()));
    }

    void restoreOfAMissingFile()
    {
        for (QString const& fileName : {m_folder.filePath("none.json"_s), m_folder.path(), QString()}) {
            QString const message = complaintOf([&] { readZrtBackup(fileName); });
            Bench bench;
            bench.post("restoreBackup", range(fileName, 0, 0));
            bench.finish();
            QCOMPARE(bench.replies, QStringList{failedAt(5, message)});
            QString const beginning = fileName.isEmpty() ? "the name of the file"_s : fileName + ": "_s;
            QVERIFY2(message.startsWith(beginning), qPrintable(message));
            QCOMPARE(shown(bench.controller->state()), shown(ZrtState()));
        }
    }

    void restoreNeedsItsArguments_data()
    {
        QTest::addColumn<QVariantMap>("arguments");
        auto const row = [](char const* name, QVariant const& first, QVariant const& last) {
            QTest::newRow(name) << range(QString(), first, last);
        };
        row("texts that are no numbers", "one"_s, "two"_s);
        row("digits as text", "1"_s, "2"_s);
        row("negative", -1, 2);
        row("empty texts", QString(), QString());
        row("invalid", QVariant(), QVariant());
        row("truth values", false, false);
        row("fractions", 0.3, 0.3);
        row("lists", QVariantList(), QVariantList());
        QTest::newRow("no range") << QVariantMap{{"filePath"_s, QString()}};
    }

    // What a range cannot be read from is not "all".
    void restoreNeedsItsArguments()
    {
        QFETCH(QVariantMap, arguments);
        arguments.insert("filePath"_s, m_backup);
        Bench bench;
        bench.post("restoreBackup", arguments);
        bench.finish();
        QCOMPARE(shown(bench.controller->state()), shown(ZrtState()));
        QCOMPARE(bench.replies.size(), 1);
        QVERIFY2(bench.replies[0].contains("error: QString "_s), qPrintable(bench.replies[0]));
    }

    void restoreThatCannotBeWritten_data()
    {
        QTest::addColumn<QList<int>>("unwritable");
        QTest::addColumn<QStringList>("replies");
        auto const message = [](int time, int preset) {
            return failedAt(time, "preset %1 cannot be written; nothing was restored"_s.arg(preset));
        };
        QTest::newRow("the first") << QList<int>{1} << QStringList{message(55, 1)};
        QTest::newRow("half way") << QList<int>{
            3} << QStringList{written(55, 1, 1, 4), written(105, 2, 2, 4), message(155, 3)};
        QTest::newRow("the last") << QList<int>{15}
                                  << QStringList{written(55, 1, 1, 4), written(105, 2, 2, 4),
                                                 written(155, 3, 3, 4), message(205, 15)};
        QTest::newRow("two of them") << QList<int>{15, 2}
                                     << QStringList{written(55, 1, 1, 4), message(105, 2)};
    }

    void restoreThatCannotBeWritten()
    {
        QFETCH(QList<int>, unwritable);
        QFETCH(QStringList, replies);
        ZrtState state = stateWithParameters();
        state.unwritablePresets = unwritable;
        Bench bench(state);
        bench.post("restoreBackup", range(m_backup, 0, 0, true));
        bench.finish();
        QCOMPARE(bench.replies, replies);
        QCOMPARE(shown(bench.controller->state()), shown(state));

        // What is not in the range does not matter.
        Bench other(state);
        other.post("restoreBackup", range(m_backup, 1, 1));
        other.finish();
        QCOMPARE(torquesOf(other.controller->state()),
                 unwritable.contains(1) ? "1: 200, 15: 200"_s : "1: 101, 15: 200"_s);
    }

    void restoreWithdrawn_data()
    {
        QTest::addColumn<int>("time");
        QTest::addColumn<int>("messages");
        QTest::newRow("at once") << 0 << 0;
        QTest::newRow("before the first preset") << 49 << 0;
        QTest::newRow("half way") << 120 << 2;
        QTest::newRow("before the last preset") << 199 << 3;
    }

    void restoreWithdrawn()
    {
        QFETCH(int, time);
        QFETCH(int, messages);
        ZrtState const state = stateWithParameters();
        Bench bench(state);
        quint64 const id = bench.post("restoreBackup", range(m_backup, 0, 0, true));
        bench.wait(time);
        bench.controller->withdraw(id);
        bench.finish();
        QCOMPARE(bench.replies.size(), messages);
        QCOMPARE(shown(bench.controller->state()), shown(state));
    }

    void restoreDisconnected_data()
    {
        QTest::addColumn<int>("time");
        QTest::addColumn<QStringList>("replies");
        QTest::newRow("at once") << 0 << QStringList();
        QTest::newRow("half way") << 120 << QStringList{written(55, 1, 1, 4), written(105, 2, 2, 4)};
        QTest::newRow("with a message on its way") << 103 << QStringList{written(55, 1, 1, 4)};
        QTest::newRow("before the last preset")
            << 199 << QStringList{written(55, 1, 1, 4), written(105, 2, 2, 4), written(155, 3, 3, 4)};
    }

    void restoreDisconnected()
    {
        QFETCH(int, time);
        QFETCH(QStringList, replies);
        ZrtState const state = stateWithParameters();
        Bench bench(state, {fault(ZrtFault::Disconnected, "getInfo", 1)});
        bench.post("restoreBackup", range(m_backup, 0, 0, true));
        bench.wait(time);
        bench.post("getInfo");
        bench.finish();
        QCOMPARE(bench.replies, replies);
        QCOMPARE(shown(bench.controller->state()), shown(state));
    }

    void restoreKeepsTheFileItChecked()
    {
        Bench bench;
        bench.post("restoreBackup", range(m_backup, 0, 0));
        bench.wait(60);
        m_folder.write("backup.json"_s, "gone bad meanwhile");
        bench.finish();
        QCOMPARE(torquesOf(bench.controller->state()), "1: 101, 2: 102, 3: 103, 15: 115"_s);
    }

    void restoreCountsWhenTheLastIsWritten()
    {
        Bench bench;
        bench.post("restoreBackup", range(m_backup, 1, 3));
        bench.wait(3 * c_preset - 1);
        QCOMPARE(torquesOf(bench.controller->state()), "1: 200, 15: 200"_s);
        bench.wait(1);
        QCOMPARE(torquesOf(bench.controller->state()), "1: 101, 2: 102, 3: 103, 15: 200"_s);
    }

private:
    ScratchFolder m_folder;
    QString m_backup;
};

QTEST_GUILESS_MAIN(TestZrtEndpoint)
#include "tst_zrt_endpoint.moc"
