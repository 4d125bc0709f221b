#include "tightening.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{

constexpr int c_stepsPerMillisecond = 10;
constexpr double c_step = 1.0 / c_stepsPerMillisecond;       // milliseconds
constexpr double c_degreesPerMillisecond = 360.0 / 60'000.0; // at one revolution a minute
constexpr double c_never = std::numeric_limits<double>::infinity();

// The controller's codes for what it can find wrong.
enum Error
{
    RunTimeLimit = 300,
    RunTimeLimitReverse = 301,
    ScrewMissing = 311,
    MinAngle = 330,
    AngleOver = 332,
    NoTorqueComplete = 333,
    OverTorque = 336,
    TorqueUpAtFreeSpeed = 337,
};

// Plain arithmetic on the generator's output: the standard's distributions may differ between libraries.
double uniform(std::mt19937_64& random, double lowest, double highest)
{
    constexpr double range = 9007199254740992.0; // 2 to the 53rd
    return lowest + (highest - lowest) * static_cast<double>(random() >> 11) / range;
}

/// How a screw behaves: torques in hundredths of a newton metre over angles in degrees.
struct Joint
{
    double head;          ///< where the head touches and the torque begins to rise
    double stiffness;     ///< the rise for a degree
    double jam = c_never; ///< where it hits something
    double jamTorque = 0;
    double yield = c_never;   ///< the torque at which the thread gives way
    double release = c_never; ///< how far from the head the operator lets go
};

Joint makeJoint(ZrtPreset const& preset, ZrtScrew screw, std::mt19937_64& random)
{
    double const rise = preset.torque - preset.snugTorque;
    // A good screw is through after a third of the angle that is allowed.
    double const good = preset.control == ZrtPreset::Angle
                            ? preset.targetAngle
                            : preset.minAngle + (preset.maxAngle - preset.minAngle) / 3.0;
    Joint joint{uniform(random, 1300, 1500), rise / good * uniform(random, 0.9, 1.1)};
    switch (screw) {
    case ZrtScrew::Good:
        break;
    case ZrtScrew::CrossThreaded:
        joint.head *= 0.3;
        joint.stiffness = rise / (0.5 * std::max(preset.minAngle, 1));
        break;
    case ZrtScrew::Stripped:
        joint.yield = preset.snugTorque + 0.8 * rise;
        break;
    case ZrtScrew::Missing:
        joint.head = c_never;
        break;
    case ZrtScrew::Soft:
        joint.stiffness = rise / (2.0 * preset.maxAngle);
        break;
    case ZrtScrew::Blocked:
        joint.jam = 0.5 * joint.head;
        joint.jamTorque = 1.1 * preset.torque;
        break;
    case ZrtScrew::ReleasedEarly:
        joint.release = 0.5 * good;
        break;
    }
    return joint;
}

} // namespace

TighteningResult tighten(ZrtPreset const& preset, ZrtScrew screw, std::mt19937_64& random)
{
    Joint joint = makeJoint(preset, screw, random);
    double angle = 0;
    double snugAt = c_never;
    double torque = 0;
    int step = 0;
    auto const ended = [&](int error) {
        double const turned = snugAt < c_never ? angle - snugAt : angle;
        return TighteningResult{error, static_cast<int>(std::lround(torque)),
                                static_cast<int>(std::lround(turned)),
                                snugAt < c_never ? preset.speed : preset.freeSpeed,
                                (step + c_stepsPerMillisecond - 1) / c_stepsPerMillisecond};
    };

    int const steps = preset.maxTime * c_stepsPerMillisecond;
    double const freeStep = preset.freeSpeed * c_degreesPerMillisecond * c_step;
    double const tighteningStep = preset.speed * c_degreesPerMillisecond * c_step;
    // Until the screw touches something, the torque is too low for anything to come of it. It is drawn
    // without a look at it, because what is drawn later depends on how much was.
    double const touch = std::min(joint.head, joint.jam);
    for (; step + 1 < steps && angle + freeStep < touch; ++step)
        angle += freeStep;
    random.discard(static_cast<unsigned long long>(step));

    while (step < steps) {
        ++step;
        bool isSnug = snugAt < c_never;
        angle += isSnug ? tighteningStep : freeStep;

        double const free = 0.2 * preset.snugTorque * uniform(random, 0.5, 1.5);
        torque = free;
        if (angle >= joint.head)
            torque = preset.snugTorque + joint.stiffness * (angle - joint.head) * uniform(random, 0.99, 1.01);
        if (angle >= joint.jam)
            torque = joint.jamTorque;
        if (torque >= joint.yield) {
            joint.head = c_never;
            torque = free;
        }

        if (!isSnug && torque >= preset.torque)
            return ended(TorqueUpAtFreeSpeed);
        if (!isSnug && torque >= preset.snugTorque) {
            snugAt = angle;
            isSnug = true;
        }
        if (!isSnug)
            continue;
        double const turned = angle - snugAt;
        if (turned >= joint.release)
            return ended(NoTorqueComplete);
        if (torque > preset.maxTorque)
            return ended(OverTorque);
        if (preset.control == ZrtPreset::Angle && turned >= preset.targetAngle)
            return ended(0);
        if (preset.control == ZrtPreset::Torque && torque >= preset.torque)
            return ended(turned < preset.minAngle ? MinAngle : 0);

        if (turned > preset.maxAngle)
            return ended(AngleOver);
    }
    return ended(snugAt < c_never ? RunTimeLimit : ScrewMissing);
}

TighteningResult loosen(ZrtPreset const& preset, std::mt19937_64& random)
{
    double const angle = uniform(random, 1500, 1800);
    double const breakaway = preset.torque * uniform(random, 0.7, 0.8);
    double const degreesPerMillisecond = preset.freeSpeed * c_degreesPerMillisecond;
    double const time = angle / degreesPerMillisecond;
    if (time > preset.maxTime)
        return {RunTimeLimitReverse, static_cast<int>(std::lround(breakaway)),
                static_cast<int>(std::lround(preset.maxTime * degreesPerMillisecond)), preset.freeSpeed,
                preset.maxTime};
    return {0, static_cast<int>(std::lround(breakaway)), static_cast<int>(std::lround(angle)),
            preset.freeSpeed, static_cast<int>(std::ceil(time))};
}
