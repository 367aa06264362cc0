#pragma once
#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tsl::X11 {

// An X error as a value: the server's code and the request it answered.
// Code 0 stands for a lost connection.
struct XError {
    uint8_t code = 0;
    uint8_t majorOpcode = 0;
    uint32_t resource = 0;
    std::string description() const;
};

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};

// A reply that xcb allocated, or the error that came instead.
template <class T>
class Reply {
public:
    Reply(T* reply, xcb_generic_error_t* error) : _reply(reply) {
        if (error) {
            _error = XError{error->error_code, error->major_code, error->resource_id};
            std::free(error);
        } else if (!reply) {
            _error = XError{};
        }
    }
    explicit operator bool() const { return bool(_reply); }
    const T* operator->() const { return _reply.get(); }
    const T* get() const { return _reply.get(); }
    const std::optional<XError>& error() const { return _error; }

private:
    std::unique_ptr<T, FreeDeleter> _reply;
    std::optional<XError> _error;
};

// Waits for the reply of `cookie` with xcb's matching reply function.
template <class T, class Cookie>
Reply<T> wait(xcb_connection_t* c, T* (*fn)(xcb_connection_t*, Cookie, xcb_generic_error_t**), Cookie cookie) {
    xcb_generic_error_t* error = nullptr;
    T* reply = fn(c, cookie, &error);
    return Reply<T>(reply, error);
}

}  // namespace tsl::X11
