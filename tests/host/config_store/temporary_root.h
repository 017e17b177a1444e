#pragma once

// A root directory of its own for one test process, with a configuration file.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace Velmar::Host {

class TemporaryRoot {
 public:
  TemporaryRoot() {
    std::string path = testing::TempDir() + "velmar-config-XXXXXX";
    if (!::mkdtemp(path.data())) throw std::filesystem::filesystem_error("mkdtemp", path, {});
    path_ = path;
    std::filesystem::create_directories(path_ / "etc/velmar");
    ::setenv("VELMAR_ROOT", path.c_str(), 1);
  }
  TemporaryRoot(const TemporaryRoot&) = delete;
  TemporaryRoot& operator=(const TemporaryRoot&) = delete;
  ~TemporaryRoot() { std::filesystem::remove_all(path_); }

  std::filesystem::path configFile() const { return path_ / "etc/velmar/host.toml"; }

  void configure(std::string_view text) const { std::ofstream(configFile(), std::ios::binary) << text; }

 private:
  std::filesystem::path path_;
};

}  // namespace Velmar::Host
