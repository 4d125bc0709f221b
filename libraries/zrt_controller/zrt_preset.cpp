#include "zrt_preset.h"

#include <files/json_input.h>

#include <limits>

namespace
{

struct Field
{
    QString key;
    int ZrtPreset::*member;
    int lowest;
    int highest;
};

Field const c_fields[] = {
    {QStringLiteral("tcamActm"), &ZrtPreset::control, ZrtPreset::Torque, ZrtPreset::Angle},
    {QStringLiteral("torque"), &ZrtPreset::torque, 1, 100'000},
    {QStringLiteral("maxTorque"), &ZrtPreset::maxTorque, 1, 100'000},
    {QStringLiteral("snugTorque"), &ZrtPreset::snugTorque, 1, 100'000},
    {QStringLiteral("targetAngle"), &ZrtPreset::targetAngle, 1, 100'000},
    {QStringLiteral("minAngle"), &ZrtPreset::minAngle, 0, 100'000},
    {QStringLiteral("maxAngle"), &ZrtPreset::maxAngle, 1, 100'000},
    {QStringLiteral("speed"), &ZrtPreset::speed, 1, 10'000},
    {QStringLiteral("freeSpeed"), &ZrtPreset::freeSpeed, 1, 10'000},
    {QStringLiteral("maxTime"), &ZrtPreset::maxTime, 1, 60'000},
};

} // namespace

QVariantMap toMap(ZrtPreset const& preset)
{
    QVariantMap map;
    for (auto const& field : c_fields)
        map.insert(field.key, preset.*field.member);
    return map;
}

QString problemIn(ZrtPreset const& preset)
{
    for (auto const& field : c_fields) {
        if (preset.*field.member < field.lowest || preset.*field.member > field.highest)
            return QStringLiteral("\"%1\" must be a whole number from %2 to %3")
                .arg(field.key)
                .arg(field.lowest)
                .arg(field.highest);
    }
    if (preset.snugTorque >= preset.torque)
        return QStringLiteral("\"snugTorque\" must be less than \"torque\"");
    if (preset.maxTorque <= preset.torque)
        return QStringLiteral("\"maxTorque\" must be more than \"torque\"");
    if (preset.minAngle >= preset.maxAngle)
        return QStringLiteral("\"minAngle\" must be less than \"maxAngle\"");
    if (preset.control == ZrtPreset::Angle && preset.targetAngle > preset.maxAngle)
        return QStringLiteral("\"targetAngle\" must not be more than \"maxAngle\"");
    if (preset.control == ZrtPreset::Angle && preset.targetAngle < preset.minAngle)
        return QStringLiteral("\"targetAngle\" must not be less than \"minAngle\"");
    return {};
}

ZrtPreset readZrtPreset(JsonInput const& input)
{
    QStringList keys;
    for (auto const& field : c_fields)
        keys += field.key;
    input.allowKeys(keys);

    ZrtPreset preset;
    for (auto const& field : c_fields) {
        if (input.has(field.key))
            preset.*field.member =
                static_cast<int>(input.at(field.key).toInteger(field.lowest, field.highest));
    }
    QString const problem = problemIn(preset);
    if (!problem.isEmpty())
        input.fail(problem);
    return preset;
}

QMap<int, ZrtPreset> readZrtPresets(JsonInput const& input)
{
    QMap<int, ZrtPreset> presets;
    auto const keys = input.keys();
    for (auto const& key : keys) {
        bool isNumber = false;
        int const number = key.toUShort(&isNumber);
        if (!isNumber || key != QString::number(number))
            input.at(key).fail(QStringLiteral("a preset's key must be its number, 0 to %1")
                                   .arg(std::numeric_limits<quint16>::max()));
        presets.insert(number, readZrtPreset(input.at(key)));
    }
    return presets;
}
