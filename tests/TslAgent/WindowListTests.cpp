// The window list read from the simulated window server: its filters, focus
// and stacking, capture indicators, sheets and their cache, single-window
// queries, and the cache the input path reads.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "Platform/Sim/Desktop.h"
#include "TslAgent/WindowCache.h"
#include "TslAgent/WindowList.h"

using namespace tsl;
using namespace tsl::Sim;

namespace {

struct ListWorld {
    std::shared_ptr<Desktop> desktop = Desktop::make(Desktop::Options{.manualCapture = true});
    PlatformServices platform = desktop->services();
    SheetCache sheets;

    std::vector<GuestWindow> list(WindowQuery query = {}, bool includeOffscreen = false) {
        return WindowList::current(platform, query, includeOffscreen, sheets);
    }
    std::vector<uint32_t> ids(WindowQuery query = {}, bool includeOffscreen = false) {
        std::vector<uint32_t> out;
        for (const GuestWindow& w : list(std::move(query), includeOffscreen)) out.push_back(w.windowID);
        return out;
    }
    // Rewrites the server's entry of one window.
    void editEntry(uint32_t id, std::function<void(ValueDict&)> edit) {
        desktop->setWindowListFilter([id, edit](std::optional<PlatformValue> list, uint32_t, uint32_t) {
            auto* entries = list ? std::get_if<ValueList>(&list->storage) : nullptr;
            if (entries)
                for (PlatformValue& v : *entries)
                if (auto* d = std::get_if<ValueDict>(&v.storage); d && d->at(WindowServer::keyNumber).asInteger() == int64_t(id))
                    edit(*d);
            return list;
        });
    }
};

GuestWindow window(uint32_t id, int32_t pid, WireRect frame, int64_t layer = 0) {
    GuestWindow w;
    w.windowID = id;
    w.pid = pid;
    w.frame = frame;
    w.layer = layer;
    w.isOnScreen = true;
    return w;
}

}  // namespace

TEST(WindowList, KeepsWhatTheHostCanUseAndDropsTheRest) {
    ListWorld world;
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App", .bundleID = "com.example.app"});
    const int32_t bare = d.addProcess({.name = "Bare"});
    const uint32_t narrow = d.addWindow(app, {.frame = {0, 0, 1, 50}});
    const uint32_t tiny = d.addWindow(app, {.frame = {0, 0, 2, 2}});
    const uint32_t high = d.addWindow(app, {.frame = {0, 0, 50, 50}, .layer = 1000});
    const uint32_t top = d.addWindow(app, {.frame = {0, 0, 50, 50}, .layer = 999});
    const uint32_t clear = d.addWindow(app, {.frame = {0, 0, 50, 50}, .alpha = 0});
    const uint32_t hidden = d.addWindow(app, {.title = "hidden", .frame = {0, 0, 50, 50}, .shown = false});
    const uint32_t desk = d.addWindow(app, {.frame = {0, 0, 1440, 900}, .layer = -2147483624, .desktopElement = true});
    const uint32_t other = d.addWindow(bare, {.title = "bare", .frame = {300, 300, 50, 50}});

    EXPECT_EQ(world.ids(), (std::vector<uint32_t>{top, other, tiny}));
    EXPECT_EQ(world.ids({}, true), (std::vector<uint32_t>{top, other, hidden, tiny}));
    // An entry without an alpha key passes.
    world.editEntry(clear, [](ValueDict& e) { e.erase(WindowServer::keyAlpha); });
    EXPECT_EQ(world.ids(), (std::vector<uint32_t>{top, other, clear, tiny}));
    (void)narrow, (void)high, (void)desk;

    // A query by bundle drops a process without one; a query by pid keeps it.
    d.setWindowListFilter(nullptr);
    EXPECT_EQ(world.ids({.bundleID = "com.example.app"}), (std::vector<uint32_t>{top, tiny}));
    EXPECT_EQ(world.ids({.pid = bare}), (std::vector<uint32_t>{other}));

    const std::vector<GuestWindow> all = world.list({}, true);
    const GuestWindow& h = all[2];
    EXPECT_EQ(h.title, "hidden");
    EXPECT_FALSE(h.isOnScreen);
    EXPECT_TRUE(h.isMinimized);
    EXPECT_EQ(h.zIndex, 2);
    EXPECT_EQ(h.bundleID, "com.example.app");
    EXPECT_EQ(all[1].bundleID, std::nullopt);
    EXPECT_EQ(all[1].frame, (WireRect{300, 300, 50, 50}));
}

