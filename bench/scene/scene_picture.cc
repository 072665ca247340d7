#include "scene_picture.h"

#include <algorithm>

#include "barcode.h"
#include "textures.h"

namespace linux_capture::bench {
namespace {

constexpr std::uint32_t kBlack = 0x000000;
constexpr std::uint32_t kWhite = 0xffffff;
constexpr std::uint32_t kScrollStep = 2;
constexpr std::uint32_t kFilmStepX = 3;
constexpr std::uint32_t kFilmStepY = 2;

// From 0 to `range` and back, `step` a picture.
int BackAndForth(std::uint32_t number, std::uint32_t step, int range) {
  if (range <= 0) return 0;
  const auto top = static_cast<std::uint32_t>(range);
  const std::uint32_t place = number % (2 * top) * step % (2 * top);
  return static_cast<int>(place <= top ? place : 2 * top - place);
}

}  // namespace

ScenePicture::ScenePicture(int width, int height, bool isMoving)
    : width_(width),
      height_(height),
      isMoving_(isMoving),
      barcodeHeight_(height / 15),
      pageArea_{0, barcodeHeight_, width * 5 / 8, height - barcodeHeight_},
      deskArea_{pageArea_.width, barcodeHeight_, width - pageArea_.width,
                pageArea_.height},
      // Two screens of text, and then it comes round again.
      page_(TextPage(pageArea_.width, 2 * pageArea_.height, false)),
      desk_(TextPage(deskArea_.width, deskArea_.height, true)),
      film_(FilmWindow(width / 4, height / 4)) {}

Rectangle ScenePicture::FilmArea(std::uint32_t number) const {
  const std::uint32_t place = isMoving_ ? number : 0;
  const int rangeX = width_ / 2;
  const int rangeY = height_ - barcodeHeight_ - film_.height();
  return {width_ / 4 + BackAndForth(place, kFilmStepX, rangeX),
          barcodeHeight_ + BackAndForth(place, kFilmStepY, rangeY),
          film_.width(), film_.height()};
}

void ScenePicture::AddBarcode(std::uint32_t number,
                              std::vector<Step>& steps) const {
  const std::uint32_t cells = BarcodeCells(number);
  for (int cell = 0; cell < kBarcodeCells; ++cell) {
    const bool isSet = ((cells >> (kBarcodeCells - 1 - cell)) & 1U) != 0;
    const int left = width_ * cell / kBarcodeCells;
    const int right = width_ * (cell + 1) / kBarcodeCells;
    steps.push_back({nullptr,
                     {0, 0, right - left, barcodeHeight_},
                     left,
                     0,
                     isSet ? kWhite : kBlack});
  }
}

void ScenePicture::AddPage(std::uint32_t number,
                           std::vector<Step>& steps) const {
  const auto length = static_cast<std::uint32_t>(page_.height());
  const auto first =
      static_cast<int>(isMoving_ ? number % length * kScrollStep % length : 0);
  const int upper = std::min(pageArea_.height, page_.height() - first);
  steps.push_back({&page_,
                   {0, first, pageArea_.width, upper},
                   pageArea_.x,
                   pageArea_.y,
                   0});
  if (upper < pageArea_.height) {
    steps.push_back({&page_,
                     {0, 0, pageArea_.width, pageArea_.height - upper},
                     pageArea_.x,
                     pageArea_.y + upper,
                     0});
  }
}

std::vector<ScenePicture::Step> ScenePicture::Steps(
    std::uint32_t number, std::optional<std::uint32_t> shown) const {
  std::vector<Step> steps;
  if (isMoving_ || !shown) {
    AddPage(number, steps);
    // Of the page that stands still, only what the window has covered.
    const Rectangle bare =
        shown ? Intersection(deskArea_, FilmArea(*shown)) : deskArea_;
    if (bare.width > 0 && bare.height > 0) {
      steps.push_back({&desk_,
                       {bare.x - deskArea_.x, bare.y - deskArea_.y, bare.width,
                        bare.height},
                       bare.x,
                       bare.y,
                       0});
    }
    const Rectangle film = FilmArea(number);
    steps.push_back(
        {&film_, {0, 0, film.width, film.height}, film.x, film.y, 0});
  }
  AddBarcode(number, steps);
  return steps;
}

void DrawSteps(const std::vector<ScenePicture::Step>& steps, Canvas& canvas) {
  for (const ScenePicture::Step& step : steps) {
    if (step.texture != nullptr) {
      canvas.Copy(*step.texture, step.area, step.x, step.y);
    } else {
      canvas.Fill({step.x, step.y, step.area.width, step.area.height},
                  step.colour);
    }
  }
}

}  // namespace linux_capture::bench
