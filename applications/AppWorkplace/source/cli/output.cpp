#include "output.h"

#include <files/input_error.h>

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

void Output::write(QByteArray const& text)
{
    auto const size = static_cast<std::size_t>(text.size());
    if (m_error == 0 && (std::fwrite(text.constData(), 1, size, stdout) != size || std::fflush(stdout) != 0))
        m_error = errno;
}

bool Output::isTerminal()
{
    return isatty(STDOUT_FILENO) != 0;
}

void Output::close() const
{
    if (m_error != 0)
        throw InputError(
            QStringLiteral("standard output: %1").arg(QString::fromLocal8Bit(std::strerror(m_error))));
}
