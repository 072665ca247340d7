#include "numbered_frame.h"

#include <array>
#include <cstring>
#include <stdexcept>

namespace linux_capture::producer {
namespace {

constexpr std::uint32_t kBlack = 0x000000;
constexpr std::uint32_t kWhite = 0xffffff;
constexpr std::uint32_t kGround = 0x404040;
constexpr std::uint32_t kBlock = 0xa0a0a0;
constexpr std::uint32_t kBarcodeBits = 16;

// tests/support/picture.mjs knows the same list.
constexpr std::size_t kPatchRows = 2;
constexpr std::size_t kPatchColumns = 4;
constexpr std::array<std::uint32_t, kPatchRows* kPatchColumns> kPatchColours = {
    0xc81e32, 0x1ea03c, 0x2850c8, 0xdcb414,
    0x808080, 0xffffff, 0x000000, 0x20b4b4};

}  // namespace

NumberedFrame::NumberedFrame(std::uint32_t width, std::uint32_t height,
                             const std::string& format)
    : width_(width),
      height_(height),
      isRedFirst_(format == "RGBx" || format == "RGBA") {
  if (!isRedFirst_ && format != "BGRx" && format != "BGRA") {
    throw std::runtime_error("--format cannot be \"" + format + "\"");
  }
}

// NOLINTNEXTLINE(readability-non-const-parameter): written through a copy.
void NumberedFrame::Draw(std::uint8_t* pixels, std::uint32_t stride,
                         std::uint16_t number, bool isFlash) const {
  const Target target{pixels, stride};
  DrawBarcode(target, number);
  DrawPatches(target);
  DrawGround(target, number, isFlash);
}

// Colours are 0xRRGGBB; in memory the lowest byte comes first.
std::uint32_t NumberedFrame::Pixel(std::uint32_t rgb) const {
  constexpr std::uint32_t kOpaque = 0xff000000;
  if (!isRedFirst_) return kOpaque | rgb;
  return kOpaque | (rgb & 0x00ff00) | (rgb >> 16) | ((rgb & 0xff) << 16);
}

void NumberedFrame::Fill(Target target, std::uint32_t rgb, std::uint32_t left,
                         std::uint32_t top, std::uint32_t right,
                         std::uint32_t bottom) const {
  const std::uint32_t pixel = Pixel(rgb);
  for (std::uint32_t y = top; y < bottom; ++y) {
    std::uint8_t* row =
        target.pixels + static_cast<std::size_t>(y) * target.stride;
    for (std::uint32_t x = left; x < right; ++x) {
      std::memcpy(row + std::size_t{x} * sizeof(pixel), &pixel, sizeof(pixel));
    }
  }
}

void NumberedFrame::DrawBarcode(Target target, std::uint16_t number) const {
  const std::uint32_t rowTwo = height_ / 8;
  const std::uint32_t rowEnd = height_ * 2 / 8;
  for (std::uint32_t bit = 0; bit < kBarcodeBits; ++bit) {
    const bool isSet = ((number >> (kBarcodeBits - 1 - bit)) & 1) != 0;
    const std::uint32_t left = width_ * bit / kBarcodeBits;
    const std::uint32_t right = width_ * (bit + 1) / kBarcodeBits;
    Fill(target, isSet ? kWhite : kBlack, left, 0, right, rowTwo);
    Fill(target, isSet ? kBlack : kWhite, left, rowTwo, right, rowEnd);
  }
}

void NumberedFrame::DrawPatches(Target target) const {
  constexpr std::uint32_t kColumns = kPatchColumns;
  for (std::uint32_t patch = 0; patch < kPatchColours.size(); ++patch) {
    const std::uint32_t column = patch % kColumns;
    const std::uint32_t row = patch / kColumns;
    Fill(target, kPatchColours[patch], width_ * column / kColumns,
         height_ * (2 + 2 * row) / 8, width_ * (column + 1) / kColumns,
         height_ * (4 + 2 * row) / 8);
  }
}

void NumberedFrame::DrawGround(Target target, std::uint16_t number,
                               bool isFlash) const {
  const std::uint32_t top = height_ * 6 / 8;
  Fill(target, isFlash ? kWhite : kGround, 0, top, width_, height_);
  const std::uint32_t side = height_ / 8;
  if (isFlash || side >= width_) return;
  const std::uint32_t step = width_ / 40 + 1;
  const std::uint32_t left = number * step % (width_ - side);
  Fill(target, kBlock, left, top + side / 2, left + side,
       top + side / 2 + side);
}

}  // namespace linux_capture::producer
