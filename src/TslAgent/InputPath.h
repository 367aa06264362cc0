#pragma once
#include <memory>

#include "Platform/Platform.h"
#include "TslAgent/WindowCache.h"
#include "TslCore/Wire/InputEvent.h"
#include "TslStream/Input/InputInjector.h"
#include "TslStream/Pipeline/EchoCounter.h"

namespace tsl {

// Makes a host's input event happen in the guest window it names: finds the
// window, activates or uncovers it as the route needs, moves a click over a
// sheet to the sheet, posts the event and, once it went out, lets every
// stream echo its sequence. Runs on the input channel's reading thread, one
// event at a time and never on the main actor, so input never waits behind
// control work. Nothing is reported: an event that cannot land is dropped.
class InputPath {
public:
    InputPath(PlatformServices platform, std::shared_ptr<WindowCache> cache, InputInjector injector,
              std::shared_ptr<EchoCounter> echo);

    void inject(InputEvent event);

    static constexpr double activationSettle = 0.15;  // seconds
    static constexpr double pauseAfterFocus = 0.05;

private:
    const PlatformServices platform;
    const std::shared_ptr<WindowCache> cache;
    const InputInjector injector;
    const std::shared_ptr<EchoCounter> echo;
};

}  // namespace tsl
