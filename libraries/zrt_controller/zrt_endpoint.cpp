#include "zrt_endpoint.h"

#include <files/input_error.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace
{

bool has(QList<ZrtFault> const& faults, ZrtFault::Kind kind)
{
    return std::any_of(faults.cbegin(), faults.cend(),
                       [kind](auto const& fault) { return fault.kind == kind; });
}

QVariantMap status(QVariantMap const& content)
{
    return {{QStringLiteral("statusData"), content}};
}

QVariantMap failed(QString const& why)
{
    return status({{QStringLiteral("state"), QStringLiteral("failed")}, {QStringLiteral("error"), why}});
}

} // namespace

ZrtEndpoint::ZrtEndpoint(ZrtSetup const& setup, ZrtClock const& clock)
    : faults(setup.faults, setup.state.seed)
    , m_controller(setup.state)
    , m_times(setup.times)
    , m_clock(clock)
    , m_isConnected(setup.isConnected)
{}

// What the callbacks hold may call this endpoint when it goes with them, here and in withdraw().
ZrtEndpoint::~ZrtEndpoint()
{
    std::exchange(m_listeners, {});
    std::exchange(m_restores, {});
    std::exchange(onChange, {});
}

bool ZrtEndpoint::isInUse(quint64 id) const
{
    return m_listeners.contains(id) || m_restores.contains(id) || m_onTheWay.contains(id);
}

void ZrtEndpoint::post(quint64 id, QString const& instruction, QVariantMap const& arguments,
                       Reply const& onReply)
{
    Line const line{id, onReply, faults.matching(instruction)};
    if (has(line.faults, ZrtFault::Disconnected)) {
        setConnected(false);
        return;
    }
    if (has(line.faults, ZrtFault::Refused))
        send(line, {{QStringLiteral("error"), QStringLiteral("refused")}});
    else if (instruction == QLatin1String("listenEventsData"))
        m_listeners.insert(id, line);
    else if (instruction == QLatin1String("restoreBackup"))
        startRestore(line, arguments);
    else
        send(line, m_controller.execute(instruction, arguments));
    tellChange();
}

bool ZrtEndpoint::withdraw(quint64 id)
{
    bool const isThere = m_listeners.contains(id) || m_restores.contains(id);
    auto const listener = m_listeners.take(id);
    auto const restore = m_restores.take(id);
    return isThere;
}

void ZrtEndpoint::setConnected(bool connected)
{
    if (connected == m_isConnected)
        return;
    m_isConnected = connected;
    tellChange(true);
}

std::optional<int> ZrtEndpoint::pullTrigger()
{
    auto const run = m_controller.pullTrigger();
    if (!run)
        return std::nullopt;
    m_isTurning = true;
    m_clock.after(run->duration, [self = weak_from_this(), event = run->event] {
        auto const endpoint = self.lock();
        if (!endpoint)
            return;
        endpoint->m_isTurning = false;
        for (auto const& listener : std::as_const(endpoint->m_listeners))
            endpoint->send(listener, {{QStringLiteral("values"), event}});
    });
    tellChange();
    return run->duration;
}

void ZrtEndpoint::pressReverse()
{
    m_controller.pressReverse();
    tellChange();
}

void ZrtEndpoint::tellChange(bool isChanged)
{
    if (!m_controller.takeChange() && !isChanged)
        return;
    auto const callback = onChange; // which may replace itself
    if (callback && *callback)
        (*callback)();
}

void ZrtEndpoint::send(Line const& line, QVariantMap reply)
{
    qint64 delay = m_times.reply;
    for (auto const& fault : line.faults) {
        if (fault.kind == ZrtFault::MissingKey)
            reply.remove(fault.key);
        if (fault.kind == ZrtFault::WrongType && reply.contains(fault.key))
            reply.insert(fault.key, QStringLiteral("???"));
        delay += fault.delay;
    }
    int const copies = has(line.faults, ZrtFault::Loss) ? 0 : has(line.faults, ZrtFault::Duplicate) ? 2 : 1;
    for (int i = 0; i < copies; ++i) {
        ++m_onTheWay[line.id];
        m_clock.after(delay, [self = weak_from_this(), line, reply] {
            auto const endpoint = self.lock();
            if (!endpoint)
                return;
            if (--endpoint->m_onTheWay[line.id] == 0)
                endpoint->m_onTheWay.remove(line.id);
            if (endpoint->m_isConnected)
                (*line.onReply)(reply);
        });
    }
}

void ZrtEndpoint::startRestore(Line const& line, QVariantMap const& arguments)
{
    auto const restore = std::make_shared<Restore>();
    restore->line = line;
    auto const first = wholeNumber(arguments, QStringLiteral("startPreset"));
    auto const last = wholeNumber(arguments, QStringLiteral("endPreset"));
    if (!first || !last) {
        send(line, failed(QStringLiteral("\"startPreset\" and \"endPreset\" must be whole numbers")));
        return;
    }
    restore->first = *first;
    restore->last = *first == 0 && *last == 0 ? std::numeric_limits<int>::max() : *last;
    restore->withParameters = arguments.value(QStringLiteral("loadControllerParams")).toBool();
    // Nothing is touched before the whole file has been found right.
    try {
        restore->backup = readZrtBackup(arguments.value(QStringLiteral("filePath")).toString());
    } catch (InputError const& error) {
        send(line, failed(error.message()));
        return;
    }
    auto const numbers = restore->backup.presets.keys();
    std::copy_if(numbers.cbegin(), numbers.cend(), std::back_inserter(restore->presets),
                 [&](int number) { return number >= restore->first && number <= restore->last; });
    if (restore->presets.isEmpty()) {
        send(line, failed(QStringLiteral("the backup holds no preset from %1 to %2")
                              .arg(restore->first)
                              .arg(restore->last)));
        return;
    }
    m_restores.insert(line.id, restore);
    planRestore(restore);
}

// A restore that is withdrawn has no next preset, and the controller stays as it was.
void ZrtEndpoint::planRestore(std::shared_ptr<Restore> const& restore)
{
    m_clock.after(m_times.preset, [self = weak_from_this(), next = std::weak_ptr(restore)] {
        auto const endpoint = self.lock();
        auto const locked = next.lock();
        if (endpoint && locked)
            endpoint->continueRestore(locked);
    });
}

void ZrtEndpoint::continueRestore(std::shared_ptr<Restore> const& restore)
{
    quint64 const id = restore->line.id;
    if (!m_isConnected) {
        m_restores.remove(id);
        return;
    }
    int const preset = restore->presets[restore->done];
    if (state().unwritablePresets.contains(preset)) {
        send(restore->line,
             failed(QStringLiteral("preset %1 cannot be written; nothing was restored").arg(preset)));
        m_restores.remove(id);
        return;
    }
    ++restore->done;
    int const total = restore->presets.size();
    bool const isLast = restore->done == total;
    if (isLast)
        m_controller.restore(restore->backup, restore->first, restore->last, restore->withParameters);
    constexpr int percent = 100;
    send(restore->line,
         status({{QStringLiteral("state"), isLast ? QStringLiteral("done") : QStringLiteral("running")},
                 {QStringLiteral("preset"), preset},
                 {QStringLiteral("done"), restore->done},
                 {QStringLiteral("total"), total},
                 {QStringLiteral("progress"), percent * restore->done / total}}));
    if (isLast)
        m_restores.remove(id);
    else
        planRestore(restore);
    tellChange();
}
