// The recipient policy, its handle, and how a report comes by it.

#include <cstring>
#include <new>

#include "tests/spamreport/report_test.h"

namespace Velmar {
namespace {

using RecipientPolicyTest = ReportTest;

TEST_F(RecipientPolicyTest, ANewRecordIsZero) {
  alignas(RecipientPolicy) unsigned char memory[sizeof(RecipientPolicy)];
  std::memset(memory, 0xff, sizeof memory);
  const auto* policy = new (memory) RecipientPolicy;
  const unsigned char zero[sizeof policy->record] = {};
  EXPECT_EQ(std::memcmp(&policy->record, zero, sizeof zero), 0);
  policy->~RecipientPolicy();
}

TEST_F(RecipientPolicyTest, HandlesShareOnePolicy) {
  EXPECT_EQ(RefRecipientPolicy(false).get(), nullptr);
  RefRecipientPolicy copy(false);
  {
    RefRecipientPolicy first(true);
    first.get()->record.flag = 7;
    copy = first;
    const RefRecipientPolicy another(first);
    EXPECT_EQ(another.get(), first.get());
  }
  const RefRecipientPolicy& same = copy;
  copy = same;
  EXPECT_EQ(copy.get()->record.flag, 7U);
  copy = RefRecipientPolicy(false);
  EXPECT_EQ(copy.get(), nullptr);
}

TEST_F(RecipientPolicyTest, AReportLooksUpWhatItWasNotGiven) {
  const Probe found;
  EXPECT_EQ(found.policy.get()->record.antispamProfile, 5);
  EXPECT_THAT(callsOf({"cfg_get_managed"}),
              ElementsAre("cfg_get_managed_recipient_policy_with_filter(u@d.example,spamreport_filter,0,1)"));

  world().policies.clear();
  const Probe missing;
  EXPECT_EQ(missing.policy.get(), nullptr);

  world().calls.clear();
  RefRecipientPolicy given(true);
  const Probe shared("u@d.example", "", 0, 0, given);
  EXPECT_EQ(shared.policy.get(), given.get());
  EXPECT_THAT(callsOf({"cfg_get_managed", "createProfile"}), IsEmpty());
}

}  // namespace
}  // namespace Velmar
