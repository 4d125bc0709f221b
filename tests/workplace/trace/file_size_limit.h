#pragma once

#include <sys/resource.h>

#include <csignal>

/// While it lives, files may not grow beyond a size, as on a disk that is full.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t size) : m_formerHandler(std::signal(SIGXFSZ, SIG_IGN))
    {
        ::getrlimit(RLIMIT_FSIZE, &m_former);
        rlimit limit = m_former;
        limit.rlim_cur = size;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &m_former);
        std::signal(SIGXFSZ, m_formerHandler);
    }
    FileSizeLimit(FileSizeLimit const&) = delete;
    FileSizeLimit& operator=(FileSizeLimit const&) = delete;

private:
    rlimit m_former{};
    void (*m_formerHandler)(int);
};
