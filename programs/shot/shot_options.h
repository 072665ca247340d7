#ifndef LINUX_CAPTURE_PROGRAMS_SHOT_SHOT_OPTIONS_H_
#define LINUX_CAPTURE_PROGRAMS_SHOT_SHOT_OPTIONS_H_

#include <string>
#include <vector>

#include "config/capture_config.h"

namespace linux_capture::shot {

struct ShotOptions {
  // What of a capture's request says where it comes from.
  CaptureConfig source;
  bool isPointerShown = true;
};

// False when help or the version was asked for and printed. Throws ProgramError
// for wrong usage.
bool ParseShotOptions(const std::vector<std::string>& arguments,
                      ShotOptions& options);

}  // namespace linux_capture::shot

#endif  // LINUX_CAPTURE_PROGRAMS_SHOT_SHOT_OPTIONS_H_
