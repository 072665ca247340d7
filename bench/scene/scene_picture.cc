#include "scene_picture.h"

#include <algorithm>
#include <stdexcept>

#include "barcode.h"
#include "textures.h"

namespace linux_capture::bench {
namespace {

constexpr std::uint32_t kBlack = 0x000000;
constexpr std::uint32_t kWhite = 0xffffff;
constexpr std::uint32_t kScrollStep = 2;
constexpr std::uint32_t kTerminalLine = 20;
constexpr std::uint32_t kFilmStepX = 3;
constexpr std::uint32_t kFilmStepY = 2;
constexpr std::uint32_t kFastFactor = 4;

// From 0 to `range` and back, `step` a picture.
int BackAndForth(std::uint32_t number, std::uint32_t step, int range) {
  if (range <= 0) return 0;
  const auto top = static_cast<std::uint32_t>(range);
  const std::uint32_t place = number % (2 * top) * step % (2 * top);
  return static_cast<int>(place <= top ? place : 2 * top - place);
}

bool HasDesk(SceneKind kind) {
  return kind == SceneKind::kStill || kind == SceneKind::kMoving;
}

// Two screens of it, and then it comes round again.
Canvas PageOf(SceneKind kind, const Rectangle& area) {
  return kind == SceneKind::kFilm
             ? FilmWindow(area.width, 2 * area.height)
             : TextPage(area.width, 2 * area.height, !HasDesk(kind));
}

}  // namespace

SceneKind SceneKindOf(const std::string& name) {
  if (name == "still") return SceneKind::kStill;
  if (name == "moving") return SceneKind::kMoving;
  if (name == "terminal") return SceneKind::kTerminal;
  if (name == "film") return SceneKind::kFilm;
  throw std::runtime_error("there is no scene \"" + name + "\"");
}

ScenePicture::ScenePicture(int width, int height, SceneKind kind)
    : width_(width),
      height_(height),
      kind_(kind),
      barcodeHeight_(height / 15),
      pageArea_{0, barcodeHeight_, HasDesk(kind) ? width * 5 / 8 : width,
                height - barcodeHeight_},
      deskArea_{pageArea_.width, barcodeHeight_, width - pageArea_.width,
                pageArea_.height},
      page_(PageOf(kind, pageArea_)),
      desk_(TextPage(std::max(deskArea_.width, 1), deskArea_.height, true)),
      film_(FilmWindow(width / (HasDesk(kind) ? 4 : 8),
                       height / (HasDesk(kind) ? 4 : 8))) {}

int ScenePicture::ScrollOf(std::uint32_t number) const {
  const auto length = static_cast<std::uint32_t>(page_.height());
  std::uint32_t first = 0;
  if (kind_ == SceneKind::kMoving) {
    first = number % length * kScrollStep;
  } else if (kind_ == SceneKind::kTerminal) {
    first = number / 2 % length * kTerminalLine;
  } else if (kind_ == SceneKind::kFilm) {
    first = number % length * kScrollStep * 3;
  }
  return static_cast<int>(first % length);
}

Rectangle ScenePicture::FilmArea(std::uint32_t number) const {
  std::uint32_t place = kind_ == SceneKind::kStill ? 0 : number;
  if (!HasDesk(kind_)) place *= kFastFactor;
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
  const int first = ScrollOf(number);
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
  if (kind_ != SceneKind::kStill || !shown) {
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
