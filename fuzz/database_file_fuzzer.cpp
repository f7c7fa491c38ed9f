// ZOLAlgoSimulation::readDatabase on arbitrary bytes.
//
// Input: two bytes for the size of the caller's block (0..4095), then the file. The block is
// allocated exactly that size. Checked besides the sanitizers: a file at least as long as the
// block fills it with its first bytes; a shorter one leaves the bytes it does not reach as
// they were.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "zolalgosimulation.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zolfuzz::Setup();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = zolfuzz::DevicePath("/database.bin");
    static ZOLAlgoSimulation* simulation = new ZOLAlgoSimulation();
    zolfuzz::Reader in(data, size);
    const size_t blockSize = in.U16() % 4096;
    const std::string file = in.Bytes(in.Left());
    zolfuzz::WriteFile(path, reinterpret_cast<const uint8_t*>(file.data()), file.size());

    // Heap-allocated with the exact size, so that a byte written past it is caught; the
    // contents start as a pattern the file is unlikely to repeat.
    uint8_t* block = static_cast<uint8_t*>(std::malloc(blockSize == 0 ? 1 : blockSize));
    for (size_t i = 0; i < blockSize; ++i) {
        block[i] = static_cast<uint8_t>(0xA5 ^ i);
    }
    char pathArg[256];
    std::snprintf(pathArg, sizeof(pathArg), "%s", path.c_str());
    simulation->readDatabase(reinterpret_cast<ZOLDatabaseBaseStruct*>(block), blockSize, pathArg);

    const size_t reached = std::min(blockSize, file.size());
    if (file.size() >= blockSize && std::memcmp(block, file.data(), blockSize) != 0) {
        std::fprintf(stderr, "the block does not hold the file's first %zu bytes\n", blockSize);
        std::abort();
    }
    for (size_t i = reached; i < blockSize; ++i) {
        if (block[i] != static_cast<uint8_t>(0xA5 ^ i)) {
            std::fprintf(stderr, "byte %zu past the end of the file changed\n", i);
            std::abort();
        }
    }
    std::free(block);
    return 0;
}
