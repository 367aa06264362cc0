// The service's window work seen from the host's side of real sockets: the
// window list, window actions and their refusals, an application that never
// answers, and the window events of tracking across ticks.
#include <gtest/gtest.h>

#include <algorithm>

#include "Platform/Sim/Desktop.h"
#include "Support/AgentTestSupport.h"
#include "Support/Errors.h"
#include "TslAgent/AXSupport.h"
#include "TslAgent/WindowList.h"

using namespace tsl;
using namespace tsl::test;
using Kind = WindowEvent::Kind;
using Events = std::vector<std::pair<Kind, uint32_t>>;

namespace {

// A service over a simulated desktop, with host ends on socket pairs. The
// tracking timer is not started unless a test does it; ticks are stepped.
struct WindowWorld {
    MainActor main;
    std::shared_ptr<Sim::Desktop> desktop = Sim::Desktop::make(Sim::Desktop::Options{.manualCapture = true});
    PlatformServices platform = desktop->services();
    ExitRecorder exits;
    std::shared_ptr<AgentService> service = desktopService(platform, exits);
    std::vector<std::shared_ptr<ControlChannel>> agentEnds;
    std::vector<std::unique_ptr<HostEnd>> hostEnds;

    WindowWorld() { SheetCache::shared().clear(); }
    ~WindowWorld() {
        hostEnds.clear();
        main.runUntil([&] { return service->attached().empty(); }, limit);
    }

    size_t attachControl(AgentService::Greeting greeting = AgentService::Greeting::done) {
        auto [a, b] = socketPair();
        auto agentEnd = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(a, "agent"));
        service->attach(agentEnd, {Channel::control}, greeting);
        agentEnd->start();
        hostEnds.push_back(std::make_unique<HostEnd>(std::make_shared<WireConnection>(b, "host")));
        hostEnds.back()->channel->start();
        agentEnds.push_back(agentEnd);
        return agentEnds.size() - 1;
    }
    ControlMessage request(ControlMessage message, size_t host = 0, double timeout = 10) {
        return main.runTask(hostEnds[host]->channel->request(std::move(message), timeout), limit);
    }
    std::string refusal(WindowAction action) {
        return thrownBy<ControlError>([&] { request(ControlMessage::WindowAction{action}); }).info().message;
    }
    std::vector<GuestWindow> list(WindowQuery query = {}) {
        return request(ControlMessage::ListWindows{query}).get<ControlMessage::WindowList>()->value;
    }

    // Window events a host has received so far.
    std::vector<WindowEvent> events(size_t host = 0) {
        std::lock_guard g(hostEnds[host]->m);
        std::vector<WindowEvent> out;
        for (const ControlEnvelope& e : hostEnds[host]->received)
            if (auto w = e.message.get<ControlMessage::WindowEvent>()) out.push_back(w->value);
        return out;
    }
    // One tracking tick, and the events it brought the host: a request
    // answered after the tick trails them on the same connection.
    Events tick(size_t host = 0) {
        const size_t before = events(host).size();
        service->trackWindows();
        request(ControlMessage::Hello{hostHello()}, host);
        Events out;
        auto all = events(host);
        for (size_t i = before; i < all.size(); ++i) out.emplace_back(all[i].kind, all[i].window.windowID);
        return out;
    }
};

}  // namespace

