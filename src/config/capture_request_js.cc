#include "config/capture_request_js.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

#include "base/coded_error.h"
#include "config/branch_normalisation.h"
#include "config/linux_audio_request_js.h"
#include "config/request_values_js.h"
#include "config/requested_branches.h"

namespace linux_capture {
namespace {

constexpr double kMaxSafeInteger = 9007199254740991.0;
constexpr std::uint32_t kMaxSecondaryBranches = 2;

void ReadCaptureValues(const Napi::Object& capture, CaptureConfig& config) {
  config.width = GetRequiredInt(capture, "width");
  config.height = GetRequiredInt(capture, "height");
  config.fps = GetRequiredInt(capture, "fps");
  config.bitrate = GetRequiredInt(capture, "bitrate");
  config.minBitrate = GetRequiredInt(capture, "minBitrate");
  config.maxBitrate = GetRequiredInt(capture, "maxBitrate");
  config.temporalLayerCount =
      std::clamp(GetRequiredInt(capture, "temporalLayerCount"), 1, 3);
  config.gopSize = std::clamp(GetRequiredInt(capture, "gopSize"), 1, 600);
  config.bFrames = std::clamp(GetRequiredInt(capture, "bFrames"), 0, 16);
  config.enableCABAC = GetRequiredBool(capture, "enableCABAC");
  config.lowLatencyMode = GetRequiredBool(capture, "lowLatencyMode");
  config.encoderRequirement = GetRequiredString(capture, "encoderRequirement");
  if (config.encoderRequirement != "hardware" &&
      config.encoderRequirement != "allow-degraded") {
    throw CodedError(error_code::kInvalidRequest,
                     "capture.encoderRequirement must be \"hardware\" or "
                     "\"allow-degraded\"");
  }
}

void ReadX11Window(const Napi::Object& source, CaptureConfig& config) {
  const Napi::Value value = source.Get("handle");
  if (!value.IsNumber())
    throw CodedError(error_code::kInvalidRequest, "handle must be a number");
  const double handle = value.As<Napi::Number>().DoubleValue();
  // Written so that NaN fails too.
  const bool isPositiveSafeInteger =
      handle >= 1 && handle <= kMaxSafeInteger && std::trunc(handle) == handle;
  if (!isPositiveSafeInteger) {
    throw CodedError(error_code::kInvalidRequest,
                     "handle must be a positive safe integer");
  }
  config.windowHandle = static_cast<std::uint64_t>(handle);
}

void ReadX11Monitor(const Napi::Object& source, CaptureConfig& config) {
  if (!source.Get("handle").IsNull()) {
    throw CodedError(
        error_code::kInvalidRequest,
        "source.handle must be null for Linux x11 monitor capture");
  }
  const Napi::Object geometry = GetRequiredObject(source, "geometry");
  config.x = GetRequiredInt(geometry, "x");
  config.y = GetRequiredInt(geometry, "y");
  config.sourceWidth = GetRequiredInt(geometry, "width");
  config.sourceHeight = GetRequiredInt(geometry, "height");
  if (config.sourceWidth < 1 || config.sourceHeight < 1) {
    throw CodedError(
        error_code::kInvalidRequest,
        "source.geometry width and height must be positive for Linux x11 "
        "monitor capture");
  }
}

void ReadPortal(const Napi::Object& portal, CaptureConfig& config) {
  config.pipeWireFd = GetRequiredInt(portal, "pipeWireFd");
  config.pipeWireNodeId =
      static_cast<std::uint32_t>(GetRequiredInt(portal, "pipeWireNodeId"));
  config.sourceType = GetRequiredInt(portal, "sourceType");
  const Napi::Object streamSize = GetRequiredObject(portal, "streamSize");
  config.sourceWidth = GetRequiredInt(streamSize, "width");
  config.sourceHeight = GetRequiredInt(streamSize, "height");
  if (config.sourceWidth < 1 || config.sourceHeight < 1) {
    throw CodedError(error_code::kInvalidRequest,
                     "portal.streamSize width and height must be positive");
  }
  ReadOptionalString(portal, "label", config.label);
  ReadOptionalString(portal, "streamId", config.streamId);
  ReadOptionalString(portal, "mappingId", config.mappingId);
  ReadOptionalInt64(portal, "pipeWireSerial", config.pipeWireSerial);
  ReadOptionalBool(portal, "restoreTokenUsed", config.restoreTokenUsed);
  ReadOptionalBool(portal, "restoreTokenUpdated", config.restoreTokenUpdated);
  if (config.pipeWireFd < 0 || config.pipeWireNodeId == 0) {
    throw CodedError(
        error_code::kInvalidRequest,
        "portal.pipeWireFd and portal.pipeWireNodeId are required");
  }
}

void ReadSource(const Napi::Object& request, const Napi::Object& source,
                CaptureConfig& config) {
  if (config.backend == "portal") {
    ReadPortal(GetRequiredObject(request, "portal"), config);
  } else if (config.kind == "window") {
    ReadX11Window(source, config);
  } else {
    ReadX11Monitor(source, config);
  }
}

void ReadAudio(const Napi::Object& request, CaptureConfig& config) {
  const std::string& mode = config.audioMode;
  if (mode == "none") return;
  if (mode != "system" && mode != "auto" && mode != "process") {
    throw CodedError(error_code::kInvalidRequest,
                     "unsupported Linux audio mode: " + mode);
  }
  ParseLinuxAudioConfig(GetRequiredObject(request, "linuxAudio"), mode, config);
}

VideoBranchConfig ReadSecondaryBranch(const Napi::Value& entry,
                                      std::int32_t branchIndex,
                                      std::int32_t captureMinBitrate) {
  if (!entry.IsObject()) {
    throw CodedError(error_code::kInvalidRequest,
                     "capture.topology.branches entries must be objects");
  }
  const auto values = entry.As<Napi::Object>();
  VideoBranchConfig given;
  given.branchIndex = branchIndex;
  given.width = GetRequiredInt(values, "width");
  given.height = GetRequiredInt(values, "height");
  given.fps = GetRequiredInt(values, "fps");
  given.bitrate = GetRequiredInt(values, "bitrate");
  return RequestedSecondaryBranch(given, captureMinBitrate);
}

void ReadTopology(const Napi::Object& topology, CaptureConfig& config) {
  const std::string mode = GetRequiredString(topology, "mode");
  if (mode != "direct" && mode != "topology") {
    throw CodedError(
        error_code::kInvalidRequest,
        "capture.topology.mode must be \"direct\" or \"topology\"");
  }
  config.branches.push_back(RequestedPrimaryBranch(config));
  const Napi::Value value = topology.Get("branches");
  if (!value.IsArray()) {
    throw CodedError(error_code::kInvalidRequest,
                     "capture.topology.branches must be an array");
  }
  if (mode == "direct") return;
  const auto entries = value.As<Napi::Array>();
  const std::uint32_t count = entries.Length();
  if (count > kMaxSecondaryBranches) {
    throw CodedError(
        error_code::kInvalidRequest,
        "Linux Wayland parity supports one primary branch and at most two "
        "secondary branches");
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    config.branches.push_back(ReadSecondaryBranch(
        entries.Get(i), static_cast<std::int32_t>(i + 1), config.minBitrate));
  }
}

}  // namespace

CaptureConfig ParseConfig(const Napi::Value& request) {
  if (!request.IsObject()) {
    throw CodedError(error_code::kInvalidRequest,
                     "captureSetup requires one canonical native capture DTO");
  }
  const auto dto = request.As<Napi::Object>();
  const Napi::Object source = GetRequiredObject(dto, "source");
  const Napi::Object capture = GetRequiredObject(dto, "capture");
  const Napi::Object audio = GetRequiredObject(dto, "audio");

  std::string backend = GetRequiredString(source, "backend");
  if (backend != "portal" && backend != "x11") {
    throw CodedError(
        error_code::kInvalidRequest,
        "Linux native capture requires source.backend to be \"portal\" or "
        "\"x11\"");
  }
  std::string kind = GetRequiredString(source, "kind");
  if (kind != "window" && kind != "monitor") {
    throw CodedError(error_code::kInvalidRequest,
                     "source.kind must be \"window\" or \"monitor\"");
  }
  CaptureConfig config;
  config.backend = std::move(backend);
  config.kind = std::move(kind);
  ReadCaptureValues(capture, config);
  config.audioMode = GetRequiredString(audio, "mode");
  ReadSource(dto, source, config);
  ReadAudio(dto, config);
  ReadTopology(GetRequiredObject(capture, "topology"), config);
  NormaliseBranchesToSource(config);
  return config;
}

}  // namespace linux_capture
