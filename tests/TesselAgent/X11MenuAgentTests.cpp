// Menus over a socket, as a host reaches them: tessel menus and tessel
// press against the agent on a real display, reading and pressing the
// menus of gtk3-demo-application; and the text of the dialog a press opens,
// in the agent's dialog log.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Support/AgentTestSupport.h"
#include "Support/Files.h"
#include "Support/GtkDemo.h"
#include "Support/TempDir.h"
#include "Support/XDisplay.h"
#include "TesselHost/TesselRun.h"
#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Task.h"

namespace tsl::test {
namespace {

// The endpoint of an agent on the X display, once it listens.
std::string listening(ChildProcess& agent) {
    const std::string prefix = "TesselAgent listening on ";
    if (!agent.waitForOutput("\n") || !agent.standardOutput().starts_with(prefix)) return "";
    const std::string& line = agent.standardOutput();
    return line.substr(prefix.size(), line.size() - prefix.size() - 1);
}

// What the agent's status says of Accessibility.
std::optional<bool> accessibilityGranted(const std::string& endpoint) {
    auto where = SocketEndpoint::parse(endpoint);
    if (!where) return std::nullopt;
    HostEnd host(std::make_shared<WireConnection>(*where, "test"));
    host.channel->start();
    auto ask = [&](ControlMessage m) {
        return runBlocking(GlobalQueue::executor(), host.channel->request(std::move(m), 10), limit);
    };
    ask(ControlMessage::Hello{hostHello({"channel:control"})});
    auto status = ask(ControlMessage::Status{});
    auto* s = status.get<ControlMessage::Status>();
    return s && s->value ? std::optional(s->value->accessibilityGranted) : std::nullopt;
}

TEST(X11MenuAgent, AccessibilityIsGrantedWhenTheBusAnswers) {
    XDisplay display(false);
    ASSERT_TRUE(display.ready());
    ASSERT_TRUE(AccessibilityBus::shared().ready());
    ChildProcess withBus(agentExecutable(), {"--desktop", "x11", "--listen", "tcp:127.0.0.1:0"});
    EXPECT_EQ(accessibilityGranted(listening(withBus)), true) << withBus.standardError();
    ChildProcess without("/usr/bin/env", {"-u", "DBUS_SESSION_BUS_ADDRESS", "-u", "AT_SPI_BUS_ADDRESS",
                                          agentExecutable(), "--desktop", "x11", "--listen", "tcp:127.0.0.1:0"});
    EXPECT_EQ(accessibilityGranted(listening(without)), false) << without.standardError();
}

TEST(X11MenuAgent, TesselReadsAndPressesAGuestWindowsMenus) {
    XDisplay display(true);
    ASSERT_TRUE(display.ready());
    auto window = GtkDemo::start(display);
    ASSERT_TRUE(window) << "gtk3-demo-application did not come up on the accessibility bus";
    const int32_t pid = *window->pid;

    ChildProcess agent(agentExecutable(), {"--desktop", "x11", "--listen", "tcp:127.0.0.1:0"});
    const std::string endpoint = listening(agent);
    ASSERT_FALSE(endpoint.empty()) << agent.standardError();

    const auto listed = runTessel({"menus", GtkDemo::title, "--json", "--connect", endpoint});
    ASSERT_EQ(listed.status, 0) << listed.err;
    const nlohmann::json bar = nlohmann::json::parse(listed.out);
    ASSERT_EQ(bar.size(), 3u);
    EXPECT_EQ(bar[1]["title"], "Preferences");
    const nlohmann::json& bold = bar[1]["children"][4];
    EXPECT_EQ(bold["title"], "Bold");
    EXPECT_EQ(bold["shortcut"], "\u21E7\u2318B");
    EXPECT_EQ(bold["path"], nlohmann::json({1, 4}));
    EXPECT_EQ(bold["enabled"], true);
    EXPECT_EQ(bar[1]["children"][2]["children"][0]["checked"], true);  // Color > Red

    const auto text = runTessel({"menus", std::to_string(window->id), "--connect", endpoint});
    ASSERT_EQ(text.status, 0) << text.err;
    EXPECT_NE(text.out.find("1.4\t  Bold\t\u21E7\u2318B\n"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("1.2.0\t    Red\t\u2318R\t(checked)\n"), std::string::npos) << text.out;

    const bool before = GtkDemo::states(pid, "Bold")->checked;
    const auto pressed = runTessel({"press", GtkDemo::title, "Preferences > Bold", "--connect", endpoint});
    ASSERT_EQ(pressed.status, 0) << pressed.err;
    EXPECT_EQ(pressed.out, "Pressed 1.4 of window " + std::to_string(window->id) + "\n");
    EXPECT_TRUE(GtkDemo::eventually([&] { return GtkDemo::states(pid, "Bold")->checked != before; }));

    // The agent's refusal reaches the host's user by name.
    const auto past = runTessel({"press", GtkDemo::title, "1.9", "--connect", endpoint});
    EXPECT_EQ(past.status, 1);
    EXPECT_EQ(past.err, "tessel press: the agent did not do it: failed: axFailed: menu item [1, 9] not pressed\n");
    const auto unknown = runTessel({"press", GtkDemo::title, "Preferences > Italic", "--connect", endpoint});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.err, "tessel press: no menu item Preferences > Italic\n");
    EXPECT_EQ(runTessel({"menus", "No Such Window", "--connect", endpoint}).status, 1);
}

TEST(X11MenuAgent, ModalDialogsOfKnownApplicationsAreLoggedWithTheirText) {
    XDisplay display(true);
    ASSERT_TRUE(display.ready());
    auto window = GtkDemo::start(display);
    ASSERT_TRUE(window) << "gtk3-demo-application did not come up on the accessibility bus";
    // The application is known by the entry naming its program.
    TempDir home, data;
    writeFile(home / "Library/Application Support/TesselAgent/log-dialog-text", "");
    writeFile(data / "applications/tsl-demo.desktop",
              "[Desktop Entry]\nType=Application\nName=Demo\nExec=gtk3-demo-application\n");
    ChildProcess agent(agentExecutable(), {"--desktop", "x11", "--listen", "tcp:127.0.0.1:0"},
                       {"HOME=" + home.path().native(), "XDG_DATA_DIRS=" + data.path().native()});
    const std::string endpoint = listening(agent);
    ASSERT_FALSE(endpoint.empty()) << agent.standardError();

    ASSERT_EQ(runTessel({"press", GtkDemo::title, "Help > About", "--connect", endpoint}).status, 0);
    const auto dialog = display.waitForWindow("About GTK+ Code Demos");
    ASSERT_TRUE(dialog);
    const std::filesystem::path log = home / "Library/Logs/TesselAgent-dialogs.log";
    std::string text;
    EXPECT_TRUE(GtkDemo::eventually([&] { return (text = readFile(log)).ends_with("\n"); })) << text;
    // One line: the document window is no dialog, and the dialog is no
    // sheet of it whose text would come twice.
    const std::string head = " tsl-demo pid " + std::to_string(*window->pid) + " window " + std::to_string(dialog->id) +
                             " layer 8 \u201CAbout GTK+ Code Demos\u201D: ";
    EXPECT_NE(text.find(head), std::string::npos) << text;
    EXPECT_NE(text.find("GTK+ Code Demos | "), std::string::npos) << text;
    EXPECT_NE(text.find(" | Program to demonstrate GTK+ functions. | "), std::string::npos) << text;
    EXPECT_EQ(text.find("[Close]"), text.rfind("[Close]")) << text;
    EXPECT_NE(text.find("[Close]"), std::string::npos) << text;
    EXPECT_EQ(text.find(head), text.rfind(head)) << text;
    EXPECT_EQ(text.find("\u201CApplication Class\u201D"), std::string::npos) << text;
}

}  // namespace
}  // namespace tsl::test
