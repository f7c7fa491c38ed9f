// The name a DMA buffer carries: what the platform's memory tools (dmabuf_dump, the `name:` line
// of /proc/<pid>/fdinfo/<fd>, the kernel's bufinfo) show to say who holds the buffer.
//
// On a device both calls go to the kernel: SetDmaBufName is the DMA_BUF_SET_NAME ioctl and
// GetDmaBufName reads the name back from /proc/self/fdinfo/<fd>. On the host, where buffers are
// memfd files (bufferallocator_host.cpp), a memfd keeps the name it was created with and the
// stand-in records later names per descriptor, checked against the file's identity so that a
// reused descriptor number never shows the name of a file closed before it.
#pragma once

#include <cstddef>
#include <string>

namespace zol {

// The kernel's limit on a name, terminator included (DMA_BUF_NAME_LEN).
constexpr size_t kDmaBufNameSize = 32;

// Names the buffer behind `fd`. `name` is at most kDmaBufNameSize - 1 printable bytes (the
// caller cleans it). 0, or a negative errno value (a descriptor that is not open; on a device
// also a buffer the kernel refuses to rename, such as one already attached to a device).
int SetDmaBufName(int fd, const char* name);

// The name the buffer behind `fd` carries now; empty when it has none or `fd` is not open.
std::string GetDmaBufName(int fd);

}  // namespace zol
