#include "delivery/lifecycle.h"

#include <memory>

#include "delivery/callbacks.h"

namespace linux_capture {

void EmitLifecycle(std::string_view state, std::string_view reason,
                   std::int32_t width, std::int32_t height) {
  auto event = std::make_unique<LifecycleEvent>();
  event->state = state;
  event->reason = reason;
  event->width = width;
  event->height = height;
  // A refused event is dropped silently: nothing counts lifecycle drops.
  g_lifecycleCallback.Queue(std::move(event));
}

}  // namespace linux_capture