TEST(WindowService, ListsWindowsWithStackingFocusAndSheets) {
    WindowWorld world;
    world.attachControl();
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App", .bundleID = "com.example.app"});
    const int32_t other = d.addProcess({.name = "Other", .bundleID = "com.example.other"});
    const uint32_t doc = d.addWindow(app, {.title = "Doc", .frame = {100, 100, 600, 400}});
    const uint32_t sheet = d.addWindow(app, {.title = "Save", .frame = {250, 100, 300, 150}, .sheetOf = doc});
    const uint32_t back = d.addWindow(other, {.title = "Back", .frame = {0, 0, 300, 300}});
    const uint32_t hidden = d.addWindow(other, {.title = "Hidden", .shown = false});
    d.activate(app);

    auto windows = world.list();
    ASSERT_EQ(windows.size(), 3u);
    EXPECT_EQ(windows[0].windowID, sheet);
    EXPECT_EQ(windows[0].attachedTo, doc);
    EXPECT_TRUE(windows[0].isFocused);  // the front window of the frontmost application
    EXPECT_EQ(windows[1].windowID, doc);
    EXPECT_EQ(windows[1].zIndex, 1);
    EXPECT_EQ(windows[1].title, "Doc");
    EXPECT_EQ(windows[1].bundleID, "com.example.app");
    EXPECT_FALSE(windows[1].isFocused);
    EXPECT_EQ(windows[2].windowID, back);
    (void)hidden;  // off screen windows are not listed for the host

    EXPECT_EQ(world.list({.bundleID = "com.example.other"}).size(), 1u);
    EXPECT_EQ(world.list({.pid = app}).size(), 2u);
    EXPECT_TRUE(world.list({.bundleID = "com.example.none"}).empty());
}

TEST(WindowService, ActionsChangeWindowsAndRefusalsAreWorded) {
    WindowWorld world;
    world.attachControl();
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App"});
    const uint32_t a = d.addWindow(app, {.frame = {100, 100, 400, 300}});
    const uint32_t b = d.addWindow(app, {.frame = {600, 100, 400, 300}});
    const uint32_t fixed = d.addWindow(app, {.frame = {0, 500, 300, 200}, .hasCloseButton = false, .movable = false,
                                             .resizable = false});
    world.service->trackWindows();
    using AK = WindowAction::Kind;
    auto act = [&](uint32_t id, AK kind, std::optional<WireRect> frame = std::nullopt) {
        return world.request(ControlMessage::WindowAction{WindowAction{id, kind, frame}});
    };

    EXPECT_EQ(act(a, AK::move, WireRect{40, 50, 0, 0}).kind(), ControlMessage::Kind::ok);
    EXPECT_EQ(d.window(a)->frame, (Rect{40, 50, 400, 300}));
    // The input path sees the new place before the next tick.
    EXPECT_EQ(world.service->windowCache()->locked().window(a)->origin, (Point{40, 50}));
    act(a, AK::resize, WireRect{0, 0, 500, 350});
    act(b, AK::setFrame, WireRect{700, 200, 320, 240});
    EXPECT_EQ(d.window(a)->frame, (Rect{40, 50, 500, 350}));
    EXPECT_EQ(d.window(b)->frame, (Rect{700, 200, 320, 240}));
    act(b, AK::focus);
    EXPECT_EQ(d.windows().front().id, b);
    EXPECT_EQ(d.frontmostPid(), app);
    act(b, AK::minimize);
    EXPECT_TRUE(d.window(b)->isMinimized);
    act(b, AK::restore);
    EXPECT_FALSE(d.window(b)->isMinimized);
    act(b, AK::close);
    EXPECT_FALSE(d.window(b));

    EXPECT_EQ(world.refusal({b, AK::focus, std::nullopt}), "notFound: window " + std::to_string(b));
    EXPECT_EQ(world.refusal({a, AK::move, WireRect{100000, 0, 10, 10}}), "badRequest: window frame out of range");
    EXPECT_EQ(world.refusal({a, AK::resize, WireRect{0, 0, -1, 10}}), "badRequest: window frame out of range");
    EXPECT_EQ(world.refusal({fixed, AK::move, WireRect{1, 1, 1, 1}}), "axFailed: move failed (Accessibility?)");
    EXPECT_EQ(world.refusal({fixed, AK::setFrame, WireRect{1, 1, 1, 1}}), "axFailed: setFrame failed (Accessibility?)");
    EXPECT_EQ(world.refusal({fixed, AK::close, std::nullopt}), "axFailed: close failed (Accessibility?)");
    EXPECT_EQ(world.refusal({a, AK::move, std::nullopt}), "axFailed: move failed (Accessibility?)");
    EXPECT_EQ(d.window(fixed)->frame, (Rect{0, 500, 300, 200}));
    // The error reply comes as "failed" with the specific code in the message.
    auto error = thrownBy<ControlError>([&] { act(99, AK::close); });
    EXPECT_EQ(error.info().code, "failed");
}

