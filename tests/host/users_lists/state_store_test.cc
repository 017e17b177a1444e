// The state store when things go wrong: locks, damage, denied access, other versions, processes and threads at once.
// What is asked each time: nobody hears "not in the list" from a store that could not be read.

#include "host/users_lists/state_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <thread>

#include "tests/host/users_lists/lists.h"
#include "tests/host/users_lists/stores.h"

namespace Velmar {
namespace {

using namespace Testing;
using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr char kState[] = "var/lib/velmar/state.db";

// Every operation on the store, each of which must throw an error that names the file and `want`.
void expectAllFail(const std::string& want) {
  char buffer[36];
  const std::function<void()> operations[] = {
      [] { namesOf("u@d", "l"); },
      [] { listHolds("u@d", "l", "a@x"); },
      [] { removeEntry("u@d", "l", "a@x"); },
      [] { Host::addListEntry("u@d", "l", "b@x"); },
      [&] { get_user_pref_lang("u@d", buffer, sizeof buffer); },
      [] { Host::setPreferredLanguage("u@d", "de"); },
      [] { Host::reportedUntil("d"); },
      [] { Host::setDomainReportedUntil("d", 1, {}); },
      [] { Host::checkState(); },
  };
  const auto wanted = AllOf(HasSubstr("state store " + Host::threadDatabase().name()), HasSubstr(want));
  for (const auto& operation : operations) EXPECT_THAT(thrownBy(operation), wanted);
}

class StateStore : public ::testing::Test {
 protected:
  StateStore() {
    Host::setStateUrl(kSqliteUrl);
    Host::setStateLockTimeout(50ms);
    Host::addListEntry("u@d", "l", "a@x");
    Host::setPreferredLanguage("u@d", "fr");
    Host::dropThreadState();
  }
  ~StateStore() override { Host::dropThreadState(); }

  soci::session otherProgram() const { return soci::session("sqlite3", "dbname=\"" + root / kState + "\""); }

