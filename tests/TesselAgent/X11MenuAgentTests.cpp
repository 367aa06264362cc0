// Menus over a socket, as a host reaches them: tessel menus and tessel
// press against the agent on a real display, reading and pressing the
// menus of gtk3-demo-application.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Support/GtkDemo.h"
#include "Support/XDisplay.h"
#include "TesselHost/TesselRun.h"

namespace tsl::test {
namespace {

TEST(X11MenuAgent, TesselReadsAndPressesAGuestWindowsMenus) {
    XDisplay display(true);
    ASSERT_TRUE(display.ready());
    auto window = GtkDemo::start(display);
    ASSERT_TRUE(window) << "gtk3-demo-application did not come up on the accessibility bus";
    const int32_t pid = *window->pid;

    ChildProcess agent(agentExecutable(), {"--desktop", "x11", "--listen", "tcp:127.0.0.1:0"});
    ASSERT_TRUE(agent.waitForOutput("\n")) << agent.standardError();
    const std::string prefix = "TesselAgent listening on ";
    const std::string line = agent.standardOutput();
    ASSERT_TRUE(line.starts_with(prefix));
    const std::string endpoint = line.substr(prefix.size(), line.size() - prefix.size() - 1);

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

}  // namespace
}  // namespace tsl::test
