// Dates in words. The process runs under a French locale, which no answer may show unless French is asked for.

#include <gtest/gtest.h>
#include <unicode/locid.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/text_network.h"

namespace Velmar {
namespace {

class DateTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    for (const char* name : {"LC_ALL", "LANG", "LANGUAGE"}) ::setenv(name, "fr_FR.UTF-8", 1);
    ::setenv("TZ", "Asia/Kathmandu", 1);
    ::tzset();
    std::setlocale(LC_ALL, "");  // takes effect where the system has French; ICU is told in any case
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale::getFrance(), status);
    ASSERT_TRUE(U_SUCCESS(status));
  }
};

std::tm fields(int year, int month, int day, int hour, int minute) {
  std::tm when{};
  when.tm_year = year - 1900;
  when.tm_mon = month - 1;
  when.tm_mday = day;
  when.tm_hour = hour;
  when.tm_min = minute;
  when.tm_isdst = -1;
  return when;
}

/// The date in words, or "failed" when the operation says so.
std::string inWords(const std::tm& when, const char* language) {
  char out[1024] = "unwritten";
  const int status = translate_datetime(&when, 2, language, out, sizeof out);
  EXPECT_EQ(status == 0, out[0] != '\0');
  return status == 0 ? out : "failed";
}

const std::tm kEvening = fields(2025, 11, 22, 19, 27);
constexpr char kEnglish[] = "Nov 22, 2025, 7:27 PM";

TEST_F(DateTest, SpeaksTheLanguageAskedForAndElseEnglish) {
  const std::string tenThousand(10000, 'd');
  const std::string hostile = "de" + std::string(10000, '-');
  struct Row {
    const char* language;
    std::string want;
  };
  const std::vector<Row> rows = {
      {"de", "22.11.2025, 19:27"},
      {"DE", "22.11.2025, 19:27"},
      {"de-DE", "22.11.2025, 19:27"},
      {"de_DE", "22.11.2025, 19:27"},
      {"de_DE.UTF-8", "22.11.2025, 19:27"},
      {"de-AT", "22.11.2025, 19:27"},
      {"de_AT", "22.11.2025, 19:27"},
      {"de_ZZ", "22.11.2025, 19:27"},
      {"ja", "2025/11/22 19:27"},
      {"fr", "22 nov. 2025, 19:27"},
      {"en", kEnglish},
      {"en-GB", "22 Nov 2025, 19:27"},
      {"pt-BR", "22 de nov. de 2025, 19:27"},
      {"zh-TW", "2025年11月22日 晚上7:27"},
      {"zh_TW", "2025年11月22日 晚上7:27"},
      {"zh-CN", "2025年11月22日 19:27"},
      {nullptr, kEnglish},
      {"", kEnglish},
      {"C", kEnglish},
      {"POSIX", kEnglish},
      {"xx", kEnglish},
      {"ch", kEnglish},
      {"klingon", kEnglish},
      {"root", kEnglish},
      {"-", kEnglish},
      {"_fr", kEnglish},
      {".", kEnglish},
      {"@calendar=buddhist", kEnglish},
      {"../../etc/passwd", kEnglish},
      {"de\xff\n", kEnglish},
      {"<b>", kEnglish},
      {"%s%n", kEnglish},
      {tenThousand.c_str(), kEnglish},
      {hostile.c_str(), kEnglish},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(inWords(kEvening, row.language), row.want) << "of " << (row.language ? row.language : "null");
    EXPECT_EQ(inWords(kEvening, row.language), row.want) << "again of " << (row.language ? row.language : "null");
  }
}

TEST_F(DateTest, HasNoNoBreakSpacesInAnyLanguage) {
  int32_t count = 0;
  const icu::Locale* locales = icu::Locale::getAvailableLocales(count);
  ASSERT_GT(count, 100);
  for (int32_t i = 0; i < count; ++i) {
    const std::string text = inWords(kEvening, locales[i].getName());
    EXPECT_NE(text, "failed") << locales[i].getName();
    EXPECT_EQ(text.find("\xe2\x80\xaf"), std::string::npos) << locales[i].getName();
    EXPECT_EQ(text.find("\xc2\xa0"), std::string::npos) << locales[i].getName();
  }
}

