// Window control through Accessibility on the simulated desktop: matching by
// geometry, each action and its refusals, activation, sheets and text.
#include <gtest/gtest.h>

#include "Platform/Sim/Desktop.h"
#include "TslAgent/AXSupport.h"
#include "TslStream/Runtime/MainActor.h"

using namespace tsl;
using namespace tsl::Sim;

namespace {

struct AXWorld {
    std::shared_ptr<Desktop> desktop = Desktop::make();
    PlatformServices platform = desktop->services();
    int32_t app = desktop->addProcess({.name = "App", .bundleID = "com.example.app"});

    bool perform(uint32_t id, WindowAction::Kind kind, std::optional<WireRect> frame = std::nullopt) {
        return AX::perform(platform, WindowAction{id, kind, frame}, app);
    }
    Rect frame(uint32_t id) { return desktop->window(id)->frame; }
    // The window server reports the window's bounds shifted by `dx`.
    void shiftServerBounds(uint32_t id, double dx, double dWidth = 0) {
        desktop->setWindowListFilter([=](std::optional<PlatformValue> list, uint32_t, uint32_t) {
            auto* entries = list ? std::get_if<ValueList>(&list->storage) : nullptr;
            if (entries)
                for (PlatformValue& v : *entries) {
                auto& entry = std::get<ValueDict>(v.storage);
                if (entry.at(WindowServer::keyNumber).asInteger() != int64_t(id)) continue;
                Rect r = *rectFromDictionary(entry.at(WindowServer::keyBounds));
                entry[WindowServer::keyBounds] = dictionaryFromRect({r.x + dx, r.y, r.width + dWidth, r.height});
            }
            return list;
        });
    }
};

}  // namespace

TEST(AX, WindowsMatchWithinLessThanTwoPoints) {
    AXWorld world;
    const uint32_t a = world.desktop->addWindow(world.app, {.frame = {100, 100, 400, 300}});
    world.desktop->addWindow(world.app, {.frame = {600, 100, 400, 300}});
    world.shiftServerBounds(a, 1.9);
    EXPECT_TRUE(AX::window(world.platform, a, world.app, false));
    world.shiftServerBounds(a, 0, -1.9);
    EXPECT_TRUE(AX::window(world.platform, a, world.app, false));
    world.shiftServerBounds(a, 2.0);
    EXPECT_FALSE(AX::window(world.platform, a, world.app, false));
    world.shiftServerBounds(a, 0, 2.0);
    EXPECT_FALSE(AX::window(world.platform, a, world.app, true));  // two windows: no fallback
    EXPECT_TRUE(AX::framesMatch({0, 0, 10, 10}, {1.99, -1.99, 11.99, 8.01}));
}

TEST(AX, ActionsMoveResizeCloseFocusMinimizeAndRestore) {
    AXWorld world;
    auto& d = *world.desktop;
    const uint32_t a = d.addWindow(world.app, {.frame = {100, 100, 400, 300}});
    const uint32_t b = d.addWindow(world.app, {.frame = {600, 100, 400, 300}});
    EXPECT_TRUE(world.perform(a, WindowAction::Kind::move, WireRect{50, 60, 1, 1}));
    EXPECT_EQ(world.frame(a), (Rect{50, 60, 400, 300}));
    EXPECT_TRUE(world.perform(a, WindowAction::Kind::resize, WireRect{0, 0, 500, 350}));
    EXPECT_EQ(world.frame(a), (Rect{50, 60, 500, 350}));
    EXPECT_TRUE(world.perform(a, WindowAction::Kind::setFrame, WireRect{10, 20, 300, 200}));
    EXPECT_EQ(world.frame(a), (Rect{10, 20, 300, 200}));
    for (auto kind : {WindowAction::Kind::move, WindowAction::Kind::resize, WindowAction::Kind::setFrame})
        EXPECT_FALSE(world.perform(a, kind));  // no frame given

    EXPECT_TRUE(world.perform(a, WindowAction::Kind::focus));
    EXPECT_EQ(d.frontmostPid(), world.app);
    EXPECT_EQ(d.windows().front().id, a);
    EXPECT_TRUE(d.window(a)->isMain);

    EXPECT_TRUE(world.perform(b, WindowAction::Kind::minimize));
    EXPECT_TRUE(d.window(b)->isMinimized);
    EXPECT_TRUE(world.perform(b, WindowAction::Kind::restore));
    EXPECT_FALSE(d.window(b)->isMinimized);

    EXPECT_TRUE(world.perform(b, WindowAction::Kind::close));
    EXPECT_FALSE(d.window(b));
    // A window the server doesn't know is never looked for.
    EXPECT_FALSE(world.perform(b, WindowAction::Kind::focus));
    EXPECT_FALSE(world.perform(999, WindowAction::Kind::move, WireRect{0, 0, 1, 1}));
}

