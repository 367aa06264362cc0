// The service's menu work: reading an application's menu bar and pressing
// its items for the host.
#include "TslAgent/AXSupport.h"
#include "TslAgent/AgentService.h"
#include "TslAgent/MenuReader.h"

namespace tsl {
namespace {

using namespace std::chrono_literals;

constexpr double settleTimeout = 0.3;  // seconds for the application to come to the front
constexpr double pressTimeout = 0.6;   // seconds for the item to turn enabled
// Menu windows that open meanwhile are the agent's business, not the host's.
constexpr auto menusHiddenDuringPress = 1500ms;
constexpr auto menusHiddenAfterPress = 300ms;

std::string describePath(const std::vector<int64_t>& path) {
    std::string out = "[";
    for (size_t i = 0; i < path.size(); ++i) out += (i ? ", " : "") + std::to_string(path[i]);
    return out + "]";
}

}  // namespace

asio::awaitable<ControlMessage> AgentService::getMenu(ControlMessage request) {
    const int32_t pid = request.get<ControlMessage::GetMenu>()->pid;
    if (!_config.isSimulation) co_await AX::activateAndSettle(platform, pid, settleTimeout);
    co_return ControlMessage::Menu{pid, MenuReader::menuBar(platform, pid, _config.isSimulation)};
}

asio::awaitable<ControlMessage> AgentService::pressMenu(ControlMessage request) {
    const auto press = *request.get<ControlMessage::PressMenu>();
    const int32_t pid = press.pid;
    const std::string path = describePath(press.path);
    tracking.hideMenusOf[pid] = WindowTracker::Clock::now() + menusHiddenDuringPress;
    co_await AX::activateAndSettle(platform, pid, settleTimeout);

    std::optional<bool> enabled;
    if (auto item = MenuReader::item(platform, pid, press.path)) enabled = AX::attr<bool>(platform, *item, "AXEnabled");
    const bool frontmost = AX::isFrontmost(platform, pid);
    log.notice("pressMenu %{public}s pid %d: frontmost %{bool}d, enabled %{public}s", path, pid, frontmost,
               enabled ? (*enabled ? "true" : "false") : "unknown");

    const bool pressed = co_await MenuReader::pressWhenEnabled(platform, pid, press.path, pressTimeout);
    tracking.hideMenusOf[pid] = WindowTracker::Clock::now() + menusHiddenAfterPress;
    if (!pressed) throw ControlError("axFailed", "menu item " + path + " not pressed");
    co_return ControlMessage::Ok{};
}

}  // namespace tsl
