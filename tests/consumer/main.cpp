// Links against the installed libzoltools and uses a little of every kind of its API.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "zolbuffermanager.h"
#include "zolbufferutil.h"
#include "zolthreadcontextmanager.h"
#include "zolthreadpool.h"
#include "zoltoolsdef.h"

namespace {

std::atomic<int> g_ran{0};

void Task(void* arg, uint32_t size) {
    if (arg != nullptr && size == sizeof(int)) {
        g_ran += *static_cast<int*>(arg);
    }
}

}  // namespace

int main() {
    std::printf("log level %d\n", ZOLToolsLogLevel);

    ZOLThreadContext context{{1, 2, 3, 4, 5}};
    if (ZOLThreadContextManager::MapContextToThreadId(gettid(), &context) != 0) {
        return 1;
    }

    ZOLThreadPool pool;
    if (!pool.Init(2)) {
        return 1;
    }
    for (int i = 0; i < 10; ++i) {
        int* arg = static_cast<int*>(std::malloc(sizeof(int)));
        *arg = 1;
        {
            std::lock_guard<std::mutex> lock(pool.m_taskMutex);
            pool.m_taskList.push_back(
                {ZOLThreadPool::kCmdRun, Task, arg, sizeof(int), static_cast<uint32_t>(gettid())});
        }
        pool.m_taskCond.notify_one();
    }
    for (int i = 0; i < 500 && g_ran < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    pool.DeInit();

    // A DMA NV21 image from a named manager, converted to RGBA and back.
    const int width = 64;
    const int height = 48;
    ZOLBufferManager manager("consumer");
    ZOLImageBuffer image{};
    image.format = ZOL_IMAGE_FORMAT_YUV420SP;
    image.width = width;
    image.height = height;
    image.planeStride = width;
    // Slice height large enough that the chroma plane covers what the conversion reads.
    image.sliceHeight =
        static_cast<uint32_t>(ZOLYuv420spChromaBytes(width, height) * 2 / width + 1);
    if (!manager.AllocBuffer(image, ZOL_BUFFER_TYPE_DMA) || image.numberOfPlanes != 2) {
        return 1;
    }
    static unsigned char rgba[width * height * 4];
    manager.StartCPUSync(image.fd[0], ZOL_CPU_SYNC_READ_WRITE);
    auto* y = static_cast<unsigned char*>(image.Addr[0]);
    auto* uv = static_cast<unsigned char*>(image.Addr[1]);
    for (int i = 0; i < width * height; ++i) {
        y[i] = static_cast<unsigned char>(i);
    }
    yuv420sp2rgba(y, uv, rgba, width, width, width, height);
    rgba2yuv420sp(y, uv, rgba, width, width, width, height);
    manager.EndCPUSync(image.fd[0]);
    manager.FreeBuffer(image);

    ZOL_LOGI("consumer ran %d tasks", g_ran.load());
    std::printf("consumer ran %d tasks\n", g_ran.load());
    return g_ran == 10 ? 0 : 1;
}
