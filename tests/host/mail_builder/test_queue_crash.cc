// The queue under fire: a process that accepts, hands on and retries mails is killed at its first change of the file
// system, at its second, and so on, or that change fails. Whatever happens, each accepted mail reaches each recipient,
// at most twice, and nothing is left over.
//
// The changes are the calls below, which the linker brings here (--wrap). Nothing is synced: a killed process loses no
// written byte.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <map>
#include <set>
#include <tuple>

#include "host/mail_builder/hand_over/queue_round.h"
#include "host/mail_builder/spool.h"
#include "tests/host/mail_builder/letter_transport.h"
#include "tests/support/temp_root.h"

namespace {

enum class Strike { kNever, kKill, kFail };

Strike strike = Strike::kNever;
int callsLeft = 0;
bool unnamedFilesWork = true;
bool renameFlagsWork = true;

/// Whether this call is the one, and shall fail.
bool struck() {
  if (strike == Strike::kNever || --callsLeft != 0) return false;
  if (strike == Strike::kKill) ::kill(::getpid(), SIGKILL);
  errno = ENOSPC;
  return true;
}

}  // namespace

extern "C" {
ssize_t __real_write(int file, const void* bytes, size_t size);
int __real_rename(const char* from, const char* to);
int __real_renameat2(int fromAt, const char* from, int toAt, const char* to, unsigned flags);
int __real_link(const char* from, const char* to);
int __real_linkat(int fromAt, const char* from, int toAt, const char* to, int flags);
int __real_unlink(const char* path);
int __real_access(const char* path, int mode);

ssize_t __wrap_write(int file, const void* bytes, size_t size) {
  if (!struck()) return __real_write(file, bytes, size);
  // As a disk does that becomes full: a part is written all the same.
  return size > 1 ? __real_write(file, bytes, size / 2) : -1;
}
int __wrap_fsync(int /*file*/) { return struck() ? -1 : 0; }
int __wrap_rename(const char* from, const char* to) { return struck() ? -1 : __real_rename(from, to); }
int __wrap_renameat2(int fromAt, const char* from, int toAt, const char* to, unsigned flags) {
  if (!renameFlagsWork) return errno = EINVAL, -1;
  return struck() ? -1 : __real_renameat2(fromAt, from, toAt, to, flags);
}
int __wrap_link(const char* from, const char* to) { return struck() ? -1 : __real_link(from, to); }
int __wrap_linkat(int fromAt, const char* from, int toAt, const char* to, int flags) {
  return struck() ? -1 : __real_linkat(fromAt, from, toAt, to, flags);
}
int __wrap_unlink(const char* path) { return struck() ? -1 : __real_unlink(path); }
int __wrap_access(const char* path, int mode) { return unnamedFilesWork ? __real_access(path, mode) : -1; }
}

