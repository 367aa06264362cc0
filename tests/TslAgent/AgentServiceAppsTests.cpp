// The application requests end to end: a host's control channel over a
// socket pair, the service on this thread's main actor, the simulated desktop.
#include <gtest/gtest.h>

#include "Support/ServiceWorld.h"
#include "Support/SimSupport.h"

using namespace tsl;
using namespace tsl::test;
namespace fs = std::filesystem;

namespace {

struct AppsWorld : ServiceWorld {
    explicit AppsWorld(bool guestRun = false) : ServiceWorld(guestRun) {}
    std::vector<GuestApp> apps() { return request(ControlMessage::ListApps{}).get<ControlMessage::AppList>()->value; }
};

}  // namespace

TEST(AgentServiceApps, ListLaunchAndQuitThroughTheChannel) {
    AppsWorld w;
    auto apps = w.apps();
    ASSERT_EQ(apps.size(), 2u);
    EXPECT_EQ(apps[0].name, "Tsl Scratchpad");
    EXPECT_EQ(apps[1].name, "Tsl TestPattern");
    EXPECT_FALSE(apps[0].running);

    auto byPath = w.request(ControlMessage::LaunchApp{{.path = apps[0].path}}).get<ControlMessage::Launched>()->value;
    EXPECT_EQ(byPath.bundleID, "com.tessel.scratchpad");
    auto byID = w.request(ControlMessage::LaunchApp{{.bundleID = "com.tessel.testpattern"}})
                    .get<ControlMessage::Launched>()
                    ->value;
    EXPECT_EQ(w.desktop->windows().front().title, "Tsl TestPattern");
    apps = w.apps();
    EXPECT_EQ(apps[0].pid, byPath.pid);
    EXPECT_EQ(apps[1].pid, byID.pid);

    writeFile(w.config.sharedDir / "notes.txt", "n");
    w.request(ControlMessage::LaunchApp{{.bundleID = "com.tessel.scratchpad", .openFiles = {(w.config.sharedDir / "notes.txt").string()}}});
    EXPECT_EQ(w.desktop->process(byPath.pid)->openedDocuments.size(), 1u);

    EXPECT_EQ(w.request(ControlMessage::QuitApp{byID.pid}), ControlMessage(ControlMessage::Ok{}));
    EXPECT_FALSE(w.desktop->process(byID.pid));
    EXPECT_FALSE(w.apps()[1].running);
}

TEST(AgentServiceApps, RefusalsReachTheHostWithTheirTexts) {
    AppsWorld w;
    writeFile(w.root / "outside.txt", "x");
    const int32_t foreign = w.desktop->addProcess({.name = "Foreign", .bundleURL = w.root / "Foreign.app"});

    EXPECT_EQ(w.refusal(ControlMessage::LaunchApp{{}}), "badRequest: launchApp needs a path or bundle id");
    EXPECT_EQ(w.refusal(ControlMessage::LaunchApp{{.path = (w.root / "Foreign.app").string()}}),
              "forbidden: can only launch apps from " + w.config.appsDir.string());
    EXPECT_EQ(w.refusal(ControlMessage::LaunchApp{{.bundleID = "com.example.none"}}),
              "notFound: no app with bundle id com.example.none");
    const std::string doc = (w.root / "outside.txt").string();
    EXPECT_EQ(w.refusal(ControlMessage::LaunchApp{{.bundleID = "com.tessel.scratchpad", .openFiles = {doc}}}),
              "forbidden: file outside the shared folders: " + doc);
    EXPECT_EQ(w.refusal(ControlMessage::QuitApp{foreign}), "forbidden: not a Tessel app: " + std::to_string(foreign));
    EXPECT_TRUE(w.desktop->process(foreign));
    EXPECT_EQ(w.desktop->processes().size(), 1u);  // nothing was started
}

TEST(AgentServiceApps, InstallsWithoutHoldingUpOtherRequests) {
    AppsWorld w(true);
    const auto stage = w.config.sharedDir / "Migrate" / "com.example.big";
    const auto bundle = makeBundle(stage, "Big", "com.example.big");
    writeFile(stage / "prefs.plist", "<plist version=\"1.0\"><dict/></plist>");
    // The preferences tool holds the install until the test lets it go.
    Waiter entered, released;
    w.desktop->scriptChild("/usr/bin/defaults", [&](const std::vector<std::string>&) {
        entered.signal();
        released.waitFor(1, std::chrono::seconds(20));
        return System::ChildResult{};
    });
    std::optional<ControlMessage> installed;
    w.main.spawn([&]() -> asio::awaitable<void> {
        ControlMessage::InstallApp install{{bundle.string(), "com.example.big", (stage / "prefs.plist").string(), std::nullopt}};
        installed = co_await w.host->channel->request(install, 30);
    });
    ASSERT_TRUE(w.main.runUntil([&] { return entered.value() == 1; }, limit));

    auto apps = w.apps();  // answered while the install is under way
    EXPECT_FALSE(installed);
    ASSERT_EQ(apps.size(), 3u);
    EXPECT_EQ(apps[0].bundleID, "com.example.big");

    released.signal();
    ASSERT_TRUE(w.main.runUntil([&] { return installed.has_value(); }, limit));
    EXPECT_EQ(*installed, ControlMessage(ControlMessage::Installed{"com.example.big", (w.config.appsDir / "Big.app").string()}));

    EXPECT_EQ(w.refusal(ControlMessage::InstallApp{{bundle.string(), "bad id"}}), "invalid bundle identifier: bad id");
}
