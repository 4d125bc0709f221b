#include <plugin_management/d_abstract_tightening_tool.h>

/// A plugin for the ZRT whose root object makes no instances.
class OddInstances : public DAbstractTighteningTool
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "odd.rd.box.PToolVeskZrt")

public:
    OddInstances() : DAbstractTighteningTool(QUuid(), QStringLiteral("Odd"), 0, QUuid(), nullptr) {}

    void initPluginCommands() override {}
    IPlugin* createInstance(QUuid const& /*objectUuid*/) const override { return nullptr; }
    char const* pluginSubTypeName() const override { return "odd"; }
};

#include "odd_instances.moc"
