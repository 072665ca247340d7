#include "base/relaxed.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

namespace linux_capture {
namespace {

constexpr std::uint64_t kRounds = 200'000;

template <typename Work>
void OnThreeThreads(Work work) {
  std::vector<std::thread> threads;
  for (std::uint64_t index = 0; index < 3; ++index) {
    threads.emplace_back([=] {
      for (std::uint64_t i = 0; i < kRounds; ++i) work(index, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(RelaxedTest, NoCountIsLostWhenThreadsAddAtOnce) {
  Relaxed<std::uint64_t> counter;
  OnThreeThreads([&](std::uint64_t, std::uint64_t) { counter.Add(1); });
  EXPECT_EQ(counter.Get(), 3 * kRounds);
}

TEST(RelaxedTest, TheHighestOfSeveralThreadsStays) {
  Relaxed<std::uint64_t> highest;
  OnThreeThreads([&](std::uint64_t thread, std::uint64_t i) {
    highest.RaiseTo(i * 3 + thread);
  });
  EXPECT_EQ(highest.Get(), (kRounds - 1) * 3 + 2);
}

TEST(RelaxedTest, OnlyTheFirstOfSeveralThreadsSetsAZero) {
  Relaxed<std::uint64_t> first;
  first.SetIfZero(7);
  OnThreeThreads(
      [&](std::uint64_t thread, std::uint64_t) { first.SetIfZero(thread); });
  EXPECT_EQ(first.Get(), 7U);
}

}  // namespace
}  // namespace linux_capture