namespace Velmar {
namespace {

namespace fs = std::filesystem;

/// A line that is in the file once this returns, whatever happens to the process then.
void note(const std::string& path, const std::string& line) {
  const Host::Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  if (__real_write(file.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) ::_exit(3);
}

/// A server that writes down whom it took which mail for: in a bad mood some of it, in a good one everything.
class RecordingTransport : public Host::Transport {
 public:
  RecordingTransport(std::string record, bool good) : record_(std::move(record)), good_(good) {}

  Host::HandOver send(const Host::QueuedMail& mail) override {
    Host::HandOver answer = letters_.send(mail);
    answer.serverUnusable = answer.serverUnusable && !good_;
    for (std::size_t i = 0; i < mail.recipients.size(); ++i) {
      if (good_) answer.recipients[i].verdict = Host::Verdict::kAccepted;
      if (answer.recipients[i].verdict != Host::Verdict::kAccepted) continue;
      note(record_, mail.content.substr(0, mail.content.find('\r')) + " " + mail.recipients[i] + "\n");
    }
    return answer;
  }

 private:
  Testing::LetterTransport letters_;
  std::string record_;
  bool good_;
};

/// What fails for once must not keep the rest from being done.
bool succeeds(const std::function<void()>& call) try {
  call();
  return true;
} catch (const Exception&) {
  return false;
}

class QueueCrashTest : public ::testing::TestWithParam<std::pair<bool, bool>> {
 protected:
  void flush(bool good) {
    RecordingTransport server(root / "record", good);
    succeeds([&] { Host::flushQueueWith(server, Host::QueueConfig(), {true}); });
  }

  void retryAllAndFlush() {
    for (const Host::SpoolEntry& entry : Host::listSpool()) succeeds([&] { Host::retryQueued(entry.id); });
    flush(true);
  }

  /// Lives in a child until the n-th change. Returns whether there was one.
  bool liveUntil(int n, Strike how) {
    const pid_t child = ::fork();
    if (child == 0) {
      callsLeft = n;
      strike = how;
      for (const auto& [id, recipients] : mails) {
        Host::QueuedMail mail;
        mail.id = id;
        mail.recipients = recipients;
        mail.content = id + "\r\n" + std::string(9000, 'x') + "\r\n";
        if (succeeds([&] { Host::writeToSpool(mail); })) note(root / "accepted", id + "\n");
      }
      flush(false);
      retryAllAndFlush();
      ::_exit(callsLeft > 0 ? 1 : 0);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGKILL : WEXITSTATUS(status) <= 1) << status;
    return WIFSIGNALED(status) || WEXITSTATUS(status) == 0;
  }

  std::multiset<std::string> linesOf(const std::string& name) const {
    std::multiset<std::string> lines;
    std::ifstream in(root / name);
    for (std::string line; std::getline(in, line);) lines.insert(line);
    return lines;
  }

  void expectEveryMailCame() const {
    const auto accepted = linesOf("accepted"), record = linesOf("record");
    for (const auto& [id, recipients] : mails) {
      for (const std::string& recipient : recipients) {
        const std::size_t times = record.count(id + " " + recipient);
        EXPECT_TRUE(times >= accepted.count(id) && times <= 2) << id << " " << recipient << " " << times << " times";
      }
    }
    for (const auto& entry : fs::recursive_directory_iterator(root / "var")) {
      EXPECT_TRUE(entry.is_directory()) << entry.path();
    }
  }

  // In memory where that is possible: disks take their time over files that replace others.
  const Testing::ScopedVariable temporary{"TMPDIR", ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp"};
  const Testing::TempRoot root;
  const std::map<std::string, std::vector<std::string>> mails = {
      {"m-1", {"a@x"}}, {"m-2", {"a@x", "t@x", "p@x"}}, {"m-3", {"p@x", "p2@x"}}, {"m-4", {"a@x", "a2@x", "u@x"}}};
};

TEST_P(QueueCrashTest, NoAcceptedMailIsLostAndNoneComesThrice) {
  Host::setLogToStderr(false);
  std::tie(unnamedFilesWork, renameFlagsWork) = GetParam();
  for (const Strike how : {Strike::kKill, Strike::kFail}) {
    int n = 1;
    for (bool came = true; came && !HasFailure(); ++n) {
      SCOPED_TRACE("change " + std::to_string(n) + (how == Strike::kKill ? " kills" : " fails"));
      for (const char* name : {"var", "record", "accepted"}) fs::remove_all(root / name);
      came = liveUntil(n, how);
      // Twice, because what failed under the name of a waiting mail waits for that to go.
      for (int round = 0; round < 2; ++round) retryAllAndFlush();
      expectEveryMailCame();
    }
    EXPECT_GT(n, 50);
    RecordProperty(how == Strike::kKill ? "kills" : "failures", n - 2);
  }
}

INSTANTIATE_TEST_SUITE_P(FileSystems, QueueCrashTest,
                         ::testing::Values(std::pair(true, true), std::pair(false, true), std::pair(false, false)));

}  // namespace
}  // namespace Velmar
