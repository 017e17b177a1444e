// The log file: rotation of every kind, many writers, and a disk that says no.

#include "host/logging/file_sink.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <map>
#include <thread>

#include "tests/host/logging/temporary_directory.h"

namespace {

using Velmar::Host::FileSink;
namespace fs = std::filesystem;

class FileSinkTest : public testing::Test {
 protected:
  TemporaryDirectory directory;
  const std::string path = directory.file("log/velmar/spamreport.log");
  FileSink sink{path};
};

TEST_F(FileSinkTest, MakesDirectoryAndFile) {
  const mode_t before = ::umask(0);
  EXPECT_EQ(sink.write("one\n"), 0);
  ::umask(before);
  EXPECT_EQ(contentOf(path), "one\n");
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(FileSinkTest, AppendsToWhatIsThere) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path) << "before\n";
  EXPECT_EQ(sink.write("after\n"), 0);
  EXPECT_EQ(contentOf(path), "before\nafter\n");
}

TEST_F(FileSinkTest, FollowsRotation) {
  const std::string old = path + ".1";
  ASSERT_EQ(sink.write("one\n"), 0);
  fs::rename(path, old);
  ASSERT_EQ(sink.write("two\n"), 0);
  EXPECT_EQ(contentOf(old), "one\n");
  EXPECT_EQ(contentOf(path), "two\n");

  fs::rename(path, old);
  std::ofstream(path) << "made by logrotate\n";
  ASSERT_EQ(sink.write("three\n"), 0);
  EXPECT_EQ(contentOf(path), "made by logrotate\nthree\n");

  fs::copy_file(path, old, fs::copy_options::overwrite_existing);
  fs::resize_file(path, 0);
  ASSERT_EQ(sink.write("four\n"), 0);
  EXPECT_EQ(contentOf(path), "four\n") << "no hole after copytruncate";

  fs::remove_all(fs::path(path).parent_path());
  ASSERT_EQ(sink.write("five\n"), 0);
  EXPECT_EQ(contentOf(path), "five\n");
}

TEST_F(FileSinkTest, SaysWhyItCannotWriteAndRecovers) {
  fs::create_directories(path);
  EXPECT_EQ(sink.write("lost\n"), EISDIR);
  fs::remove(path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(sink.write("lost, without waiting for a reader\n"), ENXIO);
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
  EXPECT_EQ(sink.write("a FIFO is no log\n"), EINVAL);
  ::close(reader);
  fs::remove(path);
  EXPECT_EQ(sink.write("good again\n"), 0);
  EXPECT_EQ(contentOf(path), "good again\n");
}

TEST_F(FileSinkTest, ALineCutByAFullDiskCostsOnlyItself) {
  ASSERT_EQ(sink.write("0123456789\n"), 0);
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit full{16, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
  EXPECT_EQ(sink.write("cut in the middle\n"), EFBIG);
  EXPECT_EQ(sink.write("nothing of this\n"), EFBIG);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, SIG_DFL);
  EXPECT_EQ(sink.write("whole\n"), 0);
  EXPECT_EQ(sink.write("next\n"), 0);
  EXPECT_EQ(contentOf(path), "0123456789\ncut i\nwhole\nnext\n");
}

TEST_F(FileSinkTest, LinesOfManyThreadsAndProcessesStayWhole) {
  constexpr int kWriters = 3;
  constexpr int kLines = 200;
  const auto writeAll = [](FileSink& to, char mark) {
    const std::string line = std::string(300, mark) + "\n";
    int failures = 0;
    for (int i = 0; i < kLines; ++i) failures += to.write(line) != 0;
    return failures;
  };
  std::vector<pid_t> children;
  for (int i = 0; i < kWriters; ++i) {
    const pid_t child = ::fork();
    if (child == 0) {
      FileSink own(path);
      ::_exit(writeAll(own, static_cast<char>('A' + i)));
    }
    children.push_back(child);
  }
  std::vector<std::thread> threads;
  for (int i = 0; i < kWriters; ++i) {
    threads.emplace_back([&, i] { EXPECT_EQ(writeAll(sink, static_cast<char>('a' + i)), 0); });
  }
  for (std::thread& thread : threads) thread.join();
  for (const pid_t child : children) {
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  std::map<char, int> count;
  for (const std::string& line : linesOf(path)) {
    ASSERT_EQ(line, std::string(300, line[0]));
    ++count[line[0]];
  }
  EXPECT_EQ(count.size(), 2U * kWriters);
  for (const auto& [mark, lines] : count) EXPECT_EQ(lines, kLines) << mark;
}

TEST_F(FileSinkTest, RotationUnderLoadLosesNoLine) {
  constexpr int kLines = 600;
  std::thread writer([&] {
    for (int i = 0; i < kLines; ++i) EXPECT_EQ(sink.write("line " + std::to_string(i) + "\n"), 0);
  });
  for (int i = 0; i < 20; ++i) {
    std::error_code ignored;
    fs::rename(path, path + "." + std::to_string(i), ignored);
    std::this_thread::yield();
  }
  writer.join();
  std::size_t found = 0;
  for (const auto& entry : fs::directory_iterator(fs::path(path).parent_path())) {
    found += linesOf(entry.path().string()).size();
  }
  EXPECT_EQ(found, static_cast<std::size_t>(kLines));
}

}  // namespace
