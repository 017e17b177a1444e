// See rig.h. The process that reports writes an account; this one compares it and the disk with a report without fault.

#include "tests/faults/rig.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <new>
#include <set>
#include <thread>

#include "host/host.h"
#include "tests/faults/faults.h"
#include "velmar/spamreport.h"

namespace Velmar::Testing {
namespace {

namespace fs = std::filesystem;

constexpr char kMailbox[] = "kim+lists@example.net";
constexpr char kHealthy[] = "primaryaddr kim@example.net,";

/// What the events of a report said. It allocates nothing, for that may be what fails.
struct Events {
  bool failure = false, warning = false, unknown = false;
  char text[2000] = "";

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

/// Runs in a thread of its own, so that what the library keeps for a thread is given back at the end.
template <class Work>
void inThread(const Work& work) {
  std::thread(work).join();
}

}  // namespace

/// What the reporting process wrote down, by name; empty when it was killed. And how it ended.
struct Rig::Account {
  std::map<std::string, std::string> lines;
  bool killed = false;

  std::string operator[](const char* name) const { return lines.contains(name) ? lines.at(name) : "nothing told"; }
};

Rig::Rig() {
  const bool inMemory = ::access("/dev/shm", W_OK) == 0;
  directory_ = inMemory ? "/dev/shm/velmar-faults-XXXXXX" : "/tmp/velmar-faults-XXXXXX";
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
  layOut();
  const Account account = live(Fault());
  EXPECT_EQ(account["result"], "0") << account["events"];
  for (const auto& entry : fs::directory_iterator(directory_ + "/first")) mail_ = comparable(entry);
  files_ = namesBelow(root_ + "/var");
}

Rig::~Rig() { fs::remove_all(directory_); }

void Rig::layOut() const {
  for (const char* part : {"/host/var", "/first", "/account"}) fs::remove_all(directory_ + part);
  fs::copy(directory_ + "/var", root_ + "/var", fs::copy_options::recursive);
  fs::create_directory(directory_ + "/first");
}

/// What is in the spool goes aside, so that the next report meets an empty one.
void Rig::takeMails() const {
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(root_ + "/var/spool/velmar/new", missing)) {
    fs::rename(entry.path(), directory_ + "/first/" + entry.path().filename().string());
  }
}

/// The life of the process that reports.
void Rig::reportAndTell(const Fault& fault) const {
  static Events events;
  std::string result, found, again;
  Host::setEventObserver([](const Host::Event& event) { events.add(event); });
  const std::string before = openFiles();
  inThread([&] {
    fault.arm();
    const std::string came = resultOf(until_);
    fault.disarm();
    result = came;
  });
  const std::string after = openFiles();
  Host::setEventObserver(nullptr);
  waitAMinute();
  inThread([&] { found = lists(); });
  takeMails();
  if (!fault.memory) inThread([&] { again = resultOf(until_); });
  for (char* at = events.text; (at = std::strchr(at, '\n'));) *at = ' ';
  std::ofstream(directory_ + "/account") << "result\t" << result << "\nstruck\t" << fault.struck() << "\nevents\t"
                                         << events.text << "\nfailure\t" << events.failure << "\nwarning\t"
                                         << events.warning << "\nunknown\t" << events.unknown << "\nbefore\t" << before
                                         << "\nafter\t" << after << "\nlists\t" << found << "\nagain\t" << again
                                         << "\n";
}

Rig::Account Rig::live(const Fault& fault) const {
  fs::remove(directory_ + "/account");
  const pid_t child = ::fork();
  if (child == 0) {
    if (!std::freopen((directory_ + "/stderr").c_str(), "w", stderr)) ::_exit(2);
    reportAndTell(fault);
    ::_exit(0);
  }
  Account account;
  int status = -1;
  ::waitpid(child, &status, 0);
  const std::string errors = contentOf(directory_ + "/stderr");
  account.killed = (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) || (fault.memory && gaveUp(errors));
  if (account.killed) takeMails();
  EXPECT_TRUE(status == 0 || account.killed) << "status " << status << "\n" << errors;
  std::ifstream in(directory_ + "/account");
  for (std::string name, value; std::getline(in, name, '\t') && std::getline(in, value);) account.lines[name] = value;
  return account;
}

/// The mails that were queued: at most one, and whole. One that was made without memory may lack words.
std::size_t Rig::countMails(const Fault& fault, bool warned) const {
  std::size_t mails = 0;
  for (const auto& entry : fs::directory_iterator(directory_ + "/first")) {
    ++mails;
    const std::string mail = comparable(entry);
    const std::string end = "--=_alternative.--\r\n";
    EXPECT_TRUE(mail == mail_ || ((warned || fault.memory) && mail.ends_with(end) && mail_.ends_with(end))) << mail;
  }
  EXPECT_LE(mails, 1u);
  return mails;
}

void Rig::expectToldAndGivenBack(const Account& account, const Fault& fault) const {
  SCOPED_TRACE("events: " + account["events"]);
  const bool failed = account["failure"] == "1";
  const std::string result = account["result"];
  EXPECT_TRUE(result == "0" || (result == "-1" && failed) || (fault.memory && result == "bad_alloc")) << result;
  EXPECT_EQ(account["unknown"], "0");
  EXPECT_EQ(account["after"], account["before"]);
  EXPECT_TRUE(fault.memory || account["lists"].find(kHealthy) != std::string::npos) << account["lists"];
  const std::size_t mails = countMails(fault, account["warning"] == "1");
  // A mail whose directory cannot be synced cannot be taken back either when everything fails.
  EXPECT_TRUE(!failed || mails == 0 || fault.lasting);
  // What is no exception of the platform costs a report without a word.
  EXPECT_TRUE(failed || mails == 1 || fault.memory) << "neither a mail nor a word";
}

void Rig::expectCleanReport() const {
  EXPECT_EQ(namesBelow(root_ + "/var"), files_);
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(root_ + "/var/spool/velmar/new", missing)) {
    EXPECT_TRUE(comparable(entry) == mail_) << "another mail afterwards";
  }
}

std::string Rig::report(const Fault& fault, int n) {
  layOut();
  Account account = live(fault);
  const std::string struck = account.killed ? "process" : account.lines["struck"];
  SCOPED_TRACE("call " + std::to_string(n) + ", " + struck);
  if (account.killed) {
    countMails(fault, false);
  } else if (!account.lines.contains("result")) {
    return "";  // a crash, which failed the test
  } else {
    expectToldAndGivenBack(account, fault);
  }
  // Libraries keep what they could not make for want of memory, as long as the process lives.
  if (account.killed || fault.memory) {
    fs::remove_all(directory_ + "/first");
    fs::create_directory(directory_ + "/first");
    account = live(Fault());
    expectToldAndGivenBack(account, Fault());
  }
  EXPECT_EQ(account["again"], "0");
  expectCleanReport();
  return struck;
}

}  // namespace Velmar::Testing
