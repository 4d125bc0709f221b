// What the compiler lays out for the layout check of the plugin's classes.
#include "be_maintenance_plugin.h"
#include "command_classes.h"
#include "p_tool_vesk_zrt.h"

namespace __qobjectsqmllist // NOLINT(bugprone-reserved-identifier): the template's own
{

class QObjectListModelBaseProbe : public QObjectListModelBase<DZrtToolChannel>
{
protected:
    void notifyChanged() override;
};

} // namespace __qobjectsqmllist
