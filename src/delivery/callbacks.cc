#include "delivery/callbacks.h"

#include "delivery/audio_packet.h"
#include "delivery/lifecycle.h"
#include "delivery/video_packet.h"

namespace linux_capture {

CallbackSlot<LifecycleEvent> g_lifecycleCallback{"linux-capture-lifecycle", 64};
CallbackSlot<AudioPacket> g_audioCallback{"linux-audio-samples", 256};
CallbackSlot<VideoPacket> g_fragmentCallback{"linux-fragment-ready", 512};

void HoldLoopWhileItemsPend(napi_env env) {
  g_lifecycleCallback.HoldLoopWhilePending(env);
  g_audioCallback.HoldLoopWhilePending(env);
  g_fragmentCallback.HoldLoopWhilePending(env);
}

void DropCallbacksOf(napi_env env) {
  g_lifecycleCallback.DropEnvironment(env);
  g_audioCallback.DropEnvironment(env);
  g_fragmentCallback.DropEnvironment(env);
}

}  // namespace linux_capture
