#include "delivery/callback_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "delivery/audio_packet.h"
#include "delivery/callbacks.h"
#include "delivery/lifecycle.h"
#include "delivery/video_packet.h"
#include "support/fake_node_api.h"

namespace linux_capture {
namespace {

// Counts how many are alive, to see what the queue frees.
struct Item {
  explicit Item(int itemNumber) : number(itemNumber) { ++g_alive; }
  Item(const Item&) = delete;
  Item& operator=(const Item&) = delete;
  ~Item() { --g_alive; }
  int number;
  static inline std::atomic<int> g_alive = 0;
};

class CallbackQueueTest : public ::testing::Test {
 protected:
  void SetUp() override { FakeNodeApi::Reset(); }
  void TearDown() override {
    slot_.DropEnvironment(FakeNodeApi::Env());
    EXPECT_EQ(FakeNodeApi::CallsAfterRelease(), 0);
    FakeNodeApi::Reset();
    EXPECT_EQ(Item::g_alive, 0);
  }

  QueueResult Queue(int number) {
    return slot_.Queue(std::make_unique<Item>(number));
  }

  static std::vector<int> Numbers(
      const std::vector<std::unique_ptr<Item>>& items) {
    std::vector<int> numbers;
    for (const auto& item : items) numbers.push_back(item->number);
    return numbers;
  }

