#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "Support/ChildProcess.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "Support/TestPaths.h"
#include "TslCore/Model/StateJSON.h"
#include "TslCore/Model/StateStore.h"
#include "TslCore/Support/ISO8601.h"

using namespace tsl;
using namespace tsl::test;
namespace fs = std::filesystem;
using Outcome = StateStore::LoadOutcome;

namespace {

const auto savedAt = *ISO8601::parse("2026-10-07T12:34:56Z");

MigratedApp migratedApp(const std::string& id) {
    return MigratedApp{id,
                       "App " + id,
                       "/Applications/" + id + ".app",
                       "/Applications/" + id + ".app",
                       "/Users/ann/Applications/Tessel/" + id + ".app",
                       savedAt};
}

PersistedState sampleState() {
    PersistedState s;
    s.onboardingDone = true;
    s.settings.cpuCount = 0;  // kept as it is, never clamped
    s.settings.codec = VideoCodec::rawBGRA;
    s.settings.sharedFolders = std::vector<std::string>{"/Users/ann/Documents"};
    s.settings.sharedFolderNames = std::map<std::string, std::string>{{"/Users/ann/Documents", "Documents"}};
    s.migrated = {migratedApp("com.a"), migratedApp("com.b")};
    s.guestSetup.agentFirstHelloAt = savedAt;
    s.beta.noticeVersion = "2026-10-05";
    s.beta.checklist.global["mac"] = BetaAnswer{BetaAnswer::Value::works, savedAt};
    return s;
}

std::string appJSON(const std::string& id) { return nlohmann::json(migratedApp(id)).dump(); }

std::vector<std::string> entries(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(folder)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

TEST(StateStore, MissingFileGivesDefaultsAndWritesNothing) {
    TempDir dir;
    StateStore store(dir / "Tessel" / "state.json");
    const auto loaded = store.loadReporting();
    EXPECT_EQ(loaded.outcome, Outcome::missing);
    EXPECT_EQ(loaded.state, PersistedState{});
    EXPECT_FALSE(entryExists(dir / "Tessel"));

    writeFile(dir / "file", "x");  // a path through a file is missing too
    EXPECT_EQ(StateStore(dir / "file" / "state.json").loadReporting().outcome, Outcome::missing);
    EXPECT_EQ(StateStore(dir / "{}").loadReporting().outcome, Outcome::missing);
}

TEST(StateStore, SaveThenLoadGivesTheSameStateInAPrivateFolder) {
    TempDir dir;
    StateStore store(dir / "Library" / "Application Support" / "Tessel" / "state.json");
    store.save(sampleState());
    EXPECT_EQ(modeOf(dir / "Library") & 07777, 0700u);
    EXPECT_EQ(modeOf(store.url) & 07777, 0600u);
    EXPECT_EQ(modeOf(dir / "Library" / "Application Support" / "Tessel") & 07777, 0700u);
    const auto loaded = store.loadReporting();
    EXPECT_EQ(loaded.outcome, Outcome::loaded);
    EXPECT_EQ(loaded.state, sampleState());
    EXPECT_EQ(entries(store.url.parent_path()), std::vector<std::string>{"state.json"}) << "no temporary left";

    // Pretty-printed with sorted keys; absent options are left out.
    PersistedState plain;
    store.save(plain);
    const std::string text = readFile(store.url);
    EXPECT_TRUE(text.starts_with("{\n  \"acceptedPersonalUseTerms\": false,\n  \"beta\": {")) << text;
    EXPECT_NE(text.find("\"settings\": {\n    \"codec\": 2,\n    \"cpuCount\": 4,"), std::string::npos) << text;
    EXPECT_EQ(text.find("addToDock"), std::string::npos);
    EXPECT_EQ(text.find("firstBootAt"), std::string::npos);
    EXPECT_EQ(store.load(), plain);
}

TEST(StateStore, EveryPartOfAFileFallsBackOnItsOwn) {
    TempDir dir;
    StateStore store(dir / "state.json");
    const auto load = [&](const std::string& text) {
        writeFile(store.url, text);
        auto loaded = store.loadReporting();
        EXPECT_EQ(loaded.outcome, Outcome::loaded) << text;
        return loaded.state;
    };

    EXPECT_EQ(load("{}"), PersistedState{});
    EXPECT_EQ(load(R"({"onboardingDone": null, "settings": null, "migrated": null})"), PersistedState{});

    auto s = load(R"({"settings": {"cpuCount": "8", "memoryGB": 12, "idleSuspendMinutes": 2.5,
                                   "showDebugVMWindow": 1, "simulationMode": true, "codec": 3,
                                   "addToDock": false, "sharedFolders": ["/a", 7], "sharedFolderNames": {"/a": "A"}},
                      "onboardingDone": "yes", "acceptedPersonalUseTerms": true})");
    EXPECT_EQ(s.settings.cpuCount, 4);
    EXPECT_EQ(s.settings.memoryGB, 12);
    EXPECT_EQ(s.settings.idleSuspendMinutes, 10);
    EXPECT_FALSE(s.settings.showDebugVMWindow);
    EXPECT_TRUE(s.settings.simulationMode);
    EXPECT_EQ(s.settings.codec, VideoCodec::h264);
    EXPECT_EQ(s.settings.addToDock, false);
    EXPECT_EQ(s.settings.sharedFolders, std::nullopt);
    EXPECT_EQ(s.settings.sharedFolderNames, (std::map<std::string, std::string>{{"/a", "A"}}));
    EXPECT_FALSE(s.onboardingDone);
    EXPECT_TRUE(s.acceptedPersonalUseTerms);
    EXPECT_EQ(load(R"({"settings": {"codec": 1, "cpuCount": 0}})").settings.codec, VideoCodec::rawBGRA);
    EXPECT_EQ(load(R"({"settings": {"codec": "h264"}, "guestSetup": {"completedAt": 1}})"), PersistedState{});

