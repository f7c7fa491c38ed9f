// Internal: the open of a file the library reads or appends to on its own account (log files,
// frames written and read back). The descriptor comes back in its owner (platform/uniquefd.h).
#pragma once

#include <sys/types.h>

#include "platform/uniquefd.h"

namespace zol {

// open(2) with O_CLOEXEC added, retried on EINTR.
UniqueFd Open(const char* path, int flags, mode_t mode = 0666);

// The same with O_NONBLOCK added, keeping the descriptor only when it is a regular file. A FIFO
// put where a file belongs would otherwise block the open for as long as nobody opens its other
// end; a FIFO, device or directory counts as a file that would not open (errno EINVAL).
UniqueFd OpenRegularFile(const char* path, int flags, mode_t mode = 0666);

}  // namespace zol