TEST(WindowService, AnApplicationThatNeverAnswersCostsOnlyItsTimeOut) {
    WindowWorld world;
    world.attachControl();
    auto& d = *world.desktop;
    const int32_t hung = d.addProcess({.name = "Hung"});
    const uint32_t w = d.addWindow(hung, {.frame = {100, 100, 400, 300}});
    d.setAnswerDelay(hung, 1e6);
    // Without the agent's own time-out the platform's (six seconds) would
    // outlast this request's limit.
    const double requestLimit = 4;
    auto error = thrownBy<ControlError>([&] {
        world.request(ControlMessage::WindowAction{WindowAction{w, WindowAction::Kind::move, WireRect{0, 0, 1, 1}}}, 0,
                      requestLimit);
    });
    EXPECT_EQ(error.info().message, "axFailed: move failed (Accessibility?)");
    EXPECT_EQ(world.request(ControlMessage::Hello{hostHello()}, 0, requestLimit).kind(), ControlMessage::Kind::hello);
    EXPECT_EQ(d.window(w)->frame, (Rect{100, 100, 400, 300}));
}

TEST(WindowService, EventsFollowWindowsAcrossTicks) {
    WindowWorld world;
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App", .bundleID = "com.example.app"});
    const int32_t other = d.addProcess({.name = "Other"});
    const uint32_t first = d.addWindow(app, {.frame = {0, 0, 300, 200}});
    world.service->trackWindows();  // before any host: no replay later
    world.attachControl();

    const uint32_t w = d.addWindow(app, {.title = "One", .frame = {100, 100, 400, 300}});
    const uint32_t late = d.addWindow(other, {.title = "Late", .shown = false});
    EXPECT_EQ(world.tick(), (Events{{Kind::created, w}}));
    EXPECT_EQ(world.tick(), Events{});

    d.setFrame(w, {120, 100, 400, 300});
    d.setTitle(w, "Two");
    EXPECT_EQ(world.tick(), (Events{{Kind::moved, w}, {Kind::titleChanged, w}}));
    d.setFrame(w, {0, 0, 500, 300});
    EXPECT_EQ(world.tick(), (Events{{Kind::resized, w}}));
    EXPECT_EQ(world.events().back().window.frame, (WireRect{0, 0, 500, 300}));

    d.activate(app);
    EXPECT_EQ(world.tick(), (Events{{Kind::focused, w}}));
    d.raise(first);
    EXPECT_EQ(world.tick(), (Events{{Kind::focused, first}}));

    // A size change at the tick it goes off screen: minimized alone, for good.
    d.setFrame(w, {0, 0, 640, 480});
    d.setMinimized(w, true);
    EXPECT_EQ(world.tick(), (Events{{Kind::minimized, w}}));
    d.setMinimized(w, false);
    EXPECT_EQ(world.tick(), (Events{{Kind::restored, w}, {Kind::focused, w}}));
    d.setMinimized(w, true);
    world.tick();
    d.setFrame(w, {0, 0, 300, 300});
    d.setMinimized(w, false);
    auto back = world.tick();
    EXPECT_EQ(back[0], std::make_pair(Kind::restored, w));
    EXPECT_EQ(back[1], std::make_pair(Kind::resized, w));

    // Created off screen: announced when it shows, with no restore.
    d.setShown(late, true);
    EXPECT_EQ(world.tick(), (Events{{Kind::created, late}}));
    d.closeWindow(w);
    d.closeWindow(late);
    // The focus passes to the window behind, before the closes.
    auto closes = world.tick();
    ASSERT_EQ(closes.size(), 3u);
    EXPECT_EQ(closes[0], std::make_pair(Kind::focused, first));
    std::sort(closes.begin(), closes.end());
    EXPECT_EQ(closes, (Events{{Kind::closed, w}, {Kind::closed, late}, {Kind::focused, first}}));
    // The closed record is the window as it was.
    EXPECT_EQ(world.events().back().window.pid, world.events().back().window.windowID == late ? other : app);
}

