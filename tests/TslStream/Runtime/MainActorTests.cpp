#include "TslStream/Runtime/MainActor.h"
#include "TslStream/Runtime/Timers.h"

#include <gtest/gtest.h>

#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>

#include <stdexcept>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using namespace tsl;

namespace {

constexpr auto kLimit = 20s;

struct TestError : Error {
    using Error::Error;
};

asio::awaitable<void> yield() {
    co_await asio::post(co_await asio::this_coro::executor, asio::use_awaitable);
}

}  // namespace

TEST(MainActor, RunsJobsInPostingOrderOnItsOwnThread) {
    EXPECT_THROW(MainActor::current(), std::logic_error);
    MainActor main;
    EXPECT_EQ(&MainActor::current(), &main);
    EXPECT_THROW(MainActor second, std::logic_error);
    EXPECT_TRUE(MainActor::isOnMainThread());

    std::vector<int> ours, theirs;
    bool alwaysOnMain = true;
    std::jthread poster([&] {
        EXPECT_FALSE(MainActor::isOnMainThread());
        for (int i = 0; i < 500; ++i) main.post([&, i] { theirs.push_back(i); });
    });
    for (int i = 0; i < 500; ++i)
        main.post([&, i] {
            ours.push_back(i);
            alwaysOnMain = alwaysOnMain && MainActor::isOnMainThread();
            if (i == 10) throw TestError("escaped");  // logged; the loop goes on
        });
    poster.join();
    EXPECT_TRUE(main.runFor(kLimit));
    ASSERT_EQ(ours.size(), 500u);
    ASSERT_EQ(theirs.size(), 500u);
    for (int i = 0; i < 500; ++i) {
        EXPECT_EQ(ours[i], i);
        EXPECT_EQ(theirs[i], i);
    }
    EXPECT_TRUE(alwaysOnMain);
}

TEST(MainActor, TasksInterleaveOnlyAtTheirAwaits) {
    MainActor main;
    std::vector<std::string> trace;
    auto task = [&](std::string name) -> asio::awaitable<void> {
        for (int i = 0; i < 3; ++i) {
            trace.push_back(name + std::to_string(i));
            co_await yield();
        }
    };
    main.spawn(task("a"));
    main.spawn(task("b"));
    EXPECT_TRUE(trace.empty()) << "a task starts as a job of its own";
    ASSERT_TRUE(main.runFor(kLimit));
    EXPECT_EQ(trace, (std::vector<std::string>{"a0", "b0", "a1", "b1", "a2", "b2"}));

    // While one task sleeps, the next request runs to its end.
    trace.clear();
    main.spawn([&]() -> asio::awaitable<void> {
        trace.push_back("slow starts");
        co_await sleepFor(20ms);
        trace.push_back("slow ends");
    });
    main.spawn([&]() -> asio::awaitable<void> {
        trace.push_back("quick");
        co_return;
    });
    ASSERT_TRUE(main.runFor(kLimit));
    EXPECT_EQ(trace, (std::vector<std::string>{"slow starts", "quick", "slow ends"}));
}

TEST(MainActor, SyncDispatchFromAnyThread) {
    MainActor main;
    std::thread::id mainThread = std::this_thread::get_id();

    // On the main thread, outside and inside the loop: at once, no deadlock.
    EXPECT_EQ(main.sync([] { return 1; }), 1);
    EXPECT_EQ(main.runTask([&]() -> asio::awaitable<int> { co_return main.sync([] { return 2; }); }(), kLimit), 2);

    // From a plain thread: value, void, and the error rethrown there.
    bool finished = false;
    std::jthread plain([&] {
        EXPECT_EQ(main.sync([&] { return std::this_thread::get_id(); }), mainThread);
        int touched = 0;
        main.sync([&] { touched = 3; });
        EXPECT_EQ(touched, 3);
        EXPECT_THROW(main.sync([]() -> int { throw TestError("refused"); }), TestError);
        main.sync([&] { finished = true; });
    });
    EXPECT_TRUE(main.runUntil([&] { return finished; }, kLimit));
}

TEST(MainActor, RunTaskTimesOutOnATaskThatNeverEnds) {
    MainActor main;
    Resumption<void> held;
    try {
        main.runTask(Resumption<void>::suspend([&](auto r) { held = r; }), 10ms);
        ADD_FAILURE();
    } catch (const RuntimeError& e) {
        EXPECT_EQ(e.kind(), RuntimeError::Kind::timedOut);
    }
    // The task is still parked; release it before the main actor goes.
    EXPECT_TRUE(held.resume());
    EXPECT_TRUE(main.runFor(kLimit));
}

TEST(RepeatingTimer, TicksUntilCancelledOrDestroyed) {
    MainActor main;
    int ticks = 0;
    std::unique_ptr<RepeatingTimer> timer;
    timer = std::make_unique<RepeatingTimer>(main.executor(), 1ms, [&] {
        if (++ticks == 5) timer.reset();
    });
    RepeatingTimer other(main.executor(), 1ms, [&] {});
    other.cancel();
    // Runs dry only when neither timer has anything pending.
    EXPECT_TRUE(main.runFor(kLimit));
    EXPECT_EQ(ticks, 5);
    EXPECT_EQ(timer, nullptr);
}
