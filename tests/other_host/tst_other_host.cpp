#include "error_line.h"
#include "message_capture.h"
#include "plugin_alone.h"

#include <plugin_management/d_abstract_command.h>
#include <plugin_management/d_abstract_plugin_backend.h>
#include <plugin_management/d_abstract_tightening_tool.h>
#include <plugin_management/d_element.h>
#include <plugin_management/work_order.h>
#include <utilities/d_object.h>
#include <utilities/utilities.h>

#include <QJSValue>
#include <QPluginLoader>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

/// A reply to the last instruction of this name; the name "stop" stops the command instead.
struct Step
{
    QString instruction;
    QVariantMap reply;
};
Q_DECLARE_METATYPE(QVector<Step>)

/// The plugin built, loaded and used by a host whose framework has nothing from libraries/.
class TestOtherHost : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void identity();
    void catalogue();
    void refusesWithoutOrder();
    void order_data();
    void order();
    void maintenanceBackend();
    void maintenanceErrors();
    void toolChannel();

private:
    std::unique_ptr<DAbstractPlugin> makeInstance(QUuid const& objectUuid) const
    {
        return std::unique_ptr<DAbstractPlugin>(
            dynamic_cast<DAbstractPlugin*>(m_root->createInstance(objectUuid)));
    }

    QTemporaryDir m_directory;
    QPluginLoader m_loader;
    DAbstractTighteningTool* m_root = nullptr;
};

