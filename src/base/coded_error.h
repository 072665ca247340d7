#ifndef LINUX_CAPTURE_BASE_CODED_ERROR_H_
#define LINUX_CAPTURE_BASE_CODED_ERROR_H_

#include <stdexcept>
#include <string>

namespace linux_capture {

// What went wrong, for programs: messages are for people, and those of the
// libraries change with their locale. A code does not change between versions;
// docs/native.md lists them all, and a test compares.
namespace error_code {

// Of thrown errors.
inline constexpr const char* kConnectionInvalid = "connection-invalid";
inline constexpr const char* kGStreamerUnavailable = "gstreamer-unavailable";
inline constexpr const char* kHardwareUnavailable = "hardware-unavailable";
inline constexpr const char* kInvalidArgument = "invalid-argument";
inline constexpr const char* kInvalidRequest = "invalid-request";
inline constexpr const char* kMissingElement = "missing-element";
inline constexpr const char* kMissingProperty = "missing-property";
inline constexpr const char* kNoActiveCapture = "no-active-capture";
inline constexpr const char* kNotSupported = "not-supported";
inline constexpr const char* kPipelineInvalid = "pipeline-invalid";
inline constexpr const char* kProcessUnreachable = "process-unreachable";
inline constexpr const char* kResourcesExhausted = "resources-exhausted";
inline constexpr const char* kSessionManagerMissing = "session-manager-missing";
inline constexpr const char* kSessionManagerStalled = "session-manager-stalled";
inline constexpr const char* kSourcePaused = "source-paused";
inline constexpr const char* kSourceStalled = "source-stalled";
inline constexpr const char* kStartInterrupted = "start-interrupted";
inline constexpr const char* kStateChangeFailed = "state-change-failed";
inline constexpr const char* kTargetMissing = "target-missing";
inline constexpr const char* kWindowMissing = "window-missing";

// Of thrown errors and of "error" events.
inline constexpr const char* kDisplayStalled = "display-stalled";
inline constexpr const char* kEncoderFailed = "encoder-failed";
inline constexpr const char* kRectangleOffScreen = "rectangle-off-screen";
inline constexpr const char* kSoundServerStalled = "sound-server-stalled";

// Of "error" events.
inline constexpr const char* kConnectionLost = "connection-lost";
inline constexpr const char* kDisplayLost = "display-lost";
inline constexpr const char* kFormatChanged = "format-changed";
inline constexpr const char* kPipelineError = "pipeline-error";
inline constexpr const char* kSourceLost = "source-lost";
inline constexpr const char* kWindowClosed = "window-closed";
inline constexpr const char* kWindowHidden = "window-hidden";

}  // namespace error_code

// An error that reaches JavaScript with a code beside its message.
class CodedError : public std::runtime_error {
 public:
  // `code` is one of error_code.
  CodedError(const char* code, const std::string& message)
      : std::runtime_error(message), code_(code) {}

  [[nodiscard]] const char* code() const noexcept { return code_; }

 private:
  const char* code_;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_BASE_CODED_ERROR_H_
