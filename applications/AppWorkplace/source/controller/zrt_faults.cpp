#include "zrt_faults.h"

#include "zrt_controller.h"

#include "json/json_input.h"

#include <limits>
#include <utility>

namespace
{

constexpr int c_defaultDelay = 100;
constexpr int c_defaultLateness = 5000;
constexpr int c_leastLateness = 4000; // the time allowance of every instruction
constexpr int c_longestDelay = 600'000;
constexpr int c_percent = 100;

QStringList kindNames()
{
    return {QStringLiteral("delay"),     QStringLiteral("late"),        QStringLiteral("loss"),
            QStringLiteral("duplicate"), QStringLiteral("missingKey"),  QStringLiteral("wrongType"),
            QStringLiteral("refused"),   QStringLiteral("disconnected")};
}

ZrtFault readFault(JsonInput const& input)
{
    QString const kind = QStringLiteral("kind");
    QString const instruction = QStringLiteral("instruction");
    QString const nth = QStringLiteral("nth");
    QString const percent = QStringLiteral("percent");
    QString const delay = QStringLiteral("delay");
    QString const key = QStringLiteral("key");
    input.allowKeys({kind, instruction, nth, percent, delay, key});

    ZrtFault fault;
    auto const index = kindNames().indexOf(input.at(kind).toText());
    if (index < 0)
        input.at(kind).fail(QStringLiteral("unknown kind of fault, known are %1")
                                .arg(kindNames().join(QStringLiteral(", "))));
    fault.kind = static_cast<ZrtFault::Kind>(index);
    fault.instruction = input.at(instruction).toText();
    auto const known = ZrtController::instructions();
    if (!known.contains(fault.instruction))
        input.at(instruction)
            .fail(QStringLiteral("unknown instruction, known are %1").arg(known.join(QStringLiteral(", "))));

    if (input.has(nth) == input.has(percent))
        input.fail(QStringLiteral("must have one of \"nth\" and \"percent\""));
    if (input.has(nth))
        fault.nth = static_cast<int>(input.at(nth).toInteger(1, std::numeric_limits<int>::max()));
    else
        fault.probability = static_cast<double>(input.at(percent).toInteger(0, c_percent)) / c_percent;

    bool const takesDelay = fault.kind == ZrtFault::Delay || fault.kind == ZrtFault::Late;
    if (input.has(delay) && !takesDelay)
        input.at(delay).fail(QStringLiteral("goes with the kinds delay and late"));
    if (takesDelay)
        fault.delay = input.has(delay)                ? static_cast<int>(input.at(delay).toInteger(
                                         fault.kind == ZrtFault::Late ? c_leastLateness : 0, c_longestDelay))
                      : fault.kind == ZrtFault::Delay ? c_defaultDelay
                                                      : c_defaultLateness;

    bool const takesKey = fault.kind == ZrtFault::MissingKey || fault.kind == ZrtFault::WrongType;
    if (input.has(key) && !takesKey)
        input.at(key).fail(QStringLiteral("goes with the kinds missingKey and wrongType"));
    if (takesKey)
        fault.key = input.at(key).toText();
    return fault;
}

} // namespace

ZrtFaults::ZrtFaults(QList<ZrtFault> faults, quint64 seed) : m_faults(std::move(faults)), m_random(seed) {}

QList<ZrtFault> ZrtFaults::next(QString const& instruction)
{
    constexpr double range = 18446744073709551616.0; // 2 to the 64th
    int const count = ++m_counts[instruction];
    QList<ZrtFault> befalling;
    for (auto const& fault : std::as_const(m_faults)) {
        if (fault.instruction != instruction)
            continue;
        bool const befalls =
            fault.nth != 0 ? fault.nth == count : static_cast<double>(m_random()) / range < fault.probability;
        if (befalls)
            befalling += fault;
    }
    return befalling;
}

QList<ZrtFault> readZrtFaults(JsonInput const& input)
{
    QList<ZrtFault> faults;
    auto const items = input.items();
    for (auto const& item : items)
        faults += readFault(item);
    return faults;
}
