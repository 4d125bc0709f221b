#include "sequence.h"

#include <files/input_error.h>
#include <files/object_format.h>
#include <plugin_management/d_abstract_plugin.h>

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <limits>

namespace
{

using namespace format;

constexpr Whole c_duration{0, 24LL * 3600 * 1000, "milliseconds"};
constexpr Whole c_pulls{1, 10'000};

struct OrderFormat : ObjectFormat<OrderFormat, OrderStep>
{
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required(
            "order", &OrderStep::command,
            "a command or a stop name. A command is waited for; one that has a stop name goes on while the "
            "next steps are done. A stop name ends every running command that has it, and takes no other "
            "key");
        fields.optional("parameters", &OrderStep::parameters, "by the names that the command declares",
                        PlainMap());
        fields.optional(
            "expect", &OrderStep::expected,
            "results, and the values that they must have in the end; not of a command that has a stop name",
            PlainMap());
        fields.optional("fails", &OrderStep::mustFail,
                        "whether the order must fail; not of a command that has a stop name");
    }
};

struct AwaitFormat : ObjectFormat<AwaitFormat, AwaitStep>
{
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("await", &AwaitStep::key, "waits until this result has a value");
        fields.required("of", &AwaitStep::command, "the command, one that has a stop name and is running");
        fields.required("value", &AwaitStep::value, "of a map the keys that are given count", PlainValue());
        fields.optional("within", &AwaitStep::within, "how long at most", c_duration);
    }
};

struct TightenFormat : ObjectFormat<TightenFormat, TightenStep>
{
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required(
            "tighten", &TightenStep::count,
            "a person tightens so many screws: pulls the trigger, waits until the tool stops, takes half a "
            "second to the next one; fails if the tool is set to loosen",
            c_pulls);
    }
};

struct TriggerFormat : ObjectFormat<TriggerFormat, TriggerStep>
{
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("trigger", &TriggerStep::count,
                        "a person pulls the trigger so many times, whichever way the tool turns", c_pulls);
    }
};

struct SwitchName
{
    PressStep::Switch value;
    char const* name;
    char const* meaning;
};
constexpr SwitchName c_switches[] = {{PressStep::Switch::Reverse, "reverse", "the direction switch"}};

struct PressFormat : ObjectFormat<PressFormat, PressStep>
{
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("press", &PressStep::which, "a person presses a switch", OneOf("switch", c_switches));
    }
};

struct WaitFormat : ObjectFormat<WaitFormat, WaitStep>
{
    template <class Fields> static void fields(Fields& fields)
    {
        fields.required("wait", &WaitStep::duration, "lets time pass, at most a day", c_duration);
    }
};

using StepFormat = AnyOf<OrderFormat, AwaitFormat, TightenFormat, TriggerFormat, PressFormat, WaitFormat>;

/// The tool's record as it goes with every order; a field that is absent is not given.
struct ToolFormat : ObjectFormat<ToolFormat, QVariantMap>
{
    template <class Fields> static void fields(Fields& fields)
    {
        for (auto const* const key : {"name", "serialNumber", "validityDate"}) {
            QString const name = QString::fromLatin1(key);
            fields.optional(
                key, Property{[name](QVariantMap const& tool) { return tool.value(name).toString(); },
                              [name](QVariantMap& tool, QString const& text) { tool.insert(name, text); }});
        }
    }
};

struct FileName : Text
{
    static void read(JsonInput const& input, QString& value)
    {
        value = input.toText();
        if (value.isEmpty())
            input.fail(QStringLiteral("no file name given"));
    }
    static Json schema() { return {{"type", "string"}, {"minLength", 1}}; }
};

/// The steps as they stand in the file: what an order is depends on the plugin.
struct UnreadSteps
{
    static void read(JsonInput const& input, std::vector<JsonInput>& steps) { steps = input.items(); }
    static Json schema() { return ListOf{StepFormat()}.schema(); }
};

struct SequenceFile
{
    QVariantMap tool;
    QString controller;
    std::vector<JsonInput> steps;
};

struct SequenceFormat : ObjectFormat<SequenceFormat, SequenceFile>
{
    template <class Fields> static void fields(Fields& fields)
    {
        fields.optional("tool", &SequenceFile::tool,
                        "the tool's record; every order gets it with its parameters", ToolFormat());
        fields.optional(
            "controller", &SequenceFile::controller,
            "the set-up of the controller to simulate, relative to this file; without it a default "
            "controller; `--controller` overrides it",
            FileName());
        fields.required("steps", &SequenceFile::steps, "done one after the other", UnreadSteps());
    }
};

QStringList keysOf(QList<DDeclaration> const& declarations)
{
    QStringList keys;
    for (auto const& declaration : declarations)
        keys += declaration.key;
    return keys;
}

