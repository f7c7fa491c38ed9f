// zoltools convert: a raw NV21 frame to PNG, or a PNG to a raw NV21 frame, through the
// library's colour conversion.
#include <cstdio>

#include "commands.h"
#include "fileio.h"
#include "pngio.h"
#include "rawimage.h"

namespace zoltool {

namespace {

int Fail(const Streams& io, const std::string& message) {
    std::fprintf(io.err, "zoltools convert: %s\n", message.c_str());
    return kExitBadInput;
}

}  // namespace

int RunConvert(const ConvertOptions& options, const Streams& io) {
    std::string error;
    if (FileSize(options.input) < 0) {
        return Fail(io, options.input +
                            (IsDirectory(options.input) ? ": is a directory" : ": no such file"));
    }
    if (LooksLikePng(options.input)) {
        if (!options.size.empty()) {
            std::fprintf(io.err, "zoltools convert: --size is ignored for a PNG input\n");
        }
        RgbaImage rgba;
        if (!ReadPng(options.input, rgba, error)) {
            return Fail(io, error);
        }
        std::vector<uint8_t> raw = Nv21ToRaw(RgbaToNv21(rgba));
        if (!WriteWholeFile(options.output, raw, error)) {
            return Fail(io, error);
        }
        std::fprintf(io.out, "%s: PNG %ux%u -> %s: NV21 %ux%u, %zu bytes\n", options.input.c_str(),
                     rgba.width, rgba.height, options.output.c_str(), rgba.width, rgba.height,
                     raw.size());
        return kExitOk;
    }

    uint32_t width = 0, height = 0;
    if (!options.size.empty()) {
        if (!ParseSize(options.size, width, height)) {
            std::fprintf(io.err,
                         "zoltools convert: --size %s: expected WIDTHxHEIGHT, e.g. 640x480\n",
                         options.size.c_str());
            return kExitUsage;
        }
    } else if (!SizeFromFileName(options.input, width, height)) {
        return Fail(io, options.input +
                            ": not a PNG, and its name carries no WxH: give the size of the "
                            "raw NV21 frame with --size WIDTHxHEIGHT");
    }
    std::vector<uint8_t> raw;
    Nv21Image image;
    if (!ReadWholeFile(options.input, raw, error) ||
        !Nv21FromRaw(raw, width, height, options.input, image, error)) {
        return Fail(io, error);
    }
    if (!WritePng(options.output, Nv21ToRgba(image), error)) {
        return Fail(io, error);
    }
    std::fprintf(io.out, "%s: NV21 %ux%u -> %s: PNG\n", options.input.c_str(), width, height,
                 options.output.c_str());
    return kExitOk;
}

}  // namespace zoltool
