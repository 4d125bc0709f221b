#include "literals.h"
#include "outcome.h"
#include "scratch_folder.h"

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

QString const restore = "restore"_s;
QString const stopListening = "stopListening"_s;
QString const filePath = "filePath"_s;

QByteArray const backup = R"({
    "presets": {"1": {"torque": 101}, "2": {"torque": 102}, "3": {"torque": 103}, "15": {"torque": 115}},
    "parameters": {"language": 2, "screenTimeout": 30}
})";

// One preset every 50 ms, and 5 ms until it is told.
constexpr int c_written = 200;
constexpr int c_end = 300;

/// What a restore changes.
QString restorable(ZrtSimulatedController const& controller)
{
    QStringList list;
    auto const state = controller.state();
    for (auto it = state.presets.cbegin(); it != state.presets.cend(); ++it)
        list += "%1: %2"_s.arg(it.key()).arg(it->torque);
    for (auto it = state.parameters.cbegin(); it != state.parameters.cend(); ++it)
        list += "%1: %2"_s.arg(it.key()).arg(it.value());
    return list.join(", "_s);
}

QString const before = "1: 200, 15: 200, brightness: 7"_s;
QString const after = "1: 101, 2: 102, 3: 103, 15: 115, language: 2, screenTimeout: 30"_s;

ZrtState formerState()
{
    ZrtState state;
    state.parameters = {{"brightness"_s, 7}};
    return state;
}

/// A workstation with the shipped plugin and a simulated controller.
struct Station
{
    explicit Station(ZrtState const& state = formerState(), QList<ZrtFault> const& list = {})
        : device(ZrtSimulatedController::create({state, {}, true, list}, clock))
        , tool(std::make_unique<Tool>(library.plugin(), QUuid::createUuid(), workstation))
    {
        workstation.connectEndpoint("device"_s, device);
        events.listen([this](qint64 /*time*/, RunEvent const& event) {
            if (auto const* const result = std::get_if<ResultUpdated>(&event))
                states += result->value.toMap().value("state"_s).toString();
        });
    }

    void orderRestore(QString const& file)
    {
        tool->order(restore, {{filePath, file}, {"loadControllerParams"_s, true}});
    }
    /// Lets all happen that is due until then.
    void goTo(qint64 time) { clock.advance(time - clock.now()); }
    bool isDone() const { return states.contains("done"_s); }

    PluginLibrary library{QStringLiteral(ZRT_PLUGIN_FILE)};
    ZrtClock clock{ZrtClock::Pace::Simulated};
    RunEvents events{clock};
    Workstation workstation{clock, events};
    ZrtDevice device;
    std::unique_ptr<Tool> tool;
    QStringList states; ///< as the command publishes them
};

using Cut = std::function<void(Station&)>;

ZrtFault faultOf(ZrtFault::Kind kind, int delay)
{
    ZrtFault fault;
    fault.kind = kind;
    fault.instruction = "restoreBackup"_s;
    fault.nth = 1;
    fault.delay = delay;
    if (kind == ZrtFault::MissingKey || kind == ZrtFault::WrongType)
        fault.key = "statusData"_s;
    return fault;
}

} // namespace

Q_DECLARE_METATYPE(Cut)

