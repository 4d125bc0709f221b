#pragma once

#include "zrt_controller.h"
#include "zrt_endpoint.h"
#include "zrt_faults.h"

#include <QString>

/// A controller to simulate, and how it is reached.
struct ZrtSetup
{
    ZrtState state;
    ZrtTimes times;
    bool isConnected = true;
    QList<ZrtFault> faults;
};

/// Reads a set-up file (docs/controller.md); what it does not mention keeps its default. InputError if it is
/// not right.
ZrtSetup readZrtSetup(QString const& fileName);
