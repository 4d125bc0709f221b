#pragma once

#include "zrt_simulated_controller.h"

/// A controller's backup file: presets by their numbers, and the controller's own parameters.
struct ZrtBackup
{
    QMap<int, ZrtPreset> presets;
    QMap<QString, int> parameters;
};

// What the simulated controller reads. docs/controller.md describes the files; zrt_formats.cpp has the tables
// from which they are read and described.

/// Reads a set-up file; what it does not mention keeps its default. InputError if it is not right.
ZrtSetup readZrtSetup(QString const& fileName);

/// Reads the whole of a backup file. InputError if it is not right.
ZrtBackup readZrtBackup(QString const& fileName);

/// What is not valid, as "path: what"; empty if all is.
QString problemIn(ZrtSetup const& setup);
QString problemIn(ZrtFault const& fault);

/// The preset as the controller sends it: numbers by the keys of a set-up file.
QVariantMap toMap(ZrtPreset const& preset);

/// The JSON Schemas of these files and of their parts, by their names.
QMap<QString, QByteArray> zrtSchemas();
