// From held messages to finished mails, beside what an administrator would write instead in Python.
//
// Python's rows are ready made; the product makes its own by a scan of the quarantine, which is timed for itself after
// each report and taken off for the ratio. Both make the same page, mails of nearly the same size, and put them
// nowhere. Processor time, each side in one process that is warm; medians of the runs. Then how the product's time and
// memory grow with the rows.

#include <sys/resource.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/bench_common.h"
#include "host/host.h"
#include "platform/users_lists.h"
#include "velmar/spamreport.h"

namespace {

constexpr std::array kCounts = {10, 100, 1000, 10000};
constexpr int kQuarantine = 10;           // the folder
constexpr std::size_t kRowsInAll = 4000;  // enough runs for a steady median, few for large reports

std::string referenceCommand() {
  std::string command =
      "VELMAR_SHARE='" + Velmar::Host::shareDirectory() + "' /usr/bin/python3 " BENCH_SOURCE "/reference.py rows";
  for (const int count : kCounts) command += " " + std::to_string(count);
  return command;
}

/// Milliseconds for each count.
std::vector<double> referenceTimes() {
  std::vector<double> times;
  FILE* const output = popen(referenceCommand().c_str(), "r");
  double time = 0;
  while (output && std::fscanf(output, "%lf", &time) == 1) times.push_back(time);
  if (output) pclose(output);
  times.resize(kCounts.size());  // zeros where Python or Jinja2 is missing
  return times;
}

/// Milliseconds, the median of the runs.
struct ProductTimes {
  double report;
  double scan;
};

ProductTimes productTimes(const std::filesystem::path& root, int count) {
  Bench::setUpHost(root);
  Bench::makeMaildir(root / "home/example.org/bench~example.org/quarantine", count);
  std::vector<double> reports;
  std::vector<double> scans;
  std::string address = Bench::kAddress;
  Velmar::CachedMailbox mailbox(Velmar::VXMailUserId(address).fname(kQuarantine));
  for (std::size_t run = 0; run < std::max<std::size_t>(4, kRowsInAll / static_cast<std::size_t>(count)); ++run) {
    reports.push_back(Bench::processorSeconds([&] {
      if (vlm_spamreport_report_byrcpt("example.org", address.data(), count + 1, Bench::kNow) != 0) std::exit(1);
    }));
    scans.push_back(Bench::processorSeconds([&] { mailbox.search(count + 1, Bench::kNow); }));
  }
  return {Bench::median(reports) * 1e3, Bench::median(scans) * 1e3};
}

long peakMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024;
}

}  // namespace

int main() {
  Bench::keepFreedMemory();
  const Bench::Root root;
  std::size_t bytes = 0;
  Velmar::Host::setMailSink([&bytes](const Velmar::Host::QueuedMail& mail) { bytes = mail.content.size(); });
  const std::vector<double> reference = referenceTimes();
  std::printf("%8s %12s %12s %12s %12s %8s %14s %10s\n", "rows", "mail bytes", "python ms", "report ms", "of it scan",
              "ratio", "us a row", "peak MB");
  for (std::size_t i = 0; i < kCounts.size(); ++i) {
    const ProductTimes time = productTimes(root.path(), kCounts[i]);
    std::printf("%8d %12zu %12.3f %12.3f %12.3f %8.1f %14.2f %10ld\n", kCounts[i], bytes, reference[i], time.report,
                time.scan, reference[i] / (time.report - time.scan), time.report * 1e3 / kCounts[i], peakMegabytes());
  }
  return 0;
}
