// The log as the library sees it, and its file. Loggers run in children, because a process opens its log once.

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "host/common/current_mailbox.h"
#include "host/common/host_config.h"
#include "host/host.h"
#include "host/logging/file_sink.h"
#include "platform/logging.h"
#include "tests/host/logging/fake_service.h"
#include "tests/support/temp_root.h"

namespace {

std::atomic<int> loads{0};
bool configurationFails = false;
Velmar::Host::HostConfig configuration;

}  // namespace

// Stands in for the real configuration.
const Velmar::Host::HostConfig& Velmar::Host::hostConfig() {
  ++loads;
  if (configurationFails) throw Exception("ConfigException", 4, "Test", __LINE__, "host.toml:1: no such file");
  return configuration;
}

namespace {

using namespace testing;
using Velmar::Host::setEventObserver;
using Velmar::Testing::FakeService;

std::vector<std::string> linesOf(const std::string& path) {
  std::ifstream in(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

constexpr char kFile[] = "/var/log/spamreport.log";

const Matcher<std::string> kLine =
    EndsWith(" 0x8000e report-disabled \"reports for u@example.org are switched off\" mailbox=\"u@example.org\"");

void logLines(int count) {
  for (int i = 0; i < count; ++i) Velmar::Logger::instance(false).log(0x8000e, 0, "%s", "u@example.org");
}

class LogTest : public Test {
 protected:
  /// Runs `body` in a child with this configuration. Returns the lines that it writes to stderr.
  std::vector<std::string> stderrOf(const Velmar::Host::LogConfig& log, const std::function<void()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
      configuration.log = log;
      ::dup2(::open((root / "stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600), STDERR_FILENO);
      body();
      ::_exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    return linesOf(root / "stderr");
  }

  const Velmar::Testing::TempRoot root;
  const std::string path = root / "log/velmar/sink.log";
  Velmar::Host::FileSink sink{path};
};

TEST_F(LogTest, WithoutConfigurationItUsesStderrAndDoesNotLoadAgainForEachLine) {
  const auto lines = stderrOf({.toStderr = false, .file = ""}, [] {
    configurationFails = true;
    logLines(50);
    EXPECT_EQ(loads, 1);
  });
  EXPECT_EQ(lines.size(), 50U);
}

TEST_F(LogTest, AFileThatCannotBeWrittenSendsLinesToStderr) {
  root.write("var", "no directory");
  const std::string why = " sink=\"file\" path=\"" + root / "var/log/spamreport.log\" error=\"Not a directory\"";
  EXPECT_THAT(stderrOf({.toStderr = false, .file = kFile}, [] { logLines(2); }),
              ElementsAre(EndsWith(why), kLine, kLine));
}

/// Makes stderr the stream that the service manager reads into the journal.
void leadStderrToJournal() {
  struct stat status {};
  ::fstat(STDERR_FILENO, &status);
  ::setenv("JOURNAL_STREAM", (std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino)).c_str(), 1);
}

TEST_F(LogTest, EachDestinationGetsEachEventAndTheJournalGetsItOnce) {
  const struct {
    bool toStderr, toJournal, toSyslog, stderrLeadsToJournal;
    std::size_t want;  // lines on stderr
  } cases[] = {
      {false, true, true, false, 0}, {true, true, true, false, 1},  {true, true, false, true, 0},
      {true, false, true, true, 0},  {true, false, false, true, 1},
  };
  FakeService journal(root / "run/systemd/journal/socket");
  FakeService syslog(root / "dev/log");
  for (const auto& row : cases) {
    const auto lines = stderrOf({row.toStderr, kFile, row.toJournal, row.toSyslog}, [&] {
      if (row.stderrLeadsToJournal) leadStderrToJournal();
      logLines(1);
    });
    EXPECT_EQ(lines.size(), row.want) << &row - cases;
    const std::string fields =
        row.toJournal ? "\nVELMAR_EVENT_NAME=report-disabled\nVELMAR_MAILBOX=u@example.org\n" : "";
    EXPECT_THAT(journal.receive().bytes, EndsWith(fields));
    const std::string line = row.toSyslog ? "]: report-disabled: reports for u@example.org are switched off" : "";
    EXPECT_THAT(syslog.receive().bytes, EndsWith(line));
  }
  EXPECT_THAT(journal.receive().bytes + syslog.receive().bytes, IsEmpty());
  EXPECT_EQ(linesOf(root / kFile).size(), std::size(cases));
}

TEST_F(LogTest, AMissingJournalIsToldOnceAndNoEventIsLost) {
  const auto missing = HasSubstr(" - log-sink-failed \"the log cannot be written to the journal " +
                                 root / "run/systemd/journal/socket: No such file or directory\" sink=\"journal\"");
  const auto log = [] { logLines(2); };
  EXPECT_THAT(stderrOf({.toStderr = false, .file = "", .toJournal = true}, log), ElementsAre(missing, kLine, kLine));
  EXPECT_THAT(stderrOf({.toStderr = false, .file = kFile, .toJournal = true}, log), IsEmpty());
  EXPECT_THAT(linesOf(root / kFile), ElementsAre(kLine, missing, kLine));
  for (const bool isCommand : {true, false}) {
    const auto lines = stderrOf({.toStderr = true, .file = "", .toJournal = true}, [&] {
      isCommand ? Velmar::Host::setLogToStderr(false) : leadStderrToJournal();
      logLines(1);
    });
    if (isCommand) {
      EXPECT_THAT(lines, IsEmpty());
    } else {
      EXPECT_THAT(lines, ElementsAre(missing, kLine));
    }
  }
}

TEST_F(LogTest, AFailureNamesTheMailboxOfItsThread) {
  const auto failure = [] { Velmar::Logger::instance(false).log(0x8000b, 0, "%s", "no room"); };
  const auto lines = stderrOf({}, [&] {
    for (const char* directory : {"/home/d/a~b~d", "/home/d/", "/home/d/u~d"}) {
      Velmar::Host::setCurrentMailbox(directory);
      failure();
    }
    std::thread(failure).join();
    Velmar::Logger::instance(false).log(0x80015, 0, "%s", "given up");
    Velmar::Logger::instance(false).log(0x90001, 0, "%s\x01%s\x01%s", "1", "u@d", "250 ok");  // has no mailbox
    Velmar::Host::setCurrentMailbox("/home/d/" + std::string(300, 'x') + "~d");
    failure();
  });
  const auto told = [](const std::string& mailbox, const std::string& field) {
    return EndsWith("\"report for " + mailbox + " failed: no room\" error=\"no room\"" + field);
  };
  EXPECT_THAT(lines,
              ElementsAre(told("a~b@d", " mailbox=\"a~b@d\""), told("(unknown)", ""), told("u@d", " mailbox=\"u@d\""),
                          told("(unknown)", ""), EndsWith("given up: given up\" error=\"given up\""),
                          EndsWith(" reply=\"250 ok\""), told("(unknown)", "")));
}

TEST_F(LogTest, AClosedStderrPipeHarmsNobody) {
  stderrOf({}, [] {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    ::dup2(ends[1], STDERR_FILENO);
    errno = 4711;
    logLines(1);  // the default action of SIGPIPE would end this process
    EXPECT_EQ(errno, 4711);
    sigset_t blocked;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGPIPE), 0);
  });
}

TEST_F(LogTest, TheObserverSeesRawFieldsAndCostsNoLineWhenItThrows) {
  const auto lines = stderrOf({}, [] {
    std::vector<std::string> seen;
    setEventObserver([&](const Velmar::Host::Event& event) {
      seen.push_back(event.name);
      seen.insert(seen.end(), event.fields.begin(), event.fields.end());
      throw 1;
    });
    Velmar::MigLogger::instance(false).log(0x80012, 0, "%s\x01%s", "deliver", "my\n\x01template");
    Velmar::Logger::instance(false).log(0x999, 0, "%d", -5);
    basepp::dbg::debug("SpamreportGenerator", 953, "deliver", 0, "%s", "no event");
    setEventObserver(nullptr);
    logLines(1);
    EXPECT_THAT(seen, ElementsAre("no-template", "deliver", "my\n\x01template", "unknown", "-5"));
  });
  EXPECT_EQ(lines.size(), 4U);
}

TEST_F(LogTest, ManyThreadsLogWhileObserversChange) {
  stderrOf({.toStderr = false, .file = kFile}, [] {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back(logLines, 200);
    for (int i = 0; i < 50; ++i) {
      std::atomic<int> calls{0};
      setEventObserver([&](const Velmar::Host::Event&) { ++calls; });
      setEventObserver(nullptr);  // from here on nobody may touch what is about to vanish
    }
    threads.clear();
    EXPECT_EQ(loads, 1);
  });
  EXPECT_THAT(linesOf(root / kFile), AllOf(SizeIs(800), Each(kLine)));
}

TEST_F(LogTest, FileFollowsRotation) {
  ASSERT_EQ(sink.write("one\n"), 0);
  EXPECT_EQ(std::filesystem::status(path).permissions() & std::filesystem::perms::others_all,
            std::filesystem::perms::none);
  std::filesystem::rename(path, path + ".1");
  ASSERT_EQ(sink.write("two\n"), 0);
  EXPECT_THAT(linesOf(path), ElementsAre("two"));
  std::filesystem::rename(path + ".1", path);
  ASSERT_EQ(sink.write("three\n"), 0);
  EXPECT_THAT(linesOf(path), ElementsAre("one", "three"));
  std::filesystem::resize_file(path, 0);
  ASSERT_EQ(sink.write("four\n"), 0);
  EXPECT_THAT(linesOf(path), ElementsAre("four")) << "no hole after copytruncate";
}

TEST_F(LogTest, FileSaysWhyItCannotWriteAndRecovers) {
  std::filesystem::create_directories(path);
  EXPECT_EQ(sink.write("lost\n"), EISDIR);
  std::filesystem::remove(path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(sink.write("lost, without waiting for a reader\n"), ENXIO);
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(sink.write("a FIFO is no log\n"), EINVAL);
  ::close(reader);
  std::filesystem::remove(path);
  EXPECT_EQ(sink.write("good again\n"), 0);
}

TEST_F(LogTest, ALineCutByAFullDiskCostsOnlyItself) {
  ASSERT_EQ(sink.write("0123456789\n"), 0);
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit full{16, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
  EXPECT_EQ(sink.write("cut in the middle\n"), EFBIG);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  for (const char* line : {"whole\n", "next\n"}) EXPECT_EQ(sink.write(line), 0);
  EXPECT_THAT(linesOf(path), ElementsAre("0123456789", "cut i", "whole", "next"));
}

}  // namespace
