#pragma once

#include <QCoreApplication>
#include <QString>

#include <functional>
#include <optional>
#include <string>

namespace CLI
{
class App;
class Option;
} // namespace CLI

/// A verb of the program. Its function, one for each file, adds it to the program: its options with their
/// checks, and what it does.
struct Verb
{
    CLI::App* app;
    /// What it does: the program's exit code. InputError for bad input.
    std::function<int()> run;
};

Verb explainVerb(CLI::App& program);
Verb inspectVerb(CLI::App& program);
Verb runVerb(CLI::App& program);
Verb replayVerb(CLI::App& program);
Verb schemaVerb(CLI::App& program);
/// Replaces the application object by one that knows of windows; the arguments are main's own.
Verb panelVerb(CLI::App& program, std::optional<QCoreApplication>& application, int& argc, char** argv);

/// Adds an argument or option that takes a text; an empty one is refused. The value must outlive the parsing.
CLI::Option* addText(CLI::App& verb, std::string const& name, QString& value, std::string const& description,
                     std::string const& ifEmpty = "no file name given");
/// Adds "--plugin"; without it the value is the library that the program was built with.
void addPlugin(CLI::App& verb, QString& value);
/// Adds "--json".
CLI::Option* addJson(CLI::App& verb, bool& value);
