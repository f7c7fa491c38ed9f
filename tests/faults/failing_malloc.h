// A malloc that fails on request, for this test program only: malloc, calloc and realloc are
// replaced in the executable and forward to the C library's own allocator (__libc_malloc ...)
// unless failing is switched on. Sanitizer builds replace malloc themselves; there this program
// is not built.
#pragma once

namespace faults {

enum class FailAllocations {
    kNever,
    kOnThisThread,  // only on the thread that switched it on
};

// Switches failing on or off for the whole process; returns how many allocations failed since
// the last switch.
unsigned long SetFailAllocations(FailAllocations mode);

}  // namespace faults
