#ifndef LINUX_CAPTURE_PROGRAMS_PORTAL_PORTAL_BUS_H_
#define LINUX_CAPTURE_PROGRAMS_PORTAL_PORTAL_BUS_H_

#include <gio/gio.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/glib_handles.h"
#include "base/unique_fd.h"
#include "portal/host_watch.h"

namespace linux_capture::portal {

// What the user and the desktop made of a request.
struct PortalResponse {
  std::uint32_t code = 0;
  GVariantPtr results;
};

// Who has to act before a request is answered: the desktop does at once or
// never, a user takes any time.
enum class Answerer { kDesktop, kUser };

// A connection to the session bus and to the portal on it. Every wait here is
// also one for the host, which may close standard input at any time.
class PortalBus {
 public:
  // Connects and asks for the interface's properties, which starts the portal
  // where it is not running yet.
  explicit PortalBus(HostWatch& host);
  PortalBus(const PortalBus&) = delete;
  PortalBus& operator=(const PortalBus&) = delete;
  ~PortalBus();

  // 0 where the portal has no such property.
  [[nodiscard]] std::uint32_t Property(const char* name) const;

  // The path under which the request (or session) of that token will be found.
  [[nodiscard]] std::string PathOf(const char* kind,
                                   const std::string& token) const;

  // Calls a method that returns the path of a request, and waits for what
  // comes of it. `expectedPath` is where that request should appear; the end
  // of `session`, where there is one already, ends the wait.
  PortalResponse Request(const char* method, GVariant* arguments,
                         const std::string& expectedPath,
                         const std::string& session, Answerer answerer);

  UniqueFd OpenPipeWireRemote(const std::string& session);

  // Throws when the session ends in any other way than by the host.
  void HoldSession(const std::string& session);
  void ThrowIfClosed(const std::string& session) const;

  // Tells the portal that an object is not needed any more. Best effort: this
  // also runs while the program ends because of an error.
  void Close(const std::string& path, const char* interface) noexcept;

 private:
  struct PendingCall {
    bool isDone = false;
    GVariantPtr result;
    GObjectPtr<GUnixFDList> fds;
    GErrorPtr error;
  };

  struct Method {
    const char* destination;
    const char* path;
    const char* interface;
    const char* name;
  };

  void Subscribe();
  void AskForProperties();
  // False when it takes longer than the limit, where there is one.
  bool WaitUntil(const std::function<bool()>& isDone,
                 std::optional<std::chrono::seconds> limit = std::nullopt);
  // Throws with the complaint when no answer comes within the limit.
  PendingCall Call(const Method& method, GVariant* arguments,
                   const char* replyType, std::chrono::seconds limit,
                   const std::string& complaint);
  PendingCall CallScreenCast(const char* method, GVariant* arguments,
                             const char* replyType);

  static void OnCallDone(GObject* source, GAsyncResult* result, gpointer call);
  static void OnSignal(GDBusConnection*, const gchar* sender, const gchar* path,
                       const gchar* interface, const gchar* signal,
                       GVariant* parameters, gpointer self);
  static void OnConnectionClosed(GDBusConnection*, gboolean, GError*,
                                 gpointer self);

  HostWatch& host_;
  GObjectPtr<GDBusConnection> connection_;
  gulong closedHandler_ = 0;
  std::vector<guint> subscriptions_;
  std::string owner_;
  GVariantPtr properties_;
  // A call given up keeps its place here, because its answer may still come.
  std::list<PendingCall> calls_;
  // By path; what comes before the call has returned is kept for it.
  std::map<std::string, PortalResponse> responses_;
  std::set<std::string> closedSessions_;
  bool isConnectionLost_ = false;
  bool isPortalGone_ = false;
};

}  // namespace linux_capture::portal

#endif  // LINUX_CAPTURE_PROGRAMS_PORTAL_PORTAL_BUS_H_
