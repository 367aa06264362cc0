#pragma once
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Support/ChildProcess.h"
#include "Support/TempDir.h"

namespace tsl::test {

// A session bus and an accessibility bus of the test program's own, made at
// first use and ended by pid when the program ends. DBUS_SESSION_BUS_ADDRESS
// names the session bus for the rest of the program and its children. One
// per program, since libatspi connects once per process.
class AccessibilityBus {
public:
    static AccessibilityBus& shared() {
        static AccessibilityBus bus;
        return bus;
    }
    bool ready() const { return _ready; }

    ~AccessibilityBus() {
        if (launcher) {
            launcher->signal(SIGTERM);  // it ends its accessibility bus with itself
            launcher->wait();
        }
        launcher.reset();
        session.reset();
    }

private:
    AccessibilityBus() {
        session = startServer("/usr/bin/dbus-daemon", {"--session", "--nofork", "--print-address=1"});
        if (!session->waitForOutput("\n")) return;
        const std::string address = session->standardOutput().substr(0, session->standardOutput().find('\n'));
        ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
        // Started by us rather than by the bus, so that it ends by its pid; with
        // no display of its own it outlives each test's X server.
        launcher = startServer("/usr/bin/env", {"-u", "DISPLAY", "XDG_RUNTIME_DIR=" + runtime.path().string(),
                                                "/usr/libexec/at-spi-bus-launcher", "--launch-immediately"});
        ChildProcess owned("/usr/bin/gdbus", {"wait", "--session", "--timeout", "20", "org.a11y.Bus"});
        _ready = owned.wait() == 0;
    }

    TempDir runtime;
    std::unique_ptr<ChildProcess> session;
    std::unique_ptr<ChildProcess> launcher;
    bool _ready = false;
};

}  // namespace tsl::test
