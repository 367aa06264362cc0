// The catalog's trust rules on a real file system, with the simulated
// desktop as the workspace.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include "Platform/Sim/Desktop.h"
#include "Support/AgentTestSupport.h"
#include "Support/Errors.h"
#include "Support/SimSupport.h"
#include "Support/TempDir.h"
#include "TslAgent/AppCatalog.h"
#include "TslAgent/BundleApps.h"
#include "TslAgent/GuestDocuments.h"
#include "TslStream/Agent/SampleApps.h"

using namespace tsl;
using namespace tsl::test;
namespace fs = std::filesystem;

namespace {

fs::path versionedBundle(const fs::path& dir, const std::string& name, const std::string& bundleID,
                         const std::string& version) {
    const auto bundle = dir / (name + ".app");
    writeFile(bundle / "Contents" / "Info.plist",
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>CFBundleIdentifier</key><string>" + bundleID + "</string>"
              "<key>CFBundleName</key><string>" + name + "</string>"
              "<key>CFBundleShortVersionString</key><string>" + version + "</string>"
              "</dict></plist>\n");
    return bundle;
}

// A guest: applications, a share with documents, a desktop whose system-wide
// look-up also searches `elsewhere`.
struct Guest {
    MainActor main;
    TempDir dir;
    fs::path apps = dir / "Applications";
    fs::path share = dir / "Shared";
    fs::path elsewhere = dir / "Elsewhere";
    std::shared_ptr<Sim::Desktop> desktop = Sim::Desktop::make({.applicationDirs = {elsewhere}});
    std::shared_ptr<Workspace> workspace = desktop->services().workspace;

    Guest() {
        fs::create_directories(apps);
        fs::create_directories(share);
        fs::create_directories(elsewhere);
    }

    LaunchResult launch(LaunchRequest request, bool allowSystemLookup = false) {
        return main.runTask(AppCatalog::launch(std::move(request), std::make_shared<BundleApps>(apps, workspace),
                                               {share}, {}, allowSystemLookup),
                            limit);
    }
    std::string refusal(LaunchRequest request, bool allowSystemLookup = false) {
        return thrownBy<ControlError>([&] { launch(std::move(request), allowSystemLookup); }).description();
    }
};

}  // namespace

TEST(AppCatalog, ListsDirectChildrenByNameWithRunningMarks) {
    Guest g;
    const auto zeta = versionedBundle(g.apps, "Zeta", "com.example.zeta", "3.1");
    const auto alpha = versionedBundle(g.apps, "alpha", "com.example.alpha", "1.0");
    versionedBundle(g.apps / "Sub", "Deep", "com.example.deep", "1");
    const auto copy = versionedBundle(g.elsewhere, "ZetaCopy", "com.example.zeta", "3.1");
    g.desktop->addProcess({.name = "Stranger", .bundleID = "com.example.zeta", .bundleURL = g.dir / "x.app"});

    auto apps = AppCatalog::list(BundleApps(g.apps, g.workspace));
    ASSERT_EQ(apps.size(), 2u);  // the subfolder's bundle isn't listed
    EXPECT_EQ(apps[0], (GuestApp{"com.example.alpha", "alpha", alpha.string(), "1.0", false, std::nullopt}));
    EXPECT_EQ(apps[1].name, "Zeta");
    // Only the identifier matches the stranger.
    const int32_t stranger = Sim::Desktop::firstPid;
    EXPECT_EQ(apps[1].pid, stranger);

    // By place first: the listed bundle's own process wins over an earlier one
    // with the same identifier.
    const int32_t own = *g.desktop->launch(zeta);
    g.desktop->launch(copy);
    apps = AppCatalog::list(BundleApps(g.apps, g.workspace));
    EXPECT_TRUE(apps[1].running);
    EXPECT_EQ(apps[1].pid, own);

    EXPECT_TRUE(AppCatalog::list(BundleApps(g.dir / "missing", g.workspace)).empty());
}

