#pragma once

#include "literals.h"

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
    return "no complaint"_s;
}

/// A text as far as it is expected: where @p expected ends in "...", anything may follow.
inline QString asFarAs(QString const& expected, QString const& text)
{
    QString const open = "..."_s;
    return expected.endsWith(open) ? text.left(expected.size() - open.size()) + open : text;
}
