// A user's program built against the installed package: one call into each unit and its result
// checked, so that a header, a symbol or a dependency the package lacks fails here.
#include <unistd.h>

#include <cstdio>
#include <utility>
#include <vector>

#include "zolalgosimulation.h"
#include "zolbuffermanager.h"
#include "zolbufferutil.h"
#include "zoldiag.h"
#include "zolofflinelog.h"
#include "zolpsi.h"
#include "zolsignaltask.h"
#include "zolstrutil.h"
#include "zolthreadcontextmanager.h"
#include "zolthreadpool.h"
#include "zoltoolsdef.h"

int main() {
    int failed = 0;
    const auto check = [&failed](bool ok, const char* what) {
        failed += ok ? 0 : 1;
        std::printf("consumer: %s %s\n", what, ok ? "ok" : "FAILED");
    };
    ZOLThreadContext context{{1, 2, 3, 4, 5}};
    check(ZOLThreadContextManager::MapContextToThreadId(gettid(), &context) == 0, "context");
    ZOLThreadPool pool;
    check(pool.Init(2), "thread pool");
    pool.DeInit();
    WrapperTask task;
    task.task = [] {};
    check(ZOLSignalTask::instance()->insert(1, std::move(task)) == 1, "signal task");
    ZOLBufferManager manager("consumer");
    void* buffer = nullptr;
    int fd = -1;
    check(manager.AllocBuffer(4096, &buffer, fd, ZOL_BUFFER_TYPE_DMA) && manager.FreeBuffer(buffer),
          "buffers");
    std::vector<unsigned char> y(4, 128), uv(ZOLYuv420spChromaBytes(2, 2), 128), rgba(16);
    yuv420sp2rgba(y.data(), uv.data(), rgba.data(), 2, 2, 2, 2);
    check(rgba[0] == 128, "colour conversion");
    std::vector<ZOLImageBuffer> none;
    char devNull[] = "/dev/null";
    check(ZOLAlgoSimulation().writerRequestBuffer(none, devNull), "algorithm simulation");
    check(ZOLStrUtil::StrToFloat("2.5") == 2.5f, "strutil");
    check(DiagUtils::CheckRetValue(0, 0), "diag");
    check(ZOLPSI().GetPsiCpuSomeAvg10() >= 0, "psi");
    check(ZOLOfflineLog::GetInstance() != nullptr, "offline log");
    ZOL_LOGI("consumer: log level %d, %d failed", ZOLToolsLogLevel, failed);
    return failed;
}
