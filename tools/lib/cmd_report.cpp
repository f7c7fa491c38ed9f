// zoltools report: everything a device dump holds on one page. It reads what `log` and
// `inspect` read (the offline log files and the save folders, through the same parsers and the
// same checks), renders each saved NV21 frame to a full PNG and a thumbnail beside the page,
// and writes DIR/index.html.
#include "cmd_report.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <memory>

#include "commands.h"
#include "fileio.h"
#include "pngio.h"
#include "progress.h"
#include "rawimage.h"
#include "trace.h"
#include "zolalgosimulation/internal/zolsavefoldernames.h"

namespace zoltool {

namespace {

constexpr char kMe[] = "zoltools report";
constexpr uint32_t kThumbWidth = 240;
constexpr uint32_t kThumbHeight = 180;
// A frame file larger than this (about 90 megapixels of NV21) is named, not rendered: the
// record's size comes from the file and is not trusted to fit in memory.
constexpr int64_t kMaxRenderedFrameBytes = int64_t{128} << 20;

// Box-filter reduction to fit within maxWidth x maxHeight (never enlarged).
RgbaImage Shrink(const RgbaImage& image, uint32_t maxWidth, uint32_t maxHeight) {
    const double scale =
        std::min({1.0, double(maxWidth) / image.width, double(maxHeight) / image.height});
    RgbaImage small;
    small.width = std::max<uint32_t>(1, static_cast<uint32_t>(image.width * scale));
    small.height = std::max<uint32_t>(1, static_cast<uint32_t>(image.height * scale));
    small.pixels.resize(size_t{small.width} * small.height * 4);
    for (uint32_t y = 0; y < small.height; ++y) {
        const uint64_t y0 = uint64_t{y} * image.height / small.height;
        const uint64_t y1 = std::max(y0 + 1, uint64_t{y + 1} * image.height / small.height);
        for (uint32_t x = 0; x < small.width; ++x) {
            const uint64_t x0 = uint64_t{x} * image.width / small.width;
            const uint64_t x1 = std::max(x0 + 1, uint64_t{x + 1} * image.width / small.width);
            uint64_t sum[4] = {0, 0, 0, 0};
            for (uint64_t sy = y0; sy < y1; ++sy) {
                const uint8_t* row = image.pixels.data() + (sy * image.width) * 4;
                for (uint64_t sx = x0; sx < x1; ++sx) {
                    for (size_t c = 0; c < 4; ++c) {
                        sum[c] += row[sx * 4 + c];
                    }
                }
            }
            const uint64_t n = (y1 - y0) * (x1 - x0);
            for (size_t c = 0; c < 4; ++c) {
                small.pixels[(size_t{y} * small.width + x) * 4 + c] =
                    static_cast<uint8_t>((sum[c] + n / 2) / n);
            }
        }
    }
    return small;
}

// A path component for a link: anything but letters, digits and "._-" percent-encoded.
std::string UrlPart(const std::string& name) {
    std::string out;
    for (const char ch : name) {
        const auto c = static_cast<unsigned char>(ch);
        if (std::isalnum(c) || c == '.' || c == '_' || c == '-') {
            out += static_cast<char>(c);
        } else {
            char hex[4];
            std::snprintf(hex, sizeof(hex), "%%%02X", c);
            out += hex;
        }
    }
    return out;
}

// The offline log that goes with PATH: PATH itself (a log folder, one log file or a device
// root), or the offlinelog folder beside the algosimulation folder that PATH is or lies in.
bool FindReportLog(const std::string& path, std::vector<std::string>& files) {
    std::string ignored;
    for (const char* relative : {"", "offlinelog", "../offlinelog", "../../offlinelog"}) {
        const std::string candidate = *relative == '\0' ? path : JoinPath(path, relative);
        if ((*relative == '\0' || IsDirectory(candidate)) &&
            FindLogFiles(candidate, files, ignored)) {
            return true;
        }
    }
    files.clear();
    return false;
}

// --from / --to: "MM-DD hh:mm:ss[.fraction]", or "hh:mm:ss[.fraction]" on the day of
// `reference`.
bool ParseTimeOption(const std::string& text, const LogStamp& reference, int64_t& nanos) {
    LogStamp s = reference;
    int month = s.month, day = s.day, consumed = 0;
    // A failed match may have stored some fields already: a time alone keeps the reference day.
    if (std::sscanf(text.c_str(), "%2d-%2d %2d:%2d:%2d%n", &month, &day, &s.hour, &s.minute,
                    &s.second, &consumed) != 5) {
        month = reference.month;
        day = reference.day;
        if (std::sscanf(text.c_str(), "%2d:%2d:%2d%n", &s.hour, &s.minute, &s.second, &consumed) !=
            3) {
            return false;
        }
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || s.hour < 0 || s.hour > 23 ||
        s.minute < 0 || s.minute > 59 || s.second < 0 || s.second > 60) {
        return false;
    }
    s.year += month < reference.month ? 1 : 0;
    s.month = month;
    s.day = day;
    s.nanos = 0;
    size_t pos = static_cast<size_t>(consumed);
    if (pos < text.size()) {
        if (text[pos] != '.' && text[pos] != ':') {
            return false;
        }
        long scale = 100000000;
        for (++pos; pos < text.size(); ++pos, scale /= 10) {
            if (text[pos] < '0' || text[pos] > '9' || scale == 0) {
                return false;
            }
            s.nanos += (text[pos] - '0') * scale;
        }
    }
    nanos = StampNanos(s);
    return true;
}

// The start of this year, for a dump without log lines to take the year from.
LogStamp ThisYear() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    LogStamp s;
    s.year = local.tm_year + 1900;
    s.month = 1;
    s.day = 1;
    return s;
}

void ReadLog(ReportData& data, const Streams& io) {
    std::vector<DamagedLine> damaged;
    Progress progress(data.logFiles.size(), io.progress);
    for (const std::string& file : data.logFiles) {
        progress.Step(file);
        std::string error;
        if (!ReadLogFile(file, data.lines, damaged, error)) {
            data.problems.push_back(error);
            continue;
        }
        data.logBytes += static_cast<uint64_t>(std::max<int64_t>(0, FileSize(file)));
    }
    SortLogLines(data.lines);
    data.linesRead = data.lines.size();
    for (const DamagedLine& d : damaged) {
        data.problems.push_back(d.Describe());
    }
}

// A frame `inspect --png` would render: NV21 by its record, and the size the record calls for.
bool Renderable(const FrameReport& frame) {
    return frame.hasRecord && IsNv21Format(frame.format) && frame.status.rfind("ok", 0) == 0;
}

bool RenderFrame(const ReportFolder& folder, const FrameReport& frame, const std::string& outDir,
                 ReportImage& image, std::string& error) {
    const std::string source = JoinPath(folder.report.path, frame.fileName);
    const std::string png = frame.fileName.substr(0, frame.fileName.rfind('.')) + ".png";
    std::vector<uint8_t> raw;
    Nv21Image nv21;
    if (!ReadWholeFile(source, raw, error) ||
        !Nv21FromRaw(raw, frame.width, frame.height, source, nv21, error)) {
        return false;
    }
    // As `inspect --png` renders it: the frame as the sensor gave it.
    const RgbaImage rgba = RenderNv21(nv21, RenderMode::kStandard);
    const RgbaImage thumb = Shrink(rgba, kThumbWidth, kThumbHeight);
    for (const char* kind : {"frames", "thumbs"}) {
        const std::string dir = JoinPath(JoinPath(outDir, kind), folder.report.name);
        if (!MakeDirectories(dir, error) ||
            !WritePng(JoinPath(dir, png), *kind == 'f' ? rgba : thumb, error)) {
            return false;
        }
    }
    const std::string url = UrlPart(folder.report.name) + "/" + UrlPart(png);
    image.full = "frames/" + url;
    image.thumb = "thumbs/" + url;
    image.thumbWidth = thumb.width;
    image.thumbHeight = thumb.height;
    return true;
}

void RenderFrames(ReportData& data, const std::string& outDir, const Streams& io) {
    size_t renderable = 0;
    for (const ReportFolder& folder : data.folders) {
        for (const FrameReport& frame : folder.report.frames) {
            renderable += Renderable(frame) ? 1U : 0U;
        }
    }
    Progress progress(std::min(renderable, kMaxThumbnails), io.progress);
    size_t rendered = 0;
    for (size_t k = 0; k < data.folders.size(); ++k) {
        ReportFolder& folder = data.folders[k];
        folder.images.resize(folder.report.frames.size());
        for (size_t i = 0; i < folder.report.frames.size() && k < kMaxFolderSections; ++i) {
            const FrameReport& frame = folder.report.frames[i];
            ReportImage& image = folder.images[i];
            if (!Renderable(frame)) {
                image.note = IsNv21Format(frame.format) || !frame.hasRecord
                                 ? frame.status
                                 : "format " + std::to_string(frame.format) + " " +
                                       FormatName(frame.format) + " is not rendered";
                continue;
            }
            if (frame.actual > kMaxRenderedFrameBytes) {
                image.note = "too large to render here";
                continue;
            }
            if (rendered == kMaxThumbnails || i >= kMaxTableRows) {
                image.note = "left out";
                data.leftOut.push_back(folder.report.name + "/" + frame.fileName);
                continue;
            }
            ++rendered;
            progress.Step(folder.report.name + "/" + frame.fileName);
            std::string error;
            if (!RenderFrame(folder, frame, outDir, image, error)) {
                image.note = "could not be rendered";
                data.problems.push_back(error);
            }
        }
    }
}

}  // namespace

