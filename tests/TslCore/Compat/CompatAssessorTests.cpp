#include <gtest/gtest.h>

#include "TslCore/Compat/CompatAssessor.h"

using namespace tsl;
using Status = CompatDatabase::Status;
using Source = CompatVerdict::Source;

namespace {

AppBundleInfo app(ArchClass archClass, std::optional<BundleTraits> traits = BundleTraits{},
                  std::optional<std::string> id = "com.example.app") {
    AppBundleInfo info;
    info.path = "/Applications/Example.app";
    info.name = "Example";
    info.bundleID = std::move(id);
    info.version = "2.0";
    info.archClass = archClass;
    info.traits = std::move(traits);
    return info;
}

CompatDatabase database(Status status, std::optional<std::string> note = std::nullopt) {
    CompatDatabase db;
    db.apps.push_back({"com.example.app", "Example", std::nullopt, status, std::move(note), "https://vendor", "recipe"});
    db.reindex();
    return db;
}

BundleTraits traits(bool gl, bool cl, bool receipt, std::vector<std::string> drivers = {}) {
    return BundleTraits{gl, cl, receipt, std::move(drivers)};
}

}  // namespace

TEST(CompatAssessor, ThirtyTwoBitComesFirstThenTheDatabaseThenHeuristics) {
    const auto legacy = CompatAssessor::verdict(app(ArchClass::legacy32bit), database(Status::works));
    EXPECT_EQ(legacy, (CompatVerdict{Status::wontRun, "32-bit only",
                                     "32-bit apps haven’t run on macOS since 10.15 — also not in the virtual Mac.", false,
                                     std::nullopt, std::nullopt, Source::heuristic}));

    const auto known = CompatAssessor::verdict(app(ArchClass::intelOnly, traits(true, false, false, {"X.kext"})),
                                               database(Status::nativeAvailable, "Update to 3.0 for M1"));
    EXPECT_EQ(known, (CompatVerdict{Status::nativeAvailable, "Update to 3.0 for M1", "Update to 3.0 for M1", false,
                                    "https://vendor", "recipe", Source::database}));

    const std::string note26(26, 'n'), note27(27, 'n');
    EXPECT_EQ(CompatAssessor::verdict(app(ArchClass::intelOnly), database(Status::works, note26)).reason, note26);
    EXPECT_EQ(CompatAssessor::verdict(app(ArchClass::intelOnly), database(Status::works, note27)).reason, std::nullopt);
    // Characters as a reader counts them: 26 accented letters written with combining marks.
    std::string accented;
    for (int i = 0; i < 26; ++i) accented += "e\u0301";
    EXPECT_EQ(CompatAssessor::verdict(app(ArchClass::intelOnly), database(Status::works, accented)).reason, accented);

    const auto bare = CompatAssessor::verdict(app(ArchClass::intelOnly), database(Status::limited));
    EXPECT_EQ(bare, (CompatVerdict{Status::limited, std::nullopt, std::nullopt, false, "https://vendor", "recipe",
                                   Source::database}));
}

TEST(CompatAssessor, HeuristicsTakeTheFirstTraitThatApplies) {
    const CompatDatabase empty;
    const auto drivers = CompatAssessor::verdict(
        app(ArchClass::universal, traits(true, true, true, {"A.kext", "B.dext"})), empty);
    EXPECT_EQ(drivers, (CompatVerdict{Status::wontRun, "drivers",
                                      "Bundles A.kext, B.dext. Drivers aren’t supported: the virtual Mac can’t drive "
                                      "this Mac’s hardware.",
                                      false, std::nullopt, std::nullopt, Source::heuristic}));

    const auto gl = CompatAssessor::verdict(app(ArchClass::intelOnly, traits(true, true, true)), empty);
    EXPECT_EQ(gl, (CompatVerdict{Status::limited, "may not draw · OpenGL",
                                 "Links OpenGL, which the virtual Mac’s graphics don’t provide. It may start but some "
                                 "drawing may fail — try it.",
                                 true, std::nullopt, std::nullopt, Source::heuristic}));
    const auto cl = CompatAssessor::verdict(app(ArchClass::intelOnly, traits(false, true, false)), empty);
    EXPECT_EQ(cl.reason, "may not draw · OpenCL");

    const auto store = CompatAssessor::verdict(app(ArchClass::intelOnly, traits(false, false, true)), empty);
    EXPECT_EQ(store, (CompatVerdict{Status::limited, "App Store app",
                                    "App Store app — you can’t sign in to the App Store inside the virtual Mac; apps "
                                    "that check their purchase may refuse to open.",
                                    false, std::nullopt, std::nullopt, Source::heuristic}));

    EXPECT_EQ(CompatAssessor::verdict(app(ArchClass::intelOnly, std::nullopt), empty), CompatVerdict{});
    EXPECT_EQ(CompatAssessor::verdict(app(ArchClass::intelOnly, BundleTraits{}, std::nullopt), database(Status::works)),
              CompatVerdict{});
}

TEST(CompatAssessor, GroupsFollowTheClassThenTheStatus) {
    const auto groupOf = [](ArchClass c, Status s) {
        CompatVerdict v;
        v.status = s;
        return CompatAssessor::group(app(c), v);
    };
    EXPECT_EQ(groupOf(ArchClass::intelOnly, Status::works), CompatGroup::needsTessel);
    EXPECT_EQ(groupOf(ArchClass::intelOnly, Status::limited), CompatGroup::needsTessel);
    EXPECT_EQ(groupOf(ArchClass::intelOnly, Status::untested), CompatGroup::needsTessel);
    EXPECT_EQ(groupOf(ArchClass::intelOnly, Status::wontRun), CompatGroup::wontRun);
    EXPECT_EQ(groupOf(ArchClass::intelOnly, Status::nativeAvailable), CompatGroup::updateInstead);
    EXPECT_EQ(groupOf(ArchClass::universal, Status::wontRun), CompatGroup::alreadyFine);
    EXPECT_EQ(groupOf(ArchClass::appleSilicon, Status::works), CompatGroup::alreadyFine);
    EXPECT_EQ(groupOf(ArchClass::legacy32bit, Status::works), CompatGroup::wontRun);
    EXPECT_EQ(groupOf(ArchClass::unknown, Status::nativeAvailable), CompatGroup::other);

    std::vector<bool> preselected;
    for (const auto g : allCompatGroups) preselected.push_back(CompatAssessor::preselect(g));
    EXPECT_EQ(preselected, (std::vector<bool>{true, false, false, false, false}));
}

TEST(CompatAssessor, GroupTextsAreExact) {
    const std::vector<std::pair<std::string, std::string>> expected{
        {"Needs Tessel", "Intel-only apps that stop working without Rosetta."},
        {"Update instead", "A version for Apple silicon exists — updating is better than keeping this one."},
        {"Won’t run", "Tessel can’t run these (they won’t work in the virtual Mac either)."},
        {"Already fine on Apple silicon", "These run natively; Tessel isn’t needed."},
        {"Not an app Tessel can read", "No readable app executable."}};
    for (size_t i = 0; i < allCompatGroups.size(); ++i) {
        EXPECT_EQ(title(allCompatGroups[i]), expected[i].first);
        EXPECT_EQ(subtitle(allCompatGroups[i]), expected[i].second);
    }
}
