#pragma once

#include <plugin_management/d_declaration.h>
#include <plugin_management/export.h>

#include <QMap>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QVariant>

/// A command as the host sees it. DAbstractCommand documents the operations and gives them their behaviour.
///
/// The order of the declarations is the order of the virtual table and part of the contract with plugins that
/// are already built: never move one, add new ones at the end. There is no virtual destructor: a command is
/// owned as the object it is, by a QSharedPointer that createCommand() made or by its parent QObject.
class PLUGIN_MANAGEMENT_EXPORT ICommand
{
public:
    virtual QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const& parameters) const = 0;
    virtual void linkWithItsOrder(QObject* order) = 0;
    virtual QString commandName() const = 0;
    virtual QString stopCommandName() const = 0;
    virtual quint64 getOrderId() const = 0;
    virtual quint64 getParameterOrderId() const = 0;
    virtual bool isRecurrent() const = 0;
    virtual bool isValid() const = 0;
    virtual QString description() const = 0;
    virtual QString fullDescription() const = 0;
    virtual DCommandArguments commandArguments() const = 0;
    virtual bool commandExecute() = 0;
    virtual bool setReply(quint64 instructionId, QMap<QString, QVariant> const& reply) = 0;
    virtual bool finishTheCommand(bool& success) = 0;
    virtual void sigCommandFinished(bool success) = 0;

protected:
    ICommand();
    ICommand(ICommand const&) = default;
    ICommand& operator=(ICommand const&) = default;
    ~ICommand();
};
