#pragma once

#include "zrt_simulated_controller.h"

#include <random>

/// How a tightening ended. All values are those at its end.
struct TighteningResult
{
    /// 0, or what went wrong: 300 and 301 run time limit, 311 screw missing, 330 min angle, 332 angle over,
    /// 333 no torque complete, 336 over torque, 337 torque up at free speed.
    int error = 0;
    int torque = 0; ///< hundredths of a newton metre
    int angle = 0;  ///< degrees from snug; of all turns if snug was not reached
    int speed = 0;  ///< revolutions a minute
    int time = 0;   ///< milliseconds from the pull of the trigger
};

/// Tightens one screw: run-down, snug, tightening up to the preset's target, in small steps. The
/// screw's course is drawn from @p random; the controller's side sees torque and
/// angle alone and judges by them.
TighteningResult tighten(ZrtPreset const& preset, ZrtScrew screw, std::mt19937_64& random);

/// Turns one screw out.
TighteningResult loosen(ZrtPreset const& preset, std::mt19937_64& random);
