#ifndef LINUX_CAPTURE_PROGRAMS_TRANSPORT_ICE_AGENT_H_
#define LINUX_CAPTURE_PROGRAMS_TRANSPORT_ICE_AGENT_H_

#include <nice/agent.h>
#include <nice/interfaces.h>

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "base/glib_handles.h"
#include "common/frames.h"
#include "transport/description.h"

namespace linux_capture::transport {

struct LocalDescription {
  std::string user;
  std::string password;
  // Each without its "a=".
  std::vector<std::string> candidates;
};

// What happens to an agent; called by the loop that it was made for.
struct IceEvents {
  std::function<void()> gathered;
  // Packets can go from now on.
  std::function<void()> ready;
  // No way was found, or the one that was in use no longer answers.
  std::function<void()> failed;
  std::function<void(programs::Bytes datagram)> arrived;
};

// Finds a way for datagrams to the other side and keeps it. Of one thread, that
// of the default main context.
class IceAgent {
 public:
  IceAgent(const OpenRequest& request, IceEvents events);
  IceAgent(const IceAgent&) = delete;
  IceAgent& operator=(const IceAgent&) = delete;
  ~IceAgent();

  void Gather();
  [[nodiscard]] LocalDescription local() const;

  // Throws std::runtime_error when it says nothing that can be used.
  void Connect(const RemoteDescription& remote);

  // What finds no room on its way is lost, as in any network.
  void Send(std::span<const programs::Bytes> datagrams);

 private:
  static void OnGathered(NiceAgent* agent, guint stream, gpointer self);
  static void OnStateChanged(NiceAgent* agent, guint stream, guint component,
                             guint state, gpointer self);
  static void OnDatagram(NiceAgent* agent, guint stream, guint component,
                         guint size, gchar* bytes, gpointer self);

  void AddServer(const IceServer& server);
  // With one system call for many; returns false where a server passes them on,
  // which needs headers of the agent's around them.
  bool SendDirectly(std::span<const programs::Bytes> datagrams);

  IceEvents events_;
  GObjectPtr<NiceAgent> agent_;
  guint stream_ = 0;
  bool isReady_ = false;
};

}  // namespace linux_capture::transport

#endif  // LINUX_CAPTURE_PROGRAMS_TRANSPORT_ICE_AGENT_H_
