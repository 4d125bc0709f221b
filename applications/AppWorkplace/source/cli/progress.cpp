#include "progress.h"

#include <unistd.h>

#include <cstdio>

Progress::Progress(char const* doing) : m_doing(doing), m_isTerminal(isatty(STDERR_FILENO) != 0) {}

void Progress::show(int percent)
{
    if (m_isTerminal && percent != m_percent)
        std::fprintf(stderr, "\r%s %d %%", m_doing, percent);
    m_percent = percent;
}

void Progress::clear()
{
    if (m_isTerminal && m_percent >= 0)
        std::fprintf(stderr, "\r\x1b[K");
    m_percent = -1;
}