  CallbackSlot<Item> slot_{"test-slot", 3};
};

TEST_F(CallbackQueueTest, WithoutACallbackItemsAreFreed) {
  EXPECT_EQ(Queue(1), QueueResult::kNoCallback);
  EXPECT_EQ(Item::g_alive, 0);
  EXPECT_EQ(slot_.pending(), 0U);
}

TEST_F(CallbackQueueTest, ItemsAreDeliveredInOrder) {
  FakeListener<Item> listener(slot_);
  EXPECT_EQ(Queue(1), QueueResult::kAccepted);
  EXPECT_EQ(Queue(2), QueueResult::kAccepted);
  EXPECT_EQ(slot_.pending(), 2U);
  EXPECT_EQ(Numbers(listener.Take()), (std::vector<int>{1, 2}));
  EXPECT_EQ(slot_.pending(), 0U);
}

TEST_F(CallbackQueueTest, AFullQueueRefusesAndFreesTheItem) {
  FakeListener<Item> listener(slot_);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Queue(i), QueueResult::kAccepted);
  EXPECT_EQ(Queue(3), QueueResult::kRefused);
  EXPECT_EQ(Item::g_alive, 3);
  EXPECT_EQ(slot_.pending(), 3U);
  EXPECT_EQ(listener.Take().size(), 3U);
  EXPECT_EQ(Queue(4), QueueResult::kAccepted);
  EXPECT_EQ(listener.Take().size(), 1U);
}

TEST_F(CallbackQueueTest, TheFunctionHasTheSlotsNameAndBound) {
  FakeListener<Item> listener(slot_);
  const auto functions = FakeNodeApi::Functions();
  ASSERT_EQ(functions.size(), 1U);
  EXPECT_EQ(functions[0].name, "test-slot");
  EXPECT_EQ(functions[0].maxQueueSize, 3U);
  EXPECT_EQ(functions[0].initialThreadCount, 1U);
}

TEST_F(CallbackQueueTest, ARegisteredCallbackDoesNotHoldTheLoop) {
  FakeListener<Item> listener(slot_);
  EXPECT_EQ(FakeNodeApi::Functions()[0].unrefs, 1);
  slot_.HoldLoopWhilePending(FakeNodeApi::Env());
  EXPECT_EQ(FakeNodeApi::Functions()[0].refs, 0);
}

TEST_F(CallbackQueueTest, PendingItemsHoldTheLoopUntilTheLastIsDelivered) {
  FakeListener<Item> listener(slot_);
  Queue(1);
  Queue(2);
  slot_.HoldLoopWhilePending(FakeNodeApi::Env(1));  // not its environment
  EXPECT_EQ(FakeNodeApi::Functions()[0].refs, 0);
  slot_.HoldLoopWhilePending(FakeNodeApi::Env());
  EXPECT_EQ(FakeNodeApi::Functions()[0].refs, 1);
  EXPECT_EQ(FakeNodeApi::Functions()[0].unrefs, 1);
  EXPECT_EQ(listener.Take().size(), 2U);
  EXPECT_EQ(FakeNodeApi::Functions()[0].unrefs, 2);
}

TEST_F(CallbackQueueTest, ANewCallbackReplacesTheOldOneAndItsItems) {
  FakeListener<Item> listener(slot_);
  Queue(1);
  Queue(2);
  FakeListener<Item> second(slot_);
  EXPECT_TRUE(FakeNodeApi::Functions()[0].aborted);
  EXPECT_EQ(slot_.pending(), 0U);
  EXPECT_EQ(Queue(3), QueueResult::kAccepted);
  EXPECT_EQ(Numbers(second.Take()), std::vector<int>{3});
  EXPECT_EQ(Item::g_alive, 0);
}

TEST_F(CallbackQueueTest, AFailedRegistrationRefusesEveryLaterItem) {
  FakeListener<Item> listener(slot_);
  FakeNodeApi::FailNextCreation(napi_generic_failure);
  FakeListener<Item> failed(slot_);
  EXPECT_EQ(failed.status(), napi_generic_failure);
  EXPECT_TRUE(FakeNodeApi::Functions()[0].released);
  EXPECT_EQ(Queue(1), QueueResult::kRefused);
  EXPECT_EQ(Item::g_alive, 0);
}

TEST_F(CallbackQueueTest, AClosingFunctionIsNotTouchedAgain) {
  FakeListener<Item> listener(slot_);
  FakeNodeApi::AnswerCallsWith(napi_closing);
  EXPECT_EQ(Queue(1), QueueResult::kRefused);
  FakeNodeApi::AnswerCallsWith(napi_ok);
  EXPECT_EQ(Queue(2), QueueResult::kRefused);
  EXPECT_EQ(FakeNodeApi::CallsAfterRelease(), 0);
}

TEST_F(CallbackQueueTest, AnEnvironmentsEndDropsItsCallbackOnly) {
  FakeListener<Item> listener(slot_);
  Queue(1);
  slot_.DropEnvironment(FakeNodeApi::Env(1));
  EXPECT_EQ(Queue(2), QueueResult::kAccepted);
  slot_.DropEnvironment(FakeNodeApi::Env());
  EXPECT_TRUE(FakeNodeApi::Functions()[0].aborted);
  EXPECT_EQ(Queue(3), QueueResult::kNoCallback);
  EXPECT_EQ(slot_.pending(), 0U);
  EXPECT_TRUE(listener.Take().empty());
}

TEST_F(CallbackQueueTest, ProducersMayQueueWhileTheCallbackIsReplaced) {
  std::atomic<bool> running{true};
  std::vector<std::thread> producers;
  std::atomic<int> accepted{0};
  for (int i = 0; i < 3; ++i) {
    producers.emplace_back([&] {
      while (running.load()) {
        if (Queue(7) == QueueResult::kAccepted) ++accepted;
      }
    });
  }
  for (int i = 0; i < 40; ++i) {
    FakeListener<Item> listener(slot_);
    while (accepted.exchange(0) == 0) std::this_thread::yield();
    listener.Take();
  }
  running.store(false);
  for (std::thread& producer : producers) producer.join();
}

TEST(CallbackSlotsTest, EverySlotHasItsNameAndBound) {
  FakeNodeApi::Reset();
  {
    FakeListener<LifecycleEvent> lifecycle(g_lifecycleCallback);
    FakeListener<AudioPacket> audio(g_audioCallback);
    FakeListener<VideoPacket> video(g_fragmentCallback);
    const auto functions = FakeNodeApi::Functions();
    ASSERT_EQ(functions.size(), 3U);
    EXPECT_EQ(functions[0].name, "linux-capture-lifecycle");
    EXPECT_EQ(functions[0].maxQueueSize, 64U);
    EXPECT_EQ(functions[1].name, "linux-audio-samples");
    EXPECT_EQ(functions[1].maxQueueSize, 256U);
    EXPECT_EQ(functions[2].name, "linux-fragment-ready");
    EXPECT_EQ(functions[2].maxQueueSize, 512U);
    DropCallbacksOf(FakeNodeApi::Env());
    for (const auto& function : FakeNodeApi::Functions()) {
      EXPECT_TRUE(function.aborted);
    }
  }
  FakeNodeApi::Reset();
}

TEST(LifecycleTest, EventsCarryTheirTextsAndSize) {
  FakeNodeApi::Reset();
  FakeListener<LifecycleEvent> listener(g_lifecycleCallback);
  EmitLifecycle("ready", "linux-x11-capture-started", 640, 360);
  const auto events = listener.Take();
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0]->state, "ready");
  EXPECT_EQ(events[0]->reason, "linux-x11-capture-started");
  EXPECT_EQ(events[0]->width, 640);
  EXPECT_EQ(events[0]->height, 360);
}

TEST(LifecycleTest, TheSixtyFifthWaitingEventIsDropped) {
  FakeNodeApi::Reset();
  EmitLifecycle("stopped", "nobody listens", 0, 0);
  FakeListener<LifecycleEvent> listener(g_lifecycleCallback);
  for (int i = 0; i < 65; ++i) {
    EmitLifecycle("error", std::to_string(i), 0, 0);
  }
  const auto events = listener.Take();
  ASSERT_EQ(events.size(), 64U);
  EXPECT_EQ(events.front()->reason, "0");
  EXPECT_EQ(events.back()->reason, "63");
}

}  // namespace
}  // namespace linux_capture
