#pragma once
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "Platform/Platform.h"
#include "TslAgent/SheetCache.h"
#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

inline Rect rectOf(const WireRect& r) { return {r.x, r.y, r.width, r.height}; }
inline WireRect wireRectOf(const Rect& r) { return {r.x, r.y, r.width, r.height}; }

// The agent's picture of the guest's windows, read from the window server:
// which exist, in which stacking order, which one has the focus, and which
// are sheets of others. Entries that can't be read are passed over without
// a word; nothing here throws.
//
// No state; callable on any thread (the single-window queries also serve the
// input path on reading threads).
namespace WindowList {

// Windows front to back, filtered by `query`: too small (below 2 points),
// transparent, and above layer 999 are left out, and so are the capture
// indicators the system lays over captured windows. `zIndex` counts from 0 at
// the front (gaps where indicators were), `isFocused` marks the frontmost
// application's first ordinary window, and sheets name their parent in
// `attachedTo`.
std::vector<GuestWindow> current(const PlatformServices& platform, const WindowQuery& query, bool includeOffscreen,
                                 SheetCache& sheets = SheetCache::shared());

// The raw window server entry of one window, on screen or not.
std::optional<ValueDict> info(const PlatformServices& platform, uint32_t windowID);
std::optional<Rect> frame(const PlatformServices& platform, uint32_t windowID);
std::optional<int32_t> owner(const PlatformServices& platform, uint32_t windowID);

// The front window on screen under a point, of any process and any size.
std::optional<uint32_t> topmostWindow(const PlatformServices& platform, Point at);

// Steps of `current`, open for tests.
// Drops small windows (at most 100×32) that sit inside the top 40 points of
// a larger window (above 200×100) of the same process and layer.
std::vector<GuestWindow> withoutCaptureIndicators(std::vector<GuestWindow> windows);
// Marks layer-0 windows that lie inside a larger on-screen window of their
// process and that Accessibility confirms as its sheet. Without `now`, each
// window's test is timed when it is asked.
std::vector<GuestWindow> markSheets(const PlatformServices& platform, std::vector<GuestWindow> windows,
                                    SheetCache& sheets = SheetCache::shared(),
                                    std::optional<SheetCache::Clock::time_point> now = std::nullopt);

}  // namespace WindowList
}  // namespace tsl
