// Algorithm simulation: saving what an algorithm invocation was given (its input image buffers
// and its database block) to files on the device, and feeding saved inputs back into later
// invocations, so that an algorithm can be run again offline on recorded data.
//
// The mode is fixed when the library is loaded, from the property
// "persist.vendor.camera.capture.algosimulation.dump" (default 1): 1 saves, 2 replays, anything
// else turns the facility off. Saving is therefore on unless the property says otherwise.
//
//   ZOLAlgoSimulation simulation;
//   simulation.Initialize();                     // makes sure the base folder exists
//   ...
//   simulation.OnAlgoSimulation(inputs, reinterpret_cast<ZOLDatabaseBaseStruct*>(&db),
//                               sizeof(db));     // once per invocation, before the algorithm
//
// Files (the base folder is /data/vendor/camera/algosimulation/):
//   <base>SimulationIntputInfo_MMDDhhmmssmmm/    one folder per save, from the local time with
//                                                milliseconds ("Intput" is its real spelling)
//     requestInfo.bin                            40 bytes per buffer, native byte order: format,
//                                                width, height, planeStride, sliceHeight,
//                                                numberOfPlanes (u32 each), fd0..fd3 (i32 each)
//     inputFrameInfo_<w>x<h>_<i>_.yuv            buffer i as ZOLBufferUtil::ZOLBufferDump writes
//                                                it, with buffer 0's planeStride, sliceHeight
//                                                and numberOfPlanes for every buffer
//     database.bin                               the database block, byte for byte
//
// Replay lists the base folder (every entry not beginning with '.', in directory order, stray
// files included), takes the entry at the current index, reads every file of that folder into
// the caller's records, planes and database, and moves the index on, wrapping around. The caller
// owns the records, their planes and the database block: in replay mode the vector must hold as
// many records as were saved, each with its geometry set and its planes allocated.
//
// A replay never writes past the caller's planes. A plane the library handed out (a block of
// the buffer pool) takes what its block holds; a plane the caller made takes what its record
// described before any replay changed it, which a caller that passes the same records again
// (as the last replay left them) is still held to. A saved frame whose index is not below the
// vector's size, whose geometry does not fit that bound (or holds more rows of row bytes than
// the bound has bytes, or more than 2 GiB), or whose file is not a regular file, is skipped
// like an unknown file, before anything is read. Files of a replay are opened without
// blocking, so a FIFO among them is skipped rather than waited on.
//
// Results and messages: all messages are level-D lines of the debug log, beginning with
// "[algorithm simulation]: ". Nothing throws.
//
// Threads: none of its own and no locks. One object is used by one thread at a time; two saves
// within the same millisecond share one folder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zolbuffermanager.h"
#include "zolexport.h"
#include "zolimagebuffer.h"

// The calling algorithm's database or parameter block. The library only ever sees its address
// and the byte size the caller states; it never looks inside, allocates or frees it.
struct ZOLDatabaseBaseStruct;

class ZOL_EXPORT ZOLAlgoSimulation {
public:
    // Touches no file; the replay index starts at 0.
    ZOLAlgoSimulation();
    virtual ~ZOLAlgoSimulation();
    ZOLAlgoSimulation(const ZOLAlgoSimulation&) = delete;
    ZOLAlgoSimulation& operator=(const ZOLAlgoSimulation&) = delete;

    // Resets the replay index to 0 and creates the base folder (mode 0700) when it cannot be
    // opened; a failure is logged ("make algosimulation directory fail.") and nothing else.
    void Initialize();

    // Mode 1: saveSimulationInfo. Mode 2: readSimulationInfo. Otherwise true, and nothing is
    // done.
    bool OnAlgoSimulation(std::vector<ZOLImageBuffer>& buffers, ZOLDatabaseBaseStruct* database,
                          unsigned int databaseSize);

    // Saves into a new folder named from the current local time: the request records, every
    // buffer's frame file (only fd0 is cache-synchronised, read-write, around each dump) and the
    // database. False when the folder cannot be created (its parent is not created: without
    // Initialize and the base folder this fails) or the request file cannot be written.
    bool saveSimulationInfo(std::vector<ZOLImageBuffer>& buffers, ZOLDatabaseBaseStruct* database,
                            unsigned int databaseSize);

    // Replays the folder at the current index and advances it modulo the number of listed
    // names. False, with "Current directory don't exit!", when the base folder lists nothing or
    // the index is past the list (the index then stays), or when the entry cannot be opened as
    // a folder (a stray file, a looping link: the index moves on, so the folders after it are
    // replayed in turn). Files are dispatched by name, first match wins: "requestInfo"
    // (records), "_0_", "_1_", "_2_" (frames into elements 0, 1, 2), "database"; anything else
    // is logged as "read data don't exit.". A frame is read with the geometry its record holds
    // at that moment (the request file may come before or after it in the listing).
    bool readSimulationInfo(std::vector<ZOLImageBuffer>& buffers, ZOLDatabaseBaseStruct* database,
                            unsigned int databaseSize);

    // The request record file: one 40-byte record per element, written in vector order. False
    // when the file cannot be opened.
    bool writerRequestBuffer(std::vector<ZOLImageBuffer>& buffers, char* path);
    // Reads as many records as the vector holds (never resizing it) into everything but the
    // plane addresses, pNativeHandle and pReserved; each record's count of complete items (8
    // for a whole record) is logged. A short file leaves the rest as it was. False when the file
    // cannot be opened or is not a regular file.
    bool readRequestBuffer(std::vector<ZOLImageBuffer>& buffers, char* path);
    // The database file: exactly `size` bytes of the block, or the block read back from it (the
    // logged count is 1 for a whole block, 0 otherwise, a 0-byte block included); only a regular
    // file is read.
    void dumpDatabase(ZOLDatabaseBaseStruct* database, unsigned long size, char* path);
    void readDatabase(ZOLDatabaseBaseStruct* database, unsigned long size, char* path);

private:
    // Moves the replay index on, modulo the number of listed names.
    void AdvanceFolderIndex();

    std::vector<std::string> m_algoFolderNames;  // entries of the base folder at the last replay
    uint32_t m_algoFolderNamesIndex;             // the entry to replay next
    ZOLBufferManager m_bufferManager;            // cache synchronisation only; allocates nothing
    // The caller's records as the last replay left them, and as the caller had described them
    // before: what a reused record's planes were made for.
    std::vector<ZOLImageBuffer> m_replayedRecords;
    std::vector<ZOLImageBuffer> m_describedRecords;
};
