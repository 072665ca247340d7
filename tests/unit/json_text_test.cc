#include "common/json_text.h"

#include <gtest/gtest.h>

namespace linux_capture::programs {
namespace {

TEST(JsonText, EscapesWhatJsonReserves) {
  EXPECT_EQ(JsonString("a\"b\\c\n\t\r\x01\x7f"),
            R"("a\"b\\c\n\t\u000d\u0001\u007f")");
  EXPECT_EQ(JsonString(std::string_view("a\0b", 3)), R"("a\u0000b")");
}

TEST(JsonText, KeepsWellFormedUtf8) {
  constexpr std::string_view kText = "é€😀\xf4\x8f\xbf\xbf\xed\x9f\xbf";
  EXPECT_EQ(JsonString(kText), "\"" + std::string(kText) + "\"");
}

TEST(JsonText, EscapesWhatActsOnATerminal) {
  EXPECT_EQ(JsonString("\u009b\u202e\u2028\u2066\u200f"),
            R"("\u009b\u202e\u2028\u2066\u200f")");
}

TEST(JsonText, ReplacesEveryByteThatIsNotUtf8) {
  const std::string replacement = "\xef\xbf\xbd";
  const auto replaced = [&](std::string_view text, int count) {
    std::string expected = "\"";
    for (int i = 0; i < count; ++i) expected += replacement;
    EXPECT_EQ(JsonString(text), expected + "\"");
  };
  replaced("\x80", 1);              // a continuation alone
  replaced("\xc3", 1);              // the end of the text inside a character
  replaced("\xe2\x82", 2);          // the same
  replaced("\xc0\xaf", 2);          // overlong
  replaced("\xe0\x9f\xbf", 3);      // overlong
  replaced("\xf0\x8f\xbf\xbf", 4);  // overlong
  replaced("\xed\xa0\x80", 3);      // half of a surrogate pair
  replaced("\xf4\x90\x80\x80", 4);  // beyond the last character
  replaced("\xff", 1);
  EXPECT_EQ(JsonString("a\xc3z"), "\"a" + replacement + "z\"");
}

TEST(JsonText, JoinsMembersAndElementsInOrder) {
  EXPECT_EQ(JsonObject({}), "{}");
  EXPECT_EQ(JsonArray({}), "[]");
  EXPECT_EQ(JsonObject({{"b", JsonNumber(-1)},
                        {"a\"", JsonArray({JsonBool(true), JsonBool(false)})}}),
            R"({"b":-1,"a\"":[true,false]})");
}

TEST(JsonText, WritesNullForWhatIsMissing) {
  EXPECT_EQ(JsonStringOrNull(std::nullopt), "null");
  EXPECT_EQ(JsonStringOrNull("x"), "\"x\"");
  EXPECT_EQ(JsonNumberOrNull<int>(std::nullopt), "null");
  EXPECT_EQ(JsonNumberOrNull<unsigned long>(18446744073709551615UL),
            "18446744073709551615");
}

}  // namespace
}  // namespace linux_capture::programs
