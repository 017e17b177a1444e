// What a run over many mailboxes costs beside the I/O that it cannot avoid, and beside Python (email, Jinja2).
//
// Every measurement is a process of its own over the same host: the product makes the exported call once a mailbox; the
// floor lists each quarantine, opens the messages of the window, reads their first 8 KiB and writes a file of a mail's
// size; the other is `reference.py run`. They take turns, in processor time where nothing waits; medians are printed.
// Syncing is left out at first: fsync() is this program's own. Then what it adds, with several jobs; and the command
// for one mailbox from its start to its end.

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "bench/bench_common.h"
#include "host/host.h"
#include "velmar/spamreport.h"

namespace {

bool syncing = false;

}  // namespace

/// In place of the C library's, for the libraries too.
extern "C" __attribute__((visibility("default"))) int fsync(int fd) {
  return syncing ? static_cast<int>(syscall(SYS_fsync, fd)) : 0;
}

namespace {

namespace fs = std::filesystem;

constexpr int kWindow = 86400;  // seconds

struct Shape {
  int mailboxes;
  int held;      ///< in each of them
  int inWindow;  ///< of these
  int runs;
};

std::string userName(int number) { return "user" + std::to_string(number); }

std::string quarantineOf(const fs::path& root, int number) {
  return root.string() + "/home/example.org/" + userName(number) + "~example.org/quarantine";
}

void makeHost(const fs::path& root, const Shape& shape) {
  Bench::setUpHost(root);
  const int step = kWindow / std::max(shape.inWindow, 1);
  const long newest = shape.inWindow > 0 ? Bench::kNow - 1 : Bench::kNow - 1 - kWindow;
  for (int i = 0; i < shape.mailboxes; ++i) Bench::makeMaildir(quarantineOf(root, i), shape.held, newest, step);
}

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::_Exit(1);
}

/// The old one is put aside: file systems take their time to use what was just deleted.
void freshSpool(const fs::path& root) {
  static int used = 0;
  if (fs::exists(root / "var/spool/velmar")) fs::rename(root / "var/spool/velmar", root / std::to_string(used++));
  for (const char* place : {"tmp", "new", "failed"}) fs::create_directories(root / "var/spool/velmar" / place);
}

/// What one process needed.
struct Cost {
  double wall;
  double processor;
  double peakMegabytes;
};

/// Runs `work` in a process of its own; the time is that of the work alone.
Cost inChild(const std::function<void()>& work) {
  int ends[2];
  if (pipe(ends) != 0) fail("pipe");
  const pid_t child = fork();
  if (child == 0) {
    double processor = 0;
    const double wall = Bench::seconds([&] { processor = Bench::processorSeconds(work); });
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const Cost cost{wall, processor, static_cast<double>(usage.ru_maxrss) / 1024};
    if (write(ends[1], &cost, sizeof cost) != sizeof cost) fail("write");
    std::_Exit(0);
  }
  close(ends[1]);
  Cost cost{};
  if (read(ends[0], &cost, sizeof cost) != sizeof cost) fail("a measurement");
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return cost;
}

void onThreads(int jobs, int count, const std::function<void(int)>& work) {
  std::atomic<int> next{0};
  const auto share = [&] {
    for (int i = next++; i < count; i = next++) work(i);
  };
  std::vector<std::jthread> threads;
  for (int i = 1; i < jobs; ++i) threads.emplace_back(share);
  share();
}

void report(int number) {
  const std::string address = userName(number) + "@example.org";
  if (vlm_spamreport_report_byrcpt("example.org", address.c_str(), kWindow, Bench::kNow) != 0) fail("report");
}

void readWindow(const std::string& directory) {
  std::array<char, 8192> block;
  DIR* const listing = opendir(directory.c_str());
  if (!listing) fail(directory.c_str());
  while (const dirent* entry = readdir(listing)) {
    const long time = std::strtol(entry->d_name, nullptr, 10);
    if (time < Bench::kNow - kWindow || time >= Bench::kNow) continue;
    const int fd = openat(dirfd(listing), entry->d_name, O_RDONLY | O_CLOEXEC);
    if (pread(fd, block.data(), block.size(), 0) < 0) fail(entry->d_name);
    close(fd);
  }
  closedir(listing);
}

