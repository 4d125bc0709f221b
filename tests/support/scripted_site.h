#pragma once

#include "host/tool_site.h"

#include <optional>

/// A tool at which each pull of the trigger takes as long as it is told, or that is locked.
class ScriptedSite : public ToolSite
{
public:
    std::optional<int> pullTrigger() override
    {
        ++pulls;
        return duration;
    }
    void pressReverse() override { reverse = !reverse; }
    bool isReverse() const override { return reverse; }

    std::optional<int> duration = 100;
    bool reverse = false;
    int pulls = 0;
};
