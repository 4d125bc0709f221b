#pragma once

#include <QString>
#include <QVariant>

class JsonInput;

/// How one tightening program tightens. The names and units are those of the controller's preset map.
struct ZrtPreset
{
    enum Control
    {
        Torque = 0,
        Angle = 1,
    };

    int control = Torque; ///< "tcamActm"
    int torque = 200;     ///< the target, hundredths of a newton metre
    int maxTorque = 260;  ///< "maxTorque", hundredths of a newton metre; more is an error
    int snugTorque = 40;  ///< "snugTorque", hundredths of a newton metre; from here on the angle counts
    int targetAngle = 90; ///< degrees from snug, with angle control
    int minAngle = 10;    ///< "minAngle", degrees from snug; the target must not come before
    int maxAngle = 300;   ///< "maxAngle", degrees from snug; nor after
    int speed = 400;      ///< "speed", revolutions a minute while tightening
    int freeSpeed = 800;  ///< "freeSpeed", revolutions a minute while running down
    int maxTime = 5000;   ///< "maxTime", milliseconds

    QVariantMap toMap() const;
};

/// Reads a preset; what it does not mention keeps its default. InputError if it is not right.
ZrtPreset readZrtPreset(JsonInput const& input);

/// Reads presets by their numbers, {"1": {...}, "15": {...}}.
QMap<int, ZrtPreset> readZrtPresets(JsonInput const& input);
