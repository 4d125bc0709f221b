#include <plugin_management/d_abstract_tightening_tool.h>

namespace
{

constexpr quint32 c_toolType = 0x546F6F6C; // 'Tool'

} // namespace

DAbstractTighteningTool::DAbstractTighteningTool(QUuid const& pluginUuid, QString const& pluginName,
                                                 quint64 version, QUuid const& objectUuid, QObject* parent)
    : DAbstractPlugin(pluginUuid, pluginName, version, c_toolType, objectUuid, parent)
{}

DAbstractTighteningTool::~DAbstractTighteningTool() = default;
