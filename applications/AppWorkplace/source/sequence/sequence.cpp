#include "sequence.h"

#include "input/json_input.h"

#include <plugin_management/d_abstract_plugin.h>

#include <QFileInfo>

#include <algorithm>
#include <limits>

namespace
{

constexpr qint64 c_longestWait = 24 * 3600 * 1000;

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
QVariantMap readExpected(JsonInput const& input, QList<DDeclaration> const& declared)
{
    auto const known = keysOf(declared);
    auto const keys = input.keys();
    for (auto const& key : keys) {
        if (!known.contains(key))
            input.at(key).fail(
                QStringLiteral("unknown result, known are %1").arg(known.join(QStringLiteral(", "))));
    }
    return input.toVariantMap();
}

std::variant<OrderStep, StopStep, WaitStep> readStep(JsonInput const& step, DAbstractPlugin const& plugin)
{
    QString const order = QStringLiteral("order");
    QString const parameters = QStringLiteral("parameters");
    QString const expect = QStringLiteral("expect");
    QString const wait = QStringLiteral("wait");

    if (step.has(wait)) {
        step.allowKeys({wait});
        return WaitStep{step.at(wait).toInteger(0, c_longestWait)};
    }
    if (!step.has(order))
        step.fail(QStringLiteral("must have the key \"order\" or \"wait\""));

    QString const name = step.at(order).toText();
    ICommand const* const command = plugin.commandPrototype(name);
    if (!command) {
        auto const known = plugin.getFunctions(true);
        if (!known.contains(name))
            step.at(order).fail(QStringLiteral("unknown order \"%1\", known are %2")
                                    .arg(name, known.join(QStringLiteral(", "))));
        step.allowKeys({order});
        return StopStep{name};
    }

    step.allowKeys({order, parameters, expect});
    auto const declared = command->commandArguments();
    OrderStep read{name, {}, {}};
    if (step.has(parameters))
        read.parameters = readParameters(step.at(parameters), declared.parameters);
    if (step.has(expect)) {
        if (command->isRecurrent())
            step.at(expect).fail(
                QStringLiteral("\"%1\" runs until it is stopped and has no final results").arg(name));
        read.expected = readExpected(step.at(expect), declared.results);
    }
    return read;
}

} // namespace

Sequence readSequence(QString const& fileName, DAbstractPlugin const& plugin)
{
    QString const controller = QStringLiteral("controller");
    QString const steps = QStringLiteral("steps");

    auto const root = JsonInput::fromFile(fileName);
    root.allowKeys({controller, steps});

    Sequence sequence;
    // Beside the sequence, wherever the program was started.
    if (root.has(controller))
        sequence.controllerFile =
            QFileInfo(fileName).path() + QLatin1Char('/') + root.at(controller).toText();
    auto const list = root.at(steps).items();
    for (auto const& step : list)
        sequence.steps.push_back(readStep(step, plugin));
    return sequence;
}
