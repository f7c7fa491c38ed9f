#include "simfolder.h"

#include <cstdio>
#include <map>
#include <string>
#include <utility>

#include "fileio.h"
#include "platform/uniquefd.h"
#include "rawimage.h"
#include "zolalgosimulation/internal/zolsavefoldernames.h"
#include "zolbufferutil/internal/zolplanegeometry.h"

namespace zoltool {

using zol::algosim::kDatabaseName;
using zol::algosim::kFrameFileFormat;
using zol::algosim::kRequestInfoName;
using zol::algosim::kSaveFolderPrefix;

namespace {

// Larger than any sensor or stream a save could describe; a record beyond it is garbage.
constexpr uint32_t kMaxPlausibleDimension = 65536;
constexpr uint32_t kMaxFormatCode = zol::kRawFormatCount - 1;

void CheckRecord(const RequestRecord& r, const std::string& where, Problems& problems) {
    if (r.format > kMaxFormatCode) {
        problems.Add(where + "format " + std::to_string(r.format) +
                     " is not a format code (0 to 14)");
    }
    if (r.numberOfPlanes > 4) {
        problems.Add(where + "numberOfPlanes " + std::to_string(r.numberOfPlanes) +
                     " (an image has at most 4)");
    }
    if (r.width == 0 || r.height == 0) {
        problems.Add(where + "size " + std::to_string(r.width) + "x" + std::to_string(r.height) +
                     " is not an image");
    } else if (r.width > kMaxPlausibleDimension || r.height > kMaxPlausibleDimension ||
               r.planeStride > 4 * kMaxPlausibleDimension ||
               r.sliceHeight > 4 * kMaxPlausibleDimension) {
        problems.Add(where + "size " + std::to_string(r.width) + "x" + std::to_string(r.height) +
                     ", stride " + std::to_string(r.planeStride) + ", slice height " +
                     std::to_string(r.sliceHeight) + " is not a plausible image");
    } else if (r.planeStride < RawRowBytes(r.format, r.width)) {
        problems.Add(where + "stride " + std::to_string(r.planeStride) +
                     " is shorter than a row (" + std::to_string(RawRowBytes(r.format, r.width)) +
                     " bytes at width " + std::to_string(r.width) + ", format " +
                     std::to_string(r.format) + " " + FormatName(r.format) + ")");
    }
}

}  // namespace

bool ReadRequestInfo(const std::string& path, RequestInfo& info, std::string& error) {
    info = RequestInfo();
    const std::string why = WhyNotAFile(path);
    if (!why.empty()) {
        error = path + ": " + why;
        return false;
    }
    zol::UniqueFile file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        error = path + ": cannot open: " + ErrnoText();
        return false;
    }
    // Whole records per read, so a record never straddles two chunks.
    uint8_t chunk[kRequestRecordBytes * 1024];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof(chunk), file.get())) > 0) {
        info.bytes += got;
        for (size_t off = 0; off + kRequestRecordBytes <= got; off += kRequestRecordBytes) {
            const RequestRecord r = zol::algosim::DecodeRequestRecord(chunk + off);
            CheckRecord(r, path + ": record " + std::to_string(info.recordCount) + ": ",
                        info.problems);
            if (info.records.size() < RequestInfo::kKeptRecords) {
                info.records.push_back(r);
            }
            ++info.recordCount;
        }
        if (got % kRequestRecordBytes != 0) {
            break;  // a short read happens only at the end of the file
        }
    }
    if (std::ferror(file.get())) {
        error = path + ": read error: " + ErrnoText();
        return false;
    }
    if (info.bytes % kRequestRecordBytes != 0) {
        info.problems.Add(path + ": " + Count(info.bytes, "byte") +
                          " is not a whole number of 40-byte records");
    }
    if (info.recordCount > RequestInfo::kKeptRecords) {
        info.problems.Add(path + ": " + Count(info.recordCount, "record") +
                          ", more buffers than a request has (only the first " +
                          std::to_string(RequestInfo::kKeptRecords) + " are looked at)");
    }
    return true;
}

std::vector<uint8_t> EncodeRequestInfo(const std::vector<RequestRecord>& records) {
    std::vector<uint8_t> out;
    for (const RequestRecord& r : records) {
        uint8_t bytes[kRequestRecordBytes];
        zol::algosim::EncodeRequestRecord(r, bytes);
        out.insert(out.end(), bytes, bytes + kRequestRecordBytes);
    }
    return out;
}

bool ParseFrameFileName(const std::string& name, uint32_t& width, uint32_t& height, int& index) {
    int w = 0, h = 0, i = -1, consumed = 0;
    // The whole name must match: %n tells where the format ended.
    static const std::string format = std::string(kFrameFileFormat) + "%n";
    if (std::sscanf(name.c_str(), format.c_str(), &w, &h, &i, &consumed) != 3 ||
        static_cast<size_t>(consumed) != name.size() || i < 0) {
        return false;
    }
    width = static_cast<uint32_t>(w);
    height = static_cast<uint32_t>(h);
    index = i;
    return true;
}

