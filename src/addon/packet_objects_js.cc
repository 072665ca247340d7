#include "addon/packet_objects_js.h"

#include <cstring>

namespace linux_capture {

JsObject LifecycleEventToJs(napi_env env, const LifecycleEvent& event) {
  JsObject object(env);
  object.Text("state", event.state)
      .Text("reason", event.reason)
      .Number("width", event.width)
      .Number("height", event.height);
  if (!event.code.empty()) object.HiddenText("code", event.code);
  return object;
}

JsObject VideoPacketToJs(napi_env env, const VideoPacket& packet) {
  JsObject object(env);
  object.Text("type", "video")
      .With("payload",
            [&](napi_value* out) {
              return napi_create_buffer_copy(env, packet.payload.size(),
                                             packet.payload.data(), nullptr,
                                             out);
            })
      .Number("timestamp", packet.timestampUs)
      .Number("timestampUs", packet.timestampUs)
      .Number("rawPtsUs", packet.rawPtsUs)
      .Number("rawDtsUs", packet.rawDtsUs)
      .Number("durationUs", packet.durationUs)
      .Number("enqueuedAtMs", packet.enqueuedAtMs)
      .Number("width", packet.width)
      .Number("height", packet.height)
      .Number("branchIndex", packet.branchIndex)
      .Number("temporalIndex", packet.temporalIndex)
      .Bool("isKeyFrame", packet.isKeyFrame);
  return object;
}

JsObject AudioPacketToJs(napi_env env, const AudioPacket& packet) {
  JsObject object(env);
  object.Text("type", "pcm")
      .Number("timestampUs", packet.timestampUs)
      .Number("rawPtsUs", packet.rawPtsUs)
      .Number("rawDtsUs", packet.rawDtsUs)
      .Number("durationUs", packet.durationUs)
      .Number("enqueuedAtMs", packet.enqueuedAtMs)
      .Number("channels", packet.channels)
      .Number("sampleRate", packet.sampleRate)
      .Number("sampleCount", static_cast<std::uint64_t>(packet.samples.size()))
      .Number("nonZeroSamples", packet.metering.nonZeroSamples)
      .Number("absoluteSampleSum", packet.metering.absoluteSampleSum)
      .Number("peakAbsoluteSample", packet.metering.peakAbsoluteSample)
      .Number("clippedSamples", packet.metering.clippedSamples)
      .With("samples", [&](napi_value* out) {
        const std::size_t bytes = packet.samples.size() * sizeof(std::int16_t);
        void* data = nullptr;
        napi_value memory = nullptr;
        const napi_status status =
            napi_create_arraybuffer(env, bytes, &data, &memory);
        if (status != napi_ok) return status;
        if (bytes != 0) std::memcpy(data, packet.samples.data(), bytes);
        return napi_create_typedarray(env, napi_int16_array,
                                      packet.samples.size(), memory, 0, out);
      });
  return object;
}

}  // namespace linux_capture
