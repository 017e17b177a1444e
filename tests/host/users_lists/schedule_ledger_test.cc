// The ledger of scheduled runs as the command sees it: what stands where after runs that end, fail or are broken off,
// and who may run.

#include <gmock/gmock.h>

#include "host/host.h"
#include "tests/host/users_lists/stores.h"
#include "tests/support/thrown_by.h"

namespace Velmar {
namespace {

using namespace Testing;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

constexpr long long kLate = 9'000'000'000'000LL;  // milliseconds, or a far future: more than 32 bits

class ScheduleLedger : public OnEachStore {};
FOR_EACH_STORE(ScheduleLedger);

TEST_P(ScheduleLedger, MailboxesStandBesideTheirDomainUntilItsRunEnds) {
  EXPECT_EQ(Host::reportedUntil("d.example").domain, 0);
  Host::setMailboxReportedUntil("D.example", "U@D.Example", 100);
  Host::setMailboxReportedUntil("d.example", "U@d.example", kLate);
  Host::setMailboxReportedUntil("d.example", "u@d.example", 50);
  Host::setMailboxReportedUntil("e.example", "u@e.example", 7);
  Host::ReportedUntil broken = Host::reportedUntil("d.EXAMPLE");
  EXPECT_EQ(broken.domain, 0) << "a first run that was broken off";
  EXPECT_THAT(broken.mailboxes, UnorderedElementsAre(Pair("U@d.example", kLate), Pair("u@d.example", 50)));

  Host::setDomainReportedUntil("D.EXAMPLE", kLate + 1, {{"\xff\\u@D.example", 50}, {"w@d.example", 0}});
  Host::ReportedUntil ended = Host::reportedUntil("d.example");
  EXPECT_EQ(ended.domain, kLate + 1);
  EXPECT_THAT(ended.mailboxes, UnorderedElementsAre(Pair("\xff\\u@d.example", 50), Pair("w@d.example", 0)));
  Host::setDomainReportedUntil("d.example", kLate + 2, {});
  EXPECT_EQ(Host::reportedUntil("d.example").domain, kLate + 2);
  EXPECT_THAT(Host::reportedUntil("d.example").mailboxes, IsEmpty());
  EXPECT_THAT(Host::reportedUntil("e.example").mailboxes, UnorderedElementsAre(Pair("u@e.example", 7)));
}

TEST_P(ScheduleLedger, RefusedNoteChangesNothing) {
  Host::setDomainReportedUntil("d", 5, {{"u@d", 3}});
  EXPECT_THAT(thrownBy([&] {
                Host::setDomainReportedUntil("d", 6, {{"", 2}, {"a@d", 1}});
              }),
              HasSubstr("mailbox of a scheduled run is empty"));
  EXPECT_THAT(thrownBy([] { Host::setMailboxReportedUntil("d", "", 9); }), HasSubstr("mailbox of a scheduled run is"));
  EXPECT_THAT(thrownBy([] { Host::reportedUntil(""); }), HasSubstr("domain of a scheduled run is empty"));
  EXPECT_EQ(Host::reportedUntil("d").domain, 5);
  EXPECT_THAT(Host::reportedUntil("d").mailboxes, UnorderedElementsAre(Pair("u@d", 3)));
}

TEST_P(ScheduleLedger, OneRunAtATime) {
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t other = ::fork();
  if (other == 0) {
    const auto lock = Host::ScheduledRunLock::tryAcquire();
    if (lock && ::write(ready[1], "x", 1) == 1) ::pause();
    ::_exit(1);
  }
  char byte;
  ::close(ready[1]);
  ASSERT_EQ(::read(ready[0], &byte, 1), 1);
  ::close(ready[0]);
  EXPECT_EQ(Host::ScheduledRunLock::tryAcquire(), nullptr) << "another process holds it";
  ::kill(other, SIGKILL);
  ::waitpid(other, nullptr, 0);
  std::unique_ptr<Host::ScheduledRunLock> lock;
  for (int i = 0; !lock && i < 500; ++i, ::usleep(10000)) lock = Host::ScheduledRunLock::tryAcquire();
  ASSERT_TRUE(lock) << "the right ends with the process";
  EXPECT_EQ(Host::ScheduledRunLock::tryAcquire(), nullptr) << "nor twice in one process";
  lock->confirm();
  if (onServer) {
    PostgresqlServer::instance().stop();
    PostgresqlServer::instance().start();
  } else {
    std::filesystem::remove(root / "var/lib/velmar/state.db.run-lock");
  }
  EXPECT_THAT(thrownBy([&] { lock->confirm(); }), HasSubstr(": the right to make the scheduled reports"));
  lock.reset();
  EXPECT_TRUE(Host::ScheduledRunLock::tryAcquire());
}

}  // namespace
}  // namespace Velmar
