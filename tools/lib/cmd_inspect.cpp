// zoltools inspect: the request records, frame files and database of saved simulation folders,
// and optionally every NV21 frame rendered to PNG.
#include <cstdio>

#include "commands.h"
#include "fileio.h"
#include "pngio.h"
#include "progress.h"
#include "rawimage.h"
#include "simfolder.h"

namespace zoltool {

namespace {

std::string PngName(const std::string& frameFileName) {
    size_t dot = frameFileName.rfind('.');
    return (dot == std::string::npos ? frameFileName : frameFileName.substr(0, dot)) + ".png";
}

// A frame whose record is NV21 and whose file has the size the record calls for.
bool Renderable(const FrameReport& frame) {
    return frame.hasRecord && IsNv21Format(frame.format) && frame.status.rfind("ok", 0) == 0;
}

// Renders one frame; false with `error` set when the frame cannot be rendered.
bool RenderFrame(const FolderReport& report, const FrameReport& frame, const std::string& pngPath,
                 std::string& error) {
    const std::string path = JoinPath(report.path, frame.fileName);
    std::vector<uint8_t> raw;
    Nv21Image image;
    if (!ReadWholeFile(path, raw, error) ||
        !Nv21FromRaw(raw, frame.width, frame.height, path, image, error)) {
        return false;
    }
    return WritePng(pngPath, Nv21ToRgba(image), error);
}

}  // namespace

int RunInspect(const InspectOptions& options, const Streams& io) {
    std::vector<std::string> folders;
    std::string error;
    std::vector<std::string> others;
    if (!FindSaveFolders(options.path, folders, error, &others)) {
        std::fprintf(io.err, "zoltools inspect: %s\n", error.c_str());
        return kExitBadInput;
    }
    for (const std::string& other : others) {
        std::fprintf(io.err,
                     "zoltools inspect: note: %s is not a save folder, but a replay takes it in "
                     "turn like one\n",
                     other.c_str());
    }
    std::vector<FolderReport> reports;
    size_t problems = 0;
    size_t renderable = 0;
    for (const std::string& folder : folders) {
        reports.push_back(InspectSaveFolder(folder));
        const FolderReport& report = reports.back();
        std::fputs(FormatFolderReport(report).c_str(), io.out);
        for (const std::string& problem : report.problems) {
            std::fprintf(io.err, "zoltools inspect: %s\n", problem.c_str());
        }
        problems += report.problems.size();
        for (const FrameReport& f : report.frames) {
            renderable += Renderable(f) ? 1 : 0;
        }
    }
    std::fprintf(io.out, "%zu save folder%s, %zu problem%s\n", reports.size(),
                 reports.size() == 1 ? "" : "s", problems, problems == 1 ? "" : "s");

    if (!options.pngDir.empty()) {
        size_t written = 0;
        Progress progress(renderable, io.progress);
        for (const FolderReport& report : reports) {
            const std::string dir = JoinPath(options.pngDir, report.name);
            bool dirMade = false;
            for (const FrameReport& frame : report.frames) {
                if (!Renderable(frame)) {
                    continue;
                }
                progress.Step(report.name + "/" + frame.fileName);
                if (!dirMade && !MakeDirectories(dir, error)) {
                    progress.Clear();
                    std::fprintf(io.err, "zoltools inspect: %s\n", error.c_str());
                    return kExitBadInput;
                }
                dirMade = true;
                const std::string pngPath = JoinPath(dir, PngName(frame.fileName));
                if (!RenderFrame(report, frame, pngPath, error)) {
                    progress.Clear();
                    std::fprintf(io.err, "zoltools inspect: %s\n", error.c_str());
                    ++problems;
                    continue;
                }
                ++written;
            }
        }
        progress.Clear();
        std::fprintf(io.out, "%zu PNG%s written under %s\n", written, written == 1 ? "" : "s",
                     options.pngDir.c_str());
    }
    return problems == 0 ? kExitOk : kExitBadInput;
}

}  // namespace zoltool
