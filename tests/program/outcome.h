#pragma once

#include "literals.h"

#include <QProcess>
#include <QString>

/// What a run of a program left on its channels. A channel that was sent elsewhere is empty.
struct Outcome
{
    int exitCode = -1;
    QString out;
    QString err;
};

/// What a program leaves that has been started; waits for its end.
inline Outcome outcomeOf(QProcess& program)
{
    if (!program.waitForFinished(60'000))
        return {-2, QString(), "it does not come back"_s};
    return {program.exitStatus() == QProcess::NormalExit ? program.exitCode() : -3,
            QString::fromUtf8(program.readAllStandardOutput()),
            QString::fromUtf8(program.readAllStandardError())};
}
