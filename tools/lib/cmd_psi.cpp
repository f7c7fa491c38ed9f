// zoltools psi: the ten-second "some" pressure-stall averages of CPU, memory and I/O, read with
// the library's ZOLPSI, once or every N seconds.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <thread>

#include "commands.h"
#include "fileio.h"
#include "zolpsi.h"

namespace zoltool {

namespace {

struct Reading {
    const char* name;
    float value;
};

// Reads the three files; false (with the unreadable file named in `error`) when any fails.
bool ReadAll(ZOLPSI& psi, const std::string& dir, Reading (&readings)[3], std::string& error) {
    static const char* const kFiles[3] = {"cpu", "memory", "io"};
    for (int i = 0; i < 3; ++i) {
        const std::string path = JoinPath(dir, kFiles[i]);
        // Never handed to the library unless it is a file: a FIFO would block the read.
        if (FileKind(path).empty()) {
            error = path + ": missing (a kernel without pressure-stall information?)";
            return false;
        }
        const std::string why = WhyNotAFile(path);
        float value = 0;
        if (!why.empty() || !psi.GetDataByPathAndKeyword(path.c_str(), "some avg10=", &value)) {
            error =
                path + ": " + (why.empty() ? "unreadable, or it has no \"some avg10=\" line" : why);
            return false;
        }
        // The kernel writes a percentage with two decimals; anything else is not its file.
        if (!std::isfinite(value) || value < 0 || value > 100) {
            char shown[64];
            std::snprintf(shown, sizeof(shown), "%g", static_cast<double>(value));
            error = path + ": \"some avg10=\" is " + shown + ", not a percentage (0 to 100)";
            return false;
        }
        readings[i] = {kFiles[i], value};
    }
    return true;
}

}  // namespace

int RunPsi(const PsiOptions& options, const Streams& io) {
    constexpr double kLongestInterval = 86400;
    std::string usage;
    if (options.repeat &&
        !(options.intervalSeconds > 0 && options.intervalSeconds <= kLongestInterval)) {
        char shown[64];
        std::snprintf(shown, sizeof(shown), "%g", options.intervalSeconds);
        usage = std::string("--interval ") + shown +
                ": expected seconds, more than 0 and at most 86400 (e.g. 2 or 0.5)";
    } else if (options.counted && !options.repeat) {
        usage = "--count needs --interval (without it, psi reads once)";
    } else if (options.counted && options.count < 1) {
        usage = "--count " + std::to_string(options.count) +
                ": expected at least 1 (leave it out to read until Ctrl-C)";
    }
    if (!usage.empty()) {
        std::fprintf(io.err, "zoltools psi: %s\n", usage.c_str());
        return kExitUsage;
    }
    ZOLPSI psi;
    const bool repeat = options.repeat;
    for (long n = 0; !repeat || !options.counted || n < options.count; ++n) {
        if (n > 0) {
            auto until = std::chrono::steady_clock::now() +
                         std::chrono::duration<double>(options.intervalSeconds);
            while (std::chrono::steady_clock::now() < until) {
                if (options.stop != nullptr && options.stop->load()) {
                    return kExitOk;
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
        }
        Reading readings[3];
        std::string error;
        if (!ReadAll(psi, options.dir, readings, error)) {
            std::fprintf(io.err, "zoltools psi: %s\n", error.c_str());
            return kExitBadInput;
        }
        if (repeat) {
            char stamp[16];
            std::time_t now = std::time(nullptr);
            std::tm local;
            localtime_r(&now, &local);
            std::strftime(stamp, sizeof(stamp), "%H:%M:%S", &local);
            std::fprintf(io.out, "%s  ", stamp);
        }
        std::fprintf(io.out, "cpu %6.2f%%  memory %6.2f%%  io %6.2f%%  (some avg10)\n",
                     readings[0].value, readings[1].value, readings[2].value);
        std::fflush(io.out);
        if (!repeat) {
            break;
        }
    }
    return kExitOk;
}

}  // namespace zoltool
