#pragma once

#include <QFile>
#include <QString>

/// Whether there is a named pipe of this name.
bool isPipe(QString const& fileName);

/// Opens the named pipe of this file, to read or to write. QFile itself would wait for ever, without a word,
/// for somebody to open the other end; this waits three seconds. Answers why that was not possible; empty if
/// it was.
///
/// A pipe that nobody opens to write into is there all the same, and has nothing in it to read.
QString openPipe(QFile& file, QIODevice::OpenMode mode);
