#include "TslAgent/InputPath.h"

#include <chrono>
#include <thread>

#include "TslAgent/AXSupport.h"
#include "TslAgent/WindowList.h"

namespace tsl {
namespace {

using Kind = InputEvent::Kind;

constexpr uint32_t commandOrControl = 0x140000;

bool needsActivation(const InputEvent& e, InjectionMode route) {
    if (e.kind == Kind::mouseDown) return e.button != InputEvent::Button::left;
    if (e.kind == Kind::keyDown) return route == InjectionMode::hid || (e.modifierFlags & commandOrControl) != 0;
    return false;
}

}  // namespace

InputPath::InputPath(PlatformServices platform, std::shared_ptr<WindowCache> cache, InputInjector injector,
                     std::shared_ptr<EchoCounter> echo)
    : platform(std::move(platform)), cache(std::move(cache)), injector(std::move(injector)), echo(std::move(echo)) {}

void InputPath::inject(InputEvent event) {
    const uint32_t w = event.windowID;
    std::optional<WindowCache::Entry> known = cache->locked().window(w);
    if (!known) {
        auto frame = WindowList::frame(platform, w);
        auto owner = frame ? WindowList::owner(platform, w) : std::nullopt;
        if (!frame || !owner) return;
        known = WindowCache::Entry{Point{frame->x, frame->y}, *owner};
    }
    Point origin = known->origin;
    const int32_t pid = known->pid;
    const InjectionMode route = InputInjector::route(event, injector.mode);
    auto globalPoint = [&] { return Point{origin.x + double(event.x), origin.y + double(event.y)}; };

    if (needsActivation(event, route)) AX::activate(platform, pid, activationSettle);

    if (event.kind == Kind::mouseDown && route == InjectionMode::hid) {
        // The HID route clicks whatever is on top: bring the window up first if something covers it.
        auto top = WindowList::topmostWindow(platform, globalPoint());
        if (top && *top != w) {
            WindowAction focus;
            focus.windowID = w;
            focus.kind = WindowAction::Kind::focus;
            AX::perform(platform, focus, pid);
            std::this_thread::sleep_for(std::chrono::duration<double>(pauseAfterFocus));
        }
    }

    if (event.isMouse() && route == InjectionMode::pid) {
        // A click meant for a window may land on a sheet of the same process lying over it.
        Point at = globalPoint();
        auto hit = cache->locked().topmost(at, pid);
        if (hit && hit->id != w) {
            event.windowID = hit->id;
            origin = hit->origin;
            event.x = float(at.x - origin.x);
            event.y = float(at.y - origin.y);
        }
    }

    if (injector.inject(event, origin, pid)) echo->store(event.sequence);
}

}  // namespace tsl
