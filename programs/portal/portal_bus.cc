#include "portal/portal_bus.h"

#include <gio/gunixfdlist.h>

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

#include "base/glib_callback.h"
#include "common/program_error.h"
#include "portal/session_bus.h"

namespace linux_capture::portal {
namespace {

using programs::kStatusNoPortal;
using programs::kStatusRefused;
using programs::kStatusSessionEnded;
using programs::ProgramError;

constexpr const char* kPortalName = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kScreenCast = "org.freedesktop.portal.ScreenCast";
constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr int kCloseTimeoutMs = 1'000;
// The first call may start the portal, which starts its backend.
constexpr std::chrono::seconds kFirstAnswerLimit{25};
constexpr std::chrono::seconds kAnswerLimit{10};

// Without the name of the D-Bus error, which GLib puts in front.
std::string MessageOf(GError* error) {
  g_dbus_error_strip_remote_error(error);
  return error->message;
}

bool IsOneOf(const GError* error, std::initializer_list<int> codes) {
  return error->domain == G_DBUS_ERROR &&
         std::find(codes.begin(), codes.end(), error->code) != codes.end();
}

[[noreturn]] void ThrowNoAnswer(const std::string& who,
                                std::chrono::seconds limit) {
  throw ProgramError(
      kStatusRefused,
      who + " (waited " + std::to_string(limit.count()) + " seconds)");
}

[[noreturn]] void ThrowNoInterface(GError* error) {
  if (IsOneOf(
          error,
          {G_DBUS_ERROR_SERVICE_UNKNOWN, G_DBUS_ERROR_NAME_HAS_NO_OWNER,
           G_DBUS_ERROR_SPAWN_EXEC_FAILED, G_DBUS_ERROR_SPAWN_FORK_FAILED,
           G_DBUS_ERROR_SPAWN_CHILD_EXITED, G_DBUS_ERROR_SPAWN_CHILD_SIGNALED,
           G_DBUS_ERROR_SPAWN_FAILED, G_DBUS_ERROR_SPAWN_SERVICE_NOT_FOUND})) {
    throw ProgramError(kStatusNoPortal,
                       "no desktop portal on the session bus (" +
                           MessageOf(error) +
                           "); install xdg-desktop-portal and the backend of "
                           "this desktop");
  }
  if (IsOneOf(error,
              {G_DBUS_ERROR_UNKNOWN_INTERFACE, G_DBUS_ERROR_UNKNOWN_METHOD,
               G_DBUS_ERROR_UNKNOWN_OBJECT, G_DBUS_ERROR_INVALID_ARGS})) {
    throw ProgramError(kStatusNoPortal,
                       "the desktop portal offers no screen cast; install the "
                       "backend of this desktop (xdg-desktop-portal-gnome, "
                       "-kde, -wlr, ...) and log in again");
  }
  throw ProgramError(kStatusRefused,
                     "the desktop portal does not answer: " + MessageOf(error));
}

}  // namespace

PortalBus::PortalBus(HostWatch& host)
    : host_(host), connection_(ConnectToSessionBus(host)) {
  closedHandler_ = ConnectSignal<&PortalBus::OnConnectionClosed>(
      connection_.get(), "closed", this);
  AskForProperties();
  Subscribe();
}

PortalBus::~PortalBus() {
  for (const guint id : subscriptions_) {
    g_dbus_connection_signal_unsubscribe(connection_.get(), id);
  }
  g_signal_handler_disconnect(connection_.get(), closedHandler_);
  // Answers to calls given up would be delivered by the main context, which
  // nobody runs from here on.
}

std::uint32_t PortalBus::Property(const char* name) const {
  guint32 value = 0;
  g_variant_lookup(properties_.get(), name, "u", &value);
  return value;
}

std::string PortalBus::PathOf(const char* kind,
                              const std::string& token) const {
  std::string sender = g_dbus_connection_get_unique_name(connection_.get()) + 1;
  std::replace(sender.begin(), sender.end(), '.', '_');
  return std::string(kPortalPath) + "/" + kind + "/" + sender + "/" + token;
}

PortalResponse PortalBus::Request(const char* method, GVariant* arguments,
                                  const std::string& expectedPath,
                                  const std::string& session,
                                  Answerer answerer) {
  const PendingCall call = CallScreenCast(method, arguments, "(o)");
  const gchar* returned = nullptr;
  g_variant_get(call.result.get(), "(&o)", &returned);
  // Portals older than 0.9 choose the path themselves.
  const std::string returnedPath = returned;
  auto found = responses_.end();
  const auto hasResponse = [&] {
    found = responses_.find(expectedPath);
    if (found == responses_.end()) found = responses_.find(returnedPath);
    if (found != responses_.end()) return true;
    ThrowIfClosed(session);
    return false;
  };
  if (answerer == Answerer::kUser) {
    WaitUntil(hasResponse);
  } else if (!WaitUntil(hasResponse, kAnswerLimit)) {
    ThrowNoAnswer(std::string("the portal did nothing about ") + method,
                  kAnswerLimit);
  }
  PortalResponse response = std::move(found->second);
  responses_.erase(found);
  return response;
}

UniqueFd PortalBus::OpenPipeWireRemote(const std::string& session) {
  const PendingCall call = CallScreenCast(
      "OpenPipeWireRemote", g_variant_new("(oa{sv})", session.c_str(), nullptr),
      "(h)");
  gint32 index = -1;
  g_variant_get(call.result.get(), "(h)", &index);
  GError* error = nullptr;
  UniqueFd fd(call.fds == nullptr
                  ? -1
                  : g_unix_fd_list_get(call.fds.get(), index, &error));
  const GErrorPtr owned(error);
  if (!fd) {
    throw ProgramError(kStatusRefused,
                       "the portal handed over no PipeWire connection");
  }
  return fd;
}

void PortalBus::HoldSession(const std::string& session) {
  WaitUntil([&] {
    ThrowIfClosed(session);
    return false;
  });
}

void PortalBus::ThrowIfClosed(const std::string& session) const {
  if (closedSessions_.contains(session)) {
    throw ProgramError(kStatusSessionEnded,
                       "the desktop closed the screen cast");
  }
}

void PortalBus::Close(const std::string& path, const char* interface) noexcept {
  if (isConnectionLost_ || isPortalGone_) return;
  // With an answer, so that the message has left before the process ends.
  const GVariantPtr ignored(g_dbus_connection_call_sync(
      connection_.get(), owner_.c_str(), path.c_str(), interface, "Close",
      nullptr, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, kCloseTimeoutMs,
      nullptr, nullptr));
}

void PortalBus::AskForProperties() {
  const PendingCall all = Call(
      {kPortalName, kPortalPath, "org.freedesktop.DBus.Properties", "GetAll"},
      g_variant_new("(s)", kScreenCast), "(a{sv})", kFirstAnswerLimit,
      "the desktop portal does not answer");
  if (all.error) ThrowNoInterface(all.error.get());
  properties_.reset(g_variant_get_child_value(all.result.get(), 0));

  const PendingCall owner =
      Call({kBusName, kBusPath, kBusName, "GetNameOwner"},
           g_variant_new("(s)", kPortalName), "(s)", kAnswerLimit,
           "the session bus does not answer");
  if (owner.error) ThrowNoInterface(owner.error.get());
  const gchar* name = nullptr;
  g_variant_get(owner.result.get(), "(&s)", &name);
  owner_ = name;
}

// Before the first request, because its answer may be sent before the call of
// the request has returned; and for all paths, because a portal may choose
// another path than the one it should.
void PortalBus::Subscribe() {
  const auto subscribe = [this](const char* sender, const char* interface,
                                const char* signal, const char* argument) {
    subscriptions_.push_back(g_dbus_connection_signal_subscribe(
        connection_.get(), sender, interface, signal, nullptr, argument,
        G_DBUS_SIGNAL_FLAGS_NONE, NoThrow<&PortalBus::OnSignal>, this,
        nullptr));
  };
  subscribe(owner_.c_str(), "org.freedesktop.portal.Request", "Response",
            nullptr);
  subscribe(owner_.c_str(), "org.freedesktop.portal.Session", "Closed",
            nullptr);
  subscribe(kBusName, kBusName, "NameOwnerChanged", owner_.c_str());
}

bool PortalBus::WaitUntil(const std::function<bool()>& isDone,
                          std::optional<std::chrono::seconds> limit) {
  const auto isOver = [&] {
    if (isDone()) return true;
    if (isConnectionLost_) {
      throw ProgramError(kStatusSessionEnded,
                         "the connection to the session bus was lost");
    }
    if (isPortalGone_) {
      throw ProgramError(kStatusSessionEnded, "the desktop portal went away");
    }
    return false;
  };
  return host_.WaitUntil(isOver, limit);
}

PortalBus::PendingCall PortalBus::Call(const Method& method,
                                       GVariant* arguments,
                                       const char* replyType,
                                       std::chrono::seconds limit,
                                       const std::string& complaint) {
  const auto call = calls_.emplace(calls_.end());
  // The library's own limit would come first for some and its words name
  // nobody.
  g_dbus_connection_call_with_unix_fd_list(
      connection_.get(), method.destination, method.path, method.interface,
      method.name, arguments, G_VARIANT_TYPE(replyType), G_DBUS_CALL_FLAGS_NONE,
      G_MAXINT, nullptr, nullptr, NoThrow<&PortalBus::OnCallDone>, &*call);
  if (!WaitUntil([&] { return call->isDone; }, limit)) {
    ThrowNoAnswer(complaint, limit);
  }
  PendingCall result = std::move(*call);
  calls_.erase(call);
  return result;
}

PortalBus::PendingCall PortalBus::CallScreenCast(const char* method,
                                                 GVariant* arguments,
                                                 const char* replyType) {
  PendingCall call =
      Call({owner_.c_str(), kPortalPath, kScreenCast, method}, arguments,
           replyType, kAnswerLimit,
           std::string("the desktop portal does not answer ") + method);
  if (call.error) {
    throw ProgramError(kStatusRefused, std::string("the portal refused ") +
                                           method + ": " +
                                           MessageOf(call.error.get()));
  }
  return call;
}

void PortalBus::OnCallDone(GObject* source, GAsyncResult* result,
                           gpointer call) {
  auto& pending = *static_cast<PendingCall*>(call);
  GUnixFDList* fds = nullptr;
  GError* error = nullptr;
  pending.result.reset(g_dbus_connection_call_with_unix_fd_list_finish(
      G_DBUS_CONNECTION(source), &fds, result, &error));
  pending.fds.reset(fds);
  pending.error.reset(error);
  pending.isDone = true;
}

void PortalBus::OnSignal(GDBusConnection*, const gchar*, const gchar* path,
                         const gchar*, const gchar* signal,
                         GVariant* parameters, gpointer self) {
  auto& bus = *static_cast<PortalBus*>(self);
  const std::string_view name = signal;
  if (name == "Closed") {
    bus.closedSessions_.insert(path);
  } else if (name == "NameOwnerChanged") {
    bus.isPortalGone_ = true;
  } else if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(ua{sv})"))) {
    PortalResponse response;
    GVariant* results = nullptr;
    g_variant_get(parameters, "(u@a{sv})", &response.code, &results);
    response.results.reset(results);
    bus.responses_.insert_or_assign(path, std::move(response));
  }
}

void PortalBus::OnConnectionClosed(GDBusConnection*, gboolean, GError*,
                                   gpointer self) {
  static_cast<PortalBus*>(self)->isConnectionLost_ = true;
}

}  // namespace linux_capture::portal
