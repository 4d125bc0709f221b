#include "literals.h"
#include "workplace.h"

#include "host/order.h"
#include "host/plugin_library.h"
#include "host/run_event.h"
#include "host/tool.h"
#include "host/workstation.h"
#include "host/zrt_device.h"

#include <plugin_management/d_abstract_plugin.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <QtTest>

#include <functional>
#include <memory>

namespace
{

QString const c_stop = "stopListening"_s;

QByteArray const c_backup = R"({
    "presets": {"1": {"torque": 101}, "2": {"torque": 102}, "3": {"torque": 103}, "15": {"torque": 115}},
    "parameters": {"language": 2, "screenTimeout": 30}
})";

// One preset every 50 ms, and 5 ms until it is told.
constexpr int c_written = 200;
constexpr int c_end = 300;

QString const c_before = "1: 200, 15: 200, brightness: 7"_s;
QString const c_after = "1: 101, 2: 102, 3: 103, 15: 115, language: 2, screenTimeout: 30"_s;

ZrtState formerState()
{
    ZrtState state;
    state.parameters = {{"brightness"_s, 7}};
    return state;
}

/// A workstation with the shipped plugin and a simulated controller.
struct Station
{
    explicit Station(QList<ZrtFault> const& faults = {})
        : device(ZrtSimulatedController::create({formerState(), {}, true, faults}, clock))
        , tool(std::make_unique<Tool>(library.plugin(), QUuid::createUuid(), workstation))
    {
        workstation.connectEndpoint("device"_s, device);
        events.listen([this](qint64 /*time*/, RunEvent const& event) {
            auto const* const result = std::get_if<ResultUpdated>(&event);
            isDone = isDone || (result && result->value.toMap().value("state"_s) == "done"_s);
        });
    }

    void orderRestore(QString const& file)
    {
        tool->order("restore"_s, {{"filePath"_s, file}, {"loadControllerParams"_s, true}});
    }
    /// Lets all happen that is due until then.
    void goTo(qint64 time) { clock.advance(time - clock.now()); }

    /// What a restore changes, as the controller has it now.
    QString content() const
    {
        QStringList list;
        auto const state = device.controller().state();
        for (auto it = state.presets.cbegin(); it != state.presets.cend(); ++it)
            list += "%1: %2"_s.arg(it.key()).arg(it->torque);
        for (auto it = state.parameters.cbegin(); it != state.parameters.cend(); ++it)
            list += "%1: %2"_s.arg(it.key()).arg(it.value());
        return list.join(", "_s);
    }

    PluginLibrary library{QStringLiteral(ZRT_PLUGIN_FILE)};
    ZrtClock clock{ZrtClock::Pace::Simulated};
    RunEvents events{clock};
    Workstation workstation{clock, events};
    ZrtDevice device;
    std::unique_ptr<Tool> tool;
    bool isDone = false; ///< has the command said
};

using Cut = std::function<void(Station&)>;
using Faults = QList<ZrtFault>;

ZrtFault fault(ZrtFault::Kind kind, int delay = 0, QString const& key = {})
{
    ZrtFault fault;
    fault.kind = kind;
    fault.instruction = "restoreBackup"_s;
    fault.nth = 1;
    fault.delay = delay;
    fault.key = key;
    return fault;
}

} // namespace

Q_DECLARE_METATYPE(Cut)
Q_DECLARE_METATYPE(Faults)

