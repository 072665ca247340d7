#ifndef LINUX_CAPTURE_PROGRAMS_TARGETS_PIPEWIRE_TARGETS_H_
#define LINUX_CAPTURE_PROGRAMS_TARGETS_PIPEWIRE_TARGETS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "targets/pipewire_listing.h"

namespace linux_capture::targets {

// One stream that an application plays. Texts are empty and numbers 0 where
// the application does not tell.
struct PlayingNode {
  std::uint32_t id = 0;
  std::uint64_t serial = 0;
  std::uint32_t client = 0;
  std::uint32_t processId = 0;
  std::string applicationName;
  std::string processBinary;
  std::string nodeName;
  std::string mediaName;
  // It has a reader and yet does not run: its application holds it.
  bool isPaused = false;
};

// Where sound is heard, or where it comes from: a microphone and the like.
struct Device {
  std::uint64_t serial = 0;
  std::string name;
  std::string description;
  bool isDefault = false;
};

struct PipeWireTargets {
  std::vector<PlayingNode> nodes;  // by serial
  std::vector<Device> sinks;       // by serial
  std::vector<Device> inputs;      // by serial
};

// What the PipeWire daemon of this session has.
PipeWireTargets TargetsOf(const PipeWireListing& listing);

// The nodes of each process together, in the order of their first nodes. Nodes
// whose process is unknown are together by their connection to the daemon.
std::vector<std::vector<PlayingNode>> GroupByProcess(
    const std::vector<PlayingNode>& nodes);

}  // namespace linux_capture::targets

#endif  // LINUX_CAPTURE_PROGRAMS_TARGETS_PIPEWIRE_TARGETS_H_
