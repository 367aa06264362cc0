#include "TslAgent/WindowList.h"

#include <algorithm>

#include <limits>
#include <unordered_map>

#include "TslAgent/AXSupport.h"

namespace tsl::WindowList {
namespace {

constexpr int64_t highestLayer = 999;

template <class Int>
std::optional<Int> integerIn(const ValueDict& entry, const char* key) {
    auto it = entry.find(key);
    if (it == entry.end()) return std::nullopt;
    std::optional<int64_t> v = it->second.asInteger();
    if (!v || *v < int64_t(std::numeric_limits<Int>::min()) || *v > int64_t(std::numeric_limits<Int>::max()))
        return std::nullopt;
    return Int(*v);
}

std::optional<Rect> boundsIn(const ValueDict& entry) {
    auto it = entry.find(WindowServer::keyBounds);
    return it == entry.end() ? std::nullopt : rectFromDictionary(it->second);
}

std::optional<int64_t> layerIn(const ValueDict& entry) {
    auto it = entry.find(WindowServer::keyLayer);
    return it == entry.end() ? std::nullopt : it->second.asInteger();
}

// Present and not above 0; a missing alpha, or one that isn't a number, passes.
bool transparent(const ValueDict& entry) {
    auto it = entry.find(WindowServer::keyAlpha);
    if (it == entry.end()) return false;
    std::optional<double> alpha = it->second.asNumber();
    return alpha && !(*alpha > 0);
}

const ValueList* listOf(const std::optional<PlatformValue>& answer) {
    return answer ? answer->asList() : nullptr;
}

std::optional<ValueDict> findWindow(const std::optional<PlatformValue>& answer, uint32_t windowID) {
    const ValueList* list = listOf(answer);
    if (!list) return std::nullopt;
    for (const PlatformValue& v : *list) {
        const ValueDict* entry = v.asDict();
        if (entry && integerIn<uint32_t>(*entry, WindowServer::keyNumber) == windowID) return *entry;
    }
    return std::nullopt;
}

bool contains(const WireRect& outer, const WireRect& inner, double tolerance) {
    return outer.x - tolerance <= inner.x && inner.x + inner.width <= outer.x + outer.width + tolerance &&
           outer.y - tolerance <= inner.y && inner.y + inner.height <= outer.y + outer.height + tolerance;
}

}  // namespace

std::vector<GuestWindow> current(const PlatformServices& platform, const WindowQuery& query, bool includeOffscreen,
                                 SheetCache& sheets) {
    uint32_t options = WindowServer::optionExcludeDesktopElements;
    if (!includeOffscreen) options |= WindowServer::optionOnScreenOnly;
    const std::optional<PlatformValue> answer = platform.windowServer->copyWindowInfo(options, WindowServer::nullWindowID);
    const ValueList* list = listOf(answer);
    if (!list || !std::all_of(list->begin(), list->end(), [](const PlatformValue& v) { return v.asDict(); }))
        return {};

    std::optional<int32_t> frontmost;
    if (auto app = platform.workspace->frontmostApplication()) frontmost = app->processIdentifier;
    std::unordered_map<int32_t, std::optional<std::string>> bundles;
    for (RunningApplication& app : platform.workspace->runningApplications())
        bundles[app.processIdentifier] = std::move(app.bundleIdentifier);

    std::vector<GuestWindow> out;
    out.reserve(list->size());
    bool focusGiven = false;
    for (const PlatformValue& value : *list) {
        const ValueDict* entry = value.asDict();
        std::optional<uint32_t> number = integerIn<uint32_t>(*entry, WindowServer::keyNumber);
        std::optional<int32_t> pid = integerIn<int32_t>(*entry, WindowServer::keyOwnerPID);
        std::optional<Rect> bounds = boundsIn(*entry);
        if (!number || !pid || !bounds || transparent(*entry)) continue;
        if (bounds->width < 2 || bounds->height < 2) continue;
        const int64_t layer = layerIn(*entry).value_or(0);
        if (layer > highestLayer) continue;
        if (query.pid && *query.pid != *pid) continue;
        std::optional<std::string> bundleID;
        if (auto it = bundles.find(*pid); it != bundles.end()) bundleID = it->second;
        if (query.bundleID && bundleID != query.bundleID) continue;

        GuestWindow w;
        w.windowID = *number;
        w.pid = *pid;
        w.bundleID = std::move(bundleID);
        if (auto it = entry->find(WindowServer::keyName); it != entry->end())
            if (const std::string* name = it->second.asString()) w.title = *name;
        w.frame = wireRectOf(*bounds);
        w.layer = layer;
        w.zIndex = int64_t(out.size());
        if (auto it = entry->find(WindowServer::keyIsOnscreen); it != entry->end())
            if (const bool* on = it->second.asBool()) w.isOnScreen = *on;
        w.isMinimized = !w.isOnScreen;
        // Decided in the walk, before indicators go: an indicator in front of
        // the frontmost window takes the mark with it, and nothing is focused.
        if (!focusGiven && frontmost == w.pid && layer == 0) w.isFocused = focusGiven = true;
        out.push_back(std::move(w));
    }
    return markSheets(platform, withoutCaptureIndicators(std::move(out)), sheets);
}

std::vector<GuestWindow> withoutCaptureIndicators(std::vector<GuestWindow> windows) {
    auto isIndicator = [&](const GuestWindow& w) {
        const WireRect& f = w.frame;
        if (f.width > 100 || f.height > 32) return false;
        for (const GuestWindow& o : windows) {
            const WireRect& of = o.frame;
            if (o.windowID == w.windowID || o.pid != w.pid || o.layer != w.layer) continue;
            if (!(of.width > 200 && of.height > 100)) continue;
            if (of.x <= f.x && f.x + f.width <= of.x + of.width && of.y <= f.y && f.y + f.height <= of.y + 40)
                return true;
        }
        return false;
    };
    std::vector<bool> drop(windows.size());
    for (size_t i = 0; i < windows.size(); ++i) drop[i] = isIndicator(windows[i]);
    std::vector<GuestWindow> kept;
    kept.reserve(windows.size());
    for (size_t i = 0; i < windows.size(); ++i)
        if (!drop[i]) kept.push_back(std::move(windows[i]));
    return kept;
}

std::vector<GuestWindow> markSheets(const PlatformServices& platform, std::vector<GuestWindow> windows,
                                    SheetCache& sheets, std::optional<SheetCache::Clock::time_point> now) {
    for (GuestWindow& w : windows) {
        if (w.layer != 0) continue;
        const double area = w.frame.width * w.frame.height;
        const GuestWindow* parent = nullptr;
        for (const GuestWindow& p : windows) {
            if (p.pid != w.pid || p.windowID == w.windowID || p.layer != 0 || !p.isOnScreen) continue;
            if (!(p.frame.width * p.frame.height > area) || !contains(p.frame, w.frame, 1)) continue;
            parent = &p;
            break;
        }
        if (!parent) continue;
        const Rect parentFrame = rectOf(parent->frame), sheetFrame = rectOf(w.frame);
        // Each window's own moment: a slow test before it must not shorten its wait.
        const bool sheet = sheets.isSheet(w.windowID, now.value_or(SheetCache::Clock::now()), [&] {
            return AX::hasSheet(platform, w.pid, parentFrame, sheetFrame);
        });
        if (sheet) w.attachedTo = parent->windowID;
        else w.attachedTo.reset();
    }
    return windows;
}

std::optional<ValueDict> info(const PlatformServices& platform, uint32_t windowID) {
    if (auto entry = findWindow(platform.windowServer->copyWindowInfo(WindowServer::optionIncludingWindow, windowID),
                                windowID))
        return entry;
    return findWindow(platform.windowServer->copyWindowInfo(WindowServer::optionAll, WindowServer::nullWindowID),
                      windowID);
}

std::optional<Rect> frame(const PlatformServices& platform, uint32_t windowID) {
    std::optional<ValueDict> entry = info(platform, windowID);
    return entry ? boundsIn(*entry) : std::nullopt;
}

std::optional<int32_t> owner(const PlatformServices& platform, uint32_t windowID) {
    std::optional<ValueDict> entry = info(platform, windowID);
    return entry ? integerIn<int32_t>(*entry, WindowServer::keyOwnerPID) : std::nullopt;
}

std::optional<uint32_t> topmostWindow(const PlatformServices& platform, Point at) {
    const auto answer = platform.windowServer->copyWindowInfo(
        WindowServer::optionOnScreenOnly | WindowServer::optionExcludeDesktopElements, WindowServer::nullWindowID);
    const ValueList* list = listOf(answer);
    if (!list) return std::nullopt;
    for (const PlatformValue& value : *list) {
        const ValueDict* entry = value.asDict();
        if (!entry) continue;
        std::optional<int64_t> layer = layerIn(*entry);
        if (!layer || *layer > highestLayer || transparent(*entry)) continue;
        std::optional<Rect> bounds = boundsIn(*entry);
        if (bounds && bounds->contains(at)) return integerIn<uint32_t>(*entry, WindowServer::keyNumber);
    }
    return std::nullopt;
}

}  // namespace tsl::WindowList
