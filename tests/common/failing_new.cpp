// Replaces every form of operator new and delete for the test program that links this file:
// allocations fail (new throws std::bad_alloc, the nothrow forms return null) whenever the
// program's zoltest::AllocationFails() says so. Each block is allocated and freed by a matching
// pair whichever form the code uses, which the sanitizers check.
#include <cstdlib>
#include <new>

#include "failing_new.h"

using zoltest::AllocationFails;

void* operator new(std::size_t size) {
    void* p = AllocationFails() ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return AllocationFails() ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}

// GCC takes the free() in a replacement operator delete for a mismatched pair; it is the
// counterpart of the malloc() in operator new above.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

void operator delete(void* p) noexcept {
    std::free(p);
}

void operator delete[](void* p) noexcept {
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}

void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}

void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
