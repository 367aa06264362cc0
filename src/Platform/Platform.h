#pragma once
#include <memory>

#include "Platform/Accessibility.h"
#include "Platform/AppSource.h"
#include "Platform/EventPoster.h"
#include "Platform/Pasteboard.h"
#include "Platform/Preferences.h"
#include "Platform/ScreenCapture.h"
#include "Platform/System.h"
#include "Platform/WindowServer.h"
#include "Platform/Workspace.h"

namespace tsl {

// Every port of one desktop, handed to the agent's objects when they are
// made. Code above this layer never learns which backend stands behind them.
struct PlatformServices {
    std::shared_ptr<WindowServer> windowServer;
    std::shared_ptr<Workspace> workspace;
    std::shared_ptr<Accessibility> accessibility;
    std::shared_ptr<ScreenCapture> screenCapture;
    std::shared_ptr<EventPoster> eventPoster;
    std::shared_ptr<Pasteboard> pasteboard;  // the general pasteboard
    std::shared_ptr<Preferences> preferences;
    std::shared_ptr<System> system;
    std::shared_ptr<AppSource> applications;  // none: the bundles of the agent's appsDir
};

}  // namespace tsl
