// Scheduled runs on a simulated host: its clock, its ledger, its failures and crashes.

#include "tools/spamreport/scheduled_run.h"

#include <gmock/gmock.h>

#include <random>
#include <set>

#include "platform/types.h"
#include "tests/tools/local_zone.h"
#include "tools/spamreport/time_text.h"

namespace {

using namespace Velmar;
using namespace Velmar::Tool;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kDomain[] = "d.example";
constexpr std::uint32_t kEightTwelveEighteen = 1U << 8 | 1U << 12 | 1U << 18;
constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kDay = 24 * kHour;

/// The process is killed: nothing of the run may catch it.
struct Crash {};

class World final : public ScheduledWorld {
 public:
  std::map<std::string, Host::ReportedUntil> ledger;
  std::optional<std::vector<std::string>> addresses{{"a@d.example", "b@d.example", "c@d.example"}};
  std::set<std::int64_t> held;  ///< when a message came to each mailbox
  std::map<std::string, std::map<std::int64_t, int>> reported;
  std::set<std::string> broken;  ///< mailboxes whose reports fail
  OutcomeKind brokenAs = OutcomeKind::kFailed;
  std::string fault;    ///< why the mailboxes cannot be listed
  int notesLeft = -1;   ///< so many more notes of single mailboxes can be written; -1 = any number
  int crashAfter = -1;  ///< so many more reports
  bool crashBeforeNote = false;
  int tried = 0;
  std::int64_t shown = 0;  ///< by the clock, unless a run is for a later time

  std::vector<RunResult> run(std::int64_t now, int catchUpHours = 72) {
    const auto occasion = lastOccasion(kEightTwelveEighteen, now, catchUpHours);
    shown = std::max(shown, now);
    return runScheduledDomain(*this, kDomain, *occasion, now);
  }

  std::int64_t clock() override { return shown; }
  Host::ReportedUntil reportedUntil(const std::string& domain) override { return ledger[domain]; }
  void noteMailbox(const Mailbox& mailbox, std::int64_t until) override {
    if (notesLeft-- == 0) throw Exception("StateException", 4, "State", 1, "disk full");
    ledger[mailbox.domain].mailboxes[mailbox.address] = until;
  }
  void noteDomain(const std::string& domain, std::int64_t until,
                  const std::map<std::string, long long>& others) override {
    ledger[domain] = {until, others};
  }
  std::optional<std::vector<std::string>> mailboxes(const std::string&) override {
    if (!fault.empty()) throw Exception("MailboxException", 4, "Maildir", 1, fault);
    return addresses;
  }
  std::vector<Outcome> report(const std::vector<ReportTask>& tasks, const Done& done) override {
    std::vector<Outcome> outcomes;
    std::string stopped;
    for (const ReportTask& task : tasks) {
      outcomes.push_back(stopped.empty() ? reportOne(task) : Outcome{OutcomeKind::kFailed, stopped});
      if (crashBeforeNote && crashAfter == 0) throw Crash();
      if (stopped.empty()) stopped = done(task, outcomes.back());
      if (crashAfter-- == 0) throw Crash();
    }
    return outcomes;
  }