void writeMail(const fs::path& root, int number, const std::string& mail) {
  const std::string spool = root.string() + "/var/spool/velmar/new";
  const int fd = open((spool + "/" + std::to_string(number)).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
  if (write(fd, mail.data(), mail.size()) < 0 || fsync(fd) != 0) fail("mail");
  close(fd);
  const int directory = open(spool.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fsync(directory) != 0) fail("spool");
  close(directory);
}

void floorReport(const fs::path& root, int number, const std::string& mail) {
  const std::string quarantine = quarantineOf(root, number);
  for (const char* part : {"/new", "/cur"}) readWindow(quarantine + part);
  if (!mail.empty()) writeMail(root, number, mail);
}

Cost productRun(const fs::path& root, int mailboxes, int jobs) {
  freshSpool(root);
  return inChild([&] { onThreads(jobs, mailboxes, report); });
}

Cost floorRun(const fs::path& root, int mailboxes, int jobs, std::size_t mailSize) {
  freshSpool(root);
  const std::string mail(mailSize, 'x');
  return inChild([&] { onThreads(jobs, mailboxes, [&](int i) { floorReport(root, i, mail); }); });
}

/// Processor seconds; 0 where Python or Jinja2 is missing.
double pythonRun(const fs::path& root) {
  freshSpool(root);
  const std::string command = "VELMAR_SHARE='" + Velmar::Host::shareDirectory() +
                              "' /usr/bin/python3 " BENCH_SOURCE "/reference.py run " + (root / "home").string() + " " +
                              (root / "var/spool/velmar/new").string() + " " + std::to_string(Bench::kNow - kWindow) +
                              " " + std::to_string(Bench::kNow);
  FILE* const output = popen(command.c_str(), "r");
  double time = 0;
  if (output && std::fscanf(output, "%lf", &time) != 1) time = 0;
  if (output) pclose(output);
  return time;
}

std::size_t mailSize(const fs::path& root) {
  std::size_t size = 0;
  for (const auto& entry : fs::directory_iterator(root / "var/spool/velmar/new")) size = entry.file_size();
  return size;
}

void compareUnsynced(const Shape& shape) {
  const Bench::Root root("/dev/shm");
  makeHost(root.path(), shape);
  productRun(root.path(), std::min(shape.mailboxes, 100), 1);  // warms caches, makes the state store
  const std::size_t size = mailSize(root.path());
  std::vector<double> floorTimes;
  std::vector<double> times;
  std::vector<double> python;
  double peak = 0;
  for (int run = 0; run < shape.runs; ++run) {
    floorTimes.push_back(floorRun(root.path(), shape.mailboxes, 1, size).processor);
    const Cost cost = productRun(root.path(), shape.mailboxes, 1);
    times.push_back(cost.processor);
    peak = cost.peakMegabytes;
    python.push_back(pythonRun(root.path()));
  }
  const double floor = Bench::median(floorTimes);
  const double time = Bench::median(times);
  std::printf("%9d %6d %7d %9.3f %9.3f %9.3f %8.2f %8.1f %12.1f %8.1f\n", shape.mailboxes, shape.held, shape.inWindow,
              floor, time, Bench::median(python), time / floor, Bench::median(python) / time,
              time / shape.mailboxes * 1e6, peak);
}

/// Milliseconds of wall time a report.
double productWall(const fs::path& root, int mailboxes, int jobs, bool synced) {
  syncing = synced;
  const double seconds = productRun(root, mailboxes, jobs).wall;
  syncing = false;
  return seconds / mailboxes * 1e3;
}

double floorWall(const fs::path& root, int mailboxes, int jobs, std::size_t size, bool synced) {
  syncing = synced;
  const double seconds = floorRun(root, mailboxes, jobs, size).wall;
  syncing = false;
  return seconds / mailboxes * 1e3;
}

/// What syncing adds to the wall time of a report, and to that of the floor.
void compareSynced(int mailboxes) {
  const Shape shape{mailboxes, 20, 10, 7};
  const Bench::Root root;
  makeHost(root.path(), shape);
  std::printf("\n%5s %13s %13s %13s %13s\n", "jobs", "unsynced ms", "synced ms", "adds ms", "floor adds ms");
  for (const int jobs : {1, 2, 4, 8, 16}) {
    std::vector<double> unsynced;
    std::vector<double> synced;
    std::vector<double> adds;
    std::vector<double> floorAdds;
    for (int run = 0; run <= shape.runs; ++run) {
      const double free = productWall(root.path(), mailboxes, jobs, false);
      const std::size_t size = mailSize(root.path());
      const double durable = productWall(root.path(), mailboxes, jobs, true);
      const double floorFree = floorWall(root.path(), mailboxes, jobs, size, false);
      const double floorDurable = floorWall(root.path(), mailboxes, jobs, size, true);
      if (run == 0) continue;  // warms caches
      unsynced.push_back(free);
      synced.push_back(durable);
      adds.push_back(durable - free);
      floorAdds.push_back(floorDurable - floorFree);
    }
    std::printf("%5d %13.3f %13.3f %13.3f %13.3f\n", jobs, Bench::median(unsynced), Bench::median(synced),
                Bench::median(adds), Bench::median(floorAdds));
  }
}

/// How much faster two threads count than one: what this machine gives at this moment.
double controlGain() {
  const auto count = [](int) {
    volatile long i = 0;
    while (i < 20'000'000) i = i + 1;
  };
  return Bench::seconds([&] { onThreads(1, 8, count); }) / Bench::seconds([&] { onThreads(2, 8, count); });
}

void compareThreads(int mailboxes) {
  const Bench::Root root("/dev/shm");
  makeHost(root.path(), {mailboxes, 20, 10, 1});
  std::vector<double> gains;
  std::vector<double> controls;
  for (int run = 0; run < 9; ++run) {
    controls.push_back(controlGain());
    const double alone = productRun(root.path(), mailboxes, 1).wall;
    gains.push_back(alone / productRun(root.path(), mailboxes, 2).wall);
  }
  std::printf("\n2 threads, unsynced: %.2f times as fast as 1; a counting loop: %.2f times\n", Bench::median(gains),
              Bench::median(controls));
}

/// Processor milliseconds of a whole process.
double spawned(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t quiet;
  posix_spawn_file_actions_init(&quiet);
  posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  int status = 0;
  rusage usage{};
  if (posix_spawn(&child, arguments[0], &quiet, nullptr, arguments.data(), environ) != 0) fail(arguments[0]);
  if (wait4(child, &status, 0, &usage) != child || status != 0) fail(arguments[0]);
  posix_spawn_file_actions_destroy(&quiet);
  const auto milliseconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
  };
  return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

void timeCommand() {
  const Bench::Root root;
  makeHost(root.path(), {1, 20, 10, 1});
  std::vector<double> report;
  std::vector<double> version;
  for (int run = 0; run < 31; ++run) {
    report.push_back(spawned({SPAMREPORT, "run", "--domain", "example.org", "--recipients", "user0@example.org",
                              "--period", std::to_string(kWindow), "--until", std::to_string(Bench::kNow)}));
    version.push_back(spawned({SPAMREPORT, "--version"}));
  }
  std::printf("\nthe command for one mailbox: %.1f ms of processor time; doing nothing: %.1f ms\n",
              Bench::median(report), Bench::median(version));
}

}  // namespace

int main() {
  Bench::keepFreedMemory();
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  std::printf("%9s %6s %7s %9s %9s %9s %8s %8s %12s %8s\n", "mailboxes", "held", "window", "floor s", "run s",
              "python s", "x floor", "x python", "us a report", "peak MB");
  for (const Shape& shape : {Shape{1000, 20, 10, 5}, {10000, 20, 10, 1}, {100, 200, 100, 5}, {1000, 20, 0, 5}}) {
    compareUnsynced(shape);
  }
  compareThreads(500);
  compareSynced(200);
  timeCommand();
  return 0;
}
