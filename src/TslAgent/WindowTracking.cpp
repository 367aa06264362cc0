#include "TslAgent/WindowTracking.h"

namespace tsl {

std::vector<WindowEvent> WindowTracker::update(const std::vector<GuestWindow>& windows, Clock::time_point now) {
    std::erase_if(hideMenusOf, [&](const auto& entry) { return !(entry.second > now); });
    std::vector<WindowEvent> events = differ.update(windows);
    std::erase_if(events, [&](const WindowEvent& e) { return !passesMenuFilter(e); });
    return events;
}

bool WindowTracker::passesMenuFilter(const WindowEvent& event) {
    const GuestWindow& w = event.window;
    // Expired entries are gone already, so an entry here is in force.
    if (event.kind == WindowEvent::Kind::created && w.layer == menuLayer && hideMenusOf.contains(w.pid)) {
        hiddenMenus.insert(w.windowID);
        return false;
    }
    if (hiddenMenus.contains(w.windowID)) {
        if (event.kind == WindowEvent::Kind::closed) hiddenMenus.erase(w.windowID);
        return false;
    }
    return true;
}

}  // namespace tsl
