// Escaping, URLs, IP addresses and digests: tables, under a global locale that would spoil formatted output.

#include <gtest/gtest.h>

#include <cstring>
#include <iomanip>
#include <locale>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "platform/text_network.h"
#include "platform/types.h"

namespace Velmar {
namespace {

using namespace std::string_literals;

/// Digits in groups of one, joined by bangs.
struct HostileDigits : std::numpunct<char> {
  char do_thousands_sep() const override { return '!'; }
  std::string do_grouping() const override { return "\1"; }
};

class UnderHostileLocale : public testing::Test {
 protected:
  UnderHostileLocale() : before_(std::locale::global(std::locale(std::locale::classic(), new HostileDigits))) {}
  ~UnderHostileLocale() override { std::locale::global(before_); }

 private:
  std::locale before_;
};

using TextTest = UnderHostileLocale;

TEST_F(TextTest, UrlEscapeKeepsUnreservedBytesOnly) {
  std::string allBytes;
  for (int c = 0; c < 256; ++c) allBytes += static_cast<char>(c);
  std::ostringstream plain;
  vlm_url_escape_str(plain, allBytes);
  const std::string unreserved = "-.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz~";
  std::string rest = plain.str();
  std::string kept;
  int escapes = 0;
  for (std::size_t i = 0; i < rest.size(); ++i) {
    if (rest[i] != '%') {
      kept += rest[i];
      continue;
    }
    ASSERT_EQ(rest.find_first_not_of("0123456789ABCDEF", i + 1) >= i + 3, true) << rest.substr(i, 3);
    i += 2;
    ++escapes;
  }
  EXPECT_EQ(kept, unreserved);
  EXPECT_EQ(escapes, 256 - static_cast<int>(unreserved.size()));
  EXPECT_EQ(rest.substr(0, 6), "%00%01");
  EXPECT_EQ(rest.substr(rest.size() - 6), "%FE%FF");
}

TEST_F(TextTest, UrlEscapeIgnoresTheFlagsOfTheStream) {
  std::ostringstream out;
  out << std::hex << std::showbase << std::uppercase << std::left << std::setfill('#') << "x=";
  out.width(20);
  vlm_url_escape_str(out, "a \xc3\xb6+/="s + '\0');
  EXPECT_EQ(out.str(), "x=a%20%C3%B6%2B%2F%3D%00");
  vlm_url_escape_str(out, "");
  EXPECT_EQ(out.str().size(), 24U);
}

TEST_F(TextTest, HtmlEncode) {
  struct Row {
    std::string text, want;
  };
  for (const Row& row : {Row{"", ""}, Row{"plain \xc3\xb6\n\t", "plain \xc3\xb6\n\t"},
                         Row{"<a href=\"x\" b='y'>&amp;", "&lt;a href=&quot;x&quot; b=&#39;y&#39;&gt;&amp;amp;"},
                         Row{"\0<\xff"s, "\0&lt;\xff"s}}) {
    EXPECT_EQ(vlm_html_encode(row.text), row.want);
  }
}

TEST_F(TextTest, TrimLeft) {
  struct Row {
    std::string text, want;
  };
  for (const Row& row :
       {Row{"", ""}, Row{" \t\n\v\f\r", ""}, Row{"a ", "a "}, Row{"\r\n a", "a"}, Row{"\xc2\xa0 a", "\xc2\xa0 a"}}) {
    std::string text = row.text;
    const char* got = trim_left(text.data());
    EXPECT_STREQ(got, row.want.c_str());
    EXPECT_EQ(got - text.data(), static_cast<std::ptrdiff_t>(row.text.size() - row.want.size()));
  }
}

TEST_F(TextTest, BuildHttpUrl) {
  struct Row {
    std::string host;
    std::uint32_t port;
    int secure;
    std::string want;  // "" = refused
  };
  const std::vector<Row> rows = {{"h.example", 443, 1, "https://h.example"},
                                 {"h.example", 80, 1, "https://h.example:80"},
                                 {"h.example", 80, 0, "http://h.example"},
                                 {"h.example", 443, 0, "http://h.example:443"},
                                 {"[2001:db8::1]", 12345, 1, "https://[2001:db8::1]:12345"},
                                 {"", 8443, 1, "https://:8443"},
                                 {"h", 1, 1, "https://h:1"},
                                 {"h", 65535, 1, "https://h:65535"},
                                 {"h", 0, 1, ""},
                                 {"h", 65536, 1, ""},
                                 {"h", 0xffffffffU, 1, ""}};
  for (const Row& row : rows) {
    for (const int slack : {1, 0, 10}) {  // 0: the NUL does not fit
      std::string buffer(row.want.size() + 12, 'x');
      const int size = static_cast<int>(row.want.size()) + slack;
      const bool fits = !row.want.empty() && slack > 0;
      const int got = vlm_build_http_url(row.host, row.port, row.secure, buffer.data(), size);
      EXPECT_EQ(got, fits ? static_cast<int>(row.want.size()) : -1) << row.want << " port " << row.port;
      if (size > 0) {
        EXPECT_STREQ(buffer.c_str(), fits ? row.want.c_str() : "");
      }
      EXPECT_EQ(buffer.substr(static_cast<std::size_t>(size)).find_first_not_of('x'), std::string::npos);
    }
  }
  EXPECT_EQ(vlm_build_http_url("h", 443, 1, nullptr, 0), -1);
}

TEST_F(TextTest, IpAddressesThereAndBack) {
  struct Row {
    std::string text;
    int wantFamily;  // 0 = refused
    std::string wantAgain;
  };
  const std::vector<Row> rows = {{"192.0.2.1", 2, "192.0.2.1"},
                                 {"255.255.255.255", 2, "255.255.255.255"},
                                 {"::", 10, "::"},
                                 {"2001:DB8:0:0:0:0:0:1", 10, "2001:db8::1"},
                                 {"::ffff:192.0.2.1", 10, "::ffff:192.0.2.1"},
                                 {"1:2:3:4:5:6:7:8", 10, "1:2:3:4:5:6:7:8"},
                                 {"", 0, ""},
                                 {"192.0.2", 0, ""},
                                 {"192.0.2.256", 0, ""},
                                 {"192.0.02.1", 0, ""},
                                 {"0x7f.0.0.1", 0, ""},
                                 {"2130706433", 0, ""},
                                 {" 192.0.2.1", 0, ""},
                                 {"192.0.2.1 ", 0, ""},
                                 {"192.0.2.1\0"s, 0, ""},
                                 {"[::1]", 0, ""},
                                 {"fe80::1%eth0", 0, ""},
                                 {"1::2::3", 0, ""},
                                 {"1:2:3:4:5:6:7:8:9", 0, ""},
                                 {"localhost", 0, ""}};
  for (const Row& row : rows) {
    vlm_ip_address address;
    std::memset(&address, 0xaa, sizeof address);
    const vlm_ip_address before = address;
    ASSERT_EQ(vlm_string_to_ip(row.text, &address), row.wantFamily ? 1 : 0) << row.text;
    if (!row.wantFamily) {
      EXPECT_EQ(std::memcmp(&address, &before, sizeof address), 0) << row.text << " changed the address";
      continue;
    }
    EXPECT_EQ(address.family, static_cast<std::uint32_t>(row.wantFamily)) << row.text;
    const int exact = static_cast<int>(row.wantAgain.size()) + 1;
    char buffer[64] = "xx";
    EXPECT_EQ(vlm_ip_to_string(address, buffer, exact, 1), 0) << row.text;
    EXPECT_EQ(buffer, row.wantAgain);
    EXPECT_EQ(vlm_ip_to_string(address, buffer, exact - 1, 1), -1) << row.text;
    EXPECT_EQ(buffer[0], '\0');
  }
  char buffer[64] = "xx";
  EXPECT_EQ(vlm_ip_to_string({3, {}}, buffer, 64, 1), -1);
  EXPECT_EQ(buffer[0], '\0');
  EXPECT_EQ(vlm_ip_to_string({2, {}}, nullptr, 0, 1), -1);
  EXPECT_EQ(vlm_ip_to_string({2, {}}, buffer, -1, 1), -1);
}

std::string md5Of(const std::string& text, std::size_t step, std::vector<std::uint32_t> keys = {}) {
  Md5Hasher hasher;
  for (std::size_t at = 0; at < text.size(); at += step) {
    hasher.update(text.data() + at, std::min(step, text.size() - at));
  }
  hasher.finalize();
  for (const std::uint32_t key : keys) hasher.xorDigest(key);
  return hasher.digestAsHexString();
}

TEST_F(TextTest, Md5MatchesRfc1321) {
  struct Row {
    std::string text, want;
  };
  const std::vector<Row> rows = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"}};
  for (const Row& row : rows) {
    for (const std::size_t step : {1U, 7U, 1000U}) EXPECT_EQ(md5Of(row.text, step), row.want) << row.text;
  }
}

TEST_F(TextTest, XorDigestFoldsTheKeyIntoLittleEndianWords) {
  EXPECT_EQ(md5Of("", 1, {0x5d2a7c31}), "e561a684be7c9859d8fc23c5dd846823");
  EXPECT_EQ(md5Of("abc", 1, {0x5d2a7c31}), "a17d7ac50dae65ede7ea1520199d552f");
  EXPECT_EQ(md5Of("abc", 1, {1}), "910150983dd24fb0d7963f7d29e17f72");
  EXPECT_EQ(md5Of("abc", 1, {0xff000000}), "900150673cd24f4fd6963f8228e17f8d");
  EXPECT_EQ(md5Of("abc", 1, {0x5d2a7c31, 0x5d2a7c31}), md5Of("abc", 1));
}

TEST_F(TextTest, Md5RefusesCallsOutOfOrder) {
  Md5Hasher hasher;
  EXPECT_THROW(hasher.xorDigest(1), Exception);
  EXPECT_THROW(hasher.digestAsHexString(), Exception);
  hasher.update("abc", 3);
  hasher.update(nullptr, 0);
  hasher.finalize();
  EXPECT_THROW(hasher.update("d", 1), Exception);
  EXPECT_THROW(hasher.finalize(), Exception);
  EXPECT_EQ(hasher.digestAsHexString(), "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
}  // namespace Velmar
