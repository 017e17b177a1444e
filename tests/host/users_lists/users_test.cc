// Mailbox names and deleted users.

#include <gmock/gmock.h>

#include "tests/host/users_lists/lists.h"
#include "tests/support/temp_root.h"

namespace Velmar {
namespace {

using namespace Testing;

TEST(DeletedUsers, AreMarkedByAFileInTheirDirectory) {
  const TempRoot root;
  for (const char* directory : {"d/gone~d/.deleted", "d/gone~d/sub/.deleted", "d/here~d/deleted", "d/link~d"}) {
    root.makeDirectory("home/" + std::string(directory));
  }
  ASSERT_EQ(::symlink("nowhere", (root / "home/d/link~d/.deleted").c_str()), 0);
  root.makeDirectory("home/d/.deleted");
  root.write("home/d/file~d", "");
  for (const char* path : {"/home/d/gone~d", "/home/d/link~d"}) EXPECT_EQ(vlm_is_deleted_user_path(path), 1) << path;
  for (const char* path : {"/home/d/here~d", "/home/d/file~d", "/home/d/none~d", "/home/none/u~none", "/home/d/gone~d/",
                           "/home/d/gone~d/sub", "//home/d/gone~d", "home/d/gone~d", "/home/d/../d/gone~d", "/home/./d",
                           "/home/d/.", "/home/d", "/", ""}) {
    EXPECT_EQ(vlm_is_deleted_user_path(path), 0) << path;
  }
  EXPECT_EQ(vlm_is_deleted_user_path(nullptr), 0);
  ASSERT_EQ(::chmod((root / "home/d/gone~d").c_str(), 0), 0);
  const AsOrdinaryUser user;
  EXPECT_THAT(thrownBy([] { vlm_is_deleted_user_path("/home/d/gone~d"); }),
              ::testing::HasSubstr(root / "home/d/gone~d/.deleted: Permission denied"));
}

TEST(MailUserId, NamesTheQuarantineOfAnAddress) {
  EXPECT_EQ(VXMailUserId("\"a@b~c\"@d.example").fname(10), "/home/d.example/\"a@b~c\"~d.example/quarantine");
  for (const int kind : {9, 11, -1}) EXPECT_THROW(VXMailUserId("u@d").fname(kind), Exception) << kind;
  EXPECT_THROW(VXMailUserId(std::string("u\0@d", 4)), Exception);
  for (const char* address : {"", "u", "u@", "@d", "u@..", "..@d", "a/b@d", "u@d/e"}) {
    EXPECT_THROW(VXMailUserId{address}, Exception) << address;
  }
}

}  // namespace
}  // namespace Velmar
