// From the arguments of an event to the text of its line, and that no field can make it another one.

#include "host/logging/log_line.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

#include "host/host.h"
#include "host/logging/escape.h"
#include "host/logging/field_format.h"

namespace {

using namespace Velmar::Host;
using Fields = std::vector<std::string>;

Fields fieldsOf(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Fields fields = formatFields(format, arguments);
  va_end(arguments);
  return fields;
}

TEST(FormatFields, OnlyTheFormatSeparates) {
  EXPECT_EQ(fieldsOf("%d|%u|%zd|%zu|%%", INT_MIN, UINT_MAX, static_cast<ssize_t>(LLONG_MIN), std::size_t{ULLONG_MAX}),
            Fields{"-2147483648|4294967295|-9223372036854775808|18446744073709551615|%"});
  EXPECT_EQ(fieldsOf("\x01%s\x01%s\x01", "a\x01z", "%s\n"), (Fields{"", "a\x01z", "%s\n", ""}));
  EXPECT_EQ(fieldsOf("%s", static_cast<const char*>(nullptr)), Fields{"(null)"});
  EXPECT_EQ(fieldsOf(nullptr), Fields{""});
  EXPECT_EQ(fieldsOf("%s %lld %s", "first", 1LL, "last"), Fields{"first %lld %s"}) << "takes no unknown argument";
}

TEST(Printable, WritesWhatDeceivesAsEscapes) {
  const std::pair<std::string, std::string> cases[] = {
      {"\"\\n ~ \xc3\xbc \xe6\x97\xa5 \xf0\x9f\x93\xac\xc2\xa0",
       "\"\\n ~ \xc3\xbc \xe6\x97\xa5 \xf0\x9f\x93\xac\xc2\xa0"},
      {std::string("\0\n\r\x1b[2J\x7f\xc2\x9f", 10), "\\x00\\n\\x0d\\x1b[2J\\x7f\\xc2\\x9f"},
      {"\xe2\x80\xa8|\xe2\x80\xae|\xd8\x9c", "\\xe2\\x80\\xa8|\\xe2\\x80\\xae|\\xd8\\x9c"},
      // Not UTF-8: overlong, surrogate, beyond the last character, cut off.
      {"\xc0\x8a\xe0\x80\x8a", "\\xc0\\x8a\\xe0\\x80\\x8a"},
      {"\xf0\x80\x80\x8a\xed\xa0\x80", "\\xf0\\x80\\x80\\x8a\\xed\\xa0\\x80"},
      {"\xf4\x90\x80\x80\xff\xc3\n\xe2\x80", "\\xf4\\x90\\x80\\x80\\xff\\xc3\\n\\xe2\\x80"},
  };
  for (const auto& [bytes, want] : cases) EXPECT_EQ(printable(bytes), want);
}

TEST(LogLine, NamesTheEventAndItsFieldsInLocalTime) {
  ::setenv("TZ", "Europe/Berlin", 1);
  ::tzset();
  EXPECT_EQ(eventLine({1795334400, 7999999}, 0x80012, {"say \"hi\" \\n\n\xe2\x80\"", " ", "more"}),
            "2026-11-22T09:00:00.007+01:00 0x80012 no-template operation=\"say \\\"hi\\\" \\\\n\\n\\xe2\\x80\\\"\" "
            "template=\" \" field3=\"more\"\n");
  EXPECT_EQ(eventLine({1784710800, 0}, 0x1234, {"a"}), "2026-07-22T11:00:00.000+02:00 0x1234 unknown field1=\"a\"\n");
  ::setenv("TZ", "America/St_Johns", 1);
  ::tzset();
  EXPECT_EQ(debugLine({1795334400, 0}, "S\"", 953, "f\n", {"a=b\xe2\x80\xa8"}),
            "2026-11-22T04:30:00.000-03:30 - debug source=\"S\\\":953\" function=\"f\\n\" "
            "text=\"a=b\\xe2\\x80\\xa8\"\n");
}

}  // namespace
