#include "expected_command.h"

#include "check.h"

#include <QDebug>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace
{

using Map = QMap<QString, QVariant>;

QString const c_invalid = QStringLiteral("ERROR: Invalid reply format");
QString const c_unmanaged = QStringLiteral("ERROR: Reply data format not managed");

Map const c_allLocked{{QStringLiteral("lock"), 1}};
Map const c_reset{{QStringLiteral("resetMode"), true}};

/// What Qt reads as an int. Of a double or float only what stands before its point, if an int can hold that.
int whole(QVariant const& value)
{
    if (value.userType() != QMetaType::Double && value.userType() != QMetaType::Float)
        return value.toInt();
    double number = 0;
    std::modf(value.toDouble(), &number);
    return number > -2147483649.0 && number < 2147483648.0 ? static_cast<int>(number) : 0;
}

QString errorText(int code)
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

} // namespace

struct ExpectedCommand::Kind
{
    char const* name;
    char const* stopName;
    char const* file;
    char const* className;
    Map defaults; ///< of its parameters
    Map results;
    First first;                   ///< posts what it asks for when it is executed
    std::map<QString, Rule> rules; ///< what is done with the reply, by the name of the instruction
};

ExpectedCommand::Kind const& ExpectedCommand::kindOf(QString const& name)
{
    using Self = ExpectedCommand;
    auto const key = [](char const* text) { return QString::fromLatin1(text); };
    static std::vector<Kind> const kinds{
        {"init",
         "",
         "d_cmd_init_zrt.cpp",
         "DCmdInitZrt",
         {},
         {{key("doneOk"), false}},
         &Self::initFirst,
         {{key("getInfo"), &Self::initInfo},
          {key("setLock"), &Self::initLock},
          {key("setLockScreen"), &Self::initScreen}}},
        {"startTightening",
         "",
         "d_cmd_startTightening.cpp",
         "DCmdStartTightening",
         {{key("program"), QString()}, {key("locking"), 2}},
         {{key("lockingData"), {}}, {key("presetData"), {}}},
         &Self::startFirst,
         {{key("setProgram"), &Self::accept},
          {key("setLock"), &Self::startLock},
          {key("getPresetData"), &Self::startPreset}}},
        {"stopTightening",
         "",
         "d_cmd_stopTightening.cpp",
         "DCmdStopTightening",
         {},
         {{key("lockStatus"), {}}},
         &Self::stopFirst,
         {{key("setLock"), &Self::stopLock}}},
        {"getDirection",
         "",
         "d_cmd_getDirection.cpp",
         "DCmdGetDirection",
         {},
         {{key("direction"), {}}},
         &Self::directionFirst,
         {{key("getInfo"), &Self::directionInfo}, {key("getRegister"), &Self::directionRegister}}},
        {"getPresetInfo",
         "",
         "d_cmd_getPresetInfo.cpp",
         "DCmdGetPresetInfo",
         {{key("prog"), QString()}},
         {{key("presetData"), {}}},
         &Self::presetFirst,
         {{key("getPresetData"), &Self::presetInfo}}},
        {"startListening",
         "stopListening",
         "d_cmd_eventListen.cpp",
         "DCmdEventListen",
         {},
         {{key("eventData"), {}}},
         &Self::eventFirst,
         {{key("listenEventsData"), &Self::event}}},
        {"listenTrigger",
         "stopTriggerListening",
         "d_cmd_triggerListen.cpp",
         "DCmdTriggerListen",
         {},
         {{key("doneOk"), {}}},
         &Self::triggerFirst,
         {{key("SetTriggerProgram"), &Self::triggerProgram},
          {key("setLock"), &Self::triggerLock},
          {key("setProgram"), &Self::accept},
          {key("listenEventsData"), &Self::triggerEvent}}},
        {"restore",
         "stopListening",
         "d_cmd_restore.cpp",
         "DCmdRestore",
         {{key("filePath"), QStringLiteral("")},
          {key("startPreset"), 0},
          {key("endPreset"), 0},
          {key("loadControllerParams"), false}},
         {{key("statusData"), {}}},
         &Self::restoreFirst,
         {{key("restoreBackup"), &Self::restoreStatus}}},
    };
    auto const found = std::find_if(kinds.cbegin(), kinds.cend(),
                                    [&name](Kind const& kind) { return name == QLatin1String(kind.name); });
    if (found == kinds.cend())
        refuseToStart(QStringLiteral("the model does not know the command \"%1\": add its row to kindOf() in "
                                     "tests/fuzz/expected_command.cpp, with the functions that say what it "
                                     "posts first and what it does with each reply "
                                     "(docs/your-first-change.md shows an example)")
                          .arg(name));
    return *found;
}

