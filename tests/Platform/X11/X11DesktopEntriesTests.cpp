// Applications from desktop entries through the catalog, on a real display:
// the system's xterm entry and entries of the test's own, launched by id,
// by path and with documents, quit by closing their windows, and the trust
// rules at each step.
#include <signal.h>

#include <fstream>

#include "Platform/X11/X11DesktopEntries.h"
#include "Support/Errors.h"
#include "Support/TempDir.h"
#include "TslAgent/AppCatalog.h"
#include "TslStream/Runtime/MainActor.h"
#include "TslStream/Transport/ControlError.h"
#include "X11DesktopTest.h"

namespace tsl::test {
namespace {

namespace fs = std::filesystem;

void writeEntry(const fs::path& file, const std::string& name, const std::string& exec, const std::string& extra = {}) {
    fs::create_directories(file.parent_path());
    std::ofstream(file) << "[Desktop Entry]\nType=Application\nName=" << name << "\nExec=" << exec << "\n" << extra;
}

bool ended(int32_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string stat;
    std::getline(in, stat);
    // A child of init that nobody reaped yet counts as ended.
    return stat.empty() || stat.find(") Z ") != std::string::npos;
}

std::string commandLine(int32_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
    std::string line((std::istreambuf_iterator<char>(in)), {});
    std::replace(line.begin(), line.end(), '\0', ' ');
    return line;
}

class X11DesktopEntriesTest : public X11DesktopTest {
protected:
    void SetUp() override {
        X11DesktopTest::SetUp();
        // The title changes once xterm's child runs: from then on a close ends it.
        std::ofstream(data / "ready.sh") << R"(printf '\033]2;Tsl Ready\007'; exec sleep 600)"
                                         << "\n";
        fs::permissions(data / "ready.sh", fs::perms::owner_all);
        writeEntry(data / "applications" / "tsl-term.desktop", "Tsl Term",
                   "xterm -T \"Tsl Entry\" -geometry 40x5+50+50 -e " + (data / "ready.sh").string());
        writeEntry(data / "applications" / "tsl" / "viewer.desktop", "Tsl Viewer",
                   "xterm -T Tsl-Viewer -geometry 40x5+90+90 -hold -e true %F");
        writeEntry(data / "applications" / "tsl-hidden.desktop", "Tsl Hidden", "xterm", "NoDisplay=true\n");
        writeEntry(data / "applications" / "tsl-missing.desktop", "Tsl Missing", "nowhere",
                   "TryExec=/nonexistent/nowhere\n");
        writeEntry(data / "applications" / "tsl-eyes.desktop", "Tsl Eyes", "xeyes", "StartupWMClass=XEyes\n");
        // A second data folder's entry of the same id stays behind the first.
        writeEntry(later / "applications" / "tsl-term.desktop", "Shadowed", "xterm");
        fs::create_directories(share);
        source = std::make_shared<X11::DesktopEntries>(platform.workspace,
                                                       std::vector<fs::path>{data.path(), later.path(), "/usr/share"});
    }
    void TearDown() override {
        // Whatever a failed case left running; GIO made them children of init.
        for (int32_t pid : launched)
            if (!ended(pid)) ::kill(pid, SIGKILL);
        X11DesktopTest::TearDown();
    }

    LaunchResult launch(LaunchRequest request) {
        LaunchResult result = main.runTask(AppCatalog::launch(std::move(request), source, {share}, {}, false), limit);
        launched.push_back(result.pid);
        return result;
    }
    std::string refusal(LaunchRequest request) {
        return thrownBy<ControlError>([&] { launch(std::move(request)); }).description();
    }
    std::optional<GuestApp> listed(const std::string& id) {
        for (const GuestApp& app : AppCatalog::list(*source))
            if (app.bundleID == id) return app;
        return std::nullopt;
    }

