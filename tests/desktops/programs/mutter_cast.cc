// Asks Mutter for a screen cast, without a portal and its dialog, and holds it:
//
//   mutter_cast --monitor CONNECTOR | --window ID | --focused | --virtual
//               [--cursor hidden|embedded|metadata] [--input]
//
//   node N            the stream, once it is there
//   closed            the compositor has ended the session
//
// --focused takes the window that has the focus. With --input the session is
// one of a remote desktop, whose pointer and keyboard are the commands on
// standard input:
//
//   motion DX DY      the pointer moves, in pixels
//   button CODE 0|1   a button of the mouse goes up or down, by evdev's number
//   key CODE 0|1      the same for a key
//
// "stop" ends the session and not the program; the end of standard input ends
// both.

#include <gio/gio.h>
#include <glib-unix.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

namespace linux_capture::mutter_cast {
namespace {

constexpr const char* kScreenCast = "org.gnome.Mutter.ScreenCast";
constexpr const char* kScreenCastPath = "/org/gnome/Mutter/ScreenCast";
constexpr const char* kRemoteDesktop = "org.gnome.Mutter.RemoteDesktop";
constexpr const char* kRemoteDesktopPath = "/org/gnome/Mutter/RemoteDesktop";

template <auto release>
struct Deleter {
  void operator()(auto* handle) const noexcept { release(handle); }
};
using ConnectionPtr = std::unique_ptr<GDBusConnection, Deleter<g_object_unref>>;
using VariantPtr = std::unique_ptr<GVariant, Deleter<g_variant_unref>>;
using CharPtr = std::unique_ptr<gchar, Deleter<g_free>>;
using LoopPtr = std::unique_ptr<GMainLoop, Deleter<g_main_loop_unref>>;

struct Options {
  std::string method;
  std::string monitor;
  std::optional<std::uint64_t> window;
  std::uint32_t cursorMode = 0;
  bool hasInput = false;
};

void Print(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

std::uint32_t CursorModeOf(const std::string& name) {
  const std::map<std::string, std::uint32_t> modes = {
      {"hidden", 0}, {"embedded", 1}, {"metadata", 2}};
  return modes.at(name);
}

Options ReadOptions(int count, char** words) {
  Options options;
  for (int at = 1; at < count; ++at) {
    const std::string option = words[at];
    const auto value = [&] {
      if (at + 1 == count) throw std::runtime_error(option + " needs a value");
      return std::string(words[++at]);
    };
    if (option == "--monitor") {
      options.method = "RecordMonitor";
      options.monitor = value();
    } else if (option == "--window") {
      options.method = "RecordWindow";
      options.window = std::stoull(value());
    } else if (option == "--focused") {
      options.method = "RecordWindow";
    } else if (option == "--virtual") {
      options.method = "RecordVirtual";
    } else if (option == "--cursor") {
      options.cursorMode = CursorModeOf(value());
    } else if (option == "--input") {
      options.hasInput = true;
    } else {
      throw std::runtime_error("unknown option " + option);
    }
  }
  if (options.method.empty()) throw std::runtime_error("nothing to record");
  return options;
}

class Cast {
 public:
  explicit Cast(Options options)
      : options_(std::move(options)),
        loop_(g_main_loop_new(nullptr, FALSE)),
        connection_(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr)) {
    if (!connection_) throw std::runtime_error("there is no session bus");
  }

  void Run() {
    if (options_.hasInput) OpenRemoteDesktop();
    OpenSession();
    OpenStream();
    if (options_.hasInput) {
      CallInput("Start", nullptr);
    } else {
      Call(kScreenCast, session_, "org.gnome.Mutter.ScreenCast.Session",
           "Start", nullptr);
    }
    g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
                  OnInput, this);
    g_main_loop_run(loop_.get());
  }

 private:
  VariantPtr Call(const char* name, const std::string& path,
                  const char* interface, const char* method,
                  GVariant* parameters) {
    GError* failure = nullptr;
    VariantPtr reply(g_dbus_connection_call_sync(
        connection_.get(), name, path.c_str(), interface, method, parameters,
        nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &failure));
    if (!reply) {
      const std::string text = failure->message;
      g_error_free(failure);
      throw std::runtime_error(std::string(method) + ": " + text);
    }
    return reply;
  }

  void CallInput(const char* method, GVariant* parameters) {
    Call(kRemoteDesktop, input_, "org.gnome.Mutter.RemoteDesktop.Session",
         method, parameters);
  }

  static std::string PathIn(GVariant* reply) {
    const gchar* path = nullptr;
    g_variant_get(reply, "(&o)", &path);
    return path;
  }

