#ifndef LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_NUMBERED_FRAME_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_NUMBERED_FRAME_H_

#include <cstdint>
#include <string>

namespace linux_capture::producer {

// Draws the pictures of the X11 scene, number and colour patches, into frames
// of four bytes a pixel.
class NumberedFrame {
 public:
  // Throws std::runtime_error for a format other than BGRx, BGRA, RGBx, RGBA.
  NumberedFrame(std::uint32_t width, std::uint32_t height,
                const std::string& format);

  // `isFlash` whitens the ground below the patches.
  void Draw(std::uint8_t* pixels, std::uint32_t stride, std::uint16_t number,
            bool isFlash) const;

 private:
  struct Target {
    std::uint8_t* pixels;
    std::uint32_t stride;
  };

  [[nodiscard]] std::uint32_t Pixel(std::uint32_t rgb) const;
  void Fill(Target target, std::uint32_t rgb, std::uint32_t left,
            std::uint32_t top, std::uint32_t right, std::uint32_t bottom) const;
  void DrawBarcode(Target target, std::uint16_t number) const;
  void DrawPatches(Target target) const;
  void DrawGround(Target target, std::uint16_t number, bool isFlash) const;

  std::uint32_t width_;
  std::uint32_t height_;
  bool isRedFirst_;
};

}  // namespace linux_capture::producer

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_PRODUCER_NUMBERED_FRAME_H_
