#ifndef LINUX_CAPTURE_BASE_STAGE_LOG_H_
#define LINUX_CAPTURE_BASE_STAGE_LOG_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace linux_capture {

inline constexpr const char* kStageLogPath = "/tmp/linux-capture-debug.log";

// One stage line as it is written, including its newline: the only control
// character in it.
std::string FormatStageLine(long processId, std::uint64_t timeMs,
                            std::string_view stage);

// Writes one line to standard error and appends it to kStageLogPath. Callable
// from any thread; takes no lock; never fails and never waits for a reader.
void LogCaptureStage(std::string_view stage) noexcept;

// Writes to standard error unless that would have to wait for a reader.
void WriteErrorOutput(std::string_view text) noexcept;

// Appends `line` to the regular file at `path`. A path that is a link, a FIFO
// or another user's file is left alone. Returns whether the line was written.
bool AppendStageLine(const char* path, std::string_view line) noexcept;

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_STAGE_LOG_H_
