#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslCore/Scanner/AppScanner.h"

using namespace tsl;
using namespace tsl::test;

namespace {

void makeScanBundle(const std::filesystem::path& path, const std::string& name) {
    writeFile(path / "Contents/Info.plist",
              "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleName</key><string>" + name +
                  "</string></dict></plist>");
}

std::vector<std::string> names(const AppScanner::Report& report) {
    std::vector<std::string> out;
    for (const auto& app : report.apps) out.push_back(app.name);
    return out;
}

}  // namespace

TEST(AppScanner, SortsByNameCaseAsideKeepingTheOrderFound) {
    TempDir tmp;
    makeScanBundle(tmp / "one/a.app", "report");
    makeScanBundle(tmp / "one/b.app", "Zeta");
    makeScanBundle(tmp / "two/c.app", "Report");
    makeScanBundle(tmp / "two/d.app", "alpha");
    makeScanBundle(tmp / "two/e.app", "Beta");

    AppScanner scanner{{{tmp / "one", tmp / "two"}, false, 1}};
    EXPECT_EQ(names(scanner.scan()), (std::vector<std::string>{"alpha", "Beta", "report", "Report", "Zeta"}));
    scanner.options.roots = {tmp / "two", tmp / "one"};
    EXPECT_EQ(names(scanner.scan()), (std::vector<std::string>{"alpha", "Beta", "Report", "report", "Zeta"}));

    size_t told = 0;
    scanner.scan([&](size_t read, const AppBundleInfo&) { told = read; });
    EXPECT_EQ(told, 5u);
}

TEST(AppScanner, EmptyRootsGiveAnEmptyDatedReport) {
    const auto before = std::chrono::system_clock::now();
    const auto report = AppScanner{}.scan();
    EXPECT_TRUE(report.apps.empty());
    EXPECT_TRUE(report.roots.empty());
    EXPECT_GE(report.scannedAt, before - std::chrono::seconds(1));
    EXPECT_GE(report.durationSeconds, 0.0);

    const auto roots = AppScanner::defaultRoots();
    ASSERT_EQ(roots.size(), 3u);
    EXPECT_EQ(roots[0], "/Applications");
    EXPECT_EQ(roots[1], "/Applications/Utilities");
    EXPECT_EQ(roots[2].filename(), "Applications");
}
