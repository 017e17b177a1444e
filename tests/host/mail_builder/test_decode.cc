// Raw header values to UTF-8: what senders write, and what hostile ones do.

#include <gtest/gtest.h>
#include <unicode/unistr.h>

#include <random>
#include <string>
#include <vector>

#include "host/mail_builder/utf8.h"
#include "platform/mail_builder.h"

namespace Velmar {
namespace {

using namespace std::string_literals;

std::string decoded(const std::string& raw, const QRLStaticCharSetFallbacks* fallbacks = nullptr) {
  Buffer out;
  stringToUtf8(raw, out, fallbacks);
  return std::string(out.data() ? out.data() : "", out.length());
}

struct Case {
  const char* why;
  std::string raw;
  std::string want;
};

void expectAll(const std::vector<Case>& cases) {
  for (const Case& c : cases) EXPECT_EQ(decoded(c.raw), c.want) << c.why << ": " << c.raw;
}

TEST(DecodeTest, EncodedWords) {
  expectAll({
      {"nothing to decode", "Re: 10% off (really?)", "Re: 10% off (really?)"},
      {"both encodings in lower case", " =?utf-8?b?R3LDvMOfZQ==?= =?utf-8?q?_=c3=af?=", " Grüße ï"},
      {"text without blanks around", "\"=?utf-8?Q?=C3=BC?=\" <a@b>", "\"ü\" <a@b>"},
      {"blanks and folds between words go",
       "=?utf-8?Q?a?= \t =?utf-8?Q?b?=\r\n =?utf-8?Q?c?=\n\t=?utf-8?Q?d?=", "abcd"},
      {"empty words", "=?utf-8?Q?\?==?utf-8?B?\?=x", "x"},
      {"decoded once", "=?utf-8?Q?=3D=3Futf-8=3FQ=3Fx=3F=3D?=", "=?utf-8?Q?x?="},
      {"question and equals signs inside Q", "=?utf-8?Q?=wh=0y?_=~0?\?=", "=wh=0y? =~0?"},
      {"a word that ends in an equals sign", "=?utf-8?Q?a=3D?= =?utf-8?Q?a=?=", "a=a="},
      {"padding in the middle of a word", "=?UTF-8?B?SGVsbG8= \t\r\nIHdvcmxk?=", "Hello world"},
      {"a lone last digit", "=?UTF-8?B?SGVsbG8hS?=", "Hello!"},
      {"a character split between Q and B", "=?UTF-8?Q?Gr=C3?= =?utf-8?B?vMOfZQ==?=", "Grüße"},
      {"foreign characters in base64", "=?utf-8?B?a*b?=", "=?utf-8?B?a*b?="},
      {"one base64 digit", "=?utf-8?B?S?=", "=?utf-8?B?S?="},
      {"the next word is sound", "=?=?utf-8?Q?=C3=BC?= =?utf-8?Q?abc =?utf-8?Q?=C3=BC?=", "=?ü =?utf-8?Q?abc ü"},
      {"no words", "b?\?= =?utf 8?Q?x?= =?utf-8?QQ?x?= =?utf-8", "b?\?= =?utf 8?Q?x?= =?utf-8?QQ?x?= =?utf-8"},
      {"blanks beside a broken word stay", "=?utf-8?Q?a?= =?utf-8?Z?b?= =?utf-8?Q?c?=", "a =?utf-8?Z?b?= c"},
  });
}

TEST(DecodeTest, Charsets) {
  expectAll({
      {"gb18030 under the name of gb2312", "=?gb2312?B?yP3N8qPf6UY=?=", "三万＿镕"},
      {"big5 of Hong Kong", "=?big5?B?x1U=?=", "の"},
      {"windows-949 under its number", "=?cp949?B?lVc=?=", "뷭"},
      {"a name of senders' own", "=?X-GBK?B?gUA=?= =?x-nonsense?Q?=FC?=", "丂ü"},
      {"a split character beside a wrong word",
       "=?gb2312?Q?=C3?= =?gb2312?Q?=BC?= =?gb2312?Q?a?= =?gb2312?Q?=FF?=", "眉aÿ"},
      {"iso-2022-jp, one state a word", "=?ISO-2022-JP?B?GyRCRnxLXA==?= =?ISO-2022-JP?Q?abcd?=", "日本abcd"},
      {"unknown, UTF-8 does not fit", "=?x-nonsense?Q?Gr=FC=DFe?=", "Grüße"},
      {"wrong: UTF-8 as Big5, which fits more than half", "=?big5?Q?Gr=C3=BC=C3=BC=C3=9Fe?=", "Grüüße"},
      {"one wrong word of three", "=?utf-8?Q?=C3=BC?= =?utf-8?Q?_=FC=C3=BC_?= =?utf-8?Q?=C3=9F?=", "ü üÃ¼ ß"},
      {"Shift_JIS cut in mid-character", "=?shift_jis?B?k/qWe4w=?=", "日本\uFFFD"},
      {"a charset that ICU knows and Debian leaves out", "=?macos-37_5-10.2?Q?=C3=BC?=", "ü"},
      {"an option of ICU's", "=?utf-8,version=1?Q?=C3=BC?=", "ü"},
  });
}

TEST(DecodeTest, RawBytesAndControls) {
  expectAll({
      {"damaged UTF-8", "f\xC3\xBCr \xC2\x80 \xE2\x82", "für   \uFFFD"},
      {"controls", "a\tü\x01z\x7fy\0x"s, "a ü z y x"},
      {"nothing but a control", "a\x7f", "a "},
      {"line ends that fold nothing", "a\rb\nc\r\nd\r\n", "a b c  d  "},
      {"a fold after a word, none after a blank", "\n\n a\r\n b\n\tc \nd", "  a b c  d"},
      {"encoded line ends", "=?utf-8?Q?a=0D=0AX-Evil:_1=00=01=09b?=", "a  X-Evil: 1   b"},
      {"C1 and line separators", "a\u0085b\u009Fc\u2028d\u2029e\u00A0", "a b c d e\u00A0"},
  });
  EXPECT_EQ(Host::oneLine(std::string_view("üü").substr(0, 3)), "ü\uFFFD") << "what follows was read";
}

TEST(DecodeTest, DamageShowsWhereNoFallbackFits) {
  struct Ascii final : QRLStaticCharSetFallbacks {
    const std::vector<std::string> names{"us-ascii"};
    const std::vector<std::string>& charsets() const override { return names; }
  } ascii;
  EXPECT_EQ(decoded("=?none?Q?=FC?= =?shift_jis?Q?=93=FA=FF?= a", &ascii), "\uFFFD日\uFFFD a");
}

TEST(DecodeTest, WordsOfAnyLengthInAnyCharsetGiveTheirText) {
  const std::pair<const char*, const char16_t*> cases[] = {
      {"utf-8", u"aü日😀"},     {"iso-8859-2", u"žő="},   {"windows-1251", u"Жя?"}, {"koi8-u", u"їґ "},
      {"iso-8859-6", u"عش"},   {"windows-1255", u"ש₪"},  {"iso-8859-7", u"λΩ"},    {"tis-620", u"ก฿"},
      {"cp1252", u"€“ÿ"},      {"shift_jis", u"日表ｱA"}, {"euc-jp", u"日ｱ髙A"},    {"euc-kr", u"한글A"},
      {"gb2312", u"中文A"},    {"gb18030", u"中😀ő1"},    {"big5", u"功許A"},       {"iso-2022-jp", u"日A"},
      {"iso-2022-kr", u"한A"}, {"hz", u"中~"},           {"utf-7", u"日+A"},       {"utf-16", u"日A"}};
  std::mt19937 random(11);
  for (const auto& [charset, text16] : cases) {
    const icu::UnicodeString characters(text16);
    const bool firstState =
        std::string_view("iso-2022-jp iso-2022-kr hz utf-7 utf-16").find(charset) != std::string::npos;
    for (int round = 0; round < 200; ++round) {
      icu::UnicodeString text;
      for (auto count = 1 + random() % 20; count > 0; --count) {
        text += characters.char32At(static_cast<std::int32_t>(random() % static_cast<unsigned>(characters.length())));
      }
      std::string want, raw, bytes(500, '\0');
      text.toUTF8String(want);
      bytes.resize(static_cast<std::size_t>(text.extract(0, text.length(), bytes.data(), 500, charset)));
      // Words of up to 20 bytes, cut anywhere; one where each begins in the first state. Some senders leave out "=".
      for (std::size_t from = 0, length = 0; from < bytes.size(); from += length) {
        length = firstState ? bytes.size() : std::min(1 + random() % 20, bytes.size() - from);
        std::string word = Buffer(&bytes[from], static_cast<unsigned>(length), false).toBase64String();
        if (random() % 3 == 0) word.resize(word.find_last_not_of('=') + 1);
        raw += std::string("=?") + charset + "?B?" + word + "?= ";
      }
      ASSERT_EQ(decoded(raw + "=?none?Q?=FC?= " + raw), want + "ü" + want + " ") << raw;
    }
  }
}

}  // namespace
}  // namespace Velmar
