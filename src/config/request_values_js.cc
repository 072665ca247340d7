#include "config/request_values_js.h"

#include <string>

#include "base/coded_error.h"

namespace linux_capture {
namespace {

[[noreturn]] void RefuseProperty(const char* key, const char* rule) {
  throw CodedError(error_code::kInvalidRequest, std::string(key) + rule);
}

}  // namespace

Napi::Object GetRequiredObject(const Napi::Object& object, const char* key) {
  const Napi::Value value = object.Get(key);
  if (!value.IsObject()) RefuseProperty(key, " must be an object");
  return value.As<Napi::Object>();
}

std::string GetRequiredString(const Napi::Object& object, const char* key) {
  const Napi::Value value = object.Get(key);
  if (!value.IsString()) RefuseProperty(key, " must be a string");
  return value.As<Napi::String>().Utf8Value();
}

std::int32_t GetRequiredInt(const Napi::Object& object, const char* key) {
  const Napi::Value value = object.Get(key);
  if (!value.IsNumber()) RefuseProperty(key, " must be a number");
  return value.As<Napi::Number>().Int32Value();
}

bool GetRequiredBool(const Napi::Object& object, const char* key) {
  const Napi::Value value = object.Get(key);
  if (!value.IsBoolean()) RefuseProperty(key, " must be a boolean");
  return value.As<Napi::Boolean>().Value();
}

void ReadOptionalString(const Napi::Object& object, const char* key,
                        std::string& field) {
  const Napi::Value value = object.Get(key);
  if (value.IsString()) field = value.As<Napi::String>().Utf8Value();
}

void ReadOptionalUint32(const Napi::Object& object, const char* key,
                        std::uint32_t& field) {
  const Napi::Value value = object.Get(key);
  if (value.IsNumber()) field = value.As<Napi::Number>().Uint32Value();
}

void ReadOptionalInt64(const Napi::Object& object, const char* key,
                       std::int64_t& field) {
  const Napi::Value value = object.Get(key);
  if (value.IsNumber()) field = value.As<Napi::Number>().Int64Value();
}

void ReadOptionalBool(const Napi::Object& object, const char* key,
                      bool& field) {
  const Napi::Value value = object.Get(key);
  if (value.IsBoolean()) field = value.As<Napi::Boolean>().Value();
}

}  // namespace linux_capture