namespace
{

QStringList lines(char const* text)
{
    return QString::fromUtf8(text).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

/// What was logged besides traces: an error as `FILE:LINE MESSAGE`, any other line as it is.
QStringList logged(MessageCapture const& messages)
{
    QStringList found;
    if (messages.of(QtCriticalMsg).size() == 1) {
        auto const error = ErrorLine::only(messages);
        found += QStringLiteral("%1:%2 %3").arg(error.file, QString::number(error.line), error.message);
    }
    for (auto const& line : messages.lines) {
        if (line.type != QtDebugMsg && (line.type != QtCriticalMsg || found.isEmpty()))
            found += line.text;
    }
    return found;
}

QString const c_tool = QStringLiteral("left bench");
QString const c_name = QStringLiteral("name");

} // namespace

void TestOtherHost::initTestCase()
{
    QVERIFY2(m_directory.isValid(), qPrintable(m_directory.errorString()));
    QString const prefix = m_directory.filePath(QStringLiteral("prefix"));
    QVERIFY(plugin_alone::install(QStringLiteral(BUILD_FOLDER), prefix, QStringLiteral(BUILD_TYPE),
                                  {QStringLiteral("-DCMAKE_PREFIX_PATH=" PACKAGE_DIR),
                                   QStringLiteral("-DZRT_SANITIZERS=" SANITIZERS)}));

    m_loader.setFileName(plugin_alone::library(prefix));
    m_root = qobject_cast<DAbstractTighteningTool*>(m_loader.instance());
    QVERIFY2(m_root, qPrintable(m_loader.errorString()));
}

void TestOtherHost::identity()
{
    QUuid const objectUuid = QUuid::createUuid();
    auto const instance = makeInstance(objectUuid);
    QCOMPARE(instance->metaObject()->className(), "PToolVeskZrt");
    QCOMPARE(instance->objectUuid(), objectUuid);
    QCOMPARE(m_root->objectUuid(), QUuid());
    QCOMPARE(instance->pluginUuid(), QUuid(QStringLiteral("{fe68f24c-ac43-4833-abc7-7d9f33744448}")));
    QCOMPARE(instance->pluginName(), QStringLiteral("Plugin Tool ZRT"));
    QCOMPARE(instance->pluginVersion(), QVersionNumber(1, 0));
    QCOMPARE(instance->pluginType(), EnPluginKind::CeTool);
    QCOMPARE(instance->pluginSubTypeName(), "tightening");
    QCOMPARE(instance->published(), lines("{toolType: int 0}\n"
                                          "{features: QStringList allow_loosening}\n"
                                          "{typeName: QString tightening}"));
}

void TestOtherHost::catalogue()
{
    QUuid const objectUuid = QUuid::createUuid();
    auto const instance = makeInstance(objectUuid);
    QSignalSpy done(instance.get(), &DAbstractPlugin::sigCommandsInitDone);
    instance->initPluginCommands();

    QStringList told;
    for (auto const* command : instance->catalogue()) {
        QCOMPARE(command->parent(), instance.get());
        told += QStringLiteral("%1 (%2) %3")
                    .arg(command->commandName(), command->stopCommandName(), command->description());
        told += command->commandArguments();
    }
    QCOMPARE(told, lines(R"(
startTightening () Start polling current point state
parameter ui16 "Tightening program" {program: QString }
parameter ui16 "Locking state" {locking: int 2}
result varM "Preset data from ZRT" {presetData: invalid}
result varM "Locking data from ZRT" {lockingData: invalid}
stopTightening () Start polling current point state
result strg "Locking status from ZRT" {lockStatus: invalid}
startListening (stopListening) Start polling current point state
result varM "Event data from ZRT" {eventData: invalid}
getDirection () Start polling current point state
result bool "Direction" {direction: invalid}
init () Init zrt
result bool "Job done" {doneOk: bool false}
restore (stopListening) Restore saved backup
parameter strg "Backup file path" {filePath: QString }
parameter int "Start preset" {startPreset: int 0}
parameter int "End preset" {endPreset: int 0}
parameter bool "Load controller parameters" {loadControllerParams: bool false}
result vart "Restoring progress/status" {statusData: invalid}
listenTrigger (stopTriggerListening) Listen trigger state
result bool "Trigger done" {doneOk: invalid}
getPresetInfo () Get preset info
parameter ui16 "Tightening program" {prog: QString }
result varM "Preset data from ZRT" {presetData: invalid}
)"));
    QCOMPARE(done.size(), 1);
    QCOMPARE(done[0][0].toUuid(), objectUuid);
    QCOMPARE(done[0][1].toStringList(), instance->commandNames());
}

void TestOtherHost::refusesWithoutOrder()
{
    auto const instance = makeInstance(QUuid());
    instance->initPluginCommands();
    for (auto* const command : instance->catalogue())
        QCOMPARE(command->commandExecute(), command->commandName() == QLatin1String("listenTrigger"));
}

void TestOtherHost::order_data()
{
    QTest::addColumn<QVariantMap>("parameters");
    QTest::addColumn<QVector<Step>>("steps");
    QTest::addColumn<QStringList>("journal");
    QTest::addColumn<QStringList>("log");

    // A reply, and a map with one entry.
    auto const to = [](char const* instruction, QVariantMap const& reply = {}) {
        return Step{QString::fromLatin1(instruction), reply};
    };
    auto const one = [](char const* key, QVariant const& value) {
        return QVariantMap{{QString::fromLatin1(key), value}};
    };
    auto const event = [&one](char const* key, QVariant const& value) {
        return one("values", one(key, value));
    };
    auto const text = [](char const* words) { return QVariant(QString::fromLatin1(words)); };
    // The name of a row is the command's, and behind a colon what is special about it.
    auto const row = [](char const* name, QVariantMap const& parameters, QVector<Step> const& steps,
                        char const* journal, char const* log = "") {
        QTest::newRow(name) << parameters << steps << lines(journal) << lines(log);
    };

    // The two look-ups of "name" have different answers.
    QVariantMap const tool{{c_name, QStringLiteral("wrench 7")},
                           {QStringLiteral("sections"), QVariantMap{{c_name, c_tool}}},
                           {QStringLiteral("serialNumber"), QStringLiteral("ZRT-0042")},
                           {QStringLiteral("validityDate"), QStringLiteral("2027-09-30")}};
    auto toolAnd = [&tool](char const* key, QVariant const& value) {
        QVariantMap map = tool;
        map.insert(QString::fromLatin1(key), value);
        return map;
    };

    row("startTightening", one("program", text("7")),
        {to("setProgram"),
         to("setLock", {{QStringLiteral("lockStatus"), 2},
                        {QStringLiteral("fasteningLocked"), false},
                        {QStringLiteral("looseningLocked"), true}}),
         to("getPresetData", one("presetData", one("torque", 250)))},
        R"(
value program
device setProgram {program: uint 7} 4000
value locking
device setLock {lock: uint 2} 4000
value program
device getPresetData {preset: QString 7} 4000
setProgram: taken
result {lockingData: QVariantMap {fasteningLocked: bool false, lockStatus: int 2, looseningLocked: bool true}}
setLock: taken
result {presetData: QVariantMap {torque: int 250}}
getPresetData: taken
ended well
)");
    row("stopTightening", {}, {to("setLock", one("lockStatus", 3))}, R"(
device setLock {lock: int 1} 4000
result {lockStatus: int 3}
setLock: taken
ended well
)");
    row("startListening", tool,
        {to("listenEventsData", event("error", 342)), to("listenEventsData", event("torque", 250)),
         to("stop"), to("listenEventsData", event("torque", 251))},
        R"(
device listenEventsData {} 4000
value name
value serialNumber
value validityDate
section name
result {eventData: QVariantMap {error: int 342, serialNumber: QString ZRT-0042, toolName: QString left bench, validityDate: QString 2027-09-30}}
listenEventsData: taken
value serialNumber
value validityDate
section name
result {eventData: QVariantMap {serialNumber: QString ZRT-0042, toolName: QString left bench, torque: int 250, validityDate: QString 2027-09-30}}
listenEventsData: taken
ended well
reply dropped
)",
        R"(ZRT screwdriver  "wrench 7"  error code  342 :  "Holding time max angle")");
    row("getDirection", {}, {to("getInfo"), to("getRegister", one("values", QVariantList{true, false}))}, R"(
device getInfo {} 4000
device getRegister {channel: QString direction} 4000
getInfo: taken
result {direction: int 1}
getRegister: taken
ended well
)");
    row("init", {}, {to("getInfo"), to("setLock"), to("setLockScreen", one("doneOk", 1))}, R"(
device getInfo {} 4000
device setLock {lock: int 1} 4000
getInfo: taken
device setLockScreen {} 4000
setLock: taken
result {doneOk: bool true}
setLockScreen: taken
ended well
)");
    row("restore", toolAnd("loadControllerParams", text("true")),
        {to("restoreBackup", one("statusData", one("percent", 10))),
         to("restoreBackup", one("statusData", one("percent", 20))), to("stop")},
        R"(
value loadControllerParams
value filePath
value startPreset
value endPreset
device restoreBackup {endPreset: int 0, filePath: QString , loadControllerParams: bool true, startPreset: int 0} 4000
value serialNumber
value validityDate
section name
result {statusData: QVariantMap {percent: int 10, toolInfo: QVariantMap {serialNumber: QString ZRT-0042, toolName: QString left bench, validityDate: QString 2027-09-30}}}
restoreBackup: taken
result {statusData: QVariantMap {percent: int 20}}
restoreBackup: taken
ended well
)");
    row("listenTrigger", {},
        {to("SetTriggerProgram", one("doneOk", true)), to("setLock"), to("setProgram"),
         to("listenEventsData", event("eventCountNo", 5)), to("listenEventsData", event("eventCountNo", 6)),
         to("setLock"), to("stop"), to("setLock")},
        R"(
device SetTriggerProgram {} 4000
device setLock {lock: int 0} 4000
device listenEventsData {} 4000
device setProgram {program: int 15} 4000
SetTriggerProgram: taken
setLock: taken
setProgram: taken
listenEventsData: taken
device SetTriggerProgram {resetMode: bool true} 4000
withdrawn listenEventsData
device setLock {lock: int 1} 4000
listenEventsData: taken
result {doneOk: bool true}
result {doneOk: bool false}
setLock: taken
device setLock {lock: int 1} 4000
device SetTriggerProgram {resetMode: bool true} 4000
ended well
setLock: taken
)");
    row("getPresetInfo", one("prog", 12),
        {to("getPresetData", one("presetData", QVariantMap{{QStringLiteral("tcamActm"), 1},
                                                           {QStringLiteral("torque"), 250},
                                                           {QStringLiteral("targetAngle"), 90}}))},
        R"(
value prog
device getPresetData {preset: int 12} 4000
result {presetData: QVariantMap {GetPresetInfo_Control_Mode: QString GetPresetInfo_Angle, GetPresetInfo_Target_Angle: int 90, GetPresetInfo_Target_torque: double 2.5}}
getPresetData: taken
ended well
)");

    row("startListening: no values", {}, {to("listenEventsData")}, R"(
device listenEventsData {} 4000
listenEventsData: refused
)",
        "d_cmd_eventListen.cpp:87 ERROR: Invalid reply format");
    row("init: not confirmed", {}, {to("getInfo"), to("setLock"), to("setLockScreen")}, R"(
device getInfo {} 4000
device setLock {lock: int 1} 4000
getInfo: taken
device setLockScreen {} 4000
setLock: taken
setLockScreen: refused
ended badly
)",
        "d_cmd_init_zrt.cpp:81 ERROR: Invalid reply format");
    row("restore: no status", {}, {to("restoreBackup")}, R"(
value loadControllerParams
value filePath
value startPreset
value endPreset
device restoreBackup {endPreset: int 0, filePath: QString , loadControllerParams: bool false, startPreset: int 0} 4000
restoreBackup: refused
)",
        "d_cmd_restore.cpp:90 ERROR: Invalid reply format");
    row("listenTrigger: values are no map", {}, {to("listenEventsData", one("values", 5)), to("stop")}, R"(
device SetTriggerProgram {} 4000
device setLock {lock: int 0} 4000
device listenEventsData {} 4000
listenEventsData: taken
withdrawn listenEventsData
device setLock {lock: int 1} 4000
device SetTriggerProgram {resetMode: bool true} 4000
ended well
)",
        "d_cmd_triggerListen.cpp:145 ERROR: Reply data format not managed, received type : int , values = "
        "QVariant(int, 5)");
}

