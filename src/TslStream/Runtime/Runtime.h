#pragma once
#include "TslCore/Support/Error.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace asio { class io_context; }

namespace tsl {

// Time spans of the runtime: waits, time-outs, timer periods.
using Duration = std::chrono::steady_clock::duration;

// A span given in seconds (0.25, 10.0) as a Duration. Negative and NaN become
// zero and anything beyond a century is capped, so no value overflows a timer.
Duration fromSeconds(double seconds);

// now + span, saturated like fromSeconds.
std::chrono::steady_clock::time_point deadlineAfter(Duration span);

// Failures of the runtime itself: a bounded wait that ran out, or a one-shot
// resumption that every holder dropped without completing it.
class RuntimeError : public Error {
public:
    enum class Kind : uint8_t { timedOut, abandoned };

    static RuntimeError timedOut(Duration limit);
    static RuntimeError abandoned();

    Kind kind() const { return _kind; }

private:
    RuntimeError(Kind kind, std::string description) : Error(std::move(description)), _kind(kind) {}
    Kind _kind;
};

// Runs fn and returns what it threw, or null. The catch is over by the time
// the error is returned, so a caller that hands it to another thread keeps no
// reference of its own: libstdc++ counts references where TSan cannot see,
// and a late release here would show as a race with the receiver.
// (A coroutine that co_awaits in its try block does the same by hand.)
template <class F>
std::exception_ptr caughtError(F&& fn) {
    try {
        fn();
    } catch (...) {
        return std::current_exception();
    }
    return nullptr;
}

// Names the calling thread. Linux keeps the first 15 bytes of a name, so a
// longer one is cut there ("tsl.control.send" shows as "tsl.control.sen").
void setThreadName(std::string_view name);
std::string currentThreadName();

namespace detail {

// Logs an error that escaped a detached task, a posted job or a timer tick.
// The loop it came from goes on.
void logEscaped(std::exception_ptr error) noexcept;

// Runs a loop until it runs out of work, logging escaped errors on the way.
void runToEnd(asio::io_context& context);

// Makes a one-thread loop sleep in its reactor, where a post from another
// thread wakes it under the loop's lock. Idle in a condition variable instead,
// the loop would be signalled after that lock is released, and a loop that
// ran the job and was destroyed at once would race with the signal.
void wakeThroughReactor(asio::io_context& context);

}  // namespace detail
}  // namespace tsl
