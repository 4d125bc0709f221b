#pragma once

#include <plugin_management/d_abstract_tightening_tool.h>

#include <QUuid>

/// One ZRT screwdriver controller as a tightening tool of the workstation.
///
/// The library's root instance has a null object UUID; it makes the working instances, one for each
/// configured tool.
class Q_DECL_EXPORT PToolVeskZrt : public DAbstractTighteningTool
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZRT_INTERFACE_IDENTIFIER)

public:
    explicit PToolVeskZrt(QUuid const& objectUuid = QUuid(), QObject* parent = nullptr);
    ~PToolVeskZrt() override;

    /// The plugin's kind, the same for all instances.
    static QUuid getPluginId();
    static char const* getPluginName();
    /// The four-character code 'Tool'.
    static quint32 getPluginType();

    void initPluginCommands() override;
    IPlugin* createInstance(QUuid const& objectUuid) const override;
    char const* pluginSubTypeName() const override;
};
