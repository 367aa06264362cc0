#pragma once
#include "TslStream/Runtime/Resumption.h"
#include "TslStream/Runtime/Runtime.h"

#include <asio/awaitable.hpp>
#include <asio/co_spawn.hpp>
#include <asio/post.hpp>

#include <optional>
#include <utility>

namespace tsl {

namespace detail {
struct LogEscapedError {
    void operator()(std::exception_ptr error) const {
        if (error) logEscaped(error);
    }
};
}  // namespace detail

// Starts a task on ex and forgets it: an asio::awaitable<void>, or a callable
// returning one. The task begins later, as a job of its own, never inside this
// call, even when made on ex's own thread. An error escaping it is logged,
// never rethrown.
// Pass the lambda, not lambda(): co_spawn keeps the callable, and with it the
// lambda's captures, alive for the task's life; a called lambda's captures die
// at its first suspension. Coroutines take their parameters by value for the
// same reason. Threading: any thread.
template <class Executor, class F>
void spawnDetached(const Executor& ex, F&& task) {
    asio::post(ex, [ex, task = std::forward<F>(task)]() mutable {
        asio::co_spawn(ex, std::move(task), detail::LogEscapedError{});
    });
}

// Runs a task on ex and blocks the calling plain thread until it ends; gives
// its value or rethrows its error. With a limit, a task that runs longer
// throws RuntimeError::timedOut() here and goes on by itself, its result
// dropped. Never call it on a thread that ex needs (its own loop): that waits
// for nothing until the limit.
template <class T, class Executor>
T runBlocking(const Executor& ex, asio::awaitable<T> task, std::optional<Duration> limit = std::nullopt) {
    return Resumption<T>::block(
        [&](Resumption<T> done) {
            spawnDetached(ex, [done, task = std::move(task)]() mutable -> asio::awaitable<void> {
                std::exception_ptr error;
                try {
                    if constexpr (std::is_void_v<T>) {
                        co_await std::move(task);
                        done.resume();
                    } else {
                        done.resume(co_await std::move(task));
                    }
                } catch (...) {
                    error = std::current_exception();
                }
                // Handed over once the catch is over, as caughtError does.
                if (error) done.fail(std::move(error));
            });
        },
        limit);
}

}  // namespace tsl
