// Maildir file names as mail systems write them, and as nobody should.

#include "host/mailbox/maildir_name.h"

#include <gtest/gtest.h>

#include "platform/mailbox.h"

namespace Velmar::Host {

TEST(MaildirName, TellsTimeUniquePartAndMarks) {
  const struct {
    std::string name;
    std::optional<std::int64_t> wantTime;
    std::string wantUnique;
    std::uint64_t wantMarks;
    std::string wantIdentifying = wantUnique;
  } cases[] = {
      {"1700000000.M1P2.host,S=4097:2,P", 1700000000, "1700000000.M1P2.host,S=4097", VXMessageFlags::RELEASED,
       "1700000000.M1P2.host"},
      {"1.a:2,DFRSPT", 1, "1.a", 0xaf},
      {"1.a:2,tpabcXYZ", 1, "1.a", 0},
      {"1.a:2,S:2,T", 1, "1.a:2,S", VXMessageFlags::DELETED, "1.a"},
      {"007.a\n\xff,:2,T", 7, "007.a\n\xff,", VXMessageFlags::DELETED, "007.a\n\xff"},
      {"9223372036854775807.", INT64_MAX, "9223372036854775807.", 0},
      {"9223372036854775808.a", std::nullopt, "9223372036854775808.a", 0},
      {"-0.a", std::nullopt, "-0.a", 0},
      {"12:2,T", std::nullopt, "12", VXMessageFlags::DELETED},
      {".5", std::nullopt, ".5", 0},
      {":2,T", std::nullopt, "", VXMessageFlags::DELETED},
      {"", std::nullopt, "", 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(deliveryTime(c.name), c.wantTime) << c.name;
    EXPECT_EQ(uniquePart(c.name), c.wantUnique) << c.name;
    EXPECT_EQ(messageMarks(c.name), c.wantMarks) << c.name;
    EXPECT_EQ(identifyingPart(c.name), c.wantIdentifying) << c.name;
  }
  EXPECT_FALSE(deliveryTime(std::string_view("12.a").substr(0, 2))) << "what follows a name was read";
}

}  // namespace Velmar::Host
