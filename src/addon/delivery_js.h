#ifndef LINUX_CAPTURE_ADDON_DELIVERY_JS_H_
#define LINUX_CAPTURE_ADDON_DELIVERY_JS_H_

#include <node_api.h>

#include <memory>

#include "addon/js_object_js.h"
#include "delivery/callback_queue.h"

namespace linux_capture {

// Calls `function` with the built object as its only argument and undefined as
// receiver. What the callback throws, and a failure to build or call, becomes
// an uncaught exception of the environment, as in any Node.js callback.
void CallWithObject(napi_env env, napi_value function, const JsObject& object);

// The delivery function of a callback slot: builds the item's object, calls
// the callback, frees the item. With a null `env` the item is discarded.
template <typename Item, JsObject (*Build)(napi_env, const Item&)>
void DeliverItem(napi_env env, napi_value function, void* context, void* data) {
  const std::unique_ptr<Item> item(static_cast<Item*>(data));
  if (env == nullptr || function == nullptr) return;
  auto* const queue = static_cast<CallbackQueue*>(context);
  queue->OnDeliveryBegin(env);
  CallWithObject(env, function, Build(env, *item));
  queue->OnDeliveryEnd(env);
}

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_ADDON_DELIVERY_JS_H_
