#include "event_json.h"

#include <files/variant_json.h>

namespace
{

using Json = nlohmann::ordered_json;

std::string text(QString const& string)
{
    return string.toStdString();
}

struct ToJson
{
    Json operator()(RunStarted const& event) const
    {
        return {{"event", "begin"},
                {"format", c_traceFormat},
                {"plugin", text(event.plugin)},
                {"version", text(event.version)},
                {"controller", text(event.controller)},
                {"start", text(event.start.toString(QLatin1String(c_traceDateFormat)))}};
    }
    Json operator()(OrderStarted const& event) const
    {
        return {{"event", "order"},
                {"order", event.order},
                {"command", text(event.command)},
                {"parameters", toJson(event.parameters)}};
    }
    Json operator()(StopOrdered const& event) const
    {
        return {{"event", "stop"}, {"command", text(event.stopCommand)}, {"running", event.running}};
    }
    Json operator()(AllStopped const& event) const
    {
        return {{"event", "stopAll"}, {"running", event.running}};
    }
    Json operator()(InstructionPosted const& event) const
    {
        return {{"event", "instruction"},
                {"order", event.order},
                {"instruction", event.instruction},
                {"target", text(event.content.target)},
                {"name", text(event.content.name)},
                {"arguments", toJson(event.content.arguments)},
                {"timeAllowance", event.content.timeAllowance}};
    }
    Json operator()(InstructionFailed const& event) const
    {
        return {{"event", "notDelivered"},          {"order", event.order},
                {"instruction", event.instruction}, {"name", text(event.name)},
                {"reason", text(event.reason)},     {"goesOn", event.goesOn}};
    }
    Json operator()(InstructionWithdrawn const& event) const
    {
        return {{"event", "withdrawn"}, {"order", event.order}, {"instruction", event.instruction}};
    }
    Json operator()(ReplyArrived const& event) const
    {
        return {{"event", "reply"},
                {"order", event.order},
                {"instruction", event.instruction},
                {"reply", toJson(event.reply)}};
    }
    Json operator()(ReplyDropped const& event) const
    {
        return {{"event", "dropped"}, {"order", event.order}, {"instruction", event.instruction}};
    }
    Json operator()(ResultUpdated const& event) const
    {
        return {{"event", "result"},
                {"order", event.order},
                {"key", text(event.key)},
                {"value", toJson(event.value)}};
    }
    Json operator()(OrderFinished const& event) const
    {
        Json json{{"event", "finished"},
                  {"order", event.order},
                  {"command", text(event.command)},
                  {"success", event.success}};
        if (!event.success)
            json["message"] = text(event.message);
        return json;
    }
    Json operator()(PersonActed const& event) const
    {
        Json json{{"event", "person"}, {"action", text(event.what)}};
        if (!event.effect.isEmpty())
            json["effect"] = text(event.effect);
        return json;
    }
    Json operator()(WaitFailed const& event) const
    {
        return {{"event", "waitFailed"}, {"message", text(event.message)}};
    }
    Json operator()(ExpectationMissed const& event) const
    {
        return {{"event", "unexpected"},
                {"order", event.order},
                {"key", text(event.key)},
                {"expected", toJson(event.expected)},
                {"actual", toJson(event.actual)}};
    }
    Json operator()(LogWritten const& event) const
    {
        return {{"event", "log"}, {"level", text(event.level)}, {"text", text(event.text)}};
    }
    Json operator()(RunFinished const& event) const
    {
        return {{"event", "end"},
                {"done", event.done},
                {"failed", event.failed},
                {"notRun", event.notRun},
                {"droppedReplies", event.droppedReplies}};
    }
};

} // namespace

Json toJson(qint64 time, RunEvent const& event)
{
    Json json{{"time", time}};
    json.update(std::visit(ToJson(), event));
    return json;
}

QByteArray toLine(Json const& json)
{
    // A text that is no proper Unicode is shown with replacement characters rather than not at all.
    std::string const line = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    return QByteArray::fromStdString(line) + '\n';
}
