#include "TslAgent/AXSupport.h"

#include <chrono>
#include <cmath>
#include <thread>

#include "TslAgent/WindowList.h"
#include "TslStream/Runtime/Timers.h"

namespace tsl::AX {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto settlePoll = std::chrono::milliseconds(20);
constexpr int deepestTextLevel = 11;

std::optional<std::string> firstValue(const PlatformServices& platform, const AXElement& element,
                                      const std::string& role, int depth) {
    if (depth > deepestTextLevel) return std::nullopt;
    if (attr<std::string>(platform, element, "AXRole") == role)
        if (auto value = attr<std::string>(platform, element, "AXValue")) return value;
    for (const AXElement& child : elements(platform, element, "AXChildren"))
        if (auto value = firstValue(platform, child, role, depth + 1)) return value;
    return std::nullopt;
}

}  // namespace

bool trusted(const PlatformServices& platform) { return platform.accessibility->isProcessTrusted(); }

bool set(const PlatformServices& platform, const AXElement& element, const std::string& name,
         const AXAttributeValue& value) {
    return platform.accessibility->setAttributeValue(element, name, value) == AXError::success;
}

bool press(const PlatformServices& platform, const AXElement& element, const std::string& action) {
    return platform.accessibility->performAction(element, action) == AXError::success;
}

AXElement app(const PlatformServices& platform, int32_t pid) {
    AXElement element = platform.accessibility->createApplication(pid);
    platform.accessibility->setMessagingTimeout(element, messagingTimeout);
    return element;
}

std::vector<AXElement> windows(const PlatformServices& platform, int32_t pid) {
    return elements(platform, app(platform, pid), "AXWindows");
}

std::optional<std::string> title(const PlatformServices& platform, const AXElement& element) {
    return attr<std::string>(platform, element, "AXTitle");
}

std::optional<Rect> frame(const PlatformServices& platform, const AXElement& element) {
    auto position = attr<AXValue>(platform, element, "AXPosition");
    std::optional<Point> origin = position ? position->pointValue() : std::nullopt;
    if (!origin) return std::nullopt;
    auto size = attr<AXValue>(platform, element, "AXSize");
    std::optional<Size> extent = size ? size->sizeValue() : std::nullopt;
    if (!extent) return std::nullopt;
    return Rect{origin->x, origin->y, extent->width, extent->height};
}

bool framesMatch(const Rect& a, const Rect& b) {
    return std::fabs(a.x - b.x) < 2.0 && std::fabs(a.y - b.y) < 2.0 && std::fabs(a.width - b.width) < 2.0 &&
           std::fabs(a.height - b.height) < 2.0;
}

std::optional<AXElement> window(const PlatformServices& platform, uint32_t matching, int32_t pid,
                                bool allowSingleFallback) {
    std::optional<Rect> target = WindowList::frame(platform, matching);
    if (!target) return std::nullopt;
    std::vector<AXElement> all = windows(platform, pid);
    for (const AXElement& w : all) {
        std::optional<Rect> f = frame(platform, w);
        if (f && framesMatch(*f, *target)) return w;
    }
    if (allowSingleFallback && all.size() == 1) return all.front();
    return std::nullopt;
}

bool perform(const PlatformServices& platform, const WindowAction& action, int32_t pid) {
    using Kind = WindowAction::Kind;
    // Closing or minimising the wrong window would lose the user's work.
    const bool allowSingleFallback = action.kind != Kind::close && action.kind != Kind::minimize;
    std::optional<AXElement> w = window(platform, action.windowID, pid, allowSingleFallback);
    if (!w) return false;
    const std::optional<WireRect>& f = action.frame;
    switch (action.kind) {
    case Kind::move:
        return f && set(platform, *w, "AXPosition", AXValue::point({f->x, f->y}));
    case Kind::resize:
        return f && set(platform, *w, "AXSize", AXValue::size({f->width, f->height}));
    case Kind::setFrame: {
        if (!f) return false;
        const bool moved = set(platform, *w, "AXPosition", AXValue::point({f->x, f->y}));
        const bool sized = set(platform, *w, "AXSize", AXValue::size({f->width, f->height}));
        return moved && sized;
    }
    case Kind::close: {
        auto button = attr<AXElement>(platform, *w, "AXCloseButton");
        return button && press(platform, *button);
    }
    case Kind::focus:
        activate(platform, pid, 0);
        set(platform, *w, "AXMain", true);
        return press(platform, *w, "AXRaise");
    case Kind::minimize:
        return set(platform, *w, "AXMinimized", true);
    case Kind::restore:
        return set(platform, *w, "AXMinimized", false);
    }
    return false;
}

bool activate(const PlatformServices& platform, int32_t pid, double settle) {
    if (isFrontmost(platform, pid)) return true;
    const bool ok = set(platform, app(platform, pid), "AXFrontmost", true);
    if (!ok && platform.workspace->runningApplication(pid)) platform.workspace->activate(pid, 0);
    if (settle > 0) {
        const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(settle));
        while (Clock::now() < deadline) {
            if (isFrontmost(platform, pid)) break;
            std::this_thread::sleep_for(settlePoll);
        }
    }
    return ok;
}

asio::awaitable<void> activateAndSettle(PlatformServices platform, int32_t pid, double timeout) {
    if (isFrontmost(platform, pid)) co_return;
    activate(platform, pid, 0);
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(timeout));
    while (Clock::now() < deadline) {
        if (isFrontmost(platform, pid)) break;
        co_await sleepFor(settlePoll);
    }
}

bool isFrontmost(const PlatformServices& platform, int32_t pid) {
    return attr<bool>(platform, app(platform, pid), "AXFrontmost").value_or(false);
}

bool hasSheet(const PlatformServices& platform, int32_t pid, const Rect& parentFrame, const Rect& sheetFrame) {
    for (const AXElement& w : windows(platform, pid)) {
        std::optional<Rect> f = frame(platform, w);
        if (!f || !framesMatch(*f, parentFrame)) continue;
        for (const AXElement& child : elements(platform, w, "AXChildren")) {
            if (attr<std::string>(platform, child, "AXRole") != "AXSheet") continue;
            std::optional<Rect> cf = frame(platform, child);
            if (cf && framesMatch(*cf, sheetFrame)) return true;
        }
    }
    return false;
}

std::optional<std::string> focusedText(const PlatformServices& platform, int32_t pid) {
    AXElement application = app(platform, pid);
    std::optional<AXElement> w = attr<AXElement>(platform, application, "AXFocusedWindow");
    if (!w) {
        auto all = elements(platform, application, "AXWindows");
        if (all.empty()) return std::nullopt;
        w = all.front();
    }
    return firstValue(platform, *w, "AXTextArea", 0);
}

}  // namespace tsl::AX
