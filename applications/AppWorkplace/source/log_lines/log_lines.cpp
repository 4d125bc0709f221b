#include "log_lines.h"

namespace
{

constexpr char const* c_invalidReply = "ERROR: Invalid reply format";
constexpr char const* c_unmanagedFormat = "ERROR: Reply data format not managed";
constexpr char const* c_unmanagedValues =
    "ERROR: Reply data format not managed, received type : … , values = …";
constexpr char const* c_noRecord = "ERROR: Failure to get element pointer";

constexpr char const* c_presetIsNoMap = "\"presetData\" is no map";
constexpr char const* c_noValues = "an event message has no \"values\"";
constexpr char const* c_valuesAreNoMap = "\"values\" is no map; the line shows its type and what it holds";

constexpr char const* c_reportReply =
    "The device layer and the plugin do not fit together; report it with the reply";
constexpr char const* c_reportIndex =
    "The host filled the list of channels wrongly. Report it with the index";
constexpr char const* c_openAgain =
    "The host has no record under the id that the page has. See that the tool "
    "is configured, and open the page again";

} // namespace

std::vector<LogSource> const& logSources()
{
    static std::vector<LogSource> const all{
        {"d_cmd_init_zrt.cpp",
         "init",
         {{81, "onSetLockScreenReply", c_invalidReply, "the reply to \"setLockScreen\" has no \"doneOk\"",
           "The screen may still be unlocked. See that the controller allows remote locking, and order "
           "\"init\" again"}},
         {},
         {"onSetLockScreenReply"}},
        {"d_cmd_startTightening.cpp",
         "startTightening",
         {{0, "onSetLockReply", c_invalidReply,
           "the reply to \"setLock\" lacks \"lockStatus\", \"fasteningLocked\" or \"looseningLocked\"",
           "The tool may still be locked, or free for loosening too. See that the order's \"locking\" is a "
           "lock code that the controller knows"},
          {0, "onGetPresetDataReply", c_invalidReply, "the reply to \"getPresetData\" has no \"presetData\"",
           "Mostly there is no preset with the order's \"program\" on the controller. Set it up, or restore "
           "the backup"},
          {0, "onGetPresetDataReply", c_unmanagedFormat, c_presetIsNoMap, c_reportReply}}},
        {"d_cmd_stopTightening.cpp",
         "stopTightening",
         {{0, "onSetLockReply", c_invalidReply, "the reply to \"setLock\" has no \"lockStatus\"",
           "The tool may still be free. Order \"stopTightening\" again; until it succeeds, take the tool out "
           "of use"}},
         {},
         {"onSetLockReply"}},
        {"d_cmd_getPresetInfo.cpp",
         "getPresetInfo",
         {{0, "onGetPresetDataReply", c_invalidReply, "the reply has no \"presetData\"",
           "Mostly there is no preset with the order's \"prog\" on the controller. Set it up, or restore the "
           "backup"},
          {0, "onGetPresetDataReply", c_unmanagedFormat, c_presetIsNoMap, c_reportReply}}},
        {"d_cmd_getDirection.cpp",
         "getDirection",
         {{0, "onGetRegisterReply", c_invalidReply,
           "the reply to \"getRegister\" has no \"values\", or none in the list",
           "See that the controller's firmware knows the register \"direction\""}},
         {},
         {"onGetRegisterReply"}},
        {"d_cmd_eventListen.cpp",
         "startListening",
         {{87, "onEvent", c_invalidReply, c_noValues,
           "That tightening is missing in the results. If it goes on, report it with the reply"},
          {83, "onEvent", c_unmanagedValues, c_valuesAreNoMap,
           "That tightening is missing in the results. Report it with the line"}},
         {{"onEvent", "ZRT screwdriver  …  error code  … :  …",
           "an event has an \"error\" that the plugin has a text for"}}},
        {"d_cmd_triggerListen.cpp",
         "listenTrigger",
         {{149, "onEvent", c_invalidReply, c_noValues,
           "That pull of the trigger was not seen; let the operator pull again. If it goes on, report it "
           "with the reply"},
          {145, "onEvent", c_unmanagedValues, c_valuesAreNoMap,
           "That pull of the trigger was not seen. Report it with the line"}}},
        {"d_cmd_restore.cpp",
         "restore",
         {{90, "onStatus", c_invalidReply, "a message about the progress has no \"statusData\"",
           "Whether the backup was restored is not known. See that the backup file is there for the "
           "controller, and restore again"}},
         {},
         {"onStatus"}},
        {"be_maintenance_plugin.cpp",
         "",
         {{61, "updateChannelsValue", "BeMaintenanceToolZrt::updateChannelsValue: channel is null at index …",
           "the page asks for the tool's status channels and one of them is null; the others are asked for",
           c_reportIndex},
          {76, "clickedOnChannel", "BeMaintenanceToolZrt::clickedOnChannel: channel is null at index …",
           "a channel is to be switched that is null or not in the list", c_reportIndex},
          {114, "applyTreatmentReply",
           "BeMaintenanceToolZrt::applyTreatmentReply: channel is null at index …",
           "the answer to a switch is for a channel that is null or not in the list any more", c_reportIndex},
          {177, "setSerialNumber", c_noRecord,
           "the serial number was edited, but the page has no record: nothing is kept", c_openAgain},
          {188, "setDaysBeforeExpiration", c_noRecord,
           "the days of the alert were edited, but the page has no record: nothing is kept", c_openAgain},
          {207, "setValidityDate", c_noRecord,
           "the validity was edited, but the page has no record: nothing is kept", c_openAgain}}},
        {"p_tool_vesk_zrt.cpp", "", {}, {}, {"created", "destroyed"}},
    };
    return all;
}

std::vector<ControllerError> const& controllerErrors()
{
    static std::vector<ControllerError> const all{
        {300, "Run time limit (Forward)", "the joint, and the preset's time limit: it was not tight in time"},
        {301, "Run time limit (Reverse)", "the joint, and the preset's time limit: it was not loose in time"},
        {302, "Model setting error", "the set-up of the controller's model"},
        {303, "Model cancel", "whether the model was cancelled on the controller"},
        {304, "Motor stall by loosening failure", "a seized screw; loosen it by hand"},
        {309, "Bit socket tray", "the bit tray: the wrong socket, or none, was taken"},
        {310, "Time over in screw counting", "whether all screws were tightened in time"},
        {311, "Screw missing", "whether there was a screw at all"},
        {330, "Min Angle error", "a cross-threaded or already tight screw: the torque was there too early"},
        {331, "Target angle setting error", "the preset's angles"},
        {332, "Angle over", "a stripped thread, a soft joint or a missing washer: the torque came too late"},
        {333, "No torque complete", "whether the operator let go of the trigger too early"},
        {334, "Engaging torque detection fail", "whether the bit sat in the screw"},
        {335, "Converted torque error", "the preset's torque, and the tool's calibration"},
        {336, "Over torque error", "the preset's limits, and the joint; check the screw"},
        {337, "Torque up at free speed", "what blocked the screw while it ran down"},
        {338, "Thread tap max torque error", "the thread that was tapped, and the preset"},
        {339, "Thread tap min max range error", "the preset's range for tapping"},
        {342, "Holding time max angle", "the joint: it settled while the torque was held"},
    };
    return all;
}
