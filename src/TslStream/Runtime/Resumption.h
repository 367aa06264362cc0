#pragma once
#include "TslStream/Runtime/Runtime.h"

#include <asio/any_io_executor.hpp>
#include <asio/associated_executor.hpp>
#include <asio/async_result.hpp>
#include <asio/awaitable.hpp>
#include <asio/execution/outstanding_work.hpp>
#include <asio/post.hpp>
#include <asio/prefer.hpp>
#include <asio/use_awaitable.hpp>

#include <atomic>
#include <concepts>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <variant>

namespace tsl {

// A one-shot resumption: one waiter (a suspended coroutine, or a blocked plain
// thread) and any number of completers (a reader thread, a timer, a close).
//
// The waiter starts it with suspend() or block(), whose `start` function
// receives the resumption while the waiter is already parked; typically it
// stores it in a map under a lock, and whoever later removes it from the map
// completes it. Copies share one state, and the first completion wins: resume
// and fail return false once it has been completed, so racing completers need
// no agreement of their own, and a time-out that fires late does nothing.
// When the last copy goes without a completion, the waiter gets
// RuntimeError::abandoned().
//
// start runs on the waiter's thread before suspend/block returns control;
// it may hold a lock and may complete the resumption at once (a request on a
// closed channel). On a multi-threaded executor (the global queue) the
// coroutine may resume, and its frame go, before start returns: once the
// resumption is reachable by a completer, start touches only its own locals.
// A coroutine resumes on its own executor (the main actor, a
// serial queue), never on the completing thread and never inside the
// completing call, so completing under a lock cannot re-enter it.
// Threading: every member from any thread; like a shared_ptr, share copies
// rather than one handle object. A pending resumption keeps its waiter's event
// loop from running dry, and must not outlive that loop.
template <class T>
class Resumption {
public:
    using Value = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

    // An empty handle: completing it does nothing and returns false.
    Resumption() = default;

    // Parks the calling coroutine and calls start(resumption); co_await gives
    // the value or throws the error it is completed with. An error thrown by
    // start completes it with that error.
    template <class Start>
    static asio::awaitable<T> suspend(Start start);

    // The same for a plain thread, which blocks. With a limit, a wait that
    // runs out completes the resumption with RuntimeError::timedOut() itself
    // (unless another completion got there first) and throws that.
    template <class Start>
    static T block(Start start, std::optional<Duration> limit = std::nullopt);

    bool resume(Value value) requires(!std::is_void_v<T>) { return complete(nullptr, std::move(value)); }
    bool resume() requires std::is_void_v<T> { return complete(nullptr, Value{}); }
    bool fail(std::exception_ptr error) { return complete(std::move(error), std::nullopt); }
    template <class E>
        requires std::derived_from<std::decay_t<E>, std::exception>
    bool fail(E&& error) { return fail(std::make_exception_ptr(std::forward<E>(error))); }

    // Calls fn and completes with what it returns, or with what it throws.
    template <class F>
    bool resumeWith(F&& fn) {
        bool resumed = false;
        auto error = caughtError([&] {
            if constexpr (std::is_void_v<T>) {
                fn();
                resumed = resume();
            } else {
                resumed = resume(fn());
            }
        });
        return error ? fail(std::move(error)) : resumed;
    }

private:
    struct Sink {
        virtual ~Sink() = default;
        virtual void deliver(std::exception_ptr error, std::optional<Value> value) = 0;
    };

    // What a suspended coroutine is resumed with. The error travels inside a
    // value that is moved along: an exception_ptr handed to Asio's handler as
    // an argument stays alive there while the coroutine runs, and its late
    // release on this thread would race (for TSan) with a waiter elsewhere.
    struct Outcome {
        std::exception_ptr error;
        std::optional<Value> value;
    };

