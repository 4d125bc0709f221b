#pragma once

#include <QByteArray>
#include <QMap>
#include <QSharedPointer>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <QVariant>

class QObject;

enum class EnRecurrence
{
    CeOnce,
    CeUntilStopped
};

/// A command as this host sees it. The order is that of the contract; the results that the contract leaves
/// open are this host's own.
class Q_DECL_EXPORT ICommand
{
public:
    virtual QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const& parameters) const = 0;
    virtual bool linkWithItsOrder(QObject* order) = 0;
    virtual QString commandName() const = 0;
    virtual QString stopCommandName() const = 0;
    virtual QUuid getOrderId() const = 0;
    virtual QVariant getParameterOrderId() const = 0;
    virtual EnRecurrence isRecurrent() const = 0;
    virtual int isValid() const = 0;
    virtual QString const& description() const = 0;
    virtual QByteArray fullDescription() const = 0;
    virtual QStringList commandArguments() const = 0;
    virtual bool commandExecute() = 0;
    virtual void setReply(quint64 instructionId, QMap<QString, QVariant> const& reply) = 0;
    virtual void finishTheCommand(bool& success) = 0;
    virtual void sigCommandFinished(bool success) = 0;

protected:
    ~ICommand() = default;
};