    static constexpr auto limit = std::chrono::seconds(20);
    MainActor main;
    TempDir data, later;
    fs::path share = data / "share";
    std::shared_ptr<X11::DesktopEntries> source;
    std::vector<int32_t> launched;
};

TEST_P(X11DesktopEntriesTest, ListsTheVisibleEntriesOfEveryDataFolder) {
    const std::vector<GuestApp> apps = AppCatalog::list(*source);
    auto find = [&](const std::string& id) { return listed(id); };
    ASSERT_TRUE(find("debian-xterm"));
    EXPECT_EQ(find("debian-xterm")->name, "XTerm");
    EXPECT_EQ(find("debian-xterm")->path, "/usr/share/applications/debian-xterm.desktop");
    ASSERT_TRUE(find("tsl-term"));
    EXPECT_EQ(find("tsl-term")->name, "Tsl Term");
    EXPECT_EQ(find("tsl-term")->path, (data / "applications" / "tsl-term.desktop").string());
    EXPECT_EQ(find("tsl-viewer")->name, "Tsl Viewer");
    EXPECT_FALSE(find("tsl-hidden"));
    EXPECT_FALSE(find("tsl-missing"));
    EXPECT_FALSE(find("tsl-eyes")->running);
    EXPECT_TRUE(
        std::is_sorted(apps.begin(), apps.end(), [](const GuestApp& a, const GuestApp& b) { return a.name < b.name; }));

    // Entries are read again once one comes, goes or changes.
    writeEntry(data / "applications" / "tsl-late.desktop", "Tsl Late", "xterm");
    EXPECT_EQ(find("tsl-late")->name, "Tsl Late");
    writeEntry(data / "applications" / "tsl-late.desktop", "Tsl Later", "xterm");
    EXPECT_EQ(find("tsl-late")->name, "Tsl Later");
    fs::remove(data / "applications" / "tsl-late.desktop");
    EXPECT_FALSE(find("tsl-late"));

    // A program started by other means is marked by its window class or program name.
    ChildProcess& eyes = display->launch("/usr/bin/xeyes", {"-geometry", "100x80+300+300"});
    ASSERT_TRUE(display->waitForWindow("xeyes"));
    EXPECT_EQ(find("tsl-eyes")->pid, eyes.pid());
    // It isn't ours to quit when no entry names it: the test pattern isn't listed.
    ChildProcess& pattern = display->launchPattern(400, 100);
    ASSERT_TRUE(display->waitForWindow("Tsl TestPattern"));
    EXPECT_EQ(thrownBy<ControlError>([&] { AppCatalog::quit(pattern.pid(), *source); }).description(),
              "forbidden: not a Tessel app: " + std::to_string(pattern.pid()));
}

TEST_P(X11DesktopEntriesTest, LaunchesByIdAndQuitsByClosingItsWindows) {
    const LaunchResult result = launch({.bundleID = "tsl-term"});
    EXPECT_EQ(result.bundleID, "tsl-term");
    ASSERT_GT(result.pid, 0);
    // Its window by pid: the title it starts with lasts only until its child runs.
    std::optional<X11::ClientWindow> window;
    display->waitUntil([&] {
        for (const X11::ClientWindow& w : X11::ClientWindow::list(display->connection()))
            if (w.pid == result.pid && w.onScreen()) window = w;
        return window.has_value();
    });
    ASSERT_TRUE(window);
    // Closed before its child runs, xterm would hang up on nobody and stay.
    display->connection().watch(window->id);
    ASSERT_TRUE(display->waitForWindow("Tsl Ready"));
    // Marked from its launch, not by its program: the system's xterm entry stays unmarked.
    EXPECT_EQ(listed("tsl-term")->pid, result.pid);
    EXPECT_FALSE(listed("debian-xterm")->running);

    AppCatalog::quit(result.pid, *source);
    EXPECT_TRUE(display->waitUntil([&] { return ended(result.pid); }));
    EXPECT_FALSE(listed("tsl-term")->running);
}

TEST_P(X11DesktopEntriesTest, OpensDocumentsThroughTheFieldCodesWithinTheRules) {
    std::ofstream(share / "notes.txt") << "x";
    const fs::path entry = data / "applications" / "tsl" / "viewer.desktop";
    const LaunchResult result = launch({.path = entry.string(), .openFiles = {(share / "notes.txt").string()}});
    EXPECT_EQ(result.bundleID, "tsl-viewer");
    ASSERT_TRUE(display->waitForWindow("Tsl-Viewer"));
    EXPECT_NE(commandLine(result.pid).find(" " + (share / "notes.txt").string()), std::string::npos)
        << commandLine(result.pid);

    const std::string place =
        (data / "applications").string() + ", " + (later / "applications").string() + ", /usr/share/applications";
    EXPECT_EQ(refusal({.path = "/usr/share/xsessions/openbox.desktop"}),
              "forbidden: can only launch apps from " + place);
    EXPECT_EQ(refusal({.path = (data / "applications" / ".." / "x.desktop").string()}),
              "forbidden: can only launch apps from " + place);
    EXPECT_EQ(refusal({.path = (data / "applications" / "tsl").string()}),
              "forbidden: can only launch apps from " + place);
    EXPECT_EQ(refusal({.bundleID = "tsl-hidden"}), "notFound: no app with bundle id tsl-hidden");
    EXPECT_EQ(refusal({.bundleID = "tsl-viewer", .openFiles = {"/etc/hostname"}}),
              "forbidden: file outside the shared folders: /etc/hostname");
}

INSTANTIATE_TEST_SUITE_P(X11, X11DesktopEntriesTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "WithWindowManager" : "WithoutWindowManager"; });

}  // namespace
}  // namespace tsl::test