TEST_F(DateTest, ShowsTheFieldsAsTheyAreForAnyDate) {
  std::mt19937 random(1);
  for (int i = 0; i < 3000; ++i) {
    const auto upTo = [&random](unsigned n) { return static_cast<int>(random() % n); };
    const int year = 1 + upTo(9999), month = 1 + upTo(12), day = 1 + upTo(28), hour = upTo(24), minute = upTo(60);
    char want[64];
    std::snprintf(want, sizeof want, "%02d.%02d.%d, %02d:%02d", day, month, year, hour, minute);
    ASSERT_EQ(inWords(fields(year, month, day, hour, minute), "de"), want);
  }
}

TEST_F(DateTest, NormalisesFieldsOutOfRange) {
  EXPECT_EQ(inWords(fields(2025, 13, 1, 0, 0), "de"), "01.01.2026, 00:00");
  EXPECT_EQ(inWords(fields(2024, 2, 30, 24, 60), "de"), "02.03.2024, 01:00");
  EXPECT_EQ(inWords(fields(2025, 1, 0, -1, -1), "de"), "30.12.2024, 22:59");
  EXPECT_EQ(inWords(fields(1969, 12, 31, 23, 59), "de"), "31.12.1969, 23:59");
  std::tm lastSecond = fields(1969, 12, 31, 23, 59);
  lastSecond.tm_sec = 59;  // the time -1, which is also timegm's sign of failure
  EXPECT_EQ(inWords(lastSecond, "de"), "31.12.1969, 23:59");
  std::tm beyond{};
  beyond.tm_year = 2147483647;
  EXPECT_EQ(inWords(beyond, "de"), "failed");
}

TEST_F(DateTest, FillsTheBufferWholeOrNotAtAll) {
  const std::string want = "22.11.2025, 19:27";
  for (std::size_t size = 1; size < want.size() + 3; ++size) {
    std::string out(want.size() + 4, 'x');
    const bool fits = size > want.size();
    EXPECT_EQ(translate_datetime(&kEvening, 2, "de", out.data(), size), fits ? 0 : -1) << "size " << size;
    EXPECT_EQ(std::string(out.c_str()), fits ? want : "") << "size " << size;
    EXPECT_EQ(out.substr(size).find_first_not_of('x'), std::string::npos) << "size " << size;
  }
  char out[64] = "x";
  EXPECT_EQ(translate_datetime(&kEvening, 2, "de", out, 0), -1);
  EXPECT_STREQ(out, "x");
  EXPECT_EQ(translate_datetime(&kEvening, 2, "de", nullptr, 10), -1);
  EXPECT_EQ(translate_datetime(nullptr, 2, "de", out, sizeof out), -1);
  EXPECT_STREQ(out, "");
  out[0] = 'x';
  EXPECT_EQ(translate_datetime(&kEvening, 3, "de", out, sizeof out), -1);
  EXPECT_STREQ(out, "");
}

TEST_F(DateTest, ThreadsWithManyLanguagesDoNotDisturbEachOther) {
  // more languages than a thread keeps formatters for
  std::vector<std::string> languages, want;
  for (char a = 'a'; a <= 'z'; ++a) {
    for (const char* b : {"a", "e", "r", "t"}) languages.push_back(a + std::string(b));
  }
  for (const std::string& language : languages) want.push_back(inWords(kEvening, language.c_str()));
  std::vector<std::thread> threads;
  std::vector<int> wrong(3);
  for (std::size_t t = 0; t < wrong.size(); ++t) {
    threads.emplace_back([&, t] {
      for (std::size_t n = 0; n < 2 * languages.size(); ++n) {
        const std::size_t i = (n * 7 + t) % languages.size();
        wrong[t] += inWords(kEvening, languages[i].c_str()) != want[i];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(3));
}

}  // namespace
}  // namespace Velmar
