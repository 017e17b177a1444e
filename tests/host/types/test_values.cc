// Exceptions, handles, buffers and paths.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "platform/types.h"

namespace Velmar {
namespace {

TEST(ExceptionText, NamesEverythingAndSurvivesItsOrigin) {
  auto original = std::make_unique<Exception>("KindException", 4, "Unit", 77, "bad\tvalue \xff");
  const Exception copy(*original);
  Exception assigned("Other", 1, "Else", 1, "else");
  assigned = *original;
  original.reset();
  for (const Exception& e : {copy, assigned}) {
    EXPECT_EQ(e.asString(), "KindException: bad\tvalue \xff (Unit:77, level 4)");
    EXPECT_EQ(e.what(), e.asString());
    EXPECT_EQ(e.typeName() + "/" + e.source() + "/" + e.text(), "KindException/Unit/bad\tvalue \xff");
    EXPECT_EQ(e.level() * 1000 + e.line(), 4077);
  }
}

struct Counted : RefImpl {
  explicit Counted(std::atomic<int>& deaths) : deaths_(deaths) {}
  ~Counted() override { ++deaths_; }
  std::atomic<int>& deaths_;
};

TEST(Handle, DeletesOnceAfterTheLastOfAllThreads) {
  std::atomic<int> deaths{0};
  {
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
    first = Ref<Counted>();
    for (std::thread& thread : threads) thread.join();
    threads.clear();
  }
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
  struct Row {
    std::string bytes, want;
  };
  using namespace std::string_literals;
  const std::vector<Row> rows = {{"", ""},
                                 {"f", "Zg=="},
                                 {"fo", "Zm8="},
                                 {"foo", "Zm9v"},
                                 {"foob", "Zm9vYg=="},
                                 {"fooba", "Zm9vYmE="},
                                 {"foobar", "Zm9vYmFy"},
                                 {"\0\0"s, "AAA="},
                                 {"\xff\xff\xff\xfb\xef\xbe", "////++++"}};
  for (const Row& row : rows) {
    for (const bool copy : {true, false}) {
      const Buffer buffer(row.bytes.data(), static_cast<unsigned>(row.bytes.size()), copy);
      EXPECT_EQ(buffer.toBase64String(), row.want) << "copy " << copy;
    }
  }
  EXPECT_EQ(Buffer(std::string(3000, 'x').data(), 3000, true).toBase64String().find('\n'), std::string::npos);
}

TEST(BufferOwnership, CopiesKeepTheirBytes) {
  std::string bytes = "first";
  const Buffer referring(bytes.data(), 5, false);
  Buffer kept(bytes.data(), 5, true);
  bytes[0] = 'F';
  EXPECT_EQ(std::string(referring.data(), referring.length()), "First");
  EXPECT_EQ(std::string(kept.data(), kept.length()), "first");

  auto source = std::make_unique<Buffer>(kept);
  const Buffer copied(*source);
  Buffer assigned;
  assigned = *source;
  assigned = *&assigned;
  source->assign("other");
  source.reset();
  EXPECT_EQ(std::string(copied.data(), copied.length()), "first");
  EXPECT_EQ(std::string(assigned.data(), assigned.length()), "first");

  assigned = referring;
  EXPECT_EQ(static_cast<const void*>(assigned.data()), bytes.data());
  assigned.assign("");
  EXPECT_TRUE(assigned.isEmpty());
  EXPECT_EQ(assigned.data(), nullptr);
  EXPECT_EQ(Buffer(nullptr, 0, true).toBase64String() + Buffer(nullptr, 0, false).toBase64String(), "");
}

class OpenReadOnly : public testing::Test {
 protected:
  OpenReadOnly() {
    std::string name = (std::filesystem::temp_directory_path() / "velmar-types-XXXXXX").string();
    root_ = ::mkdtemp(name.data());
    ::setenv("VELMAR_ROOT", root_.c_str(), 1);
  }
  ~OpenReadOnly() override {
    ::unsetenv("VELMAR_ROOT");
    std::filesystem::remove_all(root_);
  }
  std::filesystem::path root_;
};

TEST_F(OpenReadOnly, OpensRegularFilesBelowTheRootOnly) {
  std::filesystem::create_directories(root_ / "dir");
  std::ofstream(root_ / "file") << "text";
  ASSERT_EQ(::mkfifo((root_ / "fifo").c_str(), 0600), 0);
  std::filesystem::create_symlink("file", root_ / "link");
  std::filesystem::create_symlink("nowhere", root_ / "dangling");

  for (const char* path : {"/file", "/link"}) {
    const int fd = File::openReadOnly(path);
    ASSERT_GE(fd, 0) << path;
    char bytes[8];
    EXPECT_EQ(::read(fd, bytes, sizeof bytes), 4) << path;
    EXPECT_EQ(::fcntl(fd, F_GETFL) & O_ACCMODE, O_RDONLY) << path;
    EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << path;
    ::close(fd);
  }
  const int next = ::dup(0);
  ::close(next);
  for (const char* path : {"/dir", "/fifo", "/dangling", "/missing", "/file/x", "", (const char*)nullptr}) {
    EXPECT_EQ(File::openReadOnly(path), -1) << (path ? path : "null");
  }
  const int after = ::dup(0);
  EXPECT_EQ(after, next) << "a refused file stayed open";
  ::close(after);
}

}  // namespace
}  // namespace Velmar
