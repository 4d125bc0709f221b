// What each command promises: a class for each, in the order of the catalogue, and behind it the line that
// makes it known. Written from the documents, not from the commands.

#include "expected_command.h"
#include "literals.h"

#include <QDebug>

#include <cmath>

namespace
{

QString const c_invalid = "ERROR: Invalid reply format"_s;
QString const c_unmanaged = "ERROR: Reply data format not managed"_s;

QVariantMap const c_allLocked{{"lock"_s, 1}};

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
        if (!reply.contains("values"_s))
            return refuse(lineIfNone, c_invalid);
        QVariant const values = reply["values"_s];
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
        post("setProgram", {{"program"_s, parameter("program").toUInt()}}, accept);
        post("setLock", {{"lock"_s, parameter("locking").toUInt()}}, [this](QVariantMap const& reply) {
            for (auto const& key : {"lockStatus", "fasteningLocked", "looseningLocked"}) {
                if (!reply.contains(QLatin1String(key)))
                    return refuse(0, c_invalid);
            }
            return update("lockingData", reply);
        });
        post("getPresetData", {{"preset"_s, parameter("program")}}, [this](QVariantMap const& reply) {
            if (!reply.contains("presetData"_s))
                return refuse(0, c_invalid);
            QVariant const preset = reply["presetData"_s];
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
            if (!reply.contains("lockStatus"_s))
                return refuse(0, c_invalid);
            return update("lockStatus", reply["lockStatus"_s]);
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
        int const code = whole(event.value("error"_s));
        QString const meaning = errorText(code);
        if (!meaning.isEmpty()) {
            QString info;
            QDebug(&info) << "ZRT screwdriver " << text("name") << " error code " << code << ": " << meaning;
            inform(info.trimmed());
        }
        event["serialNumber"_s] = text("serialNumber");
        event["validityDate"_s] = text("validityDate");
        event["toolName"_s] = text("name");
        return update("eventData", event);
    }

    static QString errorText(int code)
    {
        static QMap<int, QString> const texts{
            {300, "Run time limit (Forward)"_s},
            {301, "Run time limit (Reverse)"_s},
            {302, "Model setting error"_s},
            {303, "Model cancel"_s},
            {304, "Motor stall by loosening failure"_s},
            {309, "Bit socket tray"_s},
            {310, "Time over in screw counting"_s},
            {311, "Screw missing"_s},
            {330, "Min Angle error"_s},
            {331, "Target angle setting error"_s},
            {332, "Angle over"_s},
            {333, "No torque complete"_s},
            {334, "Engaging torque detection fail"_s},
            {335, "Converted torque error"_s},
            {336, "Over torque error"_s},
            {337, "Torque up at free speed"_s},
            {338, "Thread tap max torque error"_s},
            {339, "Thread tap min max range error"_s},
            {342, "Holding time max angle"_s},
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
        post("getRegister", {{"channel"_s, "direction"_s}}, [this](QVariantMap const& reply) {
            QVariantList const values = reply["values"_s].toList();
            return values.isEmpty() ? refuse(0, c_invalid) : update("direction", values[0].toBool() ? 1 : 0);
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
            if (!reply.contains("doneOk"_s))
                return refuse(81, c_invalid);
            return update("doneOk", reply["doneOk"_s].toBool());
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
             {{"filePath"_s, parameter("filePath")},
              {"startPreset"_s, parameter("startPreset")},
              {"endPreset"_s, parameter("endPreset")},
              {"loadControllerParams"_s, parameter("loadControllerParams").toBool()}},
             [this](QVariantMap const& reply) {
                 if (!reply.contains("statusData"_s))
                     return refuse(90, c_invalid);
                 return publish(reply["statusData"_s].toMap());
             });
    }

    bool publish(QVariantMap status)
    {
        if (!m_isToolInfoSent)
            status["toolInfo"_s] = QVariantMap{{"serialNumber"_s, text("serialNumber")},
                                               {"validityDate"_s, text("validityDate")},
                                               {"toolName"_s, text("name")}};
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
            if (reply["doneOk"_s].toBool())
                post("setProgram", {{"program"_s, 15}}, accept);
            return true;
        });
        setLock({{"lock"_s, 0}});
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
        int const number = whole(event["eventCountNo"_s]);
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

    void reset() { post("SetTriggerProgram", {{"resetMode"_s, true}}, accept); }

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
        post("getPresetData", {{"preset"_s, parameter("prog")}}, [this](QVariantMap const& reply) {
            if (!reply.contains("presetData"_s))
                return refuse(0, c_invalid);
            QVariant const preset = reply["presetData"_s];
            return preset.userType() == QMetaType::QVariantMap ? update("presetData", info(preset.toMap()))
                                                               : refuse(0, c_unmanaged);
        });
    }

    static QVariantMap info(QVariantMap const& preset)
    {
        if (preset.isEmpty())
            return {};
        QString const mode =
            whole(preset["tcamActm"_s]) == 0 ? "GetPresetInfo_Torque"_s : "GetPresetInfo_Angle"_s;
        return {{"GetPresetInfo_Control_Mode"_s, mode},
                {"GetPresetInfo_Target_torque"_s, whole(preset["torque"_s]) / 100.0},
                {"GetPresetInfo_Target_Angle"_s, whole(preset["targetAngle"_s])}};
    }
};
ExpectedCommand::Known<GetPresetInfo> const c_getPresetInfo{"getPresetInfo", "d_cmd_getPresetInfo.cpp"};

} // namespace
