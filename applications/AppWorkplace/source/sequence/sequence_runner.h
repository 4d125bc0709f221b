#pragma once

#include "sequence.h"

class Clock;
class Order;
class RunEvents;
class Tool;
class Workstation;

/// Runs a work sequence on a tool, step by step. The first order that fails ends it; commands that still
/// listen at the end are finished.
class SequenceRunner
{
public:
    SequenceRunner(Tool& tool, Workstation const& workstation, Clock& clock);

    /// Answers whether everything went as the sequence asks.
    bool run(Sequence const& sequence);

private:
    bool perform(OrderStep const& step);
    bool perform(StopStep const& step);
    bool perform(WaitStep const& step);
    bool meetsExpectations(Order const& order, QVariantMap const& expected) const;
    void finishListeners();

    Tool& m_tool;
    Workstation const& m_workstation;
    RunEvents const& m_events;
    Clock& m_clock;
};
