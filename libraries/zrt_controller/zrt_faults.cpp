#include "zrt_faults.h"

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
