#pragma once

#include "json_input.h"

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <nlohmann/json_fwd.hpp>

#include <limits>

/// How values stand in JSON. A format reads a value, checks it, writes it and describes it:
///
///     void read(JsonInput const& input, T& value) const; // InputError if the JSON is not right
///     Problem problemIn(T const& value) const;           // of a value that was not read
///     Json write(T const& value) const;
///     Json schema() const;                               // a JSON Schema, draft 2020-12
///
/// Those of lists, maps and objects are in object_format.h.
namespace format
{

using Json = nlohmann::ordered_json;

/// What is wrong in a value, and where: "faults[0].nth", "must be a whole number from 1 to 10".
struct Problem
{
    QString path; ///< within the value; empty if it is the value itself
    QString what; ///< empty if nothing is wrong

    explicit operator bool() const { return !what.isEmpty(); }
    /// As a complaint shows it, "path: what".
    QString text() const;
    /// The same problem as seen from what the value is a part of.
    Problem at(QString const& part) const;
};

/// A whole number within bounds.
struct Whole
{
    qint64 lowest = 0;
    qint64 highest = std::numeric_limits<int>::max();
    char const* unit = "";

    template <class Number> void read(JsonInput const& input, Number& value) const
    {
        value = static_cast<Number>(input.toInteger(lowest, highest));
    }
    Problem problemIn(qint64 value) const;
    Json write(qint64 value) const;
    Json schema() const;
};

/// What counts or identifies in a trace.
struct Count : Whole
{
    Count() : Whole{0, std::numeric_limits<qint64>::max()} {}

    Json write(quint64 value) const;
};

struct Truth
{
    void read(JsonInput const& input, bool& value) const { value = input.toBool(); }
    Problem problemIn(bool /*value*/) const { return {}; }
    Json write(bool value) const;
    Json schema() const;
};

struct Text
{
    void read(JsonInput const& input, QString& value) const { value = input.toText(); }
    Problem problemIn(QString const& /*value*/) const { return {}; }
    Json write(QString const& value) const;
    Json schema() const;
};

/// A date and time without a time zone, "2000-01-01T00:00:00.000"; it is read as UTC, where no summer time
/// leaves an hour out.
struct DateAndTime
{
    void read(JsonInput const& input, QDateTime& value) const;
    Json write(QDateTime const& value) const;
    Json schema() const;
};

/// Any JSON object, as it stands.
struct PlainMap
{
    void read(JsonInput const& input, QVariantMap& value) const { value = input.toVariantMap(); }
    Json write(QVariantMap const& value) const;
    Json schema() const;
};

/// Any JSON value, as it stands.
struct PlainValue
{
    void read(JsonInput const& input, QVariant& value) const { value = input.toVariant(); }
    Json schema() const;
};

/// A value of any type, which keeps its type (variant_json.h). Its schema refers to typedDefinitions().
struct TypedValue
{
    void read(JsonInput const& input, QVariant& value) const;
    Json write(QVariant const& value) const;
    Json schema() const;
};

/// A map of such values.
struct TypedMap
{
    void read(JsonInput const& input, QVariantMap& value) const;
    Json write(QVariantMap const& value) const;
    Json schema() const;
};

/// What a schema that has typed values or maps needs under "$defs".
Json typedDefinitions();

/// One of some texts.
struct OneOfTexts
{
    char const* what = ""; ///< "instruction", as a complaint names it
    QStringList known;

    void read(JsonInput const& input, QString& value) const;
    Problem problemIn(QString const& value) const;
    Json write(QString const& value) const;
    Json schema() const;
};

/// The format of a member whose table names none.
template <class T> struct Default;
template <> struct Default<int> : Whole
{
};
template <> struct Default<quint64> : Count
{
};
template <> struct Default<bool> : Truth
{
};
template <> struct Default<QString> : Text
{
};
template <> struct Default<QDateTime> : DateAndTime
{
};
template <> struct Default<QVariant> : TypedValue
{
};
template <> struct Default<QVariantMap> : TypedMap
{
};

/// The schema of a file or of a part that files have in common: what it describes, and what it cannot tell.
/// On as few lines as are readable, with a line break at the end.
QByteArray schemaText(Json const& schema, char const* title, QString const& description);

/// As schemaText(), of a whole file: the key "$schema" may stand in it, and every JSON file has its limits.
QByteArray fileSchemaText(Json schema, char const* title, QString const& description);

} // namespace format
