#ifndef LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_STREAM_HANDLES_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_STREAM_HANDLES_H_

#include <pipewire/pipewire.h>

#include <cstdint>
#include <ctime>
#include <memory>

// PipeWire's macros, which all includers use, are written in GNU C.
#pragma GCC diagnostic ignored "-Wpedantic"

namespace linux_capture::producer {

struct MainLoopDeleter {
  void operator()(pw_main_loop* loop) const { pw_main_loop_destroy(loop); }
};
struct StreamDeleter {
  void operator()(pw_stream* stream) const { pw_stream_destroy(stream); }
};

using MainLoopPtr = std::unique_ptr<pw_main_loop, MainLoopDeleter>;
using StreamPtr = std::unique_ptr<pw_stream, StreamDeleter>;

inline std::int64_t MonotonicNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

}  // namespace linux_capture::producer

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_STREAM_HANDLES_H_
