#pragma once
#include <cstdint>
#include <memory>
#include <optional>

#include "Platform/Accessibility.h"
#include "Platform/EventPoster.h"
#include "Platform/Geometry.h"
#include "TslCore/Wire/InputEvent.h"
#include "TslStream/Input/InjectionMode.h"

namespace tsl {

// Builds the platform event for a host's InputEvent and posts it by route:
// at the HID level (the cursor moves, whatever is on top gets it) or to one
// process alone. No changing state: safe from any one thread at a time.
class InputInjector {
public:
    using Mode = InjectionMode;
    using Route = InjectionMode;

    InputInjector(Mode mode, std::shared_ptr<EventPoster> poster);

    // True when an event was made and handed to the platform, whatever the
    // platform then does with it.
    bool inject(const InputEvent& event, Point windowOrigin, int32_t pid) const;
    // The platform event at windowOrigin plus the event's position; nothing
    // when the platform makes none.
    std::optional<PlatformEvent> makeEvent(const InputEvent& event, Point windowOrigin) const;

    // Every kind of event goes the mode's way.
    static Route route(const InputEvent& event, Mode mode);
    static bool hasPermission(Accessibility& accessibility) { return accessibility.isProcessTrusted(); }
    // A scroll delta as a wheel value: 0 when not finite, else within
    // ±10000 and rounded to the nearest integer.
    static int32_t wheel(float delta);

    const Mode mode;

private:
    std::shared_ptr<EventPoster> poster;
    std::optional<EventPoster::Source> source;
};

}  // namespace tsl
