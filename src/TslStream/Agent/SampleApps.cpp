#include "TslStream/Agent/SampleApps.h"

#include <fstream>

#include "TslCore/Measure/TestPattern.h"

namespace tsl {
namespace {

// One line of the property list per line here.
// clang-format off
std::string infoPlist(const SampleApp& app) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<plist version=\"1.0\">\n<dict>\n"
           "\t<key>CFBundleIdentifier</key>\n\t<string>" + app.bundleID + "</string>\n"
           "\t<key>CFBundleName</key>\n\t<string>" + app.name + "</string>\n"
           "\t<key>CFBundlePackageType</key>\n\t<string>APPL</string>\n"
           "\t<key>CFBundleShortVersionString</key>\n\t<string>" + app.version + "</string>\n"
           "</dict>\n</plist>\n";
}
// clang-format on

}  // namespace

const std::vector<SampleApp>& sampleApps() {
    static const std::vector<SampleApp> apps{
        {"Tsl TestPattern.app", "Tsl TestPattern", std::string(TestPatternSpec::bundleID), "1.0"},
        {"Tsl Scratchpad.app", "Tsl Scratchpad", "com.tessel.scratchpad", "1.0"},
    };
    return apps;
}

bool placeSampleApps(const std::filesystem::path& appsDir) {
    bool ok = true;
    for (const auto& app : sampleApps()) {
        const auto bundle = appsDir / app.folderName;
        std::error_code ec;
        if (std::filesystem::symlink_status(bundle, ec).type() != std::filesystem::file_type::not_found) continue;
        const auto contents = bundle / "Contents";
        std::filesystem::create_directories(contents, ec);
        std::ofstream out(contents / "Info.plist", std::ios::binary | std::ios::trunc);
        out << infoPlist(app);
        ok = ok && !ec && out.good();
    }
    return ok;
}

}  // namespace tsl
