#include "addon/environment_js.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "addon/session_claim_js.h"
#include "base/mutex.h"
#include "base/no_destroy.h"
#include "delivery/callbacks.h"
#include "session/capture_session.h"

namespace linux_capture {
namespace {

struct EnvironmentRecord {
  napi_env env = nullptr;
  // Never called with a JavaScript function: it exists to hold the event loop
  // and to bring a release from another thread to this environment's own.
  napi_threadsafe_function keepAlive = nullptr;
  bool holdsCapture = false;
};

// Taken with g_controlMutex held at most, never held across a call that waits.
Mutex g_environmentsMutex;
NoDestroy<std::vector<EnvironmentRecord>> g_environments
    GUARDED_BY(g_environmentsMutex);

EnvironmentRecord* FindEnvironment(napi_env env) REQUIRES(g_environmentsMutex) {
  const auto found =
      std::find_if(g_environments->begin(), g_environments->end(),
                   [env](const auto& record) { return record.env == env; });
  return found == g_environments->end() ? nullptr : &*found;
}

// On the environment's thread: brings the event loop in line with the record.
void SyncLoopHold(napi_env env, napi_value /*function*/, void* /*context*/,
                  void* /*data*/) {
  if (env == nullptr) return;
  // The event of a stop by another thread may still be on its way here.
  HoldLoopWhileItemsPend(env);
  const MutexLock lock(g_environmentsMutex);
  const EnvironmentRecord* record = FindEnvironment(env);
  if (record == nullptr || record->keepAlive == nullptr) return;
  if (record->holdsCapture) {
    napi_ref_threadsafe_function(env, record->keepAlive);
  } else {
    napi_unref_threadsafe_function(env, record->keepAlive);
  }
}

// The loop belongs to the environment's thread, which may not be this one.
void AskForSync(const EnvironmentRecord& record) {
  if (record.keepAlive == nullptr) return;
  napi_call_threadsafe_function(record.keepAlive, nullptr,
                                napi_tsfn_nonblocking);
}

bool HoldsCapture(napi_env env) {
  const MutexLock lock(g_environmentsMutex);
  const EnvironmentRecord* record = FindEnvironment(env);
  return record != nullptr && record->holdsCapture;
}

EnvironmentRecord TakeEnvironment(napi_env env) {
  EnvironmentRecord taken;
  const MutexLock lock(g_environmentsMutex);
  if (EnvironmentRecord* record = FindEnvironment(env)) {
    taken = *record;
    std::swap(*record, g_environments->back());
    g_environments->pop_back();
  }
  return taken;
}

void EndEnvironment(void* data) {
  auto* const env = static_cast<napi_env>(data);
  // Callbacks first, so that the teardown's events meet no callback of an
  // environment that cannot run it any more.
  DropCallbacksOf(env);
  if (HoldsCapture(env)) {
    const CallerLock control(g_controlMutex, g_controlCallers);
    // Another environment may have taken it over while this one waited.
    if (HoldsCapture(env)) StopCaptureInternal(kExitPatience);
  }
  const EnvironmentRecord ended = TakeEnvironment(env);
  DropSessionClaimOf(env);
  if (ended.keepAlive != nullptr) {
    napi_release_threadsafe_function(ended.keepAlive, napi_tsfn_abort);
  }
}

napi_threadsafe_function CreateKeepAlive(napi_env env) {
  napi_value name = nullptr;
  napi_threadsafe_function created = nullptr;
  if (napi_create_string_utf8(env, "linux-capture-keep-alive", NAPI_AUTO_LENGTH,
                              &name) != napi_ok ||
      napi_create_threadsafe_function(env, nullptr, nullptr, name, 0, 1,
                                      nullptr, nullptr, nullptr, SyncLoopHold,
                                      &created) != napi_ok) {
    // Untested: only where Node.js is ending the environment.
    return nullptr;
  }
  napi_unref_threadsafe_function(env, created);
  return created;
}

}  // namespace

void RegisterEnvironment(napi_env env) {
  EnvironmentRecord record;
  record.env = env;
  record.keepAlive = CreateKeepAlive(env);
  {
    const MutexLock lock(g_environmentsMutex);
    g_environments->push_back(record);
  }
  napi_add_env_cleanup_hook(env, EndEnvironment, env);
}

void RenewEnvironmentCleanup(napi_env env) {
  napi_remove_env_cleanup_hook(env, EndEnvironment, env);
  napi_add_env_cleanup_hook(env, EndEnvironment, env);
}

void HoldLoopForCapture(napi_env env) {
  {
    const MutexLock lock(g_environmentsMutex);
    for (EnvironmentRecord& record : *g_environments) {
      const bool isHolder = record.env == env;
      // A capture that is taken over lets go of the loop that it held before.
      if (std::exchange(record.holdsCapture, isHolder) && !isHolder) {
        AskForSync(record);
      }
    }
  }
  SyncLoopHold(env, nullptr, nullptr, nullptr);
}

void ReleaseLoopFromCapture() {
  const MutexLock lock(g_environmentsMutex);
  for (EnvironmentRecord& record : *g_environments) {
    if (std::exchange(record.holdsCapture, false)) AskForSync(record);
  }
}

}  // namespace linux_capture
