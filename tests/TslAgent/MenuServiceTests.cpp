// Menus from the host's side of a real socket: reading the plain
// application's menu bar, pressing its items, the refusal of a bad path, and
// the menu windows a press opens, which the host must never see.
#include <gtest/gtest.h>

#include "Support/ServiceWorld.h"
#include "TslAgent/AXSupport.h"
#include "TslAgent/MenuReader.h"
#include "TslStream/Runtime/Timers.h"

using namespace tsl;
using namespace tsl::test;
using namespace std::chrono_literals;

namespace {

const MenuNode& at(const std::vector<MenuNode>& bar, std::vector<size_t> path) {
    const MenuNode* node = &bar.at(path[0]);
    for (size_t i = 1; i < path.size(); ++i) node = &node->children.at(path[i]);
    return *node;
}

std::vector<std::string> titles(const std::vector<MenuNode>& nodes) {
    std::vector<std::string> out;
    for (const MenuNode& n : nodes) out.push_back(n.title);
    return out;
}

void type(ServiceWorld& w, uint32_t window, std::initializer_list<uint16_t> keyCodes) {
    uint32_t sequence = 0;
    for (uint16_t key : keyCodes)
        for (auto kind : {InputEvent::Kind::keyDown, InputEvent::Kind::keyUp})
            w.service->inputPath()->inject({.kind = kind, .windowID = window, .keyCode = key, .sequence = ++sequence});
}

}  // namespace

TEST(MenuService, ReadsThePlainApplicationsMenuBar) {
    ServiceWorld w(true);
    const int32_t pid = w.launch("Tsl Scratchpad");
    const int32_t other = w.launch("Tsl TestPattern");
    ASSERT_EQ(w.desktop->frontmostPid(), other);

    auto bar = w.request(ControlMessage::GetMenu{pid}).get<ControlMessage::Menu>()->items;
    // A guest run brings the application forward first: its menu bar is the one on screen.
    EXPECT_EQ(w.desktop->frontmostPid(), pid);
    EXPECT_EQ(titles(bar), (std::vector<std::string>{"Apple", "Tsl Scratchpad", "File", "Edit", "Window"}));
    EXPECT_EQ(titles(at(bar, {3}).children),
              (std::vector<std::string>{"Undo", "", "Copy", "Paste", "Paste and Match Style", "Select All"}));

    const MenuNode& undo = at(bar, {3, 0});
    EXPECT_EQ(undo.path, (std::vector<int64_t>{3, 0}));
    EXPECT_FALSE(undo.enabled);
    EXPECT_EQ(undo.shortcut, "⌘Z");
    EXPECT_FALSE(at(bar, {3, 1}).enabled);  // the separator
    EXPECT_EQ(at(bar, {3, 1}).shortcut, std::nullopt);
    EXPECT_TRUE(at(bar, {3, 2}).enabled);
    EXPECT_EQ(at(bar, {3, 4}).shortcut, "⌥⇧⌘V");
    EXPECT_FALSE(at(bar, {2, 4}).enabled);  // Print…

    // A submenu: its items' paths go on from the item that holds it.
    const MenuNode& exportAs = at(bar, {2, 2});
    EXPECT_EQ(exportAs.title, "Export As");
    EXPECT_EQ(exportAs.shortcut, std::nullopt);
    ASSERT_EQ(exportAs.children.size(), 2u);
    EXPECT_EQ(exportAs.children[1].path, (std::vector<int64_t>{2, 2, 1}));
    EXPECT_TRUE(exportAs.children[1].checked);
    EXPECT_FALSE(exportAs.children[0].checked);
    EXPECT_TRUE(exportAs.children[0].children.empty());

    // An application without a menu bar has an empty one, not an error.
    const int32_t bare = w.desktop->addProcess({.name = "Bare"});
    EXPECT_TRUE(w.request(ControlMessage::GetMenu{bare}).get<ControlMessage::Menu>()->items.empty());
}

TEST(MenuService, ASimulationRunReadsEveryItemAsEnabled) {
    ServiceWorld w(false);
    const int32_t pid = w.launch("Tsl Scratchpad");
    auto bar = w.request(ControlMessage::GetMenu{pid}).get<ControlMessage::Menu>()->items;
    EXPECT_TRUE(at(bar, {3, 0}).enabled);
    EXPECT_TRUE(at(bar, {2, 4}).enabled);
    EXPECT_TRUE(at(bar, {2, 2, 1}).checked);
}

