// The installer on a real file system: the order of its tests, what it
// leaves on disk at each failure, and links put in its way.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "Platform/Linux/LinuxSystem.h"
#include "Platform/Sim/Desktop.h"
#include "Support/Errors.h"
#include "Support/SimSupport.h"
#include "Support/TempDir.h"
#include "TslAgent/AppInstaller.h"
#include "TslAgent/InstallError.h"
#include "TslCore/Migration/TreeCopy.h"
#include "TslCore/Support/UniqueFd.h"

using namespace tsl;
using namespace tsl::test;
namespace fs = std::filesystem;

namespace {

const std::string dictPlist =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>k</key><string>v</string></dict></plist>\n";

// A guest with a share holding one staged application.
struct Staged {
    TempDir dir;
    fs::path share = dir / "Shared";
    fs::path stage = share / "Migrate" / "com.example.editor";
    fs::path bundle = makeBundle(stage, "Editor", "com.example.editor");
    std::shared_ptr<Sim::Desktop> desktop = Sim::Desktop::make();
    AgentConfig config{AgentConfig::Mode::listen(SocketEndpoint::unix("/unused")),
                       dir / "Applications", share, dir / "Preferences", dir / "Support", true, false, false,
                       InjectionMode::pid};

    Staged() {
        writeFile(bundle / "Contents" / "MacOS" / "Editor", "v1");
        writeFile(stage / "prefs.plist", dictPlist);
        writeFile(stage / "Editor Support" / "data.db", "guest data");
    }
    AppInstaller installer() const { return AppInstaller(config, desktop->services().system); }
    InstallRequest request() const {
        return {bundle.string(), "com.example.editor", (stage / "prefs.plist").string(), (stage / "Editor Support").string()};
    }
    std::string refusal(const InstallRequest& r) const {
        try {
            installer().install(r);
        } catch (const std::exception& e) {
            return e.what();
        }
        return "installed";
    }
};

}  // namespace

TEST(AppInstaller, TestsTheRequestBeforeWritingAnything) {
    Staged s;
    makeBundle(s.dir / "Outside", "Evil", "com.example.evil");
    fs::create_symlink(s.dir / "Outside" / "Evil.app", s.share / "Evil.app");
    fs::create_directories(s.share / "Folder");
    fs::create_directories(s.share / "Bare.app");
    writeFile(s.dir / "secret.plist", dictPlist);

    auto with = [&](auto change) {
        InstallRequest r = s.request();
        change(r);
        return s.refusal(r);
    };
    EXPECT_EQ(with([](auto& r) { r.bundleID = "bad/id"; r.sharedAppPath = "/etc"; }), "invalid bundle identifier: bad/id");
    const std::string link = (s.share / "Evil.app").string();
    EXPECT_EQ(with([&](auto& r) { r.sharedAppPath = link; r.bundleID = "com.example.evil"; }),
              "path is outside the shared folder: " + link);
    EXPECT_EQ(with([&](auto& r) { r.sharedAppPath = s.share.string(); }),
              "path is outside the shared folder: " + s.share.string());
    EXPECT_EQ(with([&](auto& r) { r.sharedAppPath = (s.share / "Folder").string(); }),
              "not an application bundle: " + (s.share / "Folder").string());
    EXPECT_EQ(with([&](auto& r) { r.sharedAppPath = (s.share / "Bare.app").string(); }),
              "bundle id mismatch: expected com.example.editor, found none");
    EXPECT_EQ(with([](auto& r) { r.bundleID = "com.example.other"; }),
              "bundle id mismatch: expected com.example.other, found com.example.editor");
    EXPECT_FALSE(entryExists(s.config.appsDir));

    // A preferences file outside the share is refused before it is read; the bundle stays.
    const std::string secret = (s.dir / "secret.plist").string();
    EXPECT_EQ(with([&](auto& r) { r.sharedPrefsPath = secret; }), "path is outside the shared folder: " + secret);
    EXPECT_TRUE(entryExists(s.config.appsDir / "Editor.app"));
    EXPECT_FALSE(entryExists(s.config.prefsDir));
}

