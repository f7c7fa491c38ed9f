// A process that returns from main while eight threads allocate and free buffers and images
// through buffer managers without pause, for the exit test (which runs it many times). Each
// thread has a manager of its own and shares one more that is never destroyed.
#include <atomic>
#include <thread>

#include "zolbuffermanager.h"
#include "zoltoolsdef.h"

namespace {

std::atomic<int> g_started{0};

void Cycle(ZOLBufferManager& manager, ZOLBufferType type) {
    ZOLImageBuffer image = {};
    image.width = image.height = image.planeStride = image.sliceHeight = 32;
    void* raw = nullptr;
    int fd = 0;
    manager.AllocBuffer(image, type);
    manager.AllocBuffer(4096, &raw, fd, type);
    manager.FreeBuffer(raw);
    manager.FreeBuffer(image);
}

}  // namespace

int main() {
    ZOLToolsLogLevel = 1;  // errors only: the threads spin as fast as they can
    static ZOLBufferManager* const shared = new ZOLBufferManager("Shared");
    for (int t = 0; t < 8; ++t) {
        std::thread([t] {
            ZOLBufferManager own("Own");
            const ZOLBufferType type = t % 2 == 0 ? ZOL_BUFFER_TYPE_HEAP : ZOL_BUFFER_TYPE_DMA;
            for (bool counted = false;; counted = true) {
                Cycle(own, type);
                Cycle(*shared, type);
                if (!counted) {
                    ++g_started;
                }
            }
        }).detach();
    }
    while (g_started.load() < 8) {
        std::this_thread::yield();
    }
    return 0;
}
