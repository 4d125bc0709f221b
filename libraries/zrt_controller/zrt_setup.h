#pragma once

#include "zrt_simulated_controller.h"

/// Reads a set-up file (docs/controller.md); what it does not mention keeps its default. InputError if it is
/// not right.
ZrtSetup readZrtSetup(QString const& fileName);

/// What is not valid in a set-up; empty if it is.
QString problemIn(ZrtSetup const& setup);