namespace {

// The folder's own name: the last part of `path`, trailing slashes aside.
std::string FolderName(const std::string& path) {
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/') {
        trimmed.pop_back();
    }
    const size_t slash = trimmed.rfind('/');
    return slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
}

// requestInfo.bin and database.bin: the records, their count, and whether they can be trusted.
void ReadRecordFiles(const std::string& path, FolderReport& report) {
    RequestInfo request;
    std::string error;
    if (ReadRequestInfo(JoinPath(path, kRequestInfoName), request, error)) {
        report.requestInfoBytes = static_cast<int64_t>(request.bytes);
        report.records = std::move(request.records);
        report.recordCount = request.recordCount;
        report.recordsTrusted = request.problems.count() == 0;
        report.problems.Merge(request.problems);
    } else {
        report.problems.Add(error);
    }
    const std::string databasePath = JoinPath(path, kDatabaseName);
    report.databaseBytes = FileSize(databasePath);
    if (report.databaseBytes < 0) {
        report.problems.Add(databasePath + ": " + WhyNotAFile(databasePath));
    }
}

// The frame files found on disk, by index; every other entry goes to report.otherFiles.
std::map<int, FrameReport> FramesOnDisk(const std::string& path,
                                        const std::vector<std::string>& names,
                                        FolderReport& report) {
    std::map<int, FrameReport> byIndex;
    for (const std::string& name : names) {
        uint32_t w, h;
        int index;
        if (name == kRequestInfoName || name == kDatabaseName) {
            continue;
        }
        if (!ParseFrameFileName(name, w, h, index)) {
            report.otherFiles.push_back(name);
            continue;
        }
        FrameReport frame;
        frame.index = index;
        frame.fileName = name;
        frame.width = w;
        frame.height = h;
        frame.actual = FileSize(JoinPath(path, name));
        if (byIndex.count(index) != 0) {
            report.otherFiles.push_back(name);  // a second file for the same buffer index
            report.problems.Add(JoinPath(path, name) + ": a second frame file for buffer " +
                                std::to_string(index));
            continue;
        }
        byIndex[index] = frame;
    }
    return byIndex;
}

// Record `index` expects its frame file, named from its own size and index: `frame` is the
// file found for that index (index -1 when there is none).
void CheckRecordedFrame(const std::string& path, const RequestRecord& r, int index,
                        FrameReport& frame, Problems& problems) {
    char expectedName[96];
    std::snprintf(expectedName, sizeof(expectedName), kFrameFileFormat, static_cast<int>(r.width),
                  static_cast<int>(r.height), index);
    frame.hasRecord = true;
    frame.format = r.format;
    frame.expected = RawFrameBytes(r.format, r.width, r.height);
    if (frame.index < 0) {
        frame.index = index;
        frame.fileName = expectedName;
        frame.width = r.width;
        frame.height = r.height;
        frame.status = "missing";
        problems.Add(JoinPath(path, expectedName) + ": missing");
        return;
    }
    const std::string framePath = JoinPath(path, frame.fileName);
    const std::string record = "record " + std::to_string(index);
    if (frame.fileName != expectedName) {
        frame.status = "name does not match record";
        problems.Add(framePath + ": " + record + " describes " + std::to_string(r.width) + "x" +
                     std::to_string(r.height) + ", so the file should be " + expectedName);
    } else if (frame.actual < 0) {
        frame.status = "not a file";
        problems.Add(framePath + ": " + WhyNotAFile(framePath));
    } else if (static_cast<uint64_t>(frame.actual) != frame.expected) {
        frame.status = "size mismatch";
        problems.Add(framePath + ": " + Count(static_cast<uint64_t>(frame.actual), "byte") +
                     ", but " + record + " (format " + std::to_string(r.format) + " " +
                     FormatName(r.format) + ", " + std::to_string(r.width) + "x" +
                     std::to_string(r.height) + ") needs " + std::to_string(frame.expected));
    } else {
        frame.status = index < kReplayedFrames ? "ok" : "ok, not replayed (index 3 or more)";
    }
    frame.width = r.width;
    frame.height = r.height;
}

}  // namespace

