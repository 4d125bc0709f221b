#pragma once

#include <QtGlobal>

class RunEvents;

/// While it lives, Qt's log lines become events of the run, and are dated by their clock. The addresses of
/// objects in them are replaced by "0x..": they say nothing once the run is over and are different in every
/// one. One at a time.
class LogTap
{
public:
    explicit LogTap(RunEvents const& events);
    ~LogTap();
    LogTap(LogTap const&) = delete;
    LogTap& operator=(LogTap const&) = delete;

private:
    QtMessageHandler m_former;
};
