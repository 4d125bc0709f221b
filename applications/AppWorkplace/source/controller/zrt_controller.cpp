#include "zrt_controller.h"

#include <QMap>

namespace
{

QVariantMap refused(QString const& why)
{
    return {{QStringLiteral("error"), why}};
}

} // namespace

QVariantMap ZrtController::execute(QString const& instruction, QVariantMap const& arguments)
{
    using Handler = QVariantMap (ZrtController::*)(QVariantMap const&);
    static QMap<QString, Handler> const handlers = {
        {QStringLiteral("getInfo"), &ZrtController::getInfo},
        {QStringLiteral("setLock"), &ZrtController::setLock},
        {QStringLiteral("setLockScreen"), &ZrtController::setLockScreen},
    };
    Handler const handler = handlers.value(instruction);
    return handler ? (this->*handler)(arguments)
                   : refused(QStringLiteral("unknown instruction \"%1\"").arg(instruction));
}

QVariantMap ZrtController::getInfo(QVariantMap const& /*arguments*/)
{
    return {{QStringLiteral("model"), m_state.model},
            {QStringLiteral("serialNumber"), m_state.serialNumber},
            {QStringLiteral("firmware"), m_state.firmware}};
}

QVariantMap ZrtController::setLock(QVariantMap const& arguments)
{
    bool isNumber = false;
    int const lock = arguments.value(QStringLiteral("lock")).toInt(&isNumber);
    if (!isNumber || lock < ZrtState::Free || lock > ZrtState::LooseningLocked)
        return refused(QStringLiteral("\"lock\" must be 0 (free), 1 (all locked) or 2 (loosening locked)"));
    m_state.lock = lock;
    return {{QStringLiteral("lockStatus"), lock},
            {QStringLiteral("fasteningLocked"), lock == ZrtState::AllLocked},
            {QStringLiteral("looseningLocked"), lock != ZrtState::Free}};
}

QVariantMap ZrtController::setLockScreen(QVariantMap const& /*arguments*/)
{
    m_state.isScreenLocked = true;
    return {{QStringLiteral("doneOk"), true}};
}
