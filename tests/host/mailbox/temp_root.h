#pragma once

// A root directory of its own for one test, with files and directories made in one call.

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace Velmar::Testing {

/// Sets VELMAR_ROOT for as long as it lives; everything in it is removed at the end.
class TempRoot {
 public:
  explicit TempRoot(const std::string& name = "velmar-test-") {
    std::string pattern = (std::filesystem::temp_directory_path() / (name + "XXXXXX")).string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
    path_ = pattern;
    ::chmod(path_.c_str(), 0755);
    ::setenv("VELMAR_ROOT", path_.c_str(), 1);
  }
  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;
  ~TempRoot() {
    ::unsetenv("VELMAR_ROOT");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  /// A path of the system, below this root.
  std::string operator/(const std::string& systemPath) const { return path_ + "/" + systemPath; }

  std::string makeDirectory(const std::string& systemPath) const {
    std::filesystem::create_directories(*this / systemPath);
    return *this / systemPath;
  }

  void write(const std::string& systemPath, const std::string& content) const {
    std::ofstream file(*this / systemPath, std::ios::binary);
    file << content;
    if (!file.flush()) throw std::runtime_error("cannot write " + systemPath);
  }

 private:
  std::string path_;
};

/// Lets a test that runs as root meet denied permissions: the process acts as another user as long as this lives.
class AsOrdinaryUser {
 public:
  AsOrdinaryUser() : wasRoot_(::geteuid() == 0) {
    if (wasRoot_ && ::seteuid(65534) != 0) throw std::runtime_error("cannot act as an ordinary user");
  }
  AsOrdinaryUser(const AsOrdinaryUser&) = delete;
  AsOrdinaryUser& operator=(const AsOrdinaryUser&) = delete;
  ~AsOrdinaryUser() {
    if (wasRoot_ && ::seteuid(0) != 0) ::abort();
  }

 private:
  bool wasRoot_;
};

}  // namespace Velmar::Testing
