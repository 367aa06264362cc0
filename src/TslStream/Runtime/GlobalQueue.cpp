#include "TslStream/Runtime/GlobalQueue.h"

#include <asio/executor_work_guard.hpp>
#include <asio/steady_timer.hpp>

#include <algorithm>
#include <memory>
#include <thread>

namespace tsl {
namespace {

struct Pool {
    asio::io_context context;
    asio::executor_work_guard<asio::io_context::executor_type> keepAlive;

    explicit Pool(unsigned threads) : context(int(threads)), keepAlive(context.get_executor()) {
        for (unsigned i = 0; i < threads; ++i) {
            std::thread([this] {
                setThreadName("tsl.global");
                detail::runToEnd(context);
            }).detach();
        }
    }
};

Pool& pool() {
    // Leaked on purpose: pending time-outs and detached threads never meet a
    // destroyed pool at exit.
    static Pool* instance = new Pool(std::max(4u, std::thread::hardware_concurrency()));
    return *instance;
}

}  // namespace

GlobalQueue::Executor GlobalQueue::executor() {
    return pool().context.get_executor();
}

void GlobalQueue::after(Duration delay, std::function<void()> fn) {
    auto timer = std::make_shared<asio::steady_timer>(executor(), deadlineAfter(delay));
    timer->async_wait([timer, fn = std::move(fn)](const std::error_code& error) {
        if (!error) fn();
    });
}

}  // namespace tsl
