#ifndef LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_CONNECTIONS_H_
#define LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_CONNECTIONS_H_

#include <X11/Xlib.h>

// Xlib defines everyday words as macros; the release module is one unit.
#undef Always
#undef Bool
#undef None
#undef Status
#undef Success

namespace linux_capture {

// When a connection to an X server breaks, Xlib ends the process after the
// error handlers have run. Whoever knows a connection can have that replaced;
// the one of ximagesrc is known to nobody else, so it is noted when it is
// opened.

// From here on connections are noted that are opened by threads which want it.
void WatchOpenedDisplays();
void UnwatchOpenedDisplays();

// Whether the calling thread wants it.
void NoteDisplaysOfThisThread(bool isWanted);

// Keeps the process alive when the connection breaks that the calling thread
// has opened last, if that was noted.
void SurviveLossOfOpenedDisplay();

// The handlers that are in force in Xlib; null where it does not tell.
XErrorHandler XlibErrorHandler();
XIOErrorHandler XlibIoErrorHandler();

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_LAUNCH_BOUNDARY_X11_CONNECTIONS_H_
