#include "event_json.h"

#include <QStringList>

#include <cmath>

namespace
{

using Json = nlohmann::ordered_json;

constexpr int c_maximalDepth = 64;

Json toJson(QVariant const& value, int depth);

std::string text(QString const& string)
{
    return string.toStdString();
}

Json listToJson(QVariantList const& list, int depth)
{
    Json items = Json::array();
    for (auto const& item : list)
        items.push_back(toJson(item, depth + 1));
    return items;
}

// Filled key by key through the array of pairs that it is: the map has no key twice, so none needs looking
// for.
Json mapToJson(QVariantMap const& map, int depth)
{
    Json::object_t members;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        members.push_back({text(it.key()), toJson(it.value(), depth + 1)});
    return members;
}

Json typed(QVariant const& value)
{
    Json json{{"@type", value.typeName()}};
    if (value.canConvert<QString>())
        json["@text"] = text(value.toString());
    return json;
}

Json toJson(QVariant const& value, int depth)
{
    if (depth > c_maximalDepth)
        return "...";
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return nullptr;
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::Int:
        return value.toInt();
    case QMetaType::Double:
        return std::isfinite(value.toDouble()) ? Json(value.toDouble()) : typed(value);
    case QMetaType::QString:
        return text(value.toString());
    case QMetaType::QVariantList:
        return listToJson(value.toList(), depth);
    case QMetaType::QVariantMap:
        return mapToJson(value.toMap(), depth);
    default:
        return typed(value);
    }
}

struct ToJson
{
    Json operator()(OrderStarted const& event) const
    {
        return {{"event", "order"},
                {"order", event.order},
                {"command", text(event.command)},
                {"parameters", toJson(event.parameters, 0)}};
    }
    Json operator()(StopOrdered const& event) const
    {
        return {{"event", "stop"}, {"command", text(event.stopCommand)}};
    }
    Json operator()(InstructionPosted const& event) const
    {
        return {{"event", "instruction"},
                {"order", event.order},
                {"instruction", event.instruction},
                {"target", text(event.content.target)},
                {"name", text(event.content.name)},
                {"arguments", toJson(event.content.arguments, 0)},
                {"timeAllowance", event.content.timeAllowance}};
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
                {"reply", toJson(event.reply, 0)}};
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
                {"value", toJson(event.value, 0)}};
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
    Json operator()(ExpectationMissed const& event) const
    {
        return {{"event", "unexpected"},
                {"order", event.order},
                {"key", text(event.key)},
                {"expected", toJson(event.expected, 0)},
                {"actual", toJson(event.actual, 0)}};
    }
    Json operator()(LogWritten const& event) const
    {
        return {{"event", "log"}, {"level", text(event.level)}, {"text", text(event.text)}};
    }
    Json operator()(RunFinished const& event) const
    {
        return {{"event", "end"},
                {"succeeded", event.succeeded},
                {"failed", event.failed},
                {"notRun", event.notRun},
                {"droppedReplies", event.droppedReplies}};
    }
};

} // namespace

Json toJson(QVariant const& value)
{
    return toJson(value, 0);
}

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
