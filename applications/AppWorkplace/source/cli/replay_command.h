#pragma once

#include <QString>

struct ReplayOptions
{
    QString trace;
    QString plugin;
    bool json = false;
};

/// `workplace replay`: the program's exit code, 1 if anything differs from the record. InputError for bad
/// input.
int replayCommand(ReplayOptions const& options);
