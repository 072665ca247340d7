#include "addon/delivery_js.h"

namespace linux_capture {
namespace {

// An environment that is being terminated refuses to run JavaScript; there is
// nobody left to tell then, and nothing to do.
void RaiseUncaught(napi_env env, napi_status status) {
  if (status == napi_ok || status == napi_cannot_run_js ||
      status == napi_closing) {
    return;
  }
  bool pending = false;
  napi_is_exception_pending(env, &pending);
  napi_value error = nullptr;
  if (pending) {
    if (napi_get_and_clear_last_exception(env, &error) != napi_ok) return;
  } else {
    napi_value message = nullptr;
    if (napi_create_string_utf8(env, "failed to deliver a capture callback",
                                NAPI_AUTO_LENGTH, &message) != napi_ok ||
        napi_create_error(env, nullptr, message, &error) != napi_ok) {
      // Untested: only where Node.js is ending the environment.
      return;
    }
  }
  napi_fatal_exception(env, error);
}

}  // namespace

void CallWithObject(napi_env env, napi_value function, const JsObject& object) {
  napi_status status = object.status();
  napi_value receiver = nullptr;
  if (status == napi_ok) status = napi_get_undefined(env, &receiver);
  if (status == napi_ok) {
    napi_value argument = object.value();
    status = napi_call_function(env, receiver, function, 1, &argument, nullptr);
  }
  RaiseUncaught(env, status);
}

}  // namespace linux_capture
