// Helpers of the fault tests: no descriptors left and a private tmpfs.
#pragma once

#include <sys/resource.h>

#include <string>
#include <vector>

namespace faults {

// The offline log's directory, a device path.
constexpr const char* kLogDir = "/data/vendor/camera/offlinelog";

// Makes sure no further descriptor can be opened: RLIMIT_NOFILE drops to just above the highest
// descriptor now open and the free numbers below it are taken. Both undone at the end.
class NoMoreDescriptors {
public:
    NoMoreDescriptors();
    ~NoMoreDescriptors();
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
    rlimit m_saved;
    std::vector<int> m_fill;  // descriptors taken to fill the gaps below the limit
};

// Moves the calling thread into a mount namespace of its own (threads it starts afterwards
// follow it) and mounts a tmpfs of `bytes` bytes on `dir`. Empty on success, else why not (no
// privilege: the caller skips). ResizeTmpfs changes its size; false on failure.
std::string MountPrivateTmpfs(const std::string& dir, size_t bytes);
bool ResizeTmpfs(const std::string& dir, size_t bytes);

}  // namespace faults