TEST(WindowList, UnreadableEntriesArePassedOverAndFieldsDefault) {
    ListWorld world;
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App"});
    const uint32_t a = d.addWindow(app, {.title = "a", .frame = {0, 0, 50, 50}, .layer = 5});
    const uint32_t b = d.addWindow(app, {.frame = {0, 0, 50, 50}});

    world.editEntry(a, [](ValueDict& e) {
        e.erase(WindowServer::keyName);
        e.erase(WindowServer::keyLayer);
        e.erase(WindowServer::keyIsOnscreen);
    });
    auto w = world.list();
    ASSERT_EQ(w.size(), 2u);
    EXPECT_EQ(w[0].windowID, a);
    EXPECT_EQ(w[0].title, "");
    EXPECT_EQ(w[0].layer, 0);
    EXPECT_FALSE(w[0].isOnScreen);

    for (auto edit : std::vector<std::function<void(ValueDict&)>>{
             [](ValueDict& e) { e[WindowServer::keyNumber] = "2"; },
             [](ValueDict& e) { e[WindowServer::keyNumber] = int64_t(1) << 32; },
             [](ValueDict& e) { e.erase(WindowServer::keyOwnerPID); },
             [](ValueDict& e) { e[WindowServer::keyOwnerPID] = int64_t(1) << 31; },
             [](ValueDict& e) { e[WindowServer::keyBounds] = ValueDict{{"X", 0}, {"Y", 0}, {"Width", 9}}; },
         }) {
        world.editEntry(b, edit);
        EXPECT_EQ(world.ids(), (std::vector<uint32_t>{a}));
    }
    d.setWindowListFilter([](std::optional<PlatformValue>, uint32_t, uint32_t) { return PlatformValue("no list"); });
    EXPECT_TRUE(world.list().empty());
    // One entry that is no dictionary spoils the whole answer.
    d.setWindowListFilter([](std::optional<PlatformValue> answer, uint32_t, uint32_t) -> std::optional<PlatformValue> {
        const ValueList* listed = answer ? answer->asList() : nullptr;
        ValueList entries = listed ? *listed : ValueList{};
        entries.emplace_back(int64_t(5));
        return entries;
    });
    EXPECT_TRUE(world.list().empty());
    d.setWindowListFilter([](std::optional<PlatformValue>, uint32_t, uint32_t) { return std::nullopt; });
    EXPECT_TRUE(world.list().empty());
}

TEST(WindowList, FocusIsTheFrontmostApplicationsFirstOrdinaryWindow) {
    ListWorld world;
    auto& d = *world.desktop;
    const int32_t a = d.addProcess({.name = "A"});
    const int32_t b = d.addProcess({.name = "B"});
    const uint32_t a1 = d.addWindow(a, {.frame = {0, 0, 50, 50}});
    const uint32_t a2 = d.addWindow(a, {.frame = {0, 0, 50, 50}});
    const uint32_t palette = d.addWindow(a, {.frame = {0, 0, 50, 50}, .layer = 3});
    const uint32_t b1 = d.addWindow(b, {.frame = {0, 0, 50, 50}});
    auto focused = [&] {
        std::vector<uint32_t> out;
        for (const GuestWindow& w : world.list())
            if (w.isFocused) out.push_back(w.windowID);
        return out;
    };
    EXPECT_TRUE(focused().empty());  // no frontmost application
    d.activate(a);
    EXPECT_EQ(focused(), (std::vector<uint32_t>{a2}));
    EXPECT_EQ(world.ids(), (std::vector<uint32_t>{palette, a2, a1, b1}));
    d.raise(a1);
    EXPECT_EQ(focused(), (std::vector<uint32_t>{a1}));
    d.closeWindow(a1);
    d.closeWindow(a2);
    EXPECT_TRUE(focused().empty());  // only a palette left
}

