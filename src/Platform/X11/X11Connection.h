#pragma once
#include <xcb/xcb.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "Platform/X11/X11Reply.h"
#include "TslCore/Support/Error.h"

namespace tsl::X11 {

// The display could not be used; the text names what is missing.
struct OpenError : Error {
    using Error::Error;
};

// The one connection to an X server that every port of a desktop shares:
// the xcb connection, an atom cache and a thread reading events. xcb is
// thread-safe, so any thread makes requests and waits for replies; the event
// thread only counts events so that waits can be woken by them. Errors come
// back as values; a lost server makes every later call fail, never the
// process exit.
class Connection {
public:
    using Clock = std::chrono::steady_clock;

    // Windows the ports watch get this mask: moves, maps, focus, properties.
    static constexpr uint32_t watchedMask =
        XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_FOCUS_CHANGE | XCB_EVENT_MASK_PROPERTY_CHANGE;

    // Throws OpenError when the display can't be opened or lacks Composite
    // or XTEST. An empty name means $DISPLAY.
    static std::shared_ptr<Connection> open(const std::string& display = {});
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    xcb_connection_t* raw() const { return _c; }
    xcb_window_t root() const { return _root; }
    // The display as opened, for ports that need a connection of their own.
    const std::string& displayName() const { return _display; }
    bool lost() const { return xcb_connection_has_error(_c) != 0; }

    // Interned once per name; XCB_ATOM_NONE when the server can't be asked.
    xcb_atom_t atom(std::string_view name);
    // Interns several names with one round trip.
    void intern(std::initializer_list<std::string_view> names);

    // One round trip: everything sent before has been handled by the server.
    bool roundTrip();
    // Sends a request's error back as a value (waits for the server).
    std::optional<XError> check(xcb_void_cookie_t cookie);
    void flush() { xcb_flush(_c); }

    // Our event mask on someone else's window, so that waits on it wake.
    void watch(xcb_window_t window);
    // Evaluates `done` now and after every event until it holds or the
    // deadline passes; the last evaluation is the answer.
    bool waitUntil(const std::function<bool()>& done, Clock::time_point deadline);

    // Whether an EWMH window manager runs (its check window names itself).
    bool hasWindowManager();

    // Called on the event thread with every event, before waits wake. A
    // listener only records what it needs and returns: it must not wait for
    // the server, nor add or remove listeners. Once `unlisten` returns, the
    // listener is not running and never runs again.
    using Listener = std::function<void(const xcb_generic_event_t&)>;
    uint64_t listen(Listener listener);
    void unlisten(uint64_t id);

    // The command name of the process owning `window`, remembered per X
    // client and pid, as windows are listed often and processes rarely change.
    std::string processName(int32_t pid, xcb_window_t window);

private:
    Connection(xcb_connection_t* c, xcb_window_t root, std::string display);
    void readEvents();

    xcb_connection_t* const _c;
    const xcb_window_t _root;
    const std::string _display;
    xcb_window_t _wakeWindow = 0;

    std::mutex atomsLock;
    std::map<std::string, xcb_atom_t, std::less<>> atoms;

    std::mutex namesLock;
    std::map<std::pair<int32_t, uint32_t>, std::string> names;

    std::mutex listenersLock;
    uint64_t nextListener = 1;
    std::map<uint64_t, Listener> listeners;

    std::mutex eventsLock;
    std::condition_variable eventArrived;
    uint64_t eventCount = 0;
    bool reading = true;
    std::thread events;
};

}  // namespace tsl::X11
