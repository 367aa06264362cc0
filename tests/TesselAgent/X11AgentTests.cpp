// The agent executable on a real X display, driven over its socket as a
// host would: listing, window events and window requests, against the
// test pattern client and xterm.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <fstream>

#include "Support/AgentTestSupport.h"
#include "Support/TempDir.h"
#include "Support/XDisplay.h"
#include "TslAgent/WindowList.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Task.h"

namespace tsl::test {
namespace {

class X11AgentTest : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        display = std::make_unique<XDisplay>(GetParam());
        ASSERT_TRUE(display->ready());
    }
    void TearDown() override {
        host.reset();
        agent.reset();
        display.reset();
    }

    // Starts the agent listening on `endpoint` and connects a host's control channel to it.
    void connect(const std::string& endpoint, const std::vector<std::string>& environment = {}) {
        agent = std::make_unique<ChildProcess>(
            agentExecutable(), std::vector<std::string>{"--desktop", "x11", "--listen", endpoint}, environment);
        ASSERT_TRUE(agent->waitForOutput("\n")) << agent->standardError();
        const std::string line = agent->standardOutput();
        const std::string prefix = "TesselAgent listening on ";
        ASSERT_EQ(line.substr(0, prefix.size()), prefix);
        auto listening = SocketEndpoint::parse(line.substr(prefix.size(), line.size() - prefix.size() - 1));
        ASSERT_TRUE(listening);
        host = std::make_unique<HostEnd>(std::make_shared<WireConnection>(*listening, "test"));
        host->channel->start();
        ASSERT_TRUE(request(ControlMessage::Hello{hostHello({"channel:control"})}).get<ControlMessage::Hello>());
    }
    ControlMessage request(ControlMessage message) {
        return runBlocking(GlobalQueue::executor(), host->channel->request(std::move(message), 10), limit);
    }
    std::vector<GuestWindow> windows() {
        return request(ControlMessage::ListWindows{}).get<ControlMessage::WindowList>()->value;
    }
    // Waits for a window event of this kind about this window.
    bool eventArrives(WindowEvent::Kind kind, uint32_t window) {
        for (int seen = 0;; ++seen) {
            if (!host->arrived.waitFor(seen + 1)) return false;
            const ControlEnvelope envelope = host->at(size_t(seen));
            auto event = envelope.message.get<ControlMessage::WindowEvent>();
            if (event && event->value.kind == kind && event->value.window.windowID == window) return true;
        }
    }

    std::unique_ptr<XDisplay> display;
    std::unique_ptr<ChildProcess> agent;
    std::unique_ptr<HostEnd> host;
};

