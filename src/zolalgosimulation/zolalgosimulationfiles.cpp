// The two record files of a save folder: requestInfo.bin (40 bytes per image record) and
// database.bin (the caller's block, byte for byte).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <memory>

#include "zolalgosimulation.h"
#include "zolalgosimulation/internal/zolalgosimulationinternal.h"
#include "zoltoolsdef.h"

using zol::algosim::UniqueFile;

namespace {

// The items of one 40-byte record, in file order: format, width and height as one 12-byte
// item; planeStride, sliceHeight and numberOfPlanes as 4-byte items; fd0..fd3 as 4-byte items.
// The file's layout is this fixed sequence, whatever the record struct's padding.
struct RecordItems {
    uint32_t size3[3];
    uint32_t planeStride;
    uint32_t sliceHeight;
    uint32_t numberOfPlanes;
    int32_t fd[4];
};

RecordItems ItemsOf(const ZOLImageBuffer& b) {
    return {{b.format, b.width, b.height},
            b.planeStride,
            b.sliceHeight,
            b.numberOfPlanes,
            {b.fd[0], b.fd[1], b.fd[2], b.fd[3]}};
}

void StoreItems(const RecordItems& items, ZOLImageBuffer* b) {
    b->format = items.size3[0];
    b->width = items.size3[1];
    b->height = items.size3[2];
    b->planeStride = items.planeStride;
    b->sliceHeight = items.sliceHeight;
    b->numberOfPlanes = items.numberOfPlanes;
    for (int i = 0; i < 4; ++i) {
        b->fd[i] = items.fd[i];
    }
}

}  // namespace

UniqueFile zol::algosim::OpenRegularForReading(const char* path) {
    if (path == nullptr) {
        return nullptr;
    }
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    struct stat st;
    FILE* file = nullptr;
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
        file = fdopen(fd, "rb");  // non-blocking makes no difference to a regular file
    }
    if (file == nullptr) {
        close(fd);
    }
    return UniqueFile(file);
}

bool ZOLAlgoSimulation::writerRequestBuffer(std::vector<ZOLImageBuffer>& buffers, char* path) {
    UniqueFile file(path != nullptr ? fopen(path, "wb+") : nullptr);
    if (!file) {
        ZOL_LOGD("[algorithm simulation]: Open file failed.");
        return false;
    }
    for (const ZOLImageBuffer& buffer : buffers) {
        const RecordItems items = ItemsOf(buffer);
        // Write errors are not checked: a short file shows up as short records when read.
        fwrite(items.size3, sizeof(items.size3), 1, file.get());
        fwrite(&items.planeStride, sizeof(items.planeStride), 1, file.get());
        fwrite(&items.sliceHeight, sizeof(items.sliceHeight), 1, file.get());
        fwrite(&items.numberOfPlanes, sizeof(items.numberOfPlanes), 1, file.get());
        for (const int32_t& fd : items.fd) {
            fwrite(&fd, sizeof(fd), 1, file.get());
        }
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
        // Read over the record's current values, so that an item the file cannot complete
        // leaves what it did not reach as it was.
        RecordItems items = ItemsOf(buffer);
        // One fread per item, of one element: the count is of the items read (0 or 1 each).
        const auto readItem = [&file](void* item, size_t bytes) {
            return static_cast<unsigned>(fread(item, bytes, 1, file.get()));
        };
        unsigned count = 0;
        count += readItem(items.size3, sizeof(items.size3));
        count += readItem(&items.planeStride, sizeof(items.planeStride));
        count += readItem(&items.sliceHeight, sizeof(items.sliceHeight));
        count += readItem(&items.numberOfPlanes, sizeof(items.numberOfPlanes));
        for (int32_t& fd : items.fd) {
            count += readItem(&fd, sizeof(fd));
        }
        StoreItems(items, &buffer);
        ZOL_LOGD("[algorithm simulation]: read RequestBuffer size = %u.", count);
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
