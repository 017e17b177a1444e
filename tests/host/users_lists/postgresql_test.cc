// The state store on a server: connections that break, a server that is gone, and what its URL may show.

#include "host/users_lists/postgresql_url.h"
#include "tests/host/users_lists/lists.h"
#include "tests/host/users_lists/stores.h"

namespace Velmar {
namespace {

using namespace Testing;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class ServerStore : public ::testing::Test {
 protected:
  ServerStore() {
    server.empty();
    Host::setStateUrl(server.url());
    Host::addListEntry("u@d", "l", "a@x");
  }
  ~ServerStore() override { Host::dropThreadState(); }

  PostgresqlServer& server = PostgresqlServer::instance();
  TempRoot root;
};

TEST_F(ServerStore, OperationIsRepeatedOnceWhenItsConnectionBreaks) {
  for (const int breaks : {1, 2}) {
    int attempts = 0;
    const auto change = [&](Host::StateSession& state) {
      Host::StateChange once(state);
      state.run("DELETE FROM list_entry");
      if (++attempts <= breaks) state.run("SELECT pg_terminate_backend(pg_backend_pid())");
      once.commit();
    };
    EXPECT_THAT(thrownBy([&] { Host::withState(change); }), HasSubstr(breaks == 1 ? "nothing thrown" : "terminat"));
    EXPECT_EQ(attempts, 2);
    EXPECT_EQ(listHolds("u@d", "l", "a@x"), breaks == 2) << "undone with its connection";
    Host::addListEntry("u@d", "l", "a@x");
  }
}

TEST_F(ServerStore, ServerThatIsGoneOrRefusesThrows) {
  server.stop();
  server.start();
  EXPECT_TRUE(listHolds("u@d", "l", "a@x")) << "a restart is not noticed";
  const std::string start = "postgresql://velmar:", place = server.url().substr(server.url().find('@'));
  const struct {
    std::string url, want;
  } cases[] = {
      {start + "gehe%25im" + place, "password authentication failed for user \"velmar\""},
      {server.url() + "&unknown=1", "invalid URI query parameter: \"unknown\""},
      {start + "gehe%zz" + place, "invalid percent-encoded token: \"***\""},
      {"postgresql://u@/d?password=gehe%zz", "invalid percent-encoded token: \"***\""},
  };
  for (const auto& c : cases) {
    Host::setStateUrl(c.url);
    expectAllFail(c.want);
  }
  Host::setStateUrl(server.url());
  server.stop();
  expectAllFail("connection to server");
  EXPECT_THAT(thrownBy([] { Host::ScheduledRunLock::tryAcquire(); }), HasSubstr("connection to server"));
  server.start();
  EXPECT_TRUE(listHolds("u@d", "l", "a@x"));
}

TEST_F(ServerStore, ReadOnlyStoreIsReadAndNotChanged) {
  Host::setStateUrl(server.url() + "&options=-cdefault_transaction_read_only%3Don");
  EXPECT_TRUE(listHolds("u@d", "l", "a@x"));
  for (const auto& change : {+[] { removeEntry("u@d", "l", "a@x"); }, +[] { static_cast<void>(Host::checkState()); }}) {
    EXPECT_THAT(thrownBy(change), HasSubstr("cannot execute DELETE in a read-only transaction"));
  }
}

TEST_F(ServerStore, DatabaseOfAnotherProgramIsLeftAlone) {
  server.empty();
  soci::session("postgresql", server.url()) << "CREATE TABLE theirs (a INTEGER)";
  Host::setStateUrl(server.url());
  expectAllFail("it is a database, but not one of this system");
}

TEST(PostgresqlUrl, IsTakenApart) {
  const std::string ours =
      "keepalives_idle=30&keepalives_interval=10&keepalives_count=3&tcp_user_timeout=60000&"
      "fallback_application_name=spamreport";
  const struct {
    std::string url, name, connectEnd;
    std::vector<std::string> secrets;
  } cases[] = {
      {"postgresql://", "", "?connect_timeout=10&" + ours, {}},
      {"postgresql://u@h:5/d", "h:5/d", "/d?connect_timeout=10&" + ours, {}},
      {"postgresql://u:a%40%2@h,[::1]:5/d?connect_timeout=3", "h,[::1]:5/d", "=3&" + ours, {"a%40%2", "a@%2"}},
      {"postgresql:///d?password=x%20&connect_timeout", "/d", "connect_timeout&" + ours, {"x%20", "x "}},
      {"postgresql://u:@h?&sslpassword=y", "h", "y&connect_timeout=10&" + ours, {"y", "y"}},
  };
  for (const auto& c : cases) {
    const Host::PostgresqlUrl parts = Host::parsePostgresqlUrl(c.url);
    EXPECT_EQ(parts.name, "postgresql://" + c.name);
    EXPECT_THAT(parts.connect, AllOf(::testing::StartsWith(c.url), ::testing::EndsWith(c.connectEnd)));
    EXPECT_EQ(parts.secrets, c.secrets) << c.url;
  }
  for (const char* url : {"postgresql://u:ge/he@h/d", "postgresql://u:ge?he@h/d", "postgresql://u:ge@he@h/d"}) {
    EXPECT_THAT(thrownBy([&] { Host::parsePostgresqlUrl(url); }),
                AllOf(HasSubstr("an \"@\" too many"), Not(HasSubstr("ge"))))
        << url;
  }
}

}  // namespace
}  // namespace Velmar
