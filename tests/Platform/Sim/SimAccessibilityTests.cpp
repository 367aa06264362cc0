// Accessibility on the simulated desktop: applications, windows, sheets,
// menus, content, and applications that answer late or vanish.
#include <gtest/gtest.h>

#include "Platform/Sim/Desktop.h"
#include "Support/SimSupport.h"
#include "Support/TempDir.h"

using namespace tsl;
using namespace tsl::Sim;

namespace {

struct AX {
    Accessibility& ax;

    template <typename T> std::optional<T> attr(const AXElement& e, const std::string& name) {
        std::optional<AXAttributeValue> value;
        if (ax.copyAttributeValue(e, name, value) != AXError::success || !value) return std::nullopt;
        if (auto v = std::get_if<T>(&*value)) return *v;
        return std::nullopt;
    }
    std::vector<AXElement> children(const AXElement& e, const std::string& name = "AXChildren") {
        return attr<std::vector<AXElement>>(e, name).value_or(std::vector<AXElement>{});
    }
    std::vector<std::string> titles(const std::vector<AXElement>& elements) {
        std::vector<std::string> out;
        for (auto& e : elements) out.push_back(attr<std::string>(e, "AXTitle").value_or("?"));
        return out;
    }
    // The item at `path` from the menu bar, through each item's menu.
    AXElement menuItem(const AXElement& app, const std::vector<size_t>& path) {
        AXElement current = children(*attr<AXElement>(app, "AXMenuBar"))[path[0]];
        for (size_t i = 1; i < path.size(); ++i) current = children(children(current)[0])[path[i]];
        return current;
    }
};

}  // namespace

TEST(SimAccessibility, WindowsMoveResizeRaiseCloseAndSheets) {
    auto desktop = Desktop::make();
    auto services = desktop->services();
    AX ax{*services.accessibility};
    const int32_t pid = desktop->addProcess({.name = "App"});
    const uint32_t back = desktop->addWindow(pid, {.title = "Back", .frame = {0, 0, 500, 400}});
    const uint32_t front = desktop->addWindow(pid, {.title = "Front", .frame = {50, 50, 500, 400}, .hasCloseButton = false});
    const uint32_t sheet = desktop->addWindow(pid, {.title = "", .frame = {100, 80, 300, 150}, .sheetOf = front,
                                                    .content = {{.role = "AXStaticText", .value = "Save changes?"},
                                                                {.role = "AXButton", .title = "OK"}}});
    const AXElement app = services.accessibility->createApplication(pid);

    auto windows = ax.children(app, "AXWindows");
    ASSERT_EQ(ax.titles(windows), (std::vector<std::string>{"Front", "Back"}));  // sheets aren't windows here
    EXPECT_EQ(ax.attr<AXValue>(windows[0], "AXPosition"), AXValue::point({50, 50}));
    EXPECT_EQ(ax.attr<AXValue>(windows[0], "AXSize"), AXValue::size({500, 400}));
    EXPECT_EQ(ax.attr<bool>(windows[0], "AXMain"), true);
    EXPECT_EQ(ax.attr<AXElement>(windows[0], "AXCloseButton"), std::nullopt);

    // The sheet is a child of its window, with its own content.
    auto children = ax.children(windows[0]);
    ASSERT_FALSE(children.empty());
    EXPECT_EQ(ax.attr<std::string>(children[0], "AXRole"), "AXSheet");
    EXPECT_EQ(ax.attr<AXValue>(children[0], "AXSize"), AXValue::size({300, 150}));
    auto sheetContent = ax.children(children[0]);
    EXPECT_EQ(ax.attr<std::string>(sheetContent[0], "AXValue"), "Save changes?");
    EXPECT_EQ(services.accessibility->performAction(sheetContent[1], "AXPress"), AXError::success);
    EXPECT_EQ(desktop->buttonPresses(pid), (std::vector<std::string>{"OK"}));
    EXPECT_FALSE(desktop->window(sheet));  // answered, so gone

    // Packed values of the wrong kind are refused.
    EXPECT_EQ(services.accessibility->setAttributeValue(windows[1], "AXPosition", AXValue::size({1, 1})),
              AXError::illegalArgument);
    EXPECT_EQ(services.accessibility->setAttributeValue(windows[1], "AXPosition", AXValue::point({7, 8})),
              AXError::success);
    EXPECT_EQ(services.accessibility->setAttributeValue(windows[1], "AXSize", AXValue::size({320, 240})),
              AXError::success);
    EXPECT_EQ(desktop->window(back)->frame, (Rect{7, 8, 320, 240}));
    EXPECT_EQ(services.accessibility->performAction(windows[1], "AXRaise"), AXError::success);
    EXPECT_EQ(desktop->windows().front().id, back);
    EXPECT_EQ(ax.attr<bool>(windows[1], "AXMain"), true);

    EXPECT_EQ(services.accessibility->setAttributeValue(windows[1], "AXMinimized", true), AXError::success);
    EXPECT_FALSE(desktop->window(back)->isOnScreen);
    EXPECT_EQ(services.accessibility->setAttributeValue(windows[1], "AXMinimized", false), AXError::success);
    EXPECT_TRUE(desktop->window(back)->isOnScreen);

    auto close = *ax.attr<AXElement>(windows[1], "AXCloseButton");
    EXPECT_EQ(services.accessibility->performAction(close, "AXPress"), AXError::success);
    EXPECT_FALSE(desktop->window(back));
    // A reference outlives its element; calls on it then fail.
    EXPECT_EQ(ax.attr<std::string>(windows[1], "AXTitle"), std::nullopt);
    EXPECT_EQ(services.accessibility->performAction(windows[1], "AXRaise"), AXError::invalidUIElement);

    // Bringing the application forward through its own attribute.
    const int32_t other = desktop->addProcess({.name = "Other"});
    desktop->activate(other);
    EXPECT_EQ(ax.attr<bool>(app, "AXFrontmost"), false);
    EXPECT_EQ(services.accessibility->setAttributeValue(app, "AXFrontmost", true), AXError::success);
    EXPECT_EQ(desktop->frontmostPid(), pid);
}

