#pragma once

#include <QString>

/// "text"_s is a QString.
inline QString operator""_s(char const* text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}
