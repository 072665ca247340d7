#ifndef LINUX_CAPTURE_PROGRAMS_TARGETS_SOUND_FOLLOWER_H_
#define LINUX_CAPTURE_PROGRAMS_TARGETS_SOUND_FOLLOWER_H_

#include "common/host_input.h"

namespace linux_capture::targets {

// Prints the list of what plays, and prints it again whenever it has changed.
// A daemon that cannot be asked is a list too, with the problem in it, and is
// tried again. Returns when nobody reads any more; ends by HostIsDone when the
// host closes its input.
void FollowSound(programs::HostInput& host);

}  // namespace linux_capture::targets

#endif  // LINUX_CAPTURE_PROGRAMS_TARGETS_SOUND_FOLLOWER_H_
