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

/// Lines that are in the file once this returns, whatever happens to the process then.
void note(const std::string& path, const std::string& line) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (__real_write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size())) ::_exit(3);
  ::close(file);
}

/// A server that writes down whom it took which mail for, and sooner or later takes everything.
class RecordingTransport : public Host::Transport {
 public:
  RecordingTransport(std::string record, bool mild) : record_(std::move(record)), mild_(mild) {}

  Host::HandOver send(const Host::QueuedMail& mail) override {
    Host::HandOver answer = letters_.send(mail);
    for (std::size_t i = 0; i < mail.recipients.size(); ++i) {
      if (mild_) answer.recipients[i].verdict = Host::Verdict::kAccepted;
      if (answer.recipients[i].verdict != Host::Verdict::kAccepted) continue;
      note(record_, mail.content.substr(0, mail.content.find('\r')) + " " + mail.recipients[i] + "\n");
    }
    answer.serverUnusable = answer.serverUnusable && !mild_;
    return answer;
  }

 private:
  Testing::LetterTransport letters_;
  std::string record_;
  bool mild_;
};

class QueueCrashTest : public ::testing::TestWithParam<std::pair<bool, bool>> {
 protected:
  /// What fails for once must not keep the rest from being done.
  template <class Call>
  static bool succeeds(const Call& call) try {
    call();
    return true;
  } catch (const Exception&) {
    return false;
  }

  void flush(bool mild) {
    RecordingTransport server(root / "record", mild);
    succeeds([&] { Host::flushQueueWith(server, Host::QueueConfig(), {true}); });
  }

  static void retryAll() {
    for (const Host::SpoolEntry& entry : Host::listSpool()) succeeds([&] { Host::retryQueued(entry.id); });
  }

  /// Accepts mails, hands them on to a server in its worst mood, retries what failed with a better one.
  void live() {
    for (const auto& [id, recipients] : mails) {
      Host::QueuedMail mail;
      mail.id = id;
      mail.recipients = recipients;
      mail.content = id + "\r\n" + std::string(9000, 'x') + "\r\n";
      if (succeeds([&] { Host::writeToSpool(mail); })) note(root / "accepted", id + "\n");
    }
    flush(false);
    retryAll();
    flush(true);
  }

  /// Lives in a child until the n-th call. Returns whether the call came.
  bool liveUntil(int n, Strike how) {
    const pid_t child = ::fork();
    if (child == 0) {
      callsLeft = n;
      strike = how;
      live();
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
    const auto accepted = linesOf("accepted");
    const auto record = linesOf("record");
    for (const auto& [id, recipients] : mails) {
      for (const std::string& recipient : recipients) {
        const std::size_t times = record.count(id + " " + recipient);
        EXPECT_GE(times, accepted.count(id)) << id << " " << recipient;
        EXPECT_LE(times, 2U) << id << " " << recipient;
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
      SCOPED_TRACE("call " + std::to_string(n) + (how == Strike::kKill ? " kills" : " fails"));
      for (const char* name : {"var", "record", "accepted"}) fs::remove_all(root / name);
      came = liveUntil(n, how);
      // Once more, because what failed under the name of a waiting mail waits for that to go.
      for (int round = 0; round < 2; ++round) {
        retryAll();
        flush(true);
      }
      expectEveryMailCame();
    }
    EXPECT_GT(n, 50);
  }
}

INSTANTIATE_TEST_SUITE_P(FileSystems, QueueCrashTest,
                         ::testing::Values(std::pair(true, true), std::pair(false, true), std::pair(false, false)));

}  // namespace
}  // namespace Velmar
