#pragma once

#include "host/run_event.h"

#include <QByteArray>

#include <nlohmann/json.hpp>

/// The format of a trace, as its first line tells it. It grows when a program that reads the format before
/// could not make sense of the new one.
constexpr int c_traceFormat = 1;

/// When a run began, as the clock on the wall showed it.
inline constexpr char const* c_traceDateFormat = "yyyy-MM-ddTHH:mm:ss.zzz";

/// An event as one JSON object, its time in milliseconds and its kind first.
nlohmann::ordered_json toJson(qint64 time, RunEvent const& event);

/// One line of JSON text, with its newline.
QByteArray toLine(nlohmann::ordered_json const& json);