void TestOtherHost::order()
{
    QFETCH(QVariantMap, parameters);
    QFETCH(QVector<Step>, steps);
    QFETCH(QStringList, journal);
    QFETCH(QStringList, log);

    auto const instance = makeInstance(QUuid::createUuid());
    instance->initPluginCommands();
    QString const name = QString::fromLatin1(QTest::currentDataTag()).section(QLatin1Char(':'), 0, 0);
    int const place = instance->commandNames().indexOf(name);
    QVERIFY(place >= 0);
    MessageCapture const messages;
    WorkOrder order;
    auto const command = instance->catalogue()[place]->createCommand(parameters);
    QVERIFY(command->linkWithItsOrder(&order));
    QVERIFY(command->commandExecute());
    for (auto const& [instruction, reply] : steps) {
        bool success = true;
        if (instruction == QLatin1String("stop"))
            command->finishTheCommand(success);
        else
            command->setReply(order.lastPosted.value(instruction), reply);
    }
    // Of lists of different lengths the test would tell only that.
    if (order.journal != journal)
        qWarning("the command did:\n%s", qPrintable(order.journal.join(QLatin1Char('\n'))));
    QCOMPARE(order.journal, journal);
    QCOMPARE(logged(messages), log);
    for (auto const& line : messages.of(QtCriticalMsg))
        QVERIFY(line.text.startsWith(QStringLiteral("\n \"%1\" ;\t Thread = ").arg(getDate())));
}

