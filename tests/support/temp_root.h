#pragma once

// A root directory of its own for one test, with files and directories made in one call.

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>

namespace Velmar::Testing {

/// Gives an environment variable another value for as long as it lives.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const std::string& value) : name_(name) {
    if (const char* before = ::getenv(name)) before_ = before;
    ::setenv(name, value.c_str(), 1);
  }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;
  ~ScopedVariable() {
    if (before_) {
      ::setenv(name_, before_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }

 private:
  const char* name_;
  std::optional<std::string> before_;
};

/// Sets VELMAR_ROOT for as long as it lives; everything in it is removed at the end.
class TempRoot {
 public:
  explicit TempRoot(const std::string& name = "velmar-test-") : path_(made(name)) {}
  ~TempRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  /// A path of the system, below this root.
  std::string operator/(const std::string& systemPath) const { return path_ + "/" + systemPath; }

  std::string makeDirectory(const std::string& systemPath) const {
    std::filesystem::create_directories(*this / systemPath);
    return *this / systemPath;
  }

  /// Makes a file and the directories above it.
  void write(const std::string& systemPath, const std::string& content) const {
    const std::filesystem::path path = *this / systemPath;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << content;
    if (!file.flush()) throw std::runtime_error("cannot write " + systemPath);
  }

  std::string read(const std::string& systemPath) const {
    std::ifstream file(*this / systemPath, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + systemPath);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

 private:
  static std::string made(const std::string& name) {
    std::string pattern = (std::filesystem::temp_directory_path() / (name + "XXXXXX")).string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
    ::chmod(pattern.c_str(), 0755);
    return pattern;
  }

  std::string path_;
  ScopedVariable variable_{"VELMAR_ROOT", path_};
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
