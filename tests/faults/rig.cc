// See rig.h. The process that reports compares what it did, and the disk, with a report without fault.

#include "tests/faults/rig.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <set>
#include <thread>

#include "host/host.h"
#include "velmar/spamreport.h"

namespace {

std::atomic<long long> skipped{0};  // nanoseconds
constexpr long long kSecond = 1'000'000'000;

}  // namespace

// A clock whose pauses take no time: whoever sleeps finds it later afterwards.
extern "C" {
int clock_gettime(clockid_t clock, timespec* now) noexcept {
  if (::syscall(SYS_clock_gettime, clock, now) != 0) return -1;
  if (clock != CLOCK_MONOTONIC) return 0;
  const long long nanoseconds = now->tv_nsec + skipped;
  now->tv_sec += nanoseconds / kSecond;
  now->tv_nsec = nanoseconds % kSecond;
  return 0;
}
int nanosleep(const timespec* length, timespec* /*rest*/) {
  skipped += length->tv_sec * kSecond + length->tv_nsec;
  return 0;
}
int usleep(useconds_t length) {
  skipped += length * 1000LL;
  return 0;
}
}

namespace Velmar::Testing {
namespace {

namespace fs = std::filesystem;

constexpr char kMailbox[] = "kim+lists@example.net";
constexpr char kHealthy[] = "primaryaddr kim@example.net,";

/// What the events of a report said. It allocates nothing, for that may be what fails.
struct Events {
  bool failure = false, warning = false, unknown = false;
  char text[2000] = "events: ";

  void add(const Host::Event& event) noexcept {
    unknown = true;
    for (const Host::EventInfo& info : Host::eventTable()) {
      if (info.code != event.code) continue;
      unknown = false;
      failure |= info.failure;
      warning |= info.warning;
    }
    append(event.name);
    for (const std::string& field : event.fields) append(field.c_str());
  }

 private:
  void append(const char* words) noexcept {
    for (const char* part : {words, "|"}) std::strncat(text, part, sizeof text - std::strlen(text) - 1);
  }
};

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// A file of the spool without what differs between two reports of the same: times, identifiers and signatures.
std::string comparable(const fs::path& path) {
  std::string text = contentOf(path);
  const auto cut = [&text](std::string_view from, const char* until) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos;) {
      at += from.size();
      text.erase(at, std::min(text.size(), text.find_first_of(until, at)) - at);
    }
  };
  for (std::size_t at; (at = text.find("=\r\n")) != std::string::npos;) text.erase(at, 3);
  for (const char* line : {"\nId: ", "\nQueued: ", "\nDate: ", "\nMessage-ID: "}) cut(line, "\r\n");
  for (const char* boundary : {"=_alternative.", "=_related."}) cut(boundary, "-\"\r");
  for (const char* image : {"img1.", "img2."}) cut(image, "@");
  cut("access=3D", "\" \r");
  return text;
}

/// All below a directory, sorted, each followed by a blank; files of the spool by their directory only.
std::string namesBelow(const fs::path& directory) {
  std::multiset<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    const fs::path path = entry.path().lexically_relative(directory);
    names.insert(path.parent_path().filename() == "new" ? path.parent_path() / "*" : path);
  }
  std::string text;
  for (const std::string& name : names) text += name + " ";
  return text;
}

std::string openFiles() {
  std::string text;
  for (int file = 3; file < 64; ++file) {
    std::error_code closed;
    const fs::path path = fs::read_symlink("/proc/self/fd/" + std::to_string(file), closed);
    // The log stays open as long as the process.
    if (!closed && path.extension() != ".log") text += path.string() + " ";
  }
  return text;
}

std::string lists() try {
  std::string text;
  for (const auto& [list, entry] : Host::listEntries(kMailbox)) text += list + " " + entry + ",";
  return text;
} catch (const Exception& e) {
  return e.text();
}

std::string resultOf(long until) try {
  return std::to_string(vlm_spamreport_report_byrcpt("example.net", kMailbox, 86400, until));
} catch (const std::bad_alloc&) {
  return "bad_alloc";
} catch (const Exception& e) {
  return "Exception " + e.text();
} catch (...) {
  return "another exception";
}

/// Whether a library ended the process for want of memory: the C library where a thread is to keep something, the
/// template library where it sets up its parser of HTML.
bool gaveUp(const std::string& errors) {
  return errors.find("failed to register TLS destructor") != std::string::npos ||
         errors.find("Check failed: parser_ != NULL") != std::string::npos;
}

/// What a call returns in a thread of its own, so that what the library keeps for a thread is given back at the end.
std::string inThread(const std::function<std::string()>& call) {
  std::string result;
  std::thread([&] { result = call(); }).join();
  return result;
}

}  // namespace

