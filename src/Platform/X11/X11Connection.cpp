#include "Platform/X11/X11Connection.h"

#include <pthread.h>
#include <xcb/composite.h>
#include <xcb/xtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <utility>
#include <vector>

namespace tsl::X11 {
namespace {

constexpr std::string_view wakeAtom = "_TSL_WAKE";

}  // namespace

std::string XError::description() const {
    if (code == 0) return "connection to the X server lost";
    return "X error " + std::to_string(code) + " (request " + std::to_string(majorOpcode) + ", resource " +
           std::to_string(resource) + ")";
}

std::shared_ptr<Connection> Connection::open(const std::string& display) {
    int screenNumber = 0;
    const char* fromEnvironment = std::getenv("DISPLAY");
    const std::string name = display.empty() && fromEnvironment ? fromEnvironment : display;
    xcb_connection_t* c = xcb_connect(name.empty() ? nullptr : name.c_str(), &screenNumber);
    if (xcb_connection_has_error(c)) {
        xcb_disconnect(c);
        throw OpenError("cannot open X display " + (name.empty() ? std::string("(DISPLAY is not set)") : name));
    }
    auto missing = [&](xcb_extension_t* ext) {
        const xcb_query_extension_reply_t* data = xcb_get_extension_data(c, ext);
        return !data || !data->present;
    };
    const char* lacking = missing(&xcb_composite_id) ? "Composite" : missing(&xcb_test_id) ? "XTEST" : nullptr;
    if (lacking) {
        xcb_disconnect(c);
        throw OpenError(std::string("the X server lacks the ") + lacking + " extension");
    }
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(c));
    for (int i = 0; i < screenNumber && it.rem; ++i) xcb_screen_next(&it);
    if (!it.rem) {
        xcb_disconnect(c);
        throw OpenError("the X display has no screen " + std::to_string(screenNumber));
    }
    return std::shared_ptr<Connection>(new Connection(c, it.data->root, name));
}

Connection::Connection(xcb_connection_t* c, xcb_window_t root, std::string display)
    : _c(c), _root(root), _display(std::move(display)) {
    intern({wakeAtom, "WM_STATE", "WM_PROTOCOLS", "WM_DELETE_WINDOW", "WM_CHANGE_STATE", "_NET_WM_PID", "_NET_WM_NAME",
            "UTF8_STRING", "_NET_WM_WINDOW_TYPE", "_NET_WM_STATE", "_NET_WM_STATE_HIDDEN", "_NET_ACTIVE_WINDOW",
            "_NET_SUPPORTING_WM_CHECK", "_NET_MOVERESIZE_WINDOW", "_NET_CLOSE_WINDOW"});
    // Root property changes tell waits about the active window.
    const uint32_t rootMask = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(_c, _root, XCB_CW_EVENT_MASK, &rootMask);
    _wakeWindow = xcb_generate_id(_c);
    xcb_create_window(_c, 0, _wakeWindow, _root, -1, -1, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0,
                      nullptr);
    xcb_flush(_c);
    events = std::thread([this] { readEvents(); });
}

Connection::~Connection() {
    // The event thread sits in xcb_wait_for_event; a message to our own
    // window wakes it.
    xcb_client_message_event_t wake{};
    wake.response_type = XCB_CLIENT_MESSAGE;
    wake.format = 32;
    wake.window = _wakeWindow;
    wake.type = atom(wakeAtom);
    xcb_send_event(_c, 0, _wakeWindow, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char*>(&wake));
    xcb_flush(_c);
    events.join();
    xcb_disconnect(_c);
}

void Connection::readEvents() {
    pthread_setname_np(pthread_self(), "tsl.x11.events");
    const xcb_atom_t wake = atom(wakeAtom);
    while (true) {
        xcb_generic_event_t* event = xcb_wait_for_event(_c);
        bool stop = !event;
        if (event && (event->response_type & 0x7f) == XCB_CLIENT_MESSAGE) {
            auto* message = reinterpret_cast<xcb_client_message_event_t*>(event);
            stop = message->window == _wakeWindow && message->type == wake;
        }
        if (event && !stop) {
            std::lock_guard guard(listenersLock);
            for (auto& [id, listener] : listeners) listener(*event);
        }
        // Errors of requests nobody checked land here too; they only wake waits.
        std::free(event);
        {
            std::lock_guard guard(eventsLock);
            ++eventCount;
            if (stop) reading = false;
        }
        eventArrived.notify_all();
        if (stop) return;
    }
}

