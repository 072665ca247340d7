#include "i420.h"

#include <algorithm>
#include <stdexcept>

namespace linux_capture::bench {
namespace {

// Red, green and blue of every pixel of a picture, one after the other.
struct Colours {
  int width = 0;
  int height = 0;
  std::vector<float> values;
};

constexpr std::size_t kChannels = 3;

std::size_t Index(int width, int x, int y) {
  return (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
          static_cast<std::size_t>(x)) *
         kChannels;
}

Colours ColoursOf(const Canvas& canvas) {
  Colours colours{canvas.width(), canvas.height(), {}};
  colours.values.resize(Index(canvas.width(), 0, canvas.height()));
  const std::size_t count = colours.values.size() / kChannels;
  float* to = colours.values.data();
  for (std::size_t i = 0; i < count; ++i, to += kChannels) {
    const std::uint32_t pixel = canvas.data()[i];
    to[0] = static_cast<float>(pixel >> 16 & 0xffU);
    to[1] = static_cast<float>(pixel >> 8 & 0xffU);
    to[2] = static_cast<float>(pixel & 0xffU);
  }
  return colours;
}

// One source position and the part of a target's extent that it makes up.
struct Part {
  int from = 0;
  float weight = 0;
};

std::vector<std::vector<Part>> PartsOf(int from, int to) {
  std::vector<std::vector<Part>> parts(static_cast<std::size_t>(to));
  const double step = static_cast<double>(from) / to;
  for (int target = 0; target < to; ++target) {
    const double begin = target * step;
    const double end = begin + step;
    for (int at = static_cast<int>(begin); at < from && at < end; ++at) {
      const double covered =
          std::min<double>(end, at + 1) - std::max<double>(begin, at);
      if (covered <= 1e-9) continue;
      parts[static_cast<std::size_t>(target)].push_back(
          {at, static_cast<float>(covered / step)});
    }
  }
  return parts;
}

Colours Shrink(const Colours& source, int width, int height) {
  if (width == source.width && height == source.height) return source;
  const auto columns = PartsOf(source.width, width);
  const auto rows = PartsOf(source.height, height);
  Colours narrow{width, source.height, {}};
  narrow.values.resize(Index(width, 0, source.height));
  for (int y = 0; y < source.height; ++y) {
    for (int x = 0; x < width; ++x) {
      float* const to = &narrow.values[Index(width, x, y)];
      for (const Part& part : columns[static_cast<std::size_t>(x)]) {
        const float* const from =
            &source.values[Index(source.width, part.from, y)];
        for (std::size_t c = 0; c < kChannels; ++c) {
          to[c] += from[c] * part.weight;
        }
      }
    }
  }
  Colours small{width, height, {}};
  small.values.resize(Index(width, 0, height));
  const std::size_t rowLength = Index(width, 0, 1);
  for (int y = 0; y < height; ++y) {
    float* const to = &small.values[Index(width, 0, y)];
    for (const Part& part : rows[static_cast<std::size_t>(y)]) {
      const float* const from = &narrow.values[Index(width, 0, part.from)];
      for (std::size_t i = 0; i < rowLength; ++i)
        to[i] += from[i] * part.weight;
    }
  }
  return small;
}

std::uint8_t Rounded(float value) {
  return static_cast<std::uint8_t>(std::clamp(value + 0.5F, 0.0F, 255.0F));
}

float LumaOf(const float* rgb, const ColourCode& code) {
  return code.red * rgb[0] + (1 - code.red - code.blue) * rgb[1] +
         code.blue * rgb[2];
}

}  // namespace

ColourCode ColourCodeOf(const std::string& matrix, const std::string& range) {
  ColourCode code;
  if (matrix == "bt601") {
    code.red = 0.299F;
    code.blue = 0.114F;
  } else if (matrix != "bt709") {
    throw std::runtime_error("unknown matrix \"" + matrix + "\"");
  }
  if (range != "full" && range != "limited") {
    throw std::runtime_error("unknown range \"" + range + "\"");
  }
  code.isFullRange = range == "full";
  return code;
}

I420Picture ConvertToI420(const Canvas& canvas, int width, int height,
                          const ColourCode& code) {
  I420Picture picture;
  picture.width = width;
  picture.height = height;
  const float lumaScale = code.isFullRange ? 1.0F : 219.0F / 255.0F;
  const float lumaBase = code.isFullRange ? 0.0F : 16.0F;
  const float chromaScale = code.isFullRange ? 1.0F : 224.0F / 255.0F;
  const float blueScale = chromaScale / (2 * (1 - code.blue));
  const float redScale = chromaScale / (2 * (1 - code.red));

  const Colours large = Shrink(ColoursOf(canvas), width, height);
  picture.y.resize(large.values.size() / kChannels);
  for (std::size_t i = 0; i < picture.y.size(); ++i) {
    const float luma = LumaOf(&large.values[i * kChannels], code);
    picture.y[i] = Rounded(lumaBase + lumaScale * luma);
  }
  const Colours small = Shrink(large, width / 2, height / 2);
  picture.u.resize(small.values.size() / kChannels);
  picture.v.resize(picture.u.size());
  for (std::size_t i = 0; i < picture.u.size(); ++i) {
    const float* const rgb = &small.values[i * kChannels];
    const float luma = LumaOf(rgb, code);
    picture.u[i] = Rounded(128 + blueScale * (rgb[2] - luma));
    picture.v[i] = Rounded(128 + redScale * (rgb[0] - luma));
  }
  return picture;
}

}  // namespace linux_capture::bench