 private:
  Outcome reportOne(const ReportTask& task) {
    ++tried;
    EXPECT_GT(task.period, 0);
    const std::string& address = task.mailbox.address;
    if (broken.count(address) != 0) return {brokenAs, "bad disk"};
    const auto first = held.lower_bound(task.until - task.period);
    const auto last = held.lower_bound(task.until);
    for (auto time = first; time != last; ++time) ++reported[address][*time];
    return {first == last ? OutcomeKind::kNothingHeld : OutcomeKind::kSent, ""};
  }
};

/// One week on one host with random deliveries, timers, failures, crashes and an outage. No message between the first
/// and the last scheduled hour may be lost. Returns how many were reported more often than they should.
int repeatedInAWeek(std::int64_t begin, unsigned seed, bool crashBeforeNote = false) {
  std::mt19937 random(seed);
  const auto between = [&random](std::int64_t least, std::int64_t most) {
    return std::uniform_int_distribution<std::int64_t>(least, most)(random);
  };
  World world;
  int crashes = 0;
  world.crashBeforeNote = crashBeforeNote;
  for (std::int64_t time = begin - kDay; time < begin + 8 * kDay; time += between(1, 7000)) world.held.insert(time);
  for (const auto instant : scheduledInstants(kEightTwelveEighteen, begin - kDay, begin + 8 * kDay)) {
    world.held.insert({instant - 1, instant, instant + 1});
  }
  for (std::int64_t now = begin; now < begin + 7 * kDay;) {
    world.broken.clear();
    if (between(0, 3) == 0) world.broken.insert("b@d.example");
    world.crashAfter = between(0, 3) == 0 ? static_cast<int>(between(0, 2)) : -1;
    try {
      for (int timer = 0; timer < 2; ++timer) world.run(now);
    } catch (const Crash&) {
      ++crashes;
    }
    const bool outage = now > begin + 2 * kDay && now < begin + 2 * kDay + kHour;
    now += outage ? 30 * kHour : between(1, 900);
  }
  EXPECT_GT(crashes, 0);
  world.broken.clear();
  world.crashAfter = -1;
  const std::int64_t end = begin + 7 * kDay + 13 * kHour;  // later than the longest wait after a failure
  world.run(end);
  const auto from = lastOccasion(kEightTwelveEighteen, begin, 72)->previous;
  const auto until = lastOccasion(kEightTwelveEighteen, end, 72)->until;
  int repeated = 0;
  for (const std::string& address : *world.addresses) {
    for (const auto time : world.held) {
      const int want = time >= from && time < until ? 1 : 0;
      const int got = world.reported[address][time];
      EXPECT_GE(got, want) << address << " " << timeText(time);
      repeated += got > want;
    }
  }
  return repeated;
}

TEST(ScheduledWeek, EachMessageIsReportedOnce) {
  const std::pair<const char*, std::vector<const char*>> zones[] = {
      {"Europe/Berlin", {"2026-03-26T01:00Z", "2026-10-22T01:00Z"}},
      {"America/New_York", {"2026-03-05T01:00Z", "2026-10-29T01:00Z"}},
      {"Australia/Lord_Howe", {"2026-04-02T01:00Z", "2026-10-01T01:00Z"}},
      {"Africa/Cairo", {"2026-04-21T01:00Z", "2026-10-27T01:00Z"}},
      {"Asia/Kolkata", {"2026-11-22T01:00Z"}},
  };
  for (const auto& [name, weeks] : zones) {
    const LocalZone zone(name);
    for (const char* begin : weeks) {
      for (unsigned seed = 1; seed <= 5; ++seed) {
        SCOPED_TRACE(testing::Message() << name << " " << begin << " " << seed);
        EXPECT_EQ(repeatedInAWeek(parseUntil(begin), seed), 0);
      }
    }
  }
  const LocalZone zone("Europe/Berlin");
  EXPECT_GT(repeatedInAWeek(parseUntil("2026-03-26T01:00Z"), 1, true), 0) << "a crash between sending and noting";
}

class ScheduledRun : public testing::Test {
 protected:
  ScheduledRun() {
    for (std::int64_t time = noon - 10 * kDay; time < noon + 10 * kDay; time += kHour) world.held.insert(time);
  }
  std::vector<int> tries(std::int64_t from, std::int64_t to) {
    std::vector<int> minutes;
    for (std::int64_t now = from; now < to; now += 300) {
      const int before = world.tried;
      if (!world.run(now).empty() || world.tried != before) minutes.push_back(static_cast<int>((now - from) / 60));
    }
    return minutes;
  }