TEST(WindowList, CaptureIndicatorsAreLeftOut) {
    const int32_t pid = 7;
    auto kept = [](std::vector<GuestWindow> in) {
        std::vector<uint32_t> out;
        for (const GuestWindow& w : WindowList::withoutCaptureIndicators(std::move(in))) out.push_back(w.windowID);
        return out;
    };
    GuestWindow indicator = window(2, pid, {150, 108, 100, 32});
    indicator.zIndex = 0;
    GuestWindow host = window(1, pid, {100, 100, 201, 101});
    host.zIndex = 1;
    EXPECT_EQ(kept({indicator, host}), (std::vector<uint32_t>{1}));
    EXPECT_EQ(WindowList::withoutCaptureIndicators({indicator, host}).front().zIndex, 1);  // gaps stay
    EXPECT_EQ(kept({indicator, window(1, pid, {100, 100, 200, 101})}), (std::vector<uint32_t>{2, 1}));
    EXPECT_EQ(kept({window(2, pid, {150, 108, 101, 32}), host}), (std::vector<uint32_t>{2, 1}));
    EXPECT_EQ(kept({window(2, pid, {150, 109, 100, 32}), host}), (std::vector<uint32_t>{2, 1}));  // past the top 40
    EXPECT_EQ(kept({window(2, pid + 1, {150, 108, 100, 32}), host}), (std::vector<uint32_t>{2, 1}));
    EXPECT_EQ(kept({window(2, pid, {150, 108, 100, 32}, 3), host}), (std::vector<uint32_t>{2, 1}));

    // The simulated system lays one on a window while it is captured.
    ListWorld world;
    const int32_t app = world.desktop->addProcess({.name = "App"});
    const uint32_t w = world.desktop->addWindow(app, {.frame = {100, 100, 640, 400}});
    auto stream = world.platform.screenCapture->makeStream(world.platform.screenCapture->filter({.windowID = w}),
                                                           {.width = 64, .height = 40}, nullptr);
    stream->startCapture([](std::exception_ptr) {});
    const auto indicatorID = world.desktop->captureIndicator(w);
    ASSERT_TRUE(indicatorID);
    EXPECT_EQ(WindowList::owner(world.platform, *indicatorID), app);
    EXPECT_EQ(world.ids(), (std::vector<uint32_t>{w}));
    stream->stopCapture([](std::exception_ptr) {});
    EXPECT_FALSE(world.desktop->captureIndicator(w));
    EXPECT_FALSE(WindowList::owner(world.platform, *indicatorID));
}

TEST(WindowList, SheetsAreConfirmedThroughAccessibilityAndRemembered) {
    ListWorld world;
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App"});
    // Of the same size as the parent, so no candidate.
    const uint32_t twin = d.addWindow(app, {.frame = {100, 100, 600, 400}});
    const uint32_t parent = d.addWindow(app, {.frame = {100, 100, 600, 400}});
    const uint32_t sheet = d.addWindow(app, {.frame = {200, 100, 300, 150}, .sheetOf = parent});
    // Inside its parent but no sheet; sticking out by exactly one point.
    const uint32_t panel = d.addWindow(app, {.frame = {99, 99, 100, 100}});
    auto byID = [&](uint32_t id) {
        for (const GuestWindow& w : world.list())
            if (w.windowID == id) return w;
        return GuestWindow{};
    };
    EXPECT_EQ(byID(sheet).attachedTo, parent);
    EXPECT_EQ(byID(panel).attachedTo, std::nullopt);
    EXPECT_EQ(byID(twin).attachedTo, std::nullopt);
    EXPECT_EQ(byID(parent).attachedTo, std::nullopt);

    // A yes is kept even when Accessibility stops answering.
    d.setAccessibilityTrusted(false);
    EXPECT_EQ(byID(sheet).attachedTo, parent);
}

TEST(SheetCache, AsksSixTimesAtMostASecondApartAndKeepsAYes) {
    SheetCache cache;
    int asked = 0;
    auto t0 = SheetCache::Clock::time_point{} + std::chrono::hours(1000);
    auto no = [&] { ++asked; return false; };
    EXPECT_FALSE(cache.isSheet(1, t0, no));
    EXPECT_FALSE(cache.isSheet(1, t0 + std::chrono::milliseconds(999), no));
    EXPECT_EQ(asked, 1);
    for (int i = 1; i < 10; ++i) cache.isSheet(1, t0 + std::chrono::seconds(i), no);
    EXPECT_EQ(asked, 6);
    EXPECT_FALSE(cache.isSheet(1, t0 + std::chrono::hours(1), [] { return true; }));

    // A yes before the sixth clears the negatives and stays.
    EXPECT_FALSE(cache.isSheet(2, t0, no));
    EXPECT_TRUE(cache.isSheet(2, t0 + std::chrono::seconds(1), [] { return true; }));
    EXPECT_TRUE(cache.isSheet(2, t0 + std::chrono::seconds(2), no));
    EXPECT_EQ(asked, 7);

    // Beyond 4096 entries a set starts anew, and the window is asked again.
    for (uint32_t id = 100; id < 100 + 4097; ++id) cache.isSheet(id, t0, [] { return true; });
    EXPECT_FALSE(cache.isSheet(2, t0, [] { return false; }));
}