    // Hands the outcome to a suspended coroutine on its executor.
    template <class Handler>
    struct HandlerSink final : Sink {
        Handler handler;
        asio::any_io_executor executor;  // tracked: the waiter's loop stays alive
        explicit HandlerSink(Handler h)
            : handler(std::move(h)),
              executor(asio::prefer(asio::get_associated_executor(handler), asio::execution::outstanding_work.tracked)) {}
        void deliver(std::exception_ptr error, std::optional<Value> value) override {
            // The tracked work goes with the job and ends on the waiter's own
            // thread: a completer never touches the waiter's loop after posting.
            auto target = asio::prefer(executor, asio::execution::outstanding_work.untracked);
            asio::post(target, [h = std::move(handler), work = std::move(executor),
                                outcome = Outcome{std::move(error), std::move(value)}]() mutable {
                std::move(h)(std::move(outcome));
            });
        }
    };

    // Where a blocked thread waits for the outcome.
    struct Parked {
        std::mutex lock;
        std::condition_variable arrived;
        bool done = false;
        std::exception_ptr error;
        std::optional<Value> value;

        bool wait(std::optional<Duration> limit) {
            std::unique_lock guard(lock);
            if (!limit) {
                arrived.wait(guard, [&] { return done; });
                return true;
            }
            return arrived.wait_until(guard, deadlineAfter(*limit), [&] { return done; });
        }

        // Moves the outcome out, so that it ends on the waiting thread.
        T take() {
            std::unique_lock guard(lock);
            auto failure = std::move(error);
            auto result = std::move(value);
            guard.unlock();
            if (failure) std::rethrow_exception(std::move(failure));
            if constexpr (!std::is_void_v<T>) return std::move(*result);
        }
    };

    struct ParkedSink final : Sink {
        std::shared_ptr<Parked> parked;
        explicit ParkedSink(std::shared_ptr<Parked> p) : parked(std::move(p)) {}
        void deliver(std::exception_ptr error, std::optional<Value> value) override {
            {
                std::lock_guard guard(parked->lock);
                parked->error = std::move(error);
                parked->value = std::move(value);
                parked->done = true;
            }
            parked->arrived.notify_all();
        }
    };

    struct State {
        std::atomic<Sink*> sink;
        explicit State(std::unique_ptr<Sink> s) : sink(s.release()) {}
        ~State() {
            if (std::unique_ptr<Sink> s{sink.exchange(nullptr)})
                s->deliver(std::make_exception_ptr(RuntimeError::abandoned()), std::nullopt);
        }
    };

    explicit Resumption(std::unique_ptr<Sink> sink) : _state(std::make_shared<State>(std::move(sink))) {}
    explicit Resumption(std::shared_ptr<State> state) : _state(std::move(state)) {}

    bool complete(std::exception_ptr error, std::optional<Value> value) {
        if (!_state) return false;
        std::unique_ptr<Sink> sink{_state->sink.exchange(nullptr, std::memory_order_acq_rel)};
        if (!sink) return false;
        sink->deliver(std::move(error), std::move(value));
        return true;
    }

    // Calls start with a copy; our own copy is gone before anyone waits, so a
    // start that keeps nothing abandons the wait instead of hanging it.
    template <class Start>
    static void begin(Resumption resumption, Start& start) {
        if (auto error = caughtError([&] { start(resumption); })) resumption.fail(std::move(error));
    }

    std::shared_ptr<State> _state;
};

template <class T>
template <class Start>
asio::awaitable<T> Resumption<T>::suspend(Start start) {
    Outcome outcome = co_await asio::async_initiate<const asio::use_awaitable_t<>&, void(Outcome)>(
        [&start](auto handler) {
            begin(Resumption(std::make_unique<HandlerSink<decltype(handler)>>(std::move(handler))), start);
        },
        asio::use_awaitable);
    if (outcome.error) std::rethrow_exception(std::move(outcome.error));
    if constexpr (!std::is_void_v<T>) co_return std::move(*outcome.value);
}

template <class T>
template <class Start>
T Resumption<T>::block(Start start, std::optional<Duration> limit) {
    auto parked = std::make_shared<Parked>();
    auto state = std::make_shared<State>(std::make_unique<ParkedSink>(parked));
    std::weak_ptr<State> weak = state;
    begin(Resumption(std::move(state)), start);
    if (!parked->wait(limit)) {
        // The time-out competes like any completer; if it loses, the winner's
        // outcome is on its way.
        if (auto alive = weak.lock()) Resumption(std::move(alive)).fail(RuntimeError::timedOut(*limit));
        parked->wait(std::nullopt);
    }
    return parked->take();
}

}  // namespace tsl
