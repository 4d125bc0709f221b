#include "zrt_controller.h"

#include "tightening.h"

#include <limits>
#include <utility>

namespace
{

QVariantMap refused(QString const& why)
{
    return {{QStringLiteral("error"), why}};
}

QVariantMap done()
{
    return {{QStringLiteral("doneOk"), true}};
}

} // namespace

std::optional<int> wholeNumber(QVariantMap const& arguments, QString const& key)
{
    QVariant const value = arguments.value(key);
    constexpr int highest = std::numeric_limits<int>::max();
    switch (value.userType()) {
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
        return value.toULongLong() <= highest ? std::optional(value.toInt()) : std::nullopt;
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
        return value.toLongLong() >= 0 && value.toLongLong() <= highest ? std::optional(value.toInt())
                                                                        : std::nullopt;
    default:
        return std::nullopt;
    }
}

QStringList ZrtController::instructions()
{
    QStringList names = handlers().keys();
    names += {QStringLiteral("listenEventsData"), QStringLiteral("restoreBackup")};
    names.sort();
    return names;
}

ZrtController::ZrtController(ZrtState state) : m_state(std::move(state)), m_random(m_state.seed) {}

QVariantMap ZrtController::execute(QString const& instruction, QVariantMap const& arguments)
{
    Handler const handler = handlers().value(instruction);
    return handler ? (this->*handler)(arguments)
                   : refused(QStringLiteral("unknown instruction \"%1\"").arg(instruction));
}

QMap<QString, ZrtController::Handler> const& ZrtController::handlers()
{
    static QMap<QString, Handler> const all = {
        {QStringLiteral("getInfo"), &ZrtController::getInfo},
        {QStringLiteral("setLock"), &ZrtController::setLock},
        {QStringLiteral("setLockScreen"), &ZrtController::setLockScreen},
        {QStringLiteral("setProgram"), &ZrtController::setProgram},
        {QStringLiteral("getPresetData"), &ZrtController::getPresetData},
        {QStringLiteral("getRegister"), &ZrtController::getRegister},
        {QStringLiteral("SetTriggerProgram"), &ZrtController::setTriggerProgram},
    };
    return all;
}

std::optional<ZrtRun> ZrtController::pullTrigger()
{
    bool const isLocked =
        m_state.isReverse ? m_state.lock != ZrtState::Free : m_state.lock == ZrtState::AllLocked;
    if (isLocked)
        return std::nullopt;
    ZrtPreset const preset = m_state.presets.value(m_state.program);
    TighteningResult result;
    if (m_state.isReverse) {
        result = loosen(preset, m_random);
    } else {
        ZrtScrew const screw = m_state.screws.isEmpty() ? ZrtScrew::Good : m_state.screws.takeFirst();
        result = tighten(preset, screw, m_random);
    }
    bool const isLast = m_state.eventCount == std::numeric_limits<int>::max();
    change(m_state.eventCount, isLast ? 0 : m_state.eventCount + 1);
    QString const good = m_state.isReverse ? QStringLiteral("loosened") : QStringLiteral("OK");
    QVariantMap event{{QStringLiteral("eventCountNo"), m_state.eventCount},
                      {QStringLiteral("program"), m_state.program},
                      {QStringLiteral("status"), result.error == 0 ? good : QStringLiteral("NOK")},
                      {QStringLiteral("torque"), result.torque},
                      {QStringLiteral("angle"), result.angle},
                      {QStringLiteral("speed"), result.speed},
                      {QStringLiteral("time"), result.time},
                      {QStringLiteral("direction"), m_state.isReverse ? 1 : 0}};
    if (result.error != 0)
        event.insert(QStringLiteral("error"), result.error);
    return ZrtRun{result.time, event};
}

void ZrtController::pressReverse()
{
    change(m_state.isReverse, !m_state.isReverse);
}

void ZrtController::restore(ZrtBackup const& backup, int first, int last, bool withParameters)
{
    for (auto it = backup.presets.cbegin(); it != backup.presets.cend(); ++it) {
        if (it.key() >= first && it.key() <= last)
            m_state.presets.insert(it.key(), it.value());
    }
    if (withParameters)
        m_state.parameters = backup.parameters;
    m_isChanged = true;
}

QVariantMap ZrtController::getInfo(QVariantMap const& /*arguments*/)
{
    return {{QStringLiteral("model"), m_state.model},
            {QStringLiteral("serialNumber"), m_state.serialNumber},
            {QStringLiteral("firmware"), m_state.firmware}};
}

QVariantMap ZrtController::setLock(QVariantMap const& arguments)
{
    auto const lock = wholeNumber(arguments, QStringLiteral("lock"));
    if (!lock || *lock < ZrtState::Free || *lock > ZrtState::LooseningLocked)
        return refused(QStringLiteral("\"lock\" must be 0 (free), 1 (all locked) or 2 (loosening locked)"));
    change(m_state.lock, *lock);
    return {{QStringLiteral("lockStatus"), m_state.lock},
            {QStringLiteral("fasteningLocked"), m_state.lock == ZrtState::AllLocked},
            {QStringLiteral("looseningLocked"), m_state.lock != ZrtState::Free}};
}

QVariantMap ZrtController::setLockScreen(QVariantMap const& /*arguments*/)
{
    change(m_state.isScreenLocked, true);
    return done();
}

QVariantMap ZrtController::setProgram(QVariantMap const& arguments)
{
    auto const program = wholeNumber(arguments, QStringLiteral("program"));
    if (!program || !m_state.presets.contains(*program))
        return refused(QStringLiteral("there is no such program"));
    change(m_state.program, *program);
    return {{QStringLiteral("doneOk"), true}, {QStringLiteral("program"), m_state.program}};
}

QVariantMap ZrtController::getPresetData(QVariantMap const& arguments)
{
    auto const preset = wholeNumber(arguments, QStringLiteral("preset"));
    if (!preset || !m_state.presets.contains(*preset))
        return refused(QStringLiteral("there is no such preset"));
    return {{QStringLiteral("presetData"), toMap(m_state.presets.value(*preset))}};
}

QVariantMap ZrtController::getRegister(QVariantMap const& arguments)
{
    QMap<QString, int> const registers{
        {QStringLiteral("direction"), m_state.isReverse ? 1 : 0},
        {QStringLiteral("eventCount"), m_state.eventCount},
        {QStringLiteral("lock"), m_state.lock},
        {QStringLiteral("program"), m_state.program},
        {QStringLiteral("triggerMode"), m_state.isTriggerMode ? 1 : 0},
    };
    auto const it = registers.constFind(arguments.value(QStringLiteral("channel")).toString());
    if (it == registers.constEnd())
        return refused(QStringLiteral("there is no such channel"));
    return {{QStringLiteral("channel"), it.key()}, {QStringLiteral("values"), QVariantList{*it}}};
}

QVariantMap ZrtController::setTriggerProgram(QVariantMap const& arguments)
{
    QVariant const resetMode = arguments.value(QStringLiteral("resetMode"), false);
    if (resetMode.userType() != QMetaType::Bool)
        return refused(QStringLiteral("\"resetMode\" must be true or false"));
    change(m_state.isTriggerMode, !resetMode.toBool());
    return done();
}
