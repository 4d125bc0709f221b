#pragma once

#include "host/run_event.h"

#include <QByteArray>

/// An event as a line for people; empty for what only a trace tells.
QByteArray toTranscript(qint64 time, RunEvent const& event);

/// An event as a JSON object for programs, with its newline; empty for what only a trace tells.
QByteArray toJsonTranscript(qint64 time, RunEvent const& event);