  TempRoot root{"velmar test = "};
};

TEST_F(StateStore, OperationWaitsForALockAndThenThrows) {
  soci::session other = otherProgram();
  other << "BEGIN IMMEDIATE";
  EXPECT_THAT(thrownBy([] { removeEntry("u@d", "l", "a@x"); }), HasSubstr("database is locked"));
  EXPECT_TRUE(listHolds("u@d", "l", "a@x")) << "readers do not wait for the writer";
  other << "COMMIT";
  Host::dropThreadState();
  other << "PRAGMA locking_mode = EXCLUSIVE";
  other << "BEGIN EXCLUSIVE";
  expectAllFail("database is locked");
}

TEST_F(StateStore, ChangeThatFailsHalfWayIsUndone) {
  const auto change = [](Host::StateSession& state) {
    Host::StateChange undone(state);
    state.sql << "DELETE FROM list_entry";
    state.sql << "DELETE FROM no_such_table";
  };
  EXPECT_THROW(Host::withState(change), Exception);
  EXPECT_TRUE(listHolds("u@d", "l", "a@x"));
}

TEST_F(StateStore, DamageThrows) {
  std::fstream file(root / kState, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(4096);  // the first page, which holds the schema, stays whole
  file << std::string(std::filesystem::file_size(root / kState) - 4096, '\xff') << std::flush;
  expectAllFail("malformed");
  root.write(kState, std::string(8192, 'x'));
  expectAllFail("file is not a database");
  EXPECT_EQ(std::filesystem::file_size(root / kState), 8192u) << "nobody may overwrite what it was";
}

TEST_F(StateStore, OtherVersionsAndForeignDatabasesThrow) {
  otherProgram() << "PRAGMA user_version = 3";
  expectAllFail("its schema version is 3, this software knows version 2");
  otherProgram() << "PRAGMA user_version = 0";
  expectAllFail("it has vanished: what is there now is empty");
  const TempRoot elsewhere;
  for (const char* sign : {"PRAGMA application_id = 7", "CREATE TABLE theirs (a)", "PRAGMA user_version = 1"}) {
    const std::string path = elsewhere.makeDirectory(std::to_string(sign[0] + sign[7])) + "/their.db";
    soci::session("sqlite3", "dbname=" + path) << sign;
    Host::setStateUrl("sqlite://" + path.substr((elsewhere / "").size() - 1));
    EXPECT_THAT(thrownBy([] { namesOf("u@d", "l"); }), HasSubstr("their.db: it is a database, but not one of this"));
  }
}

// A store of the first release gets what is new, and keeps what it has.
TEST_F(StateStore, OlderStoreIsBroughtUpToDate) {
  const auto version = [&] {
    int number = 0;
    otherProgram() << "PRAGMA user_version", soci::into(number);
    return number;
  };
  for (const char* makeOlder : {"DROP TABLE reported", "PRAGMA user_version = 1"}) otherProgram() << makeOlder;
  otherProgram() << "CREATE TABLE reported (a)";  // in the way of the last step
  EXPECT_THAT(thrownBy([] { namesOf("u@d", "l"); }), HasSubstr("table reported already exists"));
  EXPECT_EQ(version(), 1);
  otherProgram() << "DROP TABLE reported";
  EXPECT_TRUE(listHolds("u@d", "l", "a@x"));
  EXPECT_EQ(version(), 2);
  Host::setMailboxReportedUntil("d", "u@d", 1);
  EXPECT_EQ(Host::reportedUntil("d").mailboxes.size(), 1u);
}

TEST_F(StateStore, DeniedAccessThrows) {
  ::chmod((root / kState).c_str(), 0666);
  for (const auto& [mode, want] : {std::pair{0555, "readonly database"}, std::pair{0, "unable to open"}}) {
    ::chmod((root / "var/lib/velmar").c_str(), static_cast<mode_t>(mode));
    const AsOrdinaryUser user;
    expectAllFail(want);
  }
}

TEST_F(StateStore, RootThatCannotHoldAStoreThrows) {
  root.write("file", "");
  ::setenv("VELMAR_ROOT", (root / "file").c_str(), 1);
  expectAllFail("directory " + root / "file/var" + " cannot be made: Not a directory");
  ::setenv("VELMAR_ROOT", root.makeDirectory("with\"quote").c_str(), 1);
  expectAllFail("its path holds a double quote");
}

// An administrator moves the file away, or restores a backup, while a program has it open. Lists that were known must
// not read as empty in between.
TEST_F(StateStore, ReplacedFileIsNoticed) {
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

// Removes and adds an entry again and again, beside others that do the same with theirs.
void workOnSharedList(int worker) {
  const std::string own = std::to_string(worker) + "@x";
  for (int i = 0; i < 15; ++i) {
    removeEntry("shared@d", "l", own);
    if (listHolds("shared@d", "l", own)) throw Host::stateError(__LINE__, own + " is still there");
    Host::addListEntry("shared@d", "l", own);
  }
}

TEST_F(StateStore, ProcessesAndThreadsCreateAndShareAStore) {
  Host::setStateLockTimeout(20s);
  for (int round = 0; round < 3; ++round) {
    const TempRoot empty;
    for (int i = 0; i < 3; ++i) {
      if (::fork() == 0) ::_exit(thrownBy([i] { workOnSharedList(i); }) == "nothing thrown" ? 0 : 1);
    }
    std::thread thread([] { EXPECT_EQ(thrownBy([] { workOnSharedList(3); }), "nothing thrown"); });
    EXPECT_EQ(thrownBy([] { workOnSharedList(4); }), "nothing thrown");
    thread.join();
    for (int status = -1; ::wait(&status) > 0;) EXPECT_EQ(status, 0);
    EXPECT_EQ(namesOf("shared@d", "l").size(), 5u);
  }
}

TEST_F(StateStore, ChildOfAProgramThatHasTheStoreOpenOpensItAnew) {
  const soci::session* inherited = &Host::threadState().sql;
  if (::fork() == 0) ::_exit(&Host::threadState().sql != inherited ? 0 : 1);
  for (int status = -1; ::wait(&status) > 0;) EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace Velmar
