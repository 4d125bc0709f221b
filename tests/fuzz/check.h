#pragma once

#include <QByteArray>
#include <QString>

#include <cstdio>
#include <cstdlib>

/// Ends the fuzzer with this complaint, which makes the input a finding.
[[noreturn]] inline void complain(QString const& what)
{
    std::fprintf(stderr, "\n== %s\n", what.toUtf8().constData());
    std::abort();
}

/// Ends the fuzzer with this complaint before it takes an input: the fuzzer itself is wrong.
[[noreturn]] inline void refuseToStart(QString const& what)
{
    std::fprintf(stderr, "\n== %s\n", what.toUtf8().constData());
    std::exit(EXIT_FAILURE);
}

/// Complains unless it is so; what @p what answers is only asked for then.
template <class What> void check(bool isSo, What const& what)
{
    if (!isSo)
        complain(what());
}
