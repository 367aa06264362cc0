#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/Resumption.h"
#include "TslStream/Runtime/SerialQueue.h"
#include "TslStream/Runtime/Task.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using namespace tsl;

namespace {

constexpr auto queueLimit = 20s;

struct QueueTestError : Error {
    using Error::Error;
};

}  // namespace

TEST(SerialQueue, RunsJobsOneAtATimeInPostingOrder) {
    SerialQueue queue("tsl.control.send");
    EXPECT_FALSE(queue.isCurrent());
    constexpr int posters = 4, perPoster = 300;
    std::vector<std::vector<int>> seen(posters);  // touched by the queue only
    std::atomic<bool> busy{false};
    std::atomic<int> overlaps{0};
    {
        std::vector<std::jthread> threads;
        for (int p = 0; p < posters; ++p)
            threads.emplace_back([&, p] {
                for (int i = 0; i < perPoster; ++i)
                    queue.post([&, p, i] {
                        if (busy.exchange(true)) ++overlaps;
                        seen[p].push_back(i);
                        busy = false;
                    });
            });
    }
    auto [name, current] = Resumption<std::pair<std::string, bool>>::block(
        [&](auto r) { queue.post([&, r]() mutable {
                          r.resume({currentThreadName(), queue.isCurrent()});
                      }); },
        queueLimit);
    EXPECT_EQ(name, "tsl.control.sen");
    EXPECT_TRUE(current);
    EXPECT_EQ(overlaps, 0);
    for (const auto& order : seen) {
        ASSERT_EQ(order.size(), size_t(perPoster));
        for (int i = 0; i < perPoster; ++i) EXPECT_EQ(order[i], i);
    }
}

TEST(SerialQueue, EndsAfterItsQueuedJobsAndMayBeEndedByOne) {
    int ran = 0;
    {
        SerialQueue queue("tsl.test.drain");
        for (int i = 0; i < 100; ++i) queue.post([&] { ++ran; });
    }
    EXPECT_EQ(ran, 100);

    auto queue = std::make_unique<SerialQueue>("tsl.test.self");
    Resumption<void>::block(
        [&](auto r) {
            queue->post([&, r]() mutable {
                queue.reset();
                r.resume();
            });
        },
        queueLimit);
    EXPECT_EQ(queue, nullptr);
}

TEST(GlobalQueue, RunsTimeOutsAndTasksForPlainThreads) {
    auto firedOn = Resumption<std::string>::block(
        [](auto r) { GlobalQueue::after(5ms, [r]() mutable { r.resume(currentThreadName()); }); }, queueLimit);
    EXPECT_EQ(firedOn, "tsl.global");

    auto answer = []() -> asio::awaitable<int> { co_return 42; };
    EXPECT_EQ(runBlocking(GlobalQueue::executor(), answer(), queueLimit), 42);
    auto refuse = []() -> asio::awaitable<void> {
        throw QueueTestError("refused");
        co_return;
    };
    EXPECT_THROW(runBlocking(GlobalQueue::executor(), refuse(), queueLimit), QueueTestError);
    try {
        // Parked for a second, well past the bound; it ends alone, unheard.
        auto parked = Resumption<int>::suspend([](auto r) { GlobalQueue::after(1s, [r] {}); });
        runBlocking(GlobalQueue::executor(), std::move(parked), 10ms);
        ADD_FAILURE() << "a task that outlives its bound must time out";
    } catch (const RuntimeError& e) {
        EXPECT_EQ(e.kind(), RuntimeError::Kind::timedOut);
    }
}
