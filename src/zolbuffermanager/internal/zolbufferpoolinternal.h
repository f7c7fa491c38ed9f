// Internal: what other units may ask of the process-wide buffer pool.
#pragma once

#include <cstddef>
#include <string>

#include "platform/dmabufname.h"

namespace zol {

// The block handed out by the pool (and not yet returned) that holds `address`, as byte
// offsets from `address`: [*begin, *end), with *begin <= 0 < *end. False when no busy pool
// block holds it (memory the library did not allocate, or already returned).
bool FindBusyBlock(const void* address, ptrdiff_t* begin, ptrdiff_t* end);

// `name` as a buffer name: cut to kDmaBufNameSize - 1 bytes, every byte outside printable ASCII
// replaced by '_'. As a `token` (a manager in the pool's stats line) blanks, '=' and ';' are
// replaced too, and an empty name becomes "_".
void CleanBufferName(const std::string& name, bool token, char (&out)[kDmaBufNameSize]);

}  // namespace zol
