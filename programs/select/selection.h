#ifndef LINUX_CAPTURE_PROGRAMS_SELECT_SELECTION_H_
#define LINUX_CAPTURE_PROGRAMS_SELECT_SELECTION_H_

#include "select/rubber_band.h"

namespace linux_capture::select {

// Lets the user draw a rectangle on the screen of the X display, and returns it
// when nothing of that is to be seen any more. Throws ProgramError when the
// user gives up, and when it cannot be drawn. Takes any time; ends the process
// with a message when the X server goes away, because Xlib leaves nothing else.
Rectangle SelectRectangle();

}  // namespace linux_capture::select

#endif  // LINUX_CAPTURE_PROGRAMS_SELECT_SELECTION_H_
