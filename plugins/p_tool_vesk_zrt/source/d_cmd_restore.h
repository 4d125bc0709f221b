#pragma once

#include <plugin_management/d_abstract_command.h>

/// Command "restore", stopped by "stopListening": restores a saved backup into the controller and publishes
/// each progress message.
///
/// Parameters: "filePath" (strg), the backup; "startPreset" and "endPreset" (int), the range of presets;
/// "loadControllerParams" (bool), whether the controller's parameters are restored too.
/// Result: "statusData" (map), the progress as the controller tells it; the first one of the object's life
/// also holds "toolInfo", a map of the texts "serialNumber", "validityDate" and "toolName". A message without
/// "statusData" is logged and not published; one that is no map is published as an empty map.
class DCmdRestore : public DAbstractCommand
{
    Q_OBJECT

public:
    DCmdRestore(QMap<QString, QVariant> const& parameters, QObject* parent);
    explicit DCmdRestore(QObject* parent);

    bool commandExecute() override;
    QSharedPointer<ICommand> createCommand(QMap<QString, QVariant> const& parameters) const override;

private:
    bool onStatus(quint64 instructionId, QMap<QString, QVariant> const& reply);

    bool m_isToolInfoSent = false;
};
