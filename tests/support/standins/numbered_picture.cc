#include "numbered_picture.h"

#include <array>
#include <cstddef>

namespace linux_capture::standins {
namespace {

constexpr std::uint32_t kBlack = 0x000000;
constexpr std::uint32_t kWhite = 0xffffff;
constexpr int kBarcodeBits = 16;

// The layout and the colours that tests/support/picture.mjs reads.
constexpr int kPatchColumns = 4;
constexpr std::array<std::uint32_t, 8> kPatchColours = {
    0xc81e32, 0x1ea03c, 0x2850c8, 0xdcb414,
    0x808080, 0xffffff, 0x000000, 0x20b4b4};

std::uint32_t PatternColour(std::uint16_t number, int x, int y, int width,
                            int height) {
  const int eighth = y * 8 / height;
  if (eighth >= 2) {
    const int patch =
        (eighth / 2 - 1) * kPatchColumns + x * kPatchColumns / width;
    return kPatchColours[static_cast<std::size_t>(patch)];
  }
  const int bit = x * kBarcodeBits / width;
  const bool isSet = ((number >> (kBarcodeBits - 1 - bit)) & 1) != 0;
  return isSet == (eighth == 0) ? kWhite : kBlack;
}

// The same noise on every run.
class Noise {
 public:
  explicit Noise(std::uint16_t seed) : state_(seed + 0x9e3779b9U) {}

  std::uint32_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    const std::uint32_t grey = 96 + (state_ >> 26);
    return grey << 16 | grey << 8 | grey;
  }

 private:
  std::uint32_t state_;
};

}  // namespace

void PaintNumberedPicture(std::uint16_t number, int width, int height,
                          std::span<std::uint32_t> pixels) {
  Noise noise(number);
  auto pixel = pixels.begin();
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      *pixel++ = y < height * 6 / 8 ? PatternColour(number, x, y, width, height)
                                    : noise.Next();
    }
  }
}

}  // namespace linux_capture::standins