TEST(WindowList, SingleWindowQueriesFallBackToTheFullList) {
    ListWorld world;
    auto& d = *world.desktop;
    const int32_t app = d.addProcess({.name = "App"});
    const uint32_t w = d.addWindow(app, {.frame = {10, 20, 300, 200}});
    const uint32_t back = d.addWindow(app, {.frame = {0, 0, 1000, 800}});
    d.raise(w);
    EXPECT_EQ(WindowList::frame(world.platform, w), (Rect{10, 20, 300, 200}));
    EXPECT_EQ(WindowList::owner(world.platform, w), app);
    EXPECT_FALSE(WindowList::owner(world.platform, 999));

    // A server that answers nothing for the direct query: the full list serves.
    std::vector<uint32_t> asked;
    d.setWindowListFilter([&](std::optional<PlatformValue> list, uint32_t options, uint32_t) {
        asked.push_back(options);
        return options == WindowServer::optionIncludingWindow ? PlatformValue(ValueList{}) : list;
    });
    EXPECT_EQ(WindowList::frame(world.platform, w), (Rect{10, 20, 300, 200}));
    EXPECT_EQ(asked, (std::vector<uint32_t>{WindowServer::optionIncludingWindow, WindowServer::optionAll}));
    world.editEntry(w, [](ValueDict& e) { e[WindowServer::keyOwnerPID] = "x"; });
    EXPECT_FALSE(WindowList::owner(world.platform, w));
    d.setWindowListFilter(nullptr);

    EXPECT_EQ(WindowList::topmostWindow(world.platform, {20, 30}), w);
    EXPECT_EQ(WindowList::topmostWindow(world.platform, {500, 500}), back);
    EXPECT_EQ(WindowList::topmostWindow(world.platform, {1200, 850}), std::nullopt);
    // An entry without a layer is passed over.
    world.editEntry(w, [](ValueDict& e) { e.erase(WindowServer::keyLayer); });
    EXPECT_EQ(WindowList::topmostWindow(world.platform, {20, 30}), back);
}

TEST(WindowCache, HoldsTheLastPictureForLookups) {
    WindowCache cache;
    GuestWindow front = window(1, 10, {0, 0, 100, 100});
    front.zIndex = 0;
    GuestWindow behind = window(2, 10, {50, 50, 100, 100});
    behind.zIndex = 1;
    GuestWindow off = window(3, 10, {0, 0, 500, 500});
    off.isOnScreen = false;
    off.zIndex = 2;
    GuestWindow foreign = window(4, 11, {0, 0, 500, 500});
    foreign.zIndex = 3;
    cache.replace({behind, off, foreign, front});
    {
        auto locked = cache.locked();
        EXPECT_EQ(locked.windows().size(), 4u);
        EXPECT_EQ(locked.stack().size(), 3u);
        EXPECT_EQ(locked.stack().front().id, 1u);
        EXPECT_EQ(locked.topmost({60, 60}, 10), (WindowCache::Hit{1, {0, 0}}));
        EXPECT_EQ(locked.topmost({120, 120}, 10), (WindowCache::Hit{2, {50, 50}}));
        EXPECT_EQ(locked.topmost({300, 300}, 10), std::nullopt);  // only an off-screen window there
        EXPECT_EQ(locked.window(3), (WindowCache::Entry{{0, 0}, 10}));
    }
    cache.updateFrame(2, {70, 80, 10, 10});
    cache.updateFrame(99, {70, 80, 10, 10});
    auto locked = cache.locked();
    EXPECT_EQ(locked.window(2), (WindowCache::Entry{{70, 80}, 10}));
    EXPECT_FALSE(locked.window(99));
    EXPECT_EQ(locked.stack()[1].frame, (Rect{50, 50, 100, 100}));  // the stack waits for the next picture
}

TEST(WindowCache, ReadersSeeWholePicturesWhileTheMainThreadReplacesThem) {
    // Each picture has all its windows at one x, so a torn one shows two.
    auto picture = [](double x) {
        std::vector<GuestWindow> out;
        for (uint32_t id = 1; id <= 20; ++id) {
            GuestWindow w = window(id, 10, {x, double(id) * 10, 100, 100});
            w.zIndex = id;
            out.push_back(w);
        }
        return out;
    };
    WindowCache cache;
    cache.replace(picture(0));
    std::atomic<bool> done{false};
    std::atomic<int> torn{0}, looks{0};
    std::thread reader([&] {
        while (!done) {
            auto locked = cache.locked();
            const double x = locked.window(1)->origin.x;
            for (const auto& [id, entry] : locked.windows())
                if (entry.origin.x != x) ++torn;
            for (const auto& e : locked.stack())
                if (e.frame.x != x) ++torn;
            if (auto hit = locked.topmost({x + 1, 15}, 10); !hit || hit->id != 1) ++torn;
            ++looks;
        }
    });
    for (int i = 1; i <= 2000 || looks < 100; ++i) cache.replace(picture(double(i % 500)));
    done = true;
    reader.join();
    EXPECT_EQ(torn.load(), 0);
}
