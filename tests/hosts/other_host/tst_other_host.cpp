#include "error_line.h"
#include "literals.h"
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
        found += "%1:%2 %3"_s.arg(error.file, QString::number(error.line), error.message);
    }
    for (auto const& line : messages.lines) {
        if (line.type != QtDebugMsg && (line.type != QtCriticalMsg || found.isEmpty()))
            found += line.text;
    }
    return found;
}

QString const c_tool = "left bench"_s;
QString const c_name = "name"_s;

QVariantMap one(char const* key, QVariant const& value)
{
    return {{QString::fromLatin1(key), value}};
}

QVariantMap eventWith(char const* key, QVariant const& value)
{
    return one("values", one(key, value));
}

/// The parameters that tell of the tool. The two look-ups of "name" have different answers.
QVariantMap toolParameters()
{
    return {{c_name, "wrench 7"_s},
            {"sections"_s, one("name", c_tool)},
            {"serialNumber"_s, "ZRT-0042"_s},
            {"validityDate"_s, "2027-09-30"_s}};
}

/// Parameters for any command; each takes what it knows.
QVariantMap parametersForAny()
{
    QVariantMap parameters = toolParameters();
    parameters.insert("program"_s, "7"_s);
    parameters.insert("prog"_s, 12);
    parameters.insert("loadControllerParams"_s, "true"_s);
    return parameters;
}

/// A good reply to each instruction.
QMap<QString, QVariantMap> goodReplies()
{
    return {
        {"getInfo"_s, {}},
        {"getPresetData"_s,
         one("presetData", QVariantMap{{"tcamActm"_s, 1}, {"torque"_s, 250}, {"targetAngle"_s, 90}})},
        {"getRegister"_s, one("values", QVariantList{true, false})},
        {"listenEventsData"_s, eventWith("eventCountNo", 5)},
        {"restoreBackup"_s, one("statusData", one("percent", 10))},
        {"setLock"_s, {{"lockStatus"_s, 2}, {"fasteningLocked"_s, false}, {"looseningLocked"_s, true}}},
        {"setLockScreen"_s, one("doneOk", 1)},
        {"setProgram"_s, {}},
        {"SetTriggerProgram"_s, one("doneOk", true)},
    };
}

/// What goodReplies() has, to each instruction from this place on, and to those that come of a reply.
void replyWell(ICommand& command, WorkOrder const& order, int first)
{
    constexpr int most = 20;
    auto const replies = goodReplies();
    for (int i = first; i < order.posted.size(); ++i) {
        auto const [instruction, id] = order.posted[i];
        QVERIFY2(i < most, qPrintable(order.journal.join(QLatin1Char('\n'))));
        QVERIFY2(replies.contains(instruction), qPrintable(instruction + ": no good reply"_s));
        command.setReply(id, replies[instruction]);
    }
}

} // namespace

