#include "zrt_simulated_controller.h"

#include "zrt_endpoint.h"
#include "zrt_formats.h"

#include <files/input_error.h>

#include <QtDebug>

#include <utility>

namespace
{

bool refuse(char const* call, QString const& why)
{
    qWarning("ZrtSimulatedController::%s: %s", call, qPrintable(why));
    return false;
}

bool isAllowed(ZrtEndpoint const& endpoint, char const* call)
{
    return endpoint.thread.isCurrent() || refuse(call, QStringLiteral("called from another thread"));
}

void tell(QString* problem, QString const& text)
{
    if (problem)
        *problem = text;
}

} // namespace

ZrtSimulatedController::ZrtSimulatedController(std::shared_ptr<ZrtEndpoint> endpoint)
    : m_endpoint(std::move(endpoint))
{}

ZrtSimulatedController::~ZrtSimulatedController() = default;

std::unique_ptr<ZrtSimulatedController>
ZrtSimulatedController::create(ZrtSetup const& setup, ZrtClock const& clock, QString* problem)
{
    char const* const clockProblem = clock.problem();
    QString const found = clockProblem
                              ? QStringLiteral("the clock cannot be used: ") + QLatin1String(clockProblem)
                              : problemIn(setup);
    tell(problem, found);
    if (!found.isEmpty())
        return nullptr;
    // The constructor is private.
    return std::unique_ptr<ZrtSimulatedController>(
        new ZrtSimulatedController(std::make_shared<ZrtEndpoint>(setup, clock)));
}

std::optional<ZrtSetup> ZrtSimulatedController::readSetup(QString const& fileName, QString* problem)
{
    try {
        auto setup = readZrtSetup(fileName);
        tell(problem, {});
        return setup;
    } catch (InputError const& error) {
        tell(problem, error.message());
        return std::nullopt;
    }
}

QMap<QString, QByteArray> ZrtSimulatedController::schemas()
{
    return zrtSchemas();
}

QStringList ZrtSimulatedController::instructions()
{
    return ZrtController::instructions();
}

// A callback may destroy this object, so a call that may call back keeps the endpoint.

ZrtState ZrtSimulatedController::state() const
{
    return isAllowed(*m_endpoint, "state") ? m_endpoint->state() : ZrtState();
}

bool ZrtSimulatedController::isConnected() const
{
    return isAllowed(*m_endpoint, "isConnected") && m_endpoint->isConnected();
}

bool ZrtSimulatedController::onChange(std::function<void()> callback)
{
    if (!isAllowed(*m_endpoint, "onChange"))
        return false;
    m_endpoint->onChange = std::make_shared<std::function<void()> const>(std::move(callback));
    return true;
}

bool ZrtSimulatedController::post(quint64 id, QString const& instruction, QVariantMap const& arguments,
                                  Reply const& onReply)
{
    auto const endpoint = m_endpoint;
    if (!isAllowed(*endpoint, "post"))
        return false;
    if (!onReply)
        return refuse("post", QStringLiteral("the callback of \"%1\" is null").arg(instruction));
    if (!endpoint->isConnected())
        return refuse("post", QStringLiteral("\"%1\": the controller is not connected").arg(instruction));
    if (endpoint->isInUse(id))
        return refuse("post",
                      QStringLiteral("\"%1\": the id %2 is in use").arg(instruction, QString::number(id)));
    endpoint->post(id, instruction, arguments, std::make_shared<Reply const>(onReply));
    return true;
}

bool ZrtSimulatedController::withdraw(quint64 id)
{
    return isAllowed(*m_endpoint, "withdraw") && m_endpoint->withdraw(id);
}

bool ZrtSimulatedController::setConnected(bool connected)
{
    auto const endpoint = m_endpoint;
    if (!isAllowed(*endpoint, "setConnected"))
        return false;
    endpoint->setConnected(connected);
    return true;
}

std::optional<int> ZrtSimulatedController::pullTrigger()
{
    auto const endpoint = m_endpoint;
    if (!isAllowed(*endpoint, "pullTrigger"))
        return std::nullopt;
    if (endpoint->isTurning()) {
        refuse("pullTrigger", QStringLiteral("the tool still turns"));
        return std::nullopt;
    }
    return endpoint->pullTrigger();
}

bool ZrtSimulatedController::pressReverse()
{
    auto const endpoint = m_endpoint;
    if (!isAllowed(*endpoint, "pressReverse"))
        return false;
    endpoint->pressReverse();
    return true;
}

QMap<int, ZrtFault> ZrtSimulatedController::faults() const
{
    return isAllowed(*m_endpoint, "faults") ? m_endpoint->faults.faults() : QMap<int, ZrtFault>();
}

int ZrtSimulatedController::addFault(ZrtFault const& fault)
{
    if (!isAllowed(*m_endpoint, "addFault"))
        return 0;
    QString const problem = problemIn(fault);
    if (!problem.isEmpty()) {
        refuse("addFault", problem);
        return 0;
    }
    return m_endpoint->faults.add(fault);
}

bool ZrtSimulatedController::removeFault(int number)
{
    if (!isAllowed(*m_endpoint, "removeFault"))
        return false;
    return m_endpoint->faults.remove(number)
           || refuse("removeFault", QStringLiteral("there is no fault %1").arg(number));
}
