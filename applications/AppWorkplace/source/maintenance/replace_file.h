#pragma once

#include <QByteArray>
#include <QString>

/// Puts a file with this content in the place of the one with this name, as a whole or not at all; what is
/// no file, a pipe or a device, is written to. Answers why that was not possible; empty if it was.
QString replaceFile(QString const& fileName, QByteArray const& content);
