#include "poolstats.h"

namespace zoltool {

namespace {

// Consumes `literal` at the front of `text`.
bool Take(std::string_view& text, std::string_view literal) {
    if (text.substr(0, literal.size()) != literal) {
        return false;
    }
    text.remove_prefix(literal.size());
    return true;
}

// Consumes a decimal number that fits in 64 bits.
bool TakeNumber(std::string_view& text, uint64_t& value) {
    size_t i = 0;
    value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        const uint64_t digit = static_cast<uint64_t>(text[i] - '0');
        if (value > (UINT64_MAX - digit) / 10) {
            return false;
        }
        value = value * 10 + digit;
    }
    text.remove_prefix(i);
    return i > 0;
}

// Consumes "<key>=<number>".
bool TakeField(std::string_view& text, std::string_view key, uint64_t& value) {
    return Take(text, key) && Take(text, "=") && TakeNumber(text, value);
}

}  // namespace

bool ParsePoolStats(std::string_view message, PoolStats& stats) {
    const size_t at = message.find("pool stats: ");
    if (at == std::string_view::npos) {
        return false;
    }
    std::string_view text = message.substr(at);
    stats = PoolStats();
    if (!(Take(text, "pool stats: busy ") && TakeField(text, "heap", stats.busy[0]) &&
          Take(text, " ") && TakeField(text, "dma", stats.busy[1]) && Take(text, "; free ") &&
          TakeField(text, "heap", stats.free[0]) && Take(text, " ") &&
          TakeField(text, "dma", stats.free[1]) && Take(text, "; peak ") &&
          TakeField(text, "heap", stats.peak[0]) && Take(text, " ") &&
          TakeField(text, "dma", stats.peak[1]) && Take(text, "; ") &&
          TakeField(text, "allocs", stats.allocations) && Take(text, " ") &&
          TakeField(text, "reuses", stats.reuses) && Take(text, " ") &&
          TakeField(text, "releases", stats.releases) && Take(text, "; managers"))) {
        return false;
    }
    // " <name>=<bytes>" each (a name is free of blanks, '=' and ';'), then maybe " +<count>".
    while (Take(text, " ")) {
        if (Take(text, "+")) {
            return TakeNumber(text, stats.managersLeftOut) && text.empty();
        }
        const size_t equals = text.find('=');
        if (equals == 0 || equals == std::string_view::npos ||
            text.substr(0, equals).find_first_of(" ;") != std::string_view::npos) {
            return false;
        }
        std::string name(text.substr(0, equals));
        text.remove_prefix(equals + 1);
        uint64_t bytes = 0;
        if (!TakeNumber(text, bytes) || (!text.empty() && text[0] != ' ')) {
            return false;
        }
        stats.managers.emplace_back(std::move(name), bytes);
    }
    return text.empty();
}

}  // namespace zoltool
