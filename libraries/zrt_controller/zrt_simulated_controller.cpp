#include "zrt_simulated_controller.h"

#include "zrt_endpoint.h"
#include "zrt_setup.h"

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
    QString const found = problemIn(setup);
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

QStringList ZrtSimulatedController::instructions()
{
    return ZrtController::instructions();
}

// A callback may destroy this object, so a call that may call back keeps the endpoint.

ZrtState ZrtSimulatedController::state() const
{
    return m_endpoint->thread.isCurrent("state") ? m_endpoint->state() : ZrtState();
}

bool ZrtSimulatedController::isConnected() const
{
    return m_endpoint->thread.isCurrent("isConnected") && m_endpoint->isConnected();
}

bool ZrtSimulatedController::onChange(std::function<void()> callback)
{
    if (!m_endpoint->thread.isCurrent("onChange"))
        return false;
    m_endpoint->onChange = std::move(callback);
    return true;
}

bool ZrtSimulatedController::post(quint64 id, QString const& instruction, QVariantMap const& arguments,
                                  Reply const& onReply)
{
    auto const endpoint = m_endpoint;
    if (!endpoint->thread.isCurrent("post"))
        return false;
    if (!onReply)
        return refuse("post", QStringLiteral("the callback of \"%1\" is null").arg(instruction));
    if (!endpoint->isConnected())
        return refuse("post", QStringLiteral("\"%1\": the controller is not connected").arg(instruction));
    if (endpoint->isInUse(id))
        return refuse("post", QStringLiteral("\"%1\": the id %2 is in use").arg(instruction).arg(id));
    endpoint->post(id, instruction, arguments, onReply);
    return true;
}

bool ZrtSimulatedController::withdraw(quint64 id)
{
    return m_endpoint->thread.isCurrent("withdraw") && m_endpoint->withdraw(id);
}

bool ZrtSimulatedController::setConnected(bool connected)
{
    auto const endpoint = m_endpoint;
    if (!endpoint->thread.isCurrent("setConnected"))
        return false;
    endpoint->setConnected(connected);
    return true;
}

std::optional<int> ZrtSimulatedController::pullTrigger()
{
    auto const endpoint = m_endpoint;
    if (!endpoint->thread.isCurrent("pullTrigger"))
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
    if (!endpoint->thread.isCurrent("pressReverse"))
        return false;
    endpoint->pressReverse();
    return true;
}

QMap<int, ZrtFault> ZrtSimulatedController::faults() const
{
    bool const isAllowed = m_endpoint->thread.isCurrent("faults");
    return isAllowed ? m_endpoint->faults.faults() : QMap<int, ZrtFault>();
}

int ZrtSimulatedController::addFault(ZrtFault const& fault)
{
    if (!m_endpoint->thread.isCurrent("addFault"))
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
    if (!m_endpoint->thread.isCurrent("removeFault"))
        return false;
    return m_endpoint->faults.remove(number)
           || refuse("removeFault", QStringLiteral("there is no fault %1").arg(number));
}
