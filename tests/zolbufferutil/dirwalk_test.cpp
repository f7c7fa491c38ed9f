// The directory walk (bare names, stat relative to the working directory) and ZOLGetFileName.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <string>
#include <vector>

#include "zolbufferutil.h"
#include "zoltest.h"

namespace {

// The visible entries of a directory in the order its stream delivers them.
std::vector<std::string> StreamOrder(const std::string& path) {
    std::vector<std::string> out;
    DIR* dir = opendir(path.c_str());
    while (dirent* e = dir != nullptr ? readdir(dir) : nullptr) {
        if (e->d_name[0] != '.') {
            out.push_back(e->d_name);
        }
    }
    if (dir != nullptr) {
        closedir(dir);
    }
    return out;
}

// Runs the test body in `dir` and goes back to the previous working directory.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::string& dir) {
        EXPECT_NE(nullptr, getcwd(previous_, sizeof(previous_)));
        EXPECT_EQ(0, chdir(dir.c_str()));
    }
    ~WorkingDirectory() { EXPECT_EQ(0, chdir(previous_)); }

private:
    char previous_[PATH_MAX];
};

TEST(TraveDir, ListsVisibleEntriesAsBareNamesInStreamOrder) {
    zoltest::DeviceRoot root;
    root.WriteFile("/d/.h", "");
    root.WriteFile("/d/x", "");
    root.WriteFile("/d/y", "");
    const std::string dir = root.path() + "/d";
    std::vector<std::string> names = {"kept"};
    ZOLBufferUtil::traveDir(dir.c_str(), 2, names);
    std::vector<std::string> expected = {"kept"};
    for (const std::string& name : StreamOrder(dir)) {
        expected.push_back(name);
    }
    EXPECT_EQ(expected, names);
    EXPECT_EQ(3u, names.size());
}

TEST(TraveDir, DescendsOnlyWhenTheWorkingDirectoryIsThePath) {
    zoltest::DeviceRoot root;
    root.WriteFile("/d/sub/inner", "");
    root.WriteFile("/d/sub/.hidden", "");
    const std::string dir = root.path() + "/d";

    // From elsewhere the bare name "sub" is not found, so there is no descent.
    std::vector<std::string> names;
    ZOLBufferUtil::traveDir(dir.c_str(), 0, names);
    EXPECT_EQ(std::vector<std::string>({"sub"}), names);

    // From inside the directory it is, and the subdirectory's names follow its own.
    WorkingDirectory cwd(dir);
    names.clear();
    ZOLBufferUtil::traveDir(dir.c_str(), 0, names);
    EXPECT_EQ(std::vector<std::string>({"sub", "inner"}), names);
    names.clear();
    ZOLBufferUtil::traveDir(dir.c_str(), 2, names);
    EXPECT_EQ(std::vector<std::string>({"sub"}), names);
}

TEST(TraveDir, DepthOneDescendsOneLevelFewerThanDepthZero) {
    zoltest::DeviceRoot root;
    // From the working directory d, "a" is a directory; inside a, "a" is looked up in d again,
    // which is how the relative lookup recurses at all.
    root.WriteFile("/d/a/a/leaf", "");
    const std::string dir = root.path() + "/d";
    WorkingDirectory cwd(dir);
    std::vector<std::string> names;
    ZOLBufferUtil::traveDir(dir.c_str(), 1, names);
    EXPECT_EQ(std::vector<std::string>({"a", "a"}), names);
    names.clear();
    ZOLBufferUtil::traveDir(dir.c_str(), 0, names);
    EXPECT_EQ(std::vector<std::string>({"a", "a", "a"}), names);
}

TEST(TraveDir, UnopenablePathLeavesTheListAlone) {
    zoltest::DeviceRoot root;
    std::vector<std::string> names = {"kept"};
    ZOLBufferUtil::traveDir((root.path() + "/missing").c_str(), 0, names);
    ZOLBufferUtil::traveDir(root.WriteFile("/file", "x").c_str(), 0, names);
    EXPECT_EQ(std::vector<std::string>({"kept"}), names);
}

TEST(GetFileName, PointsBehindTheLastSlash) {
    const char* path = "a/b/c.yuv";
    EXPECT_EQ(path + 4, ZOLGetFileName(path));
    EXPECT_STREQ("c.yuv", ZOLGetFileName(path));
    const char* bare = "frame.yuv";
    EXPECT_EQ(bare, ZOLGetFileName(bare));
    EXPECT_STREQ("", ZOLGetFileName("/data/dir/"));
    EXPECT_STREQ("x", ZOLGetFileName("/x"));
}

}  // namespace
