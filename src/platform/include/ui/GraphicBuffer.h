// Host stand-in for the platform's android::GraphicBuffer: a reference-counted object made
// around a native handle, as the platform's wrapping constructor makes it. It allocates nothing
// and maps nothing; it records what it was given so that tests can check it. The handle is
// read once, at construction (its header and first data slot are copied): callers may pass a
// handle in storage that ends with the call, as the platform allows for a wrapped handle.
//
// It counts its references itself, in the header, the way the platform's light reference base
// does (so nothing needs the platform's utility library at run time), but with an acquire-release
// decrement instead of a release decrement plus a fence, which ThreadSanitizer can follow. The
// two race/stack reporters that android::sp refers to are defined here, inline, since the host
// has no platform utility library to supply them; neither can fire for a heap object.
#pragma once

#include <cstdint>  // before StrongPointer.h, which uses uintptr_t without including it

#include <android/hardware_buffer.h>
#include <cutils/native_handle.h>
#include <utils/StrongPointer.h>

#include <atomic>

namespace android {

inline void sp_report_race() {}
inline void sp_report_stack_pointer() {}

class GraphicBuffer {
public:
    // The strong-reference protocol android::sp uses.
    void incStrong(const void* /*id*/) const { count_.fetch_add(1, std::memory_order_relaxed); }
    void decStrong(const void* /*id*/) const {
        if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete this;
        }
    }
    int32_t getStrongCount() const { return count_.load(std::memory_order_relaxed); }

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
    ~GraphicBuffer() = default;  // only the last strong reference deletes it

    mutable std::atomic<int32_t> count_{0};

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
