#include "addon/session_claim_js.h"

#include "base/mutex.h"

namespace linux_capture {
namespace {

// A leaf: no other mutex is taken under it.
Mutex g_sessionClaimMutex;
napi_env g_sessionClaimOwner GUARDED_BY(g_sessionClaimMutex) = nullptr;

Napi::Value ClaimSession(const Napi::CallbackInfo& info) {
  const bool isWanted = info.Length() < 1 || info[0].ToBoolean().Value();
  if (!isWanted) {
    DropSessionClaimOf(info.Env());
    return Napi::Boolean::New(info.Env(), false);
  }
  bool isTaken = false;
  {
    const MutexLock lock(g_sessionClaimMutex);
    isTaken = g_sessionClaimOwner != nullptr;
    if (!isTaken) g_sessionClaimOwner = info.Env();
  }
  return Napi::Boolean::New(info.Env(), !isTaken);
}

}  // namespace

void OfferSessionClaim(Napi::Env env, Napi::Object captureSetup) {
  const Napi::Symbol key =
      Napi::Symbol::For(env, "linux-capture.session-claim");
  captureSetup.DefineProperty(Napi::PropertyDescriptor::Value(
      key, Napi::Function::New(env, ClaimSession), napi_default));
}

void DropSessionClaimOf(napi_env env) {
  const MutexLock lock(g_sessionClaimMutex);
  if (g_sessionClaimOwner == env) g_sessionClaimOwner = nullptr;
}

}  // namespace linux_capture
