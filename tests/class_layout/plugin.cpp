// What the compiler lays out for the layout check of the plugin's classes.
#include "be_maintenance_plugin.h"
#include "d_cmd_eventListen.h"
#include "d_cmd_getDirection.h"
#include "d_cmd_getPresetInfo.h"
#include "d_cmd_init_zrt.h"
#include "d_cmd_restore.h"
#include "d_cmd_startTightening.h"
#include "d_cmd_stopTightening.h"
#include "d_cmd_triggerListen.h"
#include "p_tool_vesk_zrt.h"

namespace __qobjectsqmllist // NOLINT(bugprone-reserved-identifier): the template's own
{

class QObjectListModelBaseProbe : public QObjectListModelBase<DZrtToolChannel>
{
protected:
    void notifyChanged() override;
};

} // namespace __qobjectsqmllist