TEST(MenuReader, BoundsDepthAndItemsAndWordsShortcuts) {
    auto desktop = Sim::Desktop::make();
    auto platform = desktop->services();
    // Five levels of submenus: the fifth is cut off.
    Sim::MenuItemSetup deep{.title = "L4", .submenu = {{.title = "L5"}}};
    for (int level = 3; level >= 0; --level) deep = {.title = "L" + std::to_string(level), .submenu = {deep}};
    // A bar of 1500 + 1500 items: the budget runs out inside the second menu.
    Sim::MenuItemSetup first{.title = "First"}, second{.title = "Second"};
    first.submenu.resize(1500, Sim::MenuItemSetup{.title = "a", .enabled = std::nullopt, .markChar = ""});
    second.submenu.resize(1500, Sim::MenuItemSetup{.title = "b", .cmdModifiers = 15});
    const int32_t pid = desktop->addProcess({.name = "Big", .menuBar = std::vector{deep, first, second}});

    auto bar = MenuReader::menuBar(platform, pid, false);
    ASSERT_EQ(bar.size(), 3u);
    const MenuNode* node = &bar[0];
    for (int depth = 0; depth < MenuReader::maxDepth; ++depth) node = &node->children.at(0);
    EXPECT_EQ(node->title, "L4");
    EXPECT_TRUE(node->children.empty());
    EXPECT_EQ(node->path, (std::vector<int64_t>{0, 0, 0, 0, 0}));
    // 5 nodes for the deep menu, 1501 for the first, the rest for the second.
    EXPECT_EQ(bar[1].children.size(), 1500u);
    EXPECT_TRUE(bar[1].children[0].enabled);   // no enabled attribute at all
    EXPECT_FALSE(bar[1].children[0].checked);  // an empty mark
    EXPECT_EQ(bar[2].children.size(), size_t(MenuReader::maxItems - 5 - 1501 - 1));
    EXPECT_EQ(bar[2].children[0].shortcut, std::nullopt);  // modifiers without a character

    EXPECT_EQ(MenuReader::shortcutString("S", 0), "⌘S");
    EXPECT_EQ(MenuReader::shortcutString("S", 8), "S");
    EXPECT_EQ(MenuReader::shortcutString("S", 5), "⌃⇧⌘S");
    EXPECT_EQ(MenuReader::shortcutString("S", 2 | 8), "⌥S");

    for (std::vector<int64_t> bad : {std::vector<int64_t>{}, {-1}, {3}, {1, 1500}, {1, -1}, {1, 0, 0}})
        EXPECT_FALSE(MenuReader::item(platform, pid, bad)) << ::testing::PrintToString(bad);
    EXPECT_TRUE(MenuReader::item(platform, pid, {2, 1499}));
}

TEST(MenuService, PressingEditCopyPutsTheTypedTextOnTheHostsClipboard) {
    ServiceWorld w(true);
    const int32_t pid = w.launch("Tsl Scratchpad");
    w.service->startBackgroundWork();
    const uint32_t window = w.desktop->windows().front().id;
    type(w, window, {4, 34});  // "hi"
    ASSERT_EQ(w.desktop->textAreaValue(window), "hi");

    EXPECT_EQ(w.request(ControlMessage::PressMenu{pid, {3, 2}}), ControlMessage{ControlMessage::Ok{}});
    EXPECT_EQ(w.desktop->menuPresses(pid), (std::vector<std::vector<size_t>>{{3, 2}}));
    ASSERT_TRUE(w.main.runUntil([&] { return !w.received<ControlMessage::Clipboard>().empty(); }, limit));
    const ClipboardPayload payload = w.received<ControlMessage::Clipboard>().front().value;
    EXPECT_EQ(payload.origin, Hello::Role::agent);
    EXPECT_EQ(payload.items, (std::vector<ClipboardItem>{{"public.utf8-plain-text", Bytes{'h', 'i'}}}));
}

TEST(MenuService, RefusesAnItemThatCannotBePressed) {
    ServiceWorld w(true);
    const int32_t pid = w.launch("Tsl Scratchpad");
    EXPECT_EQ(w.refusal(ControlMessage::PressMenu{pid, {3, 99}}), "axFailed: menu item [3, 99] not pressed");
    EXPECT_EQ(w.refusal(ControlMessage::PressMenu{pid, {-1}}), "axFailed: menu item [-1] not pressed");
    EXPECT_EQ(w.refusal(ControlMessage::PressMenu{pid, {}}), "axFailed: menu item [] not pressed");
    // Still disabled at the deadline: pressed all the same, and the application says no.
    EXPECT_EQ(w.refusal(ControlMessage::PressMenu{pid, {2, 4}}), "axFailed: menu item [2, 4] not pressed");
    EXPECT_TRUE(w.desktop->menuPresses(pid).empty());
}

