// Reading what the algorithm simulation saved: the request record file (requestInfo.bin, one
// 40-byte native-order record per input buffer), the frame files
// (inputFrameInfo_<W>x<H>_<index>_.yuv) and the database block (database.bin) of each save
// folder (SimulationIntputInfo_<MMDDhhmmssmmm>/) under the base folder
// (data/vendor/camera/algosimulation/ of a device root).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "text.h"
#include "zolalgosimulation/internal/zolrequestrecord.h"

namespace zoltool {

// One record of requestInfo.bin, as the library lays it out. The descriptors are the saving
// process's numbers, kept for inspection only.
using RequestRecord = zol::algosim::RequestRecord;
using zol::algosim::kRequestRecordBytes;

// What a request record file holds, read in bounded memory however large the file is: every
// record is checked, the first kKeptRecords are kept.
struct RequestInfo {
    static constexpr size_t kKeptRecords = 256;  // far more buffers than any request has
    uint64_t bytes = 0;
    uint64_t recordCount = 0;  // whole records in the file
    std::vector<RequestRecord> records;
    // Each reason to distrust the file (a size that is not a whole number of records, a record
    // whose format code, plane count, size or stride no save could have written), naming it.
    Problems problems;
};

// Reads requestInfo.bin at `path`. False with `error` when it cannot be read at all.
bool ReadRequestInfo(const std::string& path, RequestInfo& info, std::string& error);

// Encodes records in the same layout (for tests and tools that build folders).
std::vector<uint8_t> EncodeRequestInfo(const std::vector<RequestRecord>& records);

// One frame file of a save folder, as found or as the records expect it.
struct FrameReport {
    int index = -1;          // buffer index from the name (or the record's index if missing)
    std::string fileName;    // bare name
    uint64_t expected = 0;   // bytes the record's geometry gives (0 when there is no record)
    int64_t actual = -1;     // bytes on disk, -1 when missing
    bool hasRecord = false;  // a record with this index exists
    uint32_t width = 0;      // from the record (or from the name, without one)
    uint32_t height = 0;
    uint32_t format = 0;
    std::string status;  // "ok", "missing", "size mismatch", "no record", ...
};

struct FolderReport {
    std::string path;  // the save folder
    std::string name;  // its bare name
    int64_t requestInfoBytes = -1;
    std::vector<RequestRecord> records;
    bool recordsTrusted = false;  // the request file decoded without a problem
    std::vector<FrameReport> frames;
    int64_t databaseBytes = -1;
    uint64_t recordCount = 0;             // records in the request file (`records` are the first)
    std::vector<std::string> otherFiles;  // entries that are none of the above
    Problems problems;                    // each names the file and what is wrong
};

// Parses "inputFrameInfo_<W>x<H>_<index>_.yuv". False for any other name.
bool ParseFrameFileName(const std::string& name, uint32_t& width, uint32_t& height, int& index);

// Inspects one save folder.
FolderReport InspectSaveFolder(const std::string& path);

// What PATH names: a save folder (it holds requestInfo.bin), a base folder (it holds save
// folders), or a device root (it holds data/vendor/camera/algosimulation). Fills `folders`
// with the save folders to inspect, sorted by name (that is, by save time within a year).
// `others`, when given, gets the other entries of a base folder that a replay would still
// walk (every name not beginning with '.'). False with `error` when PATH is none of these.
bool FindSaveFolders(const std::string& path, std::vector<std::string>& folders, std::string& error,
                     std::vector<std::string>* others = nullptr);

// Replay reads the frame files of buffers 0, 1 and 2 only.
constexpr int kReplayedFrames = 3;

// The report as a text table.
std::string FormatFolderReport(const FolderReport& report);

}  // namespace zoltool
