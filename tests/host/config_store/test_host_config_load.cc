// Loading the process's configuration: what is wrong with the file is told, a failed load is tried again, and what
// was loaded stays. One process, in this order.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "host/common/host_config.h"
#include "tests/host/config_store/temporary_root.h"

namespace Velmar::Host {
namespace {

constexpr std::string_view kGood =
    "[global]\nhost_name = \"mail.example.org\"\n"
    "[antispam]\nrelease_account = \"release\"\ndelete_account = \"delete\"\n";

std::string loadFault() try {
  hostConfig();
  return "";
} catch (const Exception& exception) {
  return exception.text();
}

// What eight threads get that ask at once: the configuration, or null for an Exception.
std::multiset<const HostConfig*> loadedByThreads() {
  constexpr int kThreads = 8;
  std::vector<const HostConfig*> results(kThreads, nullptr);
  std::atomic<int> waiting{kThreads};
  std::vector<std::thread> threads;
  for (const HostConfig*& result : results)
    threads.emplace_back([&result, &waiting] {
      --waiting;
      while (waiting != 0) std::this_thread::yield();
      try {
        result = &hostConfig();
      } catch (const Exception&) {
      }
    });
  for (std::thread& thread : threads) thread.join();
  return {results.begin(), results.end()};
}

TEST(HostConfigLoad, FailsUntilTheFileIsGoodAndThenKeepsIt) {
  const TemporaryRoot root;
  const std::string path = root.configFile();
  EXPECT_EQ(hostConfigPath(), path);

  EXPECT_EQ(loadFault(), path + ": cannot be opened: No such file or directory");
  std::filesystem::create_directory(path);
  EXPECT_EQ(loadFault(), path + ": is no regular file");
  std::filesystem::remove(path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(loadFault(), path + ": is no regular file");
  std::filesystem::remove(path);
  root.configure(kGood);
  std::filesystem::resize_file(path, std::uintmax_t{1} << 40);
  EXPECT_EQ(loadFault(), path + ": has 1099511627776 bytes, at most 8388608 fit");
  root.configure("[global]\nhost_name = 5\n");
  EXPECT_EQ(loadFault(), path + ":2: global.host_name: 5: must be a text in quotes");
  EXPECT_EQ(loadedByThreads().count(nullptr), 8U);

  root.configure(kGood);
  const std::multiset<const HostConfig*> loaded = loadedByThreads();
  EXPECT_EQ(loaded.count(&hostConfig()), 8U);

  root.configure("nonsense");
  EXPECT_EQ(loadedByThreads(), loaded);
  EXPECT_STREQ(hostConfig().global.hostName, "mail.example.org");
}

}  // namespace
}  // namespace Velmar::Host
