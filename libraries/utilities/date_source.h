#pragma once

#include <utilities/export.h>

#include <QDateTime>

#include <functional>

/// Makes getDate() read @p source instead of the system's clock; an empty function gives the system's clock
/// back. For a host that runs on simulated time. Call it on the thread that writes the log lines.
UTILITIES_EXPORT void setDateSource(std::function<QDateTime()> source);
