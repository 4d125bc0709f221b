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

#include <memory>

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

/// Describes a schema in tables: its keys, by their paths, and below these the names of each enumeration.
class Tables
{
public:
    explicit Tables(Json const& schema)
    {
        m_keys = "| key | value | default | meaning |\n|---|---|---|---|\n";
        bool const isOfKinds = schema.contains("oneOf");
        if (isOfKinds)
            addKinds(schema["oneOf"]);
        else
            addParts({}, schema);
        m_text = (isOfKinds ? std::string() : m_keys) + m_names;
    }

    std::string const& text() const { return m_text; }

private:
    void addKey(std::string const& path, Json const& schema, bool isRequired)
    {
        std::string const standard = schema.contains("default") ? code(schema["default"].dump()) : "";
        m_keys += "| " + code(path) + " | " + valueText(schema) + " | " + (isRequired ? "required" : standard)
                  + " | " + schema.value("description", "") + " |\n";
        if (schema.contains("oneOf"))
            addNames(path, schema["oneOf"]);
        addParts(path, schema);
    }
    void addParts(std::string const& path, Json const& schema)
    {
        std::string const before = path.empty() ? "" : path + '.';
        Json const properties = schema.value("properties", Json::object());
        Json const required = schema.value("required", Json::array());
        for (auto const& [key, value] : properties.items()) {
            if (key != "$schema")
                addKey(before + key, value,
                       std::find(required.begin(), required.end(), key) != required.end());
        }
        Json const others = schema.value("additionalProperties", Json());
        if (others.is_object() && others.contains("properties"))
            addParts(before + '*', others);
        else if (others.is_object())
            addKey(before + '*', others, false);
        if (!schema.contains("items"))
            return;
        Json const& items = schema["items"];
        addParts(path + "[]", items);
        if (!items.contains("oneOf"))
            return;
        addNames(path + "[]", items["oneOf"]);
        for (auto const& kind : items["oneOf"])
            addParts(path + "[]", kind);
    }
    void addNames(std::string const& path, Json const& names)
    {
        if (!names[0].contains("const"))
            return;
        m_names += "\n| " + code(path) + " | |\n|---|---|\n";
        for (auto const& name : names)
            m_names += "| " + code(name["const"]) + " | " + name.value("description", "") + " |\n";
    }
    /// Objects that one key tells from each other, which has another text in each.
    void addKinds(Json const& kinds)
    {
        for (auto const& kind : kinds) {
            std::string name;
            std::string keys;
            for (auto const& [key, value] : kind["properties"].items()) {
                if (value.contains("const") && value["const"].is_string()) {
                    m_names +=
                        m_names.empty() ? "| " + code(key) + " | is | other keys |\n|---|---|---|\n" : "";
                    name = value["const"];
                    continue;
                }
                std::string const meaning = value.value("description", "");
                keys +=
                    (keys.empty() ? "" : ", ") + code(key) + (meaning.empty() ? "" : " (" + meaning + ')');
            }
            m_names += "| " + code(name) + " | " + kind.value("description", "") + " | " + keys + " |\n";
        }
    }

    std::string m_keys;
    std::string m_names;
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