TEST(AppInstaller, InstallsAndReinstallsKeepingTheGuestsData) {
    Staged s;
    const fs::path installed = s.installer().install(s.request());
    EXPECT_EQ(installed, s.config.appsDir / "Editor.app");
    EXPECT_EQ(readFile(installed / "Contents" / "MacOS" / "Editor"), "v1");
    // The preferences land under the identifier's name with the source's bytes.
    EXPECT_EQ(readFile(s.config.prefsDir / "com.example.editor.plist"), dictPlist);
    EXPECT_EQ(readFile(s.config.supportDir / "Editor Support" / "data.db"), "guest data");
    EXPECT_EQ(s.desktop->childRuns("/usr/bin/defaults"), 0);

    // A new version replaces the bundle; the guest's support data stays.
    writeFile(s.bundle / "Contents" / "MacOS" / "Editor", "v2");
    writeFile(s.stage / "Editor Support" / "data.db", "host data");
    writeFile(s.config.supportDir / "Editor Support" / "data.db", "changed in guest");
    fs::remove(s.config.prefsDir / "com.example.editor.plist");
    EXPECT_EQ(s.installer().install(s.request()), installed);
    EXPECT_EQ(readFile(installed / "Contents" / "MacOS" / "Editor"), "v2");
    EXPECT_EQ(readFile(s.config.supportDir / "Editor Support" / "data.db"), "changed in guest");
    EXPECT_EQ(readFile(s.config.prefsDir / "com.example.editor.plist"), dictPlist);
    EXPECT_EQ(std::distance(fs::directory_iterator(s.config.appsDir), fs::directory_iterator()), 1);  // no staging left

    // Another application with the same folder name never replaces it.
    const auto other = makeBundle(s.share / "Other", "Editor", "com.example.impostor");
    EXPECT_EQ(s.refusal({other.string(), "com.example.impostor"}),
              "bundle id mismatch: expected com.example.impostor, found com.example.editor");
    EXPECT_EQ(readFile(installed / "Contents" / "MacOS" / "Editor"), "v2");

    // A hidden support folder is taken like any other.
    writeFile(s.stage / ".Cache" / "c", "cache");
    EXPECT_EQ(s.refusal({s.bundle.string(), "com.example.editor", std::nullopt, (s.stage / ".Cache").string()}), "installed");
    EXPECT_EQ(readFile(s.config.supportDir / ".Cache" / "c"), "cache");
}

TEST(AppInstaller, ClearsWhatADeadInstallLeftButNotWhatALiveOneHolds) {
    Staged s;
    // An agent killed mid-copy left its half bundle in a staging folder,
    // never at the destination; another install is still copying.
    const fs::path dead = s.config.appsDir / ".tsl-install-dead";
    const fs::path live = s.config.appsDir / ".tsl-install-live";
    writeFile(dead / "Editor.app" / "Contents" / "MacOS" / "Editor", "half");
    writeFile(live / "Other.app" / "Contents" / "MacOS" / "Other", "copying");
    const UniqueFd held(::open(live.c_str(), O_RDONLY | O_DIRECTORY));
    ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);

    EXPECT_EQ(s.refusal(s.request()), "installed");
    EXPECT_EQ(readFile(s.config.appsDir / "Editor.app" / "Contents" / "MacOS" / "Editor"), "v1");
    EXPECT_FALSE(entryExists(dead));
    EXPECT_EQ(readFile(live / "Other.app" / "Contents" / "MacOS" / "Other"), "copying");
    EXPECT_EQ(std::distance(fs::directory_iterator(s.config.appsDir), fs::directory_iterator()), 2);
}

TEST(AppInstaller, RefusesPreferencesThatAreNoDictionary) {
    Staged s;
    writeFile(s.stage / "array.plist", "<plist version=\"1.0\"><array><string>x</string></array></plist>");
    writeFile(s.stage / "junk.plist", "not a property list");
    // Nested past what the parser's recursion survives: refused, not a crash.
    std::string deep = "<plist version=\"1.0\">";
    for (int i = 0; i < 200000; ++i) deep += "<dict><key>k</key>";
    deep += "<true/>";
    for (int i = 0; i < 200000; ++i) deep += "</dict>";
    writeFile(s.stage / "deep.plist", deep + "</plist>");
    for (std::string name : {"array.plist", "junk.plist", "deep.plist"}) {
        InstallRequest r = s.request();
        r.sharedPrefsPath = (s.stage / name).string();
        EXPECT_EQ(s.refusal(r), "preferences not imported: " + name + " is not a dictionary property list");
    }
    EXPECT_TRUE(entryExists(s.config.appsDir / "Editor.app"));
}

