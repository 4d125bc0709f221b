#pragma once

#include <QString>

/// While it lives, the calls of the C library are counted with which this program and the libraries it uses
/// look at files and change them. One of them, counted from 1, is the last that the process does, or fails.
/// For a child, which ends anyway; its parent sees how far it has come.
///
/// The program itself defines these functions, so that the dynamic linker finds them before the C library's.
/// That needs neither a debugger's rights, which containers often withhold, nor another program.
class FileCalls
{
public:
    /// The process is killed instead of doing the call; of a write of more than a page half is done by then.
    static constexpr int c_kill = 0;

    /// @p error is a number of errno, or c_kill.
    FileCalls(int call, int error);
    ~FileCalls();
    FileCalls(FileCalls const&) = delete;
    FileCalls& operator=(FileCalls const&) = delete;

    /// The name of the call that it was, "rename" for instance, in this process or in a child; empty if there
    /// were not as many.
    static QString met();
};
