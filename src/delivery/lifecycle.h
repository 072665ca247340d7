#ifndef LINUX_CAPTURE_DELIVERY_LIFECYCLE_H_
#define LINUX_CAPTURE_DELIVERY_LIFECYCLE_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace linux_capture {

// Tells JavaScript that a capture became ready, stopped or failed.
struct LifecycleEvent {
  std::string state;  // "ready", "stopped" or "error"
  std::string reason;
  std::string code;         // of an "error": one of error_code
  std::int32_t width = 0;   // pixels
  std::int32_t height = 0;  // pixels
};

// Queues one event without blocking; callable from any thread. Without a
// callback, or with 64 events already waiting, the event is dropped.
void EmitLifecycle(std::string_view state, std::string_view reason,
                   std::int32_t width, std::int32_t height);

// The same with the state "error".
void EmitError(std::string_view reason, std::string_view code,
               std::int32_t width, std::int32_t height);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_DELIVERY_LIFECYCLE_H_
