// What a quarantine scan costs beside the least that any program must do for it. Both work on the same Maildir in turn,
// in one process; printed are medians of the runs and of the ratios of each pair.
//
// Warm: processor time. The floor lists the directory, opens each message of the window, reads its first 8 KiB and
// finds the end of the header; with nothing in the window, it only lists the directory. Cold: time on the clock, with
// the page cache and the file system's caches dropped before each scan, which takes root and slows down all else on the
// machine. The floor reads one message after the other.
//
// usage: bench_scan [MESSAGES...]     default 1000 10000 100000
//        bench_scan list SECONDS      lists the newest SECONDS of the host in VELMAR_ROOT; for compare_scan.py

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench_common.h"
#include "velmar/spamreport.h"

namespace {

namespace fs = std::filesystem;
using Bench::kNow;
using Bench::median;
using Clock = double (*)(const std::function<void()>&);

constexpr char kMailbox[] = "/home/example.org/bench~example.org/quarantine";
constexpr char kDropCaches[] = "/proc/sys/vm/drop_caches";
constexpr int kCold = 10'000;  // messages

/// Returns the number of entries of a directory.
std::size_t listOnly(const fs::path& cur) {
  DIR* directory = opendir(cur.c_str());
  if (!directory) return 0;
  std::size_t entries = 0;
  while (readdir(directory)) ++entries;
  closedir(directory);
  return entries;
}

/// Returns the number of messages of the window whose header ended within what was read.
std::size_t floorScan(const fs::path& cur, long from, long until) {
  DIR* directory = opendir(cur.c_str());
  if (!directory) return 0;
  const int at = dirfd(directory);
  std::size_t found = 0;
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

std::size_t scan(long period) {
  Velmar::CachedMailbox mailbox(kMailbox);
  mailbox.search(period, kNow);
  return mailbox.getMessages().size();
}

long peakMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024;
}

/// One line: `runs` pairs of floor and scan over the newest `listed` of `count` messages, `before` ahead of each.
void compare(const fs::path& cur, int count, long listed, int runs, Clock clock, const std::function<void()>& before) {
  std::vector<double> floors, scans, ratios;
  std::size_t wanted = 0;
  std::size_t got = 0;
  for (int run = 0; run < runs; ++run) {
    before();
    floors.push_back(clock([&] { wanted = listed == 0 ? listOnly(cur) : floorScan(cur, kNow - listed, kNow); }));
    before();
    scans.push_back(clock([&] { got = scan(listed); }));
    ratios.push_back(scans.back() / floors.back());
  }
  if (listed != 0 && got != wanted) std::printf("MISMATCH: floor %zu, scan %zu\n", wanted, got);
  std::printf("%9d %8ld %12.3f %12.3f %8.2f %8ld\n", count, listed, median(floors) * 1e3, median(scans) * 1e3,
              median(ratios), peakMegabytes());
}

void dropCaches() {
  sync();
  std::ofstream(kDropCaches) << "3\n";
}

void compareAll(int count) {
  const Bench::Root root;
  const fs::path quarantine = root.path().string() + kMailbox;
  Bench::makeMaildir(quarantine, count);
  const fs::path cur = quarantine / "cur";
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // a folder that changed just now is listed twice
  for (const int part : {0, 1000, 100, 10, 1}) {
    compare(cur, count, part ? count / part : 0, count < 100'000 ? 21 : 7, Bench::processorSeconds, [] {});
  }
  if (count != kCold || access(kDropCaches, W_OK) != 0) return;
  std::puts("cold, time on the clock:");
  for (const int part : {10, 1}) compare(cur, count, count / part, 7, Bench::seconds, dropCaches);
}

void list(long period) {
  Velmar::CachedMailbox mailbox(kMailbox);
  mailbox.search(period, kNow);
  for (const Velmar::CachedMessage& message : mailbox.getMessages()) {
    std::printf("%lld %s  %s\n", static_cast<long long>(message.date), message.from.c_str(), message.subject.c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "list") == 0) {
    list(std::atol(argv[2]));
    return 0;
  }
  std::printf("%9s %8s %12s %12s %8s %8s\n", "messages", "window", "floor ms", "scan ms", "ratio", "peak MB");
  std::vector<int> counts;
  for (int i = 1; i < argc; ++i) counts.push_back(std::atoi(argv[i]));
  if (counts.empty()) counts = {1000, 10'000, 100'000};
  for (const int count : counts) compareAll(count);
  return 0;
}
