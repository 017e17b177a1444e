// Dates, escaping, URLs, IP addresses and digests, under a French locale and in Berlin, which no answer may show.

#include <gtest/gtest.h>
#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "host/common/current_time.h"
#include "platform/text_network.h"
#include "platform/types.h"

namespace Velmar {
namespace {

using namespace std::string_literals;

class TextTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    ::setenv("TZ", "Europe/Berlin", 1);
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale::getFrance(), status);
  }
};

/// The fields of "YEAR-MONTH-DAY HOUR:MINUTE:SECOND", in whatever range they are.
std::tm fields(const char* text) {
  std::tm t{};
  std::sscanf(text, "%d-%d-%d %d:%d:%d", &t.tm_year, &t.tm_mon, &t.tm_mday, &t.tm_hour, &t.tm_min, &t.tm_sec);
  t.tm_year -= 1900;
  t.tm_mon -= 1;
  t.tm_isdst = -1;
  return t;
}

/// The date in words, or "failed" when the operation says so.
std::string inWords(const char* when, const char* language) {
  const std::tm time = fields(when);
  char out[1024] = "unwritten";
  const int status = translate_datetime(&time, 2, language, out, sizeof out);
  EXPECT_EQ(status, out[0] == '\0' ? -1 : 0);
  return status == 0 ? out : "failed";
}

constexpr char kEvening[] = "2025-11-22 19:27:00";

TEST_F(TextTest, DatesAreInTheLanguageAskedForAndElseEnglish) {
  const std::vector<std::pair<const char*, const char*>> rows = {
      {"DE", "22.11.2025, 19:27"},          {"de_DE.UTF-8", "22.11.2025, 19:27"}, {"de-AT", "22.11.2025, 19:27"},
      {"de_ZZ", "22.11.2025, 19:27"},       {"fr", "22 nov. 2025, 19:27"},        {"en-GB", "22 Nov 2025, 19:27"},
      {"zh_TW", "2025年11月22日 晚上7:27"}, {"zh-CN", "2025年11月22日 19:27"}};
  for (const auto& [language, want] : rows) EXPECT_EQ(inWords(kEvening, language), want) << "of " << language;
  const std::string hostile = "de" + std::string(10000, '-');
  for (const char* unknown : {(const char*)nullptr, "", "C", "xx", "klingon", "root", "-", "_fr", ".",
                              "@calendar=buddhist", "../../etc/passwd", "de\xff\n", "<b>", "%s%n", hostile.c_str()}) {
    EXPECT_EQ(inWords(kEvening, unknown), "Nov 22, 2025, 7:27 PM") << "of " << (unknown ? unknown : "null");
  }
}

/// What ICU itself says, with its no-break spaces as blanks.
std::string icuWords(const char* when, const icu::Locale& locale) {
  const std::unique_ptr<icu::DateFormat> whole(
      icu::DateFormat::createDateTimeInstance(icu::DateFormat::kMedium, icu::DateFormat::kShort, locale));
  whole->adoptTimeZone(icu::TimeZone::getGMT()->clone());
  std::tm time = fields(when);
  icu::UnicodeString text;
  whole->format(static_cast<UDate>(timegm(&time)) * 1000, text);
  for (const char16_t space : {u'\u202f', u'\u00a0'}) text.findAndReplace(space, u' ');
  std::string utf8;
  return text.toUTF8String(utf8);
}

