// zoltools report, inside: what the command gathers from a device dump (offline log lines, save
// folders and the frames it rendered from them) and the writer that turns that into one HTML
// page. The page is self-contained: inline CSS and SVG, no script, nothing fetched; every text
// that came from a file is escaped before it reaches the page.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "offlinelog.h"
#include "simfolder.h"
#include "zolofflinelog/internal/zolofflinelogformat.h"

namespace zoltool {

// Bounds that keep the page small whatever the dump holds.
constexpr size_t kMaxMarksPerLane = 1000;   // beyond it a lane is drawn as one bin per pixel
constexpr size_t kMaxLanes = 200;           // further threads share one last lane
constexpr size_t kMaxListedEvents = 50;     // errors and warnings listed with their context
constexpr size_t kContextLines = 3;         // lines of the same thread shown before each
constexpr size_t kMaxThumbnails = 48;       // frames rendered; the others are named only
constexpr size_t kMaxFolderSections = 100;  // save folders shown in full; the others by name
constexpr size_t kMaxTableRows = 16;        // records, frames, entries shown per save folder
constexpr size_t kMaxListedProblems = 500;
constexpr size_t kMaxShownLineBytes = zol::offlinelog::kLongestLine;  // what the library keeps

// What became of one frame file of a save folder.
struct ReportImage {
    std::string full;   // URL of the full PNG, relative to the page; empty when not rendered
    std::string thumb;  // URL of the thumbnail
    uint32_t thumbWidth = 0;
    uint32_t thumbHeight = 0;
    std::string note;  // why it was not rendered
};

struct ReportFolder {
    FolderReport report;
    int64_t timeNanos = -1;           // creation time from the name (StampNanos scale), or -1
    std::vector<ReportImage> images;  // one per report.frames entry
};

struct ReportData {
    std::string path;                   // what was given
    std::vector<std::string> logFiles;  // the offline log files read
    uint64_t logBytes = 0;
    std::vector<LogLine> lines;  // in stamp order, only those inside the shown range
    size_t linesRead = 0;        // before the range was applied
    bool ranged = false;         // --from or --to given
    int64_t from = 0;            // the shown range (StampNanos scale)
    int64_t to = 0;
    std::vector<ReportFolder> folders;
    std::vector<std::string> problems;  // damaged lines and folders, failed renderings
    std::vector<std::string> leftOut;   // frames beyond kMaxThumbnails, by folder/file
};

// The whole page.
std::string RenderReportPage(const ReportData& data);

// `text` made safe as HTML text or attribute value: markup characters as entities, control
// characters and bytes that are not UTF-8 as the visible text \xNN; cut to `limit` bytes
// (on a character boundary, with an ellipsis).
std::string HtmlText(std::string_view text, size_t limit = std::string_view::npos);

// A time of day with `digits` decimals of the second ("13:54:15.123"), from the StampNanos
// scale.
std::string TimeOfDay(int64_t nanos, int digits);

// The time of a save folder from its name (SimulationIntputInfo_MMDDhhmmssmmm), on the
// StampNanos scale, in the year of `reference` (the next one for an earlier month, as a log
// line's). -1 for any other name.
int64_t SaveFolderTime(const std::string& name, const LogStamp& reference);

}  // namespace zoltool
