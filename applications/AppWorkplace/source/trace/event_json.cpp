#include "event_json.h"

#include <files/input_error.h>
#include <files/object_format.h>

#include <type_traits>

namespace
{

using format::Json;

template <class Event> struct EventFormat : format::ObjectFormat<EventFormat<Event>, Event>
{
    template <class Fields> static void fields(Fields& fields) { Event::fields(fields); }
};

constexpr char const* c_time = "time";
// Far beyond any run, and far from an overflow.
format::Whole const c_timeFormat{0, qint64(1) << 53};

/// Calls a function with a new event of each kind, until it answers true.
template <class... Events, class Function>
bool anyKind(std::variant<Events...> const* /*events*/, Function const& function)
{
    return (function(Events()) || ...);
}
template <class Function> bool anyKind(Function const& function)
{
    return anyKind(static_cast<RunEvent const*>(nullptr), function);
}

} // namespace

Json toJson(qint64 time, RunEvent const& event)
{
    Json json{{c_time, time}, {c_eventKey, kindOf(event).name}};
    std::visit([&json](auto const& one) { EventFormat<std::decay_t<decltype(one)>>::writeFields(one, json); },
               event);
    return json;
}

std::pair<qint64, RunEvent> toEvent(JsonInput const& json)
{
    JsonInput const kind = json.at(QLatin1String(c_eventKey));
    QString const name = kind.toText();
    std::pair<qint64, RunEvent> read;
    QStringList known{QLatin1String(c_eventKey)};
    bool const isKnown = anyKind([&](auto event) {
        using Format = EventFormat<decltype(event)>;
        if (name != QLatin1String(event.c_kind.name))
            return false;
        Format::readFields(json, event); // first of all, for a newer format may have other keys
        known += Format::keys();
        read.second = event;
        return true;
    });
    if (!isKnown)
        kind.fail(QStringLiteral("unknown event \"%1\"").arg(shown(name)));
    c_timeFormat.read(json.at(QLatin1String(c_time)), read.first);
    json.allowKeys(known += QLatin1String(c_time));
    return read;
}

QByteArray traceLineSchema()
{
    Json names = Json::array();
    Json kinds = Json::array();
    anyKind([&](auto event) {
        Json kind = EventFormat<decltype(event)>::openSchema();
        kind["description"] =
            std::string(event.c_kind.meaning) + (event.c_kind.isOfTracesAlone ? " (only in a trace)" : "");
        kind["properties"][c_eventKey] = {{"const", event.c_kind.name}};
        names.push_back(event.c_kind.name);
        kinds.push_back(kind);
        return false;
    });
    Json time = c_timeFormat.schema();
    time["description"] = "milliseconds since the start";
    Json const schema{{"type", "object"},
                      {"properties", {{c_time, time}, {c_eventKey, {{"enum", names}}}}},
                      {"required", {c_time, c_eventKey}},
                      {"oneOf", kinds},
                      {"unevaluatedProperties", false},
                      {"$defs", format::typedDefinitions()}};
    return format::fileSchemaText(schema, "A line of a trace",
                                  QStringLiteral("docs/traces.md describes it; also a line of what "
                                                 "`workplace run --json` prints. A schema cannot say "
                                                 "that begin stands on the first line alone and end on the "
                                                 "last, that the time never goes back, that "
                                                 "orders and instructions are counted from 1, that an "
                                                 "instruction keeps its order, that each day exists, "
                                                 "and that a value has the type that it names."));
}

QByteArray toLine(Json const& json)
{
    // A text that is no proper Unicode is shown with replacement characters rather than not at all.
    std::string const line = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    return QByteArray::fromStdString(line) + '\n';
}
