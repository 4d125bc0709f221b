#include "sequence.h"

#include <files/input_error.h>
#include <files/json_input.h>
#include <plugin_management/d_abstract_plugin.h>

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <limits>

namespace
{

constexpr qint64 c_longestWait = 24LL * 3600 * 1000;
constexpr qint64 c_awaitTime = 10'000;
constexpr int c_mostPulls = 10'000;

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

// What a result really holds is the device's affair and may differ from its tag, so its
// value is taken as it stands.
QVariantMap readExpected(JsonInput const& input, QList<DDeclaration> const& declared)
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
    return input.toVariantMap();
}

Sequence::Step readOrder(JsonInput const& step, DAbstractPlugin const& plugin, QString const& folder)
{
    QString const order = QStringLiteral("order");
    QString const parameters = QStringLiteral("parameters");
    QString const expect = QStringLiteral("expect");
    QString const fails = QStringLiteral("fails");

    QString const name = step.at(order).toText();
    ICommand const* const command = plugin.commandPrototype(name);
    if (!command) {
        auto const known = plugin.getFunctions(true);
        if (!known.contains(name))
            step.at(order).fail(QStringLiteral("unknown order \"%1\", known are %2")
                                    .arg(shown(name), known.join(QStringLiteral(", "))));
        step.allowKeys({order});
        return StopStep{name};
    }

    step.allowKeys({order, parameters, expect, fails});
    auto const declared = command->commandArguments();
    OrderStep read{name, {}, {}, step.has(fails) && step.at(fails).toBool()};
    if (step.has(parameters))
        read.parameters = readParameters(step.at(parameters), declared.parameters);
    // Like the controller's set-up, a file is looked for beside the
    // sequence, wherever the program was started.
    QString const filePath = QStringLiteral("filePath");
    QString const given = read.parameters.value(filePath).toString();
    if (!given.isEmpty())
        read.parameters[filePath] = QDir(folder).filePath(given);
    for (auto const& key : {expect, fails}) {
        if (step.has(key) && command->isRecurrent())
            step.at(key).fail(
                QStringLiteral("\"%1\" runs until it is stopped; await its results").arg(shown(name)));
    }
    if (step.has(expect))
        read.expected = readExpected(step.at(expect), declared.results);
    return read;
}

Sequence::Step readAwait(JsonInput const& step, DAbstractPlugin const& plugin)
{
    QString const await = QStringLiteral("await");
    QString const of = QStringLiteral("of");
    QString const value = QStringLiteral("value");
    QString const within = QStringLiteral("within");
    step.allowKeys({await, of, value, within});
    AwaitStep read{step.at(of).toText(), step.at(await).toText(), step.at(value).toVariant(), c_awaitTime};
    ICommand const* const command = plugin.commandPrototype(read.command);
    if (!command || !command->isRecurrent())
        step.at(of).fail(
            QStringLiteral("\"%1\" is no command that runs until it is stopped").arg(shown(read.command)));
    auto const known = keysOf(command->commandArguments().results);
    if (!known.contains(read.key))
        step.at(await).fail(
            QStringLiteral("unknown result, known are %1").arg(known.join(QStringLiteral(", "))));
    if (step.has(within))
        read.within = step.at(within).toInteger(0, c_longestWait);
    return read;
}

Sequence::Step readTrigger(JsonInput const& step, QString const& key, bool mustFasten)
{
    step.allowKeys({key});
    return TriggerStep{static_cast<int>(step.at(key).toInteger(1, c_mostPulls)), mustFasten};
}

Sequence::Step readStep(JsonInput const& step, DAbstractPlugin const& plugin, QString const& folder)
{
    QString const wait = QStringLiteral("wait");
    QString const tighten = QStringLiteral("tighten");
    QString const trigger = QStringLiteral("trigger");
    QString const press = QStringLiteral("press");
    if (step.has(QStringLiteral("order")))
        return readOrder(step, plugin, folder);
    if (step.has(QStringLiteral("await")))
        return readAwait(step, plugin);
    if (step.has(tighten))
        return readTrigger(step, tighten, true);
    if (step.has(trigger))
        return readTrigger(step, trigger, false);
    if (step.has(press)) {
        step.allowKeys({press});
        if (step.at(press).toText() != QLatin1String("reverse"))
            step.at(press).fail(QStringLiteral("must be \"reverse\""));
        return ReverseStep{};
    }
    if (!step.has(wait))
        step.fail(QStringLiteral("must have one of the keys order, await, tighten, trigger, press, wait"));
    step.allowKeys({wait});
    return WaitStep{step.at(wait).toInteger(0, c_longestWait)};
}

QVariantMap readTool(JsonInput const& input)
{
    QStringList const keys{QStringLiteral("name"), QStringLiteral("serialNumber"),
                           QStringLiteral("validityDate")};
    input.allowKeys(keys);
    QVariantMap tool;
    for (auto const& key : keys) {
        if (input.has(key))
            tool.insert(key, input.at(key).toText());
    }
    return tool;
}

} // namespace

Sequence readSequence(QString const& fileName, DAbstractPlugin const& plugin)
{
    QString const tool = QStringLiteral("tool");
    QString const controller = QStringLiteral("controller");
    QString const steps = QStringLiteral("steps");

    auto const root = JsonInput::fromFile(fileName);
    root.allowKeys({tool, controller, steps});
    QString const folder = QFileInfo(fileName).path();

    Sequence sequence;
    if (root.has(tool))
        sequence.tool = readTool(root.at(tool));
    if (root.has(controller) && root.at(controller).toText().isEmpty())
        root.at(controller).fail(QStringLiteral("no file name given"));
    if (root.has(controller))
        sequence.controllerFile = QDir(folder).filePath(root.at(controller).toText());
    auto const list = root.at(steps).items();
    for (auto const& step : list)
        sequence.steps.push_back(readStep(step, plugin, folder));
    for (auto const& step : sequence.steps) {
        auto const* const order = std::get_if<OrderStep>(&step);
        if (order && order->parameters.contains(QStringLiteral("filePath")))
            sequence.files += order->parameters.value(QStringLiteral("filePath")).toString();
    }
    return sequence;
}
