// The manual run loop that command-line hosts and tests drive by hand.
#include <sagely/MainExecutor.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <thread>
#include <vector>

namespace sagely {
namespace {

using namespace std::chrono_literals;

TEST(ManualExecutorTest, NothingRunsUntilTheOwnerRunsTheQueue) {
    ManualExecutor executor;
    int runs = 0;
    executor.post([&] { ++runs; });
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(executor.runPending(), 1u);
    EXPECT_EQ(runs, 1);
}

TEST(ManualExecutorTest, AnEmptyQueueRunsNothing) {
    ManualExecutor executor;
    EXPECT_EQ(executor.runPending(), 0u);
}

TEST(ManualExecutorTest, WorkRunsInTheOrderItWasPostedIncludingWorkPostedByWork) {
    ManualExecutor executor;
    std::vector<std::string> order;
    executor.post([&] {
        order.push_back("a");
        executor.post([&] { order.push_back("c"); });
    });
    executor.post([&] { order.push_back("b"); });
    EXPECT_EQ(executor.runPending(), 3u);
    EXPECT_EQ(order, (std::vector<std::string>{"a", "b", "c"}));
}

TEST(ManualExecutorTest, WorkRunsOnTheThreadThatDrivesTheQueue) {
    ManualExecutor executor;
    std::thread::id ranOn;
    std::thread poster([&] { executor.post([&] { ranOn = std::this_thread::get_id(); }); });
    poster.join();
    executor.runPending();
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(ManualExecutorTest, RunUntilWaitsForWorkFromOtherThreads) {
    ManualExecutor executor;
    bool done = false;
    std::thread worker([&] {
        std::this_thread::sleep_for(20ms);
        executor.post([&] { done = true; });
    });
    EXPECT_TRUE(executor.runUntil([&] { return done; }, 10s));
    worker.join();
}

TEST(ManualExecutorTest, RunUntilReturnsAtOnceWhenTheConditionAlreadyHolds) {
    ManualExecutor executor;
    int runs = 0;
    executor.post([&] { ++runs; });
    EXPECT_TRUE(executor.runUntil([] { return true; }, 0ms));
    EXPECT_EQ(runs, 1);  // what was queued still ran first
}

TEST(ManualExecutorTest, RunUntilGivesUpAtTheTimeout) {
    ManualExecutor executor;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(executor.runUntil([] { return false; }, 30ms));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
}

TEST(ManualExecutorTest, RunUntilStopsAsSoonAsTheConditionHolds) {
    ManualExecutor executor;
    int runs = 0;
    for (int i = 0; i < 5; ++i) executor.post([&] { ++runs; });
    EXPECT_TRUE(executor.runUntil([&] { return runs >= 1; }, 1s));
    EXPECT_GE(runs, 1);
    executor.runPending();
    EXPECT_EQ(runs, 5);
}

TEST(ManualExecutorTest, RunForRunsWhatArrivesDuringTheTime) {
    ManualExecutor executor;
    std::atomic<bool> posted{false};
    int runs = 0;
    std::thread worker([&] {
        std::this_thread::sleep_for(10ms);
        executor.post([&] { ++runs; });
        posted = true;
    });
    executor.runFor(300ms);
    worker.join();
    ASSERT_TRUE(posted);
    EXPECT_EQ(runs, 1);
}

TEST(ManualExecutorTest, PostingFromManyThreadsKeepsEachThreadsOrder) {
    auto executor = std::make_shared<ManualExecutor>();
    constexpr int kThreads = 4;
    constexpr int kPerThread = 500;
    std::map<int, std::vector<int>> seen;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([executor, &seen, t] {
            for (int i = 0; i < kPerThread; ++i) {
                executor->post([&seen, t, i] { seen[t].push_back(i); });
            }
        });
    }
    int total = 0;
    EXPECT_TRUE(executor->runUntil(
        [&] {
            total = 0;
            for (const auto& [thread, values] : seen) total += static_cast<int>(values.size());
            return total == kThreads * kPerThread;
        },
        10s));
    for (auto& thread : threads) thread.join();
    for (const auto& [thread, values] : seen) {
        ASSERT_EQ(values.size(), static_cast<std::size_t>(kPerThread));
        for (int i = 0; i < kPerThread; ++i) EXPECT_EQ(values[static_cast<std::size_t>(i)], i);
    }
}

TEST(ManualExecutorTest, IsUsableThroughTheExecutorInterface) {
    std::shared_ptr<MainExecutor> executor = std::make_shared<ManualExecutor>();
    bool ran = false;
    executor->post([&] { ran = true; });
    std::static_pointer_cast<ManualExecutor>(executor)->runPending();
    EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace sagely
