// Internal: what other units may ask of the process-wide buffer pool.
#pragma once

#include <cstddef>

namespace zol {

// The block handed out by the pool (and not yet returned) that holds `address`, as byte
// offsets from `address`: [*begin, *end), with *begin <= 0 < *end. False when no busy pool
// block holds it (memory the library did not allocate, or already returned).
bool FindBusyBlock(const void* address, ptrdiff_t* begin, ptrdiff_t* end);

}  // namespace zol
