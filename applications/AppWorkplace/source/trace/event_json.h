#pragma once

#include "host/run_event.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <nlohmann/json.hpp>

/// A value as JSON. What JSON has is written as it is: null for an invalid value, truth values, ints,
/// doubles, texts, lists, maps. Any other value keeps its type: {"@type": "uint", "@value": 7}. Containers
/// nested deeper than a bound are cut.
nlohmann::ordered_json toJson(QVariant const& value);

/// A value as short text for people: as JSON, without the types.
QString toText(QVariant const& value);

/// An event as one JSON object, its time in milliseconds and its kind first.
nlohmann::ordered_json toJson(qint64 time, RunEvent const& event);

/// One line of JSON text, with its newline.
QByteArray toLine(nlohmann::ordered_json const& json);