TEST(AppCatalog, LaunchesOnlyFromTheApplicationsFolder) {
    Guest g;
    const auto app = versionedBundle(g.apps, "Editor", "com.example.editor", "2");
    const auto deep = versionedBundle(g.apps / "Tools", "Deep", "com.example.deep", "1");
    const auto outside = versionedBundle(g.elsewhere, "Outside", "com.example.outside", "1");
    fs::create_directories(g.apps / "Folder");
    const std::string forbidden = "forbidden: can only launch apps from " + g.apps.string();

    // The path decides; a wrong identifier beside it doesn't matter.
    auto result = g.launch({.bundleID = "com.wrong.id", .path = app.string()});
    EXPECT_EQ(result.bundleID, "com.example.editor");
    EXPECT_EQ(g.desktop->process(result.pid)->bundleURL, app);
    ASSERT_EQ(g.desktop->windows().size(), 1u);
    EXPECT_EQ(g.desktop->windows()[0].title, "Editor");
    // Deeper paths pass by path.
    EXPECT_EQ(g.launch({.path = deep.string()}).bundleID, "com.example.deep");

    EXPECT_EQ(g.refusal({.path = outside.string()}), forbidden);
    EXPECT_EQ(g.refusal({.path = (g.apps / ".." / "Elsewhere" / "Outside.app").string()}), forbidden);
    EXPECT_EQ(g.refusal({.path = (g.apps / "Folder").string()}), forbidden);
    EXPECT_EQ(g.refusal({.path = g.apps.string() + "Evil/X.app"}), forbidden);
    EXPECT_EQ(g.refusal({}), "badRequest: launchApp needs a path or bundle id");

    // By identifier: listed ones, and others only through the system's look-up.
    EXPECT_EQ(g.launch({.bundleID = "com.example.editor"}).pid, result.pid);
    EXPECT_EQ(g.refusal({.bundleID = "com.example.outside"}), "notFound: no app with bundle id com.example.outside");
    EXPECT_EQ(g.refusal({.bundleID = "com.example.none"}, true), "notFound: no app with bundle id com.example.none");
    const int32_t processes = int32_t(g.desktop->processes().size());
    result = g.launch({.bundleID = "com.example.outside"}, true);
    EXPECT_EQ(g.desktop->process(result.pid)->bundleURL, outside);
    EXPECT_EQ(int32_t(g.desktop->processes().size()), processes + 1);
}

TEST(AppCatalog, OpensDocumentsOnlyWithinTheRules) {
    Guest g;
    const auto app = versionedBundle(g.apps, "Editor", "com.example.editor", "2");
    writeFile(g.share / "a.txt", "a");
    writeFile(g.share / "sub" / "b.txt", "b");
    writeFile(g.dir / "secret.txt", "s");
    fs::create_symlink(g.dir / "secret.txt", g.share / "out.txt");
    fs::create_symlink(g.share / "sub" / "b.txt", g.share / "in.txt");

    auto result = g.launch({.path = app.string(), .openFiles = {(g.share / "a.txt").string(), (g.share / "in.txt").string()}});
    const auto resolvedShare = fs::canonical(g.share);
    EXPECT_EQ(g.desktop->process(result.pid)->openedDocuments,
              (std::vector<fs::path>{resolvedShare / "a.txt", resolvedShare / "sub" / "b.txt"}));

    // A link out of the root stops the launch before anything starts.
    const auto before = g.desktop->processes().size();
    const auto out = (g.share / "out.txt").string();
    EXPECT_EQ(g.refusal({.bundleID = "com.example.other", .path = versionedBundle(g.apps, "Other", "com.example.other", "1").string(),
                         .openFiles = {(g.share / "a.txt").string(), out}}),
              "forbidden: file outside the shared folders: " + out);
    EXPECT_EQ(g.desktop->processes().size(), before);
}

TEST(AppCatalog, DocumentRule) {
    TempDir dir;
    const auto root = dir / "Shared";
    const auto home = dir / "home";
    writeFile(root / "doc.txt", "");
    writeFile(root / ".hidden" / "doc.txt", "");
    writeFile(dir / ".dot" / "Root" / "doc.txt", "");
    writeFile(dir / "SharedEvil" / "doc.txt", "");
    writeFile(home / "Library" / "Prefs" / "x.plist", "");
    writeFile(home / "Library" / "Shared" / "doc.txt", "");
    writeFile(home / "notes.txt", "");
    auto allowed = [&](const fs::path& p, std::vector<fs::path> roots, std::vector<fs::path> excluded = {}) {
        return AppCatalog::allowedDocument(p.string(), roots, excluded).has_value();
    };
    const auto real = fs::canonical(dir.path());

    EXPECT_EQ(AppCatalog::allowedDocument((root / "doc.txt").string(), {root}, {}), real / "Shared" / "doc.txt");
    EXPECT_FALSE(AppCatalog::allowedDocument("Shared/doc.txt", {root}, {}));
    EXPECT_FALSE(allowed(root, {root}));                          // the root itself
    EXPECT_FALSE(allowed(dir / "SharedEvil" / "doc.txt", {root}));  // a sibling sharing the name's start
    EXPECT_FALSE(allowed(root / ".hidden" / "doc.txt", {root}));
    EXPECT_TRUE(allowed(dir / ".dot" / "Root" / "doc.txt", {dir / ".dot" / "Root"}));  // hidden above the root
    EXPECT_TRUE(allowed(root / "not-yet" / "new.txt", {root}));  // the missing tail is kept
    EXPECT_FALSE(allowed(root / "doc.txt", {}));

    // The home's Library is closed to the home root but not to a root inside it.
    const std::vector<fs::path> roots{home / "Library" / "Shared", home};
    const std::vector<fs::path> excluded{home / "Library"};
    EXPECT_TRUE(allowed(home / "notes.txt", roots, excluded));
    EXPECT_FALSE(allowed(home / "Library" / "Prefs" / "x.plist", roots, excluded));
    EXPECT_TRUE(allowed(home / "Library" / "Shared" / "doc.txt", roots, excluded));
    EXPECT_TRUE(allowed(home / "notes.txt", {home}, {home}));  // an exclusion equal to the root never applies
    EXPECT_TRUE(allowed(home / "notes.txt", {home}, {home / "Lib"}));
}

