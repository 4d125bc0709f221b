#pragma once

#include "zrt_simulated_controller.h"

#include <random>

/// Decides which faults apply to an instruction, by count or, from a seed, by chance.
class ZrtFaults
{
public:
    explicit ZrtFaults(QList<ZrtFault> const& faults = {}, quint64 seed = 1);

    /// The faults by their numbers, which count from 1.
    QMap<int, ZrtFault> faults() const;
    /// Adds a valid fault and returns its number.
    int add(ZrtFault const& fault);
    /// Returns false if there is no fault of this number.
    bool remove(int number);

    /// The faults that apply to the next instruction of this name, and to all replies to it.
    QList<ZrtFault> matching(QString const& instruction);

private:
    struct Counted
    {
        ZrtFault fault;
        int count = 0;
    };
    QMap<int, Counted> m_faults;
    int m_lastNumber = 0;
    std::mt19937_64 m_random;
};
