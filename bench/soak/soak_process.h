// What the soak measures of its own process: resident memory, open descriptors and mappings.
#pragma once

#include <cstddef>
#include <vector>

namespace soak {

// Resident set size in KiB (VmRSS of /proc/self/status); 0 when unreadable.
long ResidentKiB();
// Open descriptors (entries of /proc/self/fd, the listing's own excluded).
int OpenDescriptors();
// Shared mappings (lines of /proc/self/maps whose permissions end in 's'): DMA buffers are
// mapped shared, and unlike the other mappings they do not move with the heap.
int SharedMappings();

// Growth of a series of RSS samples: the median of its last quarter minus the median of its
// first quarter, so that a one-off peak or a slow start does not count as growth.
long SteadyGrowthKiB(const std::vector<long>& samples);

}  // namespace soak
