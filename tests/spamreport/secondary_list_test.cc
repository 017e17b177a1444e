// The links between a mailbox's address and others, and the repair of one-sided ones.

#include "spamreport/secondary_list.h"

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

class SecondaryListTest : public ReportTest {
 protected:
  void SetUp() override {
    ReportTest::SetUp();
    world().lists[{"a@x", "secondaryaddr"}] = {"other@x", "u@x"};
    world().lists[{"c@x", "secondaryaddr"}] = {"u@x"};
    world().lists[{"z@x", "secondaryaddr"}] = {"other@x"};
  }
};

TEST_F(SecondaryListTest, KeepsConfirmedLinksAndDeletesOthers) {
  const struct {
    Texts primary;
    std::string want;
    Texts wantLeft;
    std::string wantRemoved;
  } rows[] = {
      {{}, "", {}, ""},
      {{"c@x"}, "c@x", {"c@x"}, ""},
      {{"c@x", "a@x"}, "c@x,a@x", {"c@x", "a@x"}, ""},
      {{"z@x"}, "", {}, "z@x"},
      {{"z@x", "a@x", "y@x", "c@x"}, "a@x,c@x", {"a@x", "c@x"}, "z@x,y@x"},
      {{"a@x", "", "c@x"}, "a@x,c@x", {"a@x", "c@x"}, ""},
  };
  for (const auto& row : rows) {
    world().lists[{"u@x", "primaryaddr"}] = row.primary;
    world().events.clear();
    EXPECT_EQ(get_secondary_list("u@x"), row.want);
    EXPECT_EQ((world().lists[{"u@x", "primaryaddr"}]), row.wantLeft);
    std::vector<Event> want;
    if (row.primary != row.wantLeft) want = {{0x80013, "%s\x01%s", {row.wantRemoved, "u@x"}}};
    EXPECT_EQ(world().events, want);
    EXPECT_EQ(world().openNameLists, 0);
  }
}

TEST_F(SecondaryListTest, AsksTheListsInOrder) {
  world().lists[{"u@x", "primaryaddr"}] = {"z@x", "a@x"};
  get_secondary_list("u@x");
  EXPECT_THAT(world().calls,
              ElementsAre("mail_list_get_names(u@x,primaryaddr,0,0)", "mail_list_find(z@x,secondaryaddr,u@x,0)",
                          "mail_list_delete_from(u@x,primaryaddr,z@x,0)", "mail_list_find(a@x,secondaryaddr,u@x,0)",
                          "mail_list_free_names()", "log(19,0)"));
}

TEST_F(SecondaryListTest, TouchesNoListWithoutAnAddress) {
  for (const char* address : {"", "u", "u~x"}) EXPECT_EQ(get_secondary_list(address), "");
  EXPECT_THAT(world().calls, IsEmpty());
}

TEST_F(SecondaryListTest, PassesFailuresOnAndKeepsWhatWasDeleted) {
  for (const char* operation : {"mail_list_find", "mail_list_delete_from"}) {
    world().lists[{"u@x", "primaryaddr"}] = {"z@x", "y@x", "a@x"};
    world().events.clear();
    failCall(operation, 2);
    EXPECT_THROW(get_secondary_list("u@x"), Exception) << operation;
    EXPECT_THAT((world().lists[{"u@x", "primaryaddr"}]), ElementsAre("y@x", "a@x"));
    EXPECT_THAT(world().events, IsEmpty());
  }
  failCall("mail_list_get_names");
  EXPECT_THROW(get_secondary_list("u@x"), Exception);
}

}  // namespace
}  // namespace Velmar
