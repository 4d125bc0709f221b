#include "zrt_faults.h"

#include "zrt_controller.h"

#include <files/json_input.h>

#include <limits>

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

bool takesDelay(ZrtFault::Kind kind)
{
    return kind == ZrtFault::Delay || kind == ZrtFault::Late;
}

bool takesKey(ZrtFault::Kind kind)
{
    return kind == ZrtFault::MissingKey || kind == ZrtFault::WrongType;
}

int shortestDelay(ZrtFault::Kind kind)
{
    return kind == ZrtFault::Late ? c_leastLateness : 0;
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

    if (input.has(delay) && !takesDelay(fault.kind))
        input.at(delay).fail(QStringLiteral("goes with the kinds delay and late"));
    if (input.has(delay))
        fault.delay = static_cast<int>(input.at(delay).toInteger(shortestDelay(fault.kind), c_longestDelay));
    else if (takesDelay(fault.kind))
        fault.delay = fault.kind == ZrtFault::Delay ? c_defaultDelay : c_defaultLateness;

    if (input.has(key) && !takesKey(fault.kind))
        input.at(key).fail(QStringLiteral("goes with the kinds missingKey and wrongType"));
    if (takesKey(fault.kind))
        fault.key = input.at(key).toText();
    return fault;
}

} // namespace

ZrtFaults::ZrtFaults(QList<ZrtFault> const& faults, quint64 seed) : m_random(seed)
{
    for (auto const& fault : faults)
        add(fault);
}

QMap<int, ZrtFault> ZrtFaults::faults() const
{
    QMap<int, ZrtFault> faults;
    for (auto it = m_faults.cbegin(); it != m_faults.cend(); ++it)
        faults.insert(it.key(), it->fault);
    return faults;
}

int ZrtFaults::add(ZrtFault const& fault)
{
    m_faults.insert(++m_lastNumber, {fault});
    return m_lastNumber;
}

bool ZrtFaults::remove(int number)
{
    return m_faults.remove(number) > 0;
}

QList<ZrtFault> ZrtFaults::matching(QString const& instruction)
{
    constexpr double range = 18446744073709551616.0; // 2 to the 64th
    QList<ZrtFault> faults;
    for (auto& [fault, count] : m_faults) {
        if (fault.instruction != instruction)
            continue;
        ++count;
        bool const applies =
            fault.nth != 0 ? fault.nth == count : static_cast<double>(m_random()) / range < fault.probability;
        if (applies)
            faults += fault;
    }
    return faults;
}

QString problemIn(ZrtFault const& fault)
{
    if (fault.kind < 0 || fault.kind >= kindNames().size())
        return QStringLiteral("unknown kind of fault");
    QString const kind = kindNames().at(fault.kind);
    if (!ZrtController::instructions().contains(fault.instruction))
        return QStringLiteral("unknown instruction \"%1\" of the fault \"%2\"").arg(fault.instruction, kind);
    if (fault.nth < 0)
        return QStringLiteral("\"nth\" of the fault \"%1\" must not be negative").arg(kind);
    // Not a number is refused too.
    bool const isProbability = fault.probability >= 0 && fault.probability <= 1;
    if (!isProbability || (fault.nth != 0 && fault.probability != 0))
        return QStringLiteral("\"probability\" of the fault \"%1\" must be from 0 to 1, and 0 with \"nth\"")
            .arg(kind);
    if (fault.delay != 0 && !takesDelay(fault.kind))
        return QStringLiteral("the fault \"%1\" has no \"delay\"").arg(kind);
    int const shortest = shortestDelay(fault.kind);
    if (fault.delay < shortest || fault.delay > c_longestDelay)
        return QStringLiteral("\"delay\" of the fault \"%1\" must be from %2 to %3")
            .arg(kind)
            .arg(shortest)
            .arg(c_longestDelay);
    if (!fault.key.isEmpty() && !takesKey(fault.kind))
        return QStringLiteral("the fault \"%1\" has no \"key\"").arg(kind);
    return {};
}

QList<ZrtFault> readZrtFaults(JsonInput const& input)
{
    QList<ZrtFault> faults;
    auto const items = input.items();
    for (auto const& item : items)
        faults += readFault(item);
    return faults;
}
