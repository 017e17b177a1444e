// The record of one held message, and the texts that are made of it.

#include <stdexcept>

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using CachedMessageTest = ReportTest;
using Headers = std::map<std::string, std::string>;

TEST_F(CachedMessageTest, CopiesTheFacts) {
  const std::string raw("=?x?Q?\xff?=\0 end", 15);
  const struct {
    Headers headers;
    std::string wantFrom, wantSubject, wantId;
  } rows[] = {
      {{}, "", "", ""},
      {{{"From", raw}, {"Subject", raw}, {"Message-Id", "<m>"}}, raw, raw, "<m>"},
      {{{"Message-Id", "<m>"}, {"X-VX-MESSAGE-ID", "<x>"}}, "", "", "<x>"},
      {{{"Message-Id", "<m>"}, {"X-VX-MESSAGE-ID", ""}}, "", "", ""},
      {{{"Message-ID", "<m>"}, {"FROM", "f"}}, "", "", ""},  // names are asked for exactly so
  };
  for (const auto& row : rows) {
    const CachedMessage message = cached({-7, "key,S", row.headers, 0});
    EXPECT_EQ(message.date, -7);
    EXPECT_EQ(message.mailboxKey, "key,S");
    EXPECT_EQ(message.from, row.wantFrom);
    EXPECT_EQ(message.subject, row.wantSubject);
    EXPECT_EQ(message.messageId, row.wantId);
  }
}

TEST_F(CachedMessageTest, ReadsInThisOrderAndPassesFailuresOn) {
  world().calls.clear();
  cached(held(1, "k"));
  EXPECT_EQ(callsOf({"envelope", "time", "key", "find"}),
            Texts({"envelope()", "time()", "envelope()", "key()", "find(From)", "find(X-VX-MESSAGE-ID)",
                   "find(Message-Id)", "find(Subject)"}));
  for (const char* operation : {"envelope", "time", "key", "headers", "find"}) {
    failCall(operation);
    EXPECT_THROW(cached(held(1, "k")), Exception) << operation;
  }
}

TEST_F(CachedMessageTest, ActionIdentifierIsTheKeyOrElseTheMessageId) {
  const struct {
    std::string key, id, want, wantFallback;
  } rows[] = {
      {"abc", "<a@b>", "YWJj", "a@b"},
      {"abc,S", "<a@b", "YWJj", "a@b"},
      {"abc,d,S", "xab>c>d", "YWJjLGQ=", "ab"},
      {"abc,", "<>", "YWJj", ""},
      {",abc", "x", "", ""},
      {"", "<a>", "", "a"},
      {std::string("\0\xff\xfe", 3), ">ab", "AP/+", "ab"},
      {std::string(300, 'k'), "\xff<a>", "", "<a"},
  };
  for (const auto& row : rows) {
    CachedMessage message = cached(held(1, row.key));
    message.messageId = row.id;
    const std::string encoded = Spamreport::Base64MsgId(message);
    if (row.key.size() < 300) {
      EXPECT_EQ(encoded, row.want) << row.key;
    } else {
      EXPECT_EQ(encoded.size(), 400U);  // in one line
    }
    failCall("toBase64String");
    EXPECT_EQ(Spamreport::Base64MsgId(message), row.wantFallback) << row.id;
    failCall("toBase64String", 1, Failure::Standard);
    EXPECT_THROW(Spamreport::Base64MsgId(message), std::runtime_error);
  }
}

TEST_F(CachedMessageTest, DisplayFieldsAreDecodedAndEscaped) {
  const struct {
    std::string raw, decoded, want;
  } rows[] = {
      {"a <b>", "a <b>", "a &lt;b>"},
      {"=?x?=", "\xc3\xa4<", "\xc3\xa4&lt;"},
      {"nul", std::string("ab\0<c", 5), "ab"},
      {"nul first", std::string("\0ab", 3), ""},
      {"", "", " &nbsp"},
      {"nothing left", "", " &nbsp"},
  };
  for (const auto& row : rows) {
    world().decoded[row.raw] = row.decoded;
    EXPECT_EQ(Spamreport::NormalizeDisplayField(row.raw), row.want) << row.raw;
  }
  EXPECT_EQ(callsOf({"stringToUtf8"}).front(), "stringToUtf8(a <b>,null)");
  for (const char* operation : {"stringToUtf8", "vlm_html_encode"}) {
    failCall(operation);
    EXPECT_EQ(Spamreport::NormalizeDisplayField("a"), " &nbsp");
    failCall(operation, 1, Failure::Standard);
    EXPECT_THROW(Spamreport::NormalizeDisplayField("a"), std::runtime_error);
  }
  EXPECT_THAT(world().events, IsEmpty());
}

}  // namespace
}  // namespace Velmar
