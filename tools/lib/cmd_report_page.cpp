// The report page: summary, timeline, errors and warnings with the lines before them, save
// folders with their records and frames, counts, buffer memory per manager (when the log has the
// pool's stats lines), problems. Plain HTML with inline CSS and SVG;
// it runs no script and loads nothing but its own images, and its Content-Security-Policy
// forbids anything else, so that even a text the escaping missed could not run.
#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>

#include "cmd_report.h"
#include "poolstats.h"
#include "rawimage.h"
#include "trace.h"

namespace zoltool {

namespace {

constexpr auto& kLevels = zol::offlinelog::kLevelLetters;  // E 1, W 2, D 3, I 4, V 5
constexpr int64_t kSecond = 1000000000;

const char* LevelName(char level) {
    switch (level) {
        case 'E':
            return "error";
        case 'W':
            return "warning";
        case 'D':
            return "debug";
        case 'I':
            return "info";
        default:
            return "verbose";
    }
}

int LevelRank(char level) {
    const char* at = std::strchr(kLevels, level);
    return at == nullptr || level == '\0' ? 4 : static_cast<int>(at - kLevels);
}

__attribute__((format(printf, 2, 3))) void Add(std::string& out, const char* format, ...) {
    char buffer[512];
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    if (n > 0) {
        out.append(buffer, std::min<size_t>(static_cast<size_t>(n), sizeof(buffer) - 1));
    }
}

std::string Grouped(uint64_t n) {
    std::string digits = std::to_string(n);
    for (int at = static_cast<int>(digits.size()) - 3; at > 0; at -= 3) {
        digits.insert(static_cast<size_t>(at), ",");
    }
    return digits;
}

std::string Plural(uint64_t n, const char* one, const char* many) {
    return Grouped(n) + " " + (n == 1 ? one : many);
}

std::string Bytes(uint64_t n) {
    char text[32];
    if (n < 10000) {
        std::snprintf(text, sizeof(text), "%" PRIu64 " bytes", n);
    } else if (n < 10000000) {
        std::snprintf(text, sizeof(text), "%.1f kB", static_cast<double>(n) / 1e3);
    } else {
        std::snprintf(text, sizeof(text), "%.1f MB", static_cast<double>(n) / 1e6);
    }
    return text;
}

std::string Duration(int64_t ns) {
    char text[48];
    const double s = static_cast<double>(ns) / 1e9;
    if (ns >= 3600 * kSecond) {
        std::snprintf(text, sizeof(text), "%" PRId64 " h %02" PRId64 " min", ns / (3600 * kSecond),
                      ns / (60 * kSecond) % 60);
    } else if (ns >= 60 * kSecond) {
        std::snprintf(text, sizeof(text), "%" PRId64 " min %.1f s", ns / (60 * kSecond),
                      s - 60.0 * static_cast<double>(ns / (60 * kSecond)));
    } else if (ns >= kSecond) {
        std::snprintf(text, sizeof(text), "%.3f s", s);
    } else {
        std::snprintf(text, sizeof(text), "%.3f ms", s * 1e3);
    }
    return text;
}

std::string StampText(const LogStamp& s) {
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02d %02d:%02d:%02d.%03ld", s.year, s.month, s.day,
                  s.hour, s.minute, s.second, s.nanos / 1000000);
    return text;
}

using ThreadKey = std::pair<int, int>;  // pid, tid

// Lines grouped by thread, and where each line stands in its thread.
struct Threads {
    std::map<ThreadKey, std::vector<size_t>> lines;
    std::vector<size_t> position;  // per line: its index within its thread's list
};

Threads GroupByThread(const std::vector<LogLine>& lines) {
    Threads threads;
    threads.position.resize(lines.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        std::vector<size_t>& list = threads.lines[{lines[i].pid, lines[i].tid}];
        threads.position[i] = list.size();
        list.push_back(i);
    }
    return threads;
}

// The errors and warnings listed on the page: line index -> number (1-based).
std::map<size_t, size_t> ListedEvents(const std::vector<LogLine>& lines, size_t& total) {
    std::map<size_t, size_t> listed;
    total = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].level == 'E' || lines[i].level == 'W') {
            ++total;
            if (listed.size() < kMaxListedEvents) {
                listed.emplace(i, listed.size() + 1);
            }
        }
    }
    return listed;
}

