#ifndef LINUX_CAPTURE_CONFIG_BRANCH_NORMALISATION_H_
#define LINUX_CAPTURE_CONFIG_BRANCH_NORMALISATION_H_

#include "config/capture_config.h"

namespace linux_capture {

// Fits the requested branches to the source: every branch takes its aspect
// ratio, and a secondary stays only while it is smaller and slower than the
// one kept before it. The primary's size, and with hardware encoding the
// ladder's bitrates, are written back to the record. Without a known source
// size, as with an X11 window, nothing changes.
void NormaliseBranchesToSource(CaptureConfig& config);

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_CONFIG_BRANCH_NORMALISATION_H_
