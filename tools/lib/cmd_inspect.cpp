// zoltools inspect: the request records, frame files and database of saved simulation folders,
// and optionally every NV21 frame rendered to PNG.
#include <cstdio>

#include "commands.h"
#include "fileio.h"
#include "pngio.h"
#include "progress.h"
#include "rawimage.h"
#include "simfolder.h"
#include "text.h"

namespace zoltool {

namespace {

void Complain(const Streams& io, const std::string& message) {
    std::fprintf(io.err, "zoltools inspect: %s\n", EscapeControls(message).c_str());
}

std::string PngName(const std::string& frameFileName) {
    size_t dot = frameFileName.rfind('.');
    return (dot == std::string::npos ? frameFileName : frameFileName.substr(0, dot)) + ".png";
}

// A frame whose record is NV21 and whose file has the size the record calls for.
bool Renderable(const FrameReport& frame) {
    return frame.hasRecord && IsNv21Format(frame.format) && frame.status.rfind("ok", 0) == 0;
}

}  // namespace

int RunInspect(const InspectOptions& options, const Streams& io) {
    std::vector<std::string> folders;
    std::string error;
    std::vector<std::string> others;
    if (!FindSaveFolders(options.path, folders, error, &others)) {
        Complain(io, error);
        return kExitBadInput;
    }
    for (const std::string& other : others) {
        Complain(
            io, "note: " + other + " is not a save folder, but a replay takes it in turn like one");
    }
    std::vector<FolderReport> reports;
    uint64_t problems = 0;
    size_t renderable = 0;
    for (const std::string& folder : folders) {
        reports.push_back(InspectSaveFolder(folder));
        const FolderReport& report = reports.back();
        std::fputs(FormatFolderReport(report).c_str(), io.out);
        for (const std::string& problem : report.problems.shown()) {
            Complain(io, problem);
        }
        if (report.problems.hidden() > 0) {
            Complain(io, report.path + ": " + Count(report.problems.hidden(), "more problem") +
                             " not shown");
        }
        problems += report.problems.count();
        for (const FrameReport& f : report.frames) {
            renderable += Renderable(f) ? 1U : 0U;
        }
    }
    std::fprintf(io.out, "%s, %s\n", Count(reports.size(), "save folder").c_str(),
                 Count(problems, "problem").c_str());

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
                progress.Step(EscapeControls(report.name + "/" + frame.fileName));
                if (!dirMade && !MakeDirectories(dir, error)) {
                    progress.Clear();
                    Complain(io, error);
                    return kExitBadInput;
                }
                dirMade = true;
                Nv21Image image;
                if (!ReadNv21File(JoinPath(report.path, frame.fileName), frame.width, frame.height,
                                  image, error) ||
                    !WritePng(JoinPath(dir, PngName(frame.fileName)),
                              RenderNv21(image, options.render), error)) {
                    progress.Clear();
                    Complain(io, error);
                    ++problems;
                    continue;
                }
                ++written;
            }
        }
        progress.Clear();
        std::fprintf(io.out, "%s written under %s%s\n", Count(written, "PNG").c_str(),
                     EscapeControls(options.pngDir).c_str(),
                     options.render == RenderMode::kAsLibrary ? " (as the library converts)" : "");
    }
    return problems == 0 ? kExitOk : kExitBadInput;
}

}  // namespace zoltool
