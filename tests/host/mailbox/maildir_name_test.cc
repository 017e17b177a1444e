// Maildir file names as mail systems write them, and as nobody should.

#include "host/mailbox/maildir_name.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/mailbox.h"

namespace Velmar::Host {
namespace {

using namespace std::string_literals;

struct NameCase {
  std::string name;
  std::optional<std::int64_t> wantTime;
  std::string wantUnique;
  std::uint64_t wantMarks;
};

const NameCase kNames[] = {
    {"1700000000.M1P2.host", 1700000000, "1700000000.M1P2.host", 0},
    {"1700000000.M1P2.host:2,", 1700000000, "1700000000.M1P2.host", 0},
    {"1700000000.M1P2.host:2,ST", 1700000000, "1700000000.M1P2.host", MARK_SEEN | VXMessageFlags::DELETED},
    {"1700000000.M1P2.host,S=4097:2,P", 1700000000, "1700000000.M1P2.host,S=4097", VXMessageFlags::RELEASED},
    {"1.a:2,DFRSPT", 1, "1.a", 0xaf},
    {"1.a:2,tpabcXYZ", 1, "1.a", 0},
    {"1.TP", 1, "1.TP", 0},
    {"1.a:1,T", 1, "1.a:1,T", 0},
    {"1.a:2T", 1, "1.a:2T", 0},
    {"1.a:2,S:2,T", 1, "1.a:2,S", VXMessageFlags::DELETED},
    {"1.a\n\xff,:2,T", 1, "1.a\n\xff,", VXMessageFlags::DELETED},
    {"0.a", 0, "0.a", 0},
    {"007.a", 7, "007.a", 0},
    {"5.", 5, "5.", 0},
    {"9223372036854775807.a", INT64_MAX, "9223372036854775807.a", 0},
    {"9223372036854775808.a", std::nullopt, "9223372036854775808.a", 0},
    {std::string(250, '9') + ".a", std::nullopt, std::string(250, '9') + ".a", 0},
    {"-1.a", std::nullopt, "-1.a", 0},
    {"-0.a", std::nullopt, "-0.a", 0},
    {"+1.a", std::nullopt, "+1.a", 0},
    {" 1.a", std::nullopt, " 1.a", 0},
    {"0x10.a", std::nullopt, "0x10.a", 0},
    {"1e3.a", std::nullopt, "1e3.a", 0},
    {"12", std::nullopt, "12", 0},
    {"12:2,T", std::nullopt, "12", VXMessageFlags::DELETED},
    {"message", std::nullopt, "message", 0},
    {".5", std::nullopt, ".5", 0},
    {":2,T", std::nullopt, "", VXMessageFlags::DELETED},
    {"", std::nullopt, "", 0},
};

TEST(MaildirName, TellsTimeUniquePartAndMarks) {
  for (const NameCase& c : kNames) {
    EXPECT_EQ(deliveryTime(c.name), c.wantTime) << c.name;
    EXPECT_EQ(uniquePart(c.name), c.wantUnique) << c.name;
    EXPECT_EQ(messageMarks(c.name), c.wantMarks) << c.name;
  }
}

}  // namespace
}  // namespace Velmar::Host
