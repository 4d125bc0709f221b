#pragma once

#include <vector>

// Everything that the plugin writes into the host's log, in one table. The reference, "workplace explain" and
// whatever compares a log with a recorded one read it; a test holds it against the plugin's sources.

/// An error line.
struct ErrorLine
{
    /// The line number that has been laid down for it; 0 if it is the place in the source file.
    int line;
    /// The function that writes it.
    char const* handler;
    /// "…" stands for what differs.
    char const* message;
    char const* cause;
    char const* remedy;
};

/// A line of information: an error code of the controller, in words.
struct InfoLine
{
    char const* handler;
    /// "…" stands for the tool's name, the code and its text.
    char const* message;
    char const* cause;
};

/// What one source file of the plugin writes.
struct LogSource
{
    /// Without its folder.
    char const* file;
    /// Whose source this is; empty if it is no command's.
    char const* command;
    std::vector<ErrorLine> errors;
    std::vector<InfoLine> infos = {};
    /// The traces of a debug build, each by the word that it has in the log.
    std::vector<char const*> traces = {};
};

struct ControllerError
{
    int code;
    char const* text;
    /// What a person looks at first.
    char const* lookAt;
};

std::vector<LogSource> const& logSources();
std::vector<ControllerError> const& controllerErrors();
