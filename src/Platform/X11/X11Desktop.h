#pragma once
#include <memory>
#include <string>

#include "Platform/Platform.h"
#include "Platform/X11/X11Connection.h"
#include "Platform/X11/X11KeyTable.h"
#include "Platform/X11/X11WindowControl.h"

namespace tsl::X11 {

// A real X display as the agent's desktop: windows, window control, input,
// capture, the clipboard and the desktop entries' applications. The rest
// comes from elsewhere.
class X11Desktop {
public:
    // Throws OpenError naming what is missing. An empty name means $DISPLAY.
    static std::shared_ptr<X11Desktop> open(const std::string& display, CommandKey command = CommandKey::control);

    // `others` with its window server, workspace, Accessibility, event
    // poster, capture, pasteboard and applications replaced by this display's.
    PlatformServices services(PlatformServices others) const;

    const std::shared_ptr<Connection>& connection() const { return x; }
    const std::shared_ptr<WindowControl>& control() const { return _control; }

private:
    X11Desktop(std::shared_ptr<Connection> x, CommandKey command);
    const std::shared_ptr<Connection> x;
    const std::shared_ptr<WindowControl> _control;
    const CommandKey command;
};

}  // namespace tsl::X11
