#pragma once

#include <QByteArray>
#include <QFile>

/// The memory of this process that is in the machine's, in kilobytes: now ("VmRSS") or at its highest
/// ("VmHWM").
inline qint64 residentMemory(char const* which = "VmRSS")
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(status.fileName()), qPrintable(status.errorString()));
    QByteArray const text = status.readAll();
    int const at = text.indexOf(QByteArray("\n") + which + ':');
    if (at < 0)
        qFatal("%s says nothing of %s", qPrintable(status.fileName()), which);
    return text.mid(at).split(':').at(1).trimmed().split(' ').first().toLongLong();
}
