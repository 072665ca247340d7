#ifndef LINUX_CAPTURE_STATE_CAPTURE_STATE_H_
#define LINUX_CAPTURE_STATE_CAPTURE_STATE_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/gst_handles.h"
#include "base/no_destroy.h"
#include "base/relaxed.h"
#include "config/capture_config.h"
#include "state/encoder_profile.h"
#include "state/provider_probe_report.h"

namespace linux_capture {

// What a video appsink's callback knows of its branch. Freed only after its
// pipeline has reached NULL, when no streaming thread can still use it.
struct VideoSinkContext {
  std::int32_t branchIndex = 0;
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::int32_t fps = 0;
  GstElement* pipeline = nullptr;  // outlives the context, gives the base time
};

// What an audio probe sink's callback knows of its source; same lifetime.
struct AudioProbeSinkContext {
  std::uint64_t sourceIndex = 0;
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

// Serialises setup and stop when several JavaScript threads (the main one and
// workers) have loaded the module. Outermost: taken before g_mutex, never
// under it; no JavaScript runs while it is held.
inline std::mutex g_controlMutex;

// The capture mutex. Everything below that is not atomic is guarded by it. It
// is taken before every other mutex of the module but g_controlMutex. Appsink
// callbacks never take it, so a pipeline may be stopped under it.
inline std::mutex g_mutex;

inline std::atomic<bool> g_isCapturing{false};
inline std::atomic<bool> g_busThreadRunning{false};
inline NoDestroy<std::thread> g_busThread;  // guarded by g_controlMutex

// What a running capture is living through, one of error_code, or null. The bus
// thread writes it.
inline Relaxed<const char*> g_interruption;

inline NoDestroy<CaptureConfig> g_activeVideoConfig;
inline NoDestroy<GstElementPtr> g_videoPipeline;
inline NoDestroy<GstElementPtr> g_audioPipeline;
inline NoDestroy<std::vector<std::unique_ptr<VideoSinkContext>>>
    g_videoSinkContexts;
inline NoDestroy<std::vector<std::unique_ptr<AudioProbeSinkContext>>>
    g_audioProbeSinkContexts;

inline NoDestroy<std::string> g_selectedVideoEncoder;
inline NoDestroy<std::string> g_videoPipelineDescription;
inline NoDestroy<std::string> g_audioPipelineDescription;
inline NoDestroy<std::string> g_lastGstBusError;
inline NoDestroy<EncoderSelection> g_encoderSelection;
inline NoDestroy<GStreamerHardwareEncoderProfile> g_activeHardwareProfile;
inline NoDestroy<std::vector<ProviderProbeReport>> g_providerProbeReports;

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_STATE_CAPTURE_STATE_H_
