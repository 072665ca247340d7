#ifndef LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_H264_STREAM_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_H264_STREAM_H_

#include <gst/video/video.h>
#include <wels/codec_api.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace linux_capture::standins {

// What a stream is encoded with; rates in bits per second.
struct StreamSettings {
  int bitrate = 0;
  int gopSize = 0;
  bool isCabac = false;
  bool hasDelimiters = false;
};

struct AccessUnit {
  std::vector<std::uint8_t> bytes;
  bool isKeyFrame = false;
};

// One H.264 stream of NV12 pictures, encoded by OpenH264.
class H264Stream {
 public:
  // Throws std::runtime_error when the encoder refuses.
  H264Stream(const GstVideoInfo& info, const StreamSettings& settings);
  H264Stream(const H264Stream&) = delete;
  H264Stream& operator=(const H264Stream&) = delete;
  ~H264Stream();

  void SetBitrate(int bitrate);

  [[nodiscard]] AccessUnit Encode(const GstVideoFrame& picture, bool forceKey);

 private:
  struct Deleter {
    void operator()(ISVCEncoder* encoder) const noexcept {
      WelsDestroySVCEncoder(encoder);
    }
  };

  SSourcePicture ToI420(const GstVideoFrame& picture);

  std::unique_ptr<ISVCEncoder, Deleter> encoder_;
  std::vector<std::uint8_t> pixels_;
  int bitrate_;
  bool hasDelimiters_;
};

}  // namespace linux_capture::standins

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_H264_STREAM_H_
