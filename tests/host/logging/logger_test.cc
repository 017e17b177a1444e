// The log as the library sees it. Each case runs in a process of its own, because the sinks are opened once a process.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <mutex>
#include <thread>

#include "host/host.h"
#include "platform/logging.h"
#include "tests/host/logging/config_double.h"
#include "tests/host/logging/temporary_directory.h"

namespace {

using Velmar::Logger;
using Velmar::MigLogger;
using Velmar::Host::configDouble;

class LoggerTest : public testing::Test {
 protected:
  void SetUp() override { ::setenv("VELMAR_ROOT", directory.path().c_str(), 1); }

  /// Runs `body` in a child whose stderr is a file. Returns the lines of that file.
  std::vector<std::string> stderrOf(const std::function<void()>& body) {
    const std::string captured = directory.file("stderr");
    const pid_t child = ::fork();
    if (child == 0) {
      const int fd = ::open(captured.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
      ::dup2(fd, STDERR_FILENO);
      body();
      ::_exit(HasFailure() ? 1 : 0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << contentOf(captured);
    return linesOf(captured);
  }

  std::vector<std::string> fileLines() const { return linesOf(directory.file("var/log/spamreport.log")); }

  static void configure(bool toStderr, const std::string& file) { configDouble().config.log = {toStderr, file}; }

  TemporaryDirectory directory;
};

void logOne() { Logger::instance(false).log(0x8000e, 0, "%s", "u@example.org"); }

constexpr const char* kWant = "0x8000e report-disabled mailbox=\"u@example.org\"";

void expectEvents(const std::vector<std::string>& lines, std::size_t want) {
  EXPECT_EQ(lines.size(), want);
  for (const std::string& line : lines) EXPECT_TRUE(line.ends_with(kWant)) << line;
}

TEST_F(LoggerTest, GoesWhereTheConfigurationSays) {
  struct Case {
    bool toStderr;
    std::string file;
    std::size_t wantStderr;
    std::size_t wantFile;
  };
  const Case cases[] = {{true, "", 1, 0},
                        {false, "", 0, 0},
                        {true, "/var/log/spamreport.log", 1, 1},
                        {false, "/var/log/spamreport.log", 0, 1}};
  for (const Case& c : cases) {
    std::filesystem::remove_all(directory.path() / "var");
    const auto lines = stderrOf([&] {
      configure(c.toStderr, c.file);
      logOne();
    });
    SCOPED_TRACE(c.file + (c.toStderr ? " and stderr" : ""));
    expectEvents(lines, c.wantStderr);
    expectEvents(fileLines(), c.wantFile);
  }
}

TEST_F(LoggerTest, TheCommandMayOverruleStderr) {
  const auto lines = stderrOf([] {
    configure(false, "");
    logOne();
    Velmar::Host::setLogToStderr(true);
    logOne();
    Velmar::Host::setLogToStderr(false);
    logOne();
  });
  expectEvents(lines, 1);
}

TEST_F(LoggerTest, WithoutConfigurationItUsesStderrAndDoesNotLoadAgainForEachLine) {
  const auto lines = stderrOf([] {
    configDouble().fails = true;
    for (int i = 0; i < 50; ++i) logOne();
    EXPECT_EQ(configDouble().loads, 1);
  });
  expectEvents(lines, 50);
}

TEST_F(LoggerTest, AFileThatCannotBeWrittenSendsLinesToStderr) {
  std::ofstream(directory.file("var")) << "no directory";
  const auto lines = stderrOf([] {
    configure(false, "/var/log/spamreport.log");
    logOne();
    logOne();
  });
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_NE(lines[0].find("log-file-unwritable path=\"" + directory.file("var/log/spamreport.log")), std::string::npos)
      << lines[0];
  EXPECT_NE(lines[0].find("error=\"Not a directory\""), std::string::npos) << lines[0];
  expectEvents({lines[1], lines[2]}, 2);
}

TEST_F(LoggerTest, AClosedStderrPipeHarmsNobody) {
  stderrOf([] {
    configure(true, "");
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    ::dup2(ends[1], STDERR_FILENO);
    errno = 4711;
    logOne();  // the default action of SIGPIPE would end this process
    EXPECT_EQ(errno, 4711);
    sigset_t pending;
    ::sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
    sigset_t blocked;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGPIPE), 0);
  });
}

TEST_F(LoggerTest, TheObserverSeesRawFieldsOfBothLogs) {
  const auto lines = stderrOf([] {
    configure(false, "");
    std::vector<std::string> seen;
    Velmar::Host::setEventObserver([&](const Velmar::Host::Event& event) {
      seen.push_back(event.name);
      seen.insert(seen.end(), event.fields.begin(), event.fields.end());
    });
    MigLogger::instance(false).log(0x80012, 0, "%s\x01%s", "deliver", "my\n\x01template");
    Logger::instance(false).log(0x999, 0, "%d", -5);
    basepp::dbg::debug("SpamreportGenerator", 953, "deliver", 0, "%s", "no event");
    Velmar::Host::setEventObserver(nullptr);
    logOne();
    EXPECT_EQ(seen, (std::vector<std::string>{"no-template", "deliver", "my\n\x01template", "unknown", "-5"}));
  });
  EXPECT_TRUE(lines.empty());
}

TEST_F(LoggerTest, AnObserverThatThrowsCostsNoLine) {
  const auto lines = stderrOf([] {
    configure(true, "");
    Velmar::Host::setEventObserver([](const Velmar::Host::Event&) { throw 1; });
    logOne();
  });
  expectEvents(lines, 1);
}

TEST_F(LoggerTest, ManyThreadsLogWhileObserversChange) {
  constexpr int kThreads = 4;
  constexpr int kLines = 200;
  stderrOf([] {
    configure(false, "/var/log/spamreport.log");
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([] {
        for (int line = 0; line < kLines; ++line) logOne();
      });
    }
    for (int i = 0; i < 50; ++i) {
      int calls = 0;
      std::mutex mutex;
      Velmar::Host::setEventObserver([&](const Velmar::Host::Event&) {
        const std::lock_guard lock(mutex);
        ++calls;
      });
      Velmar::Host::setEventObserver(nullptr);  // from here on nobody may touch what is about to vanish
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(configDouble().loads, 1);
  });
  expectEvents(fileLines(), kThreads * kLines);
}

}  // namespace
