#include "progress.h"

#include <unistd.h>

#include <cstdio>

namespace zoltool {

Progress::Progress(size_t total, bool enabled) : m_total(total), m_enabled(enabled) {}

Progress::~Progress() {
    Clear();
}

bool Progress::StderrIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

void Progress::Step(const std::string& what) {
    ++m_done;
    if (!m_enabled) {
        return;
    }
    std::string shown = what.size() > 60 ? "..." + what.substr(what.size() - 57) : what;
    std::fprintf(stderr, "\r\033[K[%zu/%zu] %s", m_done, m_total, shown.c_str());
    std::fflush(stderr);
    m_shown = true;
}

void Progress::Clear() {
    if (m_shown) {
        std::fprintf(stderr, "\r\033[K");
        std::fflush(stderr);
        m_shown = false;
    }
}

}  // namespace zoltool
