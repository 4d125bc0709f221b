#pragma once

#include "effects.h"

#include <QList>
#include <QString>
#include <QVariantMap>
#include <QVector>

#include <functional>

class DAbstractPlugin;
class TalkHost;

/// What goes wrong with one instruction of an order.
struct Trouble
{
    enum Kind
    {
        None,
        Lost,          ///< no reply arrives
        Late,          ///< the replies arrive when the time allowance has passed
        Twice,         ///< each reply arrives twice
        HeldBack,      ///< the first reply arrives behind those to later instructions
        Repeated,      ///< the first reply arrives again when everything is over
        Changed,       ///< the replies are others
        Undelivered,   ///< the host cannot deliver the instruction
        GoneBefore,    ///< nor those that follow: the controller is gone
        Gone,          ///< the controller goes away before it replies
        GoneAndBack,   ///< the same, but it comes back
        Released,      ///< the host lets go of the command, and then tells its order of the instruction
        Finished,      ///< the host finishes the command before a reply arrives
        Unlinked,      ///< the command loses its order before a reply arrives
        ExecutedAgain, ///< the command is executed a second time before a reply arrives
    };

    QString name;
    Kind kind = None;
    /// Only of Changed.
    std::function<QVariantMap(QVariantMap const& reply)> change = {};
    bool onlyFirst = false; ///< only of Changed: the replies that follow are left alone
    int instruction = 0;    ///< the place of the instruction among those of the order
};

/// An order of one command, from its start until nothing happens any more, against the simulated controller.
/// The trigger is pulled twice while it runs, and a command that listens is stopped at the end.
struct Course
{
    // All in milliseconds.
    static constexpr int c_pulls[] = {1000, 3000};
    static constexpr int c_stop = 10'000;
    static constexpr int c_late = 5000;  ///< how much later than usual a late reply comes
    static constexpr int c_held = 3500;  ///< and one that others overtake
    static constexpr int c_underway = 1; ///< when an instruction has reached the controller
    static constexpr int c_away = 2000;  ///< how long a controller is away that comes back

    struct Sent
    {
        QString name;
        QVariantMap arguments;
        QList<QVariantMap> replies;
    };

    QList<Sent> sent;
    QList<QPair<QString, QVariant>> results;
    int errors = 0;
    QList<bool> ends; ///< whether each was a success
    bool isListening = false;

    /// Orders the command and compares it with the model all the time.
    static Course run(TalkHost& host, DAbstractPlugin const& tool, QString const& command,
                      Trouble const& trouble = {});
};

/// The way to a value inside a reply: keys of maps, and of lists "0".
using Path = QStringList;

/// The ways to all values in these replies, to maps and lists before what is in them.
QList<Path> pathsOf(QList<QVariantMap> const& replies);
/// The reply without the value, or with another; as it is, if it has no such value.
QVariantMap without(QVariantMap const& reply, Path const& path);
QVariantMap with(QVariantMap const& reply, Path const& path, QVariant const& value);

/// The faults that are applied to any instruction and its replies between the host and the controller.
QVector<Trouble> troublesOnTheWay();
