// From the arguments of an event to the text of its line, and that no field can make it another one.

#include "host/logging/log_line.h"

#include <gmock/gmock.h>

#include <climits>
#include <cstdlib>

#include "host/host.h"
#include "host/logging/escape.h"
#include "host/logging/event_table.h"
#include "host/logging/event_text.h"
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
      {"\xc2\xad|\xe2\x81\xa0|\xf3\xa0\x81\x81", "\\xc2\\xad|\\xe2\\x81\\xa0|\\xf3\\xa0\\x81\\x81"},
      // Not UTF-8: overlong, surrogate, beyond the last character, cut off.
      {"\xc0\x8a\xe0\x80\x8a", "\\xc0\\x8a\\xe0\\x80\\x8a"},
      {"\xf0\x80\x80\x8a\xed\xa0\x80", "\\xf0\\x80\\x80\\x8a\\xed\\xa0\\x80"},
      {"\xf4\x90\x80\x80\xff\xc3\n\xe2\x80", "\\xf4\\x90\\x80\\x80\\xff\\xc3\\n\\xe2\\x80"},
  };
  for (const auto& [bytes, want] : cases) EXPECT_EQ(printable(bytes), want);
}

void setZone(const char* zone) {
  ::setenv("TZ", zone, 1);
  ::tzset();
}

TEST(EventText, FillsInValuesOfAnyKind) {
  const std::string wide = "\xe6\x97\xa5";  // three bytes
  std::string longest;
  while (longest.size() < 1100) longest += wide;
  const struct {
    unsigned int code;
    Fields fields;
    std::string want;
  } cases[] = {
      {0x80011, {"1", "u@d", "u@d"}, "report of 1 message for u@d to 1 recipient"},
      {0x80011, {"12", "u@d", "a@d,b@d"}, "report of 12 messages for u@d to 2 recipients"},
      {0x80011, {"0", "{count}", R"("a,\",b"@d,c@d,"\)"}, "report of 0 messages for {count} to 3 recipients"},
      {0x80011, {"2", "u@d"}, "report of 2 messages for u@d to 0 recipients"},
      {0x8000b, {"no room\n"}, "report for (unknown) failed: no room\n"},
      {0x80015, {""}, "failed report given up: (unknown)"},
      {0x8000e, {std::string(1000, 'x')}, "reports for " + std::string(1000, 'x') + " are switched off"},
      {0x8000e, {longest}, "reports for " + longest.substr(0, 999) + "... are switched off"},
      {0x8000e, {std::string(9999, '\x80')}, "reports for " + std::string(996, '\x80') + "... are switched off"},
  };
  for (const auto& row : cases) EXPECT_EQ(eventText(*findEvent(row.code), row.fields), row.want);
}

TEST(EventText, ATemplateMustNameItsFields) {
  const std::pair<const char*, bool> cases[] = {
      {"", true},      {"x", true},      {"{a}", true},     {"{a:b/c}{a#d/e}", true}, {"{b}", false},    {"{}", false},
      {"x {a", false}, {"{a:b}", false}, {"{a:/b}", false}, {"{a#b/}", false},        {"{a|b/c}", false}};
  for (const auto& [text, want] : cases) {
    EXPECT_EQ(textNamesFields({1, "n", {"a"}, false, "m", text}), want) << text;
  }
}

TEST(LogLine, NamesTheEventAndItsFieldsInLocalTime) {
  setZone("Europe/Berlin");
  EXPECT_EQ(logLine(eventRecord({1795334400, 7999999}, 0x8000d, {"say \"hi\" \\n\n\xe2\x80\"", "more"})),
            "2026-11-22T09:00:00.007+01:00 0x8000d group-owner-lookup-failed "
            "\"the owners of the groups of say \\\"hi\\\" \\\\n\\n\\xe2\\x80\\\" could not be looked up\" "
            "mailbox=\"say \\\"hi\\\" \\\\n\\n\\xe2\\x80\\\"\" field2=\"more\"\n");
  EXPECT_EQ(logLine(eventRecord({1784710800, 0}, 0x1234, {"a"})),
            "2026-07-22T11:00:00.000+02:00 0x1234 unknown \"an event that is not in the list\" field1=\"a\"\n");
  setZone("America/St_Johns");
  EXPECT_EQ(logLine(debugRecord({1795334400, 0}, "S\"", 953, "f\n", {"a=b\xe2\x80\xa8"})),
            "2026-11-22T04:30:00.000-03:30 - debug \"a=b\\xe2\\x80\\xa8\" source=\"S\\\":953\" function=\"f\\n\"\n");
}

TEST(JournalDatagram, KeepsAnyBytesOfAFieldAndShowsPrintableText) {
  const std::string value("u\n\0MESSAGE=forged\n\xff", 19);
  const std::string length("\x13\0\0\0\0\0\0\0", 8);
  EXPECT_EQ(journalDatagram(eventRecord({0, 0}, 0x80013, {"o@d", value})),
            "MESSAGE=one-sided links removed from the lists of u\\n\\x00MESSAGE=forged\\n\\xff: o@d\nPRIORITY=6\n"
            "SYSLOG_IDENTIFIER=spamreport\nSYSLOG_FACILITY=2\nVELMAR_EVENT=0x80013\n"
            "VELMAR_EVENT_NAME=list-links-repaired\nVELMAR_REMOVED=o@d\nVELMAR_MAILBOX\n" +
                length + value + "\n");
  const std::string length300("\x2c\x01\0\0\0\0\0\0", 8);
  EXPECT_THAT(journalDatagram(eventRecord({0, 0}, 0x8000b, {"\n" + std::string(299, 'x')})),
              AllOf(testing::HasSubstr("VELMAR_ERROR\n" + length300 + "\nxxx"), testing::HasSubstr("\nPRIORITY=3\n")));
}

TEST(SyslogDatagram, IsOneLineWithPriorityTimeAndProcess) {
  setZone("UTC0");
  const std::pair<LogRecord, std::string> cases[] = {
      {eventRecord({1767225600, 0}, 0x80010, {"u@d\n<0>"}),
       "<22>Jan  1 00:00:00 spamreport[7]: nothing-held: nothing to report for u@d\\n<0> in this period"},
      {eventRecord({1795334400, 0}, 0x8000d, {"u@d"}),
       "<20>Nov 22 08:00:00 spamreport[7]: group-owner-lookup-failed: the owners of the groups of u@d could not be "
       "looked up"},
      {linesDroppedRecord({1795334400, 0}, 1),
       "<20>Nov 22 08:00:00 spamreport[7]: log-lines-dropped: 1 line was dropped, because nobody read them"},
  };
  for (const auto& [record, want] : cases) EXPECT_EQ(syslogDatagram(record, 7), want);
}

}  // namespace
