#pragma once

#include <fast_delegate/fast_delegate.h>
#include <plugin_management/i_command.h>

#include <QMap>
#include <QSharedPointer>
#include <QString>
#include <QVariant>

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

/// A reply handler: takes the instruction's id and the reply, answers whether it took the reply.
using OnReply = fastdelegate::FastDelegate2<quint64, QMap<QString, QVariant> const&, bool>;

/// A working command made from a prototype: of the same class and with the same parent, with the order's
/// parameters.
template <class Command>
QSharedPointer<ICommand> clone(Command const& prototype, QMap<QString, QVariant> const& parameters)
{
    return QSharedPointer<Command>(new Command(parameters, prototype.parent()));
}

} // namespace zrt