    // A damaged element of `migrated` drops out alone, in file order.
    auto noShim = nlohmann::json::parse(appJSON("com.b"));
    noShim.erase("shimPath");
    auto badDate = nlohmann::json::parse(appJSON("com.d"));
    badDate["migratedAt"] = "2026-13-01T00:00:00Z";
    s = load(R"({"migrated": [)" + appJSON("com.a") + "," + noShim.dump() + "," + appJSON("com.c") + ", 5, null," +
             badDate.dump() + R"(], "guestSetup": {"firstBootAt": "2026-10-07T12:34:56Z"}})");
    ASSERT_EQ(s.migrated.size(), 2u);
    EXPECT_EQ(s.migrated[0].id(), "com.a");
    EXPECT_EQ(s.migrated[1].id(), "com.c");
    EXPECT_EQ(s.guestSetup.firstBootAt, savedAt);
    EXPECT_TRUE(load(R"({"migrated": {"0": )" + appJSON("com.a") + "}}").migrated.empty());
}

TEST(StateStore, DamagedFileIsMovedAsideAndNeverOverwritten) {
    TempDir dir;
    StateStore store(dir / "state.json");
    const auto now = std::chrono::system_clock::time_point(std::chrono::seconds(1790000000)) +
                     std::chrono::milliseconds(900);  // truncated, not rounded
    const std::vector<std::string> damaged = {"[]", "42", "not json", "{\"a\": ", "\"\xFF\"", ""};
    for (const auto& bytes : damaged) {
        SCOPED_TRACE(bytes);
        TempDir folder;
        StateStore s(folder / "state.json");
        writeFile(s.url, bytes);
        const auto inspected = s.inspect();
        EXPECT_EQ(inspected.outcome, Outcome::damaged);
        EXPECT_EQ(inspected.movedTo, std::nullopt);
        EXPECT_EQ(entries(folder.path()), std::vector<std::string>{"state.json"}) << "inspecting moves nothing";
        const auto loaded = s.loadReporting(now);
        EXPECT_EQ(loaded.outcome, Outcome::damaged);
        EXPECT_EQ(loaded.state, PersistedState{});
        EXPECT_EQ(loaded.movedTo, folder / "state.unreadable-1790000000.json");
        EXPECT_EQ(entries(folder.path()), std::vector<std::string>{"state.unreadable-1790000000.json"});
        EXPECT_EQ(readFile(folder / "state.unreadable-1790000000.json"), bytes);
    }

    // A second damage in the same second keeps both copies; a save after it
    // leaves them alone.
    writeFile(store.url, "first");
    EXPECT_EQ(store.loadReporting(now).outcome, Outcome::damaged);
    writeFile(store.url, "second");
    EXPECT_EQ(store.loadReporting(now).movedTo, dir / "state.unreadable-1790000000-2.json");
    store.save(sampleState());
    EXPECT_EQ(entries(dir.path()), (std::vector<std::string>{"state.json", "state.unreadable-1790000000-2.json",
                                                             "state.unreadable-1790000000.json"}));
    EXPECT_EQ(readFile(dir / "state.unreadable-1790000000.json"), "first");
    EXPECT_EQ(readFile(dir / "state.unreadable-1790000000-2.json"), "second");
    EXPECT_EQ(store.load(), sampleState());
}

TEST(StateStore, UnreadableFileStaysAndAFailedSaveKeepsTheOldFile) {
    TempDir dir;
    fs::create_directories(dir / "state.json");  // there, but no file to read
    StateStore store(dir / "state.json");
    const auto loaded = store.loadReporting();
    EXPECT_EQ(loaded.outcome, Outcome::readError);
    EXPECT_EQ(loaded.failure, std::errc::is_a_directory);
    EXPECT_TRUE(fs::is_directory(store.url));
    EXPECT_THROW(store.save(sampleState()), Error);
    EXPECT_EQ(entries(dir.path()), std::vector<std::string>{"state.json"}) << "no temporary left";

    // A folder that can't be made.
    writeFile(dir / "plain", "x");
    EXPECT_THROW(StateStore(dir / "plain" / "sub" / "state.json").save(sampleState()), Error);

    StateStore good(dir / "good.json");
    good.save(sampleState());
    fs::create_directories(dir / "good.json.blocked");
    EXPECT_EQ(good.load(), sampleState());
}

