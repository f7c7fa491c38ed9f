// Raw image files: dump of an image buffer's planes and read-back into them.
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "platform/openfile.h"
#include "zolbufferutil.h"
#include "zolbufferutil/internal/zolplanegeometry.h"
#include "zoltoolsdef.h"

namespace {

// Rows gathered into one system call: up to IOV_MAX, in a list on the heap. Should that list not
// be had, 128 rows a call in a list on the caller's stack (2 KiB of it: camera algorithm threads
// are often made with small stacks). Each call costs about a microsecond of its own: a 1080p
// frame's 1,620 rows in 2 calls rather than 13 read about 6 % faster.
constexpr int kStackRows = IOV_MAX < 128 ? IOV_MAX : 128;

// Moves the rows of an image between its planes and a file, each row straight from or into its
// plane (a plane without stride padding as one span), as many rows a call as its list holds. A
// short transfer is continued where it stopped; end of file or an error ends the whole transfer, so
// the rows it did not reach stay as they were.
class RowTransfer {
public:
    enum class Direction { kToFile, kFromFile };

    // `rows`: how many entries the whole transfer may queue (the list is sized to it).
    RowTransfer(int fd, Direction direction, bool positional, size_t rows)
        : m_fd(fd), m_direction(direction), m_positional(positional) {
        if (rows > static_cast<size_t>(kStackRows)) {
            const int capacity =
                rows < static_cast<size_t>(IOV_MAX) ? static_cast<int>(rows) : IOV_MAX;
            m_heapIov.reset(new (std::nothrow) iovec[static_cast<size_t>(capacity)]);
            if (m_heapIov != nullptr) {
                m_iov = m_heapIov.get();
                m_capacity = capacity;
            }
        }
    }

    // Queues `rows` rows of `rowBytes` bytes from `plane`, advancing `stride` bytes a row.
    // False once the transfer has ended early.
    bool AddPlane(unsigned char* plane, int rowBytes, int rows, int stride) {
        if (rows < 1 || rowBytes < 1 || plane == nullptr) {
            return m_ok;
        }
        if (stride == rowBytes) {
            return Add(plane, static_cast<size_t>(rowBytes) * static_cast<size_t>(rows));
        }
        for (int r = 0; r < rows && m_ok; ++r) {
            Add(plane + static_cast<ptrdiff_t>(r) * stride, static_cast<size_t>(rowBytes));
        }
        return m_ok;
    }

    // Transfers what is still queued.
    bool Finish() {
        while (m_ok && m_count > 0) {
            Call();
        }
        return m_ok;
    }

private:
    bool Add(unsigned char* at, size_t len) {
        if (m_count == m_capacity) {
            Finish();
        }
        if (m_ok) {
            m_iov[m_count++] = {at, len};
        }
        return m_ok;
    }

    // One system call; the entries it completed leave the queue, a partly done one is kept
    // with what is left of it.
    void Call() {
        ssize_t n;
        const bool out = m_direction == Direction::kToFile;
        if (m_positional) {
            n = out ? pwritev(m_fd, m_iov, m_count, m_offset)
                    : preadv(m_fd, m_iov, m_count, m_offset);
        } else {
            n = out ? writev(m_fd, m_iov, m_count) : readv(m_fd, m_iov, m_count);
        }
        if (n < 0 && errno == EINTR) {
            return;
        }
        if (n <= 0) {
            m_ok = false;
            return;
        }
        m_offset += n;
        size_t done = static_cast<size_t>(n);
        int first = 0;
        while (first < m_count && done >= m_iov[first].iov_len) {
            done -= m_iov[first++].iov_len;
        }
        if (first < m_count) {
            m_iov[first].iov_base = static_cast<char*>(m_iov[first].iov_base) + done;
            m_iov[first].iov_len -= done;
        }
        std::memmove(m_iov, m_iov + first, sizeof(iovec) * static_cast<size_t>(m_count - first));
        m_count -= first;
    }

