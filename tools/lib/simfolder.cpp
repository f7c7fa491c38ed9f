#include "simfolder.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <map>

#include "fileio.h"
#include "rawimage.h"

namespace zoltool {

namespace {

// Larger than any sensor or stream a save could describe; a record beyond it is garbage.
constexpr uint32_t kMaxPlausibleDimension = 65536;
constexpr uint32_t kMaxFormatCode = 14;

uint32_t LoadU32(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

void StoreU32(std::vector<uint8_t>& out, uint32_t v) {
    uint8_t bytes[4];
    std::memcpy(bytes, &v, sizeof(v));
    out.insert(out.end(), bytes, bytes + 4);
}

const char* kRequestInfoName = "requestInfo.bin";
const char* kDatabaseName = "database.bin";
const char* kSaveFolderPrefix = "SimulationIntputInfo_";

}  // namespace

std::vector<RequestRecord> ParseRequestInfo(const std::vector<uint8_t>& bytes,
                                            const std::string& what,
                                            std::vector<std::string>& problems) {
    std::vector<RequestRecord> records;
    if (bytes.size() % kRequestRecordBytes != 0) {
        problems.push_back(what + ": " + std::to_string(bytes.size()) +
                           " bytes is not a whole number of 40-byte records");
    }
    for (size_t off = 0; off + kRequestRecordBytes <= bytes.size(); off += kRequestRecordBytes) {
        const uint8_t* p = bytes.data() + off;
        RequestRecord r;
        r.format = LoadU32(p);
        r.width = LoadU32(p + 4);
        r.height = LoadU32(p + 8);
        r.planeStride = LoadU32(p + 12);
        r.sliceHeight = LoadU32(p + 16);
        r.numberOfPlanes = LoadU32(p + 20);
        for (int i = 0; i < 4; ++i) {
            r.fd[i] = static_cast<int32_t>(LoadU32(p + 24 + 4 * i));
        }
        const std::string where = what + ": record " + std::to_string(records.size()) + ": ";
        if (r.format > kMaxFormatCode) {
            problems.push_back(where + "format " + std::to_string(r.format) +
                               " is not a format code (0 to 14)");
        }
        if (r.numberOfPlanes > 4) {
            problems.push_back(where + "numberOfPlanes " + std::to_string(r.numberOfPlanes) +
                               " (an image has at most 4)");
        }
        if (r.width > kMaxPlausibleDimension || r.height > kMaxPlausibleDimension ||
            r.planeStride > 4 * kMaxPlausibleDimension ||
            r.sliceHeight > 4 * kMaxPlausibleDimension) {
            problems.push_back(where + "size " + std::to_string(r.width) + "x" +
                               std::to_string(r.height) + ", stride " +
                               std::to_string(r.planeStride) + ", slice height " +
                               std::to_string(r.sliceHeight) + " is not a plausible image");
        }
        records.push_back(r);
    }
    return records;
}

std::vector<uint8_t> EncodeRequestInfo(const std::vector<RequestRecord>& records) {
    std::vector<uint8_t> out;
    for (const RequestRecord& r : records) {
        StoreU32(out, r.format);
        StoreU32(out, r.width);
        StoreU32(out, r.height);
        StoreU32(out, r.planeStride);
        StoreU32(out, r.sliceHeight);
        StoreU32(out, r.numberOfPlanes);
        for (int32_t fd : r.fd) {
            StoreU32(out, static_cast<uint32_t>(fd));
        }
    }
    return out;
}

bool ParseFrameFileName(const std::string& name, uint32_t& width, uint32_t& height, int& index) {
    unsigned w = 0, h = 0;
    int i = -1, consumed = 0;
    if (std::sscanf(name.c_str(), "inputFrameInfo_%ux%u_%d_.yuv%n", &w, &h, &i, &consumed) != 3 ||
        static_cast<size_t>(consumed) != name.size() || i < 0) {
        return false;
    }
    width = w;
    height = h;
    index = i;
    return true;
}

FolderReport InspectSaveFolder(const std::string& path) {
    FolderReport report;
    report.path = path;
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/') {
        trimmed.pop_back();
    }
    size_t slash = trimmed.rfind('/');
    report.name = slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);

    std::vector<std::string> names;
    std::string error;
    if (!ListDirectory(path, names, error)) {
        report.problems.push_back(error);
        return report;
    }

    const std::string requestPath = JoinPath(path, kRequestInfoName);
    report.requestInfoBytes = FileSize(requestPath);
    if (report.requestInfoBytes < 0) {
        report.problems.push_back(requestPath + ": missing");
    } else {
        std::vector<uint8_t> bytes;
        if (ReadWholeFile(requestPath, bytes, error)) {
            const size_t before = report.problems.size();
            report.records = ParseRequestInfo(bytes, requestPath, report.problems);
            report.recordsTrusted = report.problems.size() == before;
        } else {
            report.problems.push_back(error);
        }
    }
    report.databaseBytes = FileSize(JoinPath(path, kDatabaseName));
    if (report.databaseBytes < 0) {
        report.problems.push_back(JoinPath(path, kDatabaseName) + ": missing");
    }

