// The format walker: conversions, and who may separate fields.

#include "host/logging/field_format.h"

#include <gtest/gtest.h>
#include <sys/types.h>

#include <climits>

namespace {

using Fields = std::vector<std::string>;

Fields fieldsOf(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  Fields fields = Velmar::Host::formatFields(format, arguments);
  va_end(arguments);
  return fields;
}

TEST(FormatFields, TakesEachConversion) {
  EXPECT_EQ(fieldsOf("%s", "text"), Fields{"text"});
  EXPECT_EQ(fieldsOf("%d|%d|%d", INT_MIN, -1, INT_MAX), Fields{"-2147483648|-1|2147483647"});
  EXPECT_EQ(fieldsOf("%u", UINT_MAX), Fields{"4294967295"});
  EXPECT_EQ(fieldsOf("%zd %zu", static_cast<ssize_t>(LLONG_MIN), static_cast<std::size_t>(ULLONG_MAX)),
            Fields{"-9223372036854775808 18446744073709551615"});
  EXPECT_EQ(fieldsOf("100%% of %s", "it"), Fields{"100% of it"});
  EXPECT_EQ(fieldsOf("%s", static_cast<const char*>(nullptr)), Fields{"(null)"});
}

TEST(FormatFields, OnlyTheFormatSeparates) {
  EXPECT_EQ(fieldsOf("%zd\x01%s\x01%s", static_cast<ssize_t>(3),
                     "a\x01"
                     "b",
                     "%s\n"),
            (Fields{"3",
                    "a\x01"
                    "b",
                    "%s\n"}));
  EXPECT_EQ(fieldsOf("\x01%s\x01", ""), (Fields{"", "", ""}));
  EXPECT_EQ(fieldsOf(""), Fields{""});
  EXPECT_EQ(fieldsOf(nullptr), Fields{""});
}

TEST(FormatFields, TakesNoArgumentForWhatItDoesNotKnow) {
  EXPECT_EQ(fieldsOf("%s %lld %s", "first", 1LL, "last"), Fields{"first %lld %s"});
  EXPECT_EQ(fieldsOf("a %"), Fields{"a %"});
  EXPECT_EQ(fieldsOf("a %z"), Fields{"a %z"});
}

TEST(FormatFields, KeepsLongTextsWhole) {
  const std::string text(1 << 20, 'x');
  EXPECT_EQ(fieldsOf("%s\x01%d", text.c_str(), 7), (Fields{text, "7"}));
}

}  // namespace
