#pragma once

#include "sequence.h"

class Order;
class RunEvents;
class Tool;
class Workstation;
class ZrtClock;
class ZrtSimulatedController;

/// Runs a work sequence on a tool and its controller, step by step. The first order that fails ends it;
/// commands that still listen at the end are finished.
class SequenceRunner
{
public:
    SequenceRunner(Tool& tool, ZrtSimulatedController& controller, Workstation const& workstation,
                   ZrtClock& clock);

    /// Answers whether everything went as the sequence asks.
    bool run(Sequence const& sequence);

private:
    bool perform(OrderStep const& step);
    bool perform(StopStep const& step);
    bool perform(AwaitStep const& step);
    bool perform(TightenStep const& step);
    bool perform(TriggerStep const& step);
    bool perform(PressStep const& step);
    bool perform(WaitStep const& step);
    void letPass(qint64 duration);
    bool meetsExpectations(Order const& order, QVariantMap const& expected) const;
    void finishListeners();

    Tool& m_tool;
    ZrtSimulatedController& m_controller;
    Workstation const& m_workstation;
    RunEvents const& m_events;
    ZrtClock& m_clock;
    QVariantMap m_record;
};
