#include "delivery/lifecycle.h"

#include <memory>
#include <string>
#include <utility>

#include "delivery/callbacks.h"

namespace linux_capture {
namespace {

// A refused event is dropped silently: nothing counts lifecycle drops.
void QueueLifecycle(LifecycleEvent event) {
  g_lifecycleCallback.Queue(std::make_unique<LifecycleEvent>(std::move(event)));
}

}  // namespace

void EmitLifecycle(std::string_view state, std::string_view reason,
                   std::int32_t width, std::int32_t height) {
  QueueLifecycle({.state = std::string(state),
                  .reason = std::string(reason),
                  .code = {},
                  .width = width,
                  .height = height});
}

void EmitError(std::string_view reason, std::string_view code,
               std::int32_t width, std::int32_t height) {
  QueueLifecycle({.state = "error",
                  .reason = std::string(reason),
                  .code = std::string(code),
                  .width = width,
                  .height = height});
}

}  // namespace linux_capture
