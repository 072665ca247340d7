#include "launch_boundary/pipewire_connection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <map>
#include <string>

namespace linux_capture {
namespace {

std::string PathWith(const std::map<std::string, std::string>& environment) {
  return PipeWireSocketPath([&environment](const char* name) -> const char* {
    const auto found = environment.find(name);
    return found == environment.end() ? nullptr : found->second.c_str();
  });
}

TEST(PipeWireSocketPathTest, IsTheFirstDaemonOfTheSession) {
  EXPECT_EQ(PathWith({{"XDG_RUNTIME_DIR", "/run/user/7"}}),
            "/run/user/7/pipewire-0");
}

TEST(PipeWireSocketPathTest, FollowsPipeWiresOwnVariablesFirst) {
  EXPECT_EQ(PathWith({{"XDG_RUNTIME_DIR", "/run/user/7"},
                      {"PIPEWIRE_RUNTIME_DIR", "/tmp/own"}}),
            "/tmp/own/pipewire-0");
  EXPECT_EQ(PathWith({{"XDG_RUNTIME_DIR", "/run/user/7"},
                      {"PIPEWIRE_REMOTE", "pipewire-1"}}),
            "/run/user/7/pipewire-1");
  EXPECT_EQ(PathWith({{"XDG_RUNTIME_DIR", "/run/user/7"},
                      {"PIPEWIRE_REMOTE", "/tmp/daemon"}}),
            "/tmp/daemon");
}

TEST(PipeWireSocketPathTest, IsUnknownWithoutAFolderOrAPlainName) {
  EXPECT_EQ(PathWith({}), "");
  EXPECT_EQ(PathWith({{"XDG_RUNTIME_DIR", "/run/user/7"},
                      {"PIPEWIRE_REMOTE", "[ a, b ]"}}),
            "");
  EXPECT_EQ(PathWith({{"XDG_RUNTIME_DIR", "/run/user/7"},
                      {"PIPEWIRE_REMOTE", "internal"}}),
            "");
}

class LocalConnectionTest : public testing::Test {
 protected:
  void SetUp() override {
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    ours_ = UniqueFd(ends[0]);
    theirs_ = UniqueFd(ends[1]);
  }

  UniqueFd ours_;
  UniqueFd theirs_;
};

TEST_F(LocalConnectionTest, HangsUpWhenTheOtherEndCloses) {
  EXPECT_FALSE(IsHungUp(ours_.get()));
  theirs_.reset();
  EXPECT_TRUE(IsHungUp(ours_.get()));
}

TEST_F(LocalConnectionTest, DoesNotHangUpOverDataAndLeavesItThere) {
  ASSERT_EQ(write(theirs_.get(), "x", 1), 1);
  EXPECT_FALSE(IsHungUp(ours_.get()));
  char byte = 0;
  EXPECT_EQ(read(ours_.get(), &byte, 1), 1);
  EXPECT_EQ(byte, 'x');
}

TEST_F(LocalConnectionTest, KnowsTheProcessAtTheOtherEnd) {
  EXPECT_EQ(PeerProcess(ours_.get()), getpid());
  EXPECT_EQ(PeerProcess(-1), -1);
}

TEST(IsHungUpTest, IsFalseWithoutADescriptor) { EXPECT_FALSE(IsHungUp(-1)); }

}  // namespace
}  // namespace linux_capture
