// Trusted texts and the secret behind them: known answers, forgeries bit by bit, unfit files, racing processes.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/text_network/installation_secret.h"
#include "host/text_network/trusted_base64.h"
#include "platform/text_network.h"
#include "platform/types.h"

namespace Velmar {
namespace {

namespace fs = std::filesystem;
using Host::decodeTrusted;

constexpr std::uint32_t kKey = 0x5d2a7c31;
constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

/// The encoding, or "failed" when the operation says so.
std::string encodeTrusted(const std::string& text, std::uint32_t key = kKey) {
  std::string out(text.size() * 2 + 100, '?');
  const int got = vlml_encode_trusted_base64_data(text.data(), static_cast<int>(text.size()), key, out.data(),
                                                  static_cast<int>(out.size()));
  return got < 0 ? "failed" : out.substr(0, static_cast<std::size_t>(got));
}

class TrustedTest : public testing::Test {
 protected:
  TrustedTest() { useFreshRoot(); }
  ~TrustedTest() override {
    ::unsetenv("VELMAR_ROOT");
    for (const fs::path& root : roots_) fs::remove_all(root);
  }

  void useFreshRoot() {
    std::string name = (fs::temp_directory_path() / "velmar-trusted-XXXXXX").string();
    roots_.push_back(::mkdtemp(name.data()));
    ::setenv("VELMAR_ROOT", roots_.back().c_str(), 1);
  }

  const fs::path& root() const { return roots_.back(); }
  fs::path directory() const { return root() / "var/lib/velmar"; }
  fs::path secret() const { return directory() / "secret"; }

  void placeSecret(std::size_t size = 32, mode_t mode = 0600) {
    fs::create_directories(directory());
    std::ofstream file(secret(), std::ios::binary);
    for (std::size_t i = 0; i < size; ++i) file.put(static_cast<char>(i));
    file.close();
    ASSERT_EQ(::chmod(secret().c_str(), mode), 0);
  }