TEST(WindowService, MenuWindowsOpenedForAPressNeverReachTheHost) {
    WindowWorld world;
    world.attachControl();
    auto& d = *world.desktop;
    const std::vector<Sim::MenuItemSetup> menus{{.title = "File", .submenu = {{.title = "New"}, {.title = "Open"}}}};
    const int32_t app = d.addProcess({.name = "App", .menuBar = menus});
    const int32_t other = d.addProcess({.name = "Other", .menuBar = menus});
    const uint32_t doc = d.addWindow(app, {.frame = {100, 100, 400, 300}});
    world.tick();
    auto openMenu = [&](int32_t pid) {
        auto bar = AX::attr<AXElement>(world.platform, AX::app(world.platform, pid), "AXMenuBar");
        ASSERT_TRUE(bar);
        ASSERT_TRUE(AX::press(world.platform, AX::elements(world.platform, *bar, "AXChildren").at(0)));
    };
    auto menuWindow = [&](int32_t pid) {
        for (const Sim::WindowInfo& w : d.windows())
            if (w.pid == pid && w.layer == Sim::Desktop::menuWindowLayer) return w.id;
        return 0u;
    };

    world.service->windowTracking().hideMenusOf[app] = WindowTracker::Clock::now() + std::chrono::hours(1);
    openMenu(app);
    openMenu(other);
    const uint32_t hidden = menuWindow(app), shown = menuWindow(other);
    ASSERT_NE(hidden, 0u);
    EXPECT_EQ(world.tick(), (Events{{Kind::created, shown}}));
    d.setFrame(hidden, {300, 24, 220, 60});
    EXPECT_EQ(world.tick(), Events{});
    // The entry ends; the window stays withheld until it closes.
    world.service->windowTracking().hideMenusOf.clear();
    d.setFrame(hidden, {320, 24, 220, 60});
    d.setFrame(doc, {0, 0, 400, 300});
    EXPECT_EQ(world.tick(), (Events{{Kind::moved, doc}}));
    d.closeWindow(hidden);
    EXPECT_EQ(world.tick(), Events{});
    EXPECT_TRUE(world.service->windowTracking().hiddenMenus.empty());
    for (const WindowEvent& e : world.events()) EXPECT_NE(e.window.windowID, hidden);
    // With the entry gone, the application's next menu is announced.
    openMenu(app);
    EXPECT_EQ(world.tick(), (Events{{Kind::created, menuWindow(app)}}));
}

TEST(WindowService, EveryChannelHearsAndTheStreamSideIsToldWithOrWithoutHosts) {
    WindowWorld world;
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App"});
    const uint32_t w = d.addWindow(app, {.frame = {100, 100, 400, 300}});
    std::vector<std::string> told;
    world.service->setWindowStreamHooks({
        [&](GuestWindow window) -> asio::awaitable<void> {
            told.push_back("resized " + std::to_string(window.windowID));
            co_return;
        },
        [&](uint32_t id) -> asio::awaitable<void> {
            told.push_back("closed " + std::to_string(id));
            co_return;
        },
        [&](uint32_t id) { told.push_back("restored " + std::to_string(id)); },
    });
    // No host at all: nothing is sent, the stream side is told all the same.
    world.service->trackWindows();
    d.setFrame(w, {100, 100, 500, 300});
    world.service->trackWindows();
    d.setMinimized(w, true);
    world.service->trackWindows();
    d.setMinimized(w, false);
    world.service->trackWindows();
    world.main.runFor(std::chrono::seconds(5));
    // A restore is told at once, a resize by a task that runs after the tick.
    EXPECT_EQ(told, (std::vector<std::string>{"restored " + std::to_string(w), "resized " + std::to_string(w)}));

    // A channel that fails to send loses only its own copy.
    world.attachControl();
    world.attachControl();
    world.agentEnds[0]->connection->close();
    d.closeWindow(w);
    EXPECT_EQ(world.tick(1), (Events{{Kind::closed, w}}));
    world.main.runFor(std::chrono::seconds(5));
    EXPECT_EQ(told.back(), "closed " + std::to_string(w));
}