  void OpenRemoteDesktop() {
    input_ = PathIn(Call(kRemoteDesktop, kRemoteDesktopPath, kRemoteDesktop,
                         "CreateSession", nullptr)
                        .get());
    const VariantPtr reply =
        Call(kRemoteDesktop, input_, "org.freedesktop.DBus.Properties", "Get",
             g_variant_new("(ss)", "org.gnome.Mutter.RemoteDesktop.Session",
                           "SessionId"));
    GVariant* raw = nullptr;
    g_variant_get(reply.get(), "(v)", &raw);
    const VariantPtr id(raw);
    inputId_ = g_variant_get_string(id.get(), nullptr);
  }

  void OpenSession() {
    GVariantBuilder settings;
    g_variant_builder_init(&settings, G_VARIANT_TYPE_VARDICT);
    if (!inputId_.empty()) {
      g_variant_builder_add(&settings, "{sv}", "remote-desktop-session-id",
                            g_variant_new_string(inputId_.c_str()));
    }
    session_ = PathIn(Call(kScreenCast, kScreenCastPath, kScreenCast,
                           "CreateSession", g_variant_new("(a{sv})", &settings))
                          .get());
    Subscribe(session_, "org.gnome.Mutter.ScreenCast.Session", "Closed");
  }

  void OpenStream() {
    GVariantBuilder settings;
    g_variant_builder_init(&settings, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&settings, "{sv}", "cursor-mode",
                          g_variant_new_uint32(options_.cursorMode));
    if (options_.window) {
      g_variant_builder_add(&settings, "{sv}", "window-id",
                            g_variant_new_uint64(*options_.window));
    }
    GVariant* const parameters =
        options_.method == "RecordMonitor"
            ? g_variant_new("(sa{sv})", options_.monitor.c_str(), &settings)
            : g_variant_new("(a{sv})", &settings);
    stream_ = PathIn(Call(kScreenCast, session_,
                          "org.gnome.Mutter.ScreenCast.Session",
                          options_.method.c_str(), parameters)
                         .get());
    Subscribe(stream_, "org.gnome.Mutter.ScreenCast.Stream",
              "PipeWireStreamAdded");
  }

  void Subscribe(const std::string& path, const char* interface,
                 const char* signal) {
    g_dbus_connection_signal_subscribe(
        connection_.get(), kScreenCast, interface, signal, path.c_str(),
        nullptr, G_DBUS_SIGNAL_FLAGS_NONE, OnSignal, this, nullptr);
  }

  static void OnSignal(GDBusConnection*, const gchar*, const gchar*,
                       const gchar*, const gchar* signal, GVariant* parameters,
                       gpointer) {
    if (std::string(signal) == "Closed") {
      Print("closed");
      return;
    }
    guint32 node = 0;
    g_variant_get(parameters, "(u)", &node);
    Print("node " + std::to_string(node));
  }

  static gboolean OnInput(gint, GIOCondition, gpointer self) {
    return static_cast<Cast*>(self)->ReadCommands() ? TRUE : FALSE;
  }

  bool ReadCommands() {
    char bytes[256];
    const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
    if (count <= 0) {
      g_main_loop_quit(loop_.get());
      return false;
    }
    pending_.append(bytes, static_cast<std::size_t>(count));
    for (;;) {
      const std::size_t end = pending_.find('\n');
      if (end == std::string::npos) return true;
      const std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      try {
        Obey(line);
      } catch (const std::exception& error) {
        Print(std::string("refused ") + error.what());
      }
    }
  }

  void Obey(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    double first = 0;
    double second = 0;
    words >> command >> first >> second;
    if (command == "motion") {
      CallInput("NotifyPointerMotionRelative",
                g_variant_new("(dd)", first, second));
    } else if (command == "button") {
      CallInput("NotifyPointerButton",
                g_variant_new("(ib)", static_cast<gint32>(first), second != 0));
    } else if (command == "key") {
      CallInput(
          "NotifyKeyboardKeycode",
          g_variant_new("(ub)", static_cast<guint32>(first), second != 0));
    } else if (command == "stop") {
      Call(kScreenCast, session_, "org.gnome.Mutter.ScreenCast.Session", "Stop",
           nullptr);
    } else {
      throw std::runtime_error("unknown command " + line);
    }
  }

  Options options_;
  LoopPtr loop_;
  ConnectionPtr connection_;
  std::string input_;
  std::string inputId_;
  std::string session_;
  std::string stream_;
  std::string pending_;
};

}  // namespace
}  // namespace linux_capture::mutter_cast

int main(int count, char** words) {
  using namespace linux_capture::mutter_cast;
  try {
    Cast(ReadOptions(count, words)).Run();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "mutter_cast: %s\n", error.what());
    return 1;
  }
}