Rig::Rig() {
  directory_ = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm/velmar-faults-XXXXXX" : "/tmp/velmar-faults-XXXXXX";
  if (!::mkdtemp(directory_.data())) throw std::runtime_error("cannot make " + directory_);
  root_ = directory_ + "/host";
  ::setenv("VELMAR_ROOT", root_.c_str(), 1);
  ::setenv("TZ", "UTC0", 1);
  if (std::system((SPAMREPORT " demo " + root_ + " >/dev/null").c_str()) != 0) throw std::runtime_error("no demo");
  until_ = std::time(nullptr);
  // A message whose name tells no time.
  const fs::path folder = root_ + "/home/example.net/kim+lists~example.net/quarantine/cur";
  std::ofstream(folder / "nameless") << "From: a@b\nSubject: nameless\n\n";
  fs::last_write_time(folder / "nameless", fs::file_time_type::clock::now() - std::chrono::hours(1));
  fs::copy(root_ + "/var", directory_ + "/var", fs::copy_options::recursive);
  EXPECT_EQ(inProcess([&] { return inThread([&] { return resultOf(until_); }) == "0"; }), 0);
  for (const auto& entry : fs::directory_iterator(root_ + "/var/spool/velmar/new")) mail_ = comparable(entry);
  files_ = namesBelow(root_ + "/var");
}

Rig::~Rig() { fs::remove_all(directory_); }

/// Returns the status of the process: 0 when `work` says yes, 512 when it says no; 256 when it failed the test.
int Rig::inProcess(const std::function<bool()>& work) const {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    if (!std::freopen((directory_ + "/stderr").c_str(), "w", stderr)) ::_exit(1);
    const bool yes = work();
    std::fflush(nullptr);
    ::_exit(::testing::Test::HasFailure() ? 1 : yes ? 0 : 2);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  return status;
}

/// Takes the mails out of the spool: at most one, and whole. Returns how many there were.
int Rig::takeMails(bool mayLackWords) const {
  int mails = 0;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(root_ + "/var/spool/velmar/new", missing)) {
    const std::string mail = comparable(entry), end = "--=_alternative.--\r\n";
    EXPECT_TRUE(mail == mail_ || (mayLackWords && mail.ends_with(end) && mail_.ends_with(end))) << mail;
    fs::remove(entry);
    ++mails;
  }
  EXPECT_LE(mails, 1);
  return mails;
}

/// The life of the process that reports.
void Rig::live(const Fault& fault) const {
  static Events events;
  Host::setEventObserver([](const Host::Event& event) { events.add(event); });
  const std::string before = openFiles();
  const std::string result = inThread([&] {
    fault.arm();
    const std::string came = resultOf(until_);
    fault.disarm();
    return came;
  });
  EXPECT_EQ(openFiles(), before);
  Host::setEventObserver(nullptr);
  SCOPED_TRACE(fault.struck());
  SCOPED_TRACE(events.text);
  EXPECT_FALSE(events.unknown);
  EXPECT_TRUE(result == "0" || (result == "-1" && events.failure) || (fault.memory && result == "bad_alloc")) << result;
  skipped += 60 * kSecond;
  const std::string found = inThread(lists);
  EXPECT_TRUE(fault.memory || found.find(kHealthy) != std::string::npos) << found;
  const int mails = takeMails(fault.memory || events.warning);
  // A mail whose directory cannot be synced cannot be taken back either when everything fails.
  EXPECT_TRUE(!events.failure || mails == 0 || fault.lasting);
  // What is no exception of the platform costs a report without a word.
  EXPECT_TRUE(events.failure || mails == 1 || fault.memory) << "neither a mail nor a word";
  // Libraries keep what they could not make for want of memory, as long as the process lives.
  if (fault.memory) return;
  EXPECT_EQ(inThread([&] { return resultOf(until_); }), "0");
  EXPECT_EQ(namesBelow(root_ + "/var"), files_);
  EXPECT_EQ(takeMails(false), 1);
}

bool Rig::report(const Fault& fault, int n) const {
  SCOPED_TRACE("call " + std::to_string(n));
  fs::remove_all(root_ + "/var");
  fs::copy(directory_ + "/var", root_ + "/var", fs::copy_options::recursive);
  const auto lived = [this](const Fault& one) {
    return inProcess([&] {
      live(one);
      return !one.struck().empty();
    });
  };
  const int status = lived(fault);
  const std::string errors = contentOf(directory_ + "/stderr");
  const bool killed = (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) || (fault.memory && gaveUp(errors));
  EXPECT_TRUE(killed || status == 0 || status == 512) << "status " << status << "\n" << errors;
  if (killed) takeMails(fault.memory);
  if (killed || fault.memory) {
    EXPECT_EQ(lived(Fault()), 512) << contentOf(directory_ + "/stderr");
  }
  return killed || status == 0;
}

}  // namespace Velmar::Testing
