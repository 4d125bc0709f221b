#include "pipe.h"

#include <QDeadlineTimer>
#include <QThread>

#include <fcntl.h>
#include <poll.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace
{

// Milliseconds.
constexpr int c_patience = 3000;
constexpr int c_pause = 20;

int openToRead(QByteArray const& name)
{
    int const handle = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (handle >= 0) {
        pollfd written{handle, POLLIN, 0};
        ::poll(&written, 1, c_patience);
    }
    return handle;
}

int openToWrite(QByteArray const& name)
{
    QDeadlineTimer const deadline(c_patience);
    int handle = -1;
    while ((handle = ::open(name.constData(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) < 0 && errno == ENXIO
           && !deadline.hasExpired())
        QThread::msleep(c_pause);
    return handle;
}

} // namespace

bool isPipe(QString const& fileName)
{
    std::error_code unknown;
    return std::filesystem::is_fifo(QFile::encodeName(fileName).constData(), unknown);
}

QString openPipe(QFile& file, QIODevice::OpenMode mode)
{
    bool const isToWrite = mode.testFlag(QIODevice::WriteOnly);
    QByteArray const name = QFile::encodeName(file.fileName());
    int const handle = isToWrite ? openToWrite(name) : openToRead(name);
    if (handle < 0)
        return errno == ENXIO ? QStringLiteral("nobody reads from this pipe") : qt_error_string();
    // From here on it waits for what the other end writes or reads.
    ::fcntl(handle, F_SETFL, 0);
    return file.open(handle, mode, QFileDevice::AutoCloseHandle) ? QString() : file.errorString();
}
