#pragma once

#include "zrt_preset.h"

/// A controller's backup file: presets by their numbers, and the controller's own parameters.
struct ZrtBackup
{
    QMap<int, ZrtPreset> presets;
    QMap<QString, int> parameters;
};

/// Reads and checks the whole of a backup file. InputError if it is not right.
ZrtBackup readZrtBackup(QString const& fileName);

class JsonInput;

/// Reads the controller's parameters, whole numbers by their names.
QMap<QString, int> readZrtParameters(JsonInput const& input);
