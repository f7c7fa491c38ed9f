// zoltools psi: the ten-second "some" pressure-stall averages of CPU, memory and I/O, read with
// the library's ZOLPSI, once or every N seconds.
#include <chrono>
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
        float value = 0;
        if (!psi.GetDataByPathAndKeyword(path.c_str(), "some avg10=", &value)) {
            error = path + (FileSize(path) < 0
                                ? ": missing (a kernel without pressure-stall information?)"
                                : ": unreadable, or it has no \"some avg10=\" line");
            return false;
        }
        readings[i] = {kFiles[i], value};
    }
    return true;
}

}  // namespace

int RunPsi(const PsiOptions& options, const Streams& io) {
    if (options.intervalSeconds < 0 || options.count < 0) {
        std::fprintf(io.err, "zoltools psi: --interval and --count must not be negative\n");
        return kExitUsage;
    }
    ZOLPSI psi;
    const bool repeat = options.intervalSeconds > 0;
    for (int n = 0; !repeat || options.count == 0 || n < options.count; ++n) {
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