    // Frame files found on disk, by index.
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
            report.problems.push_back(JoinPath(path, name) + ": a second frame file for buffer " +
                                      std::to_string(index));
            continue;
        }
        byIndex[index] = frame;
    }
    // Every record expects its frame file, named from its own size and index. Records of a
    // damaged request file say nothing about the frames.
    const size_t checked = report.recordsTrusted ? report.records.size() : 0;
    for (size_t i = 0; i < checked; ++i) {
        const RequestRecord& r = report.records[i];
        const int index = static_cast<int>(i);
        char expectedName[96];
        std::snprintf(expectedName, sizeof(expectedName), "inputFrameInfo_%ux%u_%d_.yuv", r.width,
                      r.height, index);
        FrameReport& frame = byIndex[index];
        frame.hasRecord = true;
        frame.format = r.format;
        frame.expected = RawFrameBytes(r.format, r.width, r.height);
        if (frame.index < 0) {
            frame.index = index;
            frame.fileName = expectedName;
            frame.width = r.width;
            frame.height = r.height;
            frame.status = "missing";
            report.problems.push_back(JoinPath(path, expectedName) + ": missing");
            continue;
        }
        if (frame.fileName != expectedName) {
            frame.status = "name does not match record";
            report.problems.push_back(JoinPath(path, frame.fileName) + ": record " +
                                      std::to_string(i) + " describes " + std::to_string(r.width) +
                                      "x" + std::to_string(r.height) + ", so the file should be " +
                                      expectedName);
        } else if (frame.actual < 0 || static_cast<uint64_t>(frame.actual) != frame.expected) {
            frame.status = "size mismatch";
            report.problems.push_back(
                JoinPath(path, frame.fileName) + ": " + std::to_string(frame.actual) +
                " bytes, but record " + std::to_string(i) + " (format " + std::to_string(r.format) +
                " " + FormatName(r.format) + ", " + std::to_string(r.width) + "x" +
                std::to_string(r.height) + ") needs " + std::to_string(frame.expected));
        } else {
            frame.status = index < kReplayedFrames ? "ok" : "ok, not replayed (index 3 or more)";
        }
        frame.width = r.width;
        frame.height = r.height;
    }
    for (auto& [index, frame] : byIndex) {
        if (!frame.hasRecord && report.recordsTrusted) {
            frame.status = "no record";
            report.problems.push_back(JoinPath(path, frame.fileName) + ": no record " +
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
        error = FileSize(path) >= 0 ? path +
                                          ": not a directory (expected a save folder, the "
                                          "algosimulation folder or a device root)"
                                    : path + ": no such directory";
        return false;
    }
    if (FileSize(JoinPath(path, kRequestInfoName)) >= 0) {
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
    std::string out;
    char line[512];
    out += report.name + "/\n";
    if (report.requestInfoBytes >= 0) {
        std::snprintf(line, sizeof(line), "  %s: %" PRId64 " bytes, %zu record%s\n",
                      kRequestInfoName, report.requestInfoBytes, report.records.size(),
                      report.records.size() == 1 ? "" : "s");
        out += line;
    }
    if (!report.records.empty()) {
        std::snprintf(line, sizeof(line), "  %3s  %-10s %6s %6s %6s %6s %6s  %s\n", "#", "format",
                      "width", "height", "stride", "slice", "planes", "fd0..fd3");
        out += line;
        for (size_t i = 0; i < report.records.size(); ++i) {
            const RequestRecord& r = report.records[i];
            const std::string format = std::to_string(r.format) + " " + FormatName(r.format);
            std::snprintf(line, sizeof(line), "  %3zu  %-10s %6u %6u %6u %6u %6u  %d %d %d %d\n", i,
                          format.c_str(), r.width, r.height, r.planeStride, r.sliceHeight,
                          r.numberOfPlanes, r.fd[0], r.fd[1], r.fd[2], r.fd[3]);
            out += line;
        }
    }
    if (!report.frames.empty()) {
        std::snprintf(line, sizeof(line), "  %-40s %10s %10s  %s\n", "frame file", "expected",
                      "actual", "status");
        out += line;
        for (const FrameReport& f : report.frames) {
            std::string expected = f.hasRecord ? std::to_string(f.expected) : "-";
            std::string actual = f.actual >= 0 ? std::to_string(f.actual) : "-";
            std::snprintf(line, sizeof(line), "  %-40s %10s %10s  %s\n", f.fileName.c_str(),
                          expected.c_str(), actual.c_str(), f.status.c_str());
            out += line;
        }
    }
    if (report.databaseBytes >= 0) {
        std::snprintf(line, sizeof(line), "  %s: %" PRId64 " bytes\n", kDatabaseName,
                      report.databaseBytes);
        out += line;
    }
    for (const std::string& name : report.otherFiles) {
        out += "  other entry: " + name + "\n";
    }
    return out;
}

}  // namespace zoltool
