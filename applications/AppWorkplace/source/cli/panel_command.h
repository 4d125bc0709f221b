#pragma once

#include "maintenance/maintenance_panel.h"

#include <QSize>
#include <QString>

#include <optional>

struct PanelOptions
{
    QString plugin;
    QString tool;
    QString records;
    QString screenshot; ///< empty: a window
    QSize size{1280, 800};
    std::optional<MaintenancePanel::Theme> theme; ///< none: as the desktop has it
    bool json = false;
};

/// `workplace panel`: the program's exit code. InputError for bad input and for edits that could not be
/// saved. Makes the application object, so there must be none.
int panelCommand(PanelOptions const& options, int& argc, char** argv);
