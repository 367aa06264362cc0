#include "TslAgent/WindowCache.h"

#include <algorithm>

namespace tsl {

void WindowCache::replace(const std::vector<GuestWindow>& given) {
    std::unordered_map<uint32_t, Entry> newWindows;
    newWindows.reserve(given.size());
    std::vector<const GuestWindow*> onScreen;
    onScreen.reserve(given.size());
    for (const GuestWindow& w : given) {
        newWindows[w.windowID] = Entry{{w.frame.x, w.frame.y}, w.pid};
        if (w.isOnScreen) onScreen.push_back(&w);
    }
    std::stable_sort(onScreen.begin(), onScreen.end(),
                     [](const GuestWindow* a, const GuestWindow* b) { return a->zIndex < b->zIndex; });
    std::vector<StackEntry> newStack;
    newStack.reserve(onScreen.size());
    for (const GuestWindow* w : onScreen)
        newStack.push_back({w->windowID, w->pid, {w->frame.x, w->frame.y, w->frame.width, w->frame.height}, w->layer});
    std::lock_guard g(lock);
    windows.swap(newWindows);
    stack.swap(newStack);
    // The old maps are freed after the lock is let go.
}

void WindowCache::updateFrame(uint32_t windowID, const Rect& frame) {
    std::lock_guard g(lock);
    if (auto it = windows.find(windowID); it != windows.end()) it->second.origin = frame.origin();
}

std::optional<WindowCache::Entry> WindowCache::Locked::window(uint32_t windowID) const {
    auto it = _cache.windows.find(windowID);
    return it == _cache.windows.end() ? std::nullopt : std::optional(it->second);
}

std::optional<WindowCache::Hit> WindowCache::Locked::topmost(Point at, int32_t pid) const {
    for (const StackEntry& e : _cache.stack)
        if (e.pid == pid && e.frame.contains(at)) return Hit{e.id, e.frame.origin()};
    return std::nullopt;
}

}  // namespace tsl
