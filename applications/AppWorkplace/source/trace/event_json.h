#pragma once

#include "host/run_event.h"

#include <QByteArray>

#include <nlohmann/json.hpp>

/// An event as one JSON object, its time in milliseconds and its kind first.
nlohmann::ordered_json toJson(qint64 time, RunEvent const& event);

/// One line of JSON text, with its newline.
QByteArray toLine(nlohmann::ordered_json const& json);
