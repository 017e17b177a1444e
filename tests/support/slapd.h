#pragma once

// A directory server for one test: slapd.py beside this file, which ends when this does.

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <string>

namespace Velmar::Testing {

/// Serves an LDIF file; its files, ca.pem and other.pem among them, are in `directory`, which it makes.
class Slapd {
 public:
  Slapd(const std::string& directory, const std::string& ldif) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("no socket pair");
    process_ = ::fork();
    if (process_ == 0) {
      ::dup2(ends[1], 0);
      ::dup2(ends[1], 1);
      ::execlp("python3", "python3", "-B", VELMAR_TEST_SUPPORT "/slapd.py", directory.c_str(), ldif.c_str(), nullptr);
      ::_exit(127);
    }
    ::close(ends[1]);
    control_ = ends[0];
    std::istringstream(answer()) >> port_ >> tlsPort_;
  }
  Slapd(const Slapd&) = delete;
  Slapd& operator=(const Slapd&) = delete;
  ~Slapd() {
    ::close(control_);
    ::waitpid(process_, nullptr, 0);
  }

  /// Each returns when it is done.
  void stop() { obey("stop\n"); }
  void start() { obey("start\n"); }

  std::string url() const { return "ldap://127.0.0.1:" + port_; }
  std::string tlsUrl() const { return "ldaps://127.0.0.1:" + tlsPort_; }

 private:
  void obey(const std::string& command) {
    if (::write(control_, command.data(), command.size()) < 0) throw std::runtime_error("slapd.py is gone");
    answer();
  }

  std::string answer() {
    std::string line;
    for (char c = 0; ::read(control_, &c, 1) == 1 && c != '\n';) line += c;
    if (line.empty()) throw std::runtime_error("slapd.py does not answer");
    return line;
  }

  pid_t process_ = -1;
  int control_ = -1;
  std::string port_;
  std::string tlsPort_;
};

}  // namespace Velmar::Testing
