#include "TslAgent/WindowDiffer.h"

namespace tsl {

std::vector<WindowEvent> WindowDiffer::update(const std::vector<GuestWindow>& windows) {
    using Kind = WindowEvent::Kind;
    std::unordered_map<uint32_t, GuestWindow> current;
    current.reserve(windows.size());
    std::vector<WindowEvent> events;
    for (const GuestWindow& w : windows) {
        current.emplace(w.windowID, w);
        if (!announced.contains(w.windowID)) {
            if (w.isOnScreen) {
                announced.insert(w.windowID);
                events.push_back({Kind::created, w});
            }
            continue;
        }
        auto it = last.find(w.windowID);
        if (it == last.end()) continue;
        const GuestWindow& prev = it->second;
        // Going off screen is all the host hears of that tick.
        if (prev.isOnScreen && !w.isOnScreen) {
            events.push_back({Kind::minimized, w});
            continue;
        }
        if (!prev.isOnScreen && w.isOnScreen) events.push_back({Kind::restored, w});
        if (prev.frame.width != w.frame.width || prev.frame.height != w.frame.height)
            events.push_back({Kind::resized, w});
        else if (prev.frame.x != w.frame.x || prev.frame.y != w.frame.y)
            events.push_back({Kind::moved, w});
        if (prev.title != w.title) events.push_back({Kind::titleChanged, w});
        if (w.isFocused && !prev.isFocused) events.push_back({Kind::focused, w});
    }
    for (auto& [id, old] : last) {
        if (current.contains(id)) continue;
        if (announced.erase(id)) events.push_back({Kind::closed, old});
    }
    last = std::move(current);
    return events;
}

}  // namespace tsl
