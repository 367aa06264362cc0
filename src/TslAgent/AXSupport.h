#pragma once
#include <asio/awaitable.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Platform.h"
#include "TslCore/Wire/ControlRecords.h"

namespace tsl {

// Acting on other processes' windows through Accessibility. The window
// server knows windows by number, Accessibility as elements of a process;
// the two share no identifier, so windows are matched by geometry.
//
// No state; everything runs on the calling thread. Nothing throws: a failure
// is false, nothing or an empty list, and callers word the refusal. Every
// application element is made with a messaging time-out, so an application
// that never answers costs at most that long per call.
namespace AX {

constexpr float messagingTimeout = 0.5f;

// Whether this process may use Accessibility.
bool trusted(const PlatformServices& platform);

// An attribute of the given type; nothing when it can't be read or holds
// another type. T is one of std::string, bool, int64_t, AXValue, AXElement,
// std::vector<AXElement>.
template <class T>
std::optional<T> attr(const PlatformServices& platform, const AXElement& element, const std::string& name) {
    std::optional<AXAttributeValue> value;
    if (platform.accessibility->copyAttributeValue(element, name, value) != AXError::success || !value)
        return std::nullopt;
    if (const T* v = std::get_if<T>(&*value)) return *v;
    return std::nullopt;
}

// A list of elements ("AXChildren", "AXWindows"); empty when unreadable.
inline std::vector<AXElement> elements(const PlatformServices& platform, const AXElement& element,
                                       const std::string& name) {
    auto list = attr<std::vector<AXElement>>(platform, element, name);
    return list ? std::move(*list) : std::vector<AXElement>{};
}

// Setting an attribute or performing an action; true only on success.
bool set(const PlatformServices& platform, const AXElement& element, const std::string& name,
         const AXAttributeValue& value);
bool press(const PlatformServices& platform, const AXElement& element, const std::string& action = "AXPress");

// The application element of a process, with the messaging time-out set.
AXElement app(const PlatformServices& platform, int32_t pid);
// "AXWindows" of the application; empty when unreadable.
std::vector<AXElement> windows(const PlatformServices& platform, int32_t pid);
std::optional<std::string> title(const PlatformServices& platform, const AXElement& element);
// "AXPosition" and "AXSize" together; nothing if either is unreadable.
std::optional<Rect> frame(const PlatformServices& platform, const AXElement& element);
// Each of x, y, width and height differs by less than two points.
bool framesMatch(const Rect& a, const Rect& b);

// The Accessibility window of `pid` whose frame matches the window server's
// frame of `windowID`; with `allowSingleFallback`, a process's only window
// stands in when none matches.
std::optional<AXElement> window(const PlatformServices& platform, uint32_t matching, int32_t pid,
                                bool allowSingleFallback);

// Carries out a window action; false when the window wasn't found or the
// application refused.
bool perform(const PlatformServices& platform, const WindowAction& action, int32_t pid);

// Brings the application to the front; with `settle` above 0 it then blocks
// until the application is frontmost or `settle` seconds have passed (for
// plain threads only). True when the request was accepted.
bool activate(const PlatformServices& platform, int32_t pid, double settle);
// The same wait for the main actor, suspending between looks.
asio::awaitable<void> activateAndSettle(PlatformServices platform, int32_t pid, double timeout);
bool isFrontmost(const PlatformServices& platform, int32_t pid);

// Whether a window of `pid` at `parentFrame` has a sheet child at `sheetFrame`.
bool hasSheet(const PlatformServices& platform, int32_t pid, const Rect& parentFrame, const Rect& sheetFrame);

// The text of the first text area in the application's focused window.
std::optional<std::string> focusedText(const PlatformServices& platform, int32_t pid);

}  // namespace AX
}  // namespace tsl
