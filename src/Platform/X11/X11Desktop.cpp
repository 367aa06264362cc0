#include "Platform/X11/X11Desktop.h"

#include "Platform/X11/X11Accessibility.h"
#include "Platform/X11/X11DesktopEntries.h"
#include "Platform/X11/X11EventPoster.h"
#include "Platform/X11/X11NamedWorkspace.h"
#include "Platform/X11/X11Pasteboard.h"
#include "Platform/X11/X11ScreenCapture.h"
#include "Platform/X11/X11WindowServer.h"
#include "Platform/X11/X11Workspace.h"
#include "TslCore/Wire/ControlRecords.h"

namespace tsl::X11 {

std::shared_ptr<X11Desktop> X11Desktop::open(const std::string& display, CommandKey command) {
    return std::shared_ptr<X11Desktop>(new X11Desktop(Connection::open(display), command));
}

X11Desktop::X11Desktop(std::shared_ptr<Connection> x, CommandKey command)
    : x(std::move(x)), _control(std::make_shared<WindowControl>(this->x)), command(command) {}

PlatformServices X11Desktop::services(PlatformServices others) const {
    others.windowServer = std::make_shared<X11WindowServer>(x);
    auto windows = std::make_shared<X11Workspace>(_control);
    auto entries = std::make_shared<DesktopEntries>(windows, DesktopEntries::systemDataDirs());
    others.workspace = std::make_shared<NamedWorkspace>(windows, entries);
    others.accessibility = std::make_shared<X11Accessibility>(_control, command);
    others.eventPoster = std::make_shared<X11EventPoster>(_control, command);
    others.screenCapture = std::make_shared<X11ScreenCapture>(x);
    others.pasteboard = std::make_shared<X11Pasteboard>(x, ClipboardPayload::maxBytes);
    others.applications = entries;
    return others;
}

}  // namespace tsl::X11
