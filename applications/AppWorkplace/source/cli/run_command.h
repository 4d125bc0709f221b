#pragma once

#include <QString>

struct RunOptions
{
    QString sequence;
    QString plugin;
    QString controller; ///< empty: the one that the sequence asks for
    QString trace;      ///< empty: no trace
    bool json = false;
    bool realTime = false;
};

/// `workplace run`: the program's exit code. InputError for bad input.
int runCommand(RunOptions const& options);
