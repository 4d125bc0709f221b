#pragma once

#include <QByteArray>

/// Standard output, written line by line; a failure (a full disk, a closed pipe) is reported once, at the
/// end.
class Output
{
public:
    void write(QByteArray const& text);
    /// InputError if not everything could be written.
    void close() const;

private:
    int m_error = 0;
};