TEST(StateStore, DefaultStoreLivesInTheHomeFolder) {
    const char* old = std::getenv("HOME");
    const std::string saved = old ? old : "";
    ::setenv("HOME", "/home/ann", 1);
    EXPECT_EQ(StateStore::defaultStore(false).url, "/home/ann/Library/Application Support/Tessel/state.json");
    EXPECT_EQ(StateStore::defaultStore(true).url, "/home/ann/Library/Application Support/Tessel-dev/state.json");
    if (old)
        ::setenv("HOME", saved.c_str(), 1);
    else
        ::unsetenv("HOME");
    EXPECT_EQ(toString(Outcome::readError), "readError");
}

// Run only as the child of the test below: saves two states in turn, forever,
// telling the parent once the first is on disk.
TEST(StateStoreCrash, DISABLED_SavesForever) {
    const char* path = std::getenv("TSL_STATE_CRASH_FILE");
    ASSERT_NE(path, nullptr);
    StateStore store(path);
    PersistedState states[2];
    for (int i = 0; i < 3000; ++i) states[0].migrated.push_back(migratedApp("com.old." + std::to_string(i)));
    states[1] = states[0];
    states[1].onboardingDone = true;
    states[1].migrated.resize(1500);
    for (long round = 0;; ++round) {
        store.save(states[round % 2]);
        if (round == 0) {
            std::printf("saved\n");
            std::fflush(stdout);
        }
    }
}

TEST(StateStoreCrash, KilledSaveLeavesTheOldOrTheNewState) {
    TempDir dir;
    const std::string file = (dir / "state.json").string();
    char self[4096];
    const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    ASSERT_GT(n, 0);
    self[n] = 0;
    ::setenv("TSL_STATE_CRASH_FILE", file.c_str(), 1);

    std::mt19937 random(20261007);
    int rounds = 0;
    for (; rounds < 40; ++rounds) {
        ChildProcess child(self, {"--gtest_filter=StateStoreCrash.DISABLED_SavesForever",
                                  "--gtest_also_run_disabled_tests"});
        ASSERT_TRUE(child.waitForOutput("saved\n")) << child.standardError();
        // The moment is the point of the test: anywhere in the next few saves.
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 40000));
        child.signal(SIGKILL);
        ASSERT_EQ(child.wait(), 128 + SIGKILL);

        const auto loaded = StateStore(file).loadReporting();
        ASSERT_EQ(loaded.outcome, Outcome::loaded) << "round " << rounds;
        const auto& s = loaded.state;
        ASSERT_EQ(s.migrated.size(), s.onboardingDone ? 1500u : 3000u) << "round " << rounds;
    }
    // Temporaries left behind are saves that the kill cut short.
    size_t cut = 0;
    for (const auto& e : fs::directory_iterator(dir.path())) cut += e.path().filename() != "state.json";
    std::printf("%zu of %d kills landed inside a save\n", cut, rounds);
    ::unsetenv("TSL_STATE_CRASH_FILE");

    // Once they are a minute old, the next save takes them away.
    for (const auto& e : fs::directory_iterator(dir.path()))
        fs::last_write_time(e.path(), fs::file_time_type::clock::now() - std::chrono::minutes(2));
    const std::string young = file + ".tmp-young";
    writeFile(young, "a save under way");
    StateStore(file).save({});
    std::vector<std::string> left;
    for (const auto& e : fs::directory_iterator(dir.path())) left.push_back(e.path().string());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, (std::vector<std::string>{file, young}));
}

// Found by fuzzing: a date the clock can't hold overflowed on the way in.
// Dates in the file are whole seconds of any four-digit year, and such a
// date is kept like any other.
TEST(StateStore, DatesFarAheadAreKeptNotOverflowed) {
    TempDir dir;
    StateStore store(dir / "state.json");
    writeFile(store.url, readFile(sourceDir() / "tests/TslCore/Model/data/state-date-beyond-clock.json"));
    const auto loaded = store.loadReporting();
    ASSERT_EQ(loaded.outcome, Outcome::loaded);
    const auto& typing = loaded.state.beta.checklist.apps.at("com.a").at("typing");
    EXPECT_EQ(ISO8601::format(typing.at), "4052-10-07T12:34:56Z");
    EXPECT_EQ(loaded.state.migrated.size(), 2u);
    store.save(loaded.state);
    EXPECT_EQ(store.loadReporting().state, loaded.state);
}
