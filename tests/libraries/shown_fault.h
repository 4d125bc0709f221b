#pragma once

#include "literals.h"

#include <zrt_controller/zrt_simulated_controller.h>

/// Everything in a fault, as one text.
inline QString shown(ZrtFault const& fault)
{
    return "%1 %2 nth %3 probability %4 delay %5 key \"%6\""_s.arg(static_cast<int>(fault.kind))
        .arg(fault.instruction)
        .arg(fault.nth)
        .arg(fault.probability)
        .arg(fault.delay)
        .arg(fault.key);
}
