#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslCore/Model/SharedFolders.h"

using namespace tsl;
using R = SharedFolders::Rejection;
namespace fs = std::filesystem;

namespace {

struct Home {
    test::TempDir dir;
    fs::path home = dir / "home";
    fs::path outside = dir / "elsewhere";
    fs::path data = dir / "elsewhere/AppData/Tessel";
    Home() {
        for (const char* p : {"Documents/a", "Desktop", "Library/Caches/deep", "Applications/X", ".hidden/plain",
                              "Projects/.git/objects"})
            fs::create_directories(home / p);
        for (const char* p : {"Backups.backupdb/mac/2024", "disk.sparsebundle/bands", "old.backup", ".secret/x", "Work",
                              "Other/Work", "Name:With:Colons", "CaseA/Photos", "CaseB/photos", "AppData/Tessel/inside"})
            fs::create_directories(outside / p);
    }
    std::optional<R> rejection(const fs::path& p) const {
        return SharedFolders::rejection(p.native(), home, {data.native()});
    }
    std::vector<SharedFolder> entries(const std::vector<fs::path>& list,
                                      const std::map<std::string, std::string>& names = {}) const {
        std::vector<std::string> paths;
        for (const auto& p : list) paths.push_back(p.native());
        return SharedFolders::entries(paths, dir / "share", names, {data.native()}, home);
    }
    std::vector<std::string> names(const std::vector<SharedFolder>& folders) const {
        std::vector<std::string> out;
        for (const auto& f : folders) out.push_back(f.name);
        return out;
    }
};

}  // namespace

TEST(SharedFolders, RefusesWhatTheGuestMustNotSee) {
    Home h;
    EXPECT_EQ(h.rejection(h.home), R::homeFolder);
    EXPECT_EQ(h.rejection(h.home / "Library"), R::library);
    EXPECT_EQ(h.rejection(h.home / "Library/Caches/deep"), R::library);
    EXPECT_EQ(h.rejection(h.home / "Applications"), R::system);
    EXPECT_EQ(h.rejection(h.home / "Applications/X"), R::system);
    EXPECT_EQ(h.rejection(h.home / "Documents"), std::nullopt);
    EXPECT_EQ(h.rejection(h.home / "Documents/a/"), std::nullopt);
    EXPECT_EQ(h.rejection(h.home / ".hidden"), R::hidden);
    EXPECT_EQ(h.rejection(h.home / ".hidden/plain"), R::hidden);
    EXPECT_EQ(h.rejection(h.home / "Projects/.git/objects"), R::hidden);

    // The product's data: itself, inside it, and every folder holding it.
    EXPECT_EQ(h.rejection(h.data), R::tesselData);
    EXPECT_EQ(h.rejection(h.data / "inside"), R::tesselData);
    EXPECT_EQ(h.rejection(h.outside / "AppData"), R::tesselData);
    EXPECT_EQ(h.rejection("/"), R::tesselData);

    EXPECT_EQ(h.rejection(h.outside / "Backups.backupdb/mac/2024"), R::system);
    EXPECT_EQ(h.rejection(h.outside / "disk.sparsebundle/bands"), R::system);
    EXPECT_EQ(h.rejection(h.outside / "old.backup"), R::system);
    EXPECT_EQ(h.rejection(h.outside / ".secret/x"), R::hidden);
    EXPECT_EQ(h.rejection(h.outside / "Work"), std::nullopt);

    for (const char* p : {"/usr", "/usr/share", "/dev", "/opt"}) EXPECT_EQ(h.rejection(p), R::system) << p;
}

TEST(SharedFolders, ResolvesLinksAndRefusesWhatIsNoFolder) {
    Home h;
    fs::create_directory_symlink("/usr/share", h.home / "SystemLink");
    fs::create_directory_symlink(h.home / "Library", h.home / "Documents/LibLink");
    fs::create_symlink(h.dir / "nowhere", h.home / "Dangling");
    test::writeFile(h.home / "file.txt", "x");
    EXPECT_EQ(h.rejection(h.home / "SystemLink"), R::system);
    EXPECT_EQ(h.rejection(h.home / "Documents/LibLink"), R::library);
    EXPECT_EQ(h.rejection(h.home / "Dangling"), R::notAFolder);
    EXPECT_EQ(h.rejection(h.home / "file.txt"), R::notAFolder);
    EXPECT_EQ(h.rejection(h.home / "missing"), R::notAFolder);
    EXPECT_EQ(SharedFolders::rejection("Documents", h.home, {}), R::notAFolder);
}

