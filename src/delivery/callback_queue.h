#ifndef LINUX_CAPTURE_DELIVERY_CALLBACK_QUEUE_H_
#define LINUX_CAPTURE_DELIVERY_CALLBACK_QUEUE_H_

#include <node_api.h>

#include <cstddef>
#include <memory>

#include "base/mutex.h"

namespace linux_capture {

enum class QueueResult {
  kNoCallback,  // nothing is registered
  kAccepted,    // the JavaScript side owns the item now
  kRefused,     // queue full or closing; the item is still the caller's
};

// One registered JavaScript callback with its bounded queue. It guards its
// thread-safe function so that a producer either queues on a live handle or is
// told that it cannot: a handle is never used after its release.
//
// The mutex is held for one non-blocking call into Node-API and nothing else.
// It may be taken while holding the capture mutex or an encoder's mutex, and
// no other mutex of this module is taken under it.
class CallbackQueue {
 public:
  constexpr CallbackQueue(const char* resourceName,
                          std::size_t maxQueueSize) noexcept
      : resourceName_(resourceName), maxQueueSize_(maxQueueSize) {}
  CallbackQueue(const CallbackQueue&) = delete;
  CallbackQueue& operator=(const CallbackQueue&) = delete;
  ~CallbackQueue() = default;

  // JavaScript thread. Replaces the callback; items of the old one that were
  // not delivered yet are discarded. On failure the old callback is gone and
  // every later item is refused.
  napi_status Register(napi_env env, napi_value function,
                       napi_threadsafe_function_call_js deliver);

  // Any thread, never blocks.
  QueueResult TryQueue(void* item);

  // JavaScript thread of `env`, when that environment ends.
  void DropEnvironment(napi_env env);

  // JavaScript thread of `env`. A registered callback does not keep the event
  // loop alive, an accepted item that was not delivered yet does.
  void HoldLoopWhilePending(napi_env env);

  // For the delivery function, around the delivery of one accepted item on the
  // JavaScript thread of `env`. Items that are discarded instead are those of a
  // callback that is gone and were forgotten with it.
  void OnDeliveryBegin(napi_env env);
  void OnDeliveryEnd(napi_env env);

  // Accepted items whose delivery has not begun.
  std::size_t pending();

 private:
  const char* resourceName_;
  std::size_t maxQueueSize_;
  Mutex mutex_;
  bool registered_ GUARDED_BY(mutex_) = false;
  napi_env owner_ GUARDED_BY(mutex_) = nullptr;
  napi_threadsafe_function handle_ GUARDED_BY(mutex_) = nullptr;
  std::size_t pending_ GUARDED_BY(mutex_) = 0;
};

// The typed face of a CallbackQueue: items are owned records.
template <typename Item>
class CallbackSlot : public CallbackQueue {
 public:
  using CallbackQueue::CallbackQueue;

  // Any thread, never blocks. The item is freed unless it was accepted.
  QueueResult Queue(std::unique_ptr<Item> item) {
    const QueueResult result = TryQueue(item.get());
    if (result == QueueResult::kAccepted) {
      // The delivery function has adopted it.
      static_cast<void>(item.release());
    }
    return result;
  }
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_DELIVERY_CALLBACK_QUEUE_H_
