#include "TslStream/Runtime/Timers.h"

#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

#include <algorithm>
#include <chrono>

namespace tsl {

asio::awaitable<void> sleepFor(Duration delay) {
    asio::steady_timer timer(co_await asio::this_coro::executor, deadlineAfter(delay));
    co_await timer.async_wait(asio::use_awaitable);
}

struct RepeatingTimer::State : std::enable_shared_from_this<State> {
    asio::steady_timer timer;
    Duration period;
    std::function<void()> tick;
    bool cancelled = false;

    State(asio::any_io_executor executor, Duration p, std::function<void()> t)
        : timer(std::move(executor)), period(std::max(p, Duration(std::chrono::milliseconds(1)))), tick(std::move(t)) {}

    void arm(std::chrono::steady_clock::time_point when) {
        timer.expires_at(when);
        timer.async_wait([self = shared_from_this()](const std::error_code& error) {
            if (error || self->cancelled) return;
            try {
                self->tick();
            } catch (...) {
                detail::logEscaped(std::current_exception());
            }
            if (self->cancelled) return;
            auto next = self->timer.expiry() + self->period;
            auto now = std::chrono::steady_clock::now();
            if (next <= now) next += ((now - next) / self->period + 1) * self->period;
            self->arm(next);
        });
    }
};

RepeatingTimer::RepeatingTimer(asio::any_io_executor executor, Duration period, std::function<void()> tick)
    : _state(std::make_shared<State>(std::move(executor), period, std::move(tick))) {
    _state->arm(deadlineAfter(_state->period));
}

RepeatingTimer::~RepeatingTimer() {
    cancel();
}

void RepeatingTimer::cancel() {
    _state->cancelled = true;
    _state->timer.cancel();
}

}  // namespace tsl
