#ifndef LINUX_CAPTURE_DELIVERY_CALLBACKS_H_
#define LINUX_CAPTURE_DELIVERY_CALLBACKS_H_

#include "delivery/callback_queue.h"

namespace linux_capture {

struct AudioPacket;
struct LifecycleEvent;
struct VideoPacket;

// The three callback slots. A slot keeps its registration for the life of the
// environment that registered it.
extern CallbackSlot<LifecycleEvent> g_lifecycleCallback;
extern CallbackSlot<AudioPacket> g_audioCallback;
extern CallbackSlot<VideoPacket> g_fragmentCallback;

// JavaScript thread of `env`: see CallbackQueue.
void HoldLoopWhileItemsPend(napi_env env);
void DropCallbacksOf(napi_env env);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_DELIVERY_CALLBACKS_H_
