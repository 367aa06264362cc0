// Bundle reading beyond what the toolchain corpus covers: plist shapes,
// planted pipes, the driver bound, and the JSON form.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslCore/Scanner/AppBundleInfo.h"
#include "TslCore/Scanner/ScannerJSON.h"

using namespace tsl;
using namespace tsl::test;
using nlohmann::json;

namespace {

std::string xmlPlist(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n" + body + "\n</plist>\n";
}

}  // namespace

TEST(AppBundleInfo, PlistShapesAndPlantedFiles) {
    TempDir tmp;
    writeFile(tmp / "Array.app/Contents/Info.plist", xmlPlist("<array><string>x</string></array>"));
    auto info = AppBundleInfo::read(tmp / "Array.app/");
    EXPECT_EQ(info.path, (tmp / "Array.app").native());
    EXPECT_EQ(info.name, "Array");
    EXPECT_EQ(info.executable, "Array");
    EXPECT_EQ(info.bundleID, std::nullopt);

    writeFile(tmp / "Types.app/Contents/Info.plist",
              xmlPlist("<dict><key>CFBundleName</key><true/><key>CFBundleIdentifier</key><integer>7</integer>"
                       "<key>CFBundleVersion</key><string>12</string><key>CFBundleExecutable</key>"
                       "<string>.hidden</string><key>CFBundleDisplayName</key><string></string></dict>"));
    info = AppBundleInfo::read(tmp / "Types.app");
    EXPECT_EQ(info.name, "") << "an empty display name is still a string";
    EXPECT_EQ(info.bundleID, std::nullopt);
    EXPECT_EQ(info.version, "12");
    EXPECT_EQ(info.executable, ".hidden");
    EXPECT_TRUE(info.archs.empty());

    // Pipes where the Info.plist and the executable belong must not hang the read.
    std::filesystem::create_directories(tmp / "Piped.app/Contents/MacOS");
    ASSERT_EQ(::mkfifo((tmp / "Piped.app/Contents/Info.plist").c_str(), 0600), 0);
    ASSERT_EQ(::mkfifo((tmp / "Piped.app/Contents/MacOS/Piped").c_str(), 0600), 0);
    info = AppBundleInfo::read(tmp / "Piped.app");
    EXPECT_EQ(info.name, "Piped");
    EXPECT_EQ(info.archClass, ArchClass::unknown);
    EXPECT_EQ(info.traits, BundleTraits{});
}

TEST(BundleTraits, DriverListIsBoundedOnEnteringAFolder) {
    TempDir tmp;
    for (int i = 0; i < 12; ++i)
        std::filesystem::create_directories(tmp /
                                            ("Big.app/Contents/Library/Extensions/D" + std::to_string(i) + ".kext"));
    std::filesystem::create_directories(tmp / "Big.app/Contents/Resources/Late.dext");
    const auto traits = BundleTraits::inspect(tmp / "Big.app", std::nullopt);
    EXPECT_EQ(traits.drivers.size(), 12u) << "one folder may carry the list past ten";
    EXPECT_TRUE(std::is_sorted(traits.drivers.begin(), traits.drivers.end()));
    EXPECT_EQ(std::count(traits.drivers.begin(), traits.drivers.end(), "Late.dext"), 0);
}

TEST(ScannerJSON, FieldNamesOptionalsAndDates) {
    AppBundleInfo info;
    info.path = "/Applications/Tool.app";
    info.name = "Tool";
    info.bundleID = "com.example.tool";
    info.archs = {MachOArch::x86_64, MachOArch::other(99, 1)};
    info.archClass = ArchClass::intelOnly;
    info.traits = BundleTraits{true, false, true, {"A.kext"}};
    const json j = info;
    EXPECT_EQ(j, json::parse(R"js({"path":"/Applications/Tool.app","name":"Tool","bundleID":"com.example.tool",
        "archs":["x86_64","cpu(99,1)"],"archClass":"intelOnly",
        "traits":{"usesOpenGL":true,"usesOpenCL":false,"appStoreReceipt":true,"drivers":["A.kext"]}})js"));

    // Other slices come back as other(-1, -1); absent and null optionals decode as absent.
    const auto back = json::parse(R"js({"path":"/p","name":"n","archs":["arm64","cpu(99,1)"],"archClass":"universal",
        "version":null})js")
                          .get<AppBundleInfo>();
    EXPECT_EQ(back.archs, (std::vector<MachOArch>{MachOArch::arm64, MachOArch::other(-1, -1)}));
    EXPECT_EQ(back.version, std::nullopt);
    EXPECT_EQ(back.traits, std::nullopt);
    EXPECT_THROW(json::parse(R"js({"path":"/p","name":"n","archs":[]})js").get<AppBundleInfo>(), json::exception);
    EXPECT_THROW(json::parse(R"js({"path":"/p","name":"n","archs":[],"archClass":"fast"})js").get<AppBundleInfo>(),
                 json::exception);
    EXPECT_THROW(json::parse(R"js({"usesOpenGL":true,"usesOpenCL":false,"drivers":[]})js").get<BundleTraits>(),
                 json::exception);

    AppScanner::Report report;
    report.scannedAt =
        std::chrono::sys_days{std::chrono::year{2026} / 10 / 7} + std::chrono::hours{12} + std::chrono::seconds{5};
    report.durationSeconds = 0.25;
    report.roots = {"/Applications"};
    AppBundleInfo plain = info;
    plain.archs = {MachOArch::x86_64};  // other slices don't round-trip
    report.apps = {plain, back};
    const json r = report;
    EXPECT_EQ(r["scannedAt"], "2026-10-07T12:00:05Z");
    EXPECT_EQ(r.get<AppScanner::Report>(), report);
    EXPECT_EQ(report.count(ArchClass::intelOnly), 1u);
    EXPECT_EQ(report.count(ArchClass::universal), 1u);
    EXPECT_EQ(report.count(ArchClass::unknown), 0u);
}
