// The state store when things go wrong: locks, damage, denied access, other versions, processes and threads at once.
// What is asked each time: nobody hears "not in the list" from a store that could not be read.

#include "host/users_lists/state_store.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <future>
#include <thread>

#include "tests/host/users_lists/lists.h"
#include "tests/host/users_lists/stores.h"

namespace Velmar {
namespace {

using namespace Testing;
using namespace std::chrono_literals;
using ::testing::HasSubstr;

constexpr char kState[] = "var/lib/velmar/state.db";

// The session of another program with the store.
std::unique_ptr<soci::session> otherProgram() { return Host::threadDatabase().open(50ms); }

class StateStore : public OnEachStore {
 protected:
  StateStore() {
    Host::setStateLockTimeout(50ms);
    Host::addListEntry("u@d", "l", "a@x");
    Host::setPreferredLanguage("u@d", "fr");
    Host::dropThreadState();
  }
};
FOR_EACH_STORE(StateStore);

TEST_P(StateStore, ChangeWaitsForAnotherAndThenThrows) {
  const auto other = otherProgram();
  Host::threadDatabase().beginChange(*other, 50ms);
  const std::string want = onServer ? "canceling statement due to lock timeout" : "database is locked";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(thrownBy([] { removeEntry("u@d", "l", "a@x"); }), HasSubstr(want));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 4s) << "much longer than 50 ms";
  EXPECT_TRUE(listHolds("u@d", "l", "a@x")) << "readers do not wait for the writer";
  *other << "COMMIT";
  removeEntry("u@d", "l", "a@x");
  EXPECT_FALSE(listHolds("u@d", "l", "a@x"));
}

TEST_P(StateStore, ChangeThatFailsHalfWayIsUndone) {
  const auto change = [](Host::StateSession& state) {
    Host::StateChange undone(state);
    state.run("DELETE FROM list_entry");
    state.run("DELETE FROM no_such_table");
  };
  EXPECT_THAT(thrownBy([&] { Host::withState(change); }), HasSubstr("no_such_table"));
  EXPECT_TRUE(listHolds("u@d", "l", "a@x"));
}

TEST_P(StateStore, OtherVersionsAndForeignDatabasesThrow) {
  const auto other = otherProgram();
  for (const auto& [version, want] : {std::pair{3, "its schema version is 3, this software knows version 2"},
                                      std::pair{0, "it has vanished: what is there now is empty"}}) {
    Host::threadDatabase().setSchemaVersion(*other, version);
    expectAllFail(want);
  }
}

// A store of the first release gets what is new, and keeps what it has.
TEST_P(StateStore, OlderStoreIsBroughtUpToDate) {
  const Host::StateDatabase& database = Host::threadDatabase();
  const auto other = otherProgram();
  *other << "DROP TABLE reported";
  database.setSchemaVersion(*other, 1);
  *other << "CREATE TABLE reported (a INTEGER)";  // in the way of the last step
  expectAllFail("already exists");
  EXPECT_EQ(database.schemaVersion(*other), 1);
  *other << "DROP TABLE reported";
  EXPECT_TRUE(listHolds("u@d", "l", "a@x"));
  EXPECT_EQ(database.schemaVersion(*other), 2);
  Host::setMailboxReportedUntil("d", "u@d", 1);
  EXPECT_EQ(Host::reportedUntil("d").mailboxes.size(), 1u);
}

// Changes of several statements, again and again, beside others that make them as well.
void workOnSharedState(int worker) {
  const std::string own = std::to_string(worker) + "@x";
  for (int i = 0; i < 8; ++i) {
    removeEntry("shared@d", "l", own);
    if (listHolds("shared@d", "l", own)) throw Host::stateError(__LINE__, own + " is still there");
    Host::addListEntry("shared@d", "l", own);
    Host::setPreferredLanguage("shared@d", "l" + std::to_string(worker));
    Host::setDomainReportedUntil("shared", worker, {{own, worker}, {"all@x", worker}});
  }
}

TEST_P(StateStore, ProcessesAndThreadsCreateAndShareAStore) {
  Host::setStateLockTimeout(20s);
  for (int round = 0; round < 3; ++round) {
    const TempRoot empty;
    Host::dropThreadState();
    useEmptyStore();
    for (int i = 1; i <= 3; ++i) {
      if (::fork() == 0) ::_exit(thrownBy([i] { workOnSharedState(i); }) == "nothing thrown" ? 0 : 1);
    }
    std::thread thread([] { EXPECT_EQ(thrownBy([] { workOnSharedState(4); }), "nothing thrown"); });
    EXPECT_EQ(thrownBy([] { workOnSharedState(5); }), "nothing thrown");
    thread.join();
    for (int i = 0, status = -1; i < 3; ++i) {
      ::waitpid(0, &status, 0);
      EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(namesOf("shared@d", "l").size(), 5u);
    const Host::ReportedUntil last = Host::reportedUntil("shared");
    const std::map<std::string, long long> ofOne{{std::to_string(last.domain) + "@x", last.domain},
                                                 {"all@x", last.domain}};
    EXPECT_EQ(last.mailboxes, ofOne) << "one of the changes as a whole";
  }
}

TEST_P(StateStore, ChildAndParentLoseNothingOfEachOther) {
  ASSERT_TRUE(listHolds("u@d", "l", "a@x"));
  const pid_t child = ::fork();
  if (child == 0) {
    Host::addListEntry("u@d", "l", "b@x");
    ::raise(SIGSTOP);  // until the parent has closed the store
    Host::addListEntry("u@d", "l", "c@x");
    Host::dropThreadState();
    ::_exit(0);
  }
  ::waitpid(child, nullptr, WUNTRACED);
  EXPECT_TRUE(listHolds("u@d", "l", "b@x"));
  Host::dropThreadState();
  ::kill(child, SIGCONT);
  ::waitpid(child, nullptr, 0);
  EXPECT_THAT(namesOf("u@d", "l"), ::testing::ElementsAre("a@x", "b@x", "c@x"));
}

TEST_P(StateStore, ChildRefusesAFileThatAnotherThreadHadOpen) {
  std::promise<void> opened, over;
  std::thread other([&] {
    listHolds("u@d", "l", "a@x");
    opened.set_value();
    over.get_future().wait();
  });
  opened.get_future().wait();
  const std::string want = onServer ? "nothing thrown" : "before this process was forked";
  const pid_t child = ::fork();
  if (child == 0) ::_exit(thrownBy([] { namesOf("u@d", "l"); }).find(want) == std::string::npos ? 1 : 0);
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  over.set_value();
  other.join();
}

class FileStore : public ::testing::Test {
 protected:
  FileStore() {
    Host::setStateUrl(kSqliteUrl);
    Host::setStateLockTimeout(50ms);
    Host::addListEntry("u@d", "l", "a@x");
    Host::dropThreadState();
  }
  ~FileStore() override { Host::dropThreadState(); }

  TempRoot root{"velmar test = "};
};

TEST_F(FileStore, ReadersWaitOnceForAnExclusiveLockAndThenThrow) {
  Host::setStateLockTimeout(1s);
  const auto other = otherProgram();
  *other << "PRAGMA locking_mode = EXCLUSIVE";
  *other << "BEGIN EXCLUSIVE";
  expectAllFail("database is locked");
  EXPECT_THAT(thrownBy([] { listHolds("u@d", "l", "a@x"); }), HasSubstr("not tried for another 10 s after "));
}

TEST_F(FileStore, DatabaseOfAnotherProgramIsLeftAlone) {
  for (const char* sign : {"PRAGMA application_id = 7", "CREATE TABLE theirs (a)", "PRAGMA user_version = 1"}) {
    const TempRoot theirs;
    soci::session("sqlite3", "dbname=" + theirs / "their.db") << sign;
    Host::setStateUrl("sqlite:///their.db");
    expectAllFail("it is a database, but not one of this system");
  }
}

TEST_F(FileStore, DamageThrows) {
  std::fstream file(root / kState, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(4096);  // the first page, which holds the schema, stays whole
  file << std::string(std::filesystem::file_size(root / kState) - 4096, '\xff') << std::flush;
  expectAllFail("malformed");
  root.write(kState, std::string(8192, 'x'));
  expectAllFail("file is not a database");
  EXPECT_EQ(std::filesystem::file_size(root / kState), 8192u) << "nobody may overwrite what it was";
}

TEST_F(FileStore, DeniedAccessThrows) {
  ::chmod((root / kState).c_str(), 0666);
  for (const auto& [mode, want] :
       {std::pair{0555, "readonly database (" + root / "var/lib/velmar/: Permission"},
        std::pair{0, "unable to open database file (" + root / "var/lib/velmar/state.db: "}}) {
    ::chmod((root / "var/lib/velmar").c_str(), static_cast<mode_t>(mode));
    const AsOrdinaryUser user;
    expectAllFail(want);
    EXPECT_THAT(thrownBy([] { Host::ScheduledRunLock::tryAcquire(); }),
                HasSubstr("run-lock cannot be opened: Permission"));
  }
}

TEST_F(FileStore, RootThatCannotHoldAStoreThrows) {
  root.write("file", "");
  ::setenv("VELMAR_ROOT", (root / "file").c_str(), 1);
  expectAllFail("directory " + root / "file/var" + " cannot be made: Not a directory");
  ::setenv("VELMAR_ROOT", root.makeDirectory("with\"quote").c_str(), 1);
  expectAllFail("its path holds a double quote");
}

// An administrator moves the file away, or restores a backup, while a program has it open. Lists that were known must
// not read as empty in between.
TEST_F(FileStore, ReplacedFileIsNoticed) {
  ASSERT_TRUE(listHolds("u@d", "l", "a@x"));
  const TempRoot other;
  Host::addListEntry("u@d", "l", "b@x");
  Host::dropThreadState();
  ::setenv("VELMAR_ROOT", (root / "").c_str(), 1);
  ASSERT_TRUE(listHolds("u@d", "l", "a@x"));
  for (const char* part : {"", "-wal", "-shm"}) std::filesystem::remove(root / kState + part);
  expectAllFail("it has vanished");
  EXPECT_FALSE(std::filesystem::exists(root / kState));
  std::filesystem::copy_file(other / kState, root / kState);
  EXPECT_FALSE(listHolds("u@d", "l", "a@x"));
  EXPECT_TRUE(listHolds("u@d", "l", "b@x"));
}

}  // namespace
}  // namespace Velmar
