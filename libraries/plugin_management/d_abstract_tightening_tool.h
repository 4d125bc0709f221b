#pragma once

#include <plugin_management/d_abstract_plugin.h>

/// A plugin for a tightening tool: its type code is 'Tool'.
class PLUGIN_MANAGEMENT_EXPORT DAbstractTighteningTool : public DAbstractPlugin
{
    Q_OBJECT

public:
    /// The arguments are those of DAbstractPlugin.
    DAbstractTighteningTool(QUuid const& pluginUuid, QString const& pluginName, quint64 version,
                            QUuid const& objectUuid, QObject* parent);
    ~DAbstractTighteningTool() override;
};