TEST(SimAccessibility, MenusReadPressAndOpen) {
    test::TempDir dir;
    auto desktop = Desktop::make();
    auto services = desktop->services();
    AX ax{*services.accessibility};
    const int32_t pid = *desktop->launch(test::makeBundle(dir.path(), "Notes", "com.example.notes"));
    const AXElement app = services.accessibility->createApplication(pid);

    auto bar = *ax.attr<AXElement>(app, "AXMenuBar");
    EXPECT_EQ(ax.titles(ax.children(bar)), (std::vector<std::string>{"Apple", "Notes", "File", "Edit", "Window"}));
    auto edit = ax.children(ax.children(ax.children(bar)[3])[0]);
    EXPECT_EQ(ax.titles(edit), (std::vector<std::string>{"Undo", "", "Copy", "Paste", "Paste and Match Style",
                                                         "Select All"}));
    EXPECT_EQ(ax.attr<bool>(edit[0], "AXEnabled"), false);
    EXPECT_EQ(ax.attr<std::string>(edit[2], "AXMenuItemCmdChar"), "C");
    EXPECT_EQ(ax.attr<int64_t>(edit[4], "AXMenuItemCmdModifiers"), 3);
    auto exportAs = ax.menuItem(app, {2, 2});
    auto formats = ax.children(ax.children(exportAs)[0]);
    EXPECT_EQ(ax.attr<std::string>(formats[1], "AXMenuItemMarkChar"), "✓");
    EXPECT_EQ(ax.attr<std::string>(formats[0], "AXMenuItemMarkChar"), std::nullopt);

    // A disabled item can't be pressed; an enabled one acts and is recorded.
    EXPECT_NE(services.accessibility->performAction(edit[0], "AXPress"), AXError::success);
    EXPECT_EQ(services.accessibility->performAction(formats[0], "AXPress"), AXError::success);
    EXPECT_EQ(ax.attr<std::string>(formats[0], "AXMenuItemMarkChar"), "✓");
    EXPECT_EQ(desktop->menuPresses(pid), (std::vector<std::vector<size_t>>{{2, 2, 0}}));

    // Pressing a bar item opens its menu as a window above the others; cancel closes it.
    auto file = ax.children(bar)[2];
    EXPECT_EQ(services.accessibility->performAction(file, "AXPress"), AXError::success);
    EXPECT_EQ(desktop->openMenu(pid), 2u);
    EXPECT_EQ(desktop->windows().front().layer, Desktop::menuWindowLayer);
    EXPECT_EQ(ax.children(app, "AXWindows").size(), 1u);  // menus aren't windows to Accessibility
    EXPECT_EQ(services.accessibility->performAction(ax.children(file)[0], "AXCancel"), AXError::success);
    EXPECT_EQ(desktop->openMenu(pid), std::nullopt);
    EXPECT_EQ(desktop->windows().front().layer, 0);

    // An item that reads as enabled only while its menu is open.
    auto menus = *desktop->menuBar(pid);
    menus[3].submenu[2].enabledOnlyWhileOpen = true;
    desktop->setMenuBar(pid, menus);
    auto copy = ax.menuItem(app, {3, 2});
    EXPECT_EQ(ax.attr<bool>(copy, "AXEnabled"), false);
    services.accessibility->performAction(ax.children(bar)[3], "AXPress");
    EXPECT_EQ(ax.attr<bool>(copy, "AXEnabled"), true);

    // An application without a menu bar has none to read.
    const int32_t bare = desktop->addProcess({.name = "Bare"});
    EXPECT_EQ(ax.attr<AXElement>(services.accessibility->createApplication(bare), "AXMenuBar"), std::nullopt);
}