TEST_F(TextTest, DatesInAllLanguagesAreIcusInAllThreadsAndInAnyOrder) {
  const std::vector<const char*> moments = {kEvening, "2025-11-22 00:05:59", "1970-01-01 00:00:00",
                                            "2025-03-19 12:00:00"};
  int32_t count = 0;
  const icu::Locale* locales = icu::Locale::getAvailableLocales(count);
  ASSERT_GT(count, 100);  // more than a thread keeps words for
  std::vector<std::vector<std::string>> got(2,
                                            std::vector<std::string>(static_cast<std::size_t>(count) * moments.size()));
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < got.size(); ++t) {
    threads.emplace_back([&mine = got[t], t, locales, &moments] {
      for (std::size_t n = 0; n < mine.size(); ++n) {
        const std::size_t i = t == 0 ? n : mine.size() - 1 - n;
        mine[i] = inWords(moments[i % moments.size()], locales[i / moments.size()].getName());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(got[0], got[1]);
  for (std::size_t i = 0; i < got[0].size(); ++i) {
    const icu::Locale& locale = locales[i / moments.size()];
    EXPECT_EQ(got[0][i], icuWords(moments[i % moments.size()], locale)) << "of " << locale.getName();
  }
}

TEST_F(TextTest, DatesShowTheFieldsAsTheyAreAndNormaliseThoseOutOfRange) {
  const std::vector<std::pair<const char*, const char*>> rows = {
      {"1582-10-10 12:0:0", "10.10.1582, 12:00"},   {"9999-12-31 23:59:59", "31.12.9999, 23:59"},
      {"2024-2-30 24:60:0", "02.03.2024, 01:00"},   {"2025-1-0 -1:-1:0", "30.12.2024, 22:59"},
      {"1969-12-31 23:59:59", "31.12.1969, 23:59"},  // the time -1, which is also timegm's sign of failure
      {"2147483647-1-1 0:0:0", "failed"},           {"2147483647-2147483647-1 0:0:0", "failed"}};
  for (const auto& [when, want] : rows) EXPECT_EQ(inWords(when, "de"), want) << "of " << when;
}

TEST_F(TextTest, DatesFillTheBufferWholeOrNotAtAll) {
  std::tm when = fields("2025-03-30 01:30:00");  // half an hour before summer time begins
  when.tm_gmtoff = 3600;
  char out[] = "xxxxxxxxxxxxxxxxxxxx";
  EXPECT_EQ(translate_datetime(&when, 2, "de", out, 0), -1);
  EXPECT_EQ(out[0], 'x');
  EXPECT_EQ(translate_datetime(&when, 2, "de", out, 17), -1);
  EXPECT_STREQ(out, "");
  EXPECT_EQ(translate_datetime(&when, 2, "de", out, 18), 0);
  EXPECT_STREQ(out, "30.03.2025, 01:30");
  EXPECT_EQ(out[18], 'x');
  EXPECT_EQ(Host::zoneOfTimeInWords(), "Mitteleuropäische Normalzeit, UTC+1");
  EXPECT_EQ(translate_datetime(&when, 3, "de", out, sizeof out), -1);
  EXPECT_EQ(translate_datetime(nullptr, 2, "de", out, sizeof out), -1);
  EXPECT_STREQ(out, "");
}

TEST_F(TextTest, UrlEscapeKeepsUnreservedBytesOnlyWhateverTheStreamsFlags) {
  std::ostringstream out;
  out << std::hex << std::showbase << std::left << std::setfill('#') << "x=" << std::setw(2000);
  vlm_url_escape_str(out, "azAZ09-._~");
  EXPECT_EQ(out.str(), "x=azAZ09-._~");
  vlm_url_escape_str(out, "/:@[`{ %+,&\0\n\x7f\xc3\xbf"s);
  EXPECT_EQ(out.str().substr(12), "%2F%3A%40%5B%60%7B%20%25%2B%2C%26%00%0A%7F%C3%BF");
}

TEST_F(TextTest, HtmlEncodeAndTrimLeft) {
  EXPECT_EQ(vlm_html_encode("<a b=\"x\" c='y'>&amp;"), "&lt;a b=&quot;x&quot; c=&#39;y&#39;&gt;&amp;amp;");
  EXPECT_EQ(vlm_html_encode("\0<\xff \xc3\xb6\n"s), "\0&lt;\xff \xc3\xb6\n"s);
  char text[] = " \t\n\v\f\r\xc2\xa0 a";
  EXPECT_EQ(trim_left(text), text + 6);
}

TEST_F(TextTest, BuildHttpUrl) {
  using Row = std::tuple<std::uint32_t, int, std::string>;  // "" = refused
  const std::vector<Row> rows = {{443, 1, "https://[::1]"},
                                 {1, 1, "https://[::1]:1"},
                                 {80, 0, "http://[::1]"},
                                 {443, 0, "http://[::1]:443"},
                                 {65535, 1, "https://[::1]:65535"},
                                 {0, 1, ""},
                                 {65536, 1, ""}};
  for (const auto& [port, secure, want] : rows) {
    const auto length = static_cast<int>(want.size());
    std::string out(40, 'x');
    const int size = length ? length + 1 : 40;
    EXPECT_EQ(vlm_build_http_url("[::1]", port, secure, out.data(), size), length ? length : -1) << port;
    EXPECT_EQ(out, want + '\0' + std::string(39 - want.size(), 'x')) << port;
    for (const int few : {length, 1, 0}) {
      out.assign(40, 'x');
      EXPECT_EQ(vlm_build_http_url("[::1]", port, secure, out.data(), few), -1) << port;
      EXPECT_EQ(out[0], few ? '\0' : 'x') << port;
    }
  }
  EXPECT_EQ(vlm_build_http_url("[::1]", 80, 0, nullptr, 40), -1);
}

TEST_F(TextTest, IpAddresses) {
  char out[64];
  for (const std::string text : {"255.0.2.1", "2001:db8::1", "::ffff:192.0.2.1"}) {
    vlm_ip_address address{};
    EXPECT_EQ(vlm_string_to_ip(text, &address), 1) << text;
    EXPECT_EQ(address.family, text.find(':') == std::string::npos ? 2U : 10U) << text;
    const auto exact = static_cast<int>(text.size()) + 1;
    EXPECT_EQ(vlm_ip_to_string(address, out, exact, 1), 0) << text;
    EXPECT_EQ(out, text);
    EXPECT_EQ(vlm_ip_to_string(address, out, exact - 1, 1), -1) << text;
  }
  vlm_ip_address kept{77, {}};
  for (const auto& refused :
       {""s, "192.0.2"s, "0x7f.0.0.1"s, " 192.0.2.1"s, "192.0.2.1\0"s, "[::1]"s, "fe80::1%eth0"s}) {
    EXPECT_EQ(vlm_string_to_ip(refused, &kept), 0) << refused;
    EXPECT_EQ(kept.family, 77U) << refused;
  }
  out[0] = 'x';
  EXPECT_EQ(vlm_ip_to_string(kept, out, 64, 1), -1);
  EXPECT_STREQ(out, "");
}

std::string md5Of(const std::string& text, const std::vector<std::uint32_t>& keys) {
  Md5Hasher hasher;
  EXPECT_THROW(hasher.xorDigest(1), Exception);
  EXPECT_THROW(hasher.digestAsHexString(), Exception);
  for (const char c : text) hasher.update(&c, 1);
  hasher.update(nullptr, 0);
  hasher.finalize();
  EXPECT_THROW(hasher.update("d", 1), Exception);
  for (const std::uint32_t key : keys) hasher.xorDigest(key);
  return hasher.digestAsHexString();
}

TEST_F(TextTest, Md5WithKeysFoldedInAsLittleEndianWordsInThisOrderOfCallsOnly) {
  EXPECT_EQ(md5Of("", {}), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(md5Of("abc", {0xff000000, 1}), "910150673dd24f4fd7963f8229e17f8d");
  EXPECT_EQ(md5Of("abc", {0x5d2a7c31, 0x5d2a7c31}), "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
}  // namespace Velmar
