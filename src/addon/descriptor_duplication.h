#ifndef LINUX_CAPTURE_ADDON_DESCRIPTOR_DUPLICATION_H_
#define LINUX_CAPTURE_ADDON_DESCRIPTOR_DUPLICATION_H_

#include <cstdint>

namespace linux_capture {

// Copies descriptor `targetFd` of process `pid` into this process and returns
// the new descriptor (close-on-exec), which the caller owns. Throws
// CodedError with the reason; the process needs permission to trace
// the other one.
int DuplicateDescriptorFromProcess(std::int32_t pid, std::int32_t targetFd);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_ADDON_DESCRIPTOR_DUPLICATION_H_
