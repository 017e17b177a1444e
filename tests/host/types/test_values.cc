// Exceptions, handles, buffers and paths.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/types.h"
#include "tests/support/temp_root.h"

namespace Velmar {
namespace {

TEST(ExceptionText, NamesEverythingAndSurvivesItsOrigin) {
  auto original = std::make_unique<Exception>("KindException", 4, "Unit", 77, "bad\tvalue \xff");
  const Exception copy(*original);
  original.reset();
  EXPECT_EQ(copy.asString(), "KindException: bad\tvalue \xff (Unit:77, level 4)");
  EXPECT_EQ(copy.what(), copy.asString());
}

struct Counted : RefImpl {
  explicit Counted(std::atomic<int>& deaths) : deaths_(deaths) {}
  ~Counted() override { ++deaths_; }
  std::atomic<int>& deaths_;
};

TEST(Handle, DeletesOnceAfterTheLastOfAllThreads) {
  std::atomic<int> deaths{0};
  Ref<Counted> first(new Counted(deaths));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([mine = first] {
      for (int n = 0; n < 2000; ++n) {
        const Ref<RefImpl> base = mine;
        Ref<Counted> copy = mine;
        Ref<Counted> moved = std::move(copy);
        copy = moved;
        copy = *&copy;
      }
    });
  }
  EXPECT_EQ(deaths, 0);
  first = Ref<Counted>();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(deaths, 1);
}

TEST(Handle, ThrowsWhenEmpty) {
  const Ref<Counted> empty;
  EXPECT_TRUE(empty.isNull());
  try {
    (void)empty->deaths_;
    FAIL() << "no exception";
  } catch (const Exception& e) {
    EXPECT_EQ(e.text() + " " + e.source() + " " + std::to_string(e.line()) + " " + std::to_string(e.level()),
              "operator-> VlmRefcounted 359 1");
  }
}

TEST(BufferBase64, MatchesRfc4648) {
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foobar", "Zm9vYmFy"}, {"\xff\xff\xff\xfb\xef\xbe", "////++++"}};
  for (const auto& [bytes, want] : rows) {
    EXPECT_EQ(Buffer(bytes.data(), static_cast<unsigned>(bytes.size()), true).toBase64String(), want);
  }
  EXPECT_EQ(Buffer(std::string(3000, 'x').data(), 3000, true).toBase64String().find('\n'), std::string::npos);
  EXPECT_EQ(Buffer(nullptr, 0, false).toBase64String(), "");
}

std::string bytesOf(const Buffer& buffer) { return {buffer.data(), buffer.length()}; }

TEST(BufferOwnership, CopiesKeepTheirBytes) {
  std::string bytes = "first";
  const Buffer referring(bytes.data(), 5, false);
  auto source = std::make_unique<Buffer>(bytes.data(), 5, true);
  bytes[0] = 'F';
  const Buffer copied(*source);
  Buffer assigned;
  assigned = *source;
  assigned = *&assigned;
  source->assign("other");
  source.reset();
  EXPECT_EQ(bytesOf(copied) + bytesOf(assigned) + bytesOf(referring), "firstfirstFirst");
  assigned = referring;
  EXPECT_EQ(static_cast<const void*>(assigned.data()), bytes.data());
  assigned.assign("");
  EXPECT_TRUE(assigned.isEmpty());
}

TEST(OpenReadOnly, OpensRegularFilesBelowTheRootOnly) {
  const Testing::TempRoot root;
  root.makeDirectory("dir");
  root.write("file", "text");
  ASSERT_EQ(::mkfifo((root / "fifo").c_str(), 0600), 0);
  std::filesystem::create_symlink("file", root / "link");

  for (const char* path : {"/file", "/link"}) {
    const int fd = File::openReadOnly(path);
    char bytes[8];
    EXPECT_EQ(::read(fd, bytes, sizeof bytes), 4) << path;
    EXPECT_EQ(::fcntl(fd, F_GETFL) & O_ACCMODE, O_RDONLY) << path;
    EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << path;
    ::close(fd);
  }
  const int next = ::dup(0);
  ::close(next);
  for (const char* path : {"/dir", "/fifo", "/missing", "/file/x", "", (const char*)nullptr}) {
    EXPECT_EQ(File::openReadOnly(path), -1) << (path ? path : "null");
  }
  EXPECT_EQ(::dup(0), next) << "a refused file stayed open";
  ::close(next);
}

}  // namespace
}  // namespace Velmar
