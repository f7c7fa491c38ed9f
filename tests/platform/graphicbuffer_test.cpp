#include <gtest/gtest.h>

#include <ui/GraphicBuffer.h>

#include <cstring>

namespace {

TEST(GraphicBuffer, RecordsWhatItWasMadeWithAndCountsReferences) {
    NATIVE_HANDLE_DECLARE_STORAGE(storage, 0, 1);
    auto* handle = reinterpret_cast<native_handle_t*>(storage);
    handle->version = 0;
    handle->numFds = 0;
    handle->numInts = 0;
    const int fd = 42;
    std::memcpy(storage + sizeof(native_handle_t), &fd, sizeof(fd));

    android::sp<android::GraphicBuffer> buffer = new android::GraphicBuffer(
        handle, android::GraphicBuffer::WRAP_HANDLE, 640, 480, 34, 0, 0x20000, 704);
    EXPECT_EQ(640u, buffer->getWidth());
    EXPECT_EQ(480u, buffer->getHeight());
    EXPECT_EQ(704u, buffer->getStride());
    EXPECT_EQ(34, buffer->getPixelFormat());
    EXPECT_EQ(0u, buffer->getLayerCount());
    EXPECT_EQ(0x20000u, buffer->getUsage());
    EXPECT_EQ(0, buffer->handleVersion());
    EXPECT_EQ(0, buffer->handleNumFds());
    EXPECT_EQ(0, buffer->handleNumInts());
    EXPECT_EQ(42, buffer->handleData0());
    EXPECT_EQ(1, buffer->getStrongCount());

    android::sp<android::GraphicBuffer> copy = buffer;
    EXPECT_EQ(2, buffer->getStrongCount());
    AHardwareBuffer* hardware = buffer->toAHardwareBuffer();
    EXPECT_EQ(buffer.get(), android::GraphicBuffer::fromAHardwareBuffer(hardware));
    EXPECT_EQ(2, buffer->getStrongCount());
}

}  // namespace
