#pragma once
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

using AtspiAccessible = struct _AtspiAccessible;
using GMainContext = struct _GMainContext;

namespace tsl::X11 {

// libatspi lives on one thread of its own ("tsl.atspi"), for the process's
// life, since the library itself is process-wide: its bus connection, its
// tables of objects, and its D-Bus dispatch on that thread's main context.
// Every call into it runs there as a job; each call the job makes waits at
// most `callTimeoutMs` for the application.
class AtspiThread {
public:
    static constexpr int callTimeoutMs = 500;

    static AtspiThread& shared();

    // Runs `job` there and waits for it; on that thread, runs it at once.
    void run(const std::function<void()>& job);
    template <class F>
    auto call(F job) -> decltype(job()) {
        std::optional<decltype(job())> out;
        run([&] { out.emplace(job()); });
        return std::move(*out);
    }

    // Inside a job: whether libatspi is connected to an accessibility bus.
    // The connection is made at the first job that finds a bus named in the
    // environment; without one nothing is started, which would otherwise
    // start a session bus of its own for the display.
    bool connect();

    // Drops a reference on the thread, where libatspi's tables are.
    void release(AtspiAccessible* object);

private:
    AtspiThread();
    void loop();
    void post(std::function<void()> job);

    GMainContext* context = nullptr;
    std::thread thread;
    // Jobs pass through our own queue, not GLib's: GLib's locks are futexes
    // that the thread sanitizer cannot see.
    std::mutex lock;
    std::deque<std::function<void()>> jobs;
    int state = 0;  // inside jobs only: 0 not tried, 1 connected, 2 failed
};

}  // namespace tsl::X11