// A dialled channel's first message must be its hello: until the host has
// answered it, the agent sends nothing there of its own accord.
TEST(WindowService, NothingGoesOutOnAChannelBeforeItsHelloIsAnswered) {
    WindowWorld world;
    world.attachControl(AgentService::Greeting::awaitingHello);
    world.attachControl();
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App"});
    const uint32_t w = d.addWindow(app, {.frame = {100, 100, 400, 300}});
    EXPECT_EQ(world.tick(1), (Events{{Kind::created, w}}));
    // Requests are answered meanwhile; the answer trails any event sent before.
    world.request(ControlMessage::Hello{hostHello()}, 0);
    EXPECT_TRUE(world.events(0).empty());
    world.service->helloAnswered(world.agentEnds[0]);
    d.setFrame(w, {100, 100, 500, 300});
    EXPECT_EQ(world.tick(0), (Events{{Kind::resized, w}}));

    // Nor does a stream pick a video channel before then.
    auto [a, b] = socketPair();
    auto video = std::make_shared<ControlChannel>(std::make_shared<WireConnection>(a, "video"));
    world.service->attach(video, {Channel::video}, AgentService::Greeting::awaitingHello);
    EXPECT_EQ(world.service->videoConnection(), nullptr);
    world.service->helloAnswered(video);
    EXPECT_EQ(world.service->videoConnection(), video->connection);
    video->close();
    ::close(b);
}

TEST(WindowService, StreamsFollowTheirWindowsThroughTracking) {
    WindowWorld world;
    world.attachControl();
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App"});
    const uint32_t w = d.addWindow(app, {.frame = {100, 100, 640, 400}});
    world.service->trackWindows();
    world.request(ControlMessage::StartStream{StreamRequest{1, w, 30, 1.0, VideoCodec::rawBGRA}});
    EXPECT_EQ(world.service->streamManager()->activeStreams(), (std::vector<uint32_t>{1}));
    // The capture indicator the system lays over the window stays the agent's
    // secret; lying in front, it takes the focus mark away with it.
    ASSERT_TRUE(d.captureIndicator(w));
    d.activate(app);
    auto listed = world.list();
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_FALSE(listed[0].isFocused);
    EXPECT_EQ(world.tick(), Events{});

    d.setFrame(w, {100, 100, 800, 500});
    EXPECT_EQ(world.tick(), (Events{{Kind::resized, w}}));
    EXPECT_TRUE(world.main.runUntil([&] { return d.captureCounts().updates == 1; }, limit));
    d.closeWindow(w);
    EXPECT_EQ(world.tick(), (Events{{Kind::closed, w}}));
    EXPECT_TRUE(world.main.runUntil([&] { return world.service->streamManager()->activeStreams().empty(); }, limit));
}

TEST(WindowService, TrackingRunsOnItsTimerFromTheStart) {
    WindowWorld world;
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App"});
    const uint32_t before = d.addWindow(app, {.frame = {100, 100, 400, 300}});
    world.service->startBackgroundWork();
    world.attachControl();
    const uint32_t after = d.addWindow(app, {.frame = {200, 200, 400, 300}});
    ASSERT_TRUE(world.main.runUntil([&] { return !world.events().empty(); }, limit));
    auto events = world.events();
    EXPECT_EQ(events[0].kind, Kind::created);
    EXPECT_EQ(events[0].window.windowID, after);  // the first picture was taken at start, to no one
    EXPECT_EQ(world.service->windowCache()->locked().windows().count(before), 1u);
}
