#include "delivery/callback_queue.h"

#include <utility>

namespace linux_capture {

napi_status CallbackQueue::Register(napi_env env, napi_value function,
                                    napi_threadsafe_function_call_js deliver) {
  const MutexLock lock(mutex_);
  if (handle_ != nullptr) {
    napi_release_threadsafe_function(std::exchange(handle_, nullptr),
                                     napi_tsfn_abort);
    pending_ = 0;
  }
  napi_value name = nullptr;
  napi_status status =
      napi_create_string_utf8(env, resourceName_, NAPI_AUTO_LENGTH, &name);
  if (status != napi_ok) return status;
  napi_threadsafe_function created = nullptr;
  status = napi_create_threadsafe_function(env, function, nullptr, name,
                                           maxQueueSize_, 1, nullptr, nullptr,
                                           this, deliver, &created);
  if (status != napi_ok) return status;
  // A host that only registered callbacks must be able to end by itself.
  napi_unref_threadsafe_function(env, created);
  handle_ = created;
  owner_ = env;
  registered_ = true;
  return napi_ok;
}

QueueResult CallbackQueue::TryQueue(void* item) {
  const MutexLock lock(mutex_);
  if (!registered_) return QueueResult::kNoCallback;
  if (handle_ == nullptr) return QueueResult::kRefused;
  const napi_status status =
      napi_call_threadsafe_function(handle_, item, napi_tsfn_nonblocking);
  if (status == napi_ok) {
    // The delivery takes the mutex first, so it cannot overtake the count.
    ++pending_;
    return QueueResult::kAccepted;
  }
  // A closing handle gave up its reference with this answer and must not be
  // touched again.
  if (status == napi_closing) handle_ = nullptr;
  return QueueResult::kRefused;
}

void CallbackQueue::DropEnvironment(napi_env env) {
  const MutexLock lock(mutex_);
  if (owner_ != env) return;
  if (handle_ != nullptr) {
    napi_release_threadsafe_function(std::exchange(handle_, nullptr),
                                     napi_tsfn_abort);
  }
  pending_ = 0;
  owner_ = nullptr;
  registered_ = false;
}

void CallbackQueue::HoldLoopWhilePending(napi_env env) {
  const MutexLock lock(mutex_);
  if (owner_ != env || handle_ == nullptr || pending_ == 0) return;
  napi_ref_threadsafe_function(env, handle_);
}

void CallbackQueue::OnDeliveryBegin(napi_env env) {
  const MutexLock lock(mutex_);
  if (owner_ == env && pending_ != 0) --pending_;
}

void CallbackQueue::OnDeliveryEnd(napi_env env) {
  const MutexLock lock(mutex_);
  if (owner_ != env || handle_ == nullptr || pending_ != 0) return;
  napi_unref_threadsafe_function(env, handle_);
}

std::size_t CallbackQueue::pending() {
  const MutexLock lock(mutex_);
  return pending_;
}

}  // namespace linux_capture