/// The value under a declared key, which must be what the declaration's type tag says.
QVariant readTagged(JsonInput const& input, QString const& typeTag)
{
    if (typeTag == QLatin1String("ui16"))
        return static_cast<int>(input.toInteger(0, std::numeric_limits<quint16>::max()));
    if (typeTag == QLatin1String("int"))
        return static_cast<int>(
            input.toInteger(std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
    if (typeTag == QLatin1String("bool"))
        return input.toBool();
    if (typeTag == QLatin1String("strg"))
        return input.toText();
    if (typeTag == QLatin1String("varM"))
        return input.toVariantMap();
    return input.toVariant();
}

QVariantMap readParameters(JsonInput const& input, QList<DDeclaration> const& declared)
{
    QVariantMap values;
    auto const keys = input.keys();
    for (auto const& key : keys) {
        auto const it = std::find_if(declared.cbegin(), declared.cend(),
                                     [&key](auto const& declaration) { return declaration.key == key; });
        if (it == declared.cend())
            input.at(key).fail(declared.isEmpty() ? QStringLiteral("the command takes no parameters")
                                                  : QStringLiteral("unknown parameter, known are %1")
                                                        .arg(keysOf(declared).join(QStringLiteral(", "))));
        values.insert(key, readTagged(input.at(key), it->typeTag));
    }
    return values;
}

// What a result really holds is the device's affair and may differ from its tag, so its value is taken as it
// stands.
void checkResults(JsonInput const& input, QList<DDeclaration> const& declared)
{
    auto const known = keysOf(declared);
    auto const keys = input.keys();
    for (auto const& key : keys) {
        if (!known.contains(key))
            input.at(key).fail(
                known.isEmpty()
                    ? QStringLiteral("the command has no results")
                    : QStringLiteral("unknown result, known are %1").arg(known.join(QStringLiteral(", "))));
    }
}

/// The name of a stop that a step orders; empty if it orders a command, or nothing.
QString stopNameIn(JsonInput const& input, DAbstractPlugin const& plugin)
{
    QString const key = QStringLiteral("order");
    QString name = input.has(key) ? input.at(key).toText() : QString();
    if (!input.has(key) || plugin.commandPrototype(name))
        return {};
    auto const known = plugin.getFunctions(true);
    if (!known.contains(name))
        input.at(key).fail(QStringLiteral("unknown order \"%1\", known are %2")
                               .arg(shown(name), known.join(QStringLiteral(", "))));
    input.allowKeys({key});
    return name;
}

/// Checks a step against the commands of the plugin. @p input is where it stands.
Sequence::Step checked(OrderStep step, JsonInput const& input, DAbstractPlugin const& plugin,
                       QString const& folder)
{
    QString const parameters = QStringLiteral("parameters");
    QString const expect = QStringLiteral("expect");
    QString const filePath = QStringLiteral("filePath");
    ICommand const* const command = plugin.commandPrototype(step.command);
    auto const declared = command->commandArguments();
    if (input.has(parameters))
        step.parameters = readParameters(input.at(parameters), declared.parameters);
    // Like the controller's set-up, a file is looked for beside the sequence, wherever the program was
    // started.
    QString const given = step.parameters.value(filePath).toString();
    if (!given.isEmpty())
        step.parameters[filePath] = QDir(folder).filePath(given);
    for (auto const& key : {expect, QStringLiteral("fails")}) {
        if (input.has(key) && command->isRecurrent())
            input.at(key).fail(QStringLiteral("\"%1\" runs until it is stopped; await its results")
                                   .arg(shown(step.command)));
    }
    if (input.has(expect))
        checkResults(input.at(expect), declared.results);
    return step;
}

Sequence::Step checked(AwaitStep const& step, JsonInput const& input, DAbstractPlugin const& plugin,
                       QString const& /*folder*/)
{
    ICommand const* const command = plugin.commandPrototype(step.command);
    if (!command || !command->isRecurrent())
        input.at(QStringLiteral("of"))
            .fail(QStringLiteral("\"%1\" is no command that runs until it is stopped")
                      .arg(shown(step.command)));
    auto const known = keysOf(command->commandArguments().results);
    if (!known.contains(step.key))
        input.at(QStringLiteral("await"))
            .fail(QStringLiteral("unknown result, known are %1").arg(known.join(QStringLiteral(", "))));
    return step;
}

template <class Step>
Sequence::Step checked(Step const& step, JsonInput const& /*input*/, DAbstractPlugin const& /*plugin*/,
                       QString const& /*folder*/)
{
    return step;
}

Sequence::Step readStep(JsonInput const& input, DAbstractPlugin const& plugin, QString const& folder)
{
    QString const stopName = stopNameIn(input, plugin);
    if (!stopName.isEmpty())
        return StopStep{stopName};
    StepFormat::Value step;
    StepFormat().read(input, step);
    return std::visit([&](auto const& one) { return checked(one, input, plugin, folder); }, step);
}

} // namespace

Sequence readSequence(QString const& fileName, DAbstractPlugin const& plugin)
{
    SequenceFile file;
    SequenceFormat().read(JsonInput::fromFile(fileName), file);
    QString const folder = QFileInfo(fileName).path();

    Sequence sequence;
    sequence.tool = file.tool;
    if (!file.controller.isEmpty())
        sequence.controllerFile = QDir(folder).filePath(file.controller);
    for (auto const& step : file.steps)
        sequence.steps.push_back(readStep(step, plugin, folder));
    for (auto const& step : sequence.steps) {
        auto const* const order = std::get_if<OrderStep>(&step);
        if (order && order->parameters.contains(QStringLiteral("filePath")))
            sequence.files += order->parameters.value(QStringLiteral("filePath")).toString();
    }
    return sequence;
}

QStringList toolRecordKeys()
{
    return ToolFormat::keys();
}

QByteArray sequenceSchema()
{
    return fileSchemaText(
        SequenceFormat().schema(), "Work sequence",
        QStringLiteral("docs/sequences.md describes it. Which orders, parameters and results "
                       "there are depends on the plugin."));
}