int64_t SaveFolderTime(const std::string& name, const LogStamp& reference) {
    constexpr auto& kPrefix = zol::algosim::kSaveFolderPrefix;
    const size_t start = sizeof(kPrefix) - 1;
    if (name.size() != start + 13 || name.compare(0, start, kPrefix) != 0 ||
        name.find_first_not_of("0123456789", start) != std::string::npos) {
        return -1;
    }
    const auto field = [&](size_t at, size_t count) { return std::stoi(name.substr(at, count)); };
    LogStamp s;
    s.month = field(start, 2);
    s.year = reference.year + (s.month < reference.month ? 1 : 0);
    s.day = field(start + 2, 2);
    s.hour = field(start + 4, 2);
    s.minute = field(start + 6, 2);
    s.second = field(start + 8, 2);
    s.nanos = field(start + 10, 3) * 1000000L;
    if (s.month < 1 || s.month > 12 || s.day < 1 || s.day > 31 || s.hour > 23 || s.minute > 59 ||
        s.second > 60) {
        return -1;
    }
    return StampNanos(s);
}

int RunReport(const ReportOptions& options, const Streams& io) {
    if (!IsDirectory(options.path) && FileSize(options.path) < 0) {
        std::fprintf(io.err, "%s: %s: no such file or directory\n", kMe, options.path.c_str());
        return kExitBadInput;
    }
    std::string error;
    if (!MakeDirectories(options.outDir, error)) {
        std::fprintf(io.err, "%s: cannot write the report: %s\n", kMe, error.c_str());
        return kExitBadInput;
    }
    ReportData data;
    data.path = options.path;
    if (FindReportLog(options.path, data.logFiles)) {
        ReadLog(data, io);
    }

    // The shown range; a time of day alone is taken on the day of the first line. Dates carry
    // no year: a month earlier than the first line's is in the next year, as for the lines.
    const LogStamp reference = data.lines.empty() ? ThisYear() : data.lines.front().stamp;
    int64_t from = INT64_MIN, to = INT64_MAX;
    for (const auto& [text, value] :
         {std::make_pair(&options.from, &from), std::make_pair(&options.to, &to)}) {
        if (!text->empty() && !ParseTimeOption(*text, reference, *value)) {
            std::fprintf(io.err,
                         "%s: \"%s\" is not a time (hh:mm:ss or MM-DD hh:mm:ss, with an "
                         "optional .fraction)\n",
                         kMe, text->c_str());
            return kExitUsage;
        }
    }
    if (from > to) {
        std::fprintf(io.err, "%s: --from is later than --to\n", kMe);
        return kExitUsage;
    }
    data.ranged = !options.from.empty() || !options.to.empty();
    data.lines.erase(std::remove_if(data.lines.begin(), data.lines.end(),
                                    [&](const LogLine& line) {
                                        const int64_t t = StampNanos(line.stamp);
                                        return t < from || t > to;
                                    }),
                     data.lines.end());

    std::vector<std::string> folders, others;
    if (FindSaveFolders(options.path, folders, error, &others)) {
        for (const std::string& other : others) {
            data.problems.push_back(
                other + " is not a save folder, but a replay takes it in turn like one");
        }
    }
    for (const std::string& path : folders) {
        ReportFolder folder;
        folder.report = InspectSaveFolder(path);
        folder.timeNanos = SaveFolderTime(folder.report.name, reference);
        for (const std::string& problem : folder.report.problems.shown()) {
            data.problems.push_back(problem);
        }
        if (folder.report.problems.hidden() > 0) {
            data.problems.push_back(folder.report.name + ": " +
                                    std::to_string(folder.report.problems.hidden()) +
                                    " more problems not listed");
        }
        data.folders.push_back(std::move(folder));
    }

    // The timeline spans the range asked for, or else the lines and the save folders.
    data.from = from;
    data.to = to;
    if (from == INT64_MIN || to == INT64_MAX) {
        int64_t first = INT64_MAX, last = INT64_MIN;
        for (const LogLine& line : data.lines) {
            first = std::min(first, StampNanos(line.stamp));
            last = std::max(last, StampNanos(line.stamp));
        }
        for (const ReportFolder& folder : data.folders) {
            if (folder.timeNanos >= 0 && folder.timeNanos >= from && folder.timeNanos <= to) {
                first = std::min(first, folder.timeNanos);
                last = std::max(last, folder.timeNanos);
            }
        }
        if (first > last) {
            first = last = StampNanos(reference);
        }
        data.from = from == INT64_MIN ? first : from;
        data.to = to == INT64_MAX ? last : to;
    }
    // A single moment (or nothing inside the range) is shown as the millisecond around it,
    // keeping a time that was asked for.
    constexpr int64_t kMillisecond = 1000000;
    if (data.to - data.from < kMillisecond) {
        if (from != INT64_MIN) {
            data.to = data.from + kMillisecond;
        } else if (to != INT64_MAX) {
            data.from = data.to - kMillisecond;
        } else {
            data.from -= (kMillisecond - (data.to - data.from)) / 2;
            data.to = data.from + kMillisecond;
        }
    } else if (!data.ranged) {  // a margin, so that the first and last marks stand clear
        const int64_t margin = (data.to - data.from) / 50;
        data.from -= margin;
        data.to += margin;
    }

    RenderFrames(data, options.outDir, io);
    const std::string page = RenderReportPage(data);
    const std::string pagePath = JoinPath(options.outDir, "index.html");
    if (!WriteWholeFile(pagePath, std::vector<uint8_t>(page.begin(), page.end()), error)) {
        std::fprintf(io.err, "%s: cannot write the report: %s\n", kMe, error.c_str());
        return kExitBadInput;
    }
    if (data.logFiles.empty() && data.folders.empty()) {
        std::fprintf(io.err, "%s: %s is empty: no offline log files and no save folders (%s)\n",
                     kMe, options.path.c_str(), pagePath.c_str());
        return kExitBadInput;
    }
    size_t frames = 0;
    for (const ReportFolder& folder : data.folders) {
        frames += folder.report.frames.size();
    }
    std::fprintf(io.out,
                 "%s: %zu log line%s from %zu file%s, %zu save folder%s, %zu frame%s, %zu "
                 "problem%s\n",
                 pagePath.c_str(), data.lines.size(), data.lines.size() == 1 ? "" : "s",
                 data.logFiles.size(), data.logFiles.size() == 1 ? "" : "s", data.folders.size(),
                 data.folders.size() == 1 ? "" : "s", frames, frames == 1 ? "" : "s",
                 data.problems.size(), data.problems.size() == 1 ? "" : "s");
    return kExitOk;
}

}  // namespace zoltool
