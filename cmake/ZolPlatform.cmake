# The platform the library stands on. On the host (Debian) the Android log library and the
# Android utility headers come from Debian's android-* packages; src/platform supplies the rest.
if(NOT CMAKE_LIBRARY_ARCHITECTURE)
    set(CMAKE_LIBRARY_ARCHITECTURE "${CMAKE_SYSTEM_PROCESSOR}-linux-gnu")
endif()

find_path(ZOL_ANDROID_INCLUDE_DIR NAMES android/log.h
    PATHS /usr/include/android NO_DEFAULT_PATH REQUIRED)
find_library(ZOL_ANDROID_LOG_LIBRARY NAMES log
    PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH REQUIRED)
get_filename_component(ZOL_ANDROID_LIB_DIR "${ZOL_ANDROID_LOG_LIBRARY}" DIRECTORY)

if(NOT EXISTS "${ZOL_ANDROID_INCLUDE_DIR}/utils/LightRefBase.h"
   OR NOT EXISTS "${ZOL_ANDROID_INCLUDE_DIR}/cutils/native_handle.h")
    message(FATAL_ERROR "Android utility headers missing: apt-get install android-libutils-dev android-libcutils-dev")
endif()

add_library(zol::android_log UNKNOWN IMPORTED)
set_target_properties(zol::android_log PROPERTIES IMPORTED_LOCATION "${ZOL_ANDROID_LOG_LIBRARY}")

# Host stand-ins for device headers, public because the units' headers include them.
set(ZOL_PLATFORM_PUBLIC_HEADERS
    src/platform/include/BufferAllocator/BufferAllocator.h
    src/platform/include/android/hardware_buffer.h
    src/platform/include/ui/GraphicBuffer.h
    src/platform/include/zolchituning.h)
