#include "TslStream/Runtime/Runtime.h"

#include "TslStream/Support/Logger.h"

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include <pthread.h>

#include <algorithm>
#include <cstdio>

namespace tsl {
namespace {

constexpr double kMaxSeconds = 100.0 * 365 * 24 * 3600;

}  // namespace

Duration fromSeconds(double seconds) {
    if (!(seconds > 0)) return Duration::zero();
    auto capped = std::chrono::duration<double>(std::min(seconds, kMaxSeconds));
    return std::chrono::duration_cast<Duration>(capped);
}

std::chrono::steady_clock::time_point deadlineAfter(Duration span) {
    return std::chrono::steady_clock::now() + std::clamp(span, Duration::zero(), fromSeconds(kMaxSeconds));
}

RuntimeError RuntimeError::timedOut(Duration limit) {
    char text[64];
    std::snprintf(text, sizeof text, "timed out after %g s", std::chrono::duration<double>(limit).count());
    return RuntimeError(Kind::timedOut, text);
}

RuntimeError RuntimeError::abandoned() {
    return RuntimeError(Kind::abandoned, "abandoned without completion");
}

void setThreadName(std::string_view name) {
    std::string cut(name.substr(0, 15));
    pthread_setname_np(pthread_self(), cut.c_str());
}

std::string currentThreadName() {
    char name[16] = {};
    pthread_getname_np(pthread_self(), name, sizeof name);
    return name;
}

namespace detail {

void logEscaped(std::exception_ptr error) noexcept {
    static const Logger log{"com.tessel.stream", "runtime"};
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        log.fault("task failed: %{public}s", e.what());
    } catch (...) {
        log.fault("task failed: %{public}s", "unknown error");
    }
}

void runToEnd(asio::io_context& context) {
    for (;;) {
        try {
            context.run();
            return;
        } catch (...) {
            logEscaped(std::current_exception());
        }
    }
}

void wakeThroughReactor(asio::io_context& context) {
    // The timer service starts the loop's reactor for good.
    asio::steady_timer starter(context);
}

}  // namespace detail
}  // namespace tsl
