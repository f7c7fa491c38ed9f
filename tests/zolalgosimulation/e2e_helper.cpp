// The two processes of the end-to-end test: `save` makes three invocations in save mode,
// `replay` makes seven in replay mode and checks each against what the listed folder holds.
// The mode comes from the property in the environment, read when the library loads.
//
//   env ZOL_DEVICE_ROOT=<root> persist.vendor.camera.capture.algosimulation.dump=1 helper save
//   env ZOL_DEVICE_ROOT=<root> persist.vendor.camera.capture.algosimulation.dump=2 helper replay
//
// Exit status 0 when everything matched; the first difference goes to stderr.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "algosim_test_support.h"
#include "e2e_geometry.h"
#include "zolalgosimulation.h"

namespace {

using algosimtest::Frame;

int Fail(const std::string& what) {
    fprintf(stderr, "e2e helper: %s\n", what.c_str());
    return 1;
}

std::vector<std::unique_ptr<Frame>> MakeFrames() {
    std::vector<std::unique_ptr<Frame>> frames;
    for (const e2e::Geometry& g : e2e::kFrames) {
        frames.push_back(std::make_unique<Frame>(g.width, g.height, e2e::kStride, g.height));
    }
    return frames;
}

std::vector<ZOLImageBuffer> Records(const std::vector<std::unique_ptr<Frame>>& frames) {
    std::vector<ZOLImageBuffer> records;
    for (const auto& frame : frames) {
        records.push_back(frame->buffer);
    }
    return records;
}

int Save() {
    ZOLAlgoSimulation simulation;
    simulation.Initialize();
    for (uint32_t id = 0; id < e2e::kInvocations; ++id) {
        auto frames = MakeFrames();
        for (size_t i = 0; i < frames.size(); ++i) {
            frames[i]->Paint(e2e::Seed(id, i));
        }
        std::vector<ZOLImageBuffer> records = Records(frames);
        std::string db = algosimtest::DatabaseFor(id);
        if (!simulation.OnAlgoSimulation(records, algosimtest::AsDatabase(db), db.size())) {
            return Fail("save " + std::to_string(id) + " failed");
        }
        // Folders are named to the millisecond: let the clock move on.
        usleep(5000);
    }
    return 0;
}

int Replay() {
    const char* root = getenv("ZOL_DEVICE_ROOT");
    const std::string base = std::string(root != nullptr ? root : "") + algosimtest::kBaseFolder;
    const std::vector<std::string> order = algosimtest::StreamOrder(base);
    if (order.size() != e2e::kInvocations) {
        return Fail("expected three saved folders");
    }
    // Which invocation each folder holds, from the database file on disk.
    std::map<std::string, uint32_t> idOf;
    for (const std::string& name : order) {
        const std::string saved = algosimtest::Slurp(base + name + "/database.bin");
        for (uint32_t id = 0; id < e2e::kInvocations; ++id) {
            if (saved == algosimtest::DatabaseFor(id)) {
                idOf[name] = id;
            }
        }
        if (idOf.count(name) == 0) {
            return Fail("folder " + name + " holds no known database");
        }
    }

    ZOLAlgoSimulation simulation;
    simulation.Initialize();
    for (uint32_t k = 0; k < 2 * e2e::kInvocations + 1; ++k) {
        auto frames = MakeFrames();
        std::vector<ZOLImageBuffer> records = Records(frames);
        std::string db(algosimtest::DatabaseFor(0).size(), '\0');
        if (!simulation.OnAlgoSimulation(records, algosimtest::AsDatabase(db), db.size())) {
            return Fail("replay " + std::to_string(k) + " failed");
        }
        const std::string& folder = order[k % order.size()];
        const uint32_t id = idOf[folder];
        const std::string where = "replay " + std::to_string(k) + " (" + folder + "): ";
        if (db != algosimtest::DatabaseFor(id)) {
            return Fail(where + "database differs");
        }
        for (size_t i = 0; i < frames.size(); ++i) {
            const std::string mismatch = frames[i]->Mismatch(e2e::Seed(id, i));
            if (!mismatch.empty()) {
                return Fail(where + "frame " + std::to_string(i) + ": " + mismatch);
            }
            if (memcmp(&records[i], &frames[i]->buffer, sizeof(ZOLImageBuffer)) != 0) {
                return Fail(where + "record " + std::to_string(i) + " differs");
            }
        }
        fprintf(stderr, "e2e helper: %sinvocation %u\n", where.c_str(), id);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && strcmp(argv[1], "save") == 0) {
        return Save();
    }
    if (argc == 2 && strcmp(argv[1], "replay") == 0) {
        return Replay();
    }
    return Fail("usage: helper save|replay");
}