TEST(AppCatalog, QuitsOnlyApplicationsUnderTheFolder) {
    Guest g;
    const int32_t inside = *g.desktop->launch(versionedBundle(g.apps / "Tools", "Tool", "com.example.tool", "1"));
    const int32_t outside = *g.desktop->launch(versionedBundle(g.elsewhere, "Out", "com.example.out", "1"));
    const int32_t noBundle = g.desktop->addProcess({.name = "Daemon"});

    for (int32_t pid : {outside, noBundle, 4242}) {
        EXPECT_EQ(thrownBy<ControlError>([&] { AppCatalog::quit(pid, BundleApps(g.apps, g.workspace)); }).description(),
                  "forbidden: not a Tessel app: " + std::to_string(pid));
    }
    EXPECT_TRUE(g.desktop->process(outside));
    AppCatalog::quit(inside, BundleApps(g.apps, g.workspace));
    EXPECT_FALSE(g.desktop->process(inside));
}

TEST(GuestDocuments, PanelsMoveOnlyFromTheDefaultFolders) {
    TempDir mount;
    // The home is the real user's, so "~name" can name it.
    const passwd* me = ::getpwuid(::getuid());
    ASSERT_TRUE(me && me->pw_dir && me->pw_name);
    const std::string home = me->pw_dir, name = me->pw_name;
    auto desktop = Sim::Desktop::make({.home = home});
    const PlatformServices platform = desktop->services();
    auto& prefs = *platform.preferences;
    const auto target = (mount / "Documents").string();
    auto valueAfter = [&](std::optional<PlatformValue> start) {
        prefs.setValue(GuestDocuments::lastRootKey, start, Preferences::anyApplication, Preferences::User::current,
                       Preferences::Host::any);
        GuestDocuments::pointPanelsAtSharedDocuments(platform, mount.path());
        return prefs.copyValue(GuestDocuments::lastRootKey, Preferences::anyApplication, Preferences::User::current,
                               Preferences::Host::any);
    };

    // Without the Documents folder in the mount nothing changes.
    EXPECT_EQ(valueAfter(PlatformValue("~/Documents")), PlatformValue("~/Documents"));
    fs::create_directories(target);
    for (PlatformValue replaced : {PlatformValue("~/Documents"), PlatformValue(home + "/Documents"), PlatformValue(home),
                                   PlatformValue("~"), PlatformValue("~" + name + "/Documents"), PlatformValue(""),
                                   PlatformValue(7)})
        EXPECT_EQ(valueAfter(replaced), PlatformValue(target)) << replaced.asString();
    EXPECT_EQ(valueAfter(std::nullopt), PlatformValue(target));
    for (const std::string& kept : {home + "/Projects", std::string("~/Desktop"), std::string("~no-such-user-tsl/Documents")})
        EXPECT_EQ(valueAfter(PlatformValue(kept)), PlatformValue(kept));
}

TEST(AppCatalog, SampleApplicationsLaunchByIdentifier) {
    Guest g;
    ASSERT_TRUE(placeSampleApps(g.apps));
    writeFile(g.apps / "Tsl Scratchpad.app" / "Contents" / "Marker", "kept");
    ASSERT_TRUE(placeSampleApps(g.apps));  // what stands there stays
    EXPECT_EQ(readFile(g.apps / "Tsl Scratchpad.app" / "Contents" / "Marker"), "kept");

    auto apps = AppCatalog::list(BundleApps(g.apps, g.workspace));
    ASSERT_EQ(apps.size(), 2u);
    EXPECT_EQ(apps[0].name, "Tsl Scratchpad");
    EXPECT_EQ(apps[1].version, "1.0");
    auto result = g.launch({.bundleID = "com.tessel.testpattern"});
    EXPECT_EQ(g.desktop->process(result.pid)->kind, Sim::AppKind::testPattern);
    EXPECT_EQ(g.desktop->windows().at(0).title, "Tsl TestPattern");
    EXPECT_TRUE(AppCatalog::list(BundleApps(g.apps, g.workspace))[1].running);
}
