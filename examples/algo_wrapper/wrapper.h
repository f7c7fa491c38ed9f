// AlgoWrapper: what a camera vendor process keeps around one algorithm.
//
//   - a named ZOLBufferManager hands out the NV21 input and output images as DMA buffers and a
//     heap scratch block for the RGBA stage, and takes them back at destruction;
//   - every CPU access to a DMA image is bracketed by Start/EndCPUSync on each of its planes;
//   - a ZOLAlgoSimulation is called once per invocation, before the algorithm: in save mode it
//     writes the input and the database to a new folder, in replay mode it overwrites them with
//     the next saved folder's (the mode comes from the property
//     "persist.vendor.camera.capture.algosimulation.dump", read when the library loads);
//   - the algorithm itself (toyalgo.h) runs on the input and writes the output;
//   - each successful invocation ends with the pool's stats line (ZOLBufferPool::LogStats).
//
// One thread uses a wrapper at a time.
#pragma once

#include <string>
#include <vector>

#include "toyalgo.h"
#include "zolalgosimulation.h"
#include "zolbuffermanager.h"

namespace example {

struct Invocation {
    ToyAlgoDatabase db{};     // what the algorithm ran with (replayed: what was saved)
    double prepareMs = 0;     // drawing the scene (save) or nothing (replay)
    double simulationMs = 0;  // OnAlgoSimulation: saving or reading back
    double algorithmMs = 0;   // the tone curve
    bool simulationOk = false;
};

class AlgoWrapper {
public:
    AlgoWrapper(uint32_t width, uint32_t height);
    // Gives the images and the scratch block back to the manager (which would otherwise
    // release them itself, with a warning, when it goes).
    ~AlgoWrapper();
    AlgoWrapper(const AlgoWrapper&) = delete;
    AlgoWrapper& operator=(const AlgoWrapper&) = delete;

    // Allocates the images and the scratch block and makes sure the simulation folder exists.
    // False with `error` set when an allocation fails.
    bool Init(std::string& error);

    // One invocation. In save mode the input is drawn for `frame` first; in replay mode
    // `frame` only counts, and input and database come from the saved folder. False with
    // `error` when the simulation call failed or gave back something that is not this
    // algorithm's (a foreign database, another geometry).
    bool Invoke(uint32_t frame, bool replay, Invocation& result, std::string& error);

    // Writes the output image to a raw file (rows without padding, luma then chroma).
    bool DumpOutput(const std::string& path);

    uint32_t sliceHeight() const { return m_input.sliceHeight; }

private:
    bool AllocImage(ZOLImageBuffer& image, std::string& error);
    // A save folder is named after the wall-clock millisecond, and two saves within one share
    // it (the second overwrites the first): saves are kept at least a millisecond apart.
    void WaitForNextSaveMillisecond() const;

    ZOLBufferManager m_buffers;
    ZOLAlgoSimulation m_simulation;
    ZOLImageBuffer m_input{};
    ZOLImageBuffer m_output{};
    uint8_t* m_rgba = nullptr;  // heap block of the manager
    int64_t m_lastSaveMs = -1;  // wall-clock millisecond of the last save
};

}  // namespace example
