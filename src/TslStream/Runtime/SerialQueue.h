#pragma once
#include <asio/io_context.hpp>
#include <asio/post.hpp>

#include <memory>
#include <string>
#include <utility>

namespace tsl {

// A named serial queue ("tsl.control.send", "tsl.capture", "tsl.input.send"):
// jobs run one at a time, in the order they were posted, on one thread of
// the queue's own, named after the label (cut to 15 bytes). A thread rather
// than a strand over the global pool because these queues do blocking writes,
// and a peer that stops reading must not stall everybody's time-outs.
// Coroutines and timers may run on it too (executor()).
// Threading: post, executor and isCurrent from any thread, but only while the
// queue exists. Destroying it lets the queued jobs run, then ends the thread;
// it waits for that, except when destroyed by a job of its own.
class SerialQueue {
public:
    using Executor = asio::io_context::executor_type;

    explicit SerialQueue(std::string label);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const std::string& label() const { return _label; }
    Executor executor() const;
    bool isCurrent() const;

    template <class F>
    void post(F&& job) {
        asio::post(executor(), std::forward<F>(job));
    }

private:
    struct Worker;
    std::string _label;
    std::shared_ptr<Worker> _worker;
};

}  // namespace tsl
