#include "TslStream/Runtime/MainActor.h"

#include <asio/executor_work_guard.hpp>

#include <algorithm>
#include <atomic>
#include <stdexcept>

namespace tsl {
namespace {

std::atomic<MainActor*> gLive{nullptr};

}  // namespace

MainActor::MainActor() : _context(std::make_unique<asio::io_context>(1)), _owner(std::this_thread::get_id()) {
    MainActor* none = nullptr;
    if (!gLive.compare_exchange_strong(none, this)) throw std::logic_error("a main actor already exists");
    detail::wakeThroughReactor(*_context);
}

MainActor::~MainActor() {
    _context.reset();
    gLive.store(nullptr);
}

MainActor& MainActor::current() {
    MainActor* live = gLive.load();
    if (!live) throw std::logic_error("no main actor");
    return *live;
}

bool MainActor::isOnMainThread() {
    MainActor* live = gLive.load();
    return live && live->isOwningThread();
}

void MainActor::requireOwner() const {
    if (!isOwningThread()) throw std::logic_error("the main actor runs on the thread that made it");
}

void MainActor::run() {
    requireOwner();
    auto keepAlive = asio::make_work_guard(*_context);
    _context->restart();
    detail::runToEnd(*_context);
}

bool MainActor::runFor(Duration limit) {
    requireOwner();
    auto deadline = deadlineAfter(limit);
    _context->restart();
    while (!_context->stopped() && std::chrono::steady_clock::now() < deadline) {
        try {
            _context->run_until(deadline);
        } catch (...) {
            detail::logEscaped(std::current_exception());
        }
    }
    return _context->stopped();
}

bool MainActor::runUntil(const std::function<bool()>& done, Duration limit) {
    requireOwner();
    auto deadline = deadlineAfter(limit);
    auto keepAlive = asio::make_work_guard(*_context);
    _context->restart();
    while (!done()) {
        auto now = std::chrono::steady_clock::now();
        if (now >= deadline) return false;
        try {
            // Wakes now and then, for a condition that another thread sets.
            _context->run_one_until(std::min(deadline, now + std::chrono::milliseconds(5)));
        } catch (...) {
            detail::logEscaped(std::current_exception());
        }
    }
    return true;
}

}  // namespace tsl
