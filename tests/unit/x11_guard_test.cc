#include "launch_boundary/x11_guard.h"

#include <gtest/gtest.h>

#include "launch_boundary/x11_connections.h"

namespace linux_capture {
namespace {

int g_hostErrors = 0;
XErrorHandler g_foundByHost = nullptr;

int CountHostError(Display*, XErrorEvent*) { return ++g_hostErrors; }

// As a careful host does: it passes on what is not its own.
int CountAndPassOn(Display* display, XErrorEvent* event) {
  ++g_hostErrors;
  return g_foundByHost(display, event);
}

void MeetWindowError() {
  XErrorEvent event{};
  event.error_code = BadWindow;
  XlibErrorHandler()(nullptr, &event);
}

class X11GuardTest : public testing::Test {
 protected:
  void SetUp() override {
    g_hostErrors = 0;
    before_ = XSetErrorHandler(CountHostError);
  }
  void TearDown() override { XSetErrorHandler(before_); }

  XErrorHandler before_ = nullptr;
};

TEST_F(X11GuardTest, OnlyErrorsOfTheCapturesThreadsAreKeptFromTheHost) {
  const X11Guard guard;
  MeetWindowError();
  EXPECT_EQ(g_hostErrors, 1);
  const X11CaptureScope scope(&guard);
  MeetWindowError();
  EXPECT_EQ(g_hostErrors, 1);
}

TEST_F(X11GuardTest, AHandlerThatTheHostInstallsMeanwhileIsPutBehind) {
  const X11Guard guard;
  g_foundByHost = XSetErrorHandler(CountAndPassOn);
  TakeX11HandlersBack();
  EXPECT_EQ(XlibErrorHandler(), CountAndPassOn) << "it may be there briefly";
  TakeX11HandlersBack();
  EXPECT_NE(XlibErrorHandler(), CountAndPassOn);
  // Both of the host's handlers, each once.
  MeetWindowError();
  EXPECT_EQ(g_hostErrors, 2);
  const X11CaptureScope scope(&guard);
  MeetWindowError();
  EXPECT_EQ(g_hostErrors, 2);
}

TEST_F(X11GuardTest, AHandlerForOneRequestIsLeftAlone) {
  const X11Guard guard;
  const XErrorHandler ours = XSetErrorHandler(CountAndPassOn);
  TakeX11HandlersBack();
  XSetErrorHandler(ours);
  TakeX11HandlersBack();
  XSetErrorHandler(CountAndPassOn);
  TakeX11HandlersBack();
  EXPECT_EQ(XlibErrorHandler(), CountAndPassOn);
  XSetErrorHandler(ours);
}

TEST_F(X11GuardTest, AfterTheCaptureTheHostHasItsLatestHandler) {
  {
    const X11Guard guard;
    g_foundByHost = XSetErrorHandler(CountAndPassOn);
    TakeX11HandlersBack();
    TakeX11HandlersBack();
  }
  EXPECT_EQ(XlibErrorHandler(), CountAndPassOn);
  MeetWindowError();
  EXPECT_EQ(g_hostErrors, 2) << "both of the host's handlers, each once";
}

}  // namespace
}  // namespace linux_capture
