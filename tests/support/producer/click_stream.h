#ifndef LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_CLICK_STREAM_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_CLICK_STREAM_H_

#include <cstdint>
#include <functional>

#include "producer_options.h"
#include "stream_handles.h"

namespace linux_capture::producer {

// Plays silence with a short click every few seconds, or one steady tone. The
// sound is made on PipeWire's data thread, in the very cycle that plays it;
// `onClick` is called on the loop's thread at once when a click has left.
class ClickStream {
 public:
  ClickStream(pw_loop* loop, const ProducerOptions& options,
              std::function<void()> onClick);
  ClickStream(const ClickStream&) = delete;
  ClickStream& operator=(const ClickStream&) = delete;
  ~ClickStream();

  void set_active(bool isActive) {
    pw_stream_set_active(stream_.get(), isActive);
  }

 private:
  static void OnProcess(void* data);
  static void OnClickLeft(void* data, std::uint64_t count);
  void FillBuffer();

  pw_loop* loop_;
  std::function<void()> onClick_;
  spa_source* clickLeft_;
  std::int64_t intervalNs_;
  float toneHertz_;
  std::uint64_t framesPlayed_ = 0;
  std::int64_t nextNs_ = 0;
  pw_stream_events events_{};
  StreamPtr stream_;
};

}  // namespace linux_capture::producer

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_CLICK_STREAM_H_