    const int m_fd;
    const Direction m_direction;
    const bool m_positional;  // pwritev/preadv at m_offset; writev/readv for a pipe or device
    bool m_ok = true;
    off_t m_offset = 0;
    int m_count = 0;
    iovec m_stackIov[kStackRows];
    std::unique_ptr<iovec[]> m_heapIov;
    iovec* m_iov = m_stackIov;
    int m_capacity = kStackRows;
};

// The one message of these operations; callers' tools look for it whatever the log level.
void LogUnknownFormat(uint32_t format) {
    ZOLDebugLogE("unknow format: %d", static_cast<int>(format));
}

// Moves both planes of `buffer` in file order. Kept out of line: the row list lives in this
// frame only, not in that of a caller that goes on to write a log line.
[[gnu::noinline]] void TransferPlanes(int fd, RowTransfer::Direction direction, bool positional,
                                      const ZOLImageBuffer& buffer, const zol::RawFileGeometry& g) {
    const int stride = static_cast<int>(buffer.planeStride);
    size_t entries = 0;  // a row each, or one for a plane without padding
    for (int plane = 0; plane < 2; ++plane) {
        if (g.rows[plane] > 0) {
            entries += g.rowBytes[plane] == stride ? 1 : static_cast<size_t>(g.rows[plane]);
        }
    }
    RowTransfer transfer(fd, direction, positional, entries);
    for (int plane = 0; plane < 2; ++plane) {
        transfer.AddPlane(static_cast<unsigned char*>(buffer.Addr[plane]), g.rowBytes[plane],
                          g.rows[plane], stride);
    }
    transfer.Finish();
}

}  // namespace

void ZOLBufferUtil::ZOLDumpPlane(FILE* file, unsigned char* src, int rowBytes, int rows,
                                 int stride) {
    // A negative row size would become a huge length, a null plane or file has nothing to
    // give: both are treated as an empty plane rather than a crash.
    if (rows < 1 || rowBytes < 1 || file == nullptr || src == nullptr) {
        return;
    }
    for (int r = 0; r < rows; ++r) {
        fwrite(src + static_cast<ptrdiff_t>(r) * stride, static_cast<size_t>(rowBytes), 1, file);
    }
}

void ZOLBufferUtil::ZOLReadPlane(FILE* file, unsigned char* dst, int rowBytes, int rows,
                                 int stride) {
    // As in ZOLDumpPlane: nothing to do rather than a huge or null read.
    if (rows < 1 || rowBytes < 1 || file == nullptr || dst == nullptr) {
        return;
    }
    for (int r = 0; r < rows; ++r) {
        // Short reads are not checked: rows past the end of the file stay as they were.
        const size_t items =
            fread(dst + static_cast<ptrdiff_t>(r) * stride, static_cast<size_t>(rowBytes), 1, file);
        static_cast<void>(items);
    }
}

bool ZOLBufferUtil::ZOLBufferDump(ZOLImageBuffer* buffer, const char* path) {
    // No buffer or no path: the "cannot open" result, before any file is created.
    if (buffer == nullptr || path == nullptr) {
        return false;
    }
    // The caller's path, opened as given: a pipe or a device is written in sequence.
    const zol::UniqueFd fd = zol::Open(path, O_WRONLY | O_CREAT | O_TRUNC);
    if (!fd.ok()) {
        return false;
    }
    const zol::RawFileGeometry g = zol::GetRawFileGeometry(*buffer, zol::RawFileAccess::kDump);
    if (!g.supported) {
        LogUnknownFormat(buffer->format);
        return true;
    }
    struct stat st;
    const bool regular = fstat(fd.get(), &st) == 0 && S_ISREG(st.st_mode);
    // Write errors and short writes are not reported: the result only says the file opened.
    TransferPlanes(fd.get(), RowTransfer::Direction::kToFile, regular, *buffer, g);
    return true;
}

bool ZOLBufferUtil::ZOLReadBuffer(ZOLImageBuffer* buffer, char* path) {
    // No buffer or no path: the "cannot open" result.
    if (buffer == nullptr || path == nullptr) {
        return false;
    }
    // Only a regular file is read: a FIFO left where a frame belongs would block for ever.
    const zol::UniqueFd fd = zol::OpenRegularFile(path, O_RDONLY);
    if (!fd.ok()) {
        return false;
    }
    // The first eight bytes of both planes are cleared whatever the format; the planes need not
    // be 8-byte aligned, hence memcpy. A null plane (a one-plane buffer's Addr[1]) is skipped
    // rather than written through.
    const uint64_t zero = 0;
    for (void* plane : {buffer->Addr[0], buffer->Addr[1]}) {
        if (plane != nullptr) {
            memcpy(plane, &zero, sizeof(zero));
        }
    }
    const zol::RawFileGeometry g = zol::GetRawFileGeometry(*buffer, zol::RawFileAccess::kRead);
    if (!g.supported) {
        LogUnknownFormat(buffer->format);
        return true;
    }
    // A short file ends the transfer early: the rows it does not reach stay as they were.
    TransferPlanes(fd.get(), RowTransfer::Direction::kFromFile, true, *buffer, g);
    return true;
}
