#pragma once
#include <filesystem>
#include <string>
#include <vector>

namespace tsl {

// The applications a simulated guest comes with: the test pattern and a plain
// text application, as bundles the simulated desktop launches by path or
// identifier. They belong to the simulated system: whoever prepares its
// folders puts them there, never the agent.
struct SampleApp {
    std::string folderName;  // "<name>.app"
    std::string name;
    std::string bundleID;
    std::string version;
};

const std::vector<SampleApp>& sampleApps();

// Writes each sample bundle into `appsDir` that isn't there yet; leaves
// whatever stands there alone. Returns false if a bundle couldn't be written.
bool placeSampleApps(const std::filesystem::path& appsDir);

}  // namespace tsl