TEST(AX, ApplicationsThatRefuseOrHaveNoMatch) {
    AXWorld world;
    auto& d = *world.desktop;
    // Position refused, size allowed: the size still changes.
    const uint32_t pinned = d.addWindow(world.app, {.frame = {100, 100, 400, 300}, .hasCloseButton = false, .movable = false});
    d.addWindow(world.app, {.frame = {600, 100, 400, 300}});
    EXPECT_FALSE(world.perform(pinned, WindowAction::Kind::setFrame, WireRect{0, 0, 200, 100}));
    EXPECT_EQ(world.frame(pinned), (Rect{100, 100, 200, 100}));
    EXPECT_FALSE(world.perform(pinned, WindowAction::Kind::close));
    EXPECT_TRUE(d.window(pinned));

    // One Accessibility window that doesn't match: it stands in, except to
    // close or minimise.
    AXWorld single;
    const uint32_t w = single.desktop->addWindow(single.app, {.frame = {100, 100, 400, 300}});
    single.shiftServerBounds(w, 50);
    EXPECT_FALSE(single.perform(w, WindowAction::Kind::close));
    EXPECT_FALSE(single.perform(w, WindowAction::Kind::minimize));
    EXPECT_TRUE(single.desktop->window(w));
    EXPECT_TRUE(single.perform(w, WindowAction::Kind::move, WireRect{0, 30, 1, 1}));
    EXPECT_TRUE(single.perform(w, WindowAction::Kind::resize, WireRect{0, 0, 320, 240}));
    EXPECT_TRUE(single.perform(w, WindowAction::Kind::focus));
    EXPECT_TRUE(single.perform(w, WindowAction::Kind::restore));
    EXPECT_EQ(single.frame(w), (Rect{0, 30, 320, 240}));
}

TEST(AX, ActivationFallsBackToTheWorkspaceAndSettles) {
    AXWorld world;
    auto& d = *world.desktop;
    const int32_t other = d.addProcess({.name = "Other"});
    d.activate(other);
    EXPECT_TRUE(AX::activate(world.platform, other, 0));  // already in front

    EXPECT_TRUE(AX::activate(world.platform, world.app, 0.5));
    EXPECT_EQ(d.frontmostPid(), world.app);

    // An application that doesn't answer refuses the attribute; the
    // workspace still brings it forward.
    d.activate(other);
    d.setAnswerDelay(world.app, 60);
    EXPECT_FALSE(AX::activate(world.platform, world.app, 0));
    EXPECT_EQ(d.frontmostPid(), world.app);

    MainActor main;
    d.setAnswerDelay(world.app, 0);
    d.activate(other);
    main.runTask(AX::activateAndSettle(world.platform, world.app, 0.3), std::chrono::seconds(10));
    EXPECT_EQ(d.frontmostPid(), world.app);
}

TEST(AX, SheetsAndTextAreFoundInTheTree) {
    AXWorld world;
    auto& d = *world.desktop;
    const uint32_t parent = d.addWindow(world.app, {.frame = {100, 100, 600, 400}});
    d.addWindow(world.app, {.frame = {250, 100, 300, 150}, .sheetOf = parent});
    EXPECT_TRUE(AX::hasSheet(world.platform, world.app, {100, 100, 600, 400}, {251, 101, 300, 150}));
    EXPECT_FALSE(AX::hasSheet(world.platform, world.app, {100, 100, 600, 400}, {250, 100, 302, 150}));
    EXPECT_FALSE(AX::hasSheet(world.platform, world.app, {100, 100, 500, 400}, {250, 100, 300, 150}));

    // A text area nested `depth` levels below the focused window.
    auto nested = [](int depth) {
        ElementSetup e{.role = "AXTextArea", .value = "deep"};
        for (int i = 1; i < depth; ++i) e = ElementSetup{.role = "AXGroup", .children = {e}};
        return std::vector<ElementSetup>{ElementSetup{.role = "AXStaticText", .value = "label"}, e};
    };
    AXWorld eleven, twelve;
    eleven.desktop->addWindow(eleven.app, {.frame = {0, 0, 300, 200}, .content = nested(11)});
    twelve.desktop->addWindow(twelve.app, {.frame = {0, 0, 300, 200}, .content = nested(12)});
    EXPECT_EQ(AX::focusedText(eleven.platform, eleven.app), "deep");
    EXPECT_EQ(AX::focusedText(twelve.platform, twelve.app), std::nullopt);
    EXPECT_EQ(AX::focusedText(world.platform, 4242), std::nullopt);
}