TEST(AppInstaller, GuestRunImportsThroughTheDefaultsTool) {
    Staged s;
    s.config.isSimulation = false;
    std::vector<std::string> arguments;
    std::string importedBytes;
    int status = 0;
    s.desktop->scriptChild("/usr/bin/defaults", [&](const std::vector<std::string>& args) {
        arguments = args;
        importedBytes = readFile(args.at(2));
        return System::ChildResult{status, {}};
    });
    s.installer().install(s.request());
    ASSERT_EQ(arguments.size(), 3u);
    EXPECT_EQ(arguments[0], "import");
    EXPECT_EQ(arguments[1], "com.example.editor");
    EXPECT_EQ(importedBytes, dictPlist);
    EXPECT_FALSE(entryExists(arguments[2]));  // the private copy is gone
    EXPECT_FALSE(entryExists(s.config.prefsDir));

    status = 1;
    EXPECT_EQ(s.refusal(s.request()), "preferences not imported: defaults import exited 1");
    EXPECT_TRUE(entryExists(s.config.appsDir / "Editor.app"));

    // Where the tool doesn't exist, the failure to start it comes through.
    AppInstaller linux(s.config, std::make_shared<LinuxSystem>());
    if (!entryExists("/usr/bin/defaults")) {
        EXPECT_THROW(linux.install(s.request()), LaunchError);
    }
}

TEST(AppInstaller, SpecialFilesAndLinksNeverLeadOutOfTheShare) {
    Staged s;
    // A pipe inside the bundle aborts the install and leaves nothing behind.
    ASSERT_EQ(::mkfifo((s.bundle / "Contents" / "pipe").c_str(), 0600), 0);
    InstallRequest r = s.request();
    r.sharedPrefsPath.reset();
    auto failure = thrownBy<TreeCopy::Failure>([&] { s.installer().install(r); });
    EXPECT_EQ(failure.errnum, EINVAL);
    EXPECT_FALSE(entryExists(s.config.appsDir / "Editor.app"));
    fs::remove(s.bundle / "Contents" / "pipe");

    // A support item may be a single file; a pipe fails the copy without
    // blocking on it, and the bundle stays installed.
    writeFile(s.stage / "editor.cfg", "settings");
    r.sharedSupportPath = (s.stage / "editor.cfg").string();
    EXPECT_EQ(s.refusal(r), "installed");
    EXPECT_EQ(readFile(s.config.supportDir / "editor.cfg"), "settings");
    ASSERT_EQ(::mkfifo((s.stage / "queue").c_str(), 0600), 0);
    r.sharedSupportPath = (s.stage / "queue").string();
    EXPECT_EQ(thrownBy<TreeCopy::Failure>([&] { s.installer().install(r); }).errnum, EINVAL);
    EXPECT_FALSE(entryExists(s.config.supportDir / "queue"));
    EXPECT_TRUE(entryExists(s.config.appsDir / "Editor.app"));

    // A support folder reached through a link inside the share that leads out is refused.
    writeFile(s.dir / "Private" / "Keys" / "id", "secret");
    fs::create_symlink(s.dir / "Private", s.stage / "Linked");
    r.sharedSupportPath = (s.stage / "Linked" / "Keys").string();
    EXPECT_EQ(s.refusal(r), "path is outside the shared folder: " + *r.sharedSupportPath);
    EXPECT_FALSE(entryExists(s.config.supportDir / "Keys"));

    // An Info.plist that is a link isn't read: it could be any file.
    const auto decoy = makeBundle(s.dir / "Outside", "Decoy", "com.example.decoy");
    const auto linked = s.stage / "Linked.app";
    fs::create_directories(linked / "Contents");
    fs::create_symlink(decoy / "Contents" / "Info.plist", linked / "Contents" / "Info.plist");
    EXPECT_EQ(s.refusal({linked.string(), "com.example.decoy"}), "bundle id mismatch: expected com.example.decoy, found none");
}

TEST(AppInstaller, AFolderSwappedForALinkDuringTheCopyIsNotFollowed) {
    // What the installer does between its check and its copy: the folder is
    // opened without following links, then copied through its descriptor.
    TempDir dir;
    writeFile(dir / "share" / "Support" / "inner" / "file", "shared");
    writeFile(dir / "outside" / "file", "secret");
    UniqueFd folder(::open((dir / "share" / "Support").c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW));
    ASSERT_TRUE(folder);
    // The other side swaps the folder and a folder inside it for links out.
    fs::rename(dir / "share" / "Support", dir / "share" / "Moved");
    fs::create_symlink(dir / "outside", dir / "share" / "Support");
    fs::rename(dir / "share" / "Moved" / "inner", dir / "share" / "inner-moved");
    fs::create_symlink(dir / "outside", dir / "share" / "Moved" / "inner");

    TreeCopy::copyOpened(folder.get(), (dir / "share" / "Support").string(), dir / "copy");
    EXPECT_EQ(linkText(dir / "copy" / "inner"), (dir / "outside").string());  // kept as a link, never read
    EXPECT_FALSE(entryExists(dir / "copy" / "file"));
}
