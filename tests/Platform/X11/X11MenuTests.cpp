// Menus and window text of a real GTK application through AT-SPI2, read
// and pressed through the Accessibility port as the agent does; what
// pressing did is read back from AT-SPI directly.
#include <gtest/gtest.h>

#include "Platform/X11/AtspiShortcut.h"
#include "Platform/X11/X11Desktop.h"
#include "Support/GtkDemo.h"
#include "Support/XDisplay.h"
#include "TslAgent/AXSupport.h"
#include "TslAgent/DialogTextLog.h"
#include "TslAgent/MenuReader.h"
#include "TslStream/Runtime/MainActor.h"

namespace tsl::test {
namespace {

using X11::CommandKey;
using X11::MenuShortcut;
using X11::menuShortcut;

TEST(AtspiShortcut, AcceleratorsBecomeTheHostsKeys) {
    // GTK's mnemonic fields come first; only the accelerator counts.
    EXPECT_EQ(menuShortcut("b;<Alt>p:b;<Primary><Shift>b", CommandKey::control), (MenuShortcut{"B", 1}));
    EXPECT_EQ(menuShortcut("n;;<Primary>n", CommandKey::control), (MenuShortcut{"N", 0}));
    EXPECT_EQ(menuShortcut("o;;", CommandKey::control), std::nullopt);
    EXPECT_EQ(menuShortcut("<Alt>o", CommandKey::control), std::nullopt);
    EXPECT_EQ(menuShortcut(";;<Primary>", CommandKey::control), std::nullopt);
    EXPECT_EQ(menuShortcut(";;<Primary b", CommandKey::control), std::nullopt);
    EXPECT_EQ(menuShortcut(";;<Hyperspace>b", CommandKey::control), std::nullopt);
    // Without Command the "no command" bit is set; named keys become glyphs.
    EXPECT_EQ(menuShortcut(";;<Alt>F4", CommandKey::control), (MenuShortcut{"F4", 2 | 8}));
    EXPECT_EQ(menuShortcut(";;<Control><Alt>Delete", CommandKey::control), (MenuShortcut{"\u2326", 2}));
    EXPECT_EQ(menuShortcut(";;<Primary>plus", CommandKey::control), (MenuShortcut{"+", 0}));
    // With Command sent as Super, Control stays Control.
    EXPECT_EQ(menuShortcut(";;<Super>q", CommandKey::super), (MenuShortcut{"Q", 0}));
    EXPECT_EQ(menuShortcut(";;<Primary>q", CommandKey::super), (MenuShortcut{"Q", 4 | 8}));
    EXPECT_EQ(menuShortcut(";;<Super>q", CommandKey::control), (MenuShortcut{"Q", 4 | 8}));
}

// One display, bus and application for the whole suite: the application
// takes seconds to start, and libatspi connects once per process.
class X11MenuTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        display = new XDisplay(true);
        if (display->ready()) window = GtkDemo::start(*display);
    }
    static void TearDownTestSuite() {
        delete display;
        display = nullptr;
    }
    void SetUp() override {
        ASSERT_TRUE(window) << "gtk3-demo-application did not come up on the accessibility bus";
        desktop = X11::X11Desktop::open(display->name());
        platform = desktop->services({});
        pid = *window->pid;
    }

    const MenuNode* at(const std::vector<MenuNode>& bar, std::vector<size_t> path) {
        const std::vector<MenuNode>* level = &bar;
        const MenuNode* node = nullptr;
        for (size_t i : path) {
            if (i >= level->size()) return nullptr;
            node = &(*level)[i];
            level = &node->children;
        }
        return node;
    }
    bool press(std::vector<int64_t> path) {
        return main.runTask(MenuReader::pressWhenEnabled(platform, pid, path, 0.6), XDisplay::limit);
    }

    static inline XDisplay* display = nullptr;
    static inline std::optional<X11::ClientWindow> window;
    MainActor main;
    std::shared_ptr<X11::X11Desktop> desktop;
    PlatformServices platform;
    int32_t pid = 0;
};

std::vector<std::string> titles(const std::vector<MenuNode>& nodes) {
    std::vector<std::string> out;
    for (const MenuNode& n : nodes) out.push_back(n.title);
    return out;
}

