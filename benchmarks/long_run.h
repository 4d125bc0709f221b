#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QFile>
#include <QString>

#include <unistd.h>

#include <algorithm>
#include <cstdio>

/// What the kernel says of this process under a key of its account, in kilobytes: what is in memory
/// ("VmRSS"), or was at the most ("VmHWM").
inline double memory(char const* key)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(status.fileName()), qPrintable(status.errorString()));
    auto const lines = status.readAll().split('\n');
    auto const line = std::find_if(lines.cbegin(), lines.cend(), [key](QByteArray const& text) {
        return text.startsWith(QByteArray(key) + ':');
    });
    if (line == lines.cend())
        qFatal("%s says nothing of %s", qPrintable(status.fileName()), key);
    return line->simplified().split(' ').value(1).toDouble();
}

/// Tells on the error output how far the run is: a terminal sees one line change, a file gets one for each
/// tenth.
class Progress
{
public:
    Progress(int total, char const* what) : m_total(total), m_what(what) { m_sinceStart.start(); }

    void show(qint64 done)
    {
        qint64 const steps = m_isTerminal ? c_stepsOfTerminal : c_stepsOfFile;
        if (done * steps / m_total == (done - 1) * steps / m_total)
            return;
        double const rate = static_cast<double>(done) / seconds();
        QByteArray const line = QStringLiteral("%1 %, %2 %3 a second, %4 s left")
                                    .arg(c_percent * done / m_total, 3)
                                    .arg(qRound(rate))
                                    .arg(QLatin1String(m_what))
                                    .arg(qRound(static_cast<double>(m_total - done) / rate))
                                    .toUtf8();
        if (line == m_line)
            return;
        m_line = line;
        std::fprintf(stderr, m_isTerminal ? "\r%s\033[K" : "%s\n", line.constData());
        if (m_isTerminal && done == m_total)
            std::fputc('\n', stderr);
    }
    double seconds() const { return static_cast<double>(m_sinceStart.nsecsElapsed()) / c_nanoseconds; }

private:
    static constexpr qint64 c_stepsOfTerminal = 1000;
    static constexpr qint64 c_stepsOfFile = 10;
    static constexpr qint64 c_percent = 100;
    static constexpr double c_nanoseconds = 1e9;

    qint64 const m_total;
    char const* const m_what;
    bool const m_isTerminal = isatty(STDERR_FILENO) != 0;
    QElapsedTimer m_sinceStart;
    QByteArray m_line;
};
