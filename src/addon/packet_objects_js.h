#ifndef LINUX_CAPTURE_ADDON_PACKET_OBJECTS_JS_H_
#define LINUX_CAPTURE_ADDON_PACKET_OBJECTS_JS_H_

#include "addon/js_object_js.h"
#include "delivery/audio_packet.h"
#include "delivery/lifecycle.h"
#include "delivery/video_packet.h"

namespace linux_capture {

// What the three callbacks receive. Payloads are copied: hosts whose V8 has a
// memory cage cannot take external memory.
JsObject LifecycleEventToJs(napi_env env, const LifecycleEvent& event);
JsObject VideoPacketToJs(napi_env env, const VideoPacket& packet);
JsObject AudioPacketToJs(napi_env env, const AudioPacket& packet);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_ADDON_PACKET_OBJECTS_JS_H_
