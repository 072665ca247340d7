#include "base/stage_log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "base/clock.h"

namespace linux_capture {
namespace {

class StageLogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = ::testing::TempDir() + "stage-log-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    path_ = folder_ + "/stages.log";
  }
  void TearDown() override {
    for (const char* name : {"/stages.log", "/other.log", "/folder"}) {
      remove((folder_ + name).c_str());
    }
    rmdir(folder_.c_str());
  }

  static std::string Contents(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }

  static void Write(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
  }

  std::string folder_;
  std::string path_;
};

TEST(StageLineTest, ATextWithNewlinesMakesNoLineOfItsOwn) {
  const std::string line = FormatStageLine(
      7, 8, "captureSetup:error:no\n[linux_capture_stage] pid=1\r\t\x7f end");
  EXPECT_EQ(line,
            "[linux_capture_stage] pid=7 t=8 stage=captureSetup:error:no "
            "[linux_capture_stage] pid=1    end\n");
}

TEST(StageLineTest, WordsOfOtherLanguagesStay) {
  EXPECT_EQ(FormatStageLine(7, 8, "kein Element »x«"),
            "[linux_capture_stage] pid=7 t=8 stage=kein Element »x«\n");
}

TEST(StageLineTest, ALineNamesProcessTimeAndStage) {
  EXPECT_EQ(FormatStageLine(4711, 1'700'000'000'123ULL, "captureSetup:enter"),
            "[linux_capture_stage] pid=4711 t=1700000000123 "
            "stage=captureSetup:enter\n");
  EXPECT_EQ(FormatStageLine(1, 0, ""),
            "[linux_capture_stage] pid=1 t=0 stage=\n");
}

TEST_F(StageLogTest, AFreshFileBelongsToItsOwnerAlone) {
  EXPECT_TRUE(AppendStageLine(path_.c_str(), "first\n"));
  EXPECT_EQ(Contents(path_), "first\n");
  struct stat status {};
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(StageLogTest, LinesAreAppended) {
  Write(path_, "earlier\n");
  EXPECT_TRUE(AppendStageLine(path_.c_str(), "first\n"));
  EXPECT_TRUE(AppendStageLine(path_.c_str(), "second\n"));
  EXPECT_EQ(Contents(path_), "earlier\nfirst\nsecond\n");
}

TEST_F(StageLogTest, ALinkIsNotFollowed) {
  const std::string target = folder_ + "/other.log";
  Write(target, "kept\n");
  ASSERT_EQ(symlink(target.c_str(), path_.c_str()), 0);
  EXPECT_FALSE(AppendStageLine(path_.c_str(), "line\n"));
  EXPECT_EQ(Contents(target), "kept\n");
}

TEST_F(StageLogTest, ADanglingLinkCreatesNothing) {
  const std::string target = folder_ + "/other.log";
  ASSERT_EQ(symlink(target.c_str(), path_.c_str()), 0);
  EXPECT_FALSE(AppendStageLine(path_.c_str(), "line\n"));
  EXPECT_NE(access(target.c_str(), F_OK), 0);
}

TEST_F(StageLogTest, AFileWithASecondNameIsLeftAlone) {
  const std::string target = folder_ + "/other.log";
  Write(target, "kept\n");
  ASSERT_EQ(link(target.c_str(), path_.c_str()), 0);
  EXPECT_FALSE(AppendStageLine(path_.c_str(), "line\n"));
  EXPECT_EQ(Contents(target), "kept\n");
}

TEST_F(StageLogTest, AFifoDoesNotBlock) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(AppendStageLine(path_.c_str(), "line\n"));
}

TEST_F(StageLogTest, AFolderAndAMissingFolderAreLeftAlone) {
  EXPECT_FALSE(AppendStageLine(folder_.c_str(), "line\n"));
  EXPECT_FALSE(AppendStageLine((path_ + "/deeper").c_str(), "line\n"));
}

TEST_F(StageLogTest, AFileOfAnotherUserIsLeftAlone) {
  Write(path_, "kept\n");
  if (geteuid() == 0) {
    ASSERT_EQ(chown(path_.c_str(), 65534, 65534), 0);
    EXPECT_FALSE(AppendStageLine(path_.c_str(), "line\n"));
    EXPECT_EQ(Contents(path_), "kept\n");
  } else {
    // Only root can make such a file; one of root's is always there.
    EXPECT_FALSE(AppendStageLine("/etc/passwd", ""));
  }
}

TEST_F(StageLogTest, AStageGoesToStandardErrorAsOneLine) {
  const std::uint64_t beforeMs = WallClockMs();
  ::testing::internal::CaptureStderr();
  LogCaptureStage("test:stage one");
  const std::string line = ::testing::internal::GetCapturedStderr();
  const std::string head =
      "[linux_capture_stage] pid=" + std::to_string(getpid()) + " t=";
  ASSERT_EQ(line.rfind(head, 0), 0U) << line;
  const std::size_t blank = line.find(' ', head.size());
  EXPECT_EQ(line.substr(blank), " stage=test:stage one\n");
  const std::uint64_t timeMs =
      std::stoull(line.substr(head.size(), blank - head.size()));
  EXPECT_GE(timeMs, beforeMs);
  EXPECT_LE(timeMs, WallClockMs());
}

TEST_F(StageLogTest, AStandardErrorThatNobodyReadsDoesNotBlock) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const int saved = dup(STDERR_FILENO);
  ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
  ASSERT_GE(fcntl(ends[1], F_SETPIPE_SZ, 4096), 0);
  const std::string stage(3000, 'x');
  for (int i = 0; i < 4; ++i) LogCaptureStage(stage);
  dup2(saved, STDERR_FILENO);
  close(saved);
  close(ends[0]);
  close(ends[1]);
  SUCCEED();
}

}  // namespace
}  // namespace linux_capture
