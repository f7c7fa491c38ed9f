// Internal: the simulation mode and the paths of the simulation dump tree. Every path starts
// from the device path of "/data/vendor/camera" and is built with snprintf into a buffer of the
// size given here (a longer path is cut, as snprintf cuts it).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "platform/uniquefd.h"

// 1 save, 2 replay, anything else off; read from the property when the library is loaded.
extern int32_t ZOLAlgoSimulationMode;

namespace zol {
namespace algosim {

constexpr size_t kFolderPathBytes = 256;  // the base folder and a save folder
constexpr size_t kFilePathBytes = 512;    // a replay folder and every file

// "<camera>/algosimulation/", with a trailing slash.
void BaseFolderPath(char (&out)[kFolderPathBytes]);

// "<camera>/algosimulation/SimulationIntputInfo_MMDDhhmmssmmm/": month, day, hour, minute,
// second from `local`, then the milliseconds of `microseconds` (truncated).
void SaveFolderPath(char (&out)[kFolderPathBytes], const struct tm& local, long microseconds);

// "<folder>inputFrameInfo_<width>x<height>_<index>_.yuv"
void FrameFilePath(char (&out)[kFilePathBytes], const char* folder, uint32_t width, uint32_t height,
                   size_t index);

// A file of a save folder opened for replay: the names come from a folder anyone may have
// filled, so it is opened without blocking (a FIFO would wait for a writer for ever) and kept
// only when it is a regular file. Null otherwise, which the callers treat as an open failure.
zol::UniqueFile OpenRegularForReading(const char* path);

}  // namespace algosim
}  // namespace zol
