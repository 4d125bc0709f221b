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
};
/// Orders the stop of every running command that reports this stop name.
struct StopStep
{
    QString stopCommand;
};
/// Lets time pass, in milliseconds.
struct WaitStep
{
    qint64 duration = 0;
};

/// What a work sequence does, one step after the other.
struct Sequence
{
    std::vector<std::variant<OrderStep, StopStep, WaitStep>> steps;
    /// The controller's set-up file that the sequence asks for; empty if it asks for none.
    QString controllerFile;
};

/// Reads a work sequence (docs/sequences.md) and checks the whole of it against the commands of @p plugin:
/// names, parameters and their type tags, results. InputError if anything is not right.
Sequence readSequence(QString const& fileName, DAbstractPlugin const& plugin);
