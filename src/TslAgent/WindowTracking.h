#pragma once
#include <asio/awaitable.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <vector>

#include "TslAgent/WindowDiffer.h"

namespace tsl {

// The state of window tracking beside the differ: which applications'
// menu windows are withheld from the host, and which windows are withheld
// now. Main actor only; no lock.
//
// While a menu item is pressed for the host, the menus the application opens
// on screen are the agent's business, not the host's. A menu window (layer
// 101) that appears while its process has an entry in `hideMenusOf` is
// withheld for its whole life, the entry's end notwithstanding.
struct WindowTracker {
    using Clock = std::chrono::system_clock;
    static constexpr int64_t menuLayer = 101;

    WindowDiffer differ;
    // Process id to the end of its withholding; written by the menu press.
    std::map<int32_t, Clock::time_point> hideMenusOf;
    std::set<uint32_t> hiddenMenus;

    // One tick: forgets expired entries, diffs, and keeps the events the host
    // may see, in order.
    std::vector<WindowEvent> update(const std::vector<GuestWindow>& windows, Clock::time_point now);
    // Whether the host may see the event; notes windows withheld and gone.
    bool passesMenuFilter(const WindowEvent& event);
};

// Where tracking tells the stream side of a window's changes. Unset members
// are skipped. `of` forwards to an object with the three members of that
// name (the stream table), which must outlive the hooks.
struct WindowStreamHooks {
    std::function<asio::awaitable<void>(GuestWindow)> windowResized;
    std::function<asio::awaitable<void>(uint32_t)> windowClosed;
    std::function<void(uint32_t)> windowRestored;

    template <class Streams>
    static WindowStreamHooks of(Streams& streams) {
        return {[&streams](GuestWindow w) { return streams.windowResized(std::move(w)); },
                [&streams](uint32_t id) { return streams.windowClosed(id); },
                [&streams](uint32_t id) { streams.windowRestored(id); }};
    }
};

}  // namespace tsl