TEST_F(X11MenuTest, ReadsTheMenuBarWithStatesAndShortcuts) {
    EXPECT_TRUE(platform.accessibility->isProcessTrusted());
    const std::vector<MenuNode> bar = MenuReader::menuBar(platform, pid, false);
    ASSERT_EQ(titles(bar), (std::vector<std::string>{"Application", "Preferences", "Help"}));
    EXPECT_EQ(titles(bar[0].children), (std::vector<std::string>{"New", "Open", "Save", "Save As...", "", "Quit"}));
    EXPECT_EQ(titles(bar[1].children), (std::vector<std::string>{"Prefer Dark Theme", "Hide Titlebar when maximized",
                                                                 "Color", "Shape", "Bold"}));

    const MenuNode* fresh = at(bar, {0, 0});
    ASSERT_TRUE(fresh);
    EXPECT_EQ(fresh->shortcut, "\u2318N");
    EXPECT_TRUE(fresh->enabled);
    EXPECT_EQ(at(bar, {0, 1})->shortcut, std::nullopt);  // Open has none
    EXPECT_EQ(at(bar, {0, 5})->shortcut, "\u2318Q");

    const MenuNode* bold = at(bar, {1, 4});
    ASSERT_TRUE(bold);
    EXPECT_EQ(bold->path, (std::vector<int64_t>{1, 4}));
    EXPECT_EQ(bold->shortcut, "\u21E7\u2318B");
    EXPECT_EQ(bold->checked, GtkDemo::states(pid, "Bold")->checked);

    // Radio items: one checked in each group, a level further down.
    const MenuNode* color = at(bar, {1, 2});
    ASSERT_TRUE(color);
    EXPECT_EQ(titles(color->children), (std::vector<std::string>{"Red", "Green", "Blue"}));
    EXPECT_TRUE(color->children[0].checked);
    EXPECT_FALSE(color->children[1].checked);
    EXPECT_EQ(color->children[2].path, (std::vector<int64_t>{1, 2, 2}));
    EXPECT_EQ(color->children[2].shortcut, "\u2318B");
    EXPECT_TRUE(at(bar, {1, 3, 2})->checked);  // Oval
    EXPECT_EQ(at(bar, {1, 3, 2})->title, "Oval");
}

TEST_F(X11MenuTest, PressingBoldFlipsItsCheck) {
    const bool before = GtkDemo::states(pid, "Bold")->checked;
    ASSERT_TRUE(press({1, 4}));
    EXPECT_TRUE(GtkDemo::eventually([&] { return GtkDemo::states(pid, "Bold")->checked != before; }));
    EXPECT_EQ(at(MenuReader::menuBar(platform, pid, false), {1, 4})->checked, !before);
    ASSERT_TRUE(press({1, 4}));
    EXPECT_TRUE(GtkDemo::eventually([&] { return GtkDemo::states(pid, "Bold")->checked == before; }));

    EXPECT_FALSE(press({1, 9}));
    EXPECT_FALSE(press({7}));
    EXPECT_FALSE(MenuReader::item(platform, pid, {1, -1}));
    EXPECT_FALSE(MenuReader::item(platform, pid, {0, 0, 0}));  // New has no submenu
}

TEST_F(X11MenuTest, AnOpenedMenuIsCancelled) {
    auto top = MenuReader::item(platform, pid, {1});
    ASSERT_TRUE(top);
    ASSERT_TRUE(AX::press(platform, *top));
    ASSERT_TRUE(GtkDemo::eventually([&] { return GtkDemo::states(pid, "Bold")->showing; }));
    const std::vector<AXElement> menus = AX::elements(platform, *top, "AXChildren");
    ASSERT_EQ(menus.size(), 1u);
    EXPECT_EQ(AX::attr<std::string>(platform, menus[0], "AXRole"), "AXMenu");
    EXPECT_TRUE(AX::press(platform, menus[0], "AXCancel"));
    EXPECT_TRUE(GtkDemo::eventually([&] { return !GtkDemo::states(pid, "Bold")->showing; }));
}

TEST_F(X11MenuTest, DialogTextIsReadButTypedTextIsNot) {
    ASSERT_TRUE(GtkDemo::type(pid, "typed secret"));
    // About opens a dialog of the same process; its text comes through AT-SPI.
    ASSERT_TRUE(press({2, 0}));
    std::vector<std::string> texts;
    GtkDemo::eventually([&] {
        texts.clear();
        for (const AXElement& w : AX::windows(platform, pid)) {
            std::vector<std::string> more = DialogTextLog::collect(platform, w, 0);
            texts.insert(texts.end(), more.begin(), more.end());
        }
        return std::find(texts.begin(), texts.end(), "[Close]") != texts.end();
    });
    EXPECT_NE(std::find(texts.begin(), texts.end(), "[Close]"), texts.end());
    EXPECT_NE(std::find(texts.begin(), texts.end(), "GTK+ Code Demos"), texts.end());
    EXPECT_NE(std::find(texts.begin(), texts.end(), "[OK]"), texts.end());  // the main window's info bar
    for (const std::string& t : texts) EXPECT_EQ(t.find("secret"), std::string::npos) << t;
}

}  // namespace
}  // namespace tsl::test
