#ifndef LINUX_CAPTURE_TESTS_UNIT_SUPPORT_FAKE_NODE_API_H_
#define LINUX_CAPTURE_TESTS_UNIT_SUPPORT_FAKE_NODE_API_H_

#include <node_api.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "delivery/callback_queue.h"

namespace linux_capture {

// Stands in for the part of Node-API that the native core calls: thread-safe
// functions with bounded queues. Nothing is delivered before RunLoop().
class FakeNodeApi {
 public:
  FakeNodeApi() = delete;

  struct FunctionInfo {
    std::string name;
    std::size_t maxQueueSize = 0;
    std::size_t initialThreadCount = 0;
    std::size_t queued = 0;
    int refs = 0;
    int unrefs = 0;
    bool released = false;
    bool aborted = false;
  };

  // Discards what is queued and forgets every function.
  static void Reset();

  // Distinct environments: 0 and 1.
  static napi_env Env(int which = 0);
  static napi_value Function();

  // The answer to every later call; napi_ok leaves it to the queue.
  static void AnswerCallsWith(napi_status status);
  // What happens in the middle of the next call, on the thread that makes it.
  static void DoDuringNextCall(std::function<void()> work);
  // The answer to the next creation of a thread-safe function.
  static void FailNextCreation(napi_status status);

  // In order of creation.
  static std::vector<FunctionInfo> Functions();
  // Calls made on a function after its release: must stay 0.
  static int CallsAfterRelease();

  // Delivers what is queued; items of aborted functions are handed back with a
  // null environment, as Node.js does.
  static void RunLoop();
};

// A callback registered in `slot` while this object lives. Items must have a
// slot of their own type, as the module's three have.
template <typename Item>
class FakeListener {
 public:
  explicit FakeListener(CallbackSlot<Item>& slot,
                        napi_env env = FakeNodeApi::Env())
      : slot_(slot), env_(env) {
    g_received.clear();
    status_ = slot_.Register(env_, FakeNodeApi::Function(), Deliver);
  }
  FakeListener(const FakeListener&) = delete;
  FakeListener& operator=(const FakeListener&) = delete;
  ~FakeListener() {
    slot_.DropEnvironment(env_);
    FakeNodeApi::RunLoop();
    g_received.clear();
  }

  [[nodiscard]] napi_status status() const { return status_; }

  // Everything queued so far, in order.
  std::vector<std::unique_ptr<Item>> Take() {
    FakeNodeApi::RunLoop();
    return std::exchange(g_received, {});
  }

 private:
  static void Deliver(napi_env env, napi_value /*function*/, void* context,
                      void* data) {
    std::unique_ptr<Item> item(static_cast<Item*>(data));
    if (env == nullptr) return;
    auto* const queue = static_cast<CallbackQueue*>(context);
    queue->OnDeliveryBegin(env);
    g_received.push_back(std::move(item));
    queue->OnDeliveryEnd(env);
  }

  static inline std::vector<std::unique_ptr<Item>> g_received;
  CallbackSlot<Item>& slot_;
  napi_env env_;
  napi_status status_ = napi_ok;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_TESTS_UNIT_SUPPORT_FAKE_NODE_API_H_
