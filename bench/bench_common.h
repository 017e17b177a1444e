#pragma once

// What the benchmarks share: a clock, medians, and a Maildir to work on.

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace Bench {

inline constexpr long kNow = 1700000000;

inline constexpr char kAddress[] = "bench@example.org";

/// Both kinds of actions, nothing logged.
inline constexpr char kConfiguration[] =
    "[global]\nhost_name = \"mail.example.org\"\nlocal_domain = \"example.org\"\n"
    "[antispam]\nrelease_account = \"release\"\ndelete_account = \"delete\"\n"
    "[[domain]]\nname = \"example.org\"\n"
    "[[recipient_policy]]\naddress = \"*@example.org\"\nantispam_profile = 1\n"
    "[[antispam_profile]]\nnumber = 1\nquarantine_report = true\nemail_release = true\nweb_release = true\n"
    "[log]\nstderr = false\n";

/// A host without mailboxes.
inline void setUpHost(const std::filesystem::path& root) {
  std::filesystem::create_directories(root / "etc/velmar");
  std::ofstream(root / "etc/velmar/host.toml") << kConfiguration;
  std::filesystem::remove_all(root / "home");
}

/// As the command does at its start.
inline void keepFreedMemory() {
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, 128 << 20);
}

inline double seconds(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Processor time of this process: for work without waiting, whatever else the machine does.
inline double processorSeconds(const std::function<void()>& work) {
  const std::clock_t start = std::clock();
  work();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

inline double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

/// Messages `step` seconds apart of about 3 kB each, in cur/.
inline void makeMaildir(const std::filesystem::path& quarantine, int count, long newest = kNow - 1, int step = 1) {
  for (const char* part : {"new", "cur", "tmp"}) std::filesystem::create_directories(quarantine / part);
  const std::string filler(800, 'x');
  for (int i = 0; i < count; ++i) {
    std::ofstream out(quarantine / "cur" /
                      (std::to_string(newest - long{step} * i) + ".M" + std::to_string(i) + "P1.bench:2,S"));
    out << "Received: from a.example by b.example; " << filler << "\nFrom: Sender " << i << " <s" << i
        << "@example.com>\nTo: bench@example.org\nSubject: =?UTF-8?Q?Offer_number_" << i << "?=\nMessage-ID: <m" << i
        << "@example.com>\nDate: Tue, 14 Nov 2023 22:13:20 +0000\n\n"
        << filler << "\n"
        << filler << "\n";
  }
}

/// A temporary root, named in VELMAR_ROOT, removed with the object.
class Root {
 public:
  explicit Root(const std::string& place = "/tmp") {
    std::string directory = place + "/velmar-bench-XXXXXX";
    path_ = mkdtemp(directory.data());
    setenv("VELMAR_ROOT", path_.c_str(), 1);
  }
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;
  ~Root() { std::filesystem::remove_all(path_); }

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace Bench
