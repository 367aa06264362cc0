#pragma once
#include <cstdint>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

#include "Platform/Geometry.h"
#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

// The last window picture, held for the input path so that an event can be
// placed without asking the window server. The one object that the main
// actor (which replaces it every tracking tick) and the channels' reading
// threads (which look things up) share.
//
// Lock discipline: `lock` guards `windows` and `stack` and is held only to
// swap them in or to look them up, never across a call out. Readers take a
// Locked view, which holds the lock for its life: keep it short.
class WindowCache {
public:
    struct Entry {
        Point origin;
        int32_t pid = 0;
        bool operator==(const Entry&) const = default;
    };
    struct StackEntry {
        uint32_t id = 0;
        int32_t pid = 0;
        Rect frame;
        int64_t layer = 0;
        bool operator==(const StackEntry&) const = default;
    };
    struct Hit {
        uint32_t id = 0;
        Point origin;
        bool operator==(const Hit&) const = default;
    };

    // Every given window goes into `windows`; those on screen, front first,
    // into `stack`. Built without the lock, swapped in under it.
    void replace(const std::vector<GuestWindow>& windows);
    // A window moved by the agent itself: its new origin, until the next replace.
    void updateFrame(uint32_t windowID, const Rect& frame);

    // Lookups under the cache's lock, which the view holds while it lives.
    class Locked {
    public:
        explicit Locked(const WindowCache& cache) : _cache(cache), _guard(cache.lock) {}
        const std::unordered_map<uint32_t, Entry>& windows() const { return _cache.windows; }
        const std::vector<StackEntry>& stack() const { return _cache.stack; }
        std::optional<Entry> window(uint32_t windowID) const;
        // The front on-screen window of `pid` holding the point: its id and origin.
        std::optional<Hit> topmost(Point at, int32_t pid) const;

    private:
        const WindowCache& _cache;
        std::lock_guard<std::mutex> _guard;
    };
    Locked locked() const { return Locked(*this); }

private:
    mutable std::mutex lock;
    std::unordered_map<uint32_t, Entry> windows;
    std::vector<StackEntry> stack;
};

}  // namespace tsl
