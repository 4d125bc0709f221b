#pragma once

#include <QString>

#include <stdexcept>

/// Something that was given to the program is not usable. The message is one line that says where and what.
class InputError : public std::runtime_error
{
public:
    explicit InputError(QString const& message) : std::runtime_error(message.toStdString()) {}

    QString message() const { return QString::fromUtf8(what()); }
};

/// A text on one line: line breaks and control characters, but for tabs, as \n or \u001b.
QString onOneLine(QString const& text);

/// A text from a file as a message shows it: on one line and not too long.
QString shown(QString const& text);
