// The built `tessel scan` over the toolchain corpus.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "TesselHost/TesselRun.h"
#include "Support/MachOCorpus.h"
#include "Support/SimSupport.h"
#include "Support/TempDir.h"
#include "TslCore/Scanner/ScannerJSON.h"

using namespace tsl;
using nlohmann::json;
using test::MachOCorpus;
using test::runTessel;

namespace {

std::vector<std::string> scanArguments(const MachOCorpus& corpus, const json& scan, bool asJSON) {
    std::vector<std::string> argv{"scan", "--max-depth", std::to_string(scan.at("maxDepth").get<int>())};
    if (scan.at("includeApple").get<bool>()) argv.push_back("--include-apple");
    if (asJSON) argv.push_back("--json");
    for (const auto& root : scan.at("roots")) argv.push_back(corpus.path(root));
    return argv;
}

}  // namespace

TEST(TesselScan, JSONIsExactlyTheExpectedReport) {
    const auto corpus = MachOCorpus::generated();
    TSL_REQUIRE_CORPUS(corpus);
    for (const auto& scan : corpus.expected.at("scans")) {
        SCOPED_TRACE(scan.dump());
        const auto run = runTessel(scanArguments(corpus, scan, true));
        ASSERT_EQ(run.status, 0) << run.err;
        const json printed = json::parse(run.out);
        const auto report = printed.get<AppScanner::Report>();  // also checks the ISO 8601 date
        std::vector<std::string> roots;
        for (const auto& root : scan.at("roots")) roots.push_back(corpus.path(root));
        EXPECT_EQ(report.roots, roots);
        std::vector<std::string> found;
        for (const auto& app : printed.at("apps")) {
            const std::string relative = app.at("path").get<std::string>().substr(corpus.root.native().size() + 1);
            found.push_back(relative);
            EXPECT_EQ(app, corpus.bundle(relative));
        }
        EXPECT_EQ(found, scan.at("apps").get<std::vector<std::string>>());
    }
}

TEST(TesselScan, TableGroupsByClassWithCounts) {
    const auto corpus = MachOCorpus::generated();
    TSL_REQUIRE_CORPUS(corpus);
    const json scan = corpus.expected.at("scans").back();
    const auto run = runTessel(scanArguments(corpus, scan, false));
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.err.empty()) << "no progress line when standard error isn't a terminal";

    std::vector<std::string> intelOnly;
    for (const auto& relative : scan.at("apps"))
        if (corpus.bundle(relative).at("archClass") == "intelOnly") intelOnly.push_back(corpus.path(relative));
    ASSERT_FALSE(intelOnly.empty());
    const std::string heading = "Intel-only (needs the virtual Mac): " + std::to_string(intelOnly.size()) + "\n";
    const size_t start = run.out.find(heading);
    ASSERT_NE(start, std::string::npos) << run.out;
    const size_t end = run.out.find("\n\n", start);
    const std::string group = run.out.substr(start, end - start);
    for (const auto& path : intelOnly) EXPECT_NE(group.find(path), std::string::npos) << path;
    EXPECT_NE(run.out.find("Universal: "), std::string::npos);
}

TEST(TesselScan, RelativeRootsAreReportedAsAbsolutePaths) {
    test::TempDir dir;
    test::makeBundle(dir / "Apps", "Tool", "com.example.tool");
    test::ChildProcess child("/bin/sh", {"-c", "cd \"$0\" && exec \"$1\" scan --json Apps/", dir.path().string(),
                                         test::tesselExecutable()});
    ASSERT_EQ(child.wait(), 0) << child.standardError();
    const json printed = json::parse(child.standardOutput());
    EXPECT_EQ(printed.at("roots"), json::array({(dir / "Apps").string()}));
    EXPECT_EQ(printed.at("apps").at(0).at("path"), (dir / "Apps" / "Tool.app").string());
}

TEST(TesselScan, RefusesABadDepth) {
    const auto run = runTessel({"scan", "--max-depth", "0"});
    ASSERT_TRUE(run.status.has_value());
    EXPECT_NE(*run.status, 0);
    EXPECT_NE(run.err.find("--max-depth"), std::string::npos) << run.err;
    EXPECT_TRUE(run.out.empty());
}
