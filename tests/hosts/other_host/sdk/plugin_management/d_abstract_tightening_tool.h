#pragma once

#include <plugin_management/d_abstract_plugin.h>

class Q_DECL_EXPORT DAbstractTighteningTool : public DAbstractPlugin
{
    Q_OBJECT

public:
    DAbstractTighteningTool(QUuid const& pluginUuid, QString const& pluginName, quint64 version,
                            QUuid const& objectUuid, QObject* parent)
        : DAbstractPlugin({pluginUuid, pluginName, version, EnPluginKind::CeTool}, objectUuid, parent)
    {}
    ~DAbstractTighteningTool() override;

private:
    double m_highestTorque = 0; // a member that only tightening tools have
};
