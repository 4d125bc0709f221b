#pragma once

#include "sequence.h"

class Clock;
class Order;
class RunEvents;
class Tool;
class ToolSite;
class Workstation;

/// Runs a work sequence on a tool, step by step. The first order that fails ends it; commands that still
/// listen at the end are finished.
class SequenceRunner
{
public:
    SequenceRunner(Tool& tool, ToolSite& site, Workstation const& workstation, Clock& clock);

    /// Answers whether everything went as the sequence asks.
    bool run(Sequence const& sequence);

private:
    bool perform(OrderStep const& step);
    bool perform(StopStep const& step);
    bool perform(ReverseStep const& step);
    bool perform(TriggerStep const& step);
    bool perform(AwaitStep const& step);
    bool perform(WaitStep const& step);
    void letPass(qint64 duration);
    bool meetsExpectations(Order const& order, QVariantMap const& expected) const;
    void finishListeners();

    Tool& m_tool;
    ToolSite& m_site;
    Workstation const& m_workstation;
    RunEvents const& m_events;
    Clock& m_clock;
    QVariantMap m_record;
};