TEST_P(X11AgentTest, ServesTheDisplaysWindowsOverLoopbackTCP) {
    ChildProcess& pattern = display->launchPattern(100, 100);
    ChildProcess& xterm = display->launch("/usr/bin/xterm", {"-T", "Tsl XTerm", "-geometry", "60x10+800+600"});
    auto p = display->waitForWindow("Tsl TestPattern");
    auto t = display->waitForWindow("Tsl XTerm");
    ASSERT_TRUE(p && t);
    connect("tcp:127.0.0.1:0");

    auto listed = windows();
    auto find = [&](uint32_t id) -> std::optional<GuestWindow> {
        for (const GuestWindow& w : listed)
            if (w.windowID == id) return w;
        return std::nullopt;
    };
    ASSERT_TRUE(find(p->id) && find(t->id));
    EXPECT_EQ(find(p->id)->pid, pattern.pid());
    EXPECT_EQ(find(p->id)->title, "Tsl TestPattern");
    EXPECT_EQ(find(p->id)->frame, wireRectOf(display->ask(p->id)->bounds));
    EXPECT_EQ(find(t->id)->pid, xterm.pid());
    EXPECT_EQ(find(t->id)->title, "Tsl XTerm");

    auto act = [&](uint32_t id, WindowAction::Kind kind, std::optional<WireRect> frame = std::nullopt) {
        return request(ControlMessage::WindowAction{{.windowID = id, .kind = kind, .frame = frame}});
    };
    EXPECT_EQ(act(p->id, WindowAction::Kind::setFrame, WireRect{40, 60, 500, 320}),
              ControlMessage(ControlMessage::Ok{}));
    EXPECT_EQ(display->ask(p->id)->bounds, (Rect{40, 60, 500, 320}));
    EXPECT_TRUE(eventArrives(WindowEvent::Kind::resized, p->id));
    EXPECT_EQ(act(t->id, WindowAction::Kind::move, WireRect{600, 500, 0, 0}), ControlMessage(ControlMessage::Ok{}));
    EXPECT_EQ(display->ask(t->id)->bounds.origin(), (Point{600, 500}));
    EXPECT_EQ(act(p->id, WindowAction::Kind::focus), ControlMessage(ControlMessage::Ok{}));

    display->launch("/usr/bin/xeyes", {"-geometry", "150x100+900+100"});
    auto e = display->waitForWindow("xeyes");
    ASSERT_TRUE(e);
    EXPECT_TRUE(eventArrives(WindowEvent::Kind::created, e->id));

    EXPECT_EQ(act(p->id, WindowAction::Kind::close), ControlMessage(ControlMessage::Ok{}));
    EXPECT_EQ(pattern.wait(), 0);
    EXPECT_TRUE(eventArrives(WindowEvent::Kind::closed, p->id));
    // A window that is gone is refused by name.
    try {
        act(p->id, WindowAction::Kind::focus);
        ADD_FAILURE() << "a gone window was acted on";
    } catch (const std::exception& e) {
        EXPECT_EQ(std::string(e.what()), "failed: notFound: window " + std::to_string(p->id));
    }
}

