#pragma once

#include <QString>
#include <QVariant>

#include <variant>
#include <vector>

class DAbstractPlugin;

/// Orders a command. A one-shot command is waited for; a listening one goes on in the background.
struct OrderStep
{
    QString command;
    QVariantMap parameters;
    /// The values that results must have when the command has succeeded.
    QVariantMap expected;
    /// Whether the order must fail for the step to be done.
    bool mustFail = false;
};
/// Orders the stop of every running command that reports this stop name.
struct StopStep
{
    QString stopCommand;
};
/// A person tightens screws. Fails if the tool is set to loosen.
struct TightenStep
{
    int count = 1;
};
/// A person pulls the trigger a number of times, whichever way the tool turns.
struct TriggerStep
{
    int count = 1;
};
/// A person presses a switch at the tool.
struct PressStep
{
    enum class Switch
    {
        Reverse,
    };
    Switch which = Switch::Reverse;
};
/// Waits until a result of a running command has a value. Of a map, the keys that are given count.
struct AwaitStep
{
    QString command;
    QString key;
    QVariant value;
    qint64 within = 10'000; ///< milliseconds
};
/// Lets time pass, in milliseconds.
struct WaitStep
{
    qint64 duration = 0;
};

/// What a work sequence does, one step after the other.
struct Sequence
{
    using Step = std::variant<OrderStep, StopStep, AwaitStep, TightenStep, TriggerStep, PressStep, WaitStep>;

    std::vector<Step> steps;
    /// The tool's record: "name", "serialNumber", "validityDate". Every order gets it with its parameters.
    QVariantMap tool;
    /// The files that its orders name.
    QStringList files;
    /// The controller's set-up file that the sequence asks for; empty if it asks for none.
    QString controllerFile;
};

/// Reads a work sequence (docs/sequences.md) and checks the whole of it against the commands of @p plugin:
/// names, parameters and their type tags, results. InputError if anything is not right.
Sequence readSequence(QString const& fileName, DAbstractPlugin const& plugin);

/// The keys of the tool's record, which go with every order.
QStringList toolRecordKeys();

/// The JSON Schema of a work sequence.
QByteArray sequenceSchema();
