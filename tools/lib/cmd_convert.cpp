// zoltools convert: a raw NV21 frame to PNG, or a PNG to a raw NV21 frame.
#include <cstdio>

#include "commands.h"
#include "fileio.h"
#include "pngio.h"
#include "rawimage.h"
#include "text.h"

namespace zoltool {

namespace {

int Fail(const Streams& io, const std::string& message, int status = kExitBadInput) {
    std::fprintf(io.err, "zoltools convert: %s\n", EscapeControls(message).c_str());
    return status;
}

std::string SizeName(uint32_t width, uint32_t height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

bool EndsWithPng(const std::string& path) {
    if (path.size() < 4) {
        return false;
    }
    std::string tail = path.substr(path.size() - 4);
    for (char& c : tail) {
        c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
    return tail == ".png";
}

// A WxH in the output's name must be the frame's: the tool (and whoever reads the name) takes
// the size of a raw frame from it.
bool NameAgrees(const std::string& output, uint32_t width, uint32_t height, std::string& error) {
    uint32_t w = 0, h = 0;
    if (SizeFromFileName(output, w, h) == SizeText::kNotASize || (w == width && h == height)) {
        return true;
    }
    error = output + ": its name says " + SizeName(w, h) + ", but the frame is " +
            SizeName(width, height);
    return false;
}

const char* ModeNote(RenderMode mode) {
    return mode == RenderMode::kAsLibrary ? "as the library converts" : "full-range BT.601";
}

}  // namespace

int RunConvert(const ConvertOptions& options, const Streams& io) {
    const std::string why = WhyNotAFile(options.input);
    if (!why.empty()) {
        return Fail(io, options.input + ": " + why);
    }
    if (SameFile(options.input, options.output)) {
        return Fail(io, options.output + " is the input itself: converting would overwrite it",
                    kExitUsage);
    }
    const bool fromPng = LooksLikePng(options.input);
    if (fromPng == EndsWithPng(options.output)) {
        return Fail(io,
                    options.output + ": the output of a " +
                        (fromPng ? "PNG is a raw NV21 frame: name it e.g. picture_WxH.nv21"
                                 : "raw NV21 frame is a PNG: name it <name>.png"),
                    kExitUsage);
    }
    std::string error;
    if (fromPng) {
        if (!options.size.empty()) {
            std::fprintf(io.err, "zoltools convert: --size is ignored for a PNG input\n");
        }
        RgbaImage rgba;
        if (!ReadPng(options.input, rgba, error)) {
            return Fail(io, error);
        }
        if (!NameAgrees(options.output, rgba.width, rgba.height, error)) {
            return Fail(io, error, kExitUsage);
        }
        const std::vector<uint8_t> raw = Nv21ToRaw(EncodeNv21(rgba, options.render));
        if (!WriteWholeFile(options.output, raw, error)) {
            return Fail(io, error);
        }
        uint32_t w, h;
        const bool named = SizeFromFileName(options.output, w, h) == SizeText::kOk;
        std::fprintf(
            io.out, "%s: PNG %s -> %s: NV21 %s, %s (%s)%s\n", EscapeControls(options.input).c_str(),
            SizeName(rgba.width, rgba.height).c_str(), EscapeControls(options.output).c_str(),
            SizeName(rgba.width, rgba.height).c_str(), Count(raw.size(), "byte").c_str(),
            ModeNote(options.render),
            named ? ""
                  : ("; its name has no WxH: read it back with --size " +
                     SizeName(rgba.width, rgba.height))
                        .c_str());
        return kExitOk;
    }

    uint32_t width = 0, height = 0;
    if (!options.size.empty()) {
        const SizeText size = ParseSize(options.size, width, height);
        if (size != SizeText::kOk) {
            return Fail(io,
                        "--size " + options.size +
                            (size == SizeText::kNotASize ? ": expected WIDTHxHEIGHT, e.g. 640x480"
                                                         : ": " + ImageSideLimits()),
                        kExitUsage);
        }
    } else {
        const SizeText size = SizeFromFileName(options.input, width, height);
        if (size == SizeText::kNotASize) {
            return Fail(io, options.input +
                                ": not a PNG, and its name carries no WxH: give the size of the "
                                "raw NV21 frame with --size WIDTHxHEIGHT");
        }
        if (size == SizeText::kOutOfRange) {
            return Fail(io, options.input + ": its name says " + SizeName(width, height) +
                                ", which is not a frame size (" + ImageSideLimits() +
                                "): give the size with --size WIDTHxHEIGHT");
        }
    }
    if (!NameAgrees(options.output, width, height, error)) {
        return Fail(io, error, kExitUsage);
    }
    Nv21Image image;
    if (!ReadNv21File(options.input, width, height, image, error)) {
        return Fail(io, error);
    }
    if (!WritePng(options.output, RenderNv21(image, options.render), error)) {
        return Fail(io, error);
    }
    std::fprintf(io.out, "%s: NV21 %s -> %s: PNG (%s)\n", EscapeControls(options.input).c_str(),
                 SizeName(width, height).c_str(), EscapeControls(options.output).c_str(),
                 ModeNote(options.render));
    return kExitOk;
}

}  // namespace zoltool
