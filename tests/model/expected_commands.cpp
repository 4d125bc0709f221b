// What each command promises: a class for each, in the order of the catalogue, and behind it the line that
// makes it known. Written from the documents, not from the commands.

#include "expected_command.h"

#include <QDebug>

#include <cmath>

namespace
{

QString const c_invalid = QStringLiteral("ERROR: Invalid reply format");
QString const c_unmanaged = QStringLiteral("ERROR: Reply data format not managed");

QVariantMap const c_allLocked{{QStringLiteral("lock"), 1}};

/// What Qt reads as an int. Of a double or float only what stands before its point, if an int can hold that.
int whole(QVariant const& value)
{
    if (value.userType() != QMetaType::Double && value.userType() != QMetaType::Float)
        return value.toInt();
    double number = 0;
    std::modf(value.toDouble(), &number);
    return number > -2147483649.0 && number < 2147483648.0 ? static_cast<int>(number) : 0;
}

bool accept(QVariantMap const& /*reply*/)
{
    return true;
}

/// A command that hears of events.
class ExpectedListener : public ExpectedCommand
{
public:
    using ExpectedCommand::ExpectedCommand;

protected:
    /// Does @p then with the values of an event; if it has none, writes the line of that error.
    bool withValues(QVariantMap const& reply, int lineIfNone, int lineIfNoMap, Rule const& then)
    {
        if (!reply.contains(QStringLiteral("values")))
            return refuse(lineIfNone, c_invalid);
        QVariant const values = reply[QStringLiteral("values")];
        if (values.userType() == QMetaType::QVariantMap)
            return then(values.toMap());
        QString message;
        QDebug(&message) << "ERROR: Reply data format not managed, received type :" << values.typeName()
                         << ", values =" << values;
        refuse(lineIfNoMap, message.trimmed());
        return true;
    }
};

class StartTightening : public ExpectedCommand
{
    using ExpectedCommand::ExpectedCommand;

    void start() override
    {
        post("setProgram", {{QStringLiteral("program"), parameter("program").toUInt()}}, accept);
        post("setLock", {{QStringLiteral("lock"), parameter("locking").toUInt()}},
             [this](QVariantMap const& reply) {
                 for (auto const& key : {"lockStatus", "fasteningLocked", "looseningLocked"}) {
                     if (!reply.contains(QLatin1String(key)))
                         return refuse(0, c_invalid);
                 }
                 return update("lockingData", reply);
             });
        post("getPresetData", {{QStringLiteral("preset"), parameter("program")}},
             [this](QVariantMap const& reply) {
                 if (!reply.contains(QStringLiteral("presetData")))
                     return refuse(0, c_invalid);
                 QVariant const preset = reply[QStringLiteral("presetData")];
                 return preset.userType() == QMetaType::QVariantMap ? update("presetData", preset)
                                                                    : refuse(0, c_unmanaged);
             });
    }
};
ExpectedCommand::Known<StartTightening> const c_startTightening{"startTightening",
                                                                "d_cmd_startTightening.cpp"};

class StopTightening : public ExpectedCommand
{
    using ExpectedCommand::ExpectedCommand;

    void start() override
    {
        post("setLock", c_allLocked, [this](QVariantMap const& reply) {
            if (!reply.contains(QStringLiteral("lockStatus")))
                return refuse(0, c_invalid);
            return update("lockStatus", reply[QStringLiteral("lockStatus")]);
        });
    }
};
ExpectedCommand::Known<StopTightening> const c_stopTightening{"stopTightening", "d_cmd_stopTightening.cpp"};

class StartListening : public ExpectedListener
{
    using ExpectedListener::ExpectedListener;

    void start() override
    {
        post("listenEventsData", {}, [this](QVariantMap const& reply) {
            return withValues(reply, 87, 83, [this](QVariantMap const& values) { return publish(values); });
        });
    }

