#pragma once
#include "TslStream/Runtime/Runtime.h"

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>

#include <functional>
#include <memory>

namespace tsl {

// Suspends the calling coroutine for delay on its own executor; other work on
// that executor (other main-actor tasks, timer ticks) runs meanwhile.
asio::awaitable<void> sleepFor(Duration delay);

// Calls tick every period on one executor (the main actor, a serial queue)
// until cancelled or destroyed. The first tick comes one period after it is
// made; ticks keep to the grid of the start time, and ticks missed while the
// executor was busy are skipped, not bunched up. An error thrown by tick is
// logged and the timer goes on.
// Threading: make, cancel and destroy it on its executor's thread, where tick
// runs. tick holds its owner weakly; cancelling from inside tick is fine.
class RepeatingTimer {
public:
    RepeatingTimer(asio::any_io_executor executor, Duration period, std::function<void()> tick);
    ~RepeatingTimer();
    RepeatingTimer(const RepeatingTimer&) = delete;
    RepeatingTimer& operator=(const RepeatingTimer&) = delete;

    void cancel();

private:
    struct State;
    std::shared_ptr<State> _state;
};

}  // namespace tsl
