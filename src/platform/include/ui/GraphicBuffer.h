// Host stand-in for the platform's android::GraphicBuffer: a reference-counted object made
// around a native handle, as the platform's wrapping constructor makes it. It allocates nothing
// and maps nothing; it records what it was given so that tests can check it. The handle is
// read once, at construction (its header and first data slot are copied): callers may pass a
// handle in storage that ends with the call, as the platform allows for a wrapped handle.
//
// It uses the header-only LightRefBase, so nothing needs the platform's utility library at run
// time; the two race/stack reporters that android::sp refers to are supplied by the library.
#pragma once

#include <android/hardware_buffer.h>
#include <cutils/native_handle.h>
#include <utils/LightRefBase.h>
#include <utils/StrongPointer.h>

#include <cstdint>

namespace android {

class GraphicBuffer : public LightRefBase<GraphicBuffer> {
public:
    enum HandleWrapMethod : uint8_t {
        WRAP_HANDLE,
        TAKE_HANDLE,
        TAKE_UNREGISTERED_HANDLE,
        CLONE_HANDLE,
    };

    GraphicBuffer(const native_handle_t* inHandle, HandleWrapMethod method, uint32_t width,
                  uint32_t height, int format, uint32_t layerCount, uint64_t usage,
                  uint32_t stride);

    // The same object as a hardware buffer; no reference is added.
    AHardwareBuffer* toAHardwareBuffer() { return reinterpret_cast<AHardwareBuffer*>(this); }
    static GraphicBuffer* fromAHardwareBuffer(AHardwareBuffer* buffer) {
        return reinterpret_cast<GraphicBuffer*>(buffer);
    }

    uint32_t getWidth() const { return width_; }
    uint32_t getHeight() const { return height_; }
    uint32_t getStride() const { return stride_; }
    int getPixelFormat() const { return format_; }
    uint32_t getLayerCount() const { return layer_count_; }
    uint64_t getUsage() const { return usage_; }
    HandleWrapMethod getWrapMethod() const { return method_; }
    // What the handle held at construction: version, numFds, numInts and its first data slot.
    int handleVersion() const { return handle_version_; }
    int handleNumFds() const { return handle_num_fds_; }
    int handleNumInts() const { return handle_num_ints_; }
    int handleData0() const { return handle_data0_; }
    bool hadHandle() const { return had_handle_; }

private:
    friend class LightRefBase<GraphicBuffer>;
    ~GraphicBuffer() = default;

    HandleWrapMethod method_;
    uint32_t width_;
    uint32_t height_;
    int format_;
    uint32_t layer_count_;
    uint64_t usage_;
    uint32_t stride_;
    bool had_handle_ = false;
    int handle_version_ = 0;
    int handle_num_fds_ = 0;
    int handle_num_ints_ = 0;
    int handle_data0_ = 0;
};

}  // namespace android
