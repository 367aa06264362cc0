#include "TslStream/Runtime/SerialQueue.h"

#include "TslStream/Runtime/Runtime.h"

#include <asio/executor_work_guard.hpp>

#include <optional>
#include <thread>

namespace tsl {

// Shared with the thread, so that a queue destroyed by its own job can leave
// the thread to finish the loop alone.
struct SerialQueue::Worker {
    asio::io_context context{1};
    std::optional<asio::executor_work_guard<asio::io_context::executor_type>> keepAlive{context.get_executor()};
    std::thread thread;
};

SerialQueue::SerialQueue(std::string label) : _label(std::move(label)), _worker(std::make_shared<Worker>()) {
    detail::wakeThroughReactor(_worker->context);
    _worker->thread = std::thread([worker = _worker, name = _label] {
        setThreadName(name);
        detail::runToEnd(worker->context);
    });
}

SerialQueue::~SerialQueue() {
    _worker->keepAlive.reset();
    if (std::this_thread::get_id() == _worker->thread.get_id())
        _worker->thread.detach();
    else
        _worker->thread.join();
}

SerialQueue::Executor SerialQueue::executor() const {
    return _worker->context.get_executor();
}

bool SerialQueue::isCurrent() const {
    return _worker->context.get_executor().running_in_this_thread();
}

}  // namespace tsl
