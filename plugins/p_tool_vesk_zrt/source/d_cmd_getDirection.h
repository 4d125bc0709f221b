#pragma once

#include <plugin_management/d_abstract_command.h>

/// Command "getDirection": reads the direction in which the tool turns. It asks for the controller's
/// information first and reads the register when that has come, whatever it says.
///
/// Result: "direction" (int, 0 or 1), the truth value of the register's first value. A reply without values,
/// or with an empty list, is an error: it is logged, and the result stays as it was.
class DCmdGetDirection : public DAbstractCommand
{
    Q_OBJECT

public:
    DCmdGetDirection(QMap<QString, QVariant> const& parameters, QObject* parent);
    explicit DCmdGetDirection(QObject* parent);

    bool commandExecute() override;
    QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const& parameters) const override;

private:
    bool onGetInfoReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
    bool onGetRegisterReply(quint64 instructionId, QMap<QString, QVariant> const& reply);
};