const char* kStyle = R"css(
:root{--e:#d93025;--w:#e8a000;--d:#5f6b7a;--i:#1a73e8;--v:#aab2bd;--s:#8e44ad;--ink:#1f2933;
--mute:#66707c;--line:#e3e7ec;--bg:#f5f7fa}
*{box-sizing:border-box}
body{margin:0;font:14px/1.45 system-ui,-apple-system,"Segoe UI",Roboto,sans-serif;color:var(--ink);
background:var(--bg)}
header{background:#1f2933;color:#fff;padding:14px 28px}
header h1{margin:0;font-size:20px;font-weight:600}
header .path{margin:2px 0 8px;color:#c9d1d9;font-family:ui-monospace,monospace;font-size:13px;
word-break:break-all}
nav a{color:#9ecbff;margin-right:16px;text-decoration:none;font-size:13px}
main{padding:18px 28px 40px;max-width:1320px}
section{background:#fff;border:1px solid var(--line);border-radius:8px;padding:14px 18px;
margin:0 0 18px}
h2{font-size:16px;margin:0 0 10px}
h3{font-size:14px;margin:0 0 8px}
.note{color:var(--mute);margin:0 0 10px}
.cards{display:grid;grid-template-columns:repeat(auto-fill,minmax(170px,1fr));gap:10px}
.card{border:1px solid var(--line);border-radius:8px;padding:10px 12px;background:#fbfcfd}
.card .label{color:var(--mute);font-size:12px;text-transform:uppercase;letter-spacing:.04em}
.card .value{font-size:22px;font-weight:600;margin:2px 0}
.card .sub{color:var(--mute);font-size:12px;word-break:break-word}
.card.bad .value{color:var(--e)}
.chip{display:inline-block;padding:0 6px;border-radius:9px;color:#fff;font-size:11px;
font-weight:600;margin-right:3px}
.lv-E.chip,.badge.lv-E{background:var(--e)}.lv-W.chip,.badge.lv-W{background:var(--w)}
.lv-D.chip{background:var(--d)}.lv-I.chip{background:var(--i)}.lv-V.chip{background:var(--v)}
.empty{font-size:16px;padding:20px;text-align:center;color:var(--mute)}
svg{max-width:100%;height:auto;display:block}
svg text{font:11px system-ui,sans-serif;fill:var(--ink)}
.axis text{fill:var(--mute)}.grid{stroke:#eef1f4}
.lane-bg{fill:#f7f9fb}.lane-label{font-family:ui-monospace,monospace}
.m{fill:none;stroke-width:1.4}.m.lv-E,.m.lv-W{stroke-width:2}
.m.lv-E{stroke:var(--e)}.m.lv-W{stroke:var(--w)}.m.lv-D{stroke:var(--d)}
.m.lv-I{stroke:var(--i)}.m.lv-V{stroke:var(--v)}
.d1{opacity:.35}.d2{opacity:.55}.d3{opacity:.8}
.ev-num{font-weight:700;font-size:10px}.ev-num.lv-E{fill:var(--e)}.ev-num.lv-W{fill:#b07800}
.fmark line{stroke:var(--s);stroke-dasharray:3 3}.fmark text{fill:var(--s);font-weight:600}
.legend{display:flex;flex-wrap:wrap;gap:14px;color:var(--mute);font-size:12px;margin-top:8px}
.legend i{display:inline-block;width:10px;height:10px;border-radius:2px;margin-right:4px;
vertical-align:-1px}
ol.events{padding-left:0;list-style:none;margin:0}
.event{border-left:4px solid var(--w);padding:6px 10px;margin:0 0 10px;background:#fffaf0}
.event.lv-E{border-color:var(--e);background:#fff5f4}
.ev-head{font-size:12px;color:var(--mute);margin-bottom:4px}
.badge{color:#fff;border-radius:3px;padding:0 5px;font-weight:700;margin-right:6px}
pre{margin:0;font:12px/1.4 ui-monospace,SFMono-Regular,Menlo,monospace;white-space:pre-wrap;
word-break:break-all}
pre.ctx{color:#7b8794}pre.hit{font-weight:600}
.folder{border-top:1px solid var(--line);padding-top:12px;margin-top:12px}
.folder:first-of-type{border-top:0;margin-top:0;padding-top:0}
.fm-badge{color:#fff;background:var(--s);border-radius:3px;padding:0 5px;margin-right:6px}
.when{color:var(--mute);font-weight:400;margin-left:8px}
.folder-body{display:flex;flex-wrap:wrap;gap:8px 24px;align-items:flex-start}
.thumbs{display:flex;flex-wrap:wrap;gap:10px;margin:2px 0 6px;max-width:520px}
caption{text-align:left;color:var(--mute);padding-bottom:2px}
figure{margin:0;font-size:11px;color:var(--mute);max-width:244px}
figure img{display:block;border:1px solid var(--line);border-radius:4px;background:#000}
.nothumb{width:160px;height:90px;display:flex;align-items:center;justify-content:center;
text-align:center;border:1px dashed #c3cad3;border-radius:4px;padding:6px;color:var(--mute)}
table{border-collapse:collapse;font-size:12px;margin:4px 0 8px}
th,td{border-bottom:1px solid var(--line);padding:3px 10px 3px 0;text-align:right;
white-space:nowrap}
th{color:var(--mute);font-weight:600}
td.l,th.l{text-align:left}
td.bad{color:var(--e)}
.charts{display:flex;flex-wrap:wrap;gap:30px;align-items:flex-start}
.bar{fill:#7aa7d9}.bar.lv-E{fill:var(--e)}.bar.lv-W{fill:var(--w)}.bar.lv-D{fill:var(--d)}
.bar.lv-I{fill:var(--i)}.bar.lv-V{fill:var(--v)}
ul.problems{margin:0;padding-left:18px}
ul.problems li{font-family:ui-monospace,monospace;font-size:12px;margin:2px 0;word-break:break-all}
.ok{color:#1e8e3e}
footer{color:var(--mute);font-size:12px;padding:0 28px 20px}
)css";

// ---- summary ----

void Card(std::string& out, const char* figure, const char* label, const std::string& value,
          const std::string& sub, bool bad = false) {
    Add(out, "<div class=\"card%s\" data-figure=\"%s\"><div class=\"label\">%s</div>",
        bad ? " bad" : "", figure, label);
    out += "<div class=\"value\">" + value + "</div><div class=\"sub\">" + sub + "</div></div>\n";
}

void Summary(std::string& out, const ReportData& data, const Threads& threads) {
    std::set<int> pids;
    size_t perLevel[5] = {0, 0, 0, 0, 0};
    for (const LogLine& line : data.lines) {
        pids.insert(line.pid);
        ++perLevel[LevelRank(line.level)];
    }
    size_t frames = 0;
    for (const ReportFolder& folder : data.folders) {
        frames += folder.report.frames.size();
    }
    out += "<section id=\"summary\"><h2>Summary</h2>\n";
    if (data.ranged) {
        out += "<p class=\"note\">Shown: " + HtmlText(TimeOfDay(data.from, 3)) + " to " +
               HtmlText(TimeOfDay(data.to, 3)) + " (--from / --to), " + Grouped(data.lines.size()) +
               " of " + Plural(data.linesRead, "line", "lines") + ".</p>\n";
    }
    out += "<div class=\"cards\">\n";
    if (data.lines.empty()) {
        Card(out, "span", "Time span", "&ndash;", "no log lines");
    } else {
        const LogStamp& first = data.lines.front().stamp;
        const LogStamp& last = data.lines.back().stamp;
        Card(out, "span", "Time span", Duration(StampNanos(last) - StampNanos(first)),
             HtmlText(StampText(first)) + " to<br>" + HtmlText(StampText(last)));
    }
    std::string pidList;
    for (int pid : pids) {
        if (pidList.size() > 60) {
            pidList += " &hellip;";
            break;
        }
        pidList += (pidList.empty() ? "pid " : ", ") + std::to_string(pid);
    }
    Card(out, "processes", "Processes", Grouped(pids.size()), pidList);
    Card(out, "threads", "Threads", Grouped(threads.lines.size()),
         threads.lines.size() <= kMaxLanes
             ? "one timeline lane each"
             : "the busiest " + Grouped(kMaxLanes - 1) + " have a timeline lane each");
    std::string chips;
    for (int l = 0; l < 5; ++l) {
        Add(chips, "<span class=\"chip lv-%c\" title=\"%s\">%c %s</span>", kLevels[l],
            LevelName(kLevels[l]), kLevels[l], Grouped(perLevel[l]).c_str());
    }
    Card(out, "lines", "Log lines", Grouped(data.lines.size()), chips);
    Card(out, "files", "Log files", Grouped(data.logFiles.size()), Bytes(data.logBytes));
    Card(out, "folders", "Save folders", Grouped(data.folders.size()),
         Plural(frames, "frame", "frames") +
             (data.leftOut.empty() ? ""
                                   : ", <a href=\"#left-out\">" + Grouped(data.leftOut.size()) +
                                         " not rendered</a>"));
    Card(out, "problems", "Problems", Grouped(data.problems.size()),
         data.problems.empty() ? "none found" : "<a href=\"#problems\">see the list</a>",
         !data.problems.empty());
    out += "</div></section>\n";
}

// ---- timeline ----

constexpr int kGutter = 150;      // lane labels
constexpr int kPlotWidth = 1000;  // one pixel a bin when a lane is aggregated
constexpr int kLaneHeight = 20;
constexpr int kLanePitch = 23;
constexpr int kLanesTop = 40;

struct Lane {
    std::string label;  // "pid · tid", or "N other threads"
    std::string title;
    int pid = -1, tid = -1;  // -1 for the shared lane
    std::vector<size_t> lines;
};

std::vector<Lane> MakeLanes(const Threads& threads) {
    std::vector<std::pair<size_t, ThreadKey>> bySize;
    for (const auto& [key, list] : threads.lines) {
        bySize.emplace_back(list.size(), key);
    }
    std::set<ThreadKey> own;  // the busiest threads keep a lane of their own
    std::stable_sort(bySize.begin(), bySize.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    const size_t ownLanes = bySize.size() <= kMaxLanes ? bySize.size() : kMaxLanes - 1;
    for (size_t i = 0; i < ownLanes; ++i) {
        own.insert(bySize[i].second);
    }
    std::vector<Lane> lanes;
    Lane rest;
    size_t restThreads = 0;
    for (const auto& [key, list] : threads.lines) {
        if (own.count(key) == 0) {
            ++restThreads;
            rest.lines.insert(rest.lines.end(), list.begin(), list.end());
            continue;
        }
        Lane lane;
        lane.pid = key.first;
        lane.tid = key.second;
        lane.label = std::to_string(key.first) + " \xC2\xB7 " + std::to_string(key.second);
        lane.title = "pid " + std::to_string(key.first) + ", thread " + std::to_string(key.second) +
                     ": " + Plural(list.size(), "line", "lines");
        lane.lines = list;
        lanes.push_back(std::move(lane));
    }
    if (restThreads > 0) {
        std::sort(rest.lines.begin(), rest.lines.end());
        rest.label = Grouped(restThreads) + " other threads";
        rest.title =
            "the " + Plural(restThreads, "thread", "threads") +
            " with the fewest lines, together: " + Plural(rest.lines.size(), "line", "lines");
        lanes.push_back(std::move(rest));
    }
    return lanes;
}

struct Scale {
    int64_t from, to;
    double X(int64_t t) const {
        return kGutter +
               static_cast<double>(t - from) * kPlotWidth / static_cast<double>(to - from);
    }
    int Bin(int64_t t) const {
        return std::clamp(static_cast<int>(X(t)) - kGutter, 0, kPlotWidth - 1);
    }
};

// Vertical extent of a mark inside its lane: errors and warnings span the lane.
void MarkExtent(char level, int& top, int& height) {
    const bool loud = level == 'E' || level == 'W';
    top = loud ? 1 : 5;
    height = loud ? kLaneHeight - 2 : kLaneHeight - 10;
}

void LaneMarks(std::string& out, const Lane& lane, int y, const ReportData& data,
               const Scale& scale) {
    // Drawn from the quietest level up, so that errors and warnings lie on top.
    std::map<std::pair<int, int>, std::string> paths;  // (-rank, density) -> path data
    if (lane.lines.size() <= kMaxMarksPerLane) {
        for (size_t index : lane.lines) {
            const LogLine& line = data.lines[index];
            int top, height;
            MarkExtent(line.level, top, height);
            Add(paths[{-LevelRank(line.level), 0}], "M%.1f %dv%d", scale.X(StampNanos(line.stamp)),
                y + top, height);
        }
    } else {
        // One mark per pixel: the most severe level in it, darker the more lines it holds.
        std::vector<uint32_t> count(kPlotWidth, 0);
        std::vector<int> worst(kPlotWidth, 4);
        for (size_t index : lane.lines) {
            const LogLine& line = data.lines[index];
            const auto bin = static_cast<size_t>(scale.Bin(StampNanos(line.stamp)));
            ++count[bin];
            worst[bin] = std::min(worst[bin], LevelRank(line.level));
        }
        for (size_t bin = 0; bin < count.size(); ++bin) {
            if (count[bin] == 0) {
                continue;
            }
            const int density = count[bin] == 1    ? 1
                                : count[bin] < 10  ? 2
                                : count[bin] < 100 ? 3
                                                   : 4;
            int top, height;
            MarkExtent(kLevels[worst[bin]], top, height);
            Add(paths[{-worst[bin], density}], "M%d.5 %dv%d", kGutter + static_cast<int>(bin),
                y + top, height);
        }
    }
    for (const auto& [key, d] : paths) {
        Add(out, "<path class=\"m lv-%c", kLevels[-key.first]);
        if (key.second > 0 && key.second < 4) {
            Add(out, " d%d", key.second);
        }
        out += "\" d=\"" + d + "\"/>\n";
    }
}

void Timeline(std::string& out, const ReportData& data, const Threads& threads,
              const std::map<size_t, size_t>& listed) {
    const std::vector<Lane> lanes = MakeLanes(threads);
    const Scale scale{data.from, data.to};
    const int height = kLanesTop + static_cast<int>(lanes.size()) * kLanePitch + 6;
    const int width = kGutter + kPlotWidth + 40;
    out += "<section id=\"timeline\"><h2>Timeline</h2>\n<p class=\"note\">";
    out +=
        "One lane per process &middot; thread (labelled pid &middot; tid), a mark per line "
        "coloured by level; errors and warnings are drawn on top, and the numbered ones are "
        "listed below. Dashed purple lines are save folders being created. ";
    Add(out,
        "A lane of more than %zu lines is drawn as one mark per pixel, darker where more lines "
        "fall.",
        kMaxMarksPerLane);
    if (!data.ranged) {
        out += " Narrow the view with <code>--from</code> / <code>--to</code>.";
    }
    out += "</p>\n";
    Add(out,
        "<svg id=\"timeline-svg\" xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
        "viewBox=\"0 0 %d %d\" role=\"img\" aria-label=\"timeline\">\n",
        width, height, width, height);

    // Time axis: about eight ticks, at a step a clock reader expects (..., 0.5 s, 1 s, 2 s,
    // 5 s, 10 s, 15 s, 30 s, 1 min, ...).
    const int64_t span = data.to - data.from;
    int64_t step = 1;
    for (int64_t decade = 1; step * 8 < span && decade < kSecond; decade *= 10) {
        for (const int64_t times : {1, 2, 5, 10}) {
            step = decade * times;
            if (step * 8 >= span) {
                break;
            }
        }
    }
    for (const int64_t seconds :
         {2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200, 86400}) {
        if (step * 8 >= span) {
            break;
        }
        step = seconds * kSecond;
    }
    while (step * 8 < span) {
        step += 86400 * kSecond;
    }
    const int digits = step >= kSecond ? 0 : step >= 1000000 ? 3 : step >= 1000 ? 6 : 9;
    out += "<g class=\"axis\">\n";
    const int64_t firstTick = data.from + (step - (data.from % step + step) % step) % step;
    for (int64_t t = firstTick; t <= data.to; t += step) {
        const double x = scale.X(t);
        Add(out, "<line class=\"grid\" x1=\"%.1f\" x2=\"%.1f\" y1=\"%d\" y2=\"%d\"/>", x, x,
            kLanesTop - 4, height - 4);
        Add(out, "<text x=\"%.1f\" y=\"12\" text-anchor=\"middle\">%s</text>\n", x,
            TimeOfDay(t, digits).c_str());
    }
    out += "</g>\n";

    for (size_t i = 0; i < lanes.size(); ++i) {
        const Lane& lane = lanes[i];
        const int y = kLanesTop + static_cast<int>(i) * kLanePitch;
        if (lane.pid >= 0) {
            Add(out, "<g class=\"lane\" data-pid=\"%d\" data-tid=\"%d\"", lane.pid, lane.tid);
        } else {
            out += "<g class=\"lane others\"";
        }
        Add(out, " data-lines=\"%zu\"%s>\n", lane.lines.size(),
            lane.lines.size() > kMaxMarksPerLane ? " data-binned=\"1\"" : "");
        Add(out, "<rect class=\"lane-bg\" x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\"/>", kGutter,
            y, kPlotWidth, kLaneHeight);
        Add(out, "<text class=\"lane-label\" x=\"%d\" y=\"%d\" text-anchor=\"end\">%s<title>%s",
            kGutter - 6, y + 14, HtmlText(lane.label).c_str(), HtmlText(lane.title).c_str());
        out += lane.lines.size() > kMaxMarksPerLane ? " (one mark per pixel)" : "";
        out += "</title></text>\n";
        LaneMarks(out, lane, y, data, scale);
        // Numbers of the listed errors and warnings, where they do not overlap.
        double freeFrom = 0;
        for (size_t index : lane.lines) {
            const auto found = listed.find(index);
            if (found == listed.end()) {
                continue;
            }
            const LogLine& line = data.lines[index];
            const double x = scale.X(StampNanos(line.stamp));
            if (x < freeFrom) {
                continue;
            }
            Add(out,
                "<a href=\"#ev-%zu\"><text class=\"ev-num lv-%c\" x=\"%.1f\" y=\"%d\">%zu<title>",
                found->second, line.level, x + 3, y + 13, found->second);
            out += HtmlText(TimeOfDay(StampNanos(line.stamp), 6) + " " + line.message, 160) +
                   "</title></text></a>\n";
            freeFrom = x + 8 + 7 * static_cast<double>(std::to_string(found->second).size());
        }
        out += "</g>\n";
    }

    double freeFrom = 0;
    for (size_t i = 0; i < data.folders.size() && i < kMaxFolderSections; ++i) {
        const int64_t t = data.folders[i].timeNanos;
        if (t < data.from || t > data.to) {
            continue;
        }
        const double x = scale.X(t);
        Add(out,
            "<a class=\"fmark\" href=\"#folder-%zu\"><line x1=\"%.1f\" x2=\"%.1f\" y1=\"%d\" "
            "y2=\"%d\"/>",
            i + 1, x, x, kLanesTop - 16, height - 4);
        if (x >= freeFrom) {
            Add(out, "<text x=\"%.1f\" y=\"%d\">S%zu</text>", x + 3, kLanesTop - 8, i + 1);
            freeFrom = x + 30;
        }
        out += "<title>" + HtmlText(data.folders[i].report.name) + "</title></a>\n";
    }
    out += "</svg>\n<div class=\"legend\">";
    for (const char* level = kLevels; *level != '\0'; ++level) {
        Add(out, "<span><i style=\"background:var(--%c)\"></i>%c %s</span>", *level + 32, *level,
            LevelName(*level));
    }
    out += "<span><i style=\"background:var(--s)\"></i>S<i>n</i> save folder</span>";
    if (lanes.empty()) {
        out += "<span>no log lines in this range</span>";
    }
    out += "</div></section>\n";
}

// ---- errors and warnings ----

void ShownLine(std::string& out, const LogLine& line) {
    out += HtmlText(TimeOfDay(StampNanos(line.stamp), 6) + "  " + line.level + "  " + line.message,
                    kMaxShownLineBytes);
}

void Events(std::string& out, const ReportData& data, const Threads& threads,
            const std::map<size_t, size_t>& listed, size_t total) {
    out += "<section id=\"events\"><h2>Errors and warnings</h2>\n<p class=\"note\">";
    if (total == 0) {
        out += "None in these lines.</p></section>\n";
        return;
    }
    Add(out,
        "%s; %s listed, each after the %zu lines before it on the same thread.</p>\n<ol "
        "class=\"events\">\n",
        Plural(total, "error or warning", "errors and warnings").c_str(),
        total > listed.size() ? ("the first " + std::to_string(listed.size())).c_str() : "all",
        kContextLines);
    for (const auto& [index, number] : listed) {
        const LogLine& line = data.lines[index];
        const std::vector<size_t>& own = threads.lines.at({line.pid, line.tid});
        const size_t at = threads.position[index];
        const size_t first = at > kContextLines ? at - kContextLines : 0;
        Add(out,
            "<li id=\"ev-%zu\" class=\"event lv-%c\"><div class=\"ev-head\"><span class=\"badge "
            "lv-%c\">%zu %c</span>pid %d &middot; thread %d &middot; ",
            number, line.level, line.level, number, line.level, line.pid, line.tid);
        const size_t slash = line.file.rfind('/');
        out += HtmlText(slash == std::string::npos ? line.file : line.file.substr(slash + 1));
        Add(out, ":%zu</div>\n", line.lineNumber);
        if (first < at) {
            out += "<pre class=\"ctx\">";
            for (size_t k = first; k < at; ++k) {
                ShownLine(out, data.lines[own[k]]);
                out += k + 1 < at ? "\n" : "";
            }
            out += "</pre>\n";
        }
        out += "<pre class=\"hit\">";
        ShownLine(out, line);
        out += "</pre></li>\n";
    }
    out += "</ol></section>\n";
}

// ---- save folders ----

// The last row of a table cut to kMaxTableRows.
void MoreRows(std::string& out, size_t total, int columns) {
    if (total > kMaxTableRows) {
        Add(out, "<tr><td class=\"l\" colspan=\"%d\">&hellip; and %s more (not shown)</td></tr>\n",
            columns, Grouped(total - kMaxTableRows).c_str());
    }
}

void FolderTables(std::string& out, const FolderReport& r) {
    if (r.requestInfoBytes >= 0) {
        Add(out,
            "<table class=\"records\"><caption class=\"l\">requestInfo.bin: %" PRId64
            " bytes, %s</caption>\n",
            r.requestInfoBytes, Plural(r.records.size(), "record", "records").c_str());
        out +=
            "<tr><th>#</th><th class=\"l\">format</th><th>width</th><th>height</th>"
            "<th>stride</th><th>slice</th><th>planes</th><th>fd0..fd3</th></tr>\n";
        for (size_t i = 0; i < r.records.size() && i < kMaxTableRows; ++i) {
            const RequestRecord& rec = r.records[i];
            Add(out,
                "<tr><td>%zu</td><td class=\"l\">%u %s</td><td>%u</td><td>%u</td><td>%u</td>"
                "<td>%u</td><td>%u</td><td>%d %d %d %d</td></tr>\n",
                i, rec.format, FormatName(rec.format), rec.width, rec.height, rec.planeStride,
                rec.sliceHeight, rec.numberOfPlanes, rec.fd[0], rec.fd[1], rec.fd[2], rec.fd[3]);
        }
        MoreRows(out, r.records.size(), 8);
        out += "</table>\n";
    }
    if (!r.frames.empty()) {
        out +=
            "<table class=\"files\"><tr><th class=\"l\">frame file</th><th>expected</th>"
            "<th>actual</th><th class=\"l\">status</th></tr>\n";
        for (size_t i = 0; i < r.frames.size() && i < kMaxTableRows; ++i) {
            const FrameReport& f = r.frames[i];
            const bool ok = f.status.rfind("ok", 0) == 0;
            out += "<tr><td class=\"l\">" + HtmlText(f.fileName) + "</td><td>" +
                   (f.hasRecord ? Grouped(f.expected) : "-") + "</td><td>" +
                   (f.actual >= 0 ? Grouped(static_cast<uint64_t>(f.actual)) : "-") +
                   "</td><td class=\"l" + (ok ? "" : " bad") + "\">" + HtmlText(f.status) +
                   "</td></tr>\n";
        }
        MoreRows(out, r.frames.size(), 4);
        out += "</table>\n";
    }
    if (r.databaseBytes >= 0) {
        Add(out, "<p>database.bin: %s</p>\n",
            Plural(static_cast<uint64_t>(r.databaseBytes), "byte", "bytes").c_str());
    }
    for (size_t i = 0; i < r.otherFiles.size() && i < kMaxTableRows; ++i) {
        out += "<p>other entry: " + HtmlText(r.otherFiles[i]) + "</p>\n";
    }
    if (r.problems.count() > 0) {
        out += "<ul class=\"problems\">";
        for (const std::string& problem : r.problems.shown()) {
            out += "<li>" + HtmlText(problem, kMaxShownLineBytes) + "</li>";
        }
        if (r.problems.hidden() > 0) {
            Add(out, "<li>and %s more</li>",
                Plural(r.problems.hidden(), "problem", "problems").c_str());
        }
        out += "</ul>\n";
    }
}

// "<what>: a, b, c and N more." for a list that may be long.
void NameList(std::string& out, const char* what, const std::vector<std::string>& names) {
    if (names.empty()) {
        return;
    }
    out += std::string(what) + ": ";
    for (size_t i = 0; i < names.size() && i < kMaxListedProblems; ++i) {
        out += (i > 0 ? ", " : "") + HtmlText(names[i]);
    }
    if (names.size() > kMaxListedProblems) {
        out += " and " + Grouped(names.size() - kMaxListedProblems) + " more";
    }
    out += ". ";
}

void Folders(std::string& out, const ReportData& data) {
    out += "<section id=\"folders\"><h2>Save folders</h2>\n";
    if (data.folders.empty()) {
        out += "<p class=\"note\">No save folders here.</p></section>\n";
        return;
    }
    out +=
        "<p class=\"note\">Each saved invocation: its request records and frame files as "
        "<code>zoltools inspect</code> lists them, and every NV21 frame as "
        "<code>inspect --png</code> renders it (a thumbnail; click for the full PNG).</p>\n";
    for (size_t i = 0; i < data.folders.size() && i < kMaxFolderSections; ++i) {
        const ReportFolder& folder = data.folders[i];
        const std::string& name = folder.report.name;
        Add(out, "<div class=\"folder\" id=\"folder-%zu\"><h3><span class=\"fm-badge\">S%zu</span>",
            i + 1, i + 1);
        out += HtmlText(name);
        if (folder.timeNanos >= 0) {
            out += "<span class=\"when\">saved " + name.substr(name.size() - 13, 2) + "-" +
                   name.substr(name.size() - 11, 2) + " " + TimeOfDay(folder.timeNanos, 3) +
                   "</span>";
        }
        out += "</h3>\n<div class=\"folder-body\"><div class=\"thumbs\">";
        for (size_t f = 0; f < folder.images.size() && f < kMaxTableRows; ++f) {
            const FrameReport& frame = folder.report.frames[f];
            const ReportImage& image = folder.images[f];
            out += "<figure class=\"frame\">";
            if (!image.thumb.empty()) {
                Add(out,
                    "<a href=\"%s\"><img class=\"thumb\" src=\"%s\" width=\"%u\" height=\"%u\" "
                    "alt=\"",
                    HtmlText(image.full).c_str(), HtmlText(image.thumb).c_str(), image.thumbWidth,
                    image.thumbHeight);
                out += HtmlText(frame.fileName) + "\"></a>";
            } else {
                out += "<div class=\"nothumb\">" + HtmlText(image.note) + "</div>";
            }
            Add(out, "<figcaption>#%d &middot; %ux%u %s<br>", frame.index, frame.width,
                frame.height, frame.hasRecord ? FormatName(frame.format) : "");
            out += HtmlText(frame.fileName) + "</figcaption></figure>\n";
        }
        out += "</div>\n<div class=\"tables\">";
        FolderTables(out, folder.report);
        out += "</div></div></div>\n";
    }
    std::vector<std::string> unshown;
    for (size_t i = kMaxFolderSections; i < data.folders.size(); ++i) {
        unshown.push_back(data.folders[i].report.name);
    }
    if (!data.leftOut.empty() || !unshown.empty()) {
        Add(out,
            "<p class=\"note\" id=\"left-out\">To keep the page small, at most %zu frames are "
            "rendered (%zu a folder) and %zu save folders shown. ",
            kMaxThumbnails, kMaxTableRows, kMaxFolderSections);
        NameList(out, "Frames left out", data.leftOut);
        NameList(out, "Save folders left out (see <code>zoltools inspect</code>)", unshown);
        out += "</p>\n";
    }
    out += "</section>\n";
}

// ---- counts ----

struct Bar {
    std::string label;
    std::string cssClass;
    uint64_t value;
};

void BarChart(std::string& out, const char* id, const char* title, const std::vector<Bar>& bars) {
    constexpr int kLabel = 130, kBar = 300, kRow = 20;
    uint64_t most = 1;
    for (const Bar& bar : bars) {
        most = std::max(most, bar.value);
    }
    const int height = 24 + static_cast<int>(bars.size()) * kRow;
    Add(out,
        "<svg id=\"%s\" xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" "
        "viewBox=\"0 0 %d %d\"><text x=\"0\" y=\"14\" font-weight=\"600\">%s</text>\n",
        id, kLabel + kBar + 70, height, kLabel + kBar + 70, height, title);
    for (size_t i = 0; i < bars.size(); ++i) {
        const int y = 24 + static_cast<int>(i) * kRow;
        const double w =
            std::max(1.0, static_cast<double>(bars[i].value) * kBar / static_cast<double>(most));
        Add(out, "<text x=\"%d\" y=\"%d\" text-anchor=\"end\">", kLabel - 6, y + 13);
        out += HtmlText(bars[i].label) + "</text>";
        Add(out, "<rect class=\"bar %s\" x=\"%d\" y=\"%d\" width=\"%.1f\" height=\"%d\"/>",
            bars[i].cssClass.c_str(), kLabel, y + 2, w, kRow - 5);
        Add(out, "<text x=\"%.1f\" y=\"%d\">%s</text>\n", kLabel + w + 5, y + 13,
            Grouped(bars[i].value).c_str());
    }
    out += "</svg>\n";
}

void Counts(std::string& out, const ReportData& data, const Threads& threads) {
    constexpr size_t kThreadBars = 20;
    std::vector<Bar> levels;
    size_t perLevel[5] = {0, 0, 0, 0, 0};
    for (const LogLine& line : data.lines) {
        ++perLevel[LevelRank(line.level)];
    }
    for (int l = 0; l < 5; ++l) {
        levels.push_back({std::string(1, kLevels[l]) + " " + LevelName(kLevels[l]),
                          std::string("lv-") + kLevels[l], perLevel[l]});
    }
    std::vector<Bar> perThread;
    for (const auto& [key, list] : threads.lines) {
        perThread.push_back({std::to_string(key.first) + " \xC2\xB7 " + std::to_string(key.second),
                             "", list.size()});
    }
    std::stable_sort(perThread.begin(), perThread.end(),
                     [](const Bar& a, const Bar& b) { return a.value > b.value; });
    if (perThread.size() > kThreadBars) {
        uint64_t rest = 0;
        for (size_t i = kThreadBars - 1; i < perThread.size(); ++i) {
            rest += perThread[i].value;
        }
        const size_t others = perThread.size() - (kThreadBars - 1);
        perThread.resize(kThreadBars - 1);
        perThread.push_back({Grouped(others) + " other threads", "", rest});
    }
    out += "<section id=\"counts\"><h2>Counts</h2><div class=\"charts\">\n";
    BarChart(out, "chart-levels", "Lines per level", levels);
    BarChart(out, "chart-threads", "Lines per thread (pid \xC2\xB7 tid), busiest first", perThread);
    out += "</div></section>\n";
}

// ---- memory ----

// The bytes each manager holds over time, from the pool's stats lines: one line per process and
// manager name, on the timeline's time axis, busiest first. A series keeps one point per pixel
// column (the last), so a long log costs no more than a short one.
struct MemorySeries {
    std::string label;  // "pid · name"
    uint64_t peak = 0;
    std::vector<std::pair<int, uint64_t>> points;  // pixel column, bytes
};

std::vector<MemorySeries> MemoryOverTime(const ReportData& data, const Scale& scale,
                                         uint64_t& most) {
    std::map<std::pair<int, std::string>, MemorySeries> byManager;
    for (const LogLine& line : data.lines) {
        PoolStats stats;
        if (!ParsePoolStats(line.message, stats)) {
            continue;
        }
        const int column = scale.Bin(StampNanos(line.stamp));
        for (const auto& [name, bytes] : stats.managers) {
            MemorySeries& series = byManager[{line.pid, name}];
            series.peak = std::max(series.peak, bytes);
            if (!series.points.empty() && series.points.back().first == column) {
                series.points.back().second = bytes;
            } else {
                series.points.emplace_back(column, bytes);
            }
        }
    }
    std::vector<MemorySeries> all;
    most = 1;
    for (auto& [key, series] : byManager) {
        series.label = std::to_string(key.first) + " \xC2\xB7 " + key.second;
        most = std::max(most, series.peak);
        all.push_back(std::move(series));
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const MemorySeries& a, const MemorySeries& b) { return a.peak > b.peak; });
    return all;
}

void Memory(std::string& out, const ReportData& data, const std::vector<MemorySeries>& all,
            uint64_t most) {
    constexpr size_t kMaxSeries = 10;
    constexpr int kTop = 24, kHeight = 200, kLegendPitch = 18;
    static const char* const kColours[kMaxSeries] = {"#1f77b4", "#d62728", "#2ca02c", "#9467bd",
                                                     "#ff7f0e", "#17becf", "#8c564b", "#e377c2",
                                                     "#7f7f7f", "#bcbd22"};
    const size_t shown = std::min(all.size(), kMaxSeries);
    const int width = kGutter + kPlotWidth + 40;
    const int bottom = kTop + kHeight;
    const int height = bottom + 24 + static_cast<int>(shown) * kLegendPitch;
    out += "<section id=\"memory\"><h2>Buffer memory</h2>\n<p class=\"note\">";
    Add(out,
        "Bytes each buffer manager holds (process &middot; manager), from the pool's stats "
        "lines, on the timeline's time axis: the %zu busiest of %zu. <code>zoltools log "
        "--stats</code> lists the figures.</p>\n",
        shown, all.size());
    Add(out,
        "<svg id=\"chart-memory\" xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" "
        "height=\"%d\" viewBox=\"0 0 %d %d\" role=\"img\" aria-label=\"buffer memory\">\n",
        width, height, width, height);
    Add(out,
        "<line x1=\"%d\" y1=\"%d\" x2=\"%d\" y2=\"%d\" stroke=\"#c3cad3\"/>"
        "<text x=\"%d\" y=\"%d\" text-anchor=\"end\">%s</text>"
        "<text x=\"%d\" y=\"%d\" text-anchor=\"end\">0</text>\n",
        kGutter, bottom, kGutter + kPlotWidth, bottom, kGutter - 6, kTop + 4, Bytes(most).c_str(),
        kGutter - 6, bottom);
    Add(out,
        "<text x=\"%d\" y=\"%d\">%s</text><text x=\"%d\" y=\"%d\" text-anchor=\"end\">%s</text>\n",
        kGutter, bottom + 16, TimeOfDay(data.from, 3).c_str(), kGutter + kPlotWidth, bottom + 16,
        TimeOfDay(data.to, 3).c_str());
    for (size_t i = 0; i < shown; ++i) {
        Add(out, "<polyline fill=\"none\" stroke=\"%s\" stroke-width=\"1.5\" points=\"",
            kColours[i]);
        for (const auto& [column, bytes] : all[i].points) {
            Add(out, "%d,%.1f ", kGutter + column,
                bottom - static_cast<double>(bytes) * kHeight / static_cast<double>(most));
        }
        out += "\"/>\n";
        const int y = bottom + 24 + static_cast<int>(i) * kLegendPitch;
        Add(out, "<rect x=\"%d\" y=\"%d\" width=\"12\" height=\"3\" fill=\"%s\"/>", kGutter, y + 6,
            kColours[i]);
        Add(out, "<text x=\"%d\" y=\"%d\">", kGutter + 18, y + 11);
        out += HtmlText(all[i].label) + " (peak " + Bytes(all[i].peak) + ")</text>\n";
    }
    out += "</svg>\n</section>\n";
}

// ---- problems ----

void ProblemList(std::string& out, const ReportData& data) {
    out += "<section id=\"problems\"><h2>Problems</h2>\n";
    if (data.problems.empty()) {
        out +=
            "<p class=\"ok\">No problems found: every log line parsed and every save folder "
            "passed the checks of <code>zoltools inspect</code>.</p></section>\n";
        return;
    }
    Add(out,
        "<p class=\"note\">%s: damaged log lines, save folders that fail the checks of "
        "<code>zoltools inspect</code>, frames that could not be rendered.</p>\n<ul "
        "class=\"problems\">\n",
        Plural(data.problems.size(), "problem", "problems").c_str());
    for (size_t i = 0; i < data.problems.size() && i < kMaxListedProblems; ++i) {
        out += "<li>" + HtmlText(data.problems[i], kMaxShownLineBytes) + "</li>\n";
    }
    if (data.problems.size() > kMaxListedProblems) {
        out += "<li>and " + Grouped(data.problems.size() - kMaxListedProblems) + " more</li>\n";
    }
    out += "</ul></section>\n";
}

}  // namespace

std::string HtmlText(std::string_view text, size_t limit) {
    std::string out;
    const size_t end = std::min(limit, text.size());
    size_t pos = 0;
    while (pos < end) {
        const unsigned char c = static_cast<unsigned char>(text[pos]);
        const size_t length = Utf8Length(text, pos);
        if (length > 0 && pos + length > end) {
            break;  // the limit falls inside a character
        }
        switch (length == 0 ? 0 : c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&#39;";
                break;
            default:
                if (length == 0 || (c < 0x20 && c != '\n' && c != '\t') || c == 0x7F) {
                    Add(out, "\\x%02X", c);
                } else {
                    out.append(text.substr(pos, length));
                }
        }
        pos += std::max<size_t>(length, 1);
    }
    if (pos < text.size()) {
        out += "\xE2\x80\xA6";  // an ellipsis
    }
    return out;
}

std::string TimeOfDay(int64_t nanos, int digits) {
    constexpr int64_t kDay = 86400 * kSecond;
    const int64_t inDay = (nanos % kDay + kDay) % kDay;
    const int64_t seconds = inDay / kSecond;
    char text[32];
    std::snprintf(text, sizeof(text), "%02d:%02d:%02d.%09d", static_cast<int>(seconds / 3600),
                  static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60),
                  static_cast<int>(inDay % kSecond));
    // "hh:mm:ss" is 8 characters; then the point and the digits asked for.
    return std::string(text, digits <= 0 ? 8 : 9 + static_cast<size_t>(std::min(digits, 9)));
}

std::string RenderReportPage(const ReportData& data) {
    std::string out;
    out.reserve(1 << 20);
    out +=
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
        "img-src 'self' file: data:; style-src 'unsafe-inline'\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>"
        "zoltools report: " +
        HtmlText(data.path) + "</title>\n<style>" + kStyle + "</style></head>\n<body>\n";
    out += "<header><h1>zoltools report</h1><p class=\"path\">" + HtmlText(data.path) + "</p>";
    if (data.logFiles.empty() && data.folders.empty()) {
        out += "</header>\n<main><section id=\"summary\"><p id=\"empty\" class=\"empty\">" +
               HtmlText(data.path) +
               " is empty: it holds no offline log files and no save folders, so there is "
               "nothing to report.</p></section></main>\n</body></html>\n";
        return out;
    }
    out +=
        "<nav><a href=\"#summary\">Summary</a><a href=\"#timeline\">Timeline</a>"
        "<a href=\"#events\">Errors and warnings</a><a href=\"#folders\">Save folders</a>"
        "<a href=\"#counts\">Counts</a>";
    const Scale scale{data.from, std::max(data.to, data.from + 1)};
    uint64_t most = 0;
    const std::vector<MemorySeries> memory = MemoryOverTime(data, scale, most);
    if (!memory.empty()) {
        out += "<a href=\"#memory\">Buffer memory</a>";
    }
    out += "<a href=\"#problems\">Problems</a></nav></header>\n<main>\n";
    const Threads threads = GroupByThread(data.lines);
    size_t events = 0;
    const std::map<size_t, size_t> listed = ListedEvents(data.lines, events);
    Summary(out, data, threads);
    Timeline(out, data, threads, listed);
    Events(out, data, threads, listed, events);
    Folders(out, data);
    Counts(out, data, threads);
    if (!memory.empty()) {
        Memory(out, data, memory, most);
    }
    ProblemList(out, data);
    out +=
        "</main>\n<footer>Written by zoltools report. Times are the device's local time, as "
        "the offline log stamps them.</footer>\n</body></html>\n";
    return out;
}

}  // namespace zoltool
