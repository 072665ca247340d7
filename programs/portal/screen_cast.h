#ifndef LINUX_CAPTURE_PROGRAMS_PORTAL_SCREEN_CAST_H_
#define LINUX_CAPTURE_PROGRAMS_PORTAL_SCREEN_CAST_H_

#include <cstdint>
#include <optional>
#include <string>

#include "base/unique_fd.h"
#include "portal/granted_stream.h"
#include "portal/portal_bus.h"
#include "portal/portal_options.h"

namespace linux_capture::portal {

// One session of the portal's ScreenCast interface, closed with this object.
class ScreenCast {
 public:
  // Checks the options against what the portal offers, then asks the user.
  // The token, if any, is the one of an earlier stream.
  ScreenCast(PortalBus& bus, const PortalOptions& options,
             const std::optional<std::string>& restoreToken);
  ScreenCast(const ScreenCast&) = delete;
  ScreenCast& operator=(const ScreenCast&) = delete;
  ~ScreenCast();

  [[nodiscard]] const GrantedStream& stream() const { return stream_; }
  [[nodiscard]] int pipe_wire_fd() const { return pipeWire_.get(); }

  // Returns never: throws HostIsDone, or an error when the session ends.
  void Hold() { bus_.HoldSession(session_); }

 private:
  void CloseAll() noexcept;
  void Grant(const PortalOptions& options,
             const std::optional<std::string>& restoreToken);
  void CreateSession();
  void SelectSources(const PortalOptions& options,
                     const std::optional<std::string>& restoreToken);
  void Start(const std::optional<std::string>& restoreToken);
  GVariantPtr Request(const char* method, GVariantBuilder& settings,
                      GVariant* (*argumentsOf)(const char*, GVariantBuilder*),
                      Answerer answerer);

  PortalBus& bus_;
  std::uint32_t version_;
  std::uint32_t types_ = 0;
  std::optional<std::uint32_t> cursor_;
  int requestCount_ = 0;
  std::string request_;  // not answered yet
  std::string session_;
  GrantedStream stream_;
  UniqueFd pipeWire_;
};

}  // namespace linux_capture::portal

#endif  // LINUX_CAPTURE_PROGRAMS_PORTAL_SCREEN_CAST_H_
