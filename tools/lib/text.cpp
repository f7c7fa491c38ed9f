#include "text.h"

#include <cstdio>

namespace zoltool {

std::string EscapeControls(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        const unsigned char u = static_cast<unsigned char>(c);
        if ((u < 0x20 && u != '\t') || u == 0x7f) {
            char escaped[5];
            std::snprintf(escaped, sizeof(escaped), "\\x%02x", u);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out;
}

std::string Count(uint64_t n, const std::string& noun, const std::string& plural) {
    return std::to_string(n) + " " + (n == 1 ? noun : plural.empty() ? noun + "s" : plural);
}

void Problems::Add(std::string text) {
    if (m_shown.size() < kShown) {
        m_shown.push_back(std::move(text));
    }
    ++m_count;
}

void Problems::Merge(const Problems& other) {
    for (const std::string& text : other.m_shown) {
        if (m_shown.size() < kShown) {
            m_shown.push_back(text);
        }
    }
    m_count += other.m_count;
}

}  // namespace zoltool
