#pragma once
#include <cstdint>
#include <optional>

#include "Platform/PlatformValue.h"

namespace tsl {

// The window server's list of windows, front to back, as loosely typed
// dictionaries: readers must cope with a missing key or a value of another
// type in any entry.
class WindowServer {
public:
    // Options of copyWindowInfo, with the window server's own values.
    static constexpr uint32_t optionAll = 0;
    static constexpr uint32_t optionOnScreenOnly = 1;
    static constexpr uint32_t optionIncludingWindow = 8;
    static constexpr uint32_t optionExcludeDesktopElements = 16;
    static constexpr uint32_t nullWindowID = 0;

    // Keys of an entry. Bounds are a dictionary that rectFromDictionary reads.
    static constexpr const char* keyNumber = "kCGWindowNumber";
    static constexpr const char* keyOwnerPID = "kCGWindowOwnerPID";
    static constexpr const char* keyOwnerName = "kCGWindowOwnerName";
    static constexpr const char* keyName = "kCGWindowName";
    static constexpr const char* keyBounds = "kCGWindowBounds";
    static constexpr const char* keyLayer = "kCGWindowLayer";
    static constexpr const char* keyAlpha = "kCGWindowAlpha";
    static constexpr const char* keyIsOnscreen = "kCGWindowIsOnscreen";

    virtual ~WindowServer() = default;

    // With optionIncludingWindow, only `relativeToWindow` (if it exists).
    // Nothing when the server gives no answer; otherwise normally a list of
    // dictionaries, though callers must not rely on it.
    virtual std::optional<PlatformValue> copyWindowInfo(uint32_t options, uint32_t relativeToWindow) = 0;
};

}  // namespace tsl
