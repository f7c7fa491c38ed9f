// What the commands print besides their tables: text that came from a file, escaped so that it
// cannot drive the terminal; counts that agree with their nouns; and problem lists that stay
// short however damaged a file is.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zoltool {

// `text` with every control character but tab (0x00 to 0x1f, and 0x7f) written as \xHH, so that
// a damaged file cannot clear the screen, move the cursor or cut a line at a NUL. Everything
// else is kept byte for byte, so a clean log line prints exactly as it stands in its file.
std::string EscapeControls(const std::string& text);

// "1 byte", "2 bytes", "1 entry" / "3 entries" (with `plural`).
std::string Count(uint64_t n, const std::string& noun, const std::string& plural = "");

// The problems found in one file or folder: the first kShown word for word, the rest counted,
// so that a file of garbage gives a screenful, not a line per byte.
class Problems {
public:
    static constexpr size_t kShown = 10;

    void Add(std::string text);
    // Takes over another list's shown problems (as far as this one has room) and its count.
    void Merge(const Problems& other);

    uint64_t count() const { return m_count; }
    const std::vector<std::string>& shown() const { return m_shown; }
    uint64_t hidden() const { return m_count - m_shown.size(); }

private:
    std::vector<std::string> m_shown;
    uint64_t m_count = 0;
};

}  // namespace zoltool
