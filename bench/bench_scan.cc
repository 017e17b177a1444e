// What a quarantine scan costs beside the least that any program must do for it.
//
// The floor lists the directory, opens each message of the window, reads its first 8 KiB and finds the end of the
// header. Both work on the same Maildir, in turn, in one process; medians of the runs and their ratio are printed.

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/bench_common.h"
#include "velmar/spamreport.h"

namespace {

namespace fs = std::filesystem;
using Bench::kNow;
using Bench::median;
using Bench::seconds;

constexpr int kRuns = 7;
constexpr char kMailbox[] = "/home/example.org/bench~example.org/quarantine";

/// Returns the number of messages of the window whose header ended within what was read.
int floorScan(const fs::path& cur, long from, long until) {
  DIR* directory = opendir(cur.c_str());
  if (!directory) return 0;
  const int at = dirfd(directory);
  int found = 0;
  char block[8192];
  while (const dirent* entry = readdir(directory)) {
    if (entry->d_name[0] == '.') continue;
    const long time = std::strtol(entry->d_name, nullptr, 10);
    if (time < from || time >= until) continue;
    const int fd = openat(at, entry->d_name, O_RDONLY | O_CLOEXEC);
    if (fd < 0) continue;
    const ssize_t size = pread(fd, block, sizeof block, 0);
    close(fd);
    if (size > 0 && memmem(block, static_cast<std::size_t>(size), "\n\n", 2)) ++found;
  }
  closedir(directory);
  return found;
}

void compare(const fs::path& cur, int count, int percentOfTen) {
  const long period = static_cast<long>(count) * percentOfTen / 1000;
  std::vector<double> floorTimes;
  std::vector<double> scanTimes;
  std::size_t listed = 0;
  int floorFound = 0;
  for (int run = 0; run < kRuns; ++run) {
    floorTimes.push_back(seconds([&] { floorFound = floorScan(cur, kNow - period, kNow); }));
    Velmar::CachedMailbox mailbox(kMailbox);
    scanTimes.push_back(seconds([&] { mailbox.search(period, kNow); }));
    listed = mailbox.getMessages().size();
  }
  if (listed != static_cast<std::size_t>(floorFound)) std::printf("MISMATCH: floor %d, scan %zu\n", floorFound, listed);
  std::printf("%9d %8.1f %% %8zu %12.3f %12.3f %8.2f\n", count, percentOfTen / 10.0, listed, median(floorTimes) * 1e3,
              median(scanTimes) * 1e3, median(scanTimes) / median(floorTimes));
}

}  // namespace

int main() {
  std::printf("%9s %10s %8s %12s %12s %8s\n", "messages", "window", "listed", "floor ms", "scan ms", "ratio");
  for (const int count : {1000, 10000}) {
    const Bench::Root root;
    const fs::path quarantine = root.path().string() + kMailbox;
    Bench::makeMaildir(quarantine, count);
    for (const int percentOfTen : {1000, 100, 10, 1}) compare(quarantine / "cur", count, percentOfTen);
  }
  return 0;
}
