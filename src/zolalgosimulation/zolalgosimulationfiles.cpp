// The two record files of a save folder: requestInfo.bin (one 40-byte record per image, laid
// out in zolrequestrecord.h) and database.bin (the caller's block, byte for byte).
#include <fcntl.h>

#include <cstdint>
#include <cstdio>

#include "platform/openfile.h"
#include "zolalgosimulation.h"
#include "zolalgosimulation/internal/zolalgosimulationinternal.h"
#include "zolalgosimulation/internal/zolrequestrecord.h"
#include "zoltoolsdef.h"

using zol::UniqueFile;

namespace {

using zol::algosim::kRequestRecordBytes;
using zol::algosim::RequestRecord;

RequestRecord RecordOf(const ZOLImageBuffer& b) {
    RequestRecord r;
    r.format = b.format;
    r.width = b.width;
    r.height = b.height;
    r.planeStride = b.planeStride;
    r.sliceHeight = b.sliceHeight;
    r.numberOfPlanes = b.numberOfPlanes;
    for (int i = 0; i < 4; ++i) {
        r.fd[i] = b.fd[i];
    }
    return r;
}

void StoreRecord(const RequestRecord& r, ZOLImageBuffer* b) {
    b->format = r.format;
    b->width = r.width;
    b->height = r.height;
    b->planeStride = r.planeStride;
    b->sliceHeight = r.sliceHeight;
    b->numberOfPlanes = r.numberOfPlanes;
    for (int i = 0; i < 4; ++i) {
        b->fd[i] = r.fd[i];
    }
}

}  // namespace

UniqueFile zol::algosim::OpenRegularForReading(const char* path) {
    if (path == nullptr) {
        return nullptr;
    }
    zol::UniqueFd fd = zol::OpenRegularFile(path, O_RDONLY);
    // Non-blocking makes no difference to a regular file.
    UniqueFile file(fd.ok() ? fdopen(fd.get(), "rb") : nullptr);
    if (file) {
        static_cast<void>(fd.release());  // the stream closes it now
    }
    return file;
}

bool ZOLAlgoSimulation::writerRequestBuffer(std::vector<ZOLImageBuffer>& buffers, char* path) {
    UniqueFile file(path != nullptr ? fopen(path, "wb+") : nullptr);
    if (!file) {
        ZOL_LOGD("[algorithm simulation]: Open file failed.");
        return false;
    }
    for (const ZOLImageBuffer& buffer : buffers) {
        uint8_t bytes[kRequestRecordBytes];
        zol::algosim::EncodeRequestRecord(RecordOf(buffer), bytes);
        // Write errors are not checked: a short file shows up as short records when read.
        fwrite(bytes, sizeof(bytes), 1, file.get());
    }
    return true;
}

bool ZOLAlgoSimulation::readRequestBuffer(std::vector<ZOLImageBuffer>& buffers, char* path) {
    UniqueFile file = zol::algosim::OpenRegularForReading(path);
    if (!file) {
        ZOL_LOGD("[algorithm simulation]: read data don't exit.");
        return false;
    }
    for (ZOLImageBuffer& buffer : buffers) {
        // Read over the record's current bytes, so that what a short file does not reach stays
        // as it was; only the items the file completes are counted.
        uint8_t bytes[kRequestRecordBytes];
        zol::algosim::EncodeRequestRecord(RecordOf(buffer), bytes);
        const size_t got = fread(bytes, 1, sizeof(bytes), file.get());
        StoreRecord(zol::algosim::DecodeRequestRecord(bytes), &buffer);
        ZOL_LOGD("[algorithm simulation]: read RequestBuffer size = %u.",
                 zol::algosim::CompleteItems(got));
    }
    return true;
}

void ZOLAlgoSimulation::dumpDatabase(ZOLDatabaseBaseStruct* database, unsigned long size,
                                     char* path) {
    UniqueFile file(path != nullptr ? fopen(path, "wb+") : nullptr);
    if (!file) {
        ZOL_LOGD("[algorithm simulation]: dump database failed.");
        return;
    }
    // No block, nothing to write: the file is left empty rather than read through null.
    if (database != nullptr && size > 0) {
        fwrite(database, size, 1, file.get());
    }
}

void ZOLAlgoSimulation::readDatabase(ZOLDatabaseBaseStruct* database, unsigned long size,
                                     char* path) {
    UniqueFile file = zol::algosim::OpenRegularForReading(path);
    if (!file) {
        ZOL_LOGD("[algorithm simulation]: read database failed.");
        return;
    }
    // No block, nothing read (count 0) rather than a write through null. A 0-byte block
    // counts as not read, as fread counts it.
    const size_t items = database != nullptr ? fread(database, size, 1, file.get()) : 0;
    ZOL_LOGD("[algorithm simulation]: origin database size = %lu, read data size = %lu", size,
             static_cast<unsigned long>(items));
}