uint64_t Connection::listen(Listener listener) {
    std::lock_guard guard(listenersLock);
    listeners.emplace(nextListener, std::move(listener));
    return nextListener++;
}

void Connection::unlisten(uint64_t id) {
    std::lock_guard guard(listenersLock);
    listeners.erase(id);
}

xcb_atom_t Connection::atom(std::string_view name) {
    {
        std::lock_guard guard(atomsLock);
        if (auto it = atoms.find(name); it != atoms.end()) return it->second;
    }
    intern({name});
    std::lock_guard guard(atomsLock);
    auto it = atoms.find(name);
    return it == atoms.end() ? xcb_atom_t(XCB_ATOM_NONE) : it->second;
}

void Connection::intern(std::initializer_list<std::string_view> names) {
    std::vector<std::string_view> missing;
    {
        std::lock_guard guard(atomsLock);
        for (std::string_view n : names)
            if (atoms.find(n) == atoms.end()) missing.push_back(n);
    }
    std::vector<xcb_intern_atom_cookie_t> cookies;
    for (std::string_view n : missing) cookies.push_back(xcb_intern_atom(_c, 0, uint16_t(n.size()), n.data()));
    size_t i = 0;
    for (std::string_view n : missing) {
        auto reply = wait(_c, xcb_intern_atom_reply, cookies[i++]);
        if (!reply) continue;
        std::lock_guard guard(atomsLock);
        atoms[std::string(n)] = reply->atom;
    }
}

bool Connection::roundTrip() { return bool(wait(_c, xcb_get_input_focus_reply, xcb_get_input_focus(_c))); }

std::optional<XError> Connection::check(xcb_void_cookie_t cookie) {
    xcb_generic_error_t* error = xcb_request_check(_c, cookie);
    if (!error) return lost() ? std::optional<XError>(XError{}) : std::nullopt;
    XError value{error->error_code, error->major_code, error->resource_id};
    std::free(error);
    return value;
}

void Connection::watch(xcb_window_t window) {
    xcb_change_window_attributes(_c, window, XCB_CW_EVENT_MASK, &watchedMask);
    xcb_flush(_c);
}

bool Connection::waitUntil(const std::function<bool()>& done, Clock::time_point deadline) {
    while (true) {
        uint64_t seen;
        {
            std::lock_guard guard(eventsLock);
            seen = eventCount;
        }
        if (done()) return true;
        std::unique_lock guard(eventsLock);
        const bool woke = eventArrived.wait_until(guard, deadline, [&] { return eventCount != seen || !reading; });
        if (!woke || !reading) {
            guard.unlock();
            return done();
        }
    }
}

bool Connection::hasWindowManager() {
    const xcb_atom_t check = atom("_NET_SUPPORTING_WM_CHECK");
    auto windowOf = [&](xcb_window_t w) -> xcb_window_t {
        auto reply = wait(_c, xcb_get_property_reply, xcb_get_property(_c, 0, w, check, XCB_ATOM_WINDOW, 0, 1));
        if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 4) return XCB_NONE;
        xcb_window_t value;
        std::memcpy(&value, xcb_get_property_value(reply.get()), 4);
        return value;
    };
    const xcb_window_t named = windowOf(_root);
    // A window manager that died leaves its property behind, naming a window gone.
    return named != XCB_NONE && windowOf(named) == named;
}

std::string Connection::processName(int32_t pid, xcb_window_t window) {
    constexpr size_t remembered = 1024;
    const std::pair<int32_t, uint32_t> key{pid, window & ~xcb_get_setup(_c)->resource_id_mask};
    {
        std::lock_guard guard(namesLock);
        if (auto it = names.find(key); it != names.end()) return it->second;
    }
    std::ifstream in("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(in, name);
    std::lock_guard guard(namesLock);
    if (names.size() >= remembered) names.clear();
    if (!name.empty()) names[key] = name;
    return name;
}

}  // namespace tsl::X11
