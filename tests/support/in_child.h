#pragma once

#include "complaint.h"

#include <QByteArray>
#include <QString>

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

/// Gives up what root may do beyond others. Not to be had back: for a child.
inline void becomeNobody()
{
    constexpr unsigned int nobody = 65534;
    if (::geteuid() == 0 && (::setgroups(0, nullptr) != 0 || ::setgid(nobody) != 0 || ::setuid(nobody) != 0))
        ::_exit(1);
}

/// What complaintOf() answers for an action in a child process, which ends with it and cleans nothing up.
template <class Action> QString complaintInChild(Action const& action)
{
    int ends[2];
    if (::pipe(ends) != 0)
        qFatal("there is no pipe to be had");
    pid_t const child = ::fork();
    if (child == 0) {
        QByteArray const text = complaintOf(action).toUtf8();
        bool const isWritten = ::write(ends[1], text.constData(), static_cast<std::size_t>(text.size()))
                               == static_cast<ssize_t>(text.size());
        ::_exit(isWritten ? 0 : 1);
    }
    ::close(ends[1]);
    QByteArray text;
    char part[512];
    for (ssize_t count = 0; (count = ::read(ends[0], part, sizeof part)) > 0;)
        text.append(part, static_cast<int>(count));
    ::close(ends[0]);
    int status = -1;
    ::waitpid(child, &status, 0);
    return status == 0 ? QString::fromUtf8(text) : QStringLiteral("the child failed, %1").arg(status);
}
