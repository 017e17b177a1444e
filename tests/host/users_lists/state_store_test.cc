// The state store when things go wrong: locks, damage, denied access, other versions, processes and threads at once.
// What is asked each time: nobody hears "not in the list" from a store that could not be read.

#include "host/users_lists/state_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <thread>

#include "tests/host/mailbox/temp_root.h"
#include "tests/host/users_lists/lists.h"

namespace Velmar {
namespace {

using namespace Testing;
using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr char kState[] = "var/lib/velmar/state.db";

// Every operation on the store, each of which must throw an error that names the file and `want`.
void expectAllFail(const std::string& want) {
  char buffer[36];
  const std::function<void()> operations[] = {
      [] { namesOf("u@d", "l"); },
      [] { listHolds("u@d", "l", "a@x"); },
      [] { removeEntry("u@d", "l", "a@x"); },
      [] { Host::addListEntry("u@d", "l", "b@x"); },
      [] { Host::listEntries("u@d"); },
      [&] { get_user_pref_lang("u@d", buffer, sizeof buffer); },
      [] { Host::setPreferredLanguage("u@d", "de"); },
  };
  for (std::size_t i = 0; i < std::size(operations); ++i) {
    EXPECT_THAT(errorOf(operations[i]), AllOf(HasSubstr(Host::statePath()), HasSubstr(want))) << "operation " << i;
  }
}

class StateStore : public ::testing::Test {
 protected:
  StateStore() {
    Host::setStateLockTimeout(50ms);
    Host::addListEntry("u@d", "l", "a@x");
    Host::setPreferredLanguage("u@d", "fr");
  }
  ~StateStore() override {
    Host::dropThreadState();
    Host::setStateLockTimeout(5s);
  }

  soci::session otherProgram() const { return soci::session("sqlite3", "dbname=\"" + Host::statePath() + "\""); }

