// Window changes that applications and the system make on their own: titles,
// ordering out and in, and the capture indicator.
#include <algorithm>

#include "Platform/Sim/Desktop.h"
#include "Platform/Sim/World.h"

namespace tsl::Sim {

void Desktop::setTitle(uint32_t id, std::string title) {
    change([&](World& w) {
        if (SimWindow* win = w.window(id)) win->setup.title = std::move(title);
    });
}

void Desktop::setShown(uint32_t id, bool shown) {
    change([&](World& w) {
        SimWindow* win = w.window(id);
        if (!win) return;
        win->setup.shown = shown;
        if (shown) w.raise(id);
    });
}

std::optional<uint32_t> Desktop::captureIndicator(uint32_t windowID) const {
    return read([&](World& w) -> std::optional<uint32_t> {
        auto it = w.captureIndicators.find(windowID);
        return it == w.captureIndicators.end() ? std::nullopt : std::optional(it->second.id);
    });
}

void World::captureBegan(uint32_t windowID) {
    if (!window(windowID)) return;
    CaptureIndicator& indicator = captureIndicators[windowID];
    if (indicator.streams++ == 0) indicator.id = nextWindowID++;
}

void World::captureEnded(uint32_t windowID) {
    auto it = captureIndicators.find(windowID);
    if (it != captureIndicators.end() && --it->second.streams <= 0) captureIndicators.erase(it);
}

Rect World::indicatorFrame(const Rect& window) {
    // A pill near the top right corner, inside the title bar.
    const double width = 76, height = 24;
    return {window.x + std::max(0.0, window.width - width - 8), window.y + 8, width, height};
}

}  // namespace tsl::Sim
