#include "wrapper.h"

#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "scene.h"
#include "zolbufferutil.h"
#include "zoltoolsdef.h"

namespace example {

namespace {

// Brackets CPU access to every plane of a DMA image (the manager's image form synchronises the
// first plane only; a wrapper that touches both planes syncs both).
class CpuAccess {
public:
    CpuAccess(ZOLBufferManager& manager, const ZOLImageBuffer& image, CPUSyncType type)
        : m_manager(manager), m_image(image) {
        for (uint32_t i = 0; i < m_image.numberOfPlanes && i < 4; ++i) {
            m_manager.StartCPUSync(m_image.fd[i], type);
        }
    }
    ~CpuAccess() {
        for (uint32_t i = 0; i < m_image.numberOfPlanes && i < 4; ++i) {
            m_manager.EndCPUSync(m_image.fd[i]);
        }
    }
    CpuAccess(const CpuAccess&) = delete;
    CpuAccess& operator=(const CpuAccess&) = delete;

private:
    ZOLBufferManager& m_manager;
    const ZOLImageBuffer m_image;  // a copy: the caller's record may be rewritten meanwhile
};

int64_t WallClockMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

double MillisecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

}  // namespace

AlgoWrapper::AlgoWrapper(uint32_t width, uint32_t height) : m_buffers("AlgoWrapper") {
    for (ZOLImageBuffer* image : {&m_input, &m_output}) {
        image->format = ZOL_IMAGE_FORMAT_YUV420SP;
        image->width = width;
        image->height = height;
        // Rows padded to 64 bytes, as camera buffers usually are.
        image->planeStride = (width + 63) / 64 * 64;
        // The manager sizes the chroma plane as planeStride * sliceHeight / 2. The conversion
        // reads up to half a chroma row past height / 2 rows, so the slice height is chosen to
        // give the chroma plane the size the conversion needs.
        const size_t chroma =
            ZOLYuv420spChromaBytes(static_cast<int>(image->planeStride), static_cast<int>(height));
        const size_t rows = (2 * chroma + image->planeStride - 1) / image->planeStride;
        image->sliceHeight = static_cast<uint32_t>(rows > height ? rows : height);
    }
}

AlgoWrapper::~AlgoWrapper() {
    if (m_rgba != nullptr) {
        m_buffers.FreeBuffer(m_rgba);
    }
    for (const ZOLImageBuffer* image : {&m_output, &m_input}) {
        if (image->numberOfPlanes > 0) {
            m_buffers.FreeBuffer(*image);
        }
    }
}

bool AlgoWrapper::AllocImage(ZOLImageBuffer& image, std::string& error) {
    if (!m_buffers.AllocBuffer(image, ZOL_BUFFER_TYPE_DMA)) {
        error = "cannot allocate a " + std::to_string(image.width) + "x" +
                std::to_string(image.height) + " DMA image";
        return false;
    }
    return true;
}

bool AlgoWrapper::Init(std::string& error) {
    if (!AllocImage(m_input, error) || !AllocImage(m_output, error)) {
        return false;
    }
    void* rgba = nullptr;
    int fd = 0;
    const unsigned rgbaBytes = m_input.width * m_input.height * 4;
    if (!m_buffers.AllocBuffer(rgbaBytes, &rgba, fd, ZOL_BUFFER_TYPE_HEAP)) {
        error = "cannot allocate the RGBA scratch block";
        return false;
    }
    m_rgba = static_cast<uint8_t*>(rgba);
    m_simulation.Initialize();
    ZOL_LOGI("[AlgoWrapper] %s:%d %s() ready: %ux%u NV21, stride %u, slice height %u", ZOL_FILE,
             __LINE__, "Init", m_input.width, m_input.height, m_input.planeStride,
             m_input.sliceHeight);
    return true;
}

bool AlgoWrapper::Invoke(uint32_t frame, bool replay, Invocation& result, std::string& error) {
    ToyAlgoDatabase db = MakeDatabase(frame, m_input.width, m_input.height);
    const ZOLImageBuffer allocated = m_input;

    auto start = std::chrono::steady_clock::now();
    if (!replay) {
        CpuAccess access(m_buffers, m_input, ZOL_CPU_SYNC_WRITE);
        DrawScene(m_input, static_cast<int>(frame));
    } else {
        std::memset(&db, 0, sizeof(db));  // whatever the replay gives must come from the file
    }
    result.prepareMs = MillisecondsSince(start);

    // The simulation takes the request's input buffers and the database block. Saving syncs
    // the buffers itself; a replay writes into them, so the wrapper brackets it.
    std::vector<ZOLImageBuffer> inputs = {m_input};
    if (!replay) {
        WaitForNextSaveMillisecond();
    }
    start = std::chrono::steady_clock::now();
    {
        std::unique_ptr<CpuAccess> access;
        if (replay) {
            access = std::make_unique<CpuAccess>(m_buffers, allocated, ZOL_CPU_SYNC_WRITE);
        }
        result.simulationOk = m_simulation.OnAlgoSimulation(
            inputs, reinterpret_cast<ZOLDatabaseBaseStruct*>(&db), sizeof(db));
    }
    result.simulationMs = MillisecondsSince(start);
    m_lastSaveMs = WallClockMs();
    if (!result.simulationOk) {
        error = replay ? "no saved folder to replay" : "the inputs could not be saved";
        return false;
    }
    if (replay) {
        // A replay rewrites the records from the saved request file, descriptors included: those
        // are the saving process's numbers. The wrapper keeps its own buffers as they are.
        const ZOLImageBuffer& saved = inputs[0];
        if (!IsToyAlgoDatabase(db) || saved.width != allocated.width ||
            saved.height != allocated.height || saved.format != allocated.format) {
            error = "the replayed folder was not saved by this algorithm at this size";
            return false;
        }
    }
    result.db = db;

    start = std::chrono::steady_clock::now();
    {
        CpuAccess in(m_buffers, m_input, ZOL_CPU_SYNC_READ);
        CpuAccess out(m_buffers, m_output, ZOL_CPU_SYNC_WRITE);
        RunToneCurve(db, m_input, m_output, m_rgba);
    }
    result.algorithmMs = MillisecondsSince(start);
    ZOL_LOGD("[AlgoWrapper] %s:%d %s() frame %u (%s): gamma %.2f contrast %.2f, %.2f ms", ZOL_FILE,
             __LINE__, "Invoke", db.frameIndex, replay ? "replayed" : "live",
             static_cast<double>(db.gamma), static_cast<double>(db.contrast), result.algorithmMs);
    // One line per frame of who holds how much buffer memory: `zoltools log --stats` tables it.
    ZOLBufferPool::LogStats();
    return true;
}

void AlgoWrapper::WaitForNextSaveMillisecond() const {
    while (WallClockMs() == m_lastSaveMs) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

bool AlgoWrapper::DumpOutput(const std::string& path) {
    CpuAccess access(m_buffers, m_output, ZOL_CPU_SYNC_READ);
    return ZOLBufferUtil::ZOLBufferDump(&m_output, path.c_str());
}

}  // namespace example
