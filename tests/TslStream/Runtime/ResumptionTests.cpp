#include "TslStream/Runtime/GlobalQueue.h"
#include "TslStream/Runtime/MainActor.h"
#include "TslStream/Runtime/Resumption.h"
#include "TslStream/Runtime/SerialQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using namespace tsl;

namespace {

struct ResumptionTestError : Error {
    using Error::Error;
};

constexpr auto resumptionLimit = 20s;

}  // namespace

TEST(Resumption, RacingCompletersResumeTheWaiterExactlyOnce) {
    MainActor main;
    for (int round = 0; round < 200; ++round) {
        std::vector<std::jthread> racers;
        std::atomic<int> wins{0}, winner{-1};
        auto race = [&](Resumption<int> r) {
            for (int i = 0; i < 6; ++i)
                racers.emplace_back([r, i, &wins, &winner]() mutable {
                    if (r.resume(i)) {
                        ++wins;
                        winner = i;
                    }
                });
        };
        auto waiter = [&]() -> asio::awaitable<int> {
            int got = co_await Resumption<int>::suspend(race);
            EXPECT_TRUE(MainActor::isOnMainThread());
            co_return got;
        };
        int got = main.runTask(waiter(), resumptionLimit);
        racers.clear();
        EXPECT_EQ(wins, 1);
        EXPECT_EQ(got, winner);

        // The blocking flavour under the same race.
        wins = 0;
        got = Resumption<int>::block(race, resumptionLimit);
        racers.clear();
        EXPECT_EQ(wins, 1);
        EXPECT_EQ(got, winner);
    }
}

TEST(Resumption, ResumesOnTheWaitersExecutorAfterTheCompleterReturns) {
    MainActor main;
    // Completed from the main actor itself: the waiter must not run inside
    // the completing call.
    Resumption<int> held;
    std::vector<std::string> trace;
    main.spawn([&]() -> asio::awaitable<void> {
        trace.push_back("wait");
        trace.push_back("got " + std::to_string(co_await Resumption<int>::suspend([&](auto r) { held = r; })));
    });
    main.post([&] {
        EXPECT_TRUE(held.resume(7));
        trace.push_back("completer returned");
    });
    ASSERT_TRUE(main.runFor(resumptionLimit));
    EXPECT_EQ(trace, (std::vector<std::string>{"wait", "completer returned", "got 7"}));

    // Completed inside start, as a request on a closed channel is refused.
    EXPECT_THROW(
        main.runTask(Resumption<int>::suspend([](auto r) { r.fail(ResumptionTestError("closed")); }), resumptionLimit),
        ResumptionTestError);

    // A coroutine on a serial queue, completed from this plain thread.
    SerialQueue queue("tsl.test.queue");
    bool onQueue = Resumption<bool>::block(
        [&](Resumption<bool> report) {
            spawnDetached(queue.executor(), [&, report]() mutable -> asio::awaitable<void> {
                co_await Resumption<void>::suspend([&](auto r) { GlobalQueue::post([r]() mutable { r.resume(); }); });
                report.resume(queue.isCurrent());
            });
        },
        resumptionLimit);
    EXPECT_TRUE(onQueue);
}

TEST(Resumption, ErrorsAbandonmentAndTimeLimits) {
    MainActor main;
    try {
        main.runTask(Resumption<int>::suspend([](auto) {}), resumptionLimit);
        ADD_FAILURE() << "a resumption nobody kept must not hang";
    } catch (const RuntimeError& e) {
        EXPECT_EQ(e.kind(), RuntimeError::Kind::abandoned);
    }
    EXPECT_THROW(
        main.runTask(Resumption<int>::suspend([](auto) { throw ResumptionTestError("start"); }), resumptionLimit),
        ResumptionTestError);
    try {
        Resumption<std::string>::block([](auto) {});
        ADD_FAILURE();
    } catch (const RuntimeError& e) {
        EXPECT_EQ(e.kind(), RuntimeError::Kind::abandoned);
    }

    // A bounded wait that runs out is itself the completion: a late one does nothing.
    Resumption<int> late;
    try {
        Resumption<int>::block([&](auto r) { late = r; }, 1ms);
        ADD_FAILURE();
    } catch (const RuntimeError& e) {
        EXPECT_EQ(e.kind(), RuntimeError::Kind::timedOut);
    }
    EXPECT_FALSE(late.resume(1));
    EXPECT_FALSE(late.fail(ResumptionTestError("late")));
    EXPECT_FALSE(Resumption<int>().resume(1));
}

// The request pattern: a waiter parked in a map, and a reply and a time-out
// that each remove it under the lock; whoever removes it owns it.
TEST(Resumption, ReplyAndTimeoutRaceThroughTheMap) {
    MainActor main;
    std::mutex lock;
    std::map<int, Resumption<std::string>> waiters;
    std::atomic<int> completions{0}, completersRun{0};
    auto take = [&](int id) {
        std::lock_guard guard(lock);
        auto node = waiters.extract(id);
        return node ? std::move(node.mapped()) : Resumption<std::string>();
    };
    auto complete = [&](bool won) {
        completions += won;
        ++completersRun;
    };
    auto request = [&](int id, Duration timeout, bool replies) -> asio::awaitable<std::string> {
        co_return co_await Resumption<std::string>::suspend([&, id, timeout, replies](Resumption<std::string> r) {
            {
                std::lock_guard guard(lock);
                waiters.emplace(id, std::move(r));
            }
            if (replies) GlobalQueue::post([&, id] { complete(take(id).resume("reply")); });
            GlobalQueue::after(timeout, [&, id] { complete(take(id).fail(ResumptionTestError("timeout"))); });
        });
    };

    // The reply comes first; the time-out fires later and finds nothing.
    EXPECT_EQ(main.runTask(request(1, 20ms, true), resumptionLimit), "reply");
    ASSERT_TRUE(main.runUntil([&] { return completersRun == 2; }, resumptionLimit));
    EXPECT_EQ(completions, 1);

    // No reply: the time-out completes it.
    completions = completersRun = 0;
    EXPECT_THROW(main.runTask(request(2, 0ms, false), resumptionLimit), ResumptionTestError);
    ASSERT_TRUE(main.runUntil([&] { return completersRun == 1; }, resumptionLimit));
    EXPECT_EQ(completions, 1);

    // Both at once, many times: one of them, never both.
    for (int id = 3; id < 203; ++id) {
        completions = completersRun = 0;
        try {
            EXPECT_EQ(main.runTask(request(id, 0ms, true), resumptionLimit), "reply");
        } catch (const ResumptionTestError& e) {
            EXPECT_STREQ(e.what(), "timeout");
        }
        ASSERT_TRUE(main.runUntil([&] { return completersRun == 2; }, resumptionLimit));
        EXPECT_EQ(completions, 1);
    }
    EXPECT_TRUE(waiters.empty());
}
