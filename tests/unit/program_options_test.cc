#include "common/program_options.h"

#include <gtest/gtest.h>

#include <vector>

#include "common/program_error.h"

namespace linux_capture::programs {
namespace {

class ProgramOptions : public testing::Test {
 protected:
  // False when help or the version was told.
  bool Parse(const std::vector<std::string>& arguments) {
    return ParseArguments(
        arguments,
        {{"--flag", [this] { met_.emplace_back("--flag"); }},
         {"--value-of", [this](const std::string& v) { met_.push_back(v); }}},
        {"the usage\n", "program 1.2"});
  }

  // The message of the refusal.
  std::string RefusalOf(const std::vector<std::string>& arguments) {
    try {
      Parse(arguments);
    } catch (const ProgramError& error) {
      EXPECT_EQ(error.status(), kStatusUsage);
      return error.what();
    }
    return "no refusal";
  }

  std::vector<std::string> met_;
};

TEST_F(ProgramOptions, AreMetInTheirOrder) {
  EXPECT_TRUE(Parse({"--value-of", "1", "--flag", "--value-of=2=3",
                     "--value-of=", "--value-of", "--flag"}));
  EXPECT_EQ(met_,
            (std::vector<std::string>{"1", "--flag", "2=3", "", "--flag"}));
}

TEST_F(ProgramOptions, AnswerForHelpAndVersion) {
  testing::internal::CaptureStdout();
  EXPECT_FALSE(Parse({"--flag", "--help", "--nonsense"}));
  EXPECT_FALSE(Parse({"-h"}));
  EXPECT_FALSE(Parse({"--version"}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "the usage\nthe usage\nprogram 1.2\n");
}

TEST_F(ProgramOptions, RefuseAValueThatIsMissingOrTooMuch) {
  EXPECT_EQ(RefusalOf({"--value-of"}), "--value-of needs a value");
  EXPECT_EQ(RefusalOf({"--flag=1"}), "--flag takes no value");
}

TEST_F(ProgramOptions, NameTheOneThatWasProbablyMeant) {
  for (const char* slip : {"--flg", "--flags", "-flag", "flag", "--fl"}) {
    EXPECT_EQ(RefusalOf({slip}),
              "unknown option \"" + std::string(slip) + "\"; is it --flag?");
  }
  EXPECT_EQ(RefusalOf({"--hlep"}), "unknown option \"--hlep\"; is it --help?");
}

TEST_F(ProgramOptions, PointToTheListWhereNoneIsNear) {
  for (const char* other : {"--nonsense", "word", "", "-", "--"}) {
    EXPECT_EQ(RefusalOf({other}), "unknown option \"" + std::string(other) +
                                      "\"; --help lists all of them");
  }
}

TEST_F(ProgramOptions, RepeatNeitherAValueNorAWholeBook) {
  EXPECT_EQ(RefusalOf({"--secret=abc"}),
            "unknown option \"--secret\"; --help lists all of them");
  const std::string refusal = RefusalOf({std::string(100'000, 'x')});
  EXPECT_LT(refusal.size(), 200U);
}

}  // namespace
}  // namespace linux_capture::programs
