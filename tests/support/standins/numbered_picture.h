#ifndef LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_NUMBERED_PICTURE_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_NUMBERED_PICTURE_H_

#include <cstdint>
#include <span>

namespace linux_capture::standins {

// Paints picture `number` of a moving scene, one 0xRRGGBB word per pixel: on
// top the number as a barcode with its inverse below, then patches of known
// colours, and in the last quarter noise that changes with every picture, so
// that an encoder finds a use for any bitrate.
void PaintNumberedPicture(std::uint16_t number, int width, int height,
                          std::span<std::uint32_t> pixels);

}  // namespace linux_capture::standins

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_STANDINS_NUMBERED_PICTURE_H_
