#pragma once
#include "TslStream/Runtime/Runtime.h"
#include "TslStream/Runtime/Task.h"

#include <asio/io_context.hpp>
#include <asio/post.hpp>

#include <functional>
#include <utility>

namespace tsl {

// The global default-priority queue: one process-wide pool of threads, named
// "tsl.global", for detached tasks and time-outs. Work on it runs
// concurrently and in no promised order. It starts on first use and is never
// torn down, so the process may exit from any thread, its own included.
// Threading: every function from any thread. Long blocking work belongs on a
// thread of its own, not here, where it would hold up other parts' time-outs.
struct GlobalQueue {
    using Executor = asio::io_context::executor_type;

    static Executor executor();

    template <class F>
    static void post(F&& job) {
        asio::post(executor(), std::forward<F>(job));
    }

    // A detached task on the pool (see spawnDetached).
    template <class F>
    static void spawn(F&& task) {
        spawnDetached(executor(), std::forward<F>(task));
    }

    // Calls fn on the pool once delay has passed. There is no cancelling: a
    // time-out holds its owner weakly and finds nothing to do when the work it
    // guards has finished first.
    static void after(Duration delay, std::function<void()> fn);
};

}  // namespace tsl
