// The per-invocation flow: save the inputs into a new folder, or replay a saved folder.
#include "zolalgosimulation.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/properties.h"
#include "zolalgosimulation/internal/zolalgosimulationinternal.h"
#include "zolalgosimulation/internal/zolsavefoldernames.h"
#include "zolbufferutil.h"
#include "zolbuffermanager/internal/zolbufferpoolinternal.h"
#include "zolbufferutil/internal/zolplanegeometry.h"
#include "zoltoolsdef.h"
#include "zoltoolsdef/internal/zolfatal.h"

// Read once, while the library is loaded (after the log level, before the buffer pool).
int32_t ZOLAlgoSimulationMode =
    property_get_int32("persist.vendor.camera.capture.algosimulation.dump", 1);

namespace {

constexpr int32_t kModeSave = 1;
constexpr int32_t kModeReplay = 2;
constexpr unsigned kReplayableFrames = 3;  // the frame names "_0_", "_1_" and "_2_"

using zol::UniqueDir;

bool IsOpenableDirectory(const char* path) {
    return UniqueDir(opendir(path)) != nullptr;
}

// The frame index a replayed file name stands for ("_0_", "_1_", "_2_", first match), or -1.
int FrameIndexOf(const char* name) {
    static const char* const kTags[kReplayableFrames] = {"_0_", "_1_", "_2_"};
    for (unsigned i = 0; i < kReplayableFrames; ++i) {
        if (strstr(name, kTags[i]) != nullptr) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

// The bytes, relative to a plane's address, that ZOLReadBuffer with `geometry` writes: the
// eight cleared bytes and every row. Half-open [lo, hi).
struct Span {
    int64_t lo;
    int64_t hi;
};

Span PlaneSpan(const zol::RawFileGeometry& geometry, int plane, uint32_t planeStride) {
    Span span = {0, 8};
    const int rows = geometry.rows[plane];
    const int rowBytes = geometry.rowBytes[plane];
    if (geometry.supported && rows >= 1 && rowBytes >= 1) {
        const int64_t last = int64_t{rows - 1} * static_cast<int>(planeStride);
        span.lo = std::min<int64_t>(span.lo, last);
        span.hi = std::max<int64_t>(span.hi, last + rowBytes);
    }
    return span;
}

// The bytes of each plane a replay may write: of a block the pool handed out, the whole block;
// of planes the caller made itself, only what both of its descriptions cover, the one it gave
// before any replay changed the record and the record as this replay found it. The second
// matters when the caller put new planes where the old ones were and described them just as
// the last replay had left the record. False when a description is beyond reading.
struct PlaneBounds {
    bool known = false;  // false: nothing may be written
    Span plane[2] = {};
};

PlaneBounds AllowedSpans(const ZOLImageBuffer& described, const ZOLImageBuffer& found) {
    PlaneBounds bounds;
    zol::RawFileGeometry a;
    zol::RawFileGeometry b;
    if (!zol::TryGetRawFileGeometry(described, zol::RawFileAccess::kRead, &a) ||
        !zol::TryGetRawFileGeometry(found, zol::RawFileAccess::kRead, &b)) {
        return bounds;
    }
    for (int plane = 0; plane < 2; ++plane) {
        ptrdiff_t begin = 0;
        ptrdiff_t end = 0;
        if (zol::FindBusyBlock(found.Addr[plane], &begin, &end)) {
            bounds.plane[plane] = {begin, end};
        } else {
            const Span x = PlaneSpan(a, plane, described.planeStride);
            const Span y = PlaneSpan(b, plane, found.planeStride);
            bounds.plane[plane] = {std::max(x.lo, y.lo), std::min(x.hi, y.hi)};
        }
    }
    bounds.known = true;
    return bounds;
}

// True when reading a frame with the geometry `record` holds now stays within `allowed`: every
// byte written inside it, and no more rows of row bytes than it holds bytes, so that a record
// of billions of rows at one address is refused instead of read row by row. A plane without
// an address is not written.
bool FrameReadFits(const ZOLImageBuffer& record, const PlaneBounds& allowed) {
    zol::RawFileGeometry now;
    if (!allowed.known || !zol::TryGetRawFileGeometry(record, zol::RawFileAccess::kRead, &now)) {
        return false;
    }
    for (int plane = 0; plane < 2; ++plane) {
        if (record.Addr[plane] == nullptr) {
            continue;
        }
        const Span want = PlaneSpan(now, plane, record.planeStride);
        const Span have = allowed.plane[plane];
        const int64_t bytes = now.supported && now.rows[plane] > 0 && now.rowBytes[plane] > 0
                                  ? int64_t{now.rows[plane]} * now.rowBytes[plane]
                                  : 0;
        if (want.lo < have.lo || want.hi > have.hi || bytes > have.hi - have.lo ||
            bytes > INT32_MAX) {
            return false;
        }
    }
    return true;
}

// The fields a replay writes into a record (readRequestBuffer) and the two plane addresses.
bool SameRecord(const ZOLImageBuffer& a, const ZOLImageBuffer& b) {
    return a.format == b.format && a.width == b.width && a.height == b.height &&
           a.planeStride == b.planeStride && a.sliceHeight == b.sliceHeight &&
           a.numberOfPlanes == b.numberOfPlanes && std::equal(a.fd, a.fd + 4, b.fd) &&
           a.Addr[0] == b.Addr[0] && a.Addr[1] == b.Addr[1];
}

// Reads a frame file into `buffer` when it is a regular file; false otherwise, nothing read.
// ZOLBufferUtil::ZOLReadBuffer opens by name: it is given the name of the descriptor already
// open and checked, so the file cannot be swapped for a FIFO in between.
bool ReadRegularFrame(ZOLImageBuffer* buffer, const char* path) {
    const zol::UniqueFile file = zol::algosim::OpenRegularForReading(path);
    if (!file) {
        return false;
    }
    char self[64];
    snprintf(self, sizeof(self), "/proc/self/fd/%d", fileno(file.get()));
    ZOLBufferUtil::ZOLReadBuffer(buffer, self);
    return true;
}

// How the caller described each record: a record still exactly as the last replay left it
// (`replayed`) is taken for one the caller reused, described as it was before that replay
// (`describedBefore`); any other record the caller has described (again) itself.
std::vector<ZOLImageBuffer> CallerDescriptions(const std::vector<ZOLImageBuffer>& buffers,
                                               const std::vector<ZOLImageBuffer>& replayed,
                                               const std::vector<ZOLImageBuffer>& describedBefore) {
    std::vector<ZOLImageBuffer> described = buffers;
    for (ZOLImageBuffer& record : described) {
        for (size_t i = 0; i < replayed.size(); ++i) {
            if (SameRecord(record, replayed[i])) {
                record = describedBefore[i];
                break;
            }
        }
    }
    return described;
}

// The names in `folder` that do not start with '.', in directory order. False when it cannot be
// opened as a directory.
bool ListFolder(const char* folder, std::vector<std::string>& files) {
    UniqueDir dir(opendir(folder));
    if (!dir) {
        return false;
    }
    while (const dirent* entry = readdir(dir.get())) {
        if (entry->d_name[0] != '.') {
            files.emplace_back(entry->d_name);
        }
    }
    return true;
}

// Reads the `files` of a replayed `folder`, in their order, into the request records, the frames
// and the database of the caller, who `described` the records before this replay.
void ReadSavedFiles(ZOLAlgoSimulation& simulation, const char* folder,
                    const std::vector<std::string>& files,
                    const std::vector<ZOLImageBuffer>& described,
                    std::vector<ZOLImageBuffer>& buffers, ZOLDatabaseBaseStruct* database,
                    unsigned int databaseSize) {
    // What each record's planes may take, fixed before the request file overwrites them.
    std::vector<PlaneBounds> allowed;
    for (size_t i = 0; i < buffers.size(); ++i) {
        allowed.push_back(AllowedSpans(described[i], buffers[i]));
    }
    for (const std::string& file : files) {
        const char* name = file.c_str();
        char path[zol::algosim::kFilePathBytes];
        snprintf(path, sizeof(path), "%s%s", folder, name);
        ZOL_LOGD("[algorithm simulation]: read data directory: %s, file name: %s", path, name);

        const int frame = FrameIndexOf(name);
        bool read = true;
        if (strstr(name, "requestInfo") != nullptr) {
            simulation.readRequestBuffer(buffers, path);
        } else if (frame >= 0) {
            // Not read: frames the caller's vector or planes cannot take, and files that are
            // not regular files.
            const size_t slot = static_cast<size_t>(frame);
            read = slot < buffers.size() && FrameReadFits(buffers[slot], allowed[slot]) &&
                   ReadRegularFrame(&buffers[slot], path);
        } else if (strstr(name, "database") != nullptr) {
            simulation.readDatabase(database, databaseSize, path);
        } else {
            read = false;
        }
        if (!read) {
            ZOL_LOGD("[algorithm simulation]: read data don't exit.");
        }
    }
}

}  // namespace

ZOLAlgoSimulation::ZOLAlgoSimulation() : m_algoFolderNamesIndex(0) {}

ZOLAlgoSimulation::~ZOLAlgoSimulation() = default;

void ZOLAlgoSimulation::Initialize() {
    m_algoFolderNamesIndex = 0;
    char base[zol::algosim::kFolderPathBytes];
    zol::algosim::BaseFolderPath(base);
    if (!IsOpenableDirectory(base) && mkdir(base, 0700) != 0) {
        ZOL_LOGD("[algorithm simulation]: make algosimulation directory fail.");
    }
}

bool ZOLAlgoSimulation::OnAlgoSimulation(std::vector<ZOLImageBuffer>& buffers,
                                         ZOLDatabaseBaseStruct* database,
                                         unsigned int databaseSize) {
    if (ZOLAlgoSimulationMode == kModeSave) {
        return saveSimulationInfo(buffers, database, databaseSize);
    }
    if (ZOLAlgoSimulationMode == kModeReplay) {
        return readSimulationInfo(buffers, database, databaseSize);
    }
    return true;
}

bool ZOLAlgoSimulation::saveSimulationInfo(std::vector<ZOLImageBuffer>& buffers,
                                           ZOLDatabaseBaseStruct* database,
                                           unsigned int databaseSize) {
    // Two clock readings, not reconciled: the milliseconds may belong to the next second.
    const time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    struct timeval tv = {};
    gettimeofday(&tv, nullptr);

    char folder[zol::algosim::kFolderPathBytes];
    zol::algosim::SaveFolderPath(folder, local, tv.tv_usec);
    // A folder of the same millisecond is reused; the parent is never created here.
    if (!IsOpenableDirectory(folder) && mkdir(folder, 0700) != 0) {
        ZOL_LOGD("[algorithm simulation]: make algosimulation directory fail.");
        return false;
    }

    char path[zol::algosim::kFilePathBytes];
    snprintf(path, sizeof(path), "%s%s", folder, zol::algosim::kRequestInfoName);
    const bool result = writerRequestBuffer(buffers, path);

    for (size_t i = 0; i < buffers.size(); ++i) {
        const ZOLImageBuffer& element = buffers[i];
        // Every buffer is dumped with the first buffer's stride, slice height and plane
        // count: a request's buffers share the first one's layout.
        ZOLImageBuffer frame = {};
        frame.format = element.format;
        frame.width = element.width;
        frame.height = element.height;
        frame.planeStride = buffers[0].planeStride;
        frame.sliceHeight = buffers[0].sliceHeight;
        frame.numberOfPlanes = buffers[0].numberOfPlanes;
        frame.Addr[0] = element.Addr[0];
        frame.Addr[1] = element.Addr[1];
        for (int p = 0; p < 4; ++p) {
            frame.fd[p] = element.fd[p];
        }
        zol::algosim::FrameFilePath(path, folder, element.width, element.height, i);
        // Only the first plane's descriptor is synchronised, whatever the plane count.
        if (frame.numberOfPlanes > 0) {
            m_bufferManager.StartCPUSync(frame.fd[0], ZOL_CPU_SYNC_READ_WRITE);
        }
        ZOLBufferUtil::ZOLBufferDump(&frame, path);
        if (frame.numberOfPlanes > 0) {
            m_bufferManager.EndCPUSync(frame.fd[0]);
        }
    }

    snprintf(path, sizeof(path), "%s%s", folder, zol::algosim::kDatabaseName);
    dumpDatabase(database, databaseSize, path);
    return result;
}

bool ZOLAlgoSimulation::readSimulationInfo(std::vector<ZOLImageBuffer>& buffers,
                                           ZOLDatabaseBaseStruct* database,
                                           unsigned int databaseSize) {
    const std::vector<ZOLImageBuffer> described =
        CallerDescriptions(buffers, m_replayedRecords, m_describedRecords);
    m_describedRecords = described;
    m_replayedRecords = buffers;

    char base[zol::algosim::kFolderPathBytes];
    zol::algosim::BaseFolderPath(base);
    m_algoFolderNames.clear();
    // Depth 0 with the stat relative to the working directory: from anywhere but the base
    // folder itself this lists exactly the base folder's entries.
    ZOLBufferUtil::traveDir(base, 0, m_algoFolderNames);
    ZOL_LOGD(
        "[algorithm simulation]: Algorithmtion path directory size=%d, "
        "algoFolderNamesIndex=%d",
        static_cast<int>(m_algoFolderNames.size()), static_cast<int>(m_algoFolderNamesIndex));

    // An empty list, or an index the list no longer reaches, has no folder to replay.
    if (m_algoFolderNamesIndex >= m_algoFolderNames.size()) {
        ZOL_LOGD("[algorithm simulation]: Current directory don't exit!");
        return false;
    }
    char folder[zol::algosim::kFilePathBytes];
    snprintf(folder, sizeof(folder), "%s%s/", base,
             m_algoFolderNames[m_algoFolderNamesIndex].c_str());
    ZOL_LOGD("[algorithm simulation]: %s", folder);

    std::vector<std::string> files;
    if (!ListFolder(folder, files)) {
        // A stray file, a dangling or looping link: skipped, so that the folders after it are
        // replayed in turn.
        ZOL_LOGD("[algorithm simulation]: Current directory don't exit!");
        AdvanceFolderIndex();
        return false;
    }
    ReadSavedFiles(*this, folder, files, described, buffers, database, databaseSize);
    m_replayedRecords = buffers;
    AdvanceFolderIndex();
    return true;
}

void ZOLAlgoSimulation::AdvanceFolderIndex() {
    const uint32_t count = static_cast<uint32_t>(m_algoFolderNames.size());
    m_algoFolderNamesIndex = zol::CheckedAdd<uint32_t>(m_algoFolderNamesIndex, 1) % count;
}
