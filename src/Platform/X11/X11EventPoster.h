#pragma once
#include <memory>
#include <mutex>
#include <set>

#include "Platform/EventPoster.h"
#include "Platform/X11/X11KeyTable.h"
#include "Platform/X11/X11WindowControl.h"

namespace tsl::X11 {

// Posting through XTEST, as if the events came from the real devices. Every
// post ends with a round trip, so the server has taken the event when the
// call returns. X has no posting to one process: the pid route brings that
// process's window to the focus first, waits until the focus is there, and
// drops a key that can't get there rather than give it to another window.
class X11EventPoster final : public EventPoster {
public:
    static constexpr double pixelsPerNotch = 40;

    X11EventPoster(std::shared_ptr<WindowControl> control, CommandKey command)
        : control(std::move(control)), command(command) {}

    std::optional<Source> createSource(int32_t stateID) override { return Source{stateID}; }
    std::optional<PlatformEvent> createMouseEvent(const std::optional<Source>& source, uint32_t type, Point location,
                                                  uint32_t button) override;
    std::optional<PlatformEvent> createScrollWheelEvent(const std::optional<Source>& source, ScrollUnit units,
                                                        uint32_t wheelCount, int32_t wheel1, int32_t wheel2,
                                                        int32_t wheel3) override;
    std::optional<PlatformEvent> createKeyboardEvent(const std::optional<Source>& source, uint16_t keyCode,
                                                     bool keyDown) override;
    std::optional<PlatformEvent> createEvent(const std::optional<Source>& source) override;
    void post(Tap tap, const PlatformEvent& event) override;
    void postToPid(int32_t pid, const PlatformEvent& event) override;

private:
    void send(const PlatformEvent& event);
    void fake(uint8_t type, uint8_t detail, int16_t x = 0, int16_t y = 0);
    void holdModifiers(uint64_t flags);
    void scroll(const PlatformEvent& event);

    const std::shared_ptr<WindowControl> control;
    const CommandKey command;
    std::mutex lock;               // guards what follows, and keeps one event's requests together
    std::set<uint8_t> held;        // modifier keycodes this poster pressed
    double pendingY = 0, pendingX = 0;  // pixels short of a notch
};

}  // namespace tsl::X11
