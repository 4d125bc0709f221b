#pragma once

#include "literals.h"

#include <QByteArray>
#include <QString>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

/// A terminal whose keys the test presses, and whose screen it reads.
class Terminal
{
public:
    Terminal() : m_master(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
        if (m_master < 0 || ::grantpt(m_master) != 0 || ::unlockpt(m_master) != 0)
            qFatal("there is no terminal to be had");
        // Nothing is lost before a program begins, nor when it ends.
        m_slave = ::open(::ptsname(m_master), O_RDWR | O_NOCTTY);
    }
    ~Terminal()
    {
        ::close(m_slave);
        ::close(m_master);
    }
    Terminal(Terminal const&) = delete;
    Terminal& operator=(Terminal const&) = delete;

    /// The name of its file, for a channel of a program.
    QString name() const { return QString::fromLocal8Bit(::ptsname(m_master)); }

    void type(QByteArray const& keys) const
    {
        if (::write(m_master, keys.constData(), static_cast<std::size_t>(keys.size())) != keys.size())
            qFatal("the terminal does not take what is typed");
    }

    /// What has been written on it since the last look.
    QString shown() const
    {
        QByteArray text;
        char buffer[4096];
        for (ssize_t count = 0; (count = ::read(m_master, buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<int>(count));
        return QString::fromUtf8(text.replace("\r\n", "\n")); // the terminal's own line ends
    }

private:
    int const m_master;
    int m_slave = -1;
};
