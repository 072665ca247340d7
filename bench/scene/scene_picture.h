#ifndef LINUX_CAPTURE_BENCH_SCENE_SCENE_PICTURE_H_
#define LINUX_CAPTURE_BENCH_SCENE_SCENE_PICTURE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "canvas.h"

namespace linux_capture::bench {

// A scene like a working screen, every picture a pure function of its number:
//
//   the upper fifteenth   the number's barcode, over the whole width
//   the left five eighths a page of text that scrolls by two pixels a picture
//   the rest              a page of dark text that stands still
//   in front              a window with a film that moves over both
//
// The still scene is the moving one without motion: only the barcode changes.
// Two more are as unlike it as screens are: a terminal whose dark lines jump up
// by one every other picture, under a small window that is moved fast; and soft
// colours with grain that pass over the whole screen, as a film does.
enum class SceneKind { kStill, kMoving, kTerminal, kFilm };

// "still", "moving", "terminal" or "film"; throws std::runtime_error.
SceneKind SceneKindOf(const std::string& name);

class ScenePicture {
 public:
  // Both at least 64.
  ScenePicture(int width, int height, SceneKind kind);

  // One step of drawing: a part of a texture, or a colour where there is none.
  struct Step {
    const Canvas* texture = nullptr;
    Rectangle area;  // of the texture; for a fill, only its size counts
    int x = 0;
    int y = 0;
    std::uint32_t colour = 0;
  };

  // What turns picture `shown` into picture `number`; the whole picture when
  // nothing is shown.
  std::vector<Step> Steps(std::uint32_t number,
                          std::optional<std::uint32_t> shown) const;

  // Every texture that a step may name.
  std::vector<const Canvas*> textures() const {
    return {&page_, &desk_, &film_};
  }

  int width() const { return width_; }
  int height() const { return height_; }

 private:
  void AddBarcode(std::uint32_t number, std::vector<Step>& steps) const;
  void AddPage(std::uint32_t number, std::vector<Step>& steps) const;
  // The page's first row that is seen.
  int ScrollOf(std::uint32_t number) const;
  Rectangle FilmArea(std::uint32_t number) const;

  int width_;
  int height_;
  SceneKind kind_;
  int barcodeHeight_;
  Rectangle pageArea_;
  Rectangle deskArea_;
  Canvas page_;
  Canvas desk_;
  Canvas film_;
};

// Draws the steps in memory; the canvas has the scene's size.
void DrawSteps(const std::vector<ScenePicture::Step>& steps, Canvas& canvas);

}  // namespace linux_capture::bench

#endif  // LINUX_CAPTURE_BENCH_SCENE_SCENE_PICTURE_H_
