// The search of a quarantine mailbox, the record of one held message, and the texts that are made of it.

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

class QuarantineTest : public ReportTest {
 protected:
  static Texts keysIn(const CachedMailbox& mailbox) {
    Texts keys;
    for (const CachedMessage& message : mailbox.getMessages()) keys.push_back(message.mailboxKey);
    return keys;
  }
  static Texts found(const std::vector<Fake::HeldMessage>& messages) {
    world().mailboxes["m"] = {true, messages};
    CachedMailbox mailbox("m");
    mailbox.search(100, 100);
    return keysIn(mailbox);
  }
};

TEST_F(QuarantineTest, WindowIsCutTo32Bits) {
  const struct {
    std::int64_t period, until;
    const char* want;
  } rows[] = {
      {60, 0, "1773152940,1773153000"},     {60, -1, "1773152940,1773153000"},          {60, 1, "-59,1"},
      {0x100000001, 0x100000064, "99,100"}, {60, 0x80000000, "2147483588,-2147483648"}, {INT64_MAX, INT64_MAX, "0,-1"},
  };
  world().mailboxes["m"];
  for (const auto& row : rows) {
    world().calls.clear();
    CachedMailbox("m").search(row.period, row.until);
    EXPECT_THAT(callsOf({"VXMScope"}), ElementsAre(std::string("VXMScopeRef(3,") + row.want + ",2147483647)"));
  }
}

TEST_F(QuarantineTest, SortsNewestFirstAndKeepsTheOrderOfEqualDates) {
  std::vector<Fake::HeldMessage> messages;
  Texts want(100);
  for (std::size_t i = 0; i < 100; ++i) {
    messages.push_back(held(i % 2, std::to_string(i)));
    want[i % 2 ? i / 2 : 50 + i / 2] = std::to_string(i);
  }
  EXPECT_EQ(found(messages), want);
}

TEST_F(QuarantineTest, LeavesOutMarkedMessagesAndThoseWithoutIdentifier) {
  const auto unmarked = [](std::initializer_list<std::uint64_t> flags) {
    std::vector<Fake::HeldMessage> messages;
    for (const std::uint64_t value : flags)
      messages.push_back({1, std::to_string(value), {{"Message-Id", "<m>"}}, value});
    return found(messages);
  };
  EXPECT_THAT(unmarked({0x80, 0x20, 0xa0, ~0ULL, 0, 0x5f}), ElementsAre("0", "95"));
  // init() decides which bits count, and all of them must be set.
  world().flagMasks = {{0x80, 1ULL << 40 | 0x10}, {0x20, 0x4}};
  EXPECT_THAT(unmarked({0x80, 0x10, 1ULL << 40 | 0x10, 0x4, 0x20}), ElementsAre("128", "16", "32"));

  std::vector<Fake::HeldMessage> messages{{1, "none", {}, 0}};
  for (const char* id : {"", "<>", "<a>", "abc", "ab"}) messages.push_back({1, id, {{"Message-Id", id}}, 0});
  EXPECT_THAT(found(messages), ElementsAre("<a>", "abc"));
}

TEST_F(QuarantineTest, EachSearchStartsAnewAndKeepsWhatItReads) {
  world().mailboxes["m"] = {true, {held(1, "a"), held(2, "b"), held(3, "c")}};
  CachedMailbox mailbox("m");
  EXPECT_THAT(world().calls, IsEmpty());
  failCall("next", 3, Failure::Standard);
  EXPECT_THROW(mailbox.search(10, 10), std::runtime_error);
  EXPECT_THAT(keysIn(mailbox), ElementsAre("a", "b"));
  EXPECT_EQ(callsOf({"~VXMailboxBase"}).size(), 1U);
  world().mailboxes["m"].open = false;
  mailbox.search(10, 10);
  EXPECT_THAT(keysIn(mailbox), IsEmpty());
  world().mailboxes.clear();
  mailbox.search(10, 10);
  EXPECT_THAT(keysIn(mailbox), IsEmpty());
}

TEST_F(QuarantineTest, ARecordCopiesTheFacts) {
  const std::string raw("=?x?Q?\xff?=\0 end", 15), id = "Message-Id", own = "X-VX-MESSAGE-ID";
  const CachedMessage message = cached({1, "k", {{"From", raw}}, 0});
  EXPECT_EQ(message.from, raw);
  EXPECT_EQ(message.subject + message.messageId, "");
  EXPECT_EQ(cached({1, "k", {{id, "<m>"}, {own, "<x>"}}, 0}).messageId, "<x>");
  EXPECT_EQ(cached({1, "k", {{id, "<m>"}, {own, ""}}, 0}).messageId, "");
}

TEST_F(QuarantineTest, ActionIdentifierIsTheKeyOrElseTheMessageId) {
  const struct {
    std::string key, id, want, wantFallback;
  } rows[] = {
      {"abc", "<a@b>", "YWJj", "a@b"},
      {"abc,d,S", "xab>c>d", "YWJjLGQ=", "ab"},
      {"abc,", "<>", "YWJj", ""},
      {",abc", "<a@b", "", "a@b"},
      {"", "x", "", ""},
      {std::string("\0\xff\xfe", 3), ">ab", "AP/+", "ab"},
  };
  for (const auto& row : rows) {
    CachedMessage message = cached(held(1, row.key));
    message.messageId = row.id;
    EXPECT_EQ(Spamreport::Base64MsgId(message), row.want) << row.key;
    failCall("toBase64String");
    EXPECT_EQ(Spamreport::Base64MsgId(message), row.wantFallback) << row.id;
  }
}

TEST_F(QuarantineTest, DisplayFieldsAreDecodedAndEscaped) {
  EXPECT_EQ(Spamreport::NormalizeDisplayField("a <b>"), "a &lt;b&gt; as UTF-8");
  EXPECT_EQ(Spamreport::NormalizeDisplayField({"ab\0<c", 5}), "ab");
  EXPECT_EQ(Spamreport::NormalizeDisplayField({"\0ab", 3}), "");
  EXPECT_EQ(Spamreport::NormalizeDisplayField(""), " &nbsp");
  EXPECT_EQ(callsOf({"stringToUtf8"}).front(), "stringToUtf8(a <b>,null)");
  failCall("stringToUtf8");
  EXPECT_EQ(Spamreport::NormalizeDisplayField("a"), " &nbsp");
  failCall("stringToUtf8", 1, Failure::Standard);
  EXPECT_THROW(Spamreport::NormalizeDisplayField("a"), std::runtime_error);
}

}  // namespace
}  // namespace Velmar
