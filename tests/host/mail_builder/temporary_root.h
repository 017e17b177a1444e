#pragma once

// A root and a share directory of their own for one test.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace Velmar {

inline void writeFile(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Makes VELMAR_ROOT and VELMAR_SHARE two empty directories for the life of the test.
class TemporaryRoot : public ::testing::Test {
 protected:
  TemporaryRoot() {
    std::string name = ::testing::TempDir() + "velmar-mail-XXXXXX";
    if (!::mkdtemp(name.data())) throw std::runtime_error("no temporary directory");
    top_ = name;
    std::filesystem::create_directories(root());
    std::filesystem::create_directories(share());
    ::setenv("VELMAR_ROOT", root().c_str(), 1);
    const char* before = std::getenv("VELMAR_SHARE");
    shareBefore_ = before ? before : "";
    ::setenv("VELMAR_SHARE", share().c_str(), 1);
  }
  ~TemporaryRoot() override {
    ::setenv("VELMAR_SHARE", shareBefore_.c_str(), 1);
    ::unsetenv("VELMAR_ROOT");
    std::filesystem::remove_all(top_);
  }

  std::filesystem::path root() const { return top_ / "root"; }
  std::filesystem::path share() const { return top_ / "share"; }
  std::filesystem::path templates() const { return root() / "etc/velmar/templates"; }
  std::filesystem::path images() const { return root() / "migadmin/www/admin/images"; }
  std::filesystem::path spool() const { return root() / "var/spool/velmar"; }

 private:
  std::filesystem::path top_;
  std::string shareBefore_;
};

}  // namespace Velmar
