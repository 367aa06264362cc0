// The service's window work: listing, acting on windows, and tracking.
#include "TslAgent/AXSupport.h"
#include "TslAgent/AgentService.h"
#include "TslAgent/DialogTextLog.h"
#include "TslAgent/WindowList.h"
#include "TslStream/Runtime/MainActor.h"

namespace tsl {
namespace {

constexpr double trackingPeriod = 0.25;  // seconds

}  // namespace

asio::awaitable<ControlMessage> AgentService::listWindows(ControlMessage request) {
    const WindowQuery& query = request.get<ControlMessage::ListWindows>()->value;
    co_return ControlMessage::WindowList{WindowList::current(platform, query, false)};
}

asio::awaitable<ControlMessage> AgentService::windowAction(ControlMessage request) {
    const WindowAction action = request.get<ControlMessage::WindowAction>()->value;
    validate(action);
    std::optional<int32_t> pid = WindowList::owner(platform, action.windowID);
    if (!pid) throw ControlError("notFound", "window " + std::to_string(action.windowID));
    if (!AX::perform(platform, action, *pid))
        throw ControlError("axFailed", std::string(toString(action.kind)) + " failed (Accessibility?)");
    // Input for the window lands right before the next tick sees the change.
    if (std::optional<Rect> frame = WindowList::frame(platform, action.windowID))
        _windowCache->updateFrame(action.windowID, *frame);
    co_return ControlMessage::Ok{};
}

void AgentService::startWindowTracking() {
    std::weak_ptr<AgentService> weakSelf = weak_from_this();
    tracker = std::make_unique<RepeatingTimer>(MainActor::current().executor(), fromSeconds(trackingPeriod), [weakSelf] {
        if (auto self = weakSelf.lock()) self->trackWindows();
    });
    trackWindows();
}

void AgentService::trackWindows() {
    const std::vector<GuestWindow> windows = WindowList::current(platform, WindowQuery{}, true);
    _windowCache->replace(windows);
    const std::vector<WindowEvent> events = tracking.update(windows, WindowTracker::Clock::now());
    if (events.empty()) return;
    std::weak_ptr<AgentService> weakSelf = weak_from_this();
    MainActor& main = MainActor::current();
    for (const WindowEvent& event : events) {
        switch (event.kind) {
        case WindowEvent::Kind::resized:
            if (windowStreams.windowResized)
                main.spawn([weakSelf, window = event.window]() -> asio::awaitable<void> {
                    if (auto self = weakSelf.lock()) co_await self->windowStreams.windowResized(window);
                });
            break;
        case WindowEvent::Kind::closed:
            if (windowStreams.windowClosed)
                main.spawn([weakSelf, id = event.window.windowID]() -> asio::awaitable<void> {
                    if (auto self = weakSelf.lock()) co_await self->windowStreams.windowClosed(id);
                });
            break;
        case WindowEvent::Kind::restored:
            if (windowStreams.windowRestored) windowStreams.windowRestored(event.window.windowID);
            break;
        case WindowEvent::Kind::created:
            DialogTextLog::windowCreated(platform, event.window);
            break;
        default:
            break;
        }
        postToHosts(ControlMessage::WindowEvent{event});
    }
}

}  // namespace tsl
