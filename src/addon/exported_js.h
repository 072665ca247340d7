#ifndef LINUX_CAPTURE_ADDON_EXPORTED_JS_H_
#define LINUX_CAPTURE_ADDON_EXPORTED_JS_H_

#include <napi.h>

#include <exception>
#include <string>

#include "addon/js_object_js.h"
#include "base/coded_error.h"

namespace linux_capture {

using ExportedBody = Napi::Value (*)(const Napi::CallbackInfo&);

// `error` with its code, as Node.js gives its own errors theirs.
template <typename JsError>
JsError WithCode(JsError error, const char* code) {
  error.Set("code", Napi::String::New(error.Env(), code));
  return error;
}

// What a function throws that was called with the wrong arguments.
inline Napi::TypeError ArgumentError(Napi::Env env,
                                     const std::string& message) {
  return WithCode(Napi::TypeError::New(env, message),
                  error_code::kInvalidArgument);
}

// A std::exception as an Error with its message unchanged, and its code if it
// has one.
inline Napi::Error ToJsError(Napi::Env env, const std::exception& error) {
  Napi::Error thrown = Napi::Error::New(env, error.what());
  const auto* coded = dynamic_cast<const CodedError*>(&error);
  return coded == nullptr ? thrown : WithCode(thrown, coded->code());
}

// The one place where the module's exceptions become JavaScript errors: a
// std::exception becomes an Error, an error that is JavaScript's own passes
// through.
template <ExportedBody Body>
Napi::Value Exported(const Napi::CallbackInfo& info) {
  try {
    return Body(info);
  } catch (const Napi::Error&) {
    throw;
  } catch (const std::exception& error) {
    throw ToJsError(info.Env(), error);
  }
}

// The built object, or the pending JavaScript error.
inline Napi::Value Finish(Napi::Env env, const JsObject& object) {
  if (object.status() != napi_ok) throw Napi::Error::New(env);
  return Napi::Value(env, object.value());
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_ADDON_EXPORTED_JS_H_
