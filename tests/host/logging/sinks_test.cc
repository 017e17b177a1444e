// The sinks that may have nobody at their other end: local sockets and stderr.

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "host/logging/datagram_sink.h"
#include "host/logging/stderr_sink.h"
#include "tests/host/logging/fake_service.h"
#include "tests/support/temp_root.h"

namespace {

using namespace testing;
using namespace std::chrono_literals;
using Velmar::Host::DatagramSink;
using Velmar::Host::StderrSink;
using Velmar::Testing::Datagram;
using Velmar::Testing::FakeService;
using TooLarge = DatagramSink::TooLarge;

class SocketTest : public Test {
 protected:
  const Velmar::Testing::TempRoot root;
  const std::string path = root / "dev/log";
  DatagramSink sink{path, TooLarge::kPassedAsFile, 200ms};
};

TEST_F(SocketTest, SaysWhyNobodyListensAndFindsAServiceThatComesLater) {
  EXPECT_EQ(sink.send("lost"), ENOENT);
  for (const char* text : {"one", "two"}) {
    FakeService service(path);
    EXPECT_EQ(sink.send(text), 0);
    EXPECT_EQ(service.receive().bytes, text);
  }
  EXPECT_NE(sink.send("lost"), 0);
  root.write("dev/log", "no socket");
  EXPECT_EQ(sink.send("lost"), ECONNREFUSED);
  EXPECT_EQ(DatagramSink("/" + std::string(107, 'x'), TooLarge::kRefused).send(""), ENAMETOOLONG);
}

TEST_F(SocketTest, AServiceThatDoesNotReadIsWaitedForOnce) {
  FakeService service(path);
  int sent = 0;
  int error = 0;
  while (error == 0 && sent < 100'000) error = sink.send("x" + std::to_string(sent++));
  EXPECT_EQ(error, ETIMEDOUT);
  const auto before = std::chrono::steady_clock::now();
  for (int i = 0; i < 50; ++i) EXPECT_EQ(sink.send("lost"), ETIMEDOUT);
  EXPECT_LT(std::chrono::steady_clock::now() - before, 5s) << "each waited";
  for (int i = 0; i < sent - 1; ++i) ASSERT_EQ(service.receive().bytes, "x" + std::to_string(i));
  EXPECT_EQ(sink.send("again"), 0);
  EXPECT_EQ(service.receive().bytes, "again");
  // Patient again: a reader that is only slow loses nothing.
  std::jthread reader([&](const std::stop_token& stop) {
    for (int got = 0; got < 100 && !stop.stop_requested();) {
      std::this_thread::sleep_for(1ms);
      got += service.receive().bytes.empty() ? 0 : 1;
    }
  });
  for (int i = 0; i < 100; ++i) EXPECT_EQ(sink.send("slow"), 0) << i;
}

TEST_F(SocketTest, WhatIsTooLargeIsPassedAsASealedFile) {
  FakeService service(path);
  const std::string large = std::string(2 << 20, 'x') + "end";
  EXPECT_EQ(sink.send(large), 0);
  EXPECT_EQ(sink.send("small"), 0);
  const Datagram got = service.receive();
  EXPECT_TRUE(got.asFile);
  EXPECT_TRUE(got.bytes == large);
  EXPECT_EQ(got.seals, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
  EXPECT_EQ(service.receive().bytes, "small");
  EXPECT_EQ(DatagramSink(path, TooLarge::kRefused).send(large), EMSGSIZE);
}

/// Makes a small pipe stderr for as long as it lives; its other end is read here.
class PipeAsStderr {
 public:
  PipeAsStderr() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    reading_ = Velmar::Host::Descriptor(ends[0]);
    ::fcntl(ends[0], F_SETPIPE_SZ, 8192);
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[1]);
  }
  ~PipeAsStderr() { ::dup2(before_.get(), STDERR_FILENO); }

  std::string read() const {
    std::string text(1U << 16, '\0');
    const ssize_t size = ::read(reading_.get(), text.data(), text.size());
    return text.substr(0, size < 0 ? 0 : static_cast<std::size_t>(size));
  }

 private:
  Velmar::Host::Descriptor before_{::dup(STDERR_FILENO)};
  Velmar::Host::Descriptor reading_;
};

TEST(StderrSink, DropsAndCountsLinesThatNobodyReads) {
  StderrSink sink(200ms);
  const PipeAsStderr pipe;
  const std::string line = std::string(99'999, 'x') + "\n";  // more than the pipe takes: the first one is cut
  const auto before = std::chrono::steady_clock::now();
  for (int i = 0; i < 30; ++i) sink.write(line);
  EXPECT_LT(std::chrono::steady_clock::now() - before, 5s) << "each waited";
  const std::string cut = pipe.read();
  EXPECT_TRUE(line.starts_with(cut)) << cut.size();
  sink.write("next\n");
  sink.write("last\n");
  EXPECT_THAT(pipe.read(), MatchesRegex("\n[^ ]+ - log-lines-dropped \"30 lines were dropped, because nobody read "
                                        "them\" count=\"30\"\nnext\nlast\n"));
}

TEST(StderrSink, WaitsForASlowReaderAlsoWithinALongLine) {
  StderrSink sink(10s);
  std::string got;
  {
    const PipeAsStderr pipe;
    std::jthread reader([&] {
      while (!got.ends_with("end\n")) {
        std::this_thread::sleep_for(1ms);
        got += pipe.read();
      }
    });
    sink.write(std::string(100'000, 'y') + "\n");
    sink.write("end\n");
  }
  EXPECT_TRUE(got == std::string(100'000, 'y') + "\nend\n") << got.size();
}

}  // namespace
