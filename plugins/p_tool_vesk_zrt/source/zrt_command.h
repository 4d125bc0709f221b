#pragma once

#include <fast_delegate/fast_delegate.h>
#include <plugin_management/i_command.h>

#include <QMap>
#include <QSharedPointer>
#include <QString>
#include <QVariant>

#include <optional>

/// What all commands of the ZRT share.
namespace zrt
{

/// The endpoint that every instruction goes to: the controller.
inline QString device()
{
    return QStringLiteral("device");
}

/// What every instruction carries as its time allowance; the host reads it as milliseconds.
constexpr int c_timeAllowance = 4000;

/// A reply lacks a key that it must have.
constexpr char const* c_invalidReply = "ERROR: Invalid reply format";
/// A reply has the key, but its value is of a type that the command does not handle.
constexpr char const* c_unmanagedFormat = "ERROR: Reply data format not managed";

/// A reply handler: takes the instruction's id and the reply, answers whether it took the reply.
using OnReply = fastdelegate::FastDelegate2<quint64, QMap<QString, QVariant> const&, bool>;

/// A value of a reply as a whole number, as QVariant::toInt() makes it; but the fraction of a double or float
/// is cut instead of rounded, and one that is not finite or does not fit an int becomes 0.
int toWhole(QVariant const& value);

/// A value as the text that it reads as; a text stays as it is, unless it is null as a variant too.
inline QVariant asText(QVariant value)
{
    if (value.userType() != QMetaType::QString || value.isNull())
        value = value.toString();
    return value;
}

/// The lines under which a listening command reports an event message that it cannot read.
struct EventLines
{
    int invalidReply;
    int unmanagedFormat;
};

/// What an event message holds.
struct EventValues
{
    std::optional<QMap<QString, QVariant>> values;
    /// The handler's answer where there are no values: false if they are missing, true if they are no map.
    bool answer = true;
};

/// Reads the "values" of an event message that reached @p command; what is wrong with it is logged.
EventValues readEvent(QObject const& command, char const* file, EventLines lines,
                      QMap<QString, QVariant> const& reply);

/// A working command made from a prototype: of the same class and with the
/// same parent, with the order's parameters.
template <class Command>
QSharedPointer<ICommand> clone(Command const& prototype, QMap<QString, QVariant> const& parameters)
{
    return QSharedPointer<Command>(new Command(parameters, prototype.parent()));
}

} // namespace zrt