/// Restores that do not come to their end, or not as they should: the controller is afterwards as it was, or
/// wholly as the backup has it, and never "done" without being so.
class TestInterruptedRestore : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_backup = m_folder.write("backup.json"_s, backup); }

    void cutAtAnyTime_data()
    {
        QTest::addColumn<Cut>("cut");
        QTest::addColumn<bool>("goesOn");
        QTest::addColumn<QList<int>>("kind"); // of the fault that applies to the restore as well, if any
        QTest::addColumn<int>("delay");
        struct Fault
        {
            char const* name;
            QList<int> kind;
            int delay;
        };
        QList<Fault> const faults{
            {"no fault", {}, 0},
            {"delay", {ZrtFault::Delay}, 70},
            {"late", {ZrtFault::Late}, 5000},
            {"loss", {ZrtFault::Loss}, 0},
            {"duplicate", {ZrtFault::Duplicate}, 0},
            {"missing key", {ZrtFault::MissingKey}, 0},
            {"wrong type", {ZrtFault::WrongType}, 0},
            {"refused", {ZrtFault::Refused}, 0},
            {"disconnected", {ZrtFault::Disconnected}, 0},
        };
        struct Interruption
        {
            char const* name;
            Cut cut;
            bool goesOn; ///< the controller does, for nobody tells it otherwise
        };
        QList<Interruption> const cuts{
            {"not cut", [](Station&) {}, true},
            {"stopped", [](Station& station) { station.tool->stop(stopListening); }, false},
            {"all stopped", [](Station& station) { station.tool->stopAll(); }, false},
            {"controller gone", [](Station& station) { station.device.controller().setConnected(false); },
             false},
            {"way to it gone", [](Station& station) { station.workstation.disconnectEndpoint("device"_s); },
             true},
            {"tool gone", [](Station& station) { station.tool.reset(); }, true},
            {"ordered again and stopped",
             [](Station& station) {
                 station.orderRestore("missing.json"_s);
                 station.tool->stop(stopListening);
             },
             false},
        };
        for (auto const& fault : faults) {
            for (auto const& [name, cut, goesOn] : cuts)
                QTest::newRow(qPrintable("%1, %2"_s.arg(QLatin1String(fault.name), QLatin1String(name))))
                    << cut << goesOn << fault.kind << fault.delay;
        }
    }

    void cutAtAnyTime()
    {
        QFETCH(Cut, cut);
        QFETCH(bool, goesOn);
        QFETCH(QList<int>, kind);
        QFETCH(int, delay);
        bool const isStillborn =
            kind == QList<int>{ZrtFault::Refused} || kind == QList<int>{ZrtFault::Disconnected};
        QList<ZrtFault> faults;
        if (!kind.isEmpty())
            faults += faultOf(static_cast<ZrtFault::Kind>(kind.first()), delay);
        for (int time = 0; time <= c_end; time += 5) {
            Station station(formerState(), faults);
            station.orderRestore(m_backup);
            station.goTo(time);
            QCOMPARE(restorable(station.device.controller()),
                     isStillborn || time < c_written ? before : after);
            cut(station);
            station.goTo(20'000);
            bool const isRestored = !isStillborn && (goesOn || time >= c_written);
            QCOMPARE(restorable(station.device.controller()), isRestored ? after : before);
            QVERIFY2(isRestored || !station.isDone(), qPrintable(QString::number(time)));
        }
    }

    void anyPresetFails()
    {
        for (int const preset : {1, 2, 3, 15}) {
            ZrtState state = formerState();
            state.unwritablePresets += preset;
            Station station(state);
            station.orderRestore(m_backup);
            station.goTo(20'000);
            QCOMPARE(restorable(station.device.controller()), before);
            QCOMPARE(station.states.last(), "failed"_s);
            QVERIFY(!station.isDone());
        }
    }

    void fileCutAnywhere()
    {
        // Only the whole file is one; blanks behind it do not count.
        int restored = 0;
        for (int size = 0; size <= backup.size(); ++size) {
            Station station;
            station.orderRestore(m_folder.write("cut.json"_s, backup.left(size)));
            station.goTo(20'000);
            QCOMPARE(restorable(station.device.controller()), size == backup.size() ? after : before);
            QCOMPARE(station.states.last(), size == backup.size() ? "done"_s : "failed"_s);
            restored += station.isDone() ? 1 : 0;
        }
        QCOMPARE(restored, 1);
    }

    void fileChangesMeanwhile_data()
    {
        QTest::addColumn<bool>("isRemoved");
        QTest::newRow("another content") << false;
        QTest::newRow("gone") << true;
    }

    void fileChangesMeanwhile()
    {
        // The file counts as it was when the restore began.
        QFETCH(bool, isRemoved);
        for (int time = 0; time < c_written; time += 5) {
            Station station;
            QString const file = m_folder.write("changing.json"_s, backup);
            station.orderRestore(file);
            station.goTo(time);
            if (isRemoved)
                QVERIFY(QFile::remove(file));
            else
                m_folder.write("changing.json"_s, R"({"presets": {"1": {"torque": 150}}})");
            station.goTo(20'000);
            QCOMPARE(restorable(station.device.controller()), after);
            QVERIFY(station.isDone());
        }
    }

    void anotherRestoreMeanwhile()
    {
        // Two at the same time: none of the two mixes its presets with the other's half.
        QString const other = m_folder.write(
            "other.json"_s,
            R"({"presets": {"1": {"torque": 150}, "2": {"torque": 151}, "3": {"torque": 152}, "15": {"torque": 153}},
            "parameters": {"language": 5}})");
        QSet<QString> endings;
        for (int time = 0; time <= c_end; time += 5) {
            Station station;
            station.orderRestore(m_backup);
            station.goTo(time);
            station.orderRestore(other);
            for (; station.clock.now() < 1000; station.clock.advance(1)) {
                QString const content = restorable(station.device.controller());
                bool const isWhole = content == before || content == after
                                     || content == "1: 150, 2: 151, 3: 152, 15: 153, language: 5"_s;
                QVERIFY2(isWhole, qPrintable(content));
            }
            endings += restorable(station.device.controller());
        }
        QCOMPARE(endings, QSet<QString>{"1: 150, 2: 151, 3: 152, 15: 153, language: 5"_s});
    }

    void programIsKilled()
    {
        // In the middle of a restore that takes its time; nothing on the disk is touched.
        m_folder.write("controller.json"_s, R"({"presetTime": 20})");
        m_folder.write("slow.json"_s,
                       R"({"controller": "controller.json", "steps": [
                       {"order": "restore", "parameters": {"filePath": "many.json"}}, {"wait": 600000}]})");
        QByteArray presets;
        for (int i = 1; i <= 10'000; ++i)
            presets += "\"" + QByteArray::number(i) + "\": {},";
        m_folder.write("many.json"_s, "{\"presets\": {" + presets + "\"0\": {}}}");
        m_folder.write("trace.jsonl"_s, "former");
        QMap<QString, QByteArray> contents;
        for (auto const& name : m_folder.names())
            contents.insert(name, contentOf(m_folder.filePath(name)));

        QProcess program;
        program.setWorkingDirectory(m_folder.path());
        program.start(QStringLiteral(WORKPLACE_PROGRAM),
                      {"run"_s, "slow.json"_s, "--real-time"_s, "--json"_s, "--trace"_s, "trace.jsonl"_s});
        QByteArray out;
        while (out.count("running") < 3 && program.waitForReadyRead(60'000))
            out += program.readAllStandardOutput();
        program.kill();
        QVERIFY(program.waitForFinished());
        QCOMPARE(program.exitStatus(), QProcess::CrashExit);
        out += program.readAllStandardOutput();
        QVERIFY2(out.count("running") >= 3 && !out.contains("\"done\"}"), out.constData());
        for (auto it = contents.cbegin(); it != contents.cend(); ++it)
            QVERIFY2(contentOf(m_folder.filePath(it.key())) == it.value(), qPrintable(it.key()));
    }

private:
    ScratchFolder m_folder;
    QString m_backup;
};

QTEST_GUILESS_MAIN(TestInterruptedRestore)
#include "tst_interrupted_restore.moc"
