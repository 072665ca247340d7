#include "base/expendable_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace linux_capture {
namespace {

using std::chrono::milliseconds;

ExpendableThread::Deadline In(milliseconds time) {
  return std::chrono::steady_clock::now() + time;
}

constexpr milliseconds kLong(20'000);

// Waits long enough for anything that is going to happen.
template <typename Condition>
bool Comes(Condition condition) {
  const auto deadline = In(kLong);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

TEST(ExpendableThread, WorkIsDoneInOrderOnOneOtherThread) {
  ExpendableThread thread;
  std::vector<int> order;
  std::thread::id first;
  std::thread::id second;
  thread.Leave([&] { order.push_back(1); });
  EXPECT_TRUE(thread.Do(
      [&] {
        order.push_back(2);
        first = std::this_thread::get_id();
      },
      In(kLong)));
  EXPECT_TRUE(thread.Do(
      [&] {
        order.push_back(3);
        second = std::this_thread::get_id();
      },
      In(kLong)));
  EXPECT_EQ(order, (std::vector{1, 2, 3}));
  EXPECT_EQ(first, second);
  EXPECT_NE(first, std::this_thread::get_id());
  EXPECT_FALSE(thread.IsBehind());
}

TEST(ExpendableThread, WhatWorkThrowsIsPassedOnWithItsType) {
  ExpendableThread thread;
  EXPECT_THROW(thread.Do([] { throw std::out_of_range("told"); }, In(kLong)),
               std::out_of_range);
  thread.Leave([] { throw std::runtime_error("lost"); });
  EXPECT_TRUE(thread.Do([] {}, In(kLong)));
}

TEST(ExpendableThread, WorkThatDoesNotComeBackIsGivenUpAndDoneLater) {
  std::promise<void> release;
  auto released = release.get_future().share();
  auto finished = std::make_shared<std::atomic<int>>(0);
  {
    ExpendableThread thread;
    EXPECT_FALSE(thread.Do(
        [released, finished] {
          released.wait();
          finished->fetch_add(1);
        },
        In(milliseconds(20))));
    EXPECT_TRUE(thread.IsBehind());
    EXPECT_FALSE(thread.Do([finished] { finished->fetch_add(10); },
                           In(milliseconds(0))));
    thread.Leave([finished] { finished->fetch_add(100); });
    // Its end waits for nothing.
  }
  EXPECT_EQ(finished->load(), 0);
  release.set_value();
  EXPECT_TRUE(Comes([&] { return finished->load() == 111; }));
  EXPECT_TRUE(Comes([&] { return finished.use_count() == 1; }));
}

TEST(ExpendableThread, AThreadThatCameBackIsNotBehindAnyMore) {
  std::promise<void> release;
  auto released = release.get_future().share();
  ExpendableThread thread;
  EXPECT_FALSE(
      thread.Do([released] { released.wait(); }, In(milliseconds(10))));
  release.set_value();
  EXPECT_TRUE(Comes([&] { return !thread.IsBehind(); }));
  EXPECT_TRUE(thread.Do([] {}, In(kLong)));
}

TEST(ExpendableThread, AWaitThatIsOverIsGivenUp) {
  std::promise<void> release;
  auto released = release.get_future().share();
  ExpendableThread thread;
  static std::atomic<int> asked{0};
  asked.store(0);
  EXPECT_FALSE(thread.Do([released] { released.wait(); }, In(kLong),
                         [] { return asked.fetch_add(1) == 3; }));
  EXPECT_EQ(asked.load(), 4);
  release.set_value();
  EXPECT_TRUE(thread.Do([] {}, In(kLong), [] { return false; }));
  EXPECT_FALSE(thread.Do([] { std::this_thread::sleep_for(milliseconds(50)); },
                         In(milliseconds(1)), [] { return false; }));
}

TEST(ExpendableThread, WhatWorkOwnsIsGoneWhenItIsDone) {
  ExpendableThread thread;
  auto owned = std::make_shared<int>(1);
  const std::weak_ptr<int> seen = owned;
  EXPECT_TRUE(thread.Do([owned = std::move(owned)] {}, In(kLong)));
  EXPECT_TRUE(seen.expired());
}

TEST(ExpendableThread, AnIdleThreadHasEndedWithItsOwner) {
  std::atomic<bool> isGone{false};
  struct Flag {
    std::atomic<bool>* flag = nullptr;
    ~Flag() { flag->store(true); }
  };
  {
    ExpendableThread thread;
    EXPECT_TRUE(thread.Do(
        [&isGone] {
          static thread_local std::unique_ptr<Flag> atEnd;
          atEnd = std::make_unique<Flag>();
          atEnd->flag = &isGone;
        },
        In(kLong)));
    EXPECT_FALSE(isGone.load());
  }
  EXPECT_TRUE(isGone.load());
}

}  // namespace
}  // namespace linux_capture
