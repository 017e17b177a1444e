// Which bytes pass, and which are written as escapes.

#include "host/logging/escape.h"

#include <gtest/gtest.h>

#include "host/host.h"

namespace {

using Velmar::Host::printable;
using Velmar::Host::quotedField;

struct Case {
  std::string bytes;
  std::string want;
};

TEST(Printable, WritesWhatDeceivesAsEscapes) {
  const Case cases[] = {
      {"", ""},
      {"plain text ~", "plain text ~"},
      {"Gr\xc3\xbc\xc3\x9f"
       "e \xe6\x97\xa5 \xf0\x9f\x93\xac",
       "Gr\xc3\xbc\xc3\x9f"
       "e \xe6\x97\xa5 \xf0\x9f\x93\xac"},
      {"a\nb\r\tc", "a\\nb\\x0d\\x09c"},
      {"say \"hi\" \\n", "say \"hi\" \\n"},
      {std::string("\0\x01\x1b[2J", 6), "\\x00\\x01\\x1b[2J"},
      {"\x7f", "\\x7f"},
      {"\xc2\x80\xc2\x9b\xc2\x9f", "\\xc2\\x80\\xc2\\x9b\\xc2\\x9f"},
      {"\xc2\xa0", "\xc2\xa0"},
      {"\xe2\x80\xa8|\xe2\x80\xae|\xe2\x81\xa6|\xd8\x9c|\xef\xbb\xbf",
       "\\xe2\\x80\\xa8|\\xe2\\x80\\xae|\\xe2\\x81\\xa6|\\xd8\\x9c|\\xef\\xbb\\xbf"},
      // Not UTF-8: stray, overlong, surrogate, beyond the last character, cut off.
      {"\x80", "\\x80"},
      {"\xc0\x8a", "\\xc0\\x8a"},
      {"\xe0\x80\x8a", "\\xe0\\x80\\x8a"},
      {"\xf0\x80\x80\x8a", "\\xf0\\x80\\x80\\x8a"},
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
      {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
      {"\xf5\x80\x80\x80", "\\xf5\\x80\\x80\\x80"},
      {"\xff", "\\xff"},
      {"\xe2\x80", "\\xe2\\x80"},
      {"\xe2\x80\"", "\\xe2\\x80\""},
      {"\xc3\n", "\\xc3\\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(printable(c.bytes), c.want) << "input " << testing::PrintToString(c.bytes);
}

TEST(Printable, LeavesNoControlByteOfAnyPair) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const std::string out = printable(std::string{static_cast<char>(first), static_cast<char>(second)});
      for (const char c : out) {
        const auto byte = static_cast<unsigned char>(c);
        ASSERT_TRUE(byte >= 0x20 && byte != 0x7f) << first << " " << second << " -> " << out;
      }
    }
  }
}

TEST(QuotedField, CannotBeLeft) {
  EXPECT_EQ(quotedField(""), "\"\"");
  EXPECT_EQ(quotedField("say \"hi\" \\n\n"), "\"say \\\"hi\\\" \\\\n\\n\"");
  EXPECT_EQ(quotedField("\\"), "\"\\\\\"");
  EXPECT_EQ(quotedField("\xe2\x80\""), "\"\\xe2\\x80\\\"\"");
}

}  // namespace
