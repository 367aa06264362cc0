#include "TslAgent/MenuReader.h"

#include <chrono>

#include "TslAgent/AXSupport.h"
#include "TslStream/Runtime/Timers.h"

namespace tsl::MenuReader {
namespace {

using namespace std::chrono_literals;

std::optional<MenuNode> node(const PlatformServices& platform, const AXElement& element, std::vector<int64_t> path,
                             int depth, int& budget, bool assumeEnabled) {
    if (budget < 1) return std::nullopt;
    --budget;
    MenuNode out;
    out.title = AX::attr<std::string>(platform, element, "AXTitle").value_or("");
    out.enabled = assumeEnabled || AX::attr<bool>(platform, element, "AXEnabled").value_or(true);
    const auto mark = AX::attr<std::string>(platform, element, "AXMenuItemMarkChar");
    out.checked = mark && !mark->empty();
    const auto cmd = AX::attr<std::string>(platform, element, "AXMenuItemCmdChar");
    const int64_t modifiers = AX::attr<int64_t>(platform, element, "AXMenuItemCmdModifiers").value_or(0);
    if (cmd) out.shortcut = shortcutString(*cmd, modifiers);
    if (depth < maxDepth) {
        for (const AXElement& sub : AX::elements(platform, element, "AXChildren")) {
            const std::vector<AXElement> entries = AX::elements(platform, sub, "AXChildren");
            for (size_t j = 0; j < entries.size(); ++j) {
                std::vector<int64_t> childPath = path;
                childPath.push_back(int64_t(j));
                if (auto child = node(platform, entries[j], std::move(childPath), depth + 1, budget, assumeEnabled))
                    out.children.push_back(std::move(*child));
            }
        }
    }
    out.path = std::move(path);
    return out;
}

std::optional<AXElement> menuBarOf(const PlatformServices& platform, int32_t pid) {
    return AX::attr<AXElement>(platform, AX::app(platform, pid), "AXMenuBar");
}

bool validIndex(int64_t index, size_t count) { return index >= 0 && uint64_t(index) < count; }

// Disabled by its own say; an item gone or unreadable is not.
bool readsDisabled(const PlatformServices& platform, const std::optional<AXElement>& element) {
    return element && AX::attr<bool>(platform, *element, "AXEnabled") == false;
}

}  // namespace

std::vector<MenuNode> menuBar(const PlatformServices& platform, int32_t pid, bool assumeEnabled) {
    std::vector<MenuNode> out;
    const std::optional<AXElement> bar = menuBarOf(platform, pid);
    if (!bar) return out;
    int budget = maxItems;
    const std::vector<AXElement> entries = AX::elements(platform, *bar, "AXChildren");
    for (size_t i = 0; i < entries.size(); ++i)
        if (auto n = node(platform, entries[i], {int64_t(i)}, 0, budget, assumeEnabled)) out.push_back(std::move(*n));
    return out;
}

std::string shortcutString(const std::string& cmd, int64_t axModifiers) {
    std::string out;
    if (axModifiers & 4) out += "\u2303";
    if (axModifiers & 2) out += "\u2325";
    if (axModifiers & 1) out += "\u21E7";
    if (!(axModifiers & 8)) out += "\u2318";
    return out + cmd;
}

std::optional<AXElement> item(const PlatformServices& platform, int32_t pid, const std::vector<int64_t>& path) {
    if (path.empty()) return std::nullopt;
    const std::optional<AXElement> bar = menuBarOf(platform, pid);
    if (!bar) return std::nullopt;
    std::vector<AXElement> entries = AX::elements(platform, *bar, "AXChildren");
    if (!validIndex(path[0], entries.size())) return std::nullopt;
    AXElement current = entries[size_t(path[0])];
    for (size_t i = 1; i < path.size(); ++i) {
        const std::vector<AXElement> menus = AX::elements(platform, current, "AXChildren");
        if (menus.empty()) return std::nullopt;
        entries = AX::elements(platform, menus.front(), "AXChildren");
        if (!validIndex(path[i], entries.size())) return std::nullopt;
        current = entries[size_t(path[i])];
    }
    return current;
}

bool press(const PlatformServices& platform, int32_t pid, const std::vector<int64_t>& path) {
    const std::optional<AXElement> element = item(platform, pid, path);
    return element && AX::press(platform, *element);
}

asio::awaitable<bool> pressWhenEnabled(PlatformServices platform, int32_t pid, std::vector<int64_t> path,
                                       double timeout) {
    if (path.size() >= 2 && readsDisabled(platform, item(platform, pid, path))) {
        // Some applications enable an item only while its menu is open.
        const std::optional<AXElement> top = item(platform, pid, {path[0]});
        if (top && AX::press(platform, *top)) {
            co_await sleepFor(150ms);
            const std::vector<AXElement> menus = AX::elements(platform, *top, "AXChildren");
            if (!menus.empty()) AX::press(platform, menus.front(), "AXCancel");
            co_await sleepFor(100ms);
        }
    }
    const auto deadline = deadlineAfter(fromSeconds(timeout));
    while (std::chrono::steady_clock::now() < deadline) {
        if (!readsDisabled(platform, item(platform, pid, path))) break;
        co_await sleepFor(30ms);
    }
    const std::optional<AXElement> element = item(platform, pid, path);
    co_return element && AX::press(platform, *element);
}

}  // namespace tsl::MenuReader
