// The device root the example works in. On a host, every /data and /vendor path the library
// names lies under $ZOL_DEVICE_ROOT; the example sets it (default ./zol-root) and creates what
// a device would already have: the camera data folder, the offline log folder (the library
// never creates it) and the settings file that switches the offline log on.
#pragma once

#include <string>
#include <vector>

namespace example {

class DeviceSandbox {
public:
    // Uses `root` (made absolute) as the device root and exports it as ZOL_DEVICE_ROOT for the
    // library and for child processes. Must run before the library touches a device path.
    explicit DeviceSandbox(const std::string& root);

    // Creates the folders and, when absent, the settings file with "ZOLOfflineLog=true". False
    // with `error` set when a folder cannot be created.
    bool Prepare(std::string& error);
    // Removes the save folders of earlier runs, so that a replay walks this run's saves only.
    // Returns how many were removed.
    int ClearEarlierSaves();

    const std::string& root() const { return m_root; }
    std::string Path(const std::string& devicePath) const { return m_root + devicePath; }
    std::string SimulationBase() const { return Path("/data/vendor/camera/algosimulation/"); }
    std::string OfflineLogDir() const { return Path("/data/vendor/camera/offlinelog/"); }
    std::string OutputDir() const { return Path("/data/vendor/camera/algo_wrapper/"); }
    std::string SettingsFile() const { return Path("/vendor/etc/camera/camxoverridesettings.txt"); }

    // Sorted entry names of a directory (none when it cannot be read).
    static std::vector<std::string> List(const std::string& dir);

private:
    std::string m_root;
};

}  // namespace example
