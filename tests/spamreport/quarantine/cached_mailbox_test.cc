// The search of a quarantine mailbox: window, marks, identifiers, order.

#include <stdexcept>

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

class CachedMailboxTest : public ReportTest {
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
  static Fake::HeldMessage marked(std::uint64_t flags, const std::string& key) {
    Fake::HeldMessage message = held(1, key);
    message.flags = flags;
    return message;
  }
};

TEST_F(CachedMailboxTest, ConstructionOpensNothing) {
  const CachedMailbox mailbox("m");
  EXPECT_THAT(mailbox.getMessages(), IsEmpty());
  EXPECT_THAT(world().calls, IsEmpty());
}

TEST_F(CachedMailboxTest, WindowIsCutTo32Bits) {
  const struct {
    std::int64_t period, until;
    const char* want;
  } rows[] = {
      {60, 100, "40,100"},
      {0, 100, "100,100"},
      {-10, 100, "110,100"},
      {200, 100, "-100,100"},
      {60, 0, "1773152940,1773153000"},
      {60, -1, "1773152940,1773153000"},
      {60, INT64_MIN, "1773152940,1773153000"},
      {60, 1, "-59,1"},
      {60, 0x100000064, "40,100"},
      {0x100000000, 100, "100,100"},
      {60, 0x80000000, "2147483588,-2147483648"},
      {INT32_MIN, 100, "-2147483548,100"},
      {INT64_MAX, INT64_MAX, "0,-1"},
      {INT32_MAX, 0xfffffffe, "2147483647,-2"},
  };
  world().mailboxes["m"];
  for (const auto& row : rows) {
    world().calls.clear();
    CachedMailbox("m").search(row.period, row.until);
    EXPECT_THAT(world().calls,
                ElementsAre("VXMailBoxRef::create(m,2,0)", std::string("VXMScopeRef(3,") + row.want + ",2147483647)",
                            "setScope()", "next()", "~VXMailboxBase()"));
  }
}

TEST_F(CachedMailboxTest, SortsNewestFirstAndKeepsTheOrderOfEqualDates) {
  EXPECT_THAT(found({}), IsEmpty());
  EXPECT_THAT(found({held(5, "a")}), ElementsAre("a"));
  EXPECT_THAT(found({held(5, "a"), held(9, "b"), held(9, "c")}), ElementsAre("b", "c", "a"));
  std::vector<Fake::HeldMessage> many;
  Texts want;
  for (int i = 0; i < 100; ++i) many.push_back(held(i % 2, std::to_string(i)));
  for (int i = 1; i < 100; i += 2) want.push_back(std::to_string(i));
  for (int i = 0; i < 100; i += 2) want.push_back(std::to_string(i));
  EXPECT_EQ(found(many), want);
}

TEST_F(CachedMailboxTest, LeavesOutMarkedMessages) {
  const std::uint64_t wide = 1ULL << 40;
  EXPECT_THAT(found({marked(0x80, "a"), marked(0x20, "b"), marked(0xa0, "c"), marked(~0ULL, "d"),
                     marked(0x80 | wide, "e"), marked(0, "f"), marked(wide | 0x5f, "g")}),
              ElementsAre("f", "g"));
  EXPECT_THAT(callsOf({"init"}).front(), "init(128,1)");
  EXPECT_EQ(callsOf({"init(32,1)"}).size(), 3U);

  // init() decides which bits count, and all of them must be set.
  world().flagMasks = {{0x80, 0x80 | wide}, {0x20, 0x4}};
  EXPECT_THAT(
      found({marked(0x80, "a"), marked(wide, "b"), marked(0x80 | wide, "c"), marked(0x4, "d"), marked(0x20, "e")}),
      ElementsAre("a", "b", "e"));
}

TEST_F(CachedMailboxTest, LeavesOutMessagesWithoutIdentifier) {
  std::vector<Fake::HeldMessage> messages;
  for (const char* id : {"", "<", "<>", "<a>", "abc", "ab"}) {
    messages.push_back({1, id, {{"Message-Id", id}}, 0});
  }
  messages.push_back({1, "none", {}, 0});
  EXPECT_THAT(found(messages), ElementsAre("<a>", "abc"));
}

TEST_F(CachedMailboxTest, AMailboxThatIsNotThereOrNotOpenIsEmpty) {
  world().mailboxes["m"] = {true, {held(1, "a")}};
  CachedMailbox mailbox("m");
  mailbox.search(10, 10);
  EXPECT_THAT(keysIn(mailbox), ElementsAre("a"));
  world().mailboxes["m"].open = false;
  mailbox.search(10, 10);
  EXPECT_THAT(keysIn(mailbox), IsEmpty());
  world().mailboxes.clear();
  mailbox.search(10, 10);
  EXPECT_THAT(keysIn(mailbox), IsEmpty());
  EXPECT_THAT(world().events, IsEmpty());
}

TEST_F(CachedMailboxTest, ASecondSearchReplacesTheFirst) {
  world().mailboxes["m"] = {true, {held(1, "a"), held(2, "b")}};
  CachedMailbox mailbox("m");
  mailbox.search(10, 10);
  mailbox.search(10, 2);
  EXPECT_THAT(keysIn(mailbox), ElementsAre("a"));
}

TEST_F(CachedMailboxTest, FailuresPassAndKeepWhatWasRead) {
  const struct {
    const char* operation;
    int nth;
    Texts wantKeys;
  } rows[] = {
      {"VXMailBoxRef::create", 1, {}},
      {"setScope", 1, {}},
      {"next", 3, {"a", "b"}},
      {"flags", 2, {"a"}},
      {"init", 4, {"a"}},
      {"find", 8, {"a"}},
  };
  for (const auto& row : rows) {
    world().mailboxes["m"] = {true, {held(1, "a"), held(2, "b"), held(3, "c")}};
    world().calls.clear();
    CachedMailbox mailbox("m");
    failCall(row.operation, row.nth, Failure::Standard);
    EXPECT_THROW(mailbox.search(10, 10), std::runtime_error) << row.operation;
    EXPECT_EQ(keysIn(mailbox), row.wantKeys) << row.operation;
    const bool opened = std::string(row.operation) != "VXMailBoxRef::create";
    EXPECT_EQ(callsOf({"~VXMailboxBase"}).size(), opened ? 1U : 0U);
  }
}

}  // namespace
}  // namespace Velmar
