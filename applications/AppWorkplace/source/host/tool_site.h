#pragma once

#include <optional>

/// What a person can do at the tool.
class ToolSite
{
public:
    ToolSite() = default;
    virtual ~ToolSite() = default;
    ToolSite(ToolSite const&) = delete;
    ToolSite& operator=(ToolSite const&) = delete;

    /// Pulls the trigger and holds it until the tool stops. Answers for how many milliseconds that is;
    /// nothing if the tool does not turn because it is locked.
    virtual std::optional<int> pullTrigger() = 0;
    virtual void pressReverse() = 0;
    virtual bool isReverse() const = 0;
};
