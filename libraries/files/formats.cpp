#include "formats.h"

#include "input_error.h"
#include "variant_json.h"

namespace format
{

namespace
{

constexpr char const* c_dateFormat = "yyyy-MM-ddTHH:mm:ss.zzz";

Json toList(QStringList const& texts)
{
    Json list = Json::array();
    for (auto const& text : texts)
        list.push_back(text.toStdString());
    return list;
}

std::string nameOf(std::string const& key, Json const& parent)
{
    return parent.is_object() ? Json(key).dump() + ": " : std::string();
}

std::string oneLine(Json const& json)
{
    if (!json.is_structured())
        return json.dump();
    std::string text;
    for (auto const& [key, value] : json.items())
        text += (text.empty() ? "" : ", ") + nameOf(key, json) + oneLine(value);
    if (json.is_array())
        return '[' + text + ']';
    return text.empty() ? "{}" : "{ " + text + " }";
}

// On one line if there is room for it behind what the line has already. Otherwise simple members fill lines,
// and others stand on lines of their own.
std::string fewLines(Json const& json, std::size_t indentation, std::size_t used)
{
    constexpr std::size_t lineLength = 119;
    std::string line = oneLine(json);
    if (!json.is_structured() || used + line.size() <= lineLength)
        return line;
    std::size_t const inner = indentation + 4;
    std::string text;
    std::size_t filled = lineLength; // of a line to which a simple member may be added
    for (auto const& [key, value] : json.items()) {
        std::string const name = nameOf(key, json);
        std::string const member = name + fewLines(value, inner, inner + name.size());
        bool const isSimple = value.is_primitive() || value.empty();
        bool const isAdded = isSimple && filled + 2 + member.size() <= lineLength;
        text += text.empty() ? "" : ",";
        text += isAdded ? " " + member : '\n' + std::string(inner, ' ') + member;
        filled = !isSimple ? lineLength : isAdded ? filled + 2 + member.size() : inner + member.size();
    }
    text += '\n' + std::string(indentation, ' ');
    return json.is_array() ? '[' + text + ']' : '{' + text + '}';
}

} // namespace

QString Problem::text() const
{
    return path.isEmpty() ? what : path + QStringLiteral(": ") + what;
}

Problem Problem::at(QString const& part) const
{
    if (what.isEmpty())
        return {};
    bool const isKey = !path.isEmpty() && !path.startsWith(QLatin1Char('['));
    return {part + (isKey ? QStringLiteral(".") : QString()) + path, what};
}

Problem Whole::problemIn(qint64 value) const
{
    return {{}, value < lowest || value > highest ? JsonInput::notWithin(lowest, highest) : QString()};
}

Json Whole::write(qint64 value) const
{
    return value;
}

Json Whole::schema() const
{
    Json schema{{"type", "integer"}, {"minimum", lowest}, {"maximum", highest}};
    if (*unit != '\0')
        schema["description"] = unit;
    return schema;
}

Json Count::write(quint64 value) const
{
    return value;
}

Json Truth::write(bool value) const
{
    return value;
}

Json Truth::schema() const
{
    return {{"type", "boolean"}};
}

Json Text::write(QString const& value) const
{
    return value.toStdString();
}

Json Text::schema() const
{
    return {{"type", "string"}};
}

void DateAndTime::read(JsonInput const& input, QDateTime& value) const
{
    value = QDateTime::fromString(input.toText() + QLatin1Char('Z'), Qt::ISODateWithMs);
    if (!value.isValid() || value.toString(QLatin1String(c_dateFormat)) != input.toText())
        input.fail(QStringLiteral("must be a date like 2000-01-01T00:00:00.000"));
}

Json DateAndTime::write(QDateTime const& value) const
{
    return value.toString(QLatin1String(c_dateFormat)).toStdString();
}

Json DateAndTime::schema() const
{
    return {{"type", "string"},
            {"pattern", "^[0-9]{4}-(0[1-9]|1[0-2])-(0[1-9]|[12][0-9]|3[01])"
                        "T([01][0-9]|2[0-3]):[0-5][0-9]:[0-5][0-9]\\.[0-9]{3}$"}};
}

Json PlainMap::write(QVariantMap const& value) const
{
    return toJson(value);
}

Json PlainMap::schema() const
{
    return {{"type", "object"}};
}

Json PlainValue::schema() const
{
    return Json::object();
}

void TypedValue::read(JsonInput const& input, QVariant& value) const
{
    value = toTypedVariant(input);
}

Json TypedValue::write(QVariant const& value) const
{
    return toJson(value);
}

Json TypedValue::schema() const
{
    return {{"$ref", "#/$defs/value"}};
}

void TypedMap::read(JsonInput const& input, QVariantMap& value) const
{
    QVariant const read = toTypedVariant(input);
    if (read.type() != QVariant::Map)
        input.fail(QStringLiteral("must be an object"));
    value = read.toMap();
}

Json TypedMap::write(QVariantMap const& value) const
{
    return toJson(value);
}

Json TypedMap::schema() const
{
    return {{"$ref", "#/$defs/map"}};
}

Json typedDefinitions()
{
    Json const reference = TypedValue().schema();
    Json const parts{{"items", reference}, {"additionalProperties", reference}};
    Json const named{{"properties", {{"@type", {{"type", "string"}}}, {"@value", parts}}},
                     {"required", {"@value"}},
                     {"additionalProperties", false}};
    return {{"value",
             {{"description", "a value, or an object that names the type and holds the value"},
              {"if", {{"type", "object"}, {"required", {"@type"}}}},
              {"then", named},
              {"else", parts}}},
            {"map",
             {{"description", "an object; QVariantMap is the one type that it can name"},
              {"$ref", "#/$defs/value"},
              {"type", "object"},
              {"properties", {{"@type", {{"const", "QVariantMap"}}}}}}}};
}

void OneOfTexts::read(JsonInput const& input, QString& value) const
{
    value = input.toText();
    if (Problem const problem = problemIn(value))
        input.fail(problem.what);
}

Problem OneOfTexts::problemIn(QString const& value) const
{
    if (known.contains(value))
        return {};
    return {{},
            QStringLiteral("unknown %1, known are %2")
                .arg(QLatin1String(what), known.join(QStringLiteral(", ")))};
}

Json OneOfTexts::write(QString const& value) const
{
    return value.toStdString();
}

Json OneOfTexts::schema() const
{
    return {{"enum", toList(known)}};
}

QByteArray schemaText(Json const& schema, char const* title, QString const& description)
{
    Json text{{"$schema", "https://json-schema.org/draft/2020-12/schema"},
              {"title", title},
              {"description", description.toStdString()}};
    text.update(schema);
    return QByteArray::fromStdString(fewLines(text, 0, 0)) + '\n';
}

QByteArray fileSchemaText(Json schema, char const* title, QString const& description)
{
    Json properties{{"$schema", {{"type", "string"}}}};
    properties.update(schema["properties"]);
    schema["properties"] = properties;
    return schemaText(
        schema, title,
        description
            + QStringLiteral(" Besides, no key may stand twice in one object, a whole number must not be "
                             "written as a fraction like 1.0, and a file has at most %1 MiB and %2 levels "
                             "of nesting.")
                  .arg(JsonInput::c_maximalSize >> 20)
                  .arg(JsonInput::c_maximalDepth));
}

} // namespace format
