#include "Platform/X11/X11WindowServer.h"

#include "Platform/X11/X11ClientWindow.h"

namespace tsl::X11 {

std::optional<PlatformValue> X11WindowServer::copyWindowInfo(uint32_t options, uint32_t relativeToWindow) {
    const bool single = options & optionIncludingWindow;
    const std::vector<ClientWindow> clients = ClientWindow::list(*x);
    // A server that went away answers nothing, not an empty desktop.
    if (x->lost()) return std::nullopt;
    ValueList out;
    for (const ClientWindow& w : clients) {
        if (single ? w.id != relativeToWindow
                   : ((options & optionOnScreenOnly) && !w.onScreen()) ||
                         ((options & optionExcludeDesktopElements) && w.desktopElement))
            continue;
        ValueDict entry{{keyNumber, uint32_t(w.id)},
                        {keyOwnerName, w.ownerName},
                        {keyBounds, dictionaryFromRect(w.bounds)},
                        {keyLayer, w.layer},
                        {keyAlpha, 1.0}};
        if (w.pid) entry[keyOwnerPID] = *w.pid;
        if (w.title) entry[keyName] = *w.title;
        // As the window server does: the key is there only for windows on screen.
        if (w.onScreen()) entry[keyIsOnscreen] = true;
        out.emplace_back(std::move(entry));
    }
    return PlatformValue(std::move(out));
}

}  // namespace tsl::X11