FolderReport InspectSaveFolder(const std::string& path) {
    FolderReport report;
    report.path = path;
    report.name = FolderName(path);
    std::vector<std::string> names;
    std::string error;
    if (!ListDirectory(path, names, error)) {
        report.problems.Add(error);
        return report;
    }
    ReadRecordFiles(path, report);
    std::map<int, FrameReport> byIndex = FramesOnDisk(path, names, report);
    // Records of a damaged request file say nothing about the frames.
    const size_t checked = report.recordsTrusted ? report.records.size() : 0;
    for (size_t i = 0; i < checked; ++i) {
        const int index = static_cast<int>(i);
        CheckRecordedFrame(path, report.records[i], index, byIndex[index], report.problems);
    }
    for (auto& [index, frame] : byIndex) {
        if (!frame.hasRecord && report.recordsTrusted) {
            frame.status = "no record";
            report.problems.Add(JoinPath(path, frame.fileName) + ": no record " +
                                std::to_string(index) + " in " + kRequestInfoName);
        } else if (!frame.hasRecord) {
            frame.status = "not checked";
        }
        report.frames.push_back(frame);
    }
    return report;
}

bool FindSaveFolders(const std::string& pathArg, std::vector<std::string>& folders,
                     std::string& error, std::vector<std::string>* others) {
    const std::string path = pathArg;  // may be an element of `folders`
    folders.clear();
    if (!IsDirectory(path)) {
        const std::string kind = FileKind(path);
        error = path + (kind.empty() ? ": no such directory"
                                     : ": is " + kind +
                                           ", not a directory (expected a save folder, the "
                                           "algosimulation folder or a device root)");
        return false;
    }
    // A save folder holds requestInfo.bin (whatever that turns out to be).
    if (!FileKind(JoinPath(path, kRequestInfoName)).empty()) {
        folders.push_back(path);
        return true;
    }
    std::string base = path;
    const std::string underRoot = JoinPath(path, "data/vendor/camera/algosimulation");
    if (IsDirectory(underRoot)) {
        base = underRoot;
    }
    std::vector<std::string> names;
    if (!ListDirectory(base, names, error)) {
        return false;
    }
    for (const std::string& name : names) {
        const std::string full = JoinPath(base, name);
        if (name.rfind(kSaveFolderPrefix, 0) == 0 && IsDirectory(full)) {
            folders.push_back(full);
        } else if (others != nullptr && name[0] != '.') {
            others->push_back(full);
        }
    }
    if (folders.empty()) {
        error = path + ": no save folders (" + kSaveFolderPrefix + "...) and no " +
                kRequestInfoName + " here";
        return false;
    }
    return true;
}

std::string FormatFolderReport(const FolderReport& report) {
    constexpr size_t kShownRecords = 16;
    std::string out;
    char line[512];
    out += EscapeControls(report.name) + "/\n";
    if (report.requestInfoBytes >= 0) {
        out += std::string("  ") + kRequestInfoName + ": " +
               Count(static_cast<uint64_t>(report.requestInfoBytes), "byte") + ", " +
               Count(report.recordCount, "record") + "\n";
    }
    if (!report.records.empty()) {
        std::snprintf(line, sizeof(line), "  %3s  %-10s %6s %6s %6s %6s %6s  %s\n", "#", "format",
                      "width", "height", "stride", "slice", "planes", "fd0..fd3");
        out += line;
        for (size_t i = 0; i < report.records.size() && i < kShownRecords; ++i) {
            const RequestRecord& r = report.records[i];
            const std::string format = std::to_string(r.format) + " " + FormatName(r.format);
            std::snprintf(line, sizeof(line), "  %3zu  %-10s %6u %6u %6u %6u %6u  %d %d %d %d\n", i,
                          format.c_str(), r.width, r.height, r.planeStride, r.sliceHeight,
                          r.numberOfPlanes, r.fd[0], r.fd[1], r.fd[2], r.fd[3]);
            out += line;
        }
        if (report.recordCount > kShownRecords) {
            out += "  ... " + Count(report.recordCount - kShownRecords, "more record") + "\n";
        }
    }
    if (!report.frames.empty()) {
        std::snprintf(line, sizeof(line), "  %-40s %10s %10s  %s\n", "frame file", "expected",
                      "actual", "status");
        out += line;
        for (const FrameReport& f : report.frames) {
            std::string expected = f.hasRecord ? std::to_string(f.expected) : "-";
            std::string actual = f.actual >= 0 ? std::to_string(f.actual) : "-";
            std::snprintf(line, sizeof(line), "  %-40s %10s %10s  %s\n",
                          EscapeControls(f.fileName).c_str(), expected.c_str(), actual.c_str(),
                          f.status.c_str());
            out += line;
        }
    }
    if (report.databaseBytes >= 0) {
        out += std::string("  ") + kDatabaseName + ": " +
               Count(static_cast<uint64_t>(report.databaseBytes), "byte") + "\n";
    }
    for (const std::string& name : report.otherFiles) {
        out += "  other entry: " + EscapeControls(name) + "\n";
    }
    return out;
}

}  // namespace zoltool
