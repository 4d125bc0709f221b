#pragma once

#include "host/run_event.h"

#include <QByteArray>

#include <nlohmann/json.hpp>

#include <utility>

/// The key that says what an event is.
inline constexpr char const* c_eventKey = "event";

/// An event as one JSON object, its time in milliseconds and its kind first.
nlohmann::ordered_json toJson(qint64 time, RunEvent const& event);

/// The time and the event that toJson() has written. InputError if it is not right.
std::pair<qint64, RunEvent> toEvent(JsonInput const& json);

/// The JSON Schema of a line of a trace.
QByteArray traceLineSchema();

/// One line of JSON text, with its newline.
QByteArray toLine(nlohmann::ordered_json const& json);
