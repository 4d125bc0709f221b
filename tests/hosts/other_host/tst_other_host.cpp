#include "literals.h"
#include "logged_error.h"
#include "message_capture.h"

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
#include <QtTest>

#include <memory>

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
        auto const error = LoggedError::only(messages);
        found += "%1:%2 %3"_s.arg(error.file, QString::number(error.line), error.message);
    }
    for (auto const& line : messages.lines) {
        if (line.type != QtDebugMsg && (line.type != QtCriticalMsg || found.isEmpty()))
            found += line.text;
    }
    return found;
}

QVariantMap one(char const* key, QVariant const& value)
{
    return {{QString::fromLatin1(key), value}};
}

/// Parameters for any command; each takes what it knows. The two look-ups of "name" have different answers.
QVariantMap parametersForAny()
{
    return {{"name"_s, "wrench 7"_s},
            {"sections"_s, one("name", "left bench"_s)},
            {"serialNumber"_s, "ZRT-0042"_s},
            {"validityDate"_s, "2027-09-30"_s},
            {"program"_s, "7"_s},
            {"prog"_s, 12},
            {"loadControllerParams"_s, "true"_s}};
}

/// Good replies to each instruction.
QMap<QString, QList<QVariantMap>> goodReplies()
{
    return {
        {"getInfo"_s, {{}}},
        {"getPresetData"_s,
         {one("presetData", QVariantMap{{"tcamActm"_s, 1}, {"torque"_s, 250}, {"targetAngle"_s, 90}})}},
        {"getRegister"_s, {one("values", QVariantList{true, false})}},
        {"listenEventsData"_s,
         {one("values", QVariantMap{{"eventCountNo"_s, 5}, {"error"_s, 342}}),
          one("values", one("torque", 250))}},
        {"restoreBackup"_s, {one("statusData", one("percent", 10)), one("statusData", one("percent", 20))}},
        {"setLock"_s, {{{"lockStatus"_s, 2}, {"fasteningLocked"_s, false}, {"looseningLocked"_s, true}}}},
        {"setLockScreen"_s, {one("doneOk", 1)}},
        {"setProgram"_s, {{}}},
        {"SetTriggerProgram"_s, {one("doneOk", true)}},
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
        for (auto const& reply : replies[instruction])
            command.setReply(id, reply);
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
                order.journal += "(stop, and a reply that comes too late)"_s;
                int const posted = order.posted.size();
                bool success = true;
                command->finishTheCommand(success);
                command->setReply(order.posted[0].second, {});
                replyWell(*command, order, posted);
            }
            if (QTest::currentTestFailed())
                return;
            told += "== "_s + command->commandName();
            told += order.journal + logged(messages);
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

    void maintenanceBackend()
    {
        auto const record = DAbstractPluginBackend::record();
        record->setSerialNumber("ZRT-0042"_s);
        record->setValidityDate("2027-09-30"_s);
        record->setStbExpiredDelay(14);

        auto const made = make(R"(
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
)");
        auto* const backend = qobject_cast<DAbstractPluginBackend*>(made.get());
        QVERIFY(backend);
        QVariant seen;
        QVERIFY(QMetaObject::invokeMethod(backend, "look", Q_RETURN_ARG(QVariant, seen)));
        QCOMPARE(seen.value<QJSValue>().toVariant().toList(),
                 (QVariantList{"left bench"_s, "ZRT-0042"_s, "2027-09-30"_s, 14, true, 0}));

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
        auto const made = make("import PlgLibToolZrt 1.0; BeMaintenanceToolZrt {}");
        auto* const backend = qobject_cast<DAbstractPluginBackend*>(made.get());
        QVERIFY(backend);
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
        auto const made = make("import PlgLibToolZrt 1.0; DZrtToolChannel {}");
        auto* const channel = qobject_cast<DObject*>(made.get());
        QVERIFY(channel);
        QCOMPARE(channel->name(), QByteArray("DZrtToolChannel"));
        QCOMPARE(channel->property("name").toString(), QString());
    }

private:
    std::unique_ptr<DAbstractPlugin> makeInstance(QUuid const& objectUuid) const
    {
        return std::unique_ptr<DAbstractPlugin>(
            dynamic_cast<DAbstractPlugin*>(m_root->createInstance(objectUuid)));
    }

    /// Makes what the maintenance page is made of.
    std::unique_ptr<QObject> make(char const* qml)
    {
        QQmlComponent component(&m_engine);
        component.setData(qml, QUrl());
        std::unique_ptr<QObject> made(component.create());
        if (!made)
            qWarning("%s", qPrintable(component.errorString()));
        return made;
    }

    QPluginLoader m_loader{QStringLiteral(PLUGIN_FILE)};
    DAbstractTighteningTool* m_root = nullptr;
    QQmlEngine m_engine;
};

QTEST_GUILESS_MAIN(TestOtherHost)
#include "tst_other_host.moc"
