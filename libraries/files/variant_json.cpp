#include "variant_json.h"

#include "input_error.h"
#include "json_input.h"

#include <QStringList>

#include <cmath>

namespace
{

using Json = nlohmann::ordered_json;

constexpr int c_maximalDepth = 64;

QString const c_type = QStringLiteral("@type");
QString const c_value = QStringLiteral("@value");

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

// A hash has no order of its own; as a map, the same content always gives the same text.
QVariantMap sorted(QVariantHash const& hash)
{
    QVariantMap map;
    for (auto it = hash.cbegin(); it != hash.cend(); ++it)
        map.insert(it.key(), it.value());
    return map;
}

// A value of a type that JSON does not have, as what is nearest to it.
Json nearest(QVariant const& value, Types types, int depth)
{
    switch (value.userType()) {
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        return value.toULongLong();
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::SChar:
        return value.toLongLong();
    case QMetaType::Float:
        return std::isfinite(value.toDouble()) ? Json(value.toDouble()) : Json(text(value.toString()));
    case QMetaType::QVariantMap:
        return mapToJson(value.toMap(), types, depth);
    case QMetaType::QVariantHash:
        return mapToJson(sorted(value.toHash()), types, depth);
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
        if (types == Types::Dropped || !value.toMap().contains(c_type))
            return mapToJson(value.toMap(), types, depth);
        break;
    default:
        break;
    }
    Json const content = nearest(value, types, depth);
    return types == Types::Dropped ? content
                                   : Json{{text(c_type), value.typeName()}, {text(c_value), content}};
}

QVariantMap members(JsonInput const& json)
{
    QVariantMap map;
    auto const keys = json.keys();
    for (auto const& key : keys)
        map.insert(key, toTypedVariant(json.at(key)));
    return map;
}

QVariant ofNamedType(JsonInput const& json)
{
    json.allowKeys({c_type, c_value});
    QString const name = json.at(c_type).toText();
    JsonInput const content = json.at(c_value);
    int const type = QMetaType::type(name.toUtf8().constData());
    QVariant value = content.type() == QVariant::Map ? members(content) : toTypedVariant(content);
    if (type == QMetaType::UnknownType || !value.convert(type))
        content.fail(QStringLiteral("no value of the type \"%1\"").arg(shown(name)));
    return value;
}

} // namespace

Json toJson(QVariant const& value)
{
    return toJson(value, Types::Kept, 0);
}

QVariant toTypedVariant(JsonInput const& json)
{
    switch (json.type()) {
    case QVariant::List: {
        QVariantList list;
        for (auto const& item : json.items())
            list += toTypedVariant(item);
        return list;
    }
    case QVariant::Map:
        return json.has(c_type) ? ofNamedType(json) : members(json);
    default:
        return json.toVariant();
    }
}

QString toText(QVariant const& value)
{
    return QString::fromStdString(
        toJson(value, Types::Dropped, 0).dump(-1, ' ', false, Json::error_handler_t::replace));
}

bool matches(QVariant const& actual, QVariant const& expected)
{
    if (expected.type() == QVariant::Map && actual.type() == QVariant::Map) {
        auto const wanted = expected.toMap();
        auto const given = actual.toMap();
        for (auto it = wanted.cbegin(); it != wanted.cend(); ++it) {
            if (!given.contains(it.key()) || !matches(given.value(it.key()), it.value()))
                return false;
        }
        return true;
    }
    return toJson(actual, Types::Dropped, 0) == toJson(expected, Types::Dropped, 0);
}