TEST_P(X11AgentTest, UnixSocketIsTheOwnersOnly) {
    TempDir dir;
    const std::string socket = (dir.path() / "agent.sock").string();
    connect("unix:" + socket);
    struct stat st {};
    ASSERT_EQ(::stat(socket.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_TRUE(windows().empty());
}

TEST_P(X11AgentTest, TheClipboardGoesBothWaysWithoutEchoes) {
    TempDir dir;
    connect("unix:" + (dir.path() / "agent.sock").string());
    const std::string copied = (dir.path() / "copied").string();
    std::ofstream(copied) << "copied in the guest";
    display->launch("/usr/bin/xclip", {"-quiet", "-selection", "clipboard", "-i", copied});
    auto clipboardAt = [&](size_t from) -> std::optional<ClipboardPayload> {
        for (size_t seen = from;; ++seen) {
            if (!host->arrived.waitFor(int(seen) + 1)) return std::nullopt;
            const ControlEnvelope envelope = host->at(seen);
            if (auto c = envelope.message.get<ControlMessage::Clipboard>()) return c->value;
        }
    };
    std::optional<ClipboardPayload> payload = clipboardAt(0);
    ASSERT_TRUE(payload);
    EXPECT_EQ(payload->origin, Hello::Role::agent);
    ASSERT_EQ(payload->items.size(), 1u);
    EXPECT_EQ(payload->items[0].type, "public.utf8-plain-text");
    EXPECT_EQ(std::string(payload->items[0].data.begin(), payload->items[0].data.end()), "copied in the guest");

    const std::string text = "set by the host";
    ClipboardPayload fromHost;
    fromHost.items.push_back({"public.utf8-plain-text", Bytes(text.begin(), text.end())});
    EXPECT_EQ(request(ControlMessage::Clipboard{fromHost}), ControlMessage(ControlMessage::Ok{}));
    ChildProcess paste("/usr/bin/xclip", {"-selection", "clipboard", "-o"});
    EXPECT_EQ(paste.wait(), 0);
    EXPECT_EQ(paste.standardOutput(), text);
    // The agent's own write is no guest copy: the next one to reach the host is the next real copy.
    size_t before;
    {
        std::lock_guard guard(host->m);
        before = host->received.size();
    }
    std::ofstream(copied) << "copied again";
    display->launch("/usr/bin/xclip", {"-quiet", "-selection", "clipboard", "-i", copied});
    payload = clipboardAt(before);
    ASSERT_TRUE(payload);
    EXPECT_EQ(std::string(payload->items[0].data.begin(), payload->items[0].data.end()), "copied again");
}

TEST_P(X11AgentTest, LaunchesAndQuitsApplicationsOfTheDataFolders) {
    TempDir data;
    std::filesystem::create_directories(data / "applications");
    // The title changes once xterm's child runs: from then on a close ends it.
    std::ofstream(data / "ready.sh") << R"(printf '\033]2;Tsl Ready\007'; exec sleep 600)"
                                     << "\n";
    std::filesystem::permissions(data / "ready.sh", std::filesystem::perms::owner_all);
    std::ofstream(data / "applications" / "tsl-term.desktop")
        << "[Desktop Entry]\nType=Application\nName=Tsl Term\nExec=xterm -T Tsl-Launched -geometry 40x5+60+60 -e "
        << (data / "ready.sh").string() << "\n";
    // The agent's own variable wins over one this process may have.
    ::unsetenv("XDG_DATA_DIRS");
    connect("unix:" + (data.path() / "agent.sock").string(), {"XDG_DATA_DIRS=" + data.path().string() + ":/usr/share"});
    auto listed = [&](const std::string& id) -> std::optional<GuestApp> {
        const ControlMessage apps = request(ControlMessage::ListApps{});
        for (const GuestApp& app : apps.get<ControlMessage::AppList>()->value)
            if (app.bundleID == id) return app;
        return std::nullopt;
    };
    ASSERT_TRUE(listed("debian-xterm"));
    ASSERT_TRUE(listed("tsl-term"));
    EXPECT_FALSE(listed("tsl-term")->running);

    const ControlMessage reply = request(ControlMessage::LaunchApp{{.bundleID = "tsl-term"}});
    ASSERT_TRUE(reply.get<ControlMessage::Launched>());
    const LaunchResult launched = reply.get<ControlMessage::Launched>()->value;
    // Its window by pid: the title it starts with lasts only until its child runs.
    std::optional<X11::ClientWindow> window;
    display->waitUntil([&] {
        for (const X11::ClientWindow& w : X11::ClientWindow::list(display->connection()))
            if (w.pid == launched.pid && w.onScreen()) window = w;
        return window.has_value();
    });
    ASSERT_TRUE(window);
    EXPECT_TRUE(eventArrives(WindowEvent::Kind::created, window->id));
    EXPECT_EQ(listed("tsl-term")->pid, launched.pid);
    // Closed before its child runs, xterm would hang up on nobody and stay.
    display->connection().watch(window->id);
    ASSERT_TRUE(display->waitForWindow("Tsl Ready"));

    EXPECT_EQ(request(ControlMessage::QuitApp{launched.pid}), ControlMessage(ControlMessage::Ok{}));
    EXPECT_TRUE(eventArrives(WindowEvent::Kind::closed, window->id));
    const bool stillRunning = listed("tsl-term")->running;
    EXPECT_FALSE(stillRunning);
    // GIO made it a child of init: nothing else would end it.
    if (stillRunning) ::kill(launched.pid, SIGKILL);
}

INSTANTIATE_TEST_SUITE_P(X11, X11AgentTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "WithWindowManager" : "WithoutWindowManager"; });

TEST(X11AgentStart, AMissingDisplayIsAClearErrorAtStart) {
    ChildProcess noDisplay("/usr/bin/env",
                           {"-u", "DISPLAY", agentExecutable(), "--desktop", "x11", "--listen", "tcp:127.0.0.1:0"});
    EXPECT_EQ(noDisplay.wait(), 1);
    EXPECT_EQ(noDisplay.standardError(), "TesselAgent: cannot open X display (DISPLAY is not set)\n");
    EXPECT_EQ(noDisplay.standardOutput(), "");

    ChildProcess refused(agentExecutable(), {"--desktop", "x11", "--listen", "tcp:0.0.0.0:0"});
    EXPECT_EQ(refused.wait(), 2);
    EXPECT_EQ(refused.standardError(),
              "TesselAgent: --listen accepts unix:<path> or tcp:127.0.0.1:<port> endpoints only\n");
}

}  // namespace
}  // namespace tsl::test
