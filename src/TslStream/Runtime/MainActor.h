#pragma once
#include "TslStream/Runtime/Resumption.h"
#include "TslStream/Runtime/Runtime.h"
#include "TslStream/Runtime/Task.h"

#include <asio/io_context.hpp>
#include <asio/post.hpp>

#include <functional>
#include <memory>
#include <thread>
#include <type_traits>
#include <utility>

namespace tsl {

// The main actor: the event loop that the process's main thread runs for the
// process's life. Work on it runs one piece at a time, in the order posted; a
// task that awaits lets other work run until it resumes, so two tasks
// interleave only at their co_awaits. State that belongs to the main actor
// needs no lock, because only its thread touches it.
//
// One main actor exists at a time. The thread that makes it owns it, and only
// that thread runs it: run() in the executable, runFor/runUntil/runTask in
// tests, so that a hang fails instead of blocking.
// Threading: current, isOnMainThread, post, spawn and sync from any thread,
// while the main actor exists; the run functions on the owning thread. It
// outlives every thread and resumption that refers to it (in a test, declare
// it first). Destroying it drops what is still queued; a thread blocked in
// sync then gets RuntimeError::abandoned().
class MainActor {
public:
    using Executor = asio::io_context::executor_type;

    MainActor();  // throws std::logic_error while another one exists
    ~MainActor();
    MainActor(const MainActor&) = delete;
    MainActor& operator=(const MainActor&) = delete;

    // The live main actor; throws std::logic_error when there is none.
    static MainActor& current();
    // True on the owning thread of the live main actor.
    static bool isOnMainThread();

    bool isOwningThread() const { return std::this_thread::get_id() == _owner; }
    Executor executor() const { return _context->get_executor(); }

    template <class F>
    void post(F&& job) {
        asio::post(executor(), std::forward<F>(job));
    }

    // A task on the main actor (see spawnDetached).
    template <class F>
    void spawn(F&& task) {
        spawnDetached(executor(), std::forward<F>(task));
    }

    // Runs fn on the main actor and waits for it: its value, or its error
    // rethrown. On the owning thread it runs fn at once, so a caller that is
    // already there cannot deadlock.
    template <class F>
    std::invoke_result_t<F&> sync(F&& fn);

    // Runs for the process's life.
    void run();
    // Runs until no work is left (true) or the limit has passed (false).
    bool runFor(Duration limit);
    // Runs until done() holds (true) or the limit has passed (false); done is
    // checked between jobs and every few milliseconds, so it may read atomics
    // that other threads set.
    bool runUntil(const std::function<bool()>& done, Duration limit);
    // Spawns task and runs until it ends: its value, or its error rethrown;
    // RuntimeError::timedOut() when the limit passes first.
    template <class T>
    T runTask(asio::awaitable<T> task, Duration limit);

private:
    void requireOwner() const;

    std::unique_ptr<asio::io_context> _context;
    std::thread::id _owner;
};

template <class F>
std::invoke_result_t<F&> MainActor::sync(F&& fn) {
    using R = std::invoke_result_t<F&>;
    if (isOwningThread()) return fn();
    return Resumption<R>::block([&](Resumption<R> done) {
        post([&fn, done]() mutable { done.resumeWith(fn); });
    });
}

template <class T>
T MainActor::runTask(asio::awaitable<T> task, Duration limit) {
    // Shared with the task, which may outlive this call after a time-out.
    struct Outcome {
        bool done = false;
        std::exception_ptr error;
        std::optional<typename Resumption<T>::Value> value;
    };
    auto outcome = std::make_shared<Outcome>();
    spawn([outcome, task = std::move(task)]() mutable -> asio::awaitable<void> {
        try {
            if constexpr (std::is_void_v<T>) {
                co_await std::move(task);
                outcome->value.emplace();
            } else {
                outcome->value.emplace(co_await std::move(task));
            }
        } catch (...) {
            outcome->error = std::current_exception();
        }
        outcome->done = true;
    });
    if (!runUntil([&] { return outcome->done; }, limit)) throw RuntimeError::timedOut(limit);
    if (outcome->error) std::rethrow_exception(outcome->error);
    if constexpr (!std::is_void_v<T>) return std::move(*outcome->value);
}

}  // namespace tsl