 private:
  std::vector<fs::path> roots_;
};

TEST_F(TrustedTest, HasTheDocumentedForm) {
  placeSecret();
  EXPECT_EQ(encodeTrusted(""), "AWzkg6-PuBFrqlMipE6MurUsuBKoeglK-J7nY29rbZMK");
  EXPECT_EQ(encodeTrusted("a@b.example:6921f0aa"),
            "AWFAYi5leGFtcGxlOjY5MjFmMGFhQCBPCdWvCcaQzr41kqoAhHfOVSDkrHvA6wRkpI9RMEo");
}

TEST_F(TrustedTest, ReturnsTheTextUnderTheSameKeyAndSecretOnly) {
  for (std::size_t length = 0; length < 100; ++length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) text += static_cast<char>(i * 37 + length);
    const std::string encoded = encodeTrusted(text);
    EXPECT_EQ(encoded.find_first_not_of(kDigits), std::string::npos) << encoded;
    EXPECT_EQ(decodeTrusted(encoded, kKey), text);
    EXPECT_EQ(decodeTrusted(encoded, kKey ^ 0x80000000U), std::nullopt);
    EXPECT_EQ(decodeTrusted(encoded, kKey ^ 1U), std::nullopt);
  }
  const std::string foreign = encodeTrusted("a@b:1");
  useFreshRoot();
  EXPECT_NE(encodeTrusted("a@b:1"), foreign);
  EXPECT_EQ(decodeTrusted(foreign, kKey), std::nullopt);
}

TEST_F(TrustedTest, NoticesEveryChangedBitAndEveryOtherForm) {
  for (const std::string text : {"", "x", "xy", "a@b.example:6921f0aa"}) {
    const std::string encoded = encodeTrusted(text);
    for (std::size_t i = 0; i < encoded.size(); ++i) {
      const std::size_t value = std::string_view(kDigits).find(encoded[i]);
      for (unsigned bit = 0; bit < 6; ++bit) {
        std::string forged = encoded;
        forged[i] = kDigits[value ^ (1U << bit)];
        EXPECT_EQ(decodeTrusted(forged, kKey), std::nullopt) << "bit " << bit << " of digit " << i;
      }
      EXPECT_EQ(decodeTrusted(encoded.substr(0, i), kKey), std::nullopt) << "cut to " << i;
      EXPECT_EQ(decodeTrusted(encoded.substr(i + 1), kKey), std::nullopt) << "without the first " << i + 1;
      for (const char c : {'=', '+', '/', '\n', ' ', '\0', '\xff'}) {
        std::string broken = encoded;
        broken[i] = c;
        EXPECT_EQ(decodeTrusted(broken, kKey), std::nullopt) << "digit " << i;
      }
    }
    for (const char* tail : {"=", "==", "A", "AA", "AAAA", "\n"}) {
      EXPECT_EQ(decodeTrusted(encoded + tail, kKey), std::nullopt) << "with " << tail;
    }
  }
  EXPECT_EQ(decodeTrusted(std::string(1000000, 'A'), kKey), std::nullopt);
}

TEST_F(TrustedTest, StaysWithinTheBuffer) {
  for (const std::string text : {"", "x", "xy", "xyz"}) {
    const std::string want = encodeTrusted(text);
    for (std::size_t size = 0; size < want.size() + 3; ++size) {
      std::string out(want.size() + 4, '?');
      const int got = vlml_encode_trusted_base64_data(text.data(), static_cast<int>(text.size()), kKey, out.data(),
                                                      static_cast<int>(size));
      const bool fits = size >= want.size();
      EXPECT_EQ(got, fits ? static_cast<int>(want.size()) : -1) << "size " << size;
      EXPECT_EQ(out, fits ? want + "????" : std::string(out.size(), '?')) << "size " << size;
    }
  }
  char out[100];
  EXPECT_EQ(vlml_encode_trusted_base64_data("x", -1, kKey, out, 100), -1);
  EXPECT_EQ(vlml_encode_trusted_base64_data("x", 2147483647, kKey, out, 100), -1);
  EXPECT_EQ(vlml_encode_trusted_base64_data("x", 1, kKey, out, -1), -1);
  EXPECT_EQ(vlml_encode_trusted_base64_data("x", 1, kKey, nullptr, 0), -1);
  EXPECT_EQ(vlml_encode_trusted_base64_data(nullptr, 0, kKey, out, 100), 44);
}

TEST_F(TrustedTest, MakesThePrivateSecretOnFirstUseAndKeepsIt) {
  for (const mode_t mask : {0U, 022U, 0277U}) {
    useFreshRoot();
    const bool unusual = mask == 0277U;  // of a directory made under it not even its owner could make use
    fs::create_directories(unusual ? directory() : directory().parent_path());
    const mode_t before = ::umask(mask);
    const std::string first = encodeTrusted("x");
    ::umask(before);
    ASSERT_NE(first, "failed");
    EXPECT_EQ(fs::file_size(secret()), 32U);
    EXPECT_EQ(fs::status(secret()).permissions(), fs::perms(0600));
    EXPECT_TRUE(unusual || fs::status(directory()).permissions() == fs::perms(0750 & ~mask));
    EXPECT_EQ(std::distance(fs::directory_iterator(directory()), {}), 1) << "something else was left behind";
    fs::remove(secret());
    EXPECT_EQ(encodeTrusted("x"), first) << "the secret was read again";
  }
}

TEST_F(TrustedTest, VerifyingNeverMakesASecret) {
  try {
    decodeTrusted("AAAA", kKey);
    ADD_FAILURE() << "no exception";
  } catch (const Exception& e) {
    EXPECT_NE(e.text().find(secret().string() + ": does not exist"), std::string::npos) << e.text();
  }
  EXPECT_FALSE(fs::exists(root() / "var"));
}

TEST_F(TrustedTest, RefusesAnUnfitSecretAndRecoversOnceItIsMended) {
  struct Row {
    const char* name;
    std::function<void()> place;
    const char* wantReason;
  };
  const auto away = root() / "elsewhere";
  const std::vector<Row> rows = {
      {"empty", [&] { placeSecret(0); }, "has 0 bytes instead of 32"},
      {"short", [&] { placeSecret(31); }, "has 31 bytes instead of 32"},
      {"long", [&] { placeSecret(33); }, "has 33 bytes instead of 32"},
      {"group may read", [&] { placeSecret(32, 0640); }, "open to group or others"},
      {"group may write", [&] { placeSecret(32, 0620); }, "open to group or others"},
      {"others may read", [&] { placeSecret(32, 0604); }, "open to group or others"},
      {"others may execute", [&] { placeSecret(32, 0601); }, "open to group or others"},
      {"directory", [&] { fs::create_directories(secret()); }, "no regular file"},
      {"fifo",
       [&] {
         fs::create_directories(directory());
         ASSERT_EQ(::mkfifo(secret().c_str(), 0600), 0);
       },
       "no regular file"},
      {"link to a good one",
       [&] {
         placeSecret();
         fs::rename(secret(), away);
         fs::create_symlink(away, secret());
       },
       "no regular file"},
      {"link to nothing",
       [&] {
         fs::create_directories(directory());
         fs::create_symlink("nowhere", secret());
       },
       "no regular file"},
      {"no directory",
       [&] {
         fs::create_directories(directory().parent_path());
         std::ofstream(directory()) << "x";
       },
       "cannot be opened"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    row.place();
    EXPECT_EQ(encodeTrusted("x"), "failed");
    for (const bool create : {true, false}) {
      try {
        Host::installationSecret(create);
        ADD_FAILURE() << "no exception";
      } catch (const Exception& e) {
        EXPECT_NE(e.text().find(secret().string()), std::string::npos) << e.text();
        EXPECT_NE(e.text().find(row.wantReason), std::string::npos) << e.text();
      }
    }
    fs::remove_all(root() / "var");
    fs::remove(away);
  }
  EXPECT_NE(encodeTrusted("x"), "failed");
}

TEST_F(TrustedTest, FailsWithoutARoot) {
  ::setenv("VELMAR_ROOT", (root() / "missing").c_str(), 1);
  EXPECT_EQ(encodeTrusted("x"), "failed");
  EXPECT_FALSE(fs::exists(root() / "missing"));
}

TEST_F(TrustedTest, ThreadsShareOneSecret) {
  std::vector<std::string> got(4);
  std::vector<std::thread> threads;
  for (std::string& mine : got) threads.emplace_back([&mine] { mine = encodeTrusted("x"); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::set<std::string>(got.begin(), got.end()).size(), 1U);
  EXPECT_EQ(decodeTrusted(got[0], kKey), "x");
}

/// Runs `count` processes that all wait for one signal and then encode the same text; returns what they wrote.
std::vector<std::string> encodeInProcesses(int count) {
  int start[2], result[2];
  if (::pipe(start) != 0 || ::pipe(result) != 0) return {};
  for (int i = 0; i < count; ++i) {
    if (::fork() != 0) continue;
    ::close(start[1]);
    char c;
    if (::read(start[0], &c, 1) != 0) ::_exit(1);
    const std::string mine = encodeTrusted("x") + "\n";
    ::_exit(::write(result[1], mine.data(), mine.size()) == static_cast<ssize_t>(mine.size()) ? 0 : 1);
  }
  ::close(start[0]);
  ::close(start[1]);  // the signal: end of file for all at once
  ::close(result[1]);
  std::vector<std::string> lines(1);
  char c;
  while (::read(result[0], &c, 1) == 1) {
    if (c == '\n') {
      lines.emplace_back();
    } else {
      lines.back() += c;
    }
  }
  ::close(result[0]);
  while (::wait(nullptr) > 0) {
  }
  lines.pop_back();
  return lines;
}

TEST_F(TrustedTest, RacingProcessesAgreeOnOneSecret) {
  for (int round = 0; round < 20; ++round) {
    useFreshRoot();
    const std::vector<std::string> got = encodeInProcesses(4);
    ASSERT_EQ(got.size(), 4U);
    for (const std::string& mine : got) ASSERT_EQ(mine, got[0]);
    EXPECT_NE(got[0], "failed");
    EXPECT_EQ(encodeTrusted("x"), got[0]);
    EXPECT_EQ(std::distance(fs::directory_iterator(directory()), {}), 1);
  }
}

}  // namespace
}  // namespace Velmar
