#pragma once

#include <plugin_management/d_abstract_command.h>

#include <QMap>

/// Command "startListening", stopped by "stopListening": publishes each event of the controller.
///
/// Result: "eventData" (map), the event's values as the controller sent them, with the tool's "serialNumber",
/// "validityDate" and "toolName" (texts, empty if the order does not give them). An event with an error code
/// that the table knows is also logged in words. A message without values, or with values that are no map, is
/// logged and not published.
class DCmdEventListen : public DAbstractCommand
{
    Q_OBJECT

public:
    DCmdEventListen(QMap<QString, QVariant> const& parameters, QObject* parent);
    explicit DCmdEventListen(QObject* parent);

    bool commandExecute() override;
    QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const& parameters) const override;

private:
    bool onEvent(quint64 instructionId, QMap<QString, QVariant> const& reply);

    QMap<qint32, QString> m_errorTexts;
};
