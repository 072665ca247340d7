#ifndef LINUX_CAPTURE_PROGRAMS_SHOT_PICTURE_H_
#define LINUX_CAPTURE_PROGRAMS_SHOT_PICTURE_H_

#include <string>

#include "shot/shot_options.h"

namespace linux_capture::shot {

// One picture of the source as PNG, with the colours that it has there: nothing
// is scaled or encoded with losses. Throws ProgramError. May wait for as long
// as a server stands still. Ends the process with a message when the X server
// refuses the picture, because Xlib leaves nothing else.
std::string TakePicture(const ShotOptions& options);

}  // namespace linux_capture::shot

#endif  // LINUX_CAPTURE_PROGRAMS_SHOT_PICTURE_H_
