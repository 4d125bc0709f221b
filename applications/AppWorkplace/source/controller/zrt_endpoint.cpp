#include "zrt_endpoint.h"

#include "host/clock.h"
#include "json/input_error.h"

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

ZrtEndpoint::ZrtEndpoint(ZrtController& controller, ZrtFaults& faults, ZrtTimes times, Clock& clock)
    : m_controller(controller)
    , m_faults(faults)
    , m_times(times)
    , m_clock(clock)
{}

void ZrtEndpoint::post(quint64 id, QString const& instruction, QVariantMap const& arguments, Reply onReply)
{
    Line const line{std::move(onReply), m_faults.next(instruction)};
    if (has(line.faults, ZrtFault::Disconnected))
        m_isConnected = false;
    if (!m_isConnected)
        return;
    if (has(line.faults, ZrtFault::Refused))
        send(line, {{QStringLiteral("error"), QStringLiteral("refused")}});
    else if (instruction == QLatin1String("listenEventsData"))
        m_listeners.insert(id, line);
    else if (instruction == QLatin1String("restoreBackup"))
        startRestore(id, line, arguments);
    else
        send(line, m_controller.execute(instruction, arguments));
}

void ZrtEndpoint::withdraw(quint64 id)
{
    m_listeners.remove(id);
    m_restores.remove(id);
}

std::optional<int> ZrtEndpoint::pullTrigger()
{
    auto const run = m_controller.pullTrigger();
    if (!run)
        return std::nullopt;
    m_clock.after(run->duration, [this, event = run->event] {
        for (auto const& listener : std::as_const(m_listeners))
            send(listener, {{QStringLiteral("values"), event}});
    });
    return run->duration;
}

void ZrtEndpoint::pressReverse()
{
    m_controller.pressReverse();
}

bool ZrtEndpoint::isReverse() const
{
    return m_controller.state().isReverse;
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
        m_clock.after(delay, [this, onReply = line.onReply, reply] {
            if (m_isConnected)
                onReply(reply);
        });
    }
}

void ZrtEndpoint::startRestore(quint64 id, Line const& line, QVariantMap const& arguments)
{
    Restore restore;
    restore.line = line;
    auto const first = wholeNumber(arguments, QStringLiteral("startPreset"));
    auto const last = wholeNumber(arguments, QStringLiteral("endPreset"));
    if (!first || !last) {
        send(line, failed(QStringLiteral("\"startPreset\" and \"endPreset\" must be whole numbers")));
        return;
    }
    restore.first = *first;
    restore.last = *last;
    restore.withParameters = arguments.value(QStringLiteral("loadControllerParams")).toBool();
    // Nothing is touched before the whole file has been found right.
    try {
        restore.backup = readZrtBackup(arguments.value(QStringLiteral("filePath")).toString());
    } catch (InputError const& error) {
        send(line, failed(error.message()));
        return;
    }
    if (restore.first == 0 && restore.last == 0)
        restore.last = std::numeric_limits<int>::max();
    auto const numbers = restore.backup.presets.keys();
    std::copy_if(numbers.cbegin(), numbers.cend(), std::back_inserter(restore.presets),
                 [&restore](int number) { return number >= restore.first && number <= restore.last; });
    if (restore.presets.isEmpty()) {
        send(line, failed(QStringLiteral("the backup holds no preset from %1 to %2")
                              .arg(restore.first)
                              .arg(restore.last)));
        return;
    }
    m_restores.insert(id, restore);
    m_clock.after(m_times.preset, [this, id] { continueRestore(id); });
}

void ZrtEndpoint::continueRestore(quint64 id)
{
    auto const it = m_restores.find(id);
    if (it == m_restores.end() || !m_isConnected)
        return; // withdrawn: the controller stays as it was
    int const preset = it->presets[it->done];
    if (m_controller.state().unwritablePresets.contains(preset)) {
        send(it->line,
             failed(QStringLiteral("preset %1 cannot be written; nothing was restored").arg(preset)));
        m_restores.erase(it);
        return;
    }
    ++it->done;
    int const total = it->presets.size();
    bool const isLast = it->done == total;
    if (isLast)
        m_controller.restore(it->backup, it->first, it->last, it->withParameters);
    constexpr int percent = 100;
    send(it->line,
         status({{QStringLiteral("state"), isLast ? QStringLiteral("done") : QStringLiteral("running")},
                 {QStringLiteral("preset"), preset},
                 {QStringLiteral("done"), it->done},
                 {QStringLiteral("total"), total},
                 {QStringLiteral("progress"), percent * it->done / total}}));
    if (isLast)
        m_restores.erase(it);
    else
        m_clock.after(m_times.preset, [this, id] { continueRestore(id); });
}
