// Trusted texts and the secret behind them: known answers, forgeries, unfit files, racing processes.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/host.h"
#include "host/text_network/installation_secret.h"
#include "host/text_network/trusted_base64.h"
#include "platform/text_network.h"
#include "platform/types.h"
#include "tests/support/temp_root.h"
#include "tests/support/thrown_by.h"

namespace Velmar {
namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;
using Host::decodeTrusted;

constexpr std::uint32_t kKey = 0x5d2a7c31;
constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

/// The encoding, or "failed" when the operation says so.
std::string encodeTrusted(const std::string& text) {
  std::string out(text.size() * 2 + 100, '?');
  const int got = vlml_encode_trusted_base64_data(text.data(), static_cast<int>(text.size()), kKey, out.data(),
                                                  static_cast<int>(out.size()));
  return got < 0 ? "failed" : out.substr(0, static_cast<std::size_t>(got));
}

struct SecretRoot : Testing::TempRoot {
  const fs::path directory = *this / "var/lib/velmar";
  const fs::path secret = directory / "secret";

  void placeSecret(std::size_t size = 32, mode_t mode = 0600) const {
    std::string bytes;
    while (bytes.size() < size) bytes += static_cast<char>(bytes.size());
    makeDirectory("var/lib/velmar");
    write("var/lib/velmar/secret", bytes);
    ASSERT_EQ(::chmod(secret.c_str(), mode), 0);
  }

  auto filesInDirectory() const { return std::distance(fs::directory_iterator(directory), {}); }