ExpectedCommand::ExpectedCommand(QString const& name, Map parameters, quint64& lastId)
    : m_kind(kindOf(name))
    , m_parameters(std::move(parameters))
    , m_lastId(lastId)
    , m_results(m_kind.results)
{}

QString ExpectedCommand::stopName() const
{
    return QString::fromLatin1(m_kind.stopName);
}

QString ExpectedCommand::fileName() const
{
    return QString::fromLatin1(m_kind.file);
}

QByteArray ExpectedCommand::className() const
{
    return m_kind.className;
}

QList<quint64> ExpectedCommand::awaited() const
{
    QList<quint64> ids;
    for (auto const& one : m_pending) {
        if (!one.second.isAnswered)
            ids += one.first;
    }
    return ids;
}

bool ExpectedCommand::awaitsReplies() const
{
    return std::any_of(m_pending.cbegin(), m_pending.cend(),
                       [](auto const& one) { return !one.second.isAnswered; });
}

// The calls.

Effects ExpectedCommand::execute()
{
    m_effects = {};
    bool const goesAnyway = m_kind.className == QByteArray("DCmdTriggerListen");
    if (m_isLinked) {
        // Until it has ended it is one order, however often it is executed.
        m_hasFailed = m_isRunning && m_hasFailed;
        m_isRunning = true;
    }
    m_effects.answer = m_isLinked || goesAnyway;
    if (m_effects.answer)
        (this->*m_kind.first)();
    return m_effects;
}

Effects ExpectedCommand::reply(quint64 id, Map const& reply)
{
    m_effects = {};
    auto const found = m_pending.find(id);
    if (found == m_pending.end()) {
        if (m_isLinked)
            m_effects.addDropped(id);
        return m_effects;
    }
    Post const post = found->second.post;
    if (m_isRunning && *m_kind.stopName != '\0')
        found->second.isAnswered = true;
    else
        m_pending.erase(found);
    // The reset of the trigger mode goes under the same name as the setting, and its reply does not count.
    Rule const rule = post.arguments == c_reset ? &ExpectedCommand::accept : m_kind.rules.at(post.name);
    m_effects.answer = (this->*rule)(reply);
    m_hasFailed = m_hasFailed || !m_effects.answer;
    endIfDone();
    return m_effects;
}

Effects ExpectedCommand::finish(bool success)
{
    m_effects = {};
    if (m_kind.className == QByteArray("DCmdTriggerListen")) {
        m_isFinishing = true;
        lockTool();
        post("SetTriggerProgram", c_reset);
    } else {
        while (!m_pending.empty())
            withdraw(m_pending.begin()->first);
    }
    m_effects.answer = m_isRunning;
    if (m_isRunning)
        end(success);
    return m_effects;
}

Effects ExpectedCommand::allowancePassed(quint64 id)
{
    m_effects = {};
    auto const found = m_pending.find(id);
    if (!m_isLinked || found == m_pending.end())
        return m_effects;
    found->second.isOverdue = true;
    if (!m_isRunning)
        withdraw(id);
    else if (*m_kind.stopName == '\0')
        fail();
    return m_effects;
}

Effects ExpectedCommand::instructionFailed(quint64 id)
{
    m_effects = {};
    if (!m_isLinked || m_pending.erase(id) == 0)
        return m_effects;
    if (m_isRunning && *m_kind.stopName == '\0')
        fail();
    return m_effects;
}

// What the commands promise.

bool ExpectedCommand::accept(Map const& /*reply*/)
{
    return true;
}

void ExpectedCommand::initFirst()
{
    post("getInfo");
}

bool ExpectedCommand::initInfo(Map const& /*reply*/)
{
    post("setLock", c_allLocked);
    return true;
}

bool ExpectedCommand::initLock(Map const& /*reply*/)
{
    post("setLockScreen");
    return true;
}

bool ExpectedCommand::initScreen(Map const& reply)
{
    if (!reply.contains(QStringLiteral("doneOk")))
        return refuse(81, c_invalid);
    return update("doneOk", reply[QStringLiteral("doneOk")].toBool());
}

void ExpectedCommand::startFirst()
{
    post("setProgram", {{QStringLiteral("program"), parameter("program", {}).toUInt()}});
    post("setLock", {{QStringLiteral("lock"), parameter("locking", {}).toUInt()}});
    post("getPresetData", {{QStringLiteral("preset"), parameter("program", {})}});
}

