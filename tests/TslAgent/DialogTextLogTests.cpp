// The opt-in log of dialog texts: which windows count as dialogs, the marker
// file, what is read of a window and what never is, and the line's form.
#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>

#include "Platform/Sim/Desktop.h"
#include "Support/Files.h"
#include "Support/TempDir.h"
#include "TslAgent/AgentService.h"
#include "TslAgent/AXSupport.h"
#include "TslAgent/DialogTextLog.h"
#include "TslAgent/WindowList.h"
#include "TslStream/Runtime/MainActor.h"

using namespace tsl;
using namespace tsl::test;
using Sim::ElementSetup;

namespace {

struct LogWorld {
    MainActor main;
    TempDir home;
    std::shared_ptr<Sim::Desktop> desktop = Sim::Desktop::make(Sim::Desktop::Options{.home = home.path()});
    PlatformServices platform = desktop->services();

    void setMarker(bool present) {
        if (present) writeFile(DialogTextLog::markerFile(platform), "");
        else std::filesystem::remove(DialogTextLog::markerFile(platform));
    }
    std::vector<std::string> lines() {
        if (!entryExists(DialogTextLog::logFile(platform))) return {};
        std::vector<std::string> out;
        std::istringstream in(readFile(DialogTextLog::logFile(platform)));
        for (std::string line; std::getline(in, line);) out.push_back(line);
        return out;
    }
    // Tells the log of a window as tracking would, and lets the reading finish.
    void created(uint32_t id) {
        for (const GuestWindow& w : WindowList::current(platform, {}, true))
            if (w.windowID == id) DialogTextLog::windowCreated(platform, w);
        ASSERT_TRUE(main.runFor(std::chrono::seconds(20)));
    }
};

std::vector<ElementSetup> alertContent() {
    return {ElementSetup{.role = "AXStaticText", .value = "Something went wrong"},
            ElementSetup{.role = "AXGroup",
                         .children = {ElementSetup{.role = "AXButton", .title = "OK"}, ElementSetup{.role = "AXButton"},
                                      ElementSetup{.role = "AXStaticText", .value = ""}}},
            ElementSetup{.role = "AXTextField",
                         .value = "secret",
                         .children = {ElementSetup{.role = "AXStaticText", .value = "inside the field"}}},
            ElementSetup{.role = "AXTextArea", .value = "typed"}};
}

}  // namespace

TEST(DialogTextLog, LogsDialogLikeWindowsOnlyWhileTheMarkerIsThere) {
    LogWorld world;
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App", .bundleID = "com.example.app"});
    const int32_t agent = d.addProcess({.name = "SecurityAgent", .bundleID = "com.apple.SecurityAgent"});
    const int32_t bare = d.addProcess({.name = "Bare"});
    const uint32_t doc = d.addWindow(app, {.title = "Doc", .frame = {0, 0, 600, 400}});
    const uint32_t alert = d.addWindow(app, {.title = "Alert", .frame = {700, 0, 300, 200}, .layer = 3,
                                             .content = alertContent()});

    world.created(alert);  // no marker yet
    EXPECT_TRUE(world.lines().empty());

    world.setMarker(true);
    world.created(doc);
    world.created(alert);
    auto lines = world.lines();
    ASSERT_EQ(lines.size(), 1u);
    // Every window of the process is read; text fields are neither read nor entered.
    const std::regex form(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ com\.example\.app pid )" + std::to_string(app) +
                          " window " + std::to_string(alert) +
                          " layer 3 \u201CAlert\u201D: Something went wrong \\| \\[OK\\]");
    EXPECT_TRUE(std::regex_match(lines[0], form)) << lines[0];

    // A system service counts at layer 0; its window without text says so.
    const uint32_t prompt = d.addWindow(agent, {.title = "Password", .frame = {0, 0, 300, 200}});
    world.created(prompt);
    ASSERT_EQ(world.lines().size(), 2u);
    EXPECT_TRUE(world.lines()[1].ends_with("\u201CPassword\u201D: (no text readable)")) << world.lines()[1];

    // No bundle identifier, or the agent's own process: nothing.
    const uint32_t nameless = d.addWindow(bare, {.frame = {0, 0, 300, 200}, .layer = 3});
    world.created(nameless);
    GuestWindow own;
    own.windowID = 4242;
    own.pid = int32_t(::getpid());
    own.bundleID = "com.tessel.agent";
    own.layer = 3;
    DialogTextLog::windowCreated(world.platform, own);
    ASSERT_TRUE(world.main.runFor(std::chrono::seconds(20)));
    EXPECT_EQ(world.lines().size(), 2u);

    // A deleted log is made anew; a removed marker stops the log at once.
    std::filesystem::remove(DialogTextLog::logFile(world.platform));
    world.created(alert);
    EXPECT_EQ(world.lines().size(), 1u);
    world.setMarker(false);
    world.created(alert);
    EXPECT_EQ(world.lines().size(), 1u);
}

TEST(DialogTextLog, CollectStopsDeepAndAfterFortyTexts) {
    LogWorld world;
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App"});
    // Seven levels below the window a text is read; eight, it isn't.
    auto nested = [](int depth, std::string text) {
        ElementSetup e{.role = "AXStaticText", .value = std::move(text)};
        for (int i = 1; i < depth; ++i) e = ElementSetup{.role = "AXGroup", .children = {e}};
        return e;
    };
    std::vector<ElementSetup> many;
    for (int i = 0; i < 39; ++i) many.push_back({.role = "AXStaticText", .value = "t" + std::to_string(i)});
    // The fortieth child brings two texts; the limit is checked before each child.
    many.push_back({.role = "AXGroup", .children = {{.role = "AXButton", .title = "A"}, {.role = "AXButton", .title = "B"}}});
    many.push_back({.role = "AXStaticText", .value = "skipped"});
    const uint32_t deep = d.addWindow(app, {.frame = {0, 0, 300, 200}, .content = {nested(7, "seven"), nested(8, "eight")}});
    const uint32_t wide = d.addWindow(app, {.frame = {0, 0, 300, 200}, .content = many});

    std::vector<std::vector<std::string>> all;
    for (const AXElement& w : AX::windows(world.platform, app)) all.push_back(DialogTextLog::collect(world.platform, w, 0));
    ASSERT_EQ(all.size(), 2u);
    // Stacking order: the wide window is in front.
    EXPECT_EQ(all[1], (std::vector<std::string>{"seven"}));
    ASSERT_EQ(all[0].size(), 41u);
    EXPECT_EQ(all[0][39], "[A]");
    EXPECT_EQ(all[0][40], "[B]");
    (void)deep, (void)wide;
}