TEST(SimAccessibility, SlowVanishedAndUntrusted) {
    auto desktop = Desktop::make();
    auto services = desktop->services();
    auto& accessibility = *services.accessibility;
    const int32_t pid = desktop->addProcess({.name = "Slow", .answerDelay = 0.2});
    const uint32_t window = desktop->addWindow(pid, {.title = "w", .frame = {0, 0, 300, 200}});
    const AXElement app = accessibility.createApplication(pid);

    // An answer later than the time-out is lost, and so is its effect.
    ASSERT_EQ(accessibility.setMessagingTimeout(app, 0.01f), AXError::success);
    std::optional<AXAttributeValue> value;
    EXPECT_EQ(accessibility.copyAttributeValue(app, "AXWindows", value), AXError::cannotComplete);
    EXPECT_FALSE(value);
    // Elements read through an element keep its time-out.
    desktop->setAnswerDelay(pid, 0);
    ASSERT_EQ(accessibility.copyAttributeValue(app, "AXWindows", value), AXError::success);
    const AXElement win = std::get<std::vector<AXElement>>(*value).at(0);
    desktop->setAnswerDelay(pid, 0.2);
    EXPECT_EQ(accessibility.setAttributeValue(win, "AXPosition", AXValue::point({40, 40})), AXError::cannotComplete);
    EXPECT_EQ(desktop->window(window)->frame.origin(), (Point{0, 0}));
    // Within the time-out it answers.
    desktop->setAnswerDelay(pid, 0.005);
    ASSERT_EQ(accessibility.setMessagingTimeout(app, 5.0f), AXError::success);
    EXPECT_EQ(accessibility.copyAttributeValue(app, "AXTitle", value), AXError::success);

    // A process that is gone: the application can't answer, its windows are invalid.
    desktop->vanish(pid);
    EXPECT_EQ(accessibility.copyAttributeValue(app, "AXWindows", value), AXError::cannotComplete);
    EXPECT_EQ(accessibility.copyAttributeValue(win, "AXTitle", value), AXError::invalidUIElement);

    desktop->setAccessibilityTrusted(false);
    EXPECT_FALSE(accessibility.isProcessTrusted());
    EXPECT_FALSE(accessibility.isProcessTrustedWithOptions(true));
    EXPECT_EQ(desktop->permissionPrompts(), 1);
    const int32_t other = desktop->addProcess({.name = "Other"});
    EXPECT_EQ(accessibility.copyAttributeValue(accessibility.createApplication(other), "AXTitle", value),
              AXError::apiDisabled);
}
