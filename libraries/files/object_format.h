#pragma once

#include "formats.h"
#include "json_input.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <iterator>
#include <utility>
#include <variant>

// Formats that are made of others (formats.h).

namespace format
{

/// The place of a value in an object that has functions for it, and no member.
template <class Get, class Set> struct Property
{
    Get get;
    Set set;
};
template <class Get, class Set> Property(Get, Set) -> Property<Get, Set>;

template <class Object, class Place> auto valueOf(Object const& object, Place const& place)
{
    return std::invoke(place, object);
}
template <class Object, class Get, class Set>
auto valueOf(Object const& object, Property<Get, Set> const& place)
{
    return std::invoke(place.get, object);
}
template <class Object, class Place, class Value>
void setValue(Object& object, Place const& place, Value&& value)
{
    std::invoke(place, object) = std::forward<Value>(value);
}
template <class Object, class Get, class Set, class Value>
void setValue(Object& object, Property<Get, Set> const& place, Value&& value)
{
    std::invoke(place.set, object, std::forward<Value>(value));
}

struct Field
{
    char const* key;
    char const* meaning;
};
struct RequiredField : Field
{
    static constexpr bool isRequired = true;
};
/// A field that may be absent; the object then keeps the value that it was made with.
struct OptionalField : Field
{
    static constexpr bool isRequired = false;
};

/// The base of what visits the fields of an object. A visitor has a function visit(field, place, format); the
/// place is a pointer to a member, a function that returns a reference, or a Property.
template <class Visitor, class Object> class Fields
{
public:
    template <class Place> void required(char const* key, Place const& place, char const* meaning = "")
    {
        required(key, place, meaning, Default<decltype(valueOf(std::declval<Object>(), place))>());
    }
    template <class Place, class Format>
    void required(char const* key, Place const& place, char const* meaning, Format const& format)
    {
        static_cast<Visitor&>(*this).visit(RequiredField{{key, meaning}}, place, format);
    }
    template <class Place> void optional(char const* key, Place const& place, char const* meaning = "")
    {
        optional(key, place, meaning, Default<decltype(valueOf(std::declval<Object>(), place))>());
    }
    template <class Place, class Format>
    void optional(char const* key, Place const& place, char const* meaning, Format const& format)
    {
        static_cast<Visitor&>(*this).visit(OptionalField{{key, meaning}}, place, format);
    }
};

template <class Object> struct KeyVisitor : Fields<KeyVisitor<Object>, Object>
{
    QStringList keys;

    template <class Place, class Format> void visit(Field const& field, Place const&, Format const&)
    {
        keys += QString::fromLatin1(field.key);
    }
};

template <class Object> struct ReadVisitor : Fields<ReadVisitor<Object>, Object>
{
    JsonInput const& input;
    Object& object;

    template <class Field, class Place, class Format>
    void visit(Field const& field, Place const& place, Format const& format)
    {
        QString const key = QString::fromLatin1(field.key);
        if (!Field::isRequired && !input.has(key))
            return;
        auto value = valueOf(object, place);
        format.read(input.at(key), value);
        setValue(object, place, std::move(value));
    }
};

template <class Object> struct CheckVisitor : Fields<CheckVisitor<Object>, Object>
{
    Object const& object;
    Problem problem;

    template <class Place, class Format>
    void visit(Field const& field, Place const& place, Format const& format)
    {
        if (!problem)
            problem = format.problemIn(valueOf(object, place)).at(QString::fromLatin1(field.key));
    }
};

template <class Object> struct WriteVisitor : Fields<WriteVisitor<Object>, Object>
{
    Object const& object;
    Json::object_t& members; ///< filled as the array of pairs that it is: no key stands there twice

    template <class Field, class Place, class Format>
    void visit(Field const& field, Place const& place, Format const& format)
    {
        Json json = format.write(valueOf(object, place));
        if constexpr (!Field::isRequired) {
            if (json == format.write(valueOf(Object(), place)))
                return;
        }
        members.push_back({field.key, std::move(json)});
    }
};

template <class Object> struct SchemaVisitor : Fields<SchemaVisitor<Object>, Object>
{
    Json properties = Json::object();
    Json requiredKeys = Json::array();

    template <class Field, class Place, class Format>
    void visit(Field const& field, Place const& place, Format const& format)
    {
        Json schema = format.schema();
        // A format says its unit, if it has one.
        std::string const unit = schema.value("description", "");
        std::string const meaning = field.meaning;
        if (!meaning.empty())
            schema["description"] = unit.empty() ? meaning : meaning + " (" + unit + ")";
        if constexpr (Field::isRequired)
            requiredKeys.push_back(field.key);
        else if (Json const json = format.write(valueOf(Object(), place));
                 !json.is_null() && json != Json(""))
            schema["default"] = json; // null and an empty text say no more than that the key may be absent
        properties[field.key] = schema;
    }
};

/// The format of one kind of object, a table of its fields. A format derives from this and has
///
///     template <class Fields> static void fields(Fields& fields)
///     {
///         fields.required("model", &Tool::model);
///         fields.optional("speed", &Tool::speed, "while tightening", Whole{1, 900});
///     }
///
/// and, where not every combination of valid fields is valid, a problemWith() of its own.
template <class Self, class Object> class ObjectFormat
{
public:
    using Value = Object;

    static QStringList keys()
    {
        KeyVisitor<Object> visitor;
        Self::fields(visitor);
        return visitor.keys;
    }
    /// Reads the fields, whatever other keys there are.
    static void readFields(JsonInput const& input, Object& object)
    {
        ReadVisitor<Object> visitor{{}, input, object};
        Self::fields(visitor);
    }
    void read(JsonInput const& input, Object& object) const
    {
        static QStringList const known = keys();
        input.allowKeys(known);
        readFields(input, object);
        if (Problem const problem = self().problemWith(object))
            input.fail(problem.text());
    }
    Problem problemIn(Object const& object) const
    {
        CheckVisitor<Object> visitor{{}, object, {}};
        Self::fields(visitor);
        return visitor.problem ? visitor.problem : self().problemWith(object);
    }
    /// What is wrong with an object each of whose fields is valid.
    Problem problemWith(Object const& /*object*/) const { return {}; }

    Json write(Object const& object) const
    {
        Json json = Json::object();
        writeFields(object, json);
        return json;
    }
    /// Adds the fields to what @p json has.
    static void writeFields(Object const& object, Json& json)
    {
        WriteVisitor<Object> visitor{{}, object, json.get_ref<Json::object_t&>()};
        Self::fields(visitor);
    }

    Json schema() const
    {
        Json schema = openSchema();
        schema["additionalProperties"] = false;
        return schema;
    }
    /// A schema that allows other keys too.
    static Json openSchema()
    {
        SchemaVisitor<Object> visitor;
        Self::fields(visitor);
        Json schema{{"type", "object"}, {"properties", visitor.properties}};
        if (!visitor.requiredKeys.empty())
            schema["required"] = visitor.requiredKeys;
        return schema;
    }

private:
    Self const& self() const { return static_cast<Self const&>(*this); }
};

/// One of the names of an enumeration. Its table has an entry for each enumerator: its value, its name and
/// its meaning.
template <class Entry> struct OneOf
{
    char const* what; ///< "kind of screw", as a complaint names it
    Entry const* first;
    Entry const* last;

    template <std::size_t size>
    OneOf(char const* kind, Entry const (&table)[size])
        : what(kind)
        , first(std::begin(table))
        , last(std::end(table))
    {}

    template <class Enum> void read(JsonInput const& input, Enum& value) const
    {
        QString const name = input.toText();
        for (Entry const* entry = first; entry != last; ++entry) {
            if (name == QLatin1String(entry->name)) {
                value = entry->value;
                return;
            }
        }
        input.fail(unknown());
    }
    template <class Enum> Problem problemIn(Enum value) const
    {
        return {{}, find(value) ? QString() : unknown()};
    }
    template <class Enum> Json write(Enum value) const
    {
        Entry const* const entry = find(value);
        return entry ? Json(entry->name) : Json();
    }
    Json schema() const
    {
        bool const hasMeanings = *first->meaning != '\0';
        Json names = Json::array();
        for (Entry const* entry = first; entry != last; ++entry)
            names.push_back(hasMeanings ? Json{{"const", entry->name}, {"description", entry->meaning}}
                                        : Json(entry->name));
        return {{hasMeanings ? "oneOf" : "enum", names}};
    }
    /// Null for a value that is no enumerator.
    template <class Enum> Entry const* find(Enum value) const
    {
        for (Entry const* entry = first; entry != last; ++entry) {
            if (entry->value == value)
                return entry;
        }
        return nullptr;
    }

private:
    QString unknown() const
    {
        QStringList names;
        for (Entry const* entry = first; entry != last; ++entry)
            names += QString::fromLatin1(entry->name);
        if (names.size() == 1)
            return QStringLiteral("must be \"%1\"").arg(names.first());
        return QStringLiteral("unknown %1, known are %2")
            .arg(QLatin1String(what), names.join(QStringLiteral(", ")));
    }
};

template <class Item> struct ListOf
{
    Item item;

    template <class List> void read(JsonInput const& input, List& list) const
    {
        list.clear();
        for (auto const& one : input.items()) {
            typename List::value_type value{};
            item.read(one, value);
            list.push_back(std::move(value));
        }
    }
    template <class List> Problem problemIn(List const& list) const
    {
        int index = 0;
        for (auto const& one : list) {
            if (Problem const problem = item.problemIn(one))
                return problem.at(QStringLiteral("[%1]").arg(index));
            ++index;
        }
        return {};
    }
    template <class List> Json write(List const& list) const
    {
        Json json = Json::array();
        for (auto const& one : list)
            json.push_back(item.write(one));
        return json;
    }
    Json schema() const { return {{"type", "array"}, {"items", item.schema()}}; }
};
template <class Item> ListOf(Item) -> ListOf<Item>;

/// Keys of a map that are names.
struct Name
{
    QString read(JsonInput const& /*input*/, QString const& key) const { return key; }
    Problem problemIn(QString const& /*key*/) const { return {}; }
    QString write(QString const& key) const { return key; }
    Json schema() const { return {}; }
};

/// An object whose keys are not laid down; the format of the keys is much like that of a value.
template <class Key, class Item> struct MapOf
{
    Key key;
    Item item;

    template <class Map> void read(JsonInput const& input, Map& map) const
    {
        map.clear();
        auto const names = input.keys();
        for (auto const& name : names) {
            JsonInput const one = input.at(name);
            auto const place = key.read(one, name);
            item.read(one, map[place]);
        }
    }
    template <class Map> Problem problemIn(Map const& map) const
    {
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            Problem problem = key.problemIn(it.key());
            if (!problem)
                problem = item.problemIn(*it);
            if (problem)
                return problem.at(key.write(it.key()));
        }
        return {};
    }
    template <class Map> Json write(Map const& map) const
    {
        Json json = Json::object();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            json[key.write(it.key()).toStdString()] = item.write(*it);
        return json;
    }
    Json schema() const
    {
        Json schema{{"type", "object"}};
        if (!key.schema().is_null())
            schema["propertyNames"] = key.schema();
        schema["additionalProperties"] = item.schema();
        return schema;
    }
};
template <class Key, class Item> MapOf(Key, Item) -> MapOf<Key, Item>;

/// One of several kinds of objects. The first field of each is required, and tells it from the others.
template <class... Formats> struct AnyOf
{
    using Value = std::variant<typename Formats::Value...>;

    void read(JsonInput const& input, Value& value) const
    {
        bool const isRead = (readIf<Formats>(input, value) || ...);
        if (!isRead)
            input.fail(QStringLiteral("must have one of the keys %1")
                           .arg(QStringList{Formats::keys().first()...}.join(QStringLiteral(", "))));
    }
    Json schema() const { return {{"oneOf", Json::array({Formats().schema()...})}}; }

private:
    template <class Format> static bool readIf(JsonInput const& input, Value& value)
    {
        if (!input.has(Format::keys().first()))
            return false;
        Format().read(input, value.template emplace<typename Format::Value>());
        return true;
    }
};

/// What has a schema of its own, to which the schemas of others refer.
template <class Format> struct InOwnFile : Format
{
    char const* name;

    InOwnFile(char const* ofSchema, Format const& format) : Format(format), name(ofSchema) {}

    Format const& content() const { return *this; }
    Json schema() const { return {{"$ref", std::string(name) + ".schema.json"}}; }
};

} // namespace format
