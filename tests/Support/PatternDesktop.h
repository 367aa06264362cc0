#pragma once
#include <memory>
#include <string>

#include "Platform/Sim/Desktop.h"
#include "Support/SimSupport.h"
#include "Support/TempDir.h"
#include "TslCore/Measure/TestPattern.h"

namespace tsl::test {

// A simulated desktop running the test pattern application: one 640×400
// point window whose counter goes up by one per captured frame. With manual
// capture, frames come only from stepCapture().
struct PatternDesktop {
    explicit PatternDesktop(bool manualCapture = true)
        : desktop(Sim::Desktop::make({.manualCapture = manualCapture})),
          services(desktop->services()),
          pid(*desktop->launch(makeBundle(dir.path(), "Pattern", std::string(TestPatternSpec::bundleID)))),
          window(desktop->windows().front().id) {}

    TempDir dir;
    std::shared_ptr<Sim::Desktop> desktop;
    PlatformServices services;
    int32_t pid;
    uint32_t window;
};

}  // namespace tsl::test
