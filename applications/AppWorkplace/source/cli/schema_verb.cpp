#include "verbs.h"

#include "output.h"

#include "maintenance/maintenance_records.h"
#include "sequence/sequence.h"
#include "trace/event_json.h"

#include <files/input_error.h>
#include <zrt_controller/zrt_simulated_controller.h>

#include <QMap>
#include <QStringList>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <utility>

namespace
{

using Json = nlohmann::ordered_json;

QMap<QString, QByteArray> schemas()
{
    auto all = ZrtSimulatedController::schemas();
    all.insert(QStringLiteral("maintenance"), maintenanceSchema());
    all.insert(QStringLiteral("sequence"), sequenceSchema());
    all.insert(QStringLiteral("trace_line"), traceLineSchema());
    return all;
}

std::string code(std::string const& text)
{
    return '`' + text + '`';
}

/// What a value may be, in a table's cell.
std::string valueText(Json const& schema)
{
    if (schema.contains("$ref")) {
        std::string const file = schema["$ref"];
        return "object, see [" + file.substr(0, file.find('.')) + "](schemas/" + file + ')';
    }
    if (schema.contains("enum")) {
        std::string names;
        for (auto const& name : schema["enum"])
            names += (names.empty() ? "" : ", ") + code(name);
        return names;
    }
    if (schema.contains("oneOf"))
        return schema["oneOf"][0].contains("const") ? "text, see below" : "object";
    Json const type = schema.value("type", Json("anything"));
    if (type == "integer")
        return schema["minimum"].dump() + " to " + schema["maximum"].dump();
    if (type == "boolean")
        return "true or false";
    if (type == "array") {
        std::string const items = valueText(schema["items"]);
        return items == "object" ? "list of objects" : "list, each " + items;
    }
    if (type.is_array())
        return "text or null";
    return type == "string" ? "text" : type.get<std::string>();
}

constexpr char const* c_columns = " | value | default | meaning |\n|---|---|---|---|\n";

/// A schema as tables: its keys by their paths, and below these a table for each enumeration and each kind of
/// object.
class Tables
{
public:
    explicit Tables(Json const& schema)
    {
        if (schema.contains("oneOf"))
            m_text = events(schema["oneOf"]);
        else
            m_text = std::string("| key") + c_columns + parts({}, schema);
        m_text += m_others;
    }

    std::string const& text() const { return m_text; }

private:
    std::string key(std::string const& path, Json const& schema, bool isRequired)
    {
        std::string const standard = schema.contains("default") ? code(schema["default"].dump()) : "";
        if (schema.contains("oneOf"))
            addKinds(path, schema["oneOf"]);
        return "| " + code(path) + " | " + valueText(schema) + " | " + (isRequired ? "required" : standard)
               + " | " + schema.value("description", "") + " |\n" + parts(path, schema);
    }
    std::string parts(std::string const& path, Json const& schema)
    {
        std::string rows;
        std::string const before = path.empty() ? "" : path + '.';
        Json const properties = schema.value("properties", Json::object());
        Json const required = schema.value("required", Json::array());
        for (auto const& [name, value] : properties.items()) {
            if (name != "$schema")
                rows += key(before + name, value,
                            std::find(required.begin(), required.end(), name) != required.end());
        }
        Json others = schema.value("additionalProperties", Json());
        if (schema.contains("propertyNames"))
            others["description"] = schema["propertyNames"]["description"];
        if (others.is_object())
            rows += key(before + '*', others, false);
        Json const items = schema.value("items", Json::object());
        if (items.contains("oneOf"))
            addKinds(path + "[]", items["oneOf"]);
        return items.empty() ? rows : rows + parts(path + "[]", items);
    }
    void addKinds(std::string const& path, Json const& kinds)
    {
        if (kinds[0].contains("const")) {
            m_others += "\n| " + code(path) + " | |\n|---|---|\n";
            for (auto const& name : kinds)
                m_others += "| " + code(name["const"]) + " | " + name.value("description", "") + " |\n";
            return;
        }
        for (auto const& kind : kinds) {
            std::string table = std::exchange(m_others, {});
            table += "\n| " + code(path) + " with " + code(kind["required"][0]) + c_columns;
            table += parts({}, kind);
            m_others.insert(0, table);
        }
    }
    /// Objects that tell by the text of one key which other keys they have.
    static std::string events(Json const& kinds)
    {
        std::string rows = "| `event` | is | other keys |\n|---|---|---|\n";
        for (auto const& kind : kinds) {
            std::string keys;
            for (auto const& [name, value] : kind["properties"].items()) {
                std::string meaning = value.value("description", "");
                if (value.contains("enum"))
                    meaning = valueText(value);
                if (name != "event")
                    keys += (keys.empty() ? "" : ", ") + code(name)
                            + (meaning.empty() ? "" : " (" + meaning + ')');
            }
            rows += "| " + code(kind["properties"]["event"]["const"]) + " | " + kind.value("description", "")
                    + " | " + keys + " |\n";
        }
        return rows;
    }

    std::string m_others;
    std::string m_text;
};

struct Options
{
    QString name;
    bool markdown = false;
};

int showSchema(Options const& options)
{
    auto const all = schemas();
    QStringList const names = all.keys();
    Output output;
    if (options.name.isEmpty())
        output.write(names.join(QLatin1Char('\n')).toUtf8() + '\n');
    else if (!names.contains(options.name))
        throw InputError(QStringLiteral("unknown schema \"%1\", known are %2")
                             .arg(shown(options.name), names.join(QStringLiteral(", "))));
    else if (options.markdown)
        output.write(QByteArray::fromStdString(Tables(Json::parse(all[options.name].toStdString())).text()));
    else
        output.write(all[options.name]);
    output.close();
    return 0;
}

} // namespace

Verb schemaVerb(CLI::App& program)
{
    auto const options = std::make_shared<Options>();
    CLI::App& verb =
        *program.add_subcommand("schema", "Print the JSON Schema of a file that the workplace reads");
    auto* const name = addText(verb, "NAME", options->name,
                               "which one; without it, the names of all are printed", "no name given");
    verb.add_flag("--markdown", options->markdown, "tables of the keys, as the documentation has them")
        ->needs(name);
    return {&verb, [options] { return showSchema(*options); }};
}
