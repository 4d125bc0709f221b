#pragma once

/// On a terminal how far the program is, on a line of the error output that goes again.
class Progress
{
public:
    /// @p doing  what it is at, "replaying"
    explicit Progress(char const* doing);
    ~Progress() { clear(); }
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    void show(int percent);
    /// Makes room for other output.
    void clear();

private:
    char const* const m_doing;
    bool const m_isTerminal;
    int m_percent = -1;
};