TEST(SharedFolders, EntriesKeepTheWiderFolderAndNumberClashingNames) {
    Home h;
    const std::string share = fs::canonical(h.dir.path()).native() + "/share";
    EXPECT_EQ(h.entries({}), (std::vector<SharedFolder>{{"Tessel", share}}));

    // Parent after child, and child after parent: the parent alone.
    const auto docs = fs::canonical(h.home / "Documents").native();
    EXPECT_EQ(h.entries({h.home / "Documents/a", h.home / "Documents"}),
              (std::vector<SharedFolder>{{"Tessel", share}, {"Documents", docs}}));
    EXPECT_EQ(h.entries({h.home / "Documents", h.home / "Documents/a"}),
              (std::vector<SharedFolder>{{"Tessel", share}, {"Documents", docs}}));
    // The covered folder's name stays used.
    EXPECT_EQ(h.names(h.entries({h.home / "Documents/a", h.home / "Documents", h.outside / "Other/Work"})),
              (std::vector<std::string>{"Tessel", "Documents", "Work"}));

    EXPECT_EQ(h.names(h.entries({h.outside / "Work", h.outside / "Other/Work", h.outside / "CaseA/Photos",
                                 h.outside / "CaseB/photos", h.outside / "Name:With:Colons", h.home / "Library",
                                 h.home / "Desktop"})),
              (std::vector<std::string>{"Tessel", "Work", "Work 2", "Photos", "photos 2", "Name-With-Colons", "Desktop"}));

    // A pinned name is kept as given and reserved in advance.
    fs::create_directories(h.outside / "Deep/tessel");
    EXPECT_EQ(h.names(h.entries({h.outside / "Work", h.outside / "Other/Work", h.outside / "Deep/tessel"},
                                {{(h.outside / "Other/Work").native(), "work"}})),
              (std::vector<std::string>{"Tessel", "Work 2", "work", "tessel 2"}));
}

TEST(SharedFolders, PathsMapBothWays) {
    Home h;
    const auto folders = h.entries({h.home / "Documents", h.home / "Desktop"});
    const auto desktop = fs::canonical(h.home / "Desktop");
    const std::string mount(SharedFolders::guestMountPoint);

    EXPECT_EQ(SharedFolders::guestPath(h.home / "Desktop/new/file.txt", folders), mount + "/Desktop/new/file.txt");
    EXPECT_EQ(SharedFolders::guestPath(h.home / "Desktop", folders), mount + "/Desktop");
    EXPECT_EQ(SharedFolders::guestPath(h.home / "Desktopper/x", folders), std::nullopt);
    EXPECT_EQ(SharedFolders::folder(h.home / "Desktop/x", folders)->name, "Desktop");
    EXPECT_EQ(SharedFolders::folder(h.home / "Downloads", folders), std::nullopt);

    EXPECT_EQ(SharedFolders::hostURL(mount + "/Desktop/new/file.txt", folders), desktop / "new/file.txt");
    EXPECT_EQ(SharedFolders::hostURL(mount + "/Desktop", folders), desktop);
    EXPECT_EQ(SharedFolders::hostURL(mount, folders), std::nullopt);
    EXPECT_EQ(SharedFolders::hostURL(mount + "/Desktop/../Documents/x", folders), std::nullopt);
    EXPECT_EQ(SharedFolders::hostURL(mount + "/desktop/x", folders), std::nullopt);
    EXPECT_EQ(SharedFolders::hostURL("/Volumes/My Shared Filesystem/Desktop", folders), std::nullopt);

    // First match wins when entries nest (entries itself never makes them).
    const std::vector<SharedFolder> nested{{"Outer", "/srv"}, {"Inner", "/srv/inner"}};
    EXPECT_EQ(SharedFolders::guestPath("/srv/inner/x", nested, "/m"), "/m/Outer/inner/x");
}

TEST(SharedFolders, RecordCodesUnderItsFieldNames) {
    const SharedFolder folder{"Docs", "/home/u/Documents"};
    const nlohmann::json j = folder;
    EXPECT_EQ(j.dump(), R"({"hostPath":"/home/u/Documents","name":"Docs"})");
    EXPECT_EQ(j.get<SharedFolder>(), folder);
    EXPECT_THROW(nlohmann::json::parse(R"({"name":"x"})").get<SharedFolder>(), nlohmann::json::exception);
    EXPECT_EQ(SharedFolders::defaultPaths("/home/u/"),
              (std::vector<std::string>{"/home/u/Documents", "/home/u/Desktop", "/home/u/Downloads"}));
}
