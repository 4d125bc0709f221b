#pragma once

#include <QString>

struct InspectOptions
{
    QString plugin;
    QString records; ///< empty: those of the default place, if there are any
    bool json = false;
    bool markdown = false;
};

/// `workplace inspect`: the program's exit code. InputError for bad input.
int inspectCommand(InspectOptions const& options);
