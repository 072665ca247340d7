#ifndef LINUX_CAPTURE_PROGRAMS_PORTAL_GRANTED_STREAM_H_
#define LINUX_CAPTURE_PROGRAMS_PORTAL_GRANTED_STREAM_H_

#include <cstdint>
#include <optional>
#include <string>

#include "base/glib_handles.h"

namespace linux_capture::portal {

// What the portal says about the stream that the user granted.
struct GrantedStream {
  std::uint32_t node = 0;
  std::optional<std::uint64_t> serial;
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::uint32_t sourceType = 0;
  std::optional<std::string> id;
  std::optional<std::string> mappingId;
  std::optional<std::string> restoreToken;
  bool isRestoreTokenUsed = false;
  bool isRestoreTokenUpdated = false;
};

// Reads the results of Start. The type of the source is the one of `askedTypes`
// when that was a single one, else what the portal tells, which is 0 (nothing)
// before version 3.
// Throws a ProgramError when there is no stream that can be captured.
GrantedStream ReadGrantedStream(GVariant* results, std::uint32_t askedTypes);

// The line that the host reads.
std::string ReportOf(const GrantedStream& stream, int pid, int pipeWireFd);

}  // namespace linux_capture::portal

#endif  // LINUX_CAPTURE_PROGRAMS_PORTAL_GRANTED_STREAM_H_
