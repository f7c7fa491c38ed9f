// Internal: the names inside the simulation dump tree, as the save writes them, the replay reads
// them and the host tool looks for them. A save folder is kSaveFolderPrefix followed by
// MMDDhhmmssmmm; it holds kRequestInfoName, kDatabaseName and one frame file per image.
#pragma once

namespace zol {
namespace algosim {

inline constexpr char kSaveFolderPrefix[] = "SimulationIntputInfo_";
inline constexpr char kRequestInfoName[] = "requestInfo.bin";
inline constexpr char kDatabaseName[] = "database.bin";
// A frame file's name, for printf and scanf alike: width, height and the image's index, each an
// int (the save has always written the sizes as ints, so tools that parse the names expect it).
inline constexpr char kFrameFileFormat[] = "inputFrameInfo_%dx%d_%d_.yuv";

}  // namespace algosim
}  // namespace zol
