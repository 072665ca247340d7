#include "transport/transport.h"

#include <glib-unix.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <exception>
#include <utility>

#include "base/c_callback.h"
#include "common/program_error.h"

namespace linux_capture::transport {

using programs::Bytes;
using programs::Frame;

namespace {

// Addresses of servers that have not answered by then are left out.
constexpr guint kGatherLimitMs = 2'500;
constexpr std::size_t kMostEarlyDatagrams = 16;

// The kinds of frames, from the host and to it.
constexpr char kOpen = 'o';
constexpr char kRemote = 'r';
constexpr char kPacket = 'p';
constexpr char kLocal = 'l';
constexpr char kState = 's';
constexpr char kReport = 'c';

std::string_view TextOf(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The first byte tells the protocols apart that share the way.
bool IsDtls(Bytes datagram) {
  return !datagram.empty() && datagram[0] >= 20 && datagram[0] <= 63;
}

struct SourceDeleter {
  void operator()(GSource* source) const noexcept { g_source_unref(source); }
};
using SourcePtr = std::unique_ptr<GSource, SourceDeleter>;

}  // namespace

Transport::Transport(int inputFd, int outputFd, OnMedia onMedia)
    : inputFd_(inputFd),
      outputFd_(outputFd),
      onMedia_(std::move(onMedia)),
      loop_(g_main_loop_new(nullptr, FALSE)),
      writer_(outputFd),
      certificate_(MakeCertificate()) {
  g_unix_set_fd_nonblocking(inputFd_, TRUE, nullptr);
  const SourcePtr source(g_unix_fd_source_new(
      inputFd_, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR)));
  g_source_set_callback(
      source.get(), G_SOURCE_FUNC(NoThrow<&Transport::OnInput>), this, nullptr);
  // Otherwise the loop takes the source out and in again around each call, and
  // wakes itself up twice by that, for every group of packets.
  g_source_set_can_recurse(source.get(), TRUE);
  input_.Replace(g_source_attach(source.get(), nullptr));
}

void Transport::Run() {
  g_main_loop_run(loop_.get());
  if (dtls_) dtls_->Close();
  if (failure_) std::rethrow_exception(failure_);
}

template <typename Step>
void Transport::Guard(Step step) {
  try {
    step();
    FlushOutput();
  } catch (...) {
    if (!failure_) failure_ = std::current_exception();
    End();
  }
}

gboolean Transport::OnInput(gint /*fd*/, GIOCondition /*condition*/,
                            gpointer self) {
  auto& transport = *static_cast<Transport*>(self);
  bool isOpen = true;
  transport.Guard([&] {
    std::array<std::uint8_t, programs::kLongestFrame> bytes;
    const ssize_t count = read(transport.inputFd_, bytes.data(), bytes.size());
    if (count > 0) {
      transport.reader_.Add({bytes.data(), static_cast<std::size_t>(count)},
                            [&](const Frame& frame) { transport.Take(frame); });
      transport.SendProtected();
    } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
      isOpen = false;
      transport.input_.Forget();
      transport.End();
    }
  });
  return isOpen ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

void Transport::Take(const Frame& frame) {
  switch (frame.kind) {
    case kOpen:
      Open(TextOf(frame.payload));
      break;
    case kRemote:
      Connect(TextOf(frame.payload));
      break;
    case kPacket:
      Protect(frame.payload);
      break;
    default:
      throw programs::ProgramError(programs::kStatusUsage,
                                   "the input has a frame of no known kind");
  }
}

void Transport::Open(std::string_view text) {
  if (ice_) {
    throw programs::ProgramError(programs::kStatusUsage,
                                 "the connection is open already");
  }
  IceEvents events;
  events.gathered = [this] { Guard([this] { Describe(); }); };
  events.ready = [this] {
    Guard([this] {
      isIceReady_ = true;
      BeginHandshake();
    });
  };
  events.failed = [this] {
    Guard([this] { TellState(srtp_ ? "lost" : "unreachable"); });
  };
  events.arrived = [this](Bytes datagram) {
    Guard([this, datagram] { Arrived(datagram); });
  };
  ice_.emplace(ParseOpenRequest(text), std::move(events));
  gatherLimit_.Replace(
      g_timeout_add(kGatherLimitMs, NoThrow<&Transport::OnGatherLimit>, this));
  ice_->Gather();
}

gboolean Transport::OnGatherLimit(gpointer self) {
  auto& transport = *static_cast<Transport*>(self);
  transport.gatherLimit_.Forget();
  transport.Guard([&] { transport.Describe(); });
  return G_SOURCE_REMOVE;
}

void Transport::Describe() {
  if (isDescribed_) return;
  isDescribed_ = true;
  const LocalDescription local = ice_->local();
  std::string text = "user " + local.user + "\npassword " + local.password +
                     "\nfingerprint sha-256 " +
                     FingerprintOf(*certificate_.certificate, "sha-256");
  for (const std::string& candidate : local.candidates) {
    text += '\n' + candidate;
  }
  writer_.WriteControl(kLocal, text);
}

void Transport::Connect(std::string_view text) {
  if (!ice_ || remote_) {
    throw programs::ProgramError(programs::kStatusUsage,
                                 "the answer comes out of turn");
  }
  remote_ = ParseRemoteDescription(text);
  ice_->Connect(*remote_);
}

void Transport::BeginHandshake() {
  if (!remote_ || dtls_ || !isIceReady_) return;
  TellState("reachable");
  dtls_.emplace(certificate_, remote_->digestName, remote_->digest,
                remote_->isActive, [this](Bytes datagram) {
                  ice_->Send({&datagram, 1});
                });
  dtls_->Start();
  for (const auto& datagram : early_) dtls_->Take(datagram);
  early_.clear();
  HandshakeMoved();
}

void Transport::Arrived(Bytes datagram) {
  if (IsDtls(datagram)) {
    if (dtls_) {
      dtls_->Take(datagram);
      HandshakeMoved();
    } else if (early_.size() < kMostEarlyDatagrams) {
      early_.emplace_back(datagram.begin(), datagram.end());
    }
  } else if (srtp_ && !IsRtcp(datagram)) {
    if (onMedia_) onMedia_(datagram);
  } else if (srtp_) {
    const Bytes report = srtp_->OpenReport(datagram);
    if (!report.empty()) writer_.WritePacket(kReport, report);
  }
}

void Transport::HandshakeMoved() {
  if (dtls_->is_closed()) {
    TellState("closed");
    return;
  }
  if (!srtp_ && dtls_->keys()) {
    srtp_.emplace(*dtls_->keys());
    TellState("connected");
  }
  const auto next = dtls_->next_timer();
  handshakeTimer_.Replace(
      next ? g_timeout_add(static_cast<guint>(next->count()),
                           NoThrow<&Transport::OnHandshakeTimer>, this)
           : 0);
}

gboolean Transport::OnHandshakeTimer(gpointer self) {
  auto& transport = *static_cast<Transport*>(self);
  transport.handshakeTimer_.Forget();
  transport.Guard([&] {
    transport.dtls_->TimerRan();
    transport.HandshakeMoved();
  });
  return G_SOURCE_REMOVE;
}

void Transport::Protect(Bytes packet) {
  if (!srtp_) return;
  if (protectedCount_ == protected_.size()) protected_.emplace_back();
  if (srtp_->Protect(packet, protected_[protectedCount_])) ++protectedCount_;
}

void Transport::SendProtected() {
  if (protectedCount_ == 0) return;
  const std::vector<Bytes> datagrams(
      protected_.begin(),
      protected_.begin() + static_cast<std::ptrdiff_t>(protectedCount_));
  protectedCount_ = 0;
  ice_->Send(datagrams);
}

void Transport::TellState(std::string_view state) {
  writer_.WriteControl(kState, state);
}

void Transport::FlushOutput() {
  if (!writer_.Flush()) {
    End();
  } else if (writer_.has_waiting()) {
    output_.Replace(g_unix_fd_add(outputFd_, G_IO_OUT,
                                  NoThrow<&Transport::OnOutputFree>, this));
  }
}

gboolean Transport::OnOutputFree(gint /*fd*/, GIOCondition /*condition*/,
                                 gpointer self) {
  auto& transport = *static_cast<Transport*>(self);
  transport.output_.Forget();
  transport.Guard([] {});
  return G_SOURCE_REMOVE;
}

}  // namespace linux_capture::transport
