#ifndef LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_VIDEO_STREAM_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_VIDEO_STREAM_H_

#include <cstdint>

#include "numbered_frame.h"
#include "producer_options.h"
#include "stream_handles.h"

namespace linux_capture::producer {

// Offers numbered pictures as a screen cast does: a video source that nobody
// needs to link by itself and that sends whenever it likes. Everything runs on
// the loop's thread.
class VideoStream {
 public:
  VideoStream(pw_loop* loop, const ProducerOptions& options);
  VideoStream(const VideoStream&) = delete;
  VideoStream& operator=(const VideoStream&) = delete;
  ~VideoStream();

  void set_active(bool isActive) {
    pw_stream_set_active(stream_.get(), isActive);
  }
  void set_sending(bool isSending) { isSending_ = isSending; }
  void SendOne() { SendFrame(); }
  // Offers pictures of another size from now on, as a resized window does.
  void Reformat(const std::string& format);
  void Resize(std::uint32_t width, std::uint32_t height);
  // Shows the flash at once and for some more pictures, so that a reader that
  // takes only some of them cannot miss it.
  void Flash();
  // Shifts the timestamps of all later frames.
  void Jump(std::int64_t seconds) { shiftNs_ += seconds * 1'000'000'000; }

 private:
  void OfferAnew();
  static void OnStateChanged(void* data, pw_stream_state old,
                             pw_stream_state state, const char* error);
  static void OnParamChanged(void* data, std::uint32_t id,
                             const spa_pod* param);
  static void OnProcess(void* data);
  static void OnTimer(void* data, std::uint64_t expirations);

  void Connect();
  void AnswerFormat();
  void SetTimer(bool isRunning);
  void SendFrame();
  void FillBuffer();

  pw_loop* loop_;
  ProducerOptions options_;
  NumberedFrame frame_;
  std::uint32_t stride_;
  pw_stream_events events_{};
  StreamPtr stream_;
  spa_source* timer_ = nullptr;
  std::uint32_t fps_;
  bool isStreaming_ = false;
  bool isSending_ = true;
  int flashesLeft_ = 0;
  std::int64_t shiftNs_ = 0;
  std::uint64_t sequence_ = 0;
};

}  // namespace linux_capture::producer

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_VIDEO_STREAM_H_
