#pragma once
#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

// Turns two successive window lists into the events the host hears of.
// The host knows exactly the `announced` windows: a window is announced when
// it is first seen on screen, and a window that never was makes no event.
// Within a tick, events follow the list's order (front first), closes last.
// A plain value with no lock: its owner gives it one thread.
struct WindowDiffer {
    std::unordered_map<uint32_t, GuestWindow> last;
    std::unordered_set<uint32_t> announced;

    std::vector<WindowEvent> update(const std::vector<GuestWindow>& windows);
};

}  // namespace tsl
