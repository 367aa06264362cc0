#pragma once
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tsl::test {

// Counts events from other threads; waits with a deadline so a bug fails
// instead of hanging.
class Waiter {
public:
    void signal() {
        std::lock_guard g(m);
        ++count;
        cv.notify_all();
    }
    bool waitFor(int n, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
        std::unique_lock g(m);
        return cv.wait_for(g, limit, [&] { return count >= n; });
    }
    int value() {
        std::lock_guard g(m);
        return count;
    }

private:
    std::mutex m;
    std::condition_variable cv;
    int count = 0;
};

}  // namespace tsl::test