TEST(MenuService, MenuWindowsOfAPressNeverReachTheHost) {
    ServiceWorld w(true);
    const int32_t pid = w.launch("Tsl Scratchpad");
    const uint32_t document = w.desktop->windows().front().id;
    // Copy reads as disabled until the application has seen its menu open.
    auto menus = *w.desktop->menuBar(pid);
    menus[3].submenu[2].enabledOnlyWhileOpen = true;
    w.desktop->setMenuBar(pid, menus);
    w.service->trackWindows();

    // Tracking ticks far more often than its timer would while the press runs.
    bool pressing = true;
    w.main.spawn([&]() -> asio::awaitable<void> {
        while (pressing) {
            w.service->trackWindows();
            co_await sleepFor(5ms);
        }
    });
    EXPECT_EQ(w.request(ControlMessage::PressMenu{pid, {3, 2}}), ControlMessage{ControlMessage::Ok{}});
    EXPECT_EQ(w.desktop->menuPresses(pid), (std::vector<std::vector<size_t>>{{3, 2}}));
    // A press of a menu of the bar leaves it open after the reply.
    EXPECT_EQ(w.request(ControlMessage::PressMenu{pid, {2}}), ControlMessage{ControlMessage::Ok{}});
    ASSERT_EQ(w.desktop->openMenu(pid), 2u);
    const uint32_t open = w.desktop->windows().front().id;
    pressing = false;
    w.service->trackWindows();
    EXPECT_TRUE(w.service->windowTracking().hiddenMenus.contains(open));
    // Each press made a menu window: window numbers went up by two.
    EXPECT_EQ(open, document + 2);

    AX::press(w.platform, *MenuReader::item(w.platform, pid, {2}), "AXCancel");
    w.service->trackWindows();
    EXPECT_TRUE(w.service->windowTracking().hiddenMenus.empty());
    w.request(ControlMessage::Hello{hostHello()});  // trails every event posted before it
    for (const auto& event : w.received<ControlMessage::WindowEvent>()) {
        EXPECT_EQ(event.value.window.windowID, document) << toString(event.value.kind);
        EXPECT_NE(event.value.window.layer, WindowTracker::menuLayer);
    }
}

TEST(MenuReader, ADisabledMenuOfTheBarIsWaitedForNotOpenedForAMoment) {
    MainActor main;
    auto desktop = Sim::Desktop::make();
    auto platform = desktop->services();
    std::vector<Sim::MenuItemSetup> bar{{.title = "File", .submenu = {{.title = "New"}}},
                                        {.title = "Edit", .enabled = false, .submenu = {{.title = "Copy"}}}};
    const int32_t pid = desktop->addProcess({.name = "Modal", .menuBar = bar});
    const uint32_t probe = desktop->addWindow(pid, {.title = "probe"});

    // Still disabled at the deadline: pressed all the same, and the
    // application refuses. No menu window came and went meanwhile.
    EXPECT_FALSE(main.runTask(MenuReader::pressWhenEnabled(platform, pid, {1}, 0.2), limit));
    EXPECT_EQ(desktop->openMenu(pid), std::nullopt);
    EXPECT_EQ(desktop->addWindow(pid, {.title = "probe"}), probe + 1);

    // Enabled while the press waits: pressed then, which opens it.
    std::optional<bool> pressed;
    const std::vector<int64_t> edit{1};
    main.spawn([&]() -> asio::awaitable<void> {
        pressed = co_await MenuReader::pressWhenEnabled(platform, pid, edit, 20);
    });
    main.runFor(100ms);  // several looks at the item
    EXPECT_FALSE(pressed);
    EXPECT_EQ(desktop->openMenu(pid), std::nullopt);
    bar[1].enabled = true;
    desktop->setMenuBar(pid, bar);
    ASSERT_TRUE(main.runUntil([&] { return pressed.has_value(); }, limit));
    EXPECT_TRUE(*pressed);
    EXPECT_EQ(desktop->openMenu(pid), 1u);
}
