#pragma once

// The stores that every operation must work on: a file, and a PostgreSQL server of the tests' own.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include "host/users_lists/state_store.h"
#include "tests/support/temp_root.h"

namespace Velmar::Testing {

constexpr char kSqliteUrl[] = "sqlite:///var/lib/velmar/state.db";

/// A server in a directory of its own, reached through a socket in it. It runs from its first use to the end of the
/// test program, however that ends. It refuses to run as root: then it runs as the user of its package.
class PostgresqlServer {
 public:
  static PostgresqlServer& instance() {
    static PostgresqlServer server;
    return server;
  }

  /// Its password holds characters that are coded in a URL.
  std::string url() const {
    return "postgresql://velmar:gehe%25im%2F7@/postgres?host=" + directory_ +
           "&application_name=" + std::to_string(store_);
  }

  void start() {
    process_ = spawn("postgres -c listen_addresses= -c fsync=off -k " + directory_);
    for (int i = 0; i < 1000; ++i, ::usleep(20000)) {
      try {
        soci::session("postgresql", url());
        return;
      } catch (const soci::soci_error&) {
        if (i == 999) throw;
      }
    }
  }

  void stop() {
    if (process_ > 0) ::kill(process_, SIGINT);
    if (process_ > 0) ::waitpid(process_, nullptr, 0);
    process_ = 0;
  }

  /// Takes away everything in the database. Its URL is another one afterwards, for those who remember the store.
  void empty() {
    ++store_;
    soci::session("postgresql", url()) << "SET client_min_messages = warning; DROP SCHEMA public CASCADE; "
                                          "CREATE SCHEMA public";
  }

 private:
  PostgresqlServer() {
    std::ofstream(directory_ + "/password") << "gehe%im/7\n";
    int status = -1;
    ::waitpid(spawn("initdb -N -A scram-sha-256 -U velmar --pwfile=password"), &status, 0);
    if (status != 0) throw std::runtime_error("initdb failed");
    start();
  }

  ~PostgresqlServer() {
    stop();
    std::filesystem::remove_all(directory_);
  }

  // Runs a program of the server in its directory. It ends when this process does.
  pid_t spawn(const std::string& program) const {
    const std::string asUser = "setpriv --reuid=postgres --regid=postgres --clear-groups --pdeathsig=INT ";
    const std::string command = "cd " + directory_ + " && " + (::geteuid() == 0 ? "chown -R postgres . && " : "") +
                                "exec " + (::geteuid() == 0 ? asUser : "") + VELMAR_POSTGRESQL_BIN "/" + program +
                                " -D data >> log 2>&1";
    const pid_t process = ::fork();
    if (process == 0) ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    return process;
  }

  std::string directory_ = std::string(::mkdtemp(std::string("/tmp/velmar-pg-XXXXXX").data()));
  pid_t process_ = 0;
  int store_ = 0;
};

/// An empty store of the kind that the parameter names, below a root of its own.
class OnEachStore : public ::testing::TestWithParam<const char*> {
 protected:
  OnEachStore() { useEmptyStore(); }
  ~OnEachStore() override { Host::dropThreadState(); }

  void useEmptyStore() const {
    if (onServer) PostgresqlServer::instance().empty();
    Host::setStateUrl(onServer ? PostgresqlServer::instance().url() : kSqliteUrl);
  }

  const bool onServer = std::string(GetParam()) == "PostgreSQL";
  TempRoot root{"velmar test = "};
};

#define FOR_EACH_STORE(suite)                                                        \
  INSTANTIATE_TEST_SUITE_P(Stores, suite, ::testing::Values("SQLite", "PostgreSQL"), \
                           [](const auto& it) { return it.param; })

}  // namespace Velmar::Testing
