#pragma once

#include <QByteArray>

/// Standard output, written line by line; a failure (a full disk, a closed pipe)
/// is reported once, at the end.
class Output
{
public:
    void write(QByteArray const& text);
    /// Whether a person is likely to watch.
    static bool isTerminal();
    /// InputError if not everything could be written.
    void close() const;

private:
    int m_error = 0;
};