  const LocalZone zone{"UTC0"};
  const std::int64_t noon = 1795348800;  // 2026-11-22T12:00:00Z
  World world;
};

TEST_F(ScheduledRun, MeetsALastingFaultSeldomAndMakesUpForIt) {
  world.run(noon - 4 * kHour);
  world.broken = {"b@d.example"};
  EXPECT_THAT(tries(noon, noon + 6 * kHour), ElementsAre(0, 15, 30, 60, 120, 180, 240, 300));
  EXPECT_EQ(world.reported["b@d.example"].size(), 14U);  // those of 18 to 8 o'clock
  world.broken.clear();
  world.run(noon + 6 * kHour);
  EXPECT_EQ(world.reported["b@d.example"], world.reported["a@d.example"]);
  EXPECT_EQ(world.ledger[kDomain].domain, noon + 6 * kHour);
  EXPECT_TRUE(world.ledger[kDomain].mailboxes.empty());
}

TEST_F(ScheduledRun, ADomainThatCannotBeListedStandsWhereItStood) {
  world.run(noon - 4 * kHour);
  const auto addresses = world.addresses;
  world.addresses.reset();
  EXPECT_EQ(world.run(noon).at(0).outcome.kind, OutcomeKind::kNoDomain);
  EXPECT_THAT(tries(noon, noon + kHour), ElementsAre(15, 30));
  world.addresses.emplace();
  EXPECT_TRUE(world.run(noon + 2 * kHour).empty());
  world.addresses = addresses;
  world.fault = "stale handle";
  const std::vector<RunResult> results = world.run(noon + 6 * kHour);
  ASSERT_EQ(results.size(), 1U);
  EXPECT_EQ(results[0].task.mailbox.address, "*@d.example");
  EXPECT_EQ(results[0].outcome.kind, OutcomeKind::kFailed);
  EXPECT_EQ(results[0].outcome.detail, "stale handle");
  world.fault.clear();
  EXPECT_EQ(world.run(noon + 7 * kHour).at(0).task.period, 10 * kHour);
}

TEST_F(ScheduledRun, MailboxesThatAreGoneInItsMiddleAreTriedAgain) {
  world.run(noon - 4 * kHour);
  world.broken = {"b@d.example", "c@d.example"};
  world.brokenAs = OutcomeKind::kNoMailbox;  // their file system was unmounted
  world.run(noon);
  world.broken.clear();
  world.addresses->pop_back();  // c was removed for good
  world.run(noon + kHour);
  EXPECT_EQ(world.reported["b@d.example"], world.reported["a@d.example"]);
  EXPECT_TRUE(world.ledger[kDomain].mailboxes.empty());
}

TEST_F(ScheduledRun, AClockThatWasSetBackGivesNoPeriodTwice) {
  world.ledger[kDomain] = {noon, {{"b@d.example", noon - 18 * kHour}}};  // b failed at noon
  EXPECT_TRUE(world.run(noon - 60).empty());
  EXPECT_EQ(world.ledger[kDomain].domain, noon);
  world.ledger[kDomain] = {noon - 18 * kHour, {{"a@d.example", noon}}};  // broken off at noon
  EXPECT_EQ(world.run(noon - 60).size(), 2U);
  world.run(noon);
  EXPECT_TRUE(world.reported["a@d.example"].empty());
  EXPECT_EQ(world.reported["c@d.example"].size(), 18U);
  world.ledger[kDomain] = {noon + 400 * kDay, {}};
  const std::vector<RunResult> results = world.run(noon);
  ASSERT_EQ(results.size(), 1U);
  EXPECT_THAT(results[0].outcome.detail, HasSubstr("until 2027-12-27T12:00:00Z"));
  EXPECT_TRUE(anyFailure(results));
  world.shown = noon + 400 * kDay;  // the run is for a time long past
  EXPECT_TRUE(world.run(noon).empty());
  EXPECT_THAT(world.run(noon + 5000 * kDay).at(0).outcome.detail, HasSubstr("last time that they can"));
}

TEST_F(ScheduledRun, DoesNotBelieveNotesOfATimeToCome) {
  world.ledger[kDomain] = {noon - 4 * kHour, {{"*", noon + kDay}, {"a@d.example", noon + 400 * kDay}}};
  EXPECT_EQ(world.run(noon).size(), 3U);
  EXPECT_TRUE(world.ledger[kDomain].mailboxes.empty());
}

TEST_F(ScheduledRun, ADirectoryThatIsNoMailboxFailsOncePerScheduledHour) {
  world.addresses->push_back("x,y@d.example");
  world.broken = {"x,y@d.example"};
  EXPECT_THAT(tries(noon, noon + 6 * kHour + 1), ElementsAre(0, 360));
}

TEST_F(ScheduledRun, SendsNothingWhenItCannotNote) {
  world.ledger[kDomain] = {noon - 4 * kHour, {}};
  world.notesLeft = 0;
  EXPECT_EQ(world.run(noon).at(0).outcome.detail, "disk full");
  EXPECT_EQ(world.tried, 0);
  world.notesLeft = 1;  // the store fails only later
  const std::vector<RunResult> results = world.run(noon);
  ASSERT_EQ(results.size(), 3U);
  EXPECT_EQ(results[0].outcome.kind, OutcomeKind::kSent);
  EXPECT_EQ(results[0].outcome.detail, " (not noted: disk full)");
  EXPECT_EQ(world.tried, 1);
  EXPECT_EQ(results[1].outcome.detail, "disk full");
  EXPECT_EQ(world.ledger[kDomain].mailboxes.count("a@d.example"), 0U);
  EXPECT_EQ(world.ledger[kDomain].mailboxes["c@d.example"], noon - 4 * kHour);
}

TEST_F(ScheduledRun, TheFirstOneBeginsAtTheHourBeforeEvenIfItEndsLate) {
  world.fault = "stale handle";
  world.run(noon);
  world.fault.clear();
  EXPECT_EQ(world.run(noon + 6 * kHour).at(0).task.period, 10 * kHour);
}

TEST_F(ScheduledRun, IsTakenUpAgainAfterACrashWithoutHaste) {
  world.crashAfter = 0;
  EXPECT_THROW(world.run(noon), Crash);
  EXPECT_THAT(tries(noon, noon + kHour), ElementsAre(15));
  EXPECT_EQ(world.tried, 3);
}

}  // namespace
