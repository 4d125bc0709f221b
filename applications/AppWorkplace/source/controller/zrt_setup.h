#pragma once

#include "zrt_controller.h"

#include <QString>

/// A controller to simulate, and how it is reached.
struct ZrtSetup
{
    ZrtState state;
    /// Milliseconds from an instruction to its reply.
    int replyTime = 5;
    bool isConnected = true;
};

/// Reads a set-up file (docs/controller.md); what it does not mention keeps its default. InputError if it is
/// not right.
ZrtSetup readZrtSetup(QString const& fileName);
