#include <ui/GraphicBuffer.h>

#include <cstring>

namespace android {

GraphicBuffer::GraphicBuffer(const native_handle_t* inHandle, HandleWrapMethod method,
                             uint32_t width, uint32_t height, int format, uint32_t layerCount,
                             uint64_t usage, uint32_t stride)
    : method_(method),
      width_(width),
      height_(height),
      format_(format),
      layer_count_(layerCount),
      usage_(usage),
      stride_(stride) {
    if (inHandle != nullptr) {
        had_handle_ = true;
        handle_version_ = inHandle->version;
        handle_num_fds_ = inHandle->numFds;
        handle_num_ints_ = inHandle->numInts;
        // The first data slot follows the three header ints; read it bytewise (the handle's
        // declared array has no elements).
        std::memcpy(&handle_data0_,
                    reinterpret_cast<const char*>(inHandle) + sizeof(native_handle_t), sizeof(int));
    }
}

}  // namespace android
