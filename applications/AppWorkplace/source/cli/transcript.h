#pragma once

#include "host/run_event.h"

#include <QByteArray>

class Output;

/// Shows a run to people, a line for each event but those that only a trace tells. On a terminal the progress
/// of a restore is a bar that grows on its line.
class Transcript
{
public:
    Transcript(Output& output, bool isTerminal) : m_output(output), m_isTerminal(isTerminal) {}

    void show(qint64 time, RunEvent const& event);

private:
    Output& m_output;
    bool m_isTerminal;
    bool m_isBarOpen = false;
};

/// An event as a JSON object for programs, with its newline; empty for what only a trace tells.
QByteArray toJsonTranscript(qint64 time, RunEvent const& event);
