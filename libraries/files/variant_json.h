#pragma once

#include <QString>
#include <QVariant>

#include <nlohmann/json.hpp>

class JsonInput;

/// A value as JSON. What JSON has is written as it is: null for an invalid value, truth values, ints,
/// doubles, texts, lists, maps. Any other value keeps its type: {"@type": "uint", "@value": 7}, and so does a
/// map that has a key "@type". Containers nested deeper than a bound are cut.
nlohmann::ordered_json toJson(QVariant const& value);

/// The value that toJson() has written. A type that has no text to be made from again is an InputError.
QVariant toTypedVariant(JsonInput const& json);

/// A value as short text for people: as JSON, without the types.
QString toText(QVariant const& value);

/// Whether a value is what a person who wrote JSON expects: the same number, text, truth value, list,
/// whatever its type in detail; 1 is not true and "1" is not 1. Of a map the keys that are expected count,
/// others may be there.
bool matches(QVariant const& actual, QVariant const& expected);