    bool publish(QVariantMap event)
    {
        int const code = whole(event.value(QStringLiteral("error")));
        QString const meaning = errorText(code);
        if (!meaning.isEmpty()) {
            QString info;
            QDebug(&info) << "ZRT screwdriver " << text("name") << " error code " << code << ": " << meaning;
            inform(info.trimmed());
        }
        event[QStringLiteral("serialNumber")] = text("serialNumber");
        event[QStringLiteral("validityDate")] = text("validityDate");
        event[QStringLiteral("toolName")] = text("name");
        return update("eventData", event);
    }

    static QString errorText(int code)
    {
        static QMap<int, QString> const texts{
            {300, QStringLiteral("Run time limit (Forward)")},
            {301, QStringLiteral("Run time limit (Reverse)")},
            {302, QStringLiteral("Model setting error")},
            {303, QStringLiteral("Model cancel")},
            {304, QStringLiteral("Motor stall by loosening failure")},
            {309, QStringLiteral("Bit socket tray")},
            {310, QStringLiteral("Time over in screw counting")},
            {311, QStringLiteral("Screw missing")},
            {330, QStringLiteral("Min Angle error")},
            {331, QStringLiteral("Target angle setting error")},
            {332, QStringLiteral("Angle over")},
            {333, QStringLiteral("No torque complete")},
            {334, QStringLiteral("Engaging torque detection fail")},
            {335, QStringLiteral("Converted torque error")},
            {336, QStringLiteral("Over torque error")},
            {337, QStringLiteral("Torque up at free speed")},
            {338, QStringLiteral("Thread tap max torque error")},
            {339, QStringLiteral("Thread tap min max range error")},
            {342, QStringLiteral("Holding time max angle")},
        };
        return texts.value(code);
    }
};
ExpectedCommand::Known<StartListening> const c_startListening{"startListening", "d_cmd_eventListen.cpp"};

class GetDirection : public ExpectedCommand
{
    using ExpectedCommand::ExpectedCommand;

    void start() override
    {
        post("getInfo", {}, [this](QVariantMap const& /*reply*/) {
            askForDirection();
            return true;
        });
    }

    void askForDirection()
    {
        post("getRegister", {{QStringLiteral("channel"), QStringLiteral("direction")}},
             [this](QVariantMap const& reply) {
                 QVariantList const values = reply[QStringLiteral("values")].toList();
                 return values.isEmpty() ? refuse(0, c_invalid)
                                         : update("direction", values[0].toBool() ? 1 : 0);
             });
    }
};
ExpectedCommand::Known<GetDirection> const c_getDirection{"getDirection", "d_cmd_getDirection.cpp"};

class Init : public ExpectedCommand
{
    using ExpectedCommand::ExpectedCommand;

    void start() override
    {
        post("getInfo", {}, [this](QVariantMap const& /*reply*/) {
            lockTool();
            return true;
        });
    }

    void lockTool()
    {
        post("setLock", c_allLocked, [this](QVariantMap const& /*reply*/) {
            lockScreen();
            return true;
        });
    }

    void lockScreen()
    {
        post("setLockScreen", {}, [this](QVariantMap const& reply) {
            if (!reply.contains(QStringLiteral("doneOk")))
                return refuse(81, c_invalid);
            return update("doneOk", reply[QStringLiteral("doneOk")].toBool());
        });
    }
};
ExpectedCommand::Known<Init> const c_init{"init", "d_cmd_init_zrt.cpp"};

class Restore : public ExpectedCommand
{
    using ExpectedCommand::ExpectedCommand;

    void start() override
    {
        post("restoreBackup",
             {{QStringLiteral("filePath"), parameter("filePath")},
              {QStringLiteral("startPreset"), parameter("startPreset")},
              {QStringLiteral("endPreset"), parameter("endPreset")},
              {QStringLiteral("loadControllerParams"), parameter("loadControllerParams").toBool()}},
             [this](QVariantMap const& reply) {
                 if (!reply.contains(QStringLiteral("statusData")))
                     return refuse(90, c_invalid);
                 return publish(reply[QStringLiteral("statusData")].toMap());
             });
    }