void TestOtherHost::maintenanceBackend()
{
    auto const record = DAbstractPluginBackend::record();
    record->setSerialNumber(QStringLiteral("ZRT-0042"));
    record->setValidityDate(QStringLiteral("2027-09-30"));
    record->setStbExpiredDelay(14);

    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData(R"(
import QtQml 2.15
import PlgLibToolZrt 1.0
BeMaintenanceToolZrt {
    name: "left bench"
    objectId: "1"
    function look() {
        return [name, serialNumber, validity, daysBeforeExpiration, isConnected, statusChannelsModel.length];
    }
    function edit() {
        setSerialNumber("ZRT-0043");
        setValidityDate(new Date(2030, 0, 31), false);
        setDaysBeforeExpiration(7);
    }
}
)",
                      QUrl());
    std::unique_ptr<QObject> const made(component.create());
    QVERIFY2(made, qPrintable(component.errorString()));
    auto* const backend = qobject_cast<DAbstractPluginBackend*>(made.get());
    QVERIFY(backend);
    QVariant seen;
    QVERIFY(QMetaObject::invokeMethod(backend, "look", Q_RETURN_ARG(QVariant, seen)));
    QCOMPARE(seen.value<QJSValue>().toVariant().toList(),
             (QVariantList{c_tool, QStringLiteral("ZRT-0042"), QStringLiteral("2027-09-30"), 14, true, 0}));

    QVERIFY(QMetaObject::invokeMethod(backend, "edit"));
    QCOMPARE(record->serialNumber(), QStringLiteral("ZRT-0043"));
    QCOMPARE(record->validityDate(), QStringLiteral("2030-01-31"));
    QCOMPARE(record->stbExpiredDelay(), 7);
    QVariantMap edits;
    QVERIFY(QMetaObject::invokeMethod(backend, "getModifiedParameters", Q_RETURN_ARG(QVariantMap, edits)));
    QCOMPARE(convVariantMapToString(edits),
             QStringLiteral("{alertBeforeExpiration: int 7, serialNumber: QString ZRT-0043, "
                            "validityDate: QString 2030-01-31}"));

    // A treatment with a name is the host's.
    QVERIFY(backend->applyTreatmentReply(0, QStringLiteral("known"), edits));
    QVERIFY(!backend->applyTreatmentReply(0, QStringLiteral("unknown"), edits));

    QVERIFY(QMetaObject::invokeMethod(backend, "resetBackend"));
    QCOMPARE(backend->property("serialNumber").toString(), QString());
    QVERIFY(QMetaObject::invokeMethod(backend, "getModifiedParameters", Q_RETURN_ARG(QVariantMap, edits)));
    QCOMPARE(edits, QVariantMap());
}

