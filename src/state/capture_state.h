#ifndef LINUX_CAPTURE_STATE_CAPTURE_STATE_H_
#define LINUX_CAPTURE_STATE_CAPTURE_STATE_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/capture_mutex.h"
#include "base/gst_handles.h"
#include "base/no_destroy.h"
#include "base/relaxed.h"
#include "config/capture_config.h"
#include "state/delivery_gate.h"
#include "state/encoder_profile.h"
#include "state/provider_probe_report.h"

namespace linux_capture {

// What a video appsink's callback knows of its branch. Freed only after its
// pipeline has reached NULL, when no streaming thread can still use it; a
// pipeline that is given up takes it along.
struct VideoSinkContext {
  std::int32_t branchIndex = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::int32_t fps = 0;
  GstElement* pipeline = nullptr;  // outlives the context, gives the base time
  DeliveryGate gate{};
};

// What the callback of the mixed audio's sink knows; same lifetime.
struct AudioSinkContext {
  GstElement* pipeline = nullptr;  // outlives the context, gives the base time
  DeliveryGate gate{};
};

// What an audio probe sink's callback knows of its source; same lifetime.
struct AudioProbeSinkContext {
  std::uint64_t sourceIndex = 0;
  DeliveryGate gate{};
};

// How the session encodes, as the report shows it. Member defaults are the
// values between a session's reset and its choice of an encoder.
struct EncoderSelection {
  std::string selectedProvider;
  std::string encoderProvider;
  std::string providerTier = "degraded-cpu";
  std::string hardwareParityMode = "none";
  std::string sourceMemoryFeature = "SystemMemory";
  std::string encoderInputMemoryFeature = "SystemMemoryI420";
  std::string temporalMetadataSource = "missing";
  bool isHardwareEncoder = false;
  bool isDegradedCpuFallback = true;
  bool hardwareTransportSatisfied = false;
  bool hardwareSimulcastFpsSatisfied = false;
  bool dmaBufNegotiated = false;
};

inline std::atomic<bool> g_isCapturing{false};
inline std::atomic<bool> g_busThreadRunning{false};
inline NoDestroy<std::thread> g_busThread GUARDED_BY(g_controlMutex);

// What a running capture is living through, one of error_code, or null. The bus
// thread writes it.
inline Relaxed<const char*> g_interruption;

inline NoDestroy<CaptureConfig> g_activeVideoConfig GUARDED_BY(g_mutex);
// The rate of the active configuration, for sample callbacks without a context:
// they must not wait for the capture mutex.
inline Relaxed<std::int32_t> g_activeFps;

inline void SetActiveVideoConfig(const CaptureConfig& config)
    REQUIRES(g_mutex) {
  *g_activeVideoConfig = config;
  g_activeFps.Set(config.fps);
}

inline NoDestroy<GstElementPtr> g_videoPipeline GUARDED_BY(g_mutex);
inline NoDestroy<GstElementPtr> g_audioPipeline GUARDED_BY(g_mutex);
inline NoDestroy<std::vector<std::unique_ptr<VideoSinkContext>>>
    g_videoSinkContexts GUARDED_BY(g_mutex);
inline NoDestroy<std::unique_ptr<AudioSinkContext>> g_audioSinkContext
    GUARDED_BY(g_mutex);
inline NoDestroy<std::vector<std::unique_ptr<AudioProbeSinkContext>>>
    g_audioProbeSinkContexts GUARDED_BY(g_mutex);

inline NoDestroy<std::string> g_selectedVideoEncoder GUARDED_BY(g_mutex);
inline NoDestroy<std::string> g_videoPipelineDescription GUARDED_BY(g_mutex);
inline NoDestroy<std::string> g_audioPipelineDescription GUARDED_BY(g_mutex);
inline NoDestroy<std::string> g_lastGstBusError GUARDED_BY(g_mutex);
inline NoDestroy<EncoderSelection> g_encoderSelection GUARDED_BY(g_mutex);
inline NoDestroy<GStreamerHardwareEncoderProfile> g_activeHardwareProfile
    GUARDED_BY(g_mutex);
inline NoDestroy<std::vector<ProviderProbeReport>> g_providerProbeReports
    GUARDED_BY(g_mutex);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATE_CAPTURE_STATE_H_
