#include "failing_malloc.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstddef>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace {

std::atomic<int> g_mode{0};
std::atomic<pthread_t> g_owner{};
std::atomic<unsigned long> g_failed{0};

bool ShouldFail() {
    const int mode = g_mode.load(std::memory_order_acquire);
    if (mode == 0) {
        return false;
    }
    const bool fail = pthread_equal(pthread_self(), g_owner.load()) != 0;
    if (fail) {
        g_failed.fetch_add(1);
        errno = ENOMEM;
    }
    return fail;
}

}  // namespace

namespace faults {

unsigned long SetFailAllocations(FailAllocations mode) {
    g_owner.store(pthread_self());
    g_mode.store(static_cast<int>(mode), std::memory_order_release);
    return g_failed.exchange(0);
}

}  // namespace faults

extern "C" void* malloc(size_t size) {
    return ShouldFail() ? nullptr : __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size) {
    return ShouldFail() ? nullptr : __libc_calloc(count, size);
}

extern "C" void* realloc(void* block, size_t size) {
    return ShouldFail() ? nullptr : __libc_realloc(block, size);
}
