#ifndef LINUX_CAPTURE_CONFIG_REQUEST_VALUES_JS_H_
#define LINUX_CAPTURE_CONFIG_REQUEST_VALUES_JS_H_

#include <napi.h>

#include <cstdint>
#include <string>

namespace linux_capture {

// Each of these functions reads the property exactly once and judges the very
// value it converts: a getter or a proxy may answer differently the next time.
// An error thrown by the property's own getter passes through unchanged.

// Required properties. A missing one, or one of another type, throws
// CodedError with the bare key and the type it must have.
[[nodiscard]] Napi::Object GetRequiredObject(const Napi::Object& object,
                                             const char* key);
[[nodiscard]] std::string GetRequiredString(const Napi::Object& object,
                                            const char* key);
// Fractions are cut off, numbers beyond 32 bits wrap, NaN and the infinities
// become 0.
[[nodiscard]] std::int32_t GetRequiredInt(const Napi::Object& object,
                                          const char* key);
[[nodiscard]] bool GetRequiredBool(const Napi::Object& object, const char* key);

// Optional properties. One that is missing or of another type leaves the field
// as it is.
void ReadOptionalString(const Napi::Object& object, const char* key,
                        std::string& field);
void ReadOptionalUint32(const Napi::Object& object, const char* key,
                        std::uint32_t& field);
void ReadOptionalInt64(const Napi::Object& object, const char* key,
                       std::int64_t& field);
void ReadOptionalBool(const Napi::Object& object, const char* key, bool& field);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_CONFIG_REQUEST_VALUES_JS_H_
