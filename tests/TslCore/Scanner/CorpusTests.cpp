// The scanner against Mach-O files and bundles that real toolchains made,
// and against a shared corpus when one stands beside the project.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Support/MachOCorpus.h"
#include "TslCore/Scanner/AppScanner.h"
#include "TslCore/Scanner/MachO.h"
#include "TslCore/Scanner/ScannerJSON.h"

using namespace tsl;
using nlohmann::json;
using test::MachOCorpus;

namespace {

using Strings = std::vector<std::string>;

Strings descriptions(const std::vector<MachOArch>& archs) {
    Strings out;
    for (const auto& a : archs) out.push_back(a.description());
    return out;
}

size_t checkMachOFiles(const MachOCorpus& corpus) {
    const json files = corpus.expected.value("machO", json::array());
    for (const auto& e : files) {
        const std::string file = corpus.path(e.at("file"));
        SCOPED_TRACE(file);
        if (e.contains("error")) {
            try {
                MachO::archs(file);
                ADD_FAILURE() << "read as Mach-O";
            } catch (const MachOError& error) {
                EXPECT_EQ(error.description(), e["error"].get<std::string>());
            }
        } else {
            const auto archs = MachO::archs(file);
            EXPECT_EQ(descriptions(archs), e.at("archs").get<Strings>());
            if (e.contains("archClass")) {
                EXPECT_EQ(toString(classify(archs)), e["archClass"].get<std::string>());
            }
        }
        if (e.contains("dylibs")) {
            EXPECT_EQ(MachO::linkedDylibs(file, false), e["dylibs"].get<Strings>());
        }
        if (e.contains("weakDylibs")) {
            EXPECT_EQ(MachO::linkedDylibs(file, true), e["weakDylibs"].get<Strings>());
        }
    }
    return files.size();
}

size_t checkBundles(const MachOCorpus& corpus) {
    const json bundles = corpus.expected.value("bundles", json::array());
    for (const auto& b : bundles) {
        const std::string relative = b.at("path");
        const AppBundleInfo info = AppBundleInfo::read(corpus.path(relative));
        const json got = info;
        EXPECT_EQ(got, corpus.bundle(relative)) << got.dump(2);
        EXPECT_EQ(got.get<AppBundleInfo>(), info) << "JSON round trip of " << relative;
    }
    return bundles.size();
}

size_t checkScans(const MachOCorpus& corpus) {
    const json scans = corpus.expected.value("scans", json::array());
    for (const auto& s : scans) {
        AppScanner scanner;
        Strings roots;
        for (const auto& r : s.at("roots")) {
            scanner.options.roots.push_back(corpus.path(r));
            roots.push_back(corpus.path(r));
        }
        scanner.options.maxDepth = s.at("maxDepth");
        scanner.options.includeApple = s.at("includeApple");
        SCOPED_TRACE(s.dump());
        const auto report = scanner.scan();
        EXPECT_EQ(report.roots, roots);
        Strings found;
        for (const auto& app : report.apps) {
            const std::string relative = app.path.substr(corpus.root.native().size() + 1);
            found.push_back(relative);
            EXPECT_EQ(json(app), corpus.bundle(relative));
        }
        EXPECT_EQ(found, s.at("apps").get<Strings>());
    }
    return scans.size();
}

}  // namespace

TEST(ToolchainCorpus, SlicesAndLibrariesMatchLipoAndOtool) {
    const auto corpus = MachOCorpus::generated();
    TSL_REQUIRE_CORPUS(corpus);
    EXPECT_GE(checkMachOFiles(corpus), 15u);
}

TEST(ToolchainCorpus, BundlesReadAsExpected) {
    const auto corpus = MachOCorpus::generated();
    TSL_REQUIRE_CORPUS(corpus);
    EXPECT_GE(checkBundles(corpus), 15u);
}

TEST(ToolchainCorpus, ScansFindExactlyTheExpectedBundles) {
    const auto corpus = MachOCorpus::generated();
    TSL_REQUIRE_CORPUS(corpus);
    EXPECT_GE(checkScans(corpus), 2u);
}

TEST(SharedFixtures, AgreeWithTheScanner) {
    const auto corpus = MachOCorpus::shared();
    TSL_REQUIRE_CORPUS(corpus);
    EXPECT_GT(checkMachOFiles(corpus) + checkBundles(corpus) + checkScans(corpus), 0u)
        << "expected.json names no files, bundles or scans";
}
