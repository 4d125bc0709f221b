#pragma once

#include "zrt_simulated_controller.h"

class JsonInput;

/// The preset as the controller sends it: numbers by the keys of a set-up file.
QVariantMap toMap(ZrtPreset const& preset);

/// What is not valid in a preset; empty if it is.
QString problemIn(ZrtPreset const& preset);

/// Reads a preset; what it does not mention keeps its default. InputError if it is not right.
ZrtPreset readZrtPreset(JsonInput const& input);

/// Reads presets by their numbers, {"1": {...}, "15": {...}}.
QMap<int, ZrtPreset> readZrtPresets(JsonInput const& input);
