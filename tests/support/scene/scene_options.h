#ifndef LINUX_CAPTURE_TESTS_SUPPORT_SCENE_SCENE_OPTIONS_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_SCENE_SCENE_OPTIONS_H_

#include <string>
#include <vector>

namespace linux_capture::scene {

// What the command line asked for. A scene without `seconds` runs until it is
// terminated.
struct SceneOptions {
  int width = 640;
  int height = 360;
  int x = 0;
  int y = 0;
  int fps = 60;
  double seconds = 0.0;
  bool isStatic = false;
  // As a window manager leaves it: inside a frame, with the state "normal".
  bool isFramed = false;
};

extern const char kUsage[];

// Reads the arguments after the program name; throws std::runtime_error with a
// readable message when one of them is unknown, incomplete or out of range.
SceneOptions ParseSceneOptions(const std::vector<std::string>& arguments);

}  // namespace linux_capture::scene

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_SCENE_SCENE_OPTIONS_H_
