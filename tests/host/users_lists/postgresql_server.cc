#include "tests/host/users_lists/postgresql_server.h"

#include <pwd.h>
#include <signal.h>
#include <soci/soci.h>
#include <sys/wait.h>

#include <vector>

namespace Velmar::Testing {
namespace {

constexpr char kPackageUser[] = "postgres";

// Starts a program of the server; it ends when this process does, whatever happens.
pid_t spawn(std::vector<std::string> command) {
  if (::geteuid() == 0) {
    command.insert(command.begin(), {"setpriv", std::string("--reuid=") + kPackageUser,
                                     std::string("--regid=") + kPackageUser, "--clear-groups", "--pdeathsig=INT"});
  }
  const pid_t process = ::fork();
  if (process != 0) return process;
  std::vector<char*> arguments;
  for (std::string& part : command) arguments.push_back(part.data());
  arguments.push_back(nullptr);
  ::execvp(arguments[0], arguments.data());
  ::_exit(127);
}

}  // namespace

PostgresqlServer& PostgresqlServer::instance() {
  static PostgresqlServer server;
  return server;
}

PostgresqlServer::PostgresqlServer() {
  std::string pattern = (std::filesystem::temp_directory_path() / "velmar-pg-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
  directory_ = pattern;
  std::ofstream(directory_ + "/password") << "gehe%im/7\n";
  ::chmod((directory_ + "/password").c_str(), 0644);
  if (const passwd* user = ::getpwnam(kPackageUser); user && ::geteuid() == 0) {
    if (::chown(directory_.c_str(), user->pw_uid, user->pw_gid) != 0) throw std::runtime_error("cannot give it away");
  }
  const std::string silent = directory_ + "/initdb.log";
  const pid_t made =
      spawn({"sh", "-c", "exec \"$@\" > " + silent + " 2>&1", "sh", VELMAR_POSTGRESQL_BIN "/initdb", "-N", "-A",
             "scram-sha-256", "-U", "velmar", "--pwfile", directory_ + "/password", "-D", directory_ + "/data"});
  int status = -1;
  if (::waitpid(made, &status, 0) != made || status != 0) throw std::runtime_error("initdb failed, see " + silent);
  start();
}

PostgresqlServer::~PostgresqlServer() {
  stop();
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

std::string PostgresqlServer::url(const std::string& password) const {
  return "postgresql://velmar:" + password + "@/postgres?host=" + directory_ +
         "&application_name=" + std::to_string(store_);
}

void PostgresqlServer::start() {
  process_ =
      spawn({"sh", "-c", "exec \"$@\" > " + directory_ + "/server.log 2>&1", "sh", VELMAR_POSTGRESQL_BIN "/postgres",
             "-D", directory_ + "/data", "-k", directory_, "-c", "listen_addresses=", "-c", "fsync=off"});
  for (int i = 0; i < 1000; ++i) {
    try {
      soci::session("postgresql", url());
      return;
    } catch (const soci::soci_error&) {
      ::usleep(20000);
    }
  }
  throw std::runtime_error("PostgreSQL does not answer, see " + directory_ + "/server.log");
}

void PostgresqlServer::stop() {
  if (process_ <= 0) return;
  ::kill(process_, SIGINT);
  ::waitpid(process_, nullptr, 0);
  process_ = 0;
}

void PostgresqlServer::empty() {
  ++store_;
  soci::session("postgresql", url())
      << "SET client_min_messages = warning; DROP SCHEMA public CASCADE; CREATE SCHEMA public";
}

}  // namespace Velmar::Testing
