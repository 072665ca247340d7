#include "support/fake_node_api.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <utility>

// The opaque types of the interface, complete here only.
struct napi_env__ {};
struct napi_value__ {
  std::string text;
};
struct napi_threadsafe_function__ {
  linux_capture::FakeNodeApi::FunctionInfo info;
  napi_env env = nullptr;
  void* context = nullptr;
  napi_threadsafe_function_call_js deliver = nullptr;
  std::deque<void*> queue;
};

namespace linux_capture {
namespace {

struct FakeRuntime {
  std::mutex mutex;  // streaming threads call in
  std::vector<std::unique_ptr<napi_threadsafe_function__>> functions;
  napi_status callAnswer = napi_ok;
  napi_status creationAnswer = napi_ok;
  int callsAfterRelease = 0;
  std::function<void()> duringNextCall;
};

FakeRuntime& Runtime() {
  static FakeRuntime runtime;
  return runtime;
}

struct PendingItem {
  napi_threadsafe_function__* function;
  void* data;
};

std::vector<PendingItem> TakePendingItems() {
  FakeRuntime& runtime = Runtime();
  const std::lock_guard lock(runtime.mutex);
  std::vector<PendingItem> pending;
  for (const auto& function : runtime.functions) {
    for (void* data : function->queue)
      pending.push_back({function.get(), data});
    function->queue.clear();
    function->info.queued = 0;
  }
  return pending;
}

void HandBack(const PendingItem& item) {
  const bool live = !item.function->info.aborted;
  item.function->deliver(live ? item.function->env : nullptr,
                         live ? FakeNodeApi::Function() : nullptr,
                         item.function->context, item.data);
}

}  // namespace

void FakeNodeApi::Reset() {
  FakeRuntime& runtime = Runtime();
  {
    const std::lock_guard lock(runtime.mutex);
    for (const auto& function : runtime.functions) {
      function->info.aborted = true;
    }
  }
  RunLoop();
  const std::lock_guard lock(runtime.mutex);
  runtime.functions.clear();
  runtime.callAnswer = napi_ok;
  runtime.creationAnswer = napi_ok;
  runtime.callsAfterRelease = 0;
}

napi_env FakeNodeApi::Env(int which) {
  static napi_env__ environments[2];
  return &environments[which];
}

napi_value FakeNodeApi::Function() {
  static napi_value__ function;
  return &function;
}

void FakeNodeApi::AnswerCallsWith(napi_status status) {
  const std::lock_guard lock(Runtime().mutex);
  Runtime().callAnswer = status;
}

void FakeNodeApi::DoDuringNextCall(std::function<void()> work) {
  const std::lock_guard lock(Runtime().mutex);
  Runtime().duringNextCall = std::move(work);
}

void FakeNodeApi::FailNextCreation(napi_status status) {
  const std::lock_guard lock(Runtime().mutex);
  Runtime().creationAnswer = status;
}

std::vector<FakeNodeApi::FunctionInfo> FakeNodeApi::Functions() {
  const std::lock_guard lock(Runtime().mutex);
  std::vector<FunctionInfo> infos;
  for (const auto& function : Runtime().functions) {
    infos.push_back(function->info);
  }
  return infos;
}

int FakeNodeApi::CallsAfterRelease() {
  const std::lock_guard lock(Runtime().mutex);
  return Runtime().callsAfterRelease;
}

void FakeNodeApi::RunLoop() {
  for (const PendingItem& item : TakePendingItems()) HandBack(item);
}

}  // namespace linux_capture

using linux_capture::Runtime;

extern "C" {

napi_status NAPI_CDECL napi_create_string_utf8(napi_env /*env*/,
                                               const char* text, size_t length,
                                               napi_value* result) {
  static napi_value__ last;
  last.text = length == NAPI_AUTO_LENGTH ? std::string(text)
                                         : std::string(text, length);
  *result = &last;
  return napi_ok;
}

napi_status NAPI_CDECL napi_create_threadsafe_function(
    napi_env env, napi_value /*function*/, napi_value /*resource*/,
    napi_value resourceName, size_t maxQueueSize, size_t initialThreadCount,
    void* /*finalizeData*/, napi_finalize /*finalize*/, void* context,
    napi_threadsafe_function_call_js deliver,
    napi_threadsafe_function* result) {
  auto& runtime = Runtime();
  const std::lock_guard lock(runtime.mutex);
  if (const napi_status answer = std::exchange(runtime.creationAnswer, napi_ok);
      answer != napi_ok) {
    return answer;
  }
  auto created = std::make_unique<napi_threadsafe_function__>();
  created->info.name = resourceName->text;
  created->info.maxQueueSize = maxQueueSize;
  created->info.initialThreadCount = initialThreadCount;
  created->env = env;
  created->context = context;
  created->deliver = deliver;
  *result = created.get();
  runtime.functions.push_back(std::move(created));
  return napi_ok;
}

napi_status NAPI_CDECL
napi_call_threadsafe_function(napi_threadsafe_function function, void* data,
                              napi_threadsafe_function_call_mode mode) {
  auto& runtime = Runtime();
  std::unique_lock lock(runtime.mutex);
  if (const auto work = std::exchange(runtime.duringNextCall, nullptr)) {
    lock.unlock();
    work();
    lock.lock();
  }
  if (function->info.released) {
    ++runtime.callsAfterRelease;
    return napi_closing;
  }
  // A blocking call would hold up a streaming thread.
  if (mode != napi_tsfn_nonblocking) return napi_invalid_arg;
  if (runtime.callAnswer != napi_ok) {
    // Node.js takes the caller's reference back with this answer.
    if (runtime.callAnswer == napi_closing) function->info.released = true;
    return runtime.callAnswer;
  }
  if (function->info.maxQueueSize != 0 &&
      function->queue.size() >= function->info.maxQueueSize) {
    return napi_queue_full;
  }
  function->queue.push_back(data);
  function->info.queued = function->queue.size();
  return napi_ok;
}

napi_status NAPI_CDECL
napi_release_threadsafe_function(napi_threadsafe_function function,
                                 napi_threadsafe_function_release_mode mode) {
  auto& runtime = Runtime();
  std::unique_lock lock(runtime.mutex);
  if (const auto work = std::exchange(runtime.duringNextCall, nullptr)) {
    lock.unlock();
    work();
    lock.lock();
  }
  if (function->info.released) {
    ++runtime.callsAfterRelease;
    return napi_invalid_arg;
  }
  function->info.released = true;
  if (mode == napi_tsfn_abort) function->info.aborted = true;
  return napi_ok;
}

napi_status NAPI_CDECL napi_ref_threadsafe_function(
    napi_env /*env*/, napi_threadsafe_function function) {
  auto& runtime = Runtime();
  const std::lock_guard lock(runtime.mutex);
  ++function->info.refs;
  return napi_ok;
}

napi_status NAPI_CDECL napi_unref_threadsafe_function(
    napi_env /*env*/, napi_threadsafe_function function) {
  auto& runtime = Runtime();
  const std::lock_guard lock(runtime.mutex);
  ++function->info.unrefs;
  return napi_ok;
}

}  // extern "C"