  /// Both ways to the secret fail with this reason. What was placed is removed.
  void expectUnfit(const std::string& reason) const {
    EXPECT_EQ(encodeTrusted("x"), "failed") << reason;
    for (const bool create : {true, false}) {
      const std::string text = Testing::thrownBy([&] { Host::installationSecret(create); });
      EXPECT_NE(text.find(secret.string() + ": " + reason), std::string::npos) << text;
    }
    fs::remove_all(*this / "var");
  }
};

TEST(Trusted, ReturnsTheTextUnderTheSameKeyAndSecretOnly) {
  const SecretRoot first;
  std::string encoded;
  for (std::size_t length = 0; length < 100; ++length) {
    const std::string text(length, static_cast<char>(length * 37));
    encoded = encodeTrusted(text);
    EXPECT_EQ(decodeTrusted(encoded, kKey), text);
    EXPECT_EQ(decodeTrusted(encoded, kKey ^ 0x80000000U), std::nullopt);
  }
  const SecretRoot second;
  EXPECT_NE(encodeTrusted(""), "failed");
  EXPECT_EQ(decodeTrusted(encoded, kKey), std::nullopt);
}

TEST(Trusted, NoticesEveryChangeAndEveryOtherForm) {
  const SecretRoot root;
  for (const std::string text : {"", "x", "xy"}) {
    const std::string encoded = encodeTrusted(text);
    for (std::size_t i = 0; i < encoded.size(); ++i) {
      for (const char c : kDigits + "=+/\n \xff"s) {
        std::string forged = encoded;
        forged[i] = c;
        EXPECT_EQ(decodeTrusted(forged, kKey).has_value(), c == encoded[i]) << c << " as digit " << i;
      }
      EXPECT_EQ(decodeTrusted(encoded.substr(0, i), kKey), std::nullopt) << "cut to " << i;
    }
  }
}

TEST(LoginAccess, IsGrantedToWhatWasIssuedUntilItsExpiryOnly) {
  const SecretRoot root;
  using State = Host::LoginAccess::State;
  constexpr long long kMax = INT64_MAX;
  const struct {
    std::string text;
    long long now;
    State want;
    std::string wantAddress = "";
  } cases[] = {
      {"a@b.example:6921f0aa", 0x6921f0a9, State::kGranted, "a@b.example"},
      {"a@b.example:6921f0aa", 0x6921f0aa, State::kExpired},
      {"\"a:1\"@[IPv6:::1]:0", -1, State::kGranted, "\"a:1\"@[IPv6:::1]"},
      {"a@b:7fffffffffffffff", kMax - 1, State::kGranted, "a@b"},
      {"a@b:7fffffffffffffff", kMax, State::kExpired},
      {"a@b:ffffffffffffffff", -2, State::kGranted, "a@b"},  // the time before the epoch
      {"a@b:ffffffffffffffff", 0, State::kExpired},
  };
  for (const auto& c : cases) {
    const Host::LoginAccess got = Host::checkLoginAccess(encodeTrusted(c.text), c.now);
    EXPECT_EQ(got.state, c.want) << c.text << " at " << c.now;
    EXPECT_EQ(got.address, c.wantAddress) << c.text << " at " << c.now;
  }
  EXPECT_EQ(Host::checkLoginAccess("AWFAYi5leGFtcGxlOjY5MjFmMGFh", 0).state, State::kNotIssued);
  // made here, but for no login link
  for (const char* text :
       {"", "a@b", "a@b:", ":ff", "a@b:0f", "a@b:FF", "a@b:+f", "a@b:ff ", "a@b:10000000000000000"}) {
    EXPECT_EQ(Host::checkLoginAccess(encodeTrusted(text), 0).state, State::kNotIssued) << text;
  }
}

TEST(Trusted, HasTheDocumentedFormAndStaysWithinTheBuffer) {
  const SecretRoot root;
  root.placeSecret();
  const std::string text = "a@b.example:6921f0aa";
  const std::string want = "AWFAYi5leGFtcGxlOjY5MjFmMGFhQCBPCdWvCcaQzr41kqoAhHfOVSDkrHvA6wRkpI9RMEo";
  const std::vector<std::pair<int, int>> rows = {{20, -1}, {20, 0}, {20, 70}, {20, 71}, {-1, 80}, {2147483647, 80}};
  for (const auto& [length, size] : rows) {
    std::string out(80, '?');
    const bool fits = length == 20 && size == 71;
    const int got = vlml_encode_trusted_base64_data(text.data(), length, kKey, out.data(), size);
    EXPECT_EQ(got, fits ? 71 : -1) << "length " << length << ", size " << size;
    EXPECT_EQ(out, fits ? want + "?????????" : std::string(80, '?')) << "length " << length << ", size " << size;
  }
}

TEST(Trusted, MakesThePrivateSecretOnFirstUseAndKeepsIt) {
  const SecretRoot root;
  const std::string first = encodeTrusted("x");
  EXPECT_EQ(fs::status(root.secret).permissions(), fs::perms(0600));
  EXPECT_EQ(fs::status(root.directory).permissions(), fs::perms(0750));
  EXPECT_EQ(root.filesInDirectory(), 1);
  fs::remove(root.secret);
  EXPECT_EQ(encodeTrusted("x"), first) << "the secret was read again";
  EXPECT_FALSE(fs::exists(root.secret)) << "the secret was made again";
}

TEST(Trusted, VerifyingNeverMakesASecret) {
  const SecretRoot root;
  EXPECT_THROW(decodeTrusted("AAAA", kKey), Exception);
  EXPECT_TRUE(fs::is_empty(root / ""));
}

TEST(Trusted, RefusesAnUnfitSecretAndRecoversOnceItIsMended) {
  const SecretRoot root;
  for (const std::size_t size : {31U, 33U}) {
    root.placeSecret(size);
    root.expectUnfit("has " + std::to_string(size) + " bytes instead of 32");
  }
  for (const mode_t mode : {0640U, 0620U, 0604U, 0601U}) {
    root.placeSecret(32, mode);
    root.expectUnfit("open to group or others");
  }
  fs::create_directories(root.directory);
  ASSERT_EQ(::mkfifo(root.secret.c_str(), 0600), 0);
  root.expectUnfit("no regular file");
  for (const char* target : {"good", "nowhere"}) {
    root.placeSecret();
    fs::rename(root.secret, root.directory / "good");
    fs::create_symlink(target, root.secret);
    root.expectUnfit("no regular file");
  }
  EXPECT_NE(encodeTrusted("x"), "failed");
}

TEST(Trusted, ThreadsShareOneSecret) {
  const SecretRoot root;
  std::vector<std::string> got(4);
  std::vector<std::thread> threads;
  for (std::string& mine : got) threads.emplace_back([&mine] { mine = encodeTrusted("x"); });
  for (std::thread& thread : threads) thread.join();
  for (const std::string& mine : got) EXPECT_EQ(decodeTrusted(mine, kKey), "x");
}

TEST(Trusted, RacingProcessesAgreeOnOneSecret) {
  for (int round = 0; round < 20; ++round) {
    const SecretRoot root;
    int result[2];
    ASSERT_EQ(::pipe(result), 0);
    for (int i = 0; i < 4; ++i) {
      if (::fork() != 0) continue;
      const std::string mine = encodeTrusted("x");
      ::_exit(::write(result[1], mine.data(), mine.size()) < 0 ? 1 : 0);
    }
    ::close(result[1]);
    while (::wait(nullptr) > 0) {
    }
    char got[1000];
    const ssize_t size = ::read(result[0], got, sizeof got);
    ::close(result[0]);
    const std::string mine = encodeTrusted("x");
    EXPECT_NE(mine, "failed");
    EXPECT_EQ(std::string(got, got + std::max<ssize_t>(size, 0)), mine + mine + mine + mine);
    EXPECT_EQ(root.filesInDirectory(), 1);
  }
}

}  // namespace
}  // namespace Velmar