    bool publish(QVariantMap status)
    {
        if (!m_isToolInfoSent)
            status[QStringLiteral("toolInfo")] =
                QVariantMap{{QStringLiteral("serialNumber"), text("serialNumber")},
                            {QStringLiteral("validityDate"), text("validityDate")},
                            {QStringLiteral("toolName"), text("name")}};
        m_isToolInfoSent = true;
        return update("statusData", status);
    }

    bool m_isToolInfoSent = false;
};
ExpectedCommand::Known<Restore> const c_restore{"restore", "d_cmd_restore.cpp"};

class ListenTrigger : public ExpectedListener
{
    using ExpectedListener::ExpectedListener;

    bool startsWithoutOrder() const override { return true; }

    void start() override
    {
        post("SetTriggerProgram", {}, [this](QVariantMap const& reply) {
            if (reply[QStringLiteral("doneOk")].toBool())
                post("setProgram", {{QStringLiteral("program"), 15}}, accept);
            return true;
        });
        setLock({{QStringLiteral("lock"), 0}});
        m_listening = post("listenEventsData", {}, [this](QVariantMap const& reply) {
            return withValues(reply, 149, 145, [this](QVariantMap const& event) { return count(event); });
        });
    }

    void wrapUp() override
    {
        m_isFinishing = true;
        lockTool();
        reset();
    }

    bool count(QVariantMap const& event)
    {
        int const number = whole(event[QStringLiteral("eventCountNo")]);
        if (m_lastNumber >= 0 && number >= 0 && number != m_lastNumber) {
            reset();
            lockTool();
        }
        m_lastNumber = number;
        return true;
    }

    void lockTool()
    {
        if (m_listening != 0)
            withdraw(m_listening);
        m_listening = 0;
        setLock(c_allLocked);
    }

    void setLock(QVariantMap const& arguments)
    {
        post("setLock", arguments, [this](QVariantMap const& /*reply*/) {
            bool const followsTrigger = m_listening == 0 && !m_isFinishing;
            return !followsTrigger || (update("doneOk", true) && update("doneOk", false));
        });
    }

    void reset() { post("SetTriggerProgram", {{QStringLiteral("resetMode"), true}}, accept); }

    quint64 m_listening = 0;
    int m_lastNumber = -1;
    bool m_isFinishing = false;
};
ExpectedCommand::Known<ListenTrigger> const c_listenTrigger{"listenTrigger", "d_cmd_triggerListen.cpp"};

class GetPresetInfo : public ExpectedCommand
{
    using ExpectedCommand::ExpectedCommand;

    void start() override
    {
        post("getPresetData", {{QStringLiteral("preset"), parameter("prog")}},
             [this](QVariantMap const& reply) {
                 if (!reply.contains(QStringLiteral("presetData")))
                     return refuse(0, c_invalid);
                 QVariant const preset = reply[QStringLiteral("presetData")];
                 return preset.userType() == QMetaType::QVariantMap
                            ? update("presetData", info(preset.toMap()))
                            : refuse(0, c_unmanaged);
             });
    }

    static QVariantMap info(QVariantMap const& preset)
    {
        if (preset.isEmpty())
            return {};
        QString const mode = whole(preset[QStringLiteral("tcamActm")]) == 0
                                 ? QStringLiteral("GetPresetInfo_Torque")
                                 : QStringLiteral("GetPresetInfo_Angle");
        return {
            {QStringLiteral("GetPresetInfo_Control_Mode"), mode},
            {QStringLiteral("GetPresetInfo_Target_torque"), whole(preset[QStringLiteral("torque")]) / 100.0},
            {QStringLiteral("GetPresetInfo_Target_Angle"), whole(preset[QStringLiteral("targetAngle")])}};
    }
};
ExpectedCommand::Known<GetPresetInfo> const c_getPresetInfo{"getPresetInfo", "d_cmd_getPresetInfo.cpp"};

} // namespace
