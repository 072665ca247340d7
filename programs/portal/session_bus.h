#ifndef LINUX_CAPTURE_PROGRAMS_PORTAL_SESSION_BUS_H_
#define LINUX_CAPTURE_PROGRAMS_PORTAL_SESSION_BUS_H_

#include <gio/gio.h>

#include "base/glib_handles.h"
#include "portal/host_watch.h"

namespace linux_capture::portal {

// A connection of this program's own. Throws a ProgramError without a bus, and
// for one that does not answer.
GObjectPtr<GDBusConnection> ConnectToSessionBus(HostWatch& host);

}  // namespace linux_capture::portal

#endif  // LINUX_CAPTURE_PROGRAMS_PORTAL_SESSION_BUS_H_
