#include "common/visible_text.h"

#include <gtest/gtest.h>

namespace linux_capture::programs {
namespace {

TEST(VisibleText, KeepsWhatCanBeSeen) {
  constexpr std::string_view kText = "Ünï \"c\\o\" – 日本 😀 \xf4\x8f\xbf\xbf";
  EXPECT_EQ(VisibleText(kText), kText);
}

TEST(VisibleText, WritesControlCharactersOut) {
  EXPECT_EQ(VisibleText("a\nb\tc\rd\x1b[2Je\x7f"),
            R"(a\nb\tc\u000dd\u001b[2Je\u007f)");
  EXPECT_EQ(VisibleText(std::string_view("a\0b", 3)), R"(a\u0000b)");
  // Those above ASCII, of which U+009B begins a command of a terminal as well.
  EXPECT_EQ(VisibleText("\u0080\u009b\u009f\u00a0"),
            "\\u0080\\u009b\\u009f\u00a0");
}

TEST(VisibleText, WritesLineEndsAndMarksOfDirectionOut) {
  EXPECT_EQ(VisibleText("\u2028\u2029"), R"(\u2028\u2029)");
  EXPECT_EQ(VisibleText("gpj.\u202eexe"), R"(gpj.\u202eexe)");
  EXPECT_EQ(VisibleText("\u202a\u202b\u202c\u202d"),
            R"(\u202a\u202b\u202c\u202d)");
  EXPECT_EQ(VisibleText("\u2066\u2067\u2068\u2069"),
            R"(\u2066\u2067\u2068\u2069)");
  EXPECT_EQ(VisibleText("\u061c\u200e\u200f"), R"(\u061c\u200e\u200f)");
}

TEST(VisibleText, WritesBytesThatAreNotUtf8Out) {
  EXPECT_EQ(VisibleText("a\xff\x80z"), R"(a\xff\x80z)");
  EXPECT_EQ(VisibleText("\xed\xa0\x80"), R"(\xed\xa0\x80)");
  EXPECT_EQ(VisibleText("\xe2\x80"), R"(\xe2\x80)");
}

}  // namespace
}  // namespace linux_capture::programs
