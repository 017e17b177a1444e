// Mailbox names, deleted users and the directory that is not there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/host/mailbox/temp_root.h"
#include "tests/host/users_lists/lists.h"

namespace Velmar {
namespace {

using namespace Testing;
using ::testing::HasSubstr;

TEST(DeletedUsers, AreMarkedByAFileInTheirDirectory) {
  const TempRoot root;
  root.makeDirectory("home/d/gone~d/.deleted");
  root.makeDirectory("home/d/here~d/deleted");
  root.makeDirectory("home/d/link~d");
  ASSERT_EQ(::symlink("nowhere", (root / "home/d/link~d/.deleted").c_str()), 0);
  root.write("home/d/file~d", "");
  root.makeDirectory("home/d/gone~d/sub/.deleted");
  root.makeDirectory("mail/d/gone~d/.deleted");
  root.makeDirectory("home/.deleted");
  root.makeDirectory("home/d/.deleted");
  const struct {
    const char* path;
    int want;
  } cases[] = {
      {"/home/d/gone~d", 1},
      {"/home/d/here~d", 0},
      {"/home/d/link~d", 1},
      {"/home/d/file~d", 0},
      {"/home/d/none~d", 0},
      {"/home/none/u~none", 0},
      {"/home/d/gone~d/", 0},
      {"/home/d/gone~d/sub", 0},
      {"/home//d/gone~d", 0},
      {"//home/d/gone~d", 0},
      {"home/d/gone~d", 0},
      {"/mail/d/gone~d", 0},
      {"/home/d/../d/gone~d", 0},
      {"/home/../home/gone~d", 0},
      {"/home/./gone~d", 0},
      {"/home/d/..", 0},
      {"/home/d/.", 0},
      {"/home/d", 0},
      {"/home/d/", 0},
      {"/home", 0},
      {"/", 0},
      {"", 0},
  };
  for (const auto& c : cases) EXPECT_EQ(vlm_is_deleted_user_path(c.path), c.want) << c.path;
  EXPECT_EQ(vlm_is_deleted_user_path(nullptr), 0);
  EXPECT_EQ(vlm_is_deleted_user_path(("/home/d/" + std::string(300, 'x')).c_str()), 0);
}

TEST(DeletedUsers, CouldNotLookIsAnError) {
  const TempRoot root;
  ASSERT_EQ(::chmod(root.makeDirectory("home/d/u~d").c_str(), 0), 0);
  const AsOrdinaryUser user;
  EXPECT_THAT(errorOf([] { vlm_is_deleted_user_path("/home/d/u~d"); }),
              HasSubstr(root / "home/d/u~d/.deleted: Permission denied"));
}

TEST(MailUserId, NamesTheQuarantineOfAnAddress) {
  EXPECT_EQ(VXMailUserId("u@d.example").fname(10), "/home/d.example/u~d.example/quarantine");
  EXPECT_EQ(VXMailUserId("\"a@b\"@d").fname(10), "/home/d/\"a@b\"~d/quarantine");
  EXPECT_EQ(VXMailUserId("a~b@d").fname(10), "/home/d/a~b~d/quarantine");
  for (const int kind : {0, 9, 11, -1}) EXPECT_THROW(VXMailUserId("u@d").fname(kind), Exception) << kind;
  const std::string refused[] = {"",
                                 "u",
                                 "@",
                                 "u@",
                                 "@d",
                                 "u@.",
                                 "u@..",
                                 ".@d",
                                 "..@d",
                                 "a/b@d",
                                 "u@d/e",
                                 "../../x@d",
                                 std::string("u\0@d", 4),
                                 std::string(255, 'u') + "@d"};
  for (const std::string& address : refused) EXPECT_THROW(VXMailUserId{address}, Exception) << address;
}

TEST(LdapUserManager, SaysThatNoProfileIsConfigured) {
  EXPECT_EQ(&QRL_LdapUserManager::Instance(), &QRL_LdapUserManager::Instance());
  for (const bool nested : {false, true}) {
    EXPECT_EQ(errorOf([&] { QRL_LdapUserManager::Instance().getGroupOwnerAddressesForUser("u@d", 7, nested); }),
              "LDAP profile 7 is not configured");
  }
}

}  // namespace
}  // namespace Velmar
