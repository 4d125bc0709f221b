#pragma once

#include <files/input_error.h>

#include <QString>

/// The message of the InputError that @p action ends with; "no complaint" if it ends well.
template <class Action> QString complaintOf(Action const& action)
{
    try {
        action();
    } catch (InputError const& error) {
        return error.message();
    }
    return QStringLiteral("no complaint");
}

/// A text as far as it is expected: where @p expected ends in "...", anything may follow.
inline QString asFarAs(QString const& expected, QString const& text)
{
    QString const open = QStringLiteral("...");
    return expected.endsWith(open) ? text.left(expected.size() - open.size()) + open : text;
}
