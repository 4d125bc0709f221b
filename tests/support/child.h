#pragma once

#include "literals.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <sys/wait.h>
#include <unistd.h>

/// What a child process says. @p work gets the function to say it with, which ends the child and cleans
/// nothing up.
template <class Work> QString wordsOfChild(Work const& work)
{
    int ends[2];
    if (::pipe(ends) != 0)
        qFatal("there is no pipe to be had");
    pid_t const child = ::fork();
    if (child == 0) {
        int const end = ends[1];
        work([end](QString const& words) {
            QByteArray const text = words.toUtf8();
            bool const isWritten = ::write(end, text.constData(), static_cast<std::size_t>(text.size()))
                                   == static_cast<ssize_t>(text.size());
            ::_exit(isWritten ? 0 : 1);
        });
        ::_exit(1);
    }
    ::close(ends[1]);
    QByteArray text;
    char part[512];
    for (ssize_t count = 0; (count = ::read(ends[0], part, sizeof part)) > 0;)
        text.append(part, static_cast<int>(count));
    ::close(ends[0]);
    int status = -1;
    ::waitpid(child, &status, 0);
    return status == 0 ? QString::fromUtf8(text) : "the child failed, %1"_s.arg(status);
}