/// Restores that do not come to their end, or not as they should: the controller is afterwards as it was, or
/// wholly as the backup has it, and never "done" without being so.
class TestInterruptedRestore : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_backup = m_workplace.write("backup.json"_s, c_backup); }

    void cutAtAnyTime_data()
    {
        QTest::addColumn<Faults>("faults");
        QTest::addColumn<bool>("begins");
        QTest::addColumn<Cut>("cut");
        QTest::addColumn<bool>("goesOn"); // the controller does, for nobody tells it otherwise
        auto const cuts = [](char const* name, Faults const& faults, bool begins = true) {
            auto const row = [&](char const* how, bool goesOn, Cut const& cut) {
                QTest::addRow("%s, %s", name, how) << faults << begins << cut << goesOn;
            };
            row("not cut", true, [](Station&) {});
            row("stopped", false, [](Station& station) { station.tool->stop(c_stop); });
            row("all stopped", false, [](Station& station) { station.tool->stopAll(); });
            row("controller gone", false,
                [](Station& station) { station.device.controller().setConnected(false); });
            row("way to it gone", true,
                [](Station& station) { station.workstation.disconnectEndpoint("device"_s); });
            row("tool gone", true, [](Station& station) { station.tool.reset(); });
            row("ordered again and stopped", false, [](Station& station) {
                station.orderRestore("missing.json"_s);
                station.tool->stop(c_stop);
            });
        };
        cuts("no fault", {});
        cuts("delay", {fault(ZrtFault::Delay, 70)});
        cuts("late", {fault(ZrtFault::Late, 5000)});
        cuts("loss", {fault(ZrtFault::Loss)});
        cuts("duplicate", {fault(ZrtFault::Duplicate)});
        cuts("missing key", {fault(ZrtFault::MissingKey, 0, "statusData"_s)});
        cuts("wrong type", {fault(ZrtFault::WrongType, 0, "statusData"_s)});
        cuts("refused", {fault(ZrtFault::Refused)}, false);
        cuts("disconnected", {fault(ZrtFault::Disconnected)}, false);
    }

    void cutAtAnyTime()
    {
        QFETCH(Faults, faults);
        QFETCH(bool, begins);
        QFETCH(Cut, cut);
        QFETCH(bool, goesOn);
        for (int time = 0; time <= c_end; time += 5) {
            Station station(faults);
            station.orderRestore(m_backup);
            station.goTo(time);
            bool const isWritten = begins && time >= c_written;
            QCOMPARE(station.content(), isWritten ? c_after : c_before);
            cut(station);
            station.goTo(20'000);
            bool const isRestored = begins && (goesOn || isWritten);
            QCOMPARE(station.content(), isRestored ? c_after : c_before);
            QVERIFY2(isRestored || !station.isDone, qPrintable(QString::number(time)));
        }
    }

    // None of the two mixes its presets with the other's half.
    void anotherRestoreMeanwhile()
    {
        QString const other = "1: 150, 2: 151, 3: 152, 15: 153, language: 5"_s;
        QString const file = m_workplace.write(
            "other.json"_s,
            R"({"presets": {"1": {"torque": 150}, "2": {"torque": 151}, "3": {"torque": 152}, "15": {"torque": 153}},
            "parameters": {"language": 5}})");
        for (int time = 0; time <= c_end; time += 5) {
            Station station;
            station.orderRestore(m_backup);
            station.goTo(time);
            station.orderRestore(file);
            for (; station.clock.now() < 1000; station.clock.advance(1))
                QVERIFY2(QStringList({c_before, c_after, other}).contains(station.content()),
                         qPrintable(station.content()));
            QCOMPARE(station.content(), other);
            QVERIFY(station.isDone);
        }
    }

    void programIsKilled()
    {
        // In the middle of a restore that takes its time; nothing on the disk is touched.
        m_workplace.write("controller.json"_s, R"({"presetTime": 20})");
        m_workplace.write("slow.json"_s,
                          R"({"controller": "controller.json", "steps": [
                       {"order": "restore", "parameters": {"filePath": "many.json"}}, {"wait": 600000}]})");
        QByteArray presets;
        for (int i = 1; i <= 10'000; ++i)
            presets += "\"" + QByteArray::number(i) + "\": {},";
        m_workplace.write("many.json"_s, "{\"presets\": {" + presets + "\"0\": {}}}");
        m_workplace.write("trace.jsonl"_s, "former");
        auto const before = m_workplace.contents();

        QProcess program;
        program.setWorkingDirectory(m_workplace.path());
        program.start(QStringLiteral(WORKPLACE_PROGRAM),
                      QProcess::splitCommand("run slow.json --real-time --json --trace trace.jsonl"_s));
        QByteArray out;
        while (out.count("running") < 3 && program.waitForReadyRead(60'000))
            out += program.readAllStandardOutput();
        program.kill();
        QVERIFY(program.waitForFinished());
        QCOMPARE(program.exitStatus(), QProcess::CrashExit);
        out += program.readAllStandardOutput();
        QVERIFY2(out.count("running") >= 3 && !out.contains("\"done\"}"), out.constData());
        auto const after = m_workplace.contents(); // a part of the trace may be among it
        for (auto const& name : before.keys())
            QVERIFY2(after[name] == before[name], qPrintable(name));
    }

private:
    Workplace m_workplace;
    QString m_backup;
};

QTEST_GUILESS_MAIN(TestInterruptedRestore)
#include "tst_interrupted_restore.moc"
