// Answers on a session bus as the desktop portal does, in the ways that a test
// asks for, and prints every call it gets:
//
//   ready                     the name is taken
//   call METHOD ARGUMENTS     in GLib's text form
//   closed PATH               a client closed its request or session
//
// Commands on standard input: "close" closes the session as a desktop does. The
// end of standard input ends the program.

#include <gio/gio.h>
#include <gio/gunixfdlist.h>
#include <gio/gunixsocketaddress.h>
#include <glib-unix.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "fake_portal_interface.h"
#include "fake_portal_options.h"

namespace linux_capture::fake_portal {
namespace {

constexpr const char* kName = "org.freedesktop.portal.Desktop";
constexpr const char* kPath = "/org/freedesktop/portal/desktop";

template <auto release>
struct Deleter {
  void operator()(auto* handle) const noexcept { release(handle); }
};
using ConnectionPtr = std::unique_ptr<GDBusConnection, Deleter<g_object_unref>>;
using FdListPtr = std::unique_ptr<GUnixFDList, Deleter<g_object_unref>>;
using NodePtr = std::unique_ptr<GDBusNodeInfo, Deleter<g_dbus_node_info_unref>>;
using AddressPtr = std::unique_ptr<GSocketAddress, Deleter<g_object_unref>>;
using SocketPtr = std::unique_ptr<GSocket, Deleter<g_object_unref>>;
using VariantPtr = std::unique_ptr<GVariant, Deleter<g_variant_unref>>;
using CharPtr = std::unique_ptr<gchar, Deleter<g_free>>;
using LoopPtr = std::unique_ptr<GMainLoop, Deleter<g_main_loop_unref>>;

void Print(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

class FakePortal {
 public:
  explicit FakePortal(FakePortalOptions options)
      : options_(std::move(options)),
        loop_(g_main_loop_new(nullptr, FALSE)),
        node_(g_dbus_node_info_new_for_xml(kInterfaces, nullptr)),
        connection_(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr)) {
    if (!connection_) throw std::runtime_error("there is no session bus");
    if (options_.hasScreenCast) {
      Register(kPath, "org.freedesktop.portal.ScreenCast");
    }
    const VariantPtr reply(g_dbus_connection_call_sync(
        connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
        "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", kName, 0),
        nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    if (!reply) throw std::runtime_error("the name cannot be taken");
  }

  void Run() {
    g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
                  OnInput, this);
    Print("ready");
    g_main_loop_run(loop_.get());
  }

 private:
  void Register(const std::string& path, const char* interface) {
    // Every object may be asked for any of its interface's properties.
    static constexpr GDBusInterfaceVTable kTable = {
        OnCall, OnProperty, nullptr, {nullptr}};
    g_dbus_connection_register_object(
        connection_.get(), path.c_str(),
        g_dbus_node_info_lookup_interface(node_.get(), interface), &kTable,
        this, nullptr, nullptr);
  }

  void Answer(const std::string& method, GVariant* parameters,
              GDBusMethodInvocation* invocation) {
    const auto mood = options_.moods.find(method);
    if (mood != options_.moods.end() && mood->second == "refuse") {
      g_dbus_method_invocation_return_dbus_error(
          invocation, "org.freedesktop.portal.Error.NotAllowed",
          "the fake portal was told to refuse");
      return;
    }
    if (method == "OpenPipeWireRemote") {
      HandOverRemote(invocation);
      return;
    }
    // The settings are the last argument of each request.
    const VariantPtr settings(g_variant_get_child_value(
        parameters, g_variant_n_children(parameters) - 1));
    const std::string sender = g_dbus_method_invocation_get_sender(invocation);
    const std::string path =
        options_.choosesPaths
            ? std::string(kPath) + "/request/chosen/" + method
            : PathOf("request", sender, settings.get(), "handle_token");
    Register(path, "org.freedesktop.portal.Request");
    VariantPtr results(
        g_variant_ref_sink(ResultsOf(method, sender, settings.get())));
    const bool isAnswered = mood == options_.moods.end();
    if (isAnswered && options_.isEarly) {
      Respond(method, sender, path, results.get());
    }
    g_dbus_method_invocation_return_value(invocation,
                                          g_variant_new("(o)", path.c_str()));
    if (isAnswered && !options_.isEarly) {
      Respond(method, sender, path, results.get());
    }
  }

  void Respond(const std::string& method, const std::string& client,
               const std::string& path, GVariant* results) {
    const auto code = options_.codes.find(method);
    g_dbus_connection_emit_signal(
        connection_.get(), client.c_str(), path.c_str(),
        "org.freedesktop.portal.Request", "Response",
        g_variant_new("(u@a{sv})",
                      code == options_.codes.end() ? 0 : code->second, results),
        nullptr);
  }

  GVariant* ResultsOf(const std::string& method, const std::string& client,
                      GVariant* settings) {
    GVariantBuilder results;
    g_variant_builder_init(&results, G_VARIANT_TYPE_VARDICT);
    if (method == "CreateSession") {
      client_ = client;
      session_ = PathOf("session", client, settings, "session_handle_token");
      Register(session_, "org.freedesktop.portal.Session");
      g_variant_builder_add(&results, "{sv}", "session_handle",
                            g_variant_new_string(session_.c_str()));
    } else if (method == "Start") {
      g_variant_builder_add(
          &results, "{sv}", "streams",
          g_variant_new_parsed(("@a(ua{sv}) " + options_.streams).c_str()));
      if (options_.restoreToken) {
        g_variant_builder_add(
            &results, "{sv}", "restore_token",
            g_variant_new_string(options_.restoreToken->c_str()));
      }
    }
    return g_variant_builder_end(&results);
  }

  static std::string PathOf(const std::string& kind, std::string sender,
                            GVariant* settings, const char* key) {
    const gchar* token = "missing";
    g_variant_lookup(settings, key, "&s", &token);
    for (char& character : sender) {
      if (character == '.') character = '_';
    }
    return std::string(kPath) + "/" + kind + "/" + sender.substr(1) + "/" +
           token;
  }

  // A pipe with a known text stands for the connection to PipeWire.
  void HandOverRemote(GDBusMethodInvocation* invocation) const {
    const FdListPtr list(options_.remote.empty() ? TextAsFd() : RemoteAsFd());
    g_dbus_method_invocation_return_value_with_unix_fd_list(
        invocation, g_variant_new("(h)", 0), list.get());
  }

  GUnixFDList* RemoteAsFd() const {
    const SocketPtr socket(g_socket_new(G_SOCKET_FAMILY_UNIX,
                                        G_SOCKET_TYPE_STREAM,
                                        G_SOCKET_PROTOCOL_DEFAULT, nullptr));
    const AddressPtr address(
        g_unix_socket_address_new(options_.remote.c_str()));
    if (!g_socket_connect(socket.get(), address.get(), nullptr, nullptr)) {
      throw std::runtime_error("cannot connect to " + options_.remote);
    }
    GUnixFDList* const list = g_unix_fd_list_new();
    g_unix_fd_list_append(list, g_socket_get_fd(socket.get()), nullptr);
    return list;
  }

  static GUnixFDList* TextAsFd() {
    constexpr std::string_view kText = "the connection of the fake portal";
    std::array<gint, 2> ends{};
    g_unix_open_pipe(ends.data(), 0, nullptr);
    if (write(ends[1], kText.data(), kText.size()) < 0) std::perror("write");
    close(ends[1]);
    // The list closes what it was made of.
    return g_unix_fd_list_new_from_array(ends.data(), 1);
  }

  static void OnCall(GDBusConnection*, const gchar*, const gchar* path,
                     const gchar*, const gchar* method, GVariant* parameters,
                     GDBusMethodInvocation* invocation, gpointer self) {
    if (std::string_view(method) == "Close") {
      Print(std::string("closed ") + path);
      g_dbus_method_invocation_return_value(invocation, nullptr);
      return;
    }
    const CharPtr text(g_variant_print(parameters, TRUE));
    Print(std::string("call ") + method + " " + text.get());
    static_cast<FakePortal*>(self)->Answer(method, parameters, invocation);
  }

  static GVariant* OnProperty(GDBusConnection*, const gchar*, const gchar*,
                              const gchar*, const gchar* property, GError**,
                              gpointer self) {
    const FakePortalOptions& options = static_cast<FakePortal*>(self)->options_;
    const std::string_view name = property;
    return g_variant_new_uint32(name == "version" ? options.version
                                : name == "AvailableSourceTypes"
                                    ? options.types
                                    : options.cursors);
  }

  static gboolean OnInput(gint fd, GIOCondition, gpointer self) {
    auto& portal = *static_cast<FakePortal*>(self);
    std::array<char, 256> text{};
    const ssize_t length = read(fd, text.data(), text.size());
    if (length <= 0) {
      g_main_loop_quit(portal.loop_.get());
      return G_SOURCE_REMOVE;
    }
    g_dbus_connection_emit_signal(
        portal.connection_.get(), portal.client_.c_str(),
        portal.session_.c_str(), "org.freedesktop.portal.Session", "Closed",
        nullptr, nullptr);
    return G_SOURCE_CONTINUE;
  }

  FakePortalOptions options_;
  LoopPtr loop_;
  NodePtr node_;
  ConnectionPtr connection_;
  std::string client_;
  std::string session_;
};

}  // namespace
}  // namespace linux_capture::fake_portal

int main(int argc, char** argv) {
  using namespace linux_capture::fake_portal;
  try {
    FakePortal portal(
        ParseFakePortalOptions({argv + (argc > 0 ? 1 : 0), argv + argc}));
    portal.Run();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "fake_portal: %s\n%s", error.what(), kUsage);
    return 1;
  }
}
