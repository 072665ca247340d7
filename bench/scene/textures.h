#ifndef LINUX_CAPTURE_BENCH_SCENE_TEXTURES_H_
#define LINUX_CAPTURE_BENCH_SCENE_TEXTURES_H_

#include "canvas.h"

namespace linux_capture::bench {

// The parts that the scene is put together from. Each is a pure function of
// its size, the same on every machine.

// A page of coloured, indented lines of letters on a white or dark ground.
Canvas TextPage(int width, int height, bool isDark);

// What stands for a photograph or a film: soft colours with fine grain, in a
// window frame with a title bar.
Canvas FilmWindow(int width, int height);

}  // namespace linux_capture::bench

#endif  // LINUX_CAPTURE_BENCH_SCENE_TEXTURES_H_