bool ExpectedCommand::startLock(Map const& reply)
{
    for (auto const& key : {"lockStatus", "fasteningLocked", "looseningLocked"}) {
        if (!reply.contains(QLatin1String(key)))
            return refuse(0, c_invalid);
    }
    return update("lockingData", reply);
}

bool ExpectedCommand::startPreset(Map const& reply)
{
    if (!reply.contains(QStringLiteral("presetData")))
        return refuse(0, c_invalid);
    QVariant const preset = reply[QStringLiteral("presetData")];
    return preset.userType() == QMetaType::QVariantMap ? update("presetData", preset)
                                                       : refuse(0, c_unmanaged);
}

void ExpectedCommand::stopFirst()
{
    post("setLock", c_allLocked);
}

bool ExpectedCommand::stopLock(Map const& reply)
{
    if (!reply.contains(QStringLiteral("lockStatus")))
        return refuse(0, c_invalid);
    return update("lockStatus", reply[QStringLiteral("lockStatus")]);
}

void ExpectedCommand::directionFirst()
{
    post("getInfo");
}

bool ExpectedCommand::directionInfo(Map const& /*reply*/)
{
    post("getRegister", {{QStringLiteral("channel"), QStringLiteral("direction")}});
    return true;
}

bool ExpectedCommand::directionRegister(Map const& reply)
{
    QVariantList const values = reply[QStringLiteral("values")].toList();
    return values.isEmpty() ? refuse(0, c_invalid) : update("direction", values[0].toBool() ? 1 : 0);
}

void ExpectedCommand::presetFirst()
{
    post("getPresetData", {{QStringLiteral("preset"), parameter("prog", {})}});
}

bool ExpectedCommand::presetInfo(Map const& reply)
{
    if (!reply.contains(QStringLiteral("presetData")))
        return refuse(0, c_invalid);
    QVariant const data = reply[QStringLiteral("presetData")];
    if (data.userType() != QMetaType::QVariantMap)
        return refuse(0, c_unmanaged);
    Map const preset = data.toMap();
    if (preset.isEmpty())
        return update("presetData", Map());
    QString const mode = whole(preset[QStringLiteral("tcamActm")]) == 0
                             ? QStringLiteral("GetPresetInfo_Torque")
                             : QStringLiteral("GetPresetInfo_Angle");
    return update(
        "presetData",
        Map{{QStringLiteral("GetPresetInfo_Control_Mode"), mode},
            {QStringLiteral("GetPresetInfo_Target_torque"), whole(preset[QStringLiteral("torque")]) / 100.0},
            {QStringLiteral("GetPresetInfo_Target_Angle"), whole(preset[QStringLiteral("targetAngle")])}});
}

void ExpectedCommand::eventFirst()
{
    post("listenEventsData");
}

bool ExpectedCommand::event(Map const& reply)
{
    if (!reply.contains(QStringLiteral("values")))
        return refuse(87, c_invalid);
    QVariant const values = reply[QStringLiteral("values")];
    if (values.userType() != QMetaType::QVariantMap)
        return refuseFormat(83, values);
    Map published = values.toMap();
    int const code = whole(published.value(QStringLiteral("error")));
    if (!errorText(code).isEmpty()) {
        QString info;
        QDebug(&info) << "ZRT screwdriver " << parameter("name", {}).toString() << " error code " << code
                      << ": " << errorText(code);
        m_effects.addInfo(info.trimmed());
    }
    published[QStringLiteral("serialNumber")] = textOf("serialNumber");
    published[QStringLiteral("validityDate")] = textOf("validityDate");
    published[QStringLiteral("toolName")] = textOf("name");
    return update("eventData", published);
}

void ExpectedCommand::triggerFirst()
{
    post("SetTriggerProgram");
    post("setLock", {{QStringLiteral("lock"), 0}});
    m_listening = post("listenEventsData");
}

bool ExpectedCommand::triggerProgram(Map const& reply)
{
    if (reply[QStringLiteral("doneOk")].toBool())
        post("setProgram", {{QStringLiteral("program"), 15}});
    return true;
}

bool ExpectedCommand::triggerLock(Map const& /*reply*/)
{
    if (m_listening != 0 || m_isFinishing)
        return true;
    update("doneOk", true);
    update("doneOk", false);
    return true;
}

