// What a whole report costs beside the I/O that it cannot avoid: opening and reading the held messages and writing the
// mail's bytes durably.
//
// The report is made by the exported call on a root of its own; the floor repeats its opens, reads, writes and syncs.
// Both run in turn in one process; medians of the runs and their ratio are printed.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/bench_common.h"
#include "velmar/spamreport.h"

namespace {

namespace fs = std::filesystem;

constexpr int kRuns = 7;

std::size_t newestMailSize(const fs::path& spool) {
  std::size_t size = 0;
  for (const auto& entry : fs::directory_iterator(spool)) size = static_cast<std::size_t>(entry.file_size());
  return size;
}

void syncAndClose(int fd) {
  fsync(fd);
  close(fd);
}

void floorRun(const fs::path& cur, const fs::path& out, std::size_t mailSize) {
  std::vector<char> block(8192);
  for (const auto& entry : fs::directory_iterator(cur)) {
    const int fd = open(entry.path().c_str(), O_RDONLY | O_CLOEXEC);
    if (pread(fd, block.data(), block.size(), 0) < 0) std::exit(1);
    close(fd);
  }
  const std::string mail(mailSize, 'x');
  const int fd = open((out / "floor").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (write(fd, mail.data(), mail.size()) < 0) std::exit(1);
  syncAndClose(fd);
  syncAndClose(open(out.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

void compare(const fs::path& root, int count) {
  Bench::setUpHost(root);
  Bench::makeMaildir(root / "home/example.org/bench~example.org/quarantine", count);
  const fs::path spool = root / "var/spool/velmar/new";
  std::vector<double> floorTimes;
  std::vector<double> reportTimes;
  for (int run = 0; run <= kRuns; ++run) {
    fs::remove_all(spool);
    fs::create_directories(spool);
    const double report = Bench::seconds([&] {
      if (vlm_spamreport_report_byrcpt("example.org", Bench::kAddress, count + 1, Bench::kNow) != 0) std::exit(1);
    });
    const std::size_t mailSize = newestMailSize(spool);
    const double floor =
        Bench::seconds([&] { floorRun(root / "home/example.org/bench~example.org/quarantine/cur", root, mailSize); });
    if (run == 0) {  // warms caches, loads configuration and template
      std::printf("%8d %12zu ", count, mailSize);
      continue;
    }
    reportTimes.push_back(report);
    floorTimes.push_back(floor);
  }
  std::printf("%12.3f %12.3f %8.2f\n", Bench::median(floorTimes) * 1e3, Bench::median(reportTimes) * 1e3,
              Bench::median(reportTimes) / Bench::median(floorTimes));
}

}  // namespace

int main() {
  const Bench::Root root;
  std::printf("%8s %12s %12s %12s %8s\n", "rows", "mail bytes", "floor ms", "report ms", "ratio");
  for (const int count : {10, 100, 1000}) compare(root.path(), count);
  return 0;
}
