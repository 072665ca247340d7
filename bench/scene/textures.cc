#include "textures.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace linux_capture::bench {
namespace {

constexpr int kLetterWidth = 7;
constexpr int kLetterHeight = 12;
constexpr int kLetterPitch = 9;
constexpr int kLinePitch = 20;
constexpr int kMargin = 24;
constexpr int kLetters = 48;

constexpr std::array<std::uint32_t, 6> kDarkInks = {
    0x202020, 0x7a1fa2, 0x0b57d0, 0x146c2e, 0xb3261e, 0x5f6368};
constexpr std::array<std::uint32_t, 6> kLightInks = {
    0xd4d4d4, 0xc586c0, 0x569cd6, 0x6a9955, 0xce9178, 0x9cdcfe};

// A generator of its own: the standard library's distributions differ from one
// implementation to the next.
class Random {
 public:
  explicit Random(std::uint32_t seed) : state_(seed) {}

  std::uint32_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_;
  }
  int Below(int limit) {
    return static_cast<int>(Next() % static_cast<std::uint32_t>(limit));
  }

 private:
  std::uint32_t state_;
};

using Letter = std::array<std::uint8_t, kLetterHeight>;

// Shapes of strokes, as letters are: two or three lines of two pixels, each
// upright or level.
std::array<Letter, kLetters> MakeLetters() {
  Random random(0x1e77e5);
  std::array<Letter, kLetters> letters{};
  for (Letter& letter : letters) {
    const int strokes = 2 + random.Below(2);
    for (int stroke = 0; stroke < strokes; ++stroke) {
      const int position = random.Below(2) == 0 ? 0 : random.Below(11);
      if (stroke % 2 == 0) {
        const int column = position % (kLetterWidth - 1);
        const auto bits = static_cast<std::uint8_t>(3U << column);
        for (int y = random.Below(4); y < kLetterHeight; ++y) {
          letter[static_cast<std::size_t>(y)] |= bits;
        }
      } else {
        letter[static_cast<std::size_t>(position)] = 0x7f;
        letter[static_cast<std::size_t>(position) + 1] = 0x7f;
      }
    }
  }
  return letters;
}

void DrawLetter(Canvas& canvas, const Letter& letter, int left, int top,
                std::uint32_t ink) {
  for (int y = 0; y < kLetterHeight; ++y) {
    for (int x = 0; x < kLetterWidth; ++x) {
      if (((letter[static_cast<std::size_t>(y)] >> x) & 1) != 0) {
        canvas.Set(left + x, top + y, ink);
      }
    }
  }
}

std::uint32_t Shade(int red, int green, int blue) {
  const auto byte = [](int value) {
    return static_cast<std::uint32_t>(std::clamp(value, 0, 255));
  };
  return byte(red) << 16 | byte(green) << 8 | byte(blue);
}

// 0 to `top` and back again.
int Wave(int position, int top) {
  const int place = position % (2 * top);
  return place <= top ? place : 2 * top - place;
}

}  // namespace

Canvas TextPage(int width, int height, bool isDark) {
  static const std::array<Letter, kLetters> kShapes = MakeLetters();
  const auto& inks = isDark ? kLightInks : kDarkInks;
  Random random(isDark ? 0xdac0de : 0xba9e);
  Canvas page(width, height);
  page.Fill({0, 0, width, height}, isDark ? 0x1e1e1e : 0xffffff);
  for (int y = 4; y + kLetterHeight <= height; y += kLinePitch) {
    const int columns = std::max((width - 2 * kMargin) / kLetterPitch, 1);
    int column = 4 * random.Below(4);
    const int end = random.Below(6) == 0 ? 0 : random.Below(columns);
    while (column < end) {
      const std::uint32_t ink = inks[static_cast<std::size_t>(
          random.Below(static_cast<int>(inks.size())))];
      const int wordEnd = std::min(column + 2 + random.Below(9), columns);
      for (; column < wordEnd; ++column) {
        DrawLetter(page,
                   kShapes[static_cast<std::size_t>(random.Below(kLetters))],
                   kMargin + column * kLetterPitch, y, ink);
      }
      ++column;
    }
  }
  return page;
}

Canvas FilmWindow(int width, int height) {
  Random random(0xf11e);
  Canvas window(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int grain = random.Below(13) - 6;
      const int red = 40 + Wave(x + y, 180) + grain;
      const int green = 30 + Wave(2 * x + 160, 200) / 2 + Wave(y, 90) + grain;
      const int blue = 60 + Wave(3 * y + x / 2, 160) + grain;
      window.Set(x, y, Shade(red, green, blue));
    }
  }
  const int bar = std::max(height / 12, 2);
  window.Fill({0, 0, width, bar}, 0x3367d6);
  window.Fill({0, bar, 2, height}, 0x3367d6);
  window.Fill({width - 2, bar, 2, height}, 0x3367d6);
  window.Fill({0, height - 2, width, 2}, 0x3367d6);
  return window;
}

}  // namespace linux_capture::bench