  TempRoot root{"velmar test = "};
};

// What `work` returns, as the exit status of a child.
pid_t inChild(const std::function<bool()>& work) {
  const pid_t child = ::fork();
  if (child == 0) {
    bool good = false;
    try {
      good = work();
    } catch (const std::exception& e) {
      std::fprintf(stderr, "child: %s\n", e.what());
    }
    ::_exit(good ? 0 : 1);
  }
  return child;
}

void expectSuccess(pid_t child) {
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(StateStore, SurvivesTheSession) {
  Host::dropThreadState();
  EXPECT_THAT(namesOf("u@d", "l"), ElementsAre("a@x"));
  std::string mode, version;
  soci::session other = otherProgram();
  other << "PRAGMA journal_mode", soci::into(mode);
  other << "PRAGMA user_version", soci::into(version);
  EXPECT_EQ(mode, "wal");
  EXPECT_EQ(version, "1");
}

TEST_F(StateStore, EachRootHasItsOwnStore) {
  {
    const TempRoot other;
    EXPECT_FALSE(listHolds("u@d", "l", "a@x"));
    EXPECT_TRUE(std::filesystem::exists(other / kState));
  }
  ::setenv("VELMAR_ROOT", root.operator/("").c_str(), 1);
  EXPECT_TRUE(listHolds("u@d", "l", "a@x"));
}

TEST_F(StateStore, WriterWaitsForALockAndThenThrows) {
  soci::session other = otherProgram();
  other << "BEGIN IMMEDIATE";
  EXPECT_THAT(errorOf([] { removeEntry("u@d", "l", "a@x"); }),
              AllOf(HasSubstr(Host::statePath()), HasSubstr("database is locked")));
  EXPECT_THAT(errorOf([] { Host::addListEntry("u@d", "l", "b@x"); }), HasSubstr("database is locked"));
  EXPECT_TRUE(listHolds("u@d", "l", "a@x")) << "readers do not wait for the writer";
  other << "COMMIT";
  removeEntry("u@d", "l", "a@x");
  EXPECT_THAT(namesOf("u@d", "l"), IsEmpty());
}

TEST_F(StateStore, WriterOutwaitsAShortLock) {
  Host::dropThreadState();
  Host::setStateLockTimeout(20s);
  soci::session other = otherProgram();
  other << "BEGIN IMMEDIATE";
  std::thread releaser([&] {
    std::this_thread::sleep_for(100ms);
    other << "COMMIT";
  });
  removeEntry("u@d", "l", "a@x");
  releaser.join();
  EXPECT_THAT(namesOf("u@d", "l"), IsEmpty());
}

TEST_F(StateStore, StoreLockedForItselfByAnotherThrows) {
  Host::dropThreadState();
  soci::session other = otherProgram();
  other << "PRAGMA locking_mode = EXCLUSIVE";
  other << "BEGIN EXCLUSIVE";
  expectAllFail("database is locked");
}

TEST_F(StateStore, ChangeThatFailsHalfWayIsUndone) {
  EXPECT_THROW(Host::withState([](soci::session& session) {
                 Host::StateChange change(session);
                 session << "DELETE FROM list_entry";
                 throw std::runtime_error("stop");
               }),
               std::runtime_error);
  EXPECT_THROW(Host::withState([](soci::session& session) {
                 Host::StateChange change(session);
                 session << "DELETE FROM list_entry";
                 session << "DELETE FROM no_such_table";
               }),
               Exception);
  EXPECT_TRUE(listHolds("u@d", "l", "a@x"));
}

TEST_F(StateStore, FileThatIsNoDatabaseThrows) {
  Host::dropThreadState();
  root.write(kState, std::string(8192, 'x'));
  expectAllFail("file is not a database");
  EXPECT_EQ(std::filesystem::file_size(root / kState), 8192u) << "nobody may overwrite what it was";
}

TEST_F(StateStore, DamagedPagesThrow) {
  Host::dropThreadState();
  std::fstream file(root / kState, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(4096);  // the first page, which holds the schema, stays whole
  file << std::string(std::filesystem::file_size(root / kState) - 4096, '\xff');
  file.close();
  expectAllFail("malformed");
}

TEST_F(StateStore, OtherVersionsAndForeignDatabasesThrow) {
  Host::dropThreadState();
  otherProgram() << "PRAGMA user_version = 2";
  expectAllFail("its schema version is 2, this software knows version 1");
  otherProgram() << "PRAGMA user_version = 0";
  expectAllFail("not one of this system");
  otherProgram() << "PRAGMA user_version = 1";
  EXPECT_TRUE(listHolds("u@d", "l", "a@x")) << "nothing was changed";
}

TEST_F(StateStore, DeniedAccessThrows) {
  Host::dropThreadState();
  const std::string directory = root / "var/lib/velmar";
  const struct {
    mode_t directory, file;
    const char* want;
  } cases[] = {
      {0555, 0666, "readonly database"}, {0777, 0, "unable to open database file"}, {0, 0666, "unable to open"}};
  for (const auto& c : cases) {
    ::chmod((root / kState).c_str(), c.file);
    ::chmod(directory.c_str(), c.directory);
    const AsOrdinaryUser user;
    expectAllFail(c.want);
    Host::dropThreadState();
  }
  ::chmod(directory.c_str(), 0555);
  std::filesystem::remove(root / kState);
  const AsOrdinaryUser user;
  expectAllFail("unable to open database file");
}

TEST_F(StateStore, RootThatCannotHoldAStoreThrows) {
  const TempRoot other;
  other.write("var", "a file");
  expectAllFail("Not a directory");
  ::setenv("VELMAR_ROOT", (other / "missing").c_str(), 1);
  expectAllFail("cannot create " + other / "missing/var" + ": No such file or directory");
  ::setenv("VELMAR_ROOT", other.makeDirectory("with\"quote").c_str(), 1);
  expectAllFail("its path holds a double quote");
}

// An administrator restores a backup, or moves the file away, while a program has it open.
TEST_F(StateStore, ReplacedFileIsNoticed) {
  const std::string path = root / kState;
  std::filesystem::rename(path, path + ".old");
  std::filesystem::remove(path + "-wal");
  std::filesystem::remove(path + "-shm");
  EXPECT_FALSE(listHolds("u@d", "l", "a@x"));
  Host::addListEntry("u@d", "l", "new@x");
  Host::dropThreadState();
  EXPECT_THAT(namesOf("u@d", "l"), ElementsAre("new@x"));
}

TEST_F(StateStore, TwoProcessesDeleteAtOnce) {
  constexpr int kEntries = 60;
  for (int i = 0; i < kEntries; ++i) Host::addListEntry("u@d", "many", std::to_string(i) + "@x");
  Host::addListEntry("u@d", "many", "stays@x");
  Host::setStateLockTimeout(20s);
  const auto deleteAll = [] {
    for (const std::string& name : namesOf("u@d", "many")) {
      if (name == "stays@x") continue;
      if (listHolds("u@d", "many", name)) removeEntry("u@d", "many", name);
    }
    return namesOf("u@d", "many") == std::vector<std::string>{"stays@x"};
  };
  const pid_t first = inChild(deleteAll);
  const pid_t second = inChild(deleteAll);
  expectSuccess(first);
  expectSuccess(second);
  EXPECT_THAT(namesOf("u@d", "many"), ElementsAre("stays@x"));
}

TEST_F(StateStore, ChildOfAProgramThatHasTheStoreOpenOpensItAnew) {
  ASSERT_TRUE(listHolds("u@d", "l", "a@x"));
  const soci::session* inherited = &Host::threadState();
  expectSuccess(inChild([&] {
    removeEntry("u@d", "l", "a@x");
    return &Host::threadState() != inherited;
  }));
  EXPECT_FALSE(listHolds("u@d", "l", "a@x"));
}

TEST_F(StateStore, ProcessesCreateAStoreTogether) {
  Host::setStateLockTimeout(20s);
  for (int round = 0; round < 5; ++round) {
    const TempRoot empty;
    std::vector<pid_t> children;
    for (int i = 0; i < 4; ++i) {
      children.push_back(inChild([i] {
        Host::addListEntry("u@d", "l", std::to_string(i) + "@x");
        return listHolds("u@d", "l", std::to_string(i) + "@x");
      }));
    }
    for (const pid_t child : children) expectSuccess(child);
    EXPECT_EQ(namesOf("u@d", "l").size(), 4u);
  }
}

TEST_F(StateStore, ThreadsReadAndWriteAtOnce) {
  Host::setStateLockTimeout(20s);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      const std::string own = "t" + std::to_string(t) + "@x";
      for (int i = 0; i < 20; ++i) {
        Host::addListEntry("shared@d", "l", own);
        EXPECT_TRUE(listHolds("shared@d", "l", own)) << own;
        removeEntry("shared@d", "l", own);
        EXPECT_FALSE(listHolds("shared@d", "l", own)) << own;
      }
      Host::addListEntry("shared@d", "l", own);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(namesOf("shared@d", "l").size(), 4u);
}

}  // namespace
}  // namespace Velmar
