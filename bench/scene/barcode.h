#ifndef LINUX_CAPTURE_BENCH_SCENE_BARCODE_H_
#define LINUX_CAPTURE_BENCH_SCENE_BARCODE_H_

#include <cstdint>

namespace linux_capture::bench {

// A picture's number as a row of black and white cells that can still be read
// after a lossy encoder: 20 bits of number and 12 check bits, the highest
// first, white for one. bench/lib/barcode.mjs reads the same code.
inline constexpr int kBarcodeCells = 32;
inline constexpr std::uint32_t kNumberLimit = 1U << 20;

// The cells of a number below kNumberLimit. The check bits of no number make
// the row all black or all white, so that a blank picture has no number.
std::uint32_t BarcodeCells(std::uint32_t number);

}  // namespace linux_capture::bench

#endif  // LINUX_CAPTURE_BENCH_SCENE_BARCODE_H_