void TestOtherHost::maintenanceErrors()
{
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData("import PlgLibToolZrt 1.0; BeMaintenanceToolZrt {}", QUrl());
    std::unique_ptr<QObject> const made(component.create());
    auto* const backend = qobject_cast<DAbstractPluginBackend*>(made.get());
    QVERIFY2(backend, qPrintable(component.errorString()));
    // The name is the plugin's until a page gives it another.
    QCOMPARE(backend->property("name").toString(), QStringLiteral("PlgLibToolZrt"));

    MessageCapture messages;
    QVERIFY(
        QMetaObject::invokeMethod(backend, "setSerialNumber", Q_ARG(QString, QStringLiteral("ZRT-0043"))));
    QCOMPARE(logged(messages), lines("be_maintenance_plugin.cpp:177 ERROR: Failure to get element pointer"));
    messages.lines.clear();
    QVERIFY(!backend->applyTreatmentReply(3, QString(), {}));
    QCOMPARE(logged(messages),
             lines("be_maintenance_plugin.cpp:114 "
                   "BeMaintenanceToolZrt::applyTreatmentReply: channel is null at index 3"));
}

void TestOtherHost::toolChannel()
{
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData("import PlgLibToolZrt 1.0; DZrtToolChannel {}", QUrl());
    std::unique_ptr<QObject> const made(component.create());
    auto* const channel = qobject_cast<DObject*>(made.get());
    QVERIFY2(channel, qPrintable(component.errorString()));
    QCOMPARE(channel->name(), QByteArray("DZrtToolChannel"));
    QCOMPARE(channel->property("name").toString(), QString());
}

QTEST_GUILESS_MAIN(TestOtherHost)
#include "tst_other_host.moc"