/// The plugin built, loaded and used by a host whose framework has nothing from libraries/.
class TestOtherHost : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(m_directory.isValid(), qPrintable(m_directory.errorString()));
        QString const prefix = m_directory.filePath("prefix"_s);
        QVERIFY(plugin_alone::install(QStringLiteral(BUILD_FOLDER), prefix, QStringLiteral(BUILD_TYPE),
                                      {QStringLiteral("-DCMAKE_PREFIX_PATH=" PACKAGE_DIR),
                                       QStringLiteral("-DZRT_SANITIZERS=" SANITIZERS)}));

        m_loader.setFileName(plugin_alone::library(prefix));
        m_root = qobject_cast<DAbstractTighteningTool*>(m_loader.instance());
        QVERIFY2(m_root, qPrintable(m_loader.errorString()));
    }

    void identity()
    {
        QUuid const objectUuid = QUuid::createUuid();
        auto const instance = makeInstance(objectUuid);
        QCOMPARE(instance->metaObject()->className(), "PToolVeskZrt");
        QCOMPARE(instance->objectUuid(), objectUuid);
        QCOMPARE(m_root->objectUuid(), QUuid());
        QCOMPARE(instance->pluginUuid(), QUuid("{fe68f24c-ac43-4833-abc7-7d9f33744448}"_s));
        QCOMPARE(instance->pluginName(), "Plugin Tool ZRT"_s);
        QCOMPARE(instance->pluginVersion(), QVersionNumber(1, 0));
        QCOMPARE(instance->pluginType(), EnPluginKind::CeTool);
        QCOMPARE(instance->pluginSubTypeName(), "tightening");
        QCOMPARE(instance->published(), lines("{toolType: int 0}\n"
                                              "{features: QStringList allow_loosening}\n"
                                              "{typeName: QString tightening}"));
    }

    void catalogue()
    {
        QUuid const objectUuid = QUuid::createUuid();
        auto const instance = makeInstance(objectUuid);
        QSignalSpy done(instance.get(), &DAbstractPlugin::sigCommandsInitDone);
        instance->initPluginCommands();

        QVERIFY(!instance->catalogue().isEmpty());
        for (auto const* command : instance->catalogue())
            QCOMPARE(command->parent(), instance.get());
        QCOMPARE(done.size(), 1);
        QCOMPARE(done[0][0].toUuid(), objectUuid);
        QCOMPARE(done[0][1].toStringList(), instance->commandNames());
    }

    void refusesWithoutOrder()
    {
        auto const instance = makeInstance(QUuid());
        instance->initPluginCommands();
        for (auto* const command : instance->catalogue())
            QCOMPARE(command->commandExecute(), command->commandName() == QLatin1String("listenTrigger"));
    }

    // What each command of the catalogue does when all goes well, as journal.txt has recorded it.
    void oneOrderOfEach()
    {
        auto const instance = makeInstance(QUuid::createUuid());
        instance->initPluginCommands();
        QStringList told;
        for (auto const* const prototype : instance->catalogue()) {
            MessageCapture const messages;
            WorkOrder order;
            auto const command = prototype->createCommand(parametersForAny());
            QVERIFY(command->linkWithItsOrder(&order));
            QVERIFY(command->commandExecute());
            QVERIFY(!order.posted.isEmpty());
            replyWell(*command, order, 0);
            if (command->isRecurrent() == EnRecurrence::CeUntilStopped) {
                order.journal += "(stop)"_s;
                int const posted = order.posted.size();
                bool success = true;
                command->finishTheCommand(success);
                replyWell(*command, order, posted);
            }
            QCOMPARE(logged(messages), QStringList());
            if (QTest::currentTestFailed())
                return;
            told += "== "_s + command->commandName();
            told += order.journal;
        }

        QFile recorded(QStringLiteral(JOURNAL_FILE));
        if (qEnvironmentVariableIsSet("UPDATE_JOURNAL")) {
            QVERIFY2(recorded.open(QIODevice::WriteOnly), qPrintable(recorded.errorString()));
            for (auto const& line : qAsConst(told))
                QVERIFY(recorded.write(line.toUtf8() + '\n') != -1);
            return;
        }
        QVERIFY2(recorded.open(QIODevice::ReadOnly), qPrintable(recorded.errorString()));
        auto const expected = lines(recorded.readAll());
        if (told != expected)
            qWarning(
                "To accept a deliberate change: cmake --build --preset release --target update_all; now it "
                "did:\n%s",
                qPrintable(told.join(QLatin1Char('\n'))));
        QCOMPARE(told, expected);
    }

    void order_data()
    {
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QVector<Step>>("steps");
        QTest::addColumn<QStringList>("journal");
        QTest::addColumn<QStringList>("log");

        auto const to = [](char const* instruction, QVariantMap const& reply = {}) {
            return Step{QString::fromLatin1(instruction), reply};
        };
        // The name of a row is the command's.
        auto const row = [](char const* name, QVariantMap const& parameters, QVector<Step> const& steps,
                            char const* journal, char const* log) {
            QTest::newRow(name) << parameters << steps << lines(journal) << lines(log);
        };

        QVariantMap const tool = toolParameters();
        QVariantMap toolAndParameters = tool;
        toolAndParameters.insert("loadControllerParams"_s, "true"_s);

        row("startListening", tool,
            {to("listenEventsData", eventWith("error", 342)),
             to("listenEventsData", eventWith("torque", 250)), to("stop"),
             to("listenEventsData", eventWith("torque", 251))},
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
        row("restore", toolAndParameters,
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
)",
            "");
    }

    void order()
    {
        QFETCH(QVariantMap, parameters);
        QFETCH(QVector<Step>, steps);
        QFETCH(QStringList, journal);
        QFETCH(QStringList, log);

        auto const instance = makeInstance(QUuid::createUuid());
        instance->initPluginCommands();
        QString const name = QString::fromLatin1(QTest::currentDataTag());
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
                command->setReply(order.lastPosted(instruction), reply);
        }
        // Of lists of different lengths the test would tell only that.
        if (order.journal != journal)
            qWarning("the command did:\n%s", qPrintable(order.journal.join(QLatin1Char('\n'))));
        QCOMPARE(order.journal, journal);
        QCOMPARE(logged(messages), log);
    }

    void maintenanceBackend()
    {
        auto const record = DAbstractPluginBackend::record();
        record->setSerialNumber("ZRT-0042"_s);
        record->setValidityDate("2027-09-30"_s);
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
                 (QVariantList{c_tool, "ZRT-0042"_s, "2027-09-30"_s, 14, true, 0}));

        QVERIFY(QMetaObject::invokeMethod(backend, "edit"));
        QCOMPARE(record->serialNumber(), "ZRT-0043"_s);
        QCOMPARE(record->validityDate(), "2030-01-31"_s);
        QCOMPARE(record->stbExpiredDelay(), 7);
        QVariantMap edits;
        QVERIFY(
            QMetaObject::invokeMethod(backend, "getModifiedParameters", Q_RETURN_ARG(QVariantMap, edits)));
        QCOMPARE(convVariantMapToString(edits),
                 "{alertBeforeExpiration: int 7, serialNumber: QString ZRT-0043, "
                 "validityDate: QString 2030-01-31}"_s);

        // A treatment with a name is the host's.
        QVERIFY(backend->applyTreatmentReply(0, "known"_s, edits));
        QVERIFY(!backend->applyTreatmentReply(0, "unknown"_s, edits));

        QVERIFY(QMetaObject::invokeMethod(backend, "resetBackend"));
        QCOMPARE(backend->property("serialNumber").toString(), QString());
        QVERIFY(
            QMetaObject::invokeMethod(backend, "getModifiedParameters", Q_RETURN_ARG(QVariantMap, edits)));
        QCOMPARE(edits, QVariantMap());
    }

    void maintenanceErrors()
    {
        QQmlEngine engine;
        QQmlComponent component(&engine);
        component.setData("import PlgLibToolZrt 1.0; BeMaintenanceToolZrt {}", QUrl());
        std::unique_ptr<QObject> const made(component.create());
        auto* const backend = qobject_cast<DAbstractPluginBackend*>(made.get());
        QVERIFY2(backend, qPrintable(component.errorString()));
        // The name is the plugin's until a page gives it another.
        QCOMPARE(backend->property("name").toString(), "PlgLibToolZrt"_s);

        MessageCapture messages;
        QVERIFY(QMetaObject::invokeMethod(backend, "setSerialNumber", Q_ARG(QString, "ZRT-0043"_s)));
        QCOMPARE(logged(messages),
                 lines("be_maintenance_plugin.cpp:177 ERROR: Failure to get element pointer"));
        auto const error = messages.of(QtCriticalMsg)[0].text;
        QVERIFY(error.startsWith("\n \"%1\" ;\t Thread = "_s.arg(getDate())));
        messages.lines.clear();
        QVERIFY(!backend->applyTreatmentReply(3, QString(), {}));
        QCOMPARE(logged(messages),
                 lines("be_maintenance_plugin.cpp:114 "
                       "BeMaintenanceToolZrt::applyTreatmentReply: channel is null at index 3"));
    }

    void toolChannel()
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

QTEST_GUILESS_MAIN(TestOtherHost)
#include "tst_other_host.moc"
