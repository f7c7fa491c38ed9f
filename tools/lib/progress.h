// A one-line progress display on stderr ("[12/40] what"), redrawn in place. It shows only when
// stderr is a terminal, so that piped or captured output stays clean.
#pragma once

#include <cstddef>
#include <string>

namespace zoltool {

class Progress {
public:
    // `enabled` is normally StderrIsTerminal().
    Progress(size_t total, bool enabled);
    ~Progress();  // clears the line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Step(const std::string& what);  // advances by one and redraws
    void Clear();                        // erases the line (before printing something else)

    static bool StderrIsTerminal();

private:
    size_t m_total;
    size_t m_done = 0;
    bool m_enabled;
    bool m_shown = false;
};

}  // namespace zoltool
