#ifndef LINUX_CAPTURE_PROGRAMS_TRANSPORT_TRANSPORT_H_
#define LINUX_CAPTURE_PROGRAMS_TRANSPORT_TRANSPORT_H_

#include <glib.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/frames.h"
#include "transport/certificate.h"
#include "transport/description.h"
#include "transport/dtls_session.h"
#include "transport/ice_agent.h"
#include "transport/srtp_session.h"

namespace linux_capture::transport {

// A source of the default main context that is removed with its owner.
class MainSource {
 public:
  MainSource() = default;
  explicit MainSource(guint id) : id_(id) {}
  MainSource(const MainSource&) = delete;
  MainSource& operator=(const MainSource&) = delete;
  ~MainSource() { Replace(0); }

  void Replace(guint id) {
    if (id_ != 0) g_source_remove(id_);
    id_ = id;
  }
  // The source has ended by itself.
  void Forget() { id_ = 0; }

 private:
  guint id_ = 0;
};

// One connection: what the host says on one descriptor, what it is told on
// another, and the datagrams between this machine and the other side.
class Transport {
 public:
  // Media from the other side, still encrypted, goes to `onMedia`; a sender has
  // no use for it.
  using OnMedia = std::function<void(programs::Bytes packet)>;

  Transport(int inputFd, int outputFd, OnMedia onMedia = {});
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;
  ~Transport() = default;

  // Until the host closes the input. Throws what ended it otherwise.
  void Run();

 private:
  struct LoopDeleter {
    void operator()(GMainLoop* loop) const noexcept { g_main_loop_unref(loop); }
  };

  static gboolean OnInput(gint fd, GIOCondition condition, gpointer self);
  static gboolean OnOutputFree(gint fd, GIOCondition condition, gpointer self);
  static gboolean OnHandshakeTimer(gpointer self);
  static gboolean OnGatherLimit(gpointer self);

  // Runs a step; what it throws ends the loop and then the program.
  template <typename Step>
  void Guard(Step step);

  void Take(const programs::Frame& frame);
  void Open(std::string_view text);
  void Describe();
  void Connect(std::string_view text);
  void Protect(programs::Bytes packet);
  void SendProtected();
  void Arrived(programs::Bytes datagram);
  void BeginHandshake();
  void HandshakeMoved();
  void TellState(std::string_view state);
  void FlushOutput();
  void End() { g_main_loop_quit(loop_.get()); }

  int inputFd_;
  int outputFd_;
  OnMedia onMedia_;
  std::unique_ptr<GMainLoop, LoopDeleter> loop_;
  programs::FrameReader reader_;
  programs::FrameWriter writer_;
  Certificate certificate_;
  std::optional<RemoteDescription> remote_;
  // What came before the handshake could begin: the other side may be ready
  // first, and would repeat itself only after a second.
  std::vector<std::vector<std::uint8_t>> early_;
  bool isDescribed_ = false;
  bool isIceReady_ = false;
  std::exception_ptr failure_;
  std::optional<IceAgent> ice_;
  std::optional<DtlsSession> dtls_;
  std::optional<SrtpSession> srtp_;
  // Packets that the host wrote together and that leave together; only the
  // first `protectedCount_` of them are in use.
  std::vector<std::vector<std::uint8_t>> protected_;
  std::size_t protectedCount_ = 0;
  MainSource input_;
  MainSource output_;
  MainSource handshakeTimer_;
  MainSource gatherLimit_;
};

}  // namespace linux_capture::transport

#endif  // LINUX_CAPTURE_PROGRAMS_TRANSPORT_TRANSPORT_H_
