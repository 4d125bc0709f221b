#pragma once

#include "child.h"
#include "complaint.h"

#include <QString>

#include <grp.h>
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
    return wordsOfChild([&action](auto const& say) { say(complaintOf(action)); });
}
