#include "event_json.h"

#include <QStringList>

#include <cmath>

namespace
{

using Json = nlohmann::ordered_json;

constexpr int c_maximalDepth = 64;

// Whether values of types that JSON does not have keep the name of their type.
enum class Types
{
    Kept,
    Dropped,
};

Json toJson(QVariant const& value, Types types, int depth);

std::string text(QString const& string)
{
    return string.toStdString();
}

Json listToJson(QVariantList const& list, Types types, int depth)
{
    Json items = Json::array();
    for (auto const& item : list)
        items.push_back(toJson(item, types, depth + 1));
    return items;
}

// Filled through the array of pairs that it is: a map has no key twice, so none needs looking for.
Json mapToJson(QVariantMap const& map, Types types, int depth)
{
    Json::object_t members;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        members.push_back({text(it.key()), toJson(it.value(), types, depth + 1)});
    return members;
}

// A value of a type that JSON does not have, as what is nearest to it.
Json nearest(QVariant const& value, Types types, int depth)
{
    switch (value.userType()) {
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return value.toULongLong();
    case QMetaType::LongLong:
        return value.toLongLong();
    case QMetaType::QStringList:
        return listToJson(value.toList(), types, depth);
    default:
        return value.canConvert<QString>() ? Json(text(value.toString())) : Json();
    }
}

Json toJson(QVariant const& value, Types types, int depth)
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
        if (std::isfinite(value.toDouble()))
            return value.toDouble();
        break;
    case QMetaType::QString:
        return text(value.toString());
    case QMetaType::QVariantList:
        return listToJson(value.toList(), types, depth);
    case QMetaType::QVariantMap:
        return mapToJson(value.toMap(), types, depth);
    default:
        break;
    }
    Json const content = nearest(value, types, depth);
    return types == Types::Dropped ? content : Json{{"@type", value.typeName()}, {"@value", content}};
}

struct ToJson
{
    Json operator()(RunStarted const& event) const
    {
        return {{"event", "begin"},
                {"plugin", text(event.plugin)},
                {"version", text(event.version)},
                {"controller", text(event.controller)}};
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

Json toJson(QVariant const& value)
{
    return toJson(value, Types::Kept, 0);
}

QString toText(QVariant const& value)
{
    return QString::fromStdString(
        toJson(value, Types::Dropped, 0).dump(-1, ' ', false, Json::error_handler_t::replace));
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
