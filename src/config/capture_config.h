#ifndef LINUX_CAPTURE_CONFIG_CAPTURE_CONFIG_H_
#define LINUX_CAPTURE_CONFIG_CAPTURE_CONFIG_H_

#include <cstdint>
#include <string>
#include <vector>

namespace linux_capture {

// One encoded resolution of the captured picture.
struct VideoBranchConfig {
  std::int32_t branchIndex = 0;  // 0 is the primary, 1 and 2 the secondaries
  std::int32_t width = 0;        // pixels
  std::int32_t height = 0;       // pixels
  std::int32_t fps = 0;
  std::int32_t bitrate = 0;     // bits per second
  std::int32_t minBitrate = 0;  // bits per second
  std::int32_t maxBitrate = 0;  // bits per second

  friend bool operator==(const VideoBranchConfig&,
                         const VideoBranchConfig&) = default;
};

// What the host knows about one recorded PipeWire object. A number that was
// not given is 0, a text that was not given is empty.
struct AudioSourceMetadata {
  std::uint32_t pipeWireTargetObject = 0;
  std::uint32_t pipeWireNodeId = 0;
  std::uint32_t pipeWireObjectSerial = 0;
  std::uint32_t processId = 0;
  std::string applicationName;
  std::string processBinary;
  std::string nodeName;
  std::string mediaName;
  std::string targetObject;

  friend bool operator==(const AudioSourceMetadata&,
                         const AudioSourceMetadata&) = default;
};

// One parsed capture request.
struct CaptureConfig {
  std::string backend = "portal";    // "portal" or "x11"
  std::string kind = "window";       // "window" or "monitor"
  std::uint64_t windowHandle = 0;    // X11 window id
  std::int32_t x = 0;                // left edge of an X11 monitor, pixels
  std::int32_t y = 0;                // top edge of an X11 monitor, pixels
  std::int32_t sourceWidth = 0;      // pixels, 0 while unknown (X11 window)
  std::int32_t sourceHeight = 0;     // pixels, 0 while unknown (X11 window)
  std::int32_t pipeWireFd = -1;      // descriptor of the portal's connection
  std::uint32_t pipeWireNodeId = 0;  // node of the screen-cast stream
  std::int32_t sourceType = 0;       // the portal's number, for reporting
  std::int32_t width = 1920;         // primary branch, pixels
  std::int32_t height = 1080;        // primary branch, pixels
  std::int32_t fps = 60;
  std::int32_t bitrate = 8'000'000;      // bits per second
  std::int32_t minBitrate = 1'000'000;   // bits per second
  std::int32_t maxBitrate = 16'000'000;  // bits per second
  std::int32_t temporalLayerCount = 1;   // 1 to 3
  std::int32_t gopSize = 120;            // frames, 1 to 600
  std::int32_t bFrames = 2;              // 0 to 16
  bool enableCABAC = true;
  bool lowLatencyMode = true;
  std::string encoderRequirement = "allow-degraded";  // or "hardware"
  std::string audioMode = "none";  // or "system", "auto", "process"
  std::vector<std::uint32_t> pipeWireTargetObjects;  // each at least 1
  std::vector<AudioSourceMetadata> audioSources;     // one per target object
  std::string label;                                 // for reporting
  std::string streamId;                              // for reporting
  std::string mappingId;                             // for reporting
  std::int64_t pipeWireSerial = 0;                   // for reporting
  bool restoreTokenUsed = false;                     // for reporting
  bool restoreTokenUpdated = false;                  // for reporting
  std::vector<VideoBranchConfig> branches;           // primary first

  friend bool operator==(const CaptureConfig&, const CaptureConfig&) = default;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_CONFIG_CAPTURE_CONFIG_H_
