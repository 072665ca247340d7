#ifndef LINUX_CAPTURE_TESTS_SUPPORT_FAKE_PORTAL_FAKE_PORTAL_OPTIONS_H_
#define LINUX_CAPTURE_TESTS_SUPPORT_FAKE_PORTAL_FAKE_PORTAL_OPTIONS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace linux_capture::fake_portal {

// How the portal is to behave.
struct FakePortalOptions {
  std::uint32_t version = 5;
  std::uint32_t types = 3;
  std::uint32_t cursors = 3;
  bool hasScreenCast = true;
  // The answer to a request comes before its call has returned.
  bool isEarly = false;
  // Requests get paths of the portal's own, as in old versions.
  bool choosesPaths = false;
  // By method: the code of its answer, 0 where there is none here.
  std::map<std::string, std::uint32_t> codes;
  // By method: "refuse" answers with an error, "wait" never answers.
  std::map<std::string, std::string> moods;
  std::optional<std::string> restoreToken;
  // In GLib's text form, of type a(ua{sv}).
  std::string streams =
      "[(uint32 42, {'size': <(640, 360)>, 'source_type': <uint32 1>})]";
  // The socket that clients are connected to; a pipe with a text without one.
  std::string remote;
};

extern const char kUsage[];

FakePortalOptions ParseFakePortalOptions(
    const std::vector<std::string>& arguments);

}  // namespace linux_capture::fake_portal

#endif  // LINUX_CAPTURE_TESTS_SUPPORT_FAKE_PORTAL_FAKE_PORTAL_OPTIONS_H_