bool ExpectedCommand::triggerEvent(Map const& reply)
{
    if (!reply.contains(QStringLiteral("values")))
        return refuse(149, c_invalid);
    QVariant const values = reply[QStringLiteral("values")];
    if (values.userType() != QMetaType::QVariantMap)
        return refuseFormat(145, values);
    int const count = whole(values.toMap()[QStringLiteral("eventCountNo")]);
    if (m_lastCount >= 0 && count >= 0 && count != m_lastCount) {
        post("SetTriggerProgram", c_reset);
        lockTool();
    }
    m_lastCount = count;
    return true;
}

void ExpectedCommand::restoreFirst()
{
    post("restoreBackup",
         {{QStringLiteral("filePath"), parameter("filePath", {})},
          {QStringLiteral("startPreset"), parameter("startPreset", {})},
          {QStringLiteral("endPreset"), parameter("endPreset", {})},
          {QStringLiteral("loadControllerParams"), parameter("loadControllerParams", false).toBool()}});
}

bool ExpectedCommand::restoreStatus(Map const& reply)
{
    if (!reply.contains(QStringLiteral("statusData")))
        return refuse(90, c_invalid);
    Map status = reply[QStringLiteral("statusData")].toMap();
    if (!m_isToolInfoSent)
        status[QStringLiteral("toolInfo")] = Map{{QStringLiteral("serialNumber"), textOf("serialNumber")},
                                                 {QStringLiteral("validityDate"), textOf("validityDate")},
                                                 {QStringLiteral("toolName"), textOf("name")}};
    m_isToolInfoSent = true;
    return update("statusData", status);
}

void ExpectedCommand::lockTool()
{
    if (m_listening != 0)
        withdraw(m_listening);
    m_listening = 0;
    post("setLock", c_allLocked);
}

// What the framework does.

QVariant ExpectedCommand::parameter(char const* key, QVariant const& fallback) const
{
    QString const name = QString::fromLatin1(key);
    return m_parameters.value(name, m_kind.defaults.value(name, fallback));
}

QString ExpectedCommand::textOf(char const* key) const
{
    return m_parameters.value(QString::fromLatin1(key)).toString();
}

quint64 ExpectedCommand::post(char const* name, Map const& arguments)
{
    check(m_kind.rules.count(QString::fromLatin1(name)) != 0, [this, name] {
        return QStringLiteral(
                   "the model of \"%1\" does not say what it does with the reply to \"%2\": add that "
                   "to its row in kindOf()")
            .arg(QLatin1String(m_kind.name), QLatin1String(name));
    });
    Post one{m_isLinked ? ++m_lastId : ++m_lastOwnId, QString::fromLatin1(name), arguments};
    m_pending[one.id] = {one, false, false};
    if (m_isLinked)
        m_effects.add(one);
    return one.id;
}

bool ExpectedCommand::update(char const* key, QVariant const& value)
{
    QString const name = QString::fromLatin1(key);
    m_results[name] = value;
    if (m_isLinked)
        m_effects.addResult(name, value);
    return true;
}

bool ExpectedCommand::refuse(int line, QString const& message, bool answer)
{
    m_effects.add(ErrorLine{fileName(), line, message});
    return answer;
}

bool ExpectedCommand::refuseFormat(int line, QVariant const& values)
{
    QString message;
    QDebug(&message) << "ERROR: Reply data format not managed, received type :" << values.typeName()
                     << ", values =" << values;
    return refuse(line, message.trimmed(), true);
}

void ExpectedCommand::withdraw(quint64 id)
{
    if (m_pending.erase(id) != 0 && m_isLinked)
        m_effects.addWithdrawn(id);
}

void ExpectedCommand::fail()
{
    while (!m_pending.empty())
        withdraw(m_pending.begin()->first);
    end(false);
}

void ExpectedCommand::end(bool success)
{
    m_isRunning = false;
    QList<quint64> overdue;
    for (auto it = m_pending.begin(); it != m_pending.end();) {
        if (it->second.isAnswered) {
            it = m_pending.erase(it);
            continue;
        }
        if (it->second.isOverdue)
            overdue += it->first;
        ++it;
    }
    m_effects.addEnd(success);
    if (m_isLinked)
        m_effects.addToldEnd(success);
    // What it still waits for is answered, unless that took too long before.
    for (quint64 const id : qAsConst(overdue))
        withdraw(id);
}

void ExpectedCommand::endIfDone()
{
    if (m_isRunning && *m_kind.stopName == '\0' && m_pending.empty())
        end(!m_hasFailed);
}
