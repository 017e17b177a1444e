// Raw header values to UTF-8: what senders write, and what hostile ones do.

#include <gtest/gtest.h>

#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "host/mail_builder/charsets.h"
#include "host/mail_builder/header_encoding.h"
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
      {"empty", "", ""},
      {"Q", "=?utf-8?Q?Gr=C3=BC=c3=9fe_aus_K=C3=B6ln?=", "Grüße aus Köln"},
      {"B", "=?UTF-8?B?R3LDvMOfZQ==?=", "Grüße"},
      {"lower-case letters", "=?utf-8?b?R3LDvMOfZQ==?= =?utf-8?q?_=C3=BC?=", "Grüße ü"},
      {"language", "=?iso-8859-1*de-DE?Q?Gr=FC=DFe?=", "Grüße"},
      {"text around", "a =?utf-8?Q?=C3=BC?= b", "a ü b"},
      {"text without blanks around", "\"=?utf-8?Q?=C3=BC?=\" <a@b>", "\"ü\" <a@b>"},
      {"blanks between words go", "=?utf-8?Q?a?=  \t =?utf-8?Q?b?=", "ab"},
      {"folds between words go", "=?utf-8?Q?a?=\r\n =?utf-8?Q?b?=\r\n\t=?utf-8?Q?c?=", "abc"},
      {"blanks between words of two charsets go", "=?utf-8?Q?=C3=BC?= =?iso-8859-1?Q?=FC?=", "üü"},
      {"blanks before text stay", "=?utf-8?Q?a?= b =?utf-8?Q?c?=", "a b c"},
      {"words without a blank between", "=?utf-8?Q?a?==?utf-8?Q?b?=", "ab"},
      {"empty words",
       "=?utf-8?Q?"
       "?==?utf-8?B?"
       "?=x",
       "x"},
      {"decoded once", "=?utf-8?Q?=3D=3Futf-8=3FQ=3Fx=3F=3D?=", "=?utf-8?Q?x?="},
      {"blanks inside Q", "=?utf-8?Q?a b=C3=BC?=", "a bü"},
      {"question mark inside Q", "=?utf-8?Q?why?_?=", "why? "},
      {"a word that ends in an equals sign", "=?utf-8?Q?a=3D?= =?utf-8?Q?a=?=", "a=a="},
      {"no charset", "=??Q?Gr=FC=DFe?=", "Grüße"},
  });
}

TEST(DecodeTest, Base64AsSendersWriteIt) {
  expectAll({
      {"padded words in sequence", "=?UTF-8?B?SGVsbG8=?= =?UTF-8?B?IHdvcmxk?=", "Hello world"},
      {"all of them padded", "=?UTF-8?B?SGVsbG8=?= =?UTF-8?B?LCA=?= =?UTF-8?B?SGk=?=", "Hello, Hi"},
      {"padding in the middle of a word", "=?UTF-8?B?SGVsbG8=IHdvcmxk?=", "Hello world"},
      {"without padding", "=?UTF-8?B?SGVsbG8?= =?UTF-8?B?SGk?=", "HelloHi"},
      {"surplus padding", "=?UTF-8?B?SGVsbG8====?=", "Hello"},
      {"blanks and folds inside", "=?UTF-8?B?SGVs\r\n bG8=?=", "Hello"},
      {"a lone last digit", "=?UTF-8?B?SGVsbG8hS?=", "Hello!"},
      {"a character split between words", "=?UTF-8?B?R3LD?= =?UTF-8?B?vMOfZQ==?=", "Grüße"},
      {"split between Q and B", "=?UTF-8?Q?Gr=C3?= =?utf-8?B?vMOfZQ==?=", "Grüße"},
      {"split twice", "=?utf-8?Q?=F0=9F?= =?utf-8?Q?=98?= =?utf-8?Q?=80?=", "😀"},
  });
}

TEST(DecodeTest, BrokenWordsStandAsWritten) {
  expectAll({
      {"no end", "=?utf-8?Q?abc", "=?utf-8?Q?abc"},
      {"no text", "=?utf-8?Q", "=?utf-8?Q"},
      {"no encoding", "=?utf-8", "=?utf-8"},
      {"start alone", "=?", "=?"},
      {"starts only", "=?=?=?", "=?=?=?"},
      {"unknown encoding", "=?utf-8?X?abc?=", "=?utf-8?X?abc?="},
      {"long encoding", "=?utf-8?BB?abc?=", "=?utf-8?BB?abc?="},
      {"foreign characters in base64", "=?utf-8?B?a*b?=", "=?utf-8?B?a*b?="},
      {"one base64 digit", "=?utf-8?B?S?=", "=?utf-8?B?S?="},
      {"blank in the charset", "=?utf 8?Q?abc?=", "=?utf 8?Q?abc?="},
      {"escape without digits", "=?utf-8?Q?100=_=G1=?=", "100= =G1="},
      {"the next word is sound", "=?utf-8?Q?abc =?utf-8?Q?=C3=BC?=", "=?utf-8?Q?abc ü"},
      {"and after broken base64", "=?utf-8?B?abc =?utf-8?Q?=C3=BC?=", "=?utf-8?B?abc ü"},
      {"blanks beside a broken word stay", "=?utf-8?Q?a?= =?utf-8?Z?b?= =?utf-8?Q?c?=", "a =?utf-8?Z?b?= c"},
  });
}

TEST(DecodeTest, Charsets) {
  expectAll({
      {"windows-1252 under the name of iso-8859-1", "=?iso-8859-1?Q?=80_=93x=94?=", "€ “x”"},
      {"windows-1251", "=?windows-1251?B?z/Do4uXy?=", "Привет"},
      {"koi8-r", "=?KOI8-R?B?8NLJ18XU?=", "Привет"},
      {"gb18030 under the name of gb2312", "=?gb2312?B?yP3N8qPf6UY=?=", "三万＿镕"},
      {"ks_c_5601-1987", "=?ks_c_5601-1987?B?vsiz58fPvLy/5A==?=", "안녕하세요"},
      {"a character of windows-949 alone", "=?euc-kr?B?jGM=?=", "똠"},
      {"big5", "=?big5?B?p0Gmbrbc?=", "你好嗎"},
      {"shift_jis, split character", "=?Shift_JIS?B?k/o=?= =?Shift_JIS?B?lns=?=", "日本"},
      {"iso-2022-jp, one state a word", "=?ISO-2022-JP?B?GyRCRnxLXBsoQg==?= =?ISO-2022-JP?B?GyRCOGwbKEI=?=", "日本語"},
      {"iso-2022-jp, a word that does not shift back",
       "=?ISO-2022-JP?B?GyRCRnxLXA==?= =?ISO-2022-JP?Q?abc?=", "日本abc"},
      {"utf-7", "=?utf-7?Q?Gr+APwA3w-e?=", "Grüße"},
      {"utf-16", "=?utf-16be?B?AEcA/A==?=", "Gü"},
      {"unknown, UTF-8 fits", "=?x-nonsense?Q?Gr=C3=BC=C3=9Fe?=", "Grüße"},
      {"unknown, UTF-8 does not fit", "=?x-nonsense?Q?Gr=FC=DFe?=", "Grüße"},
      {"wrong: Latin letters as UTF-8", "=?utf-8?Q?Gr=FC=DFe?=", "Grüße"},
      {"wrong: UTF-8 as ASCII", "=?us-ascii?Q?Gr=C3=BC=C3=9Fe?=", "Grüße"},
      {"wrong: Latin letters as ASCII", "=?us-ascii?Q?Gr=FC=DFe?=", "Grüße"},
      {"one wrong word of three", "=?utf-8?Q?=C3=BC?= =?utf-8?Q?_=FC_?= =?utf-8?Q?=C3=9F?=", "ü ü ß"},
      {"UTF-8 cut in mid-character", "=?utf-8?B?R3LDvMOfZSDi?=", "Grüße \uFFFD"},
      {"Shift_JIS cut in mid-character", "=?shift_jis?B?k/qWe4w=?=", "日本\uFFFD"},
      {"a charset that ICU knows and Debian leaves out", "=?macos-37_5-10.2?Q?=C3=BC?=", "ü"},
      {"names a path", "=?../../etc/passwd?Q?=C3=BC?=", "ü"},
      {"an option of ICU's", "=?utf-8,version=1?Q?=C3=BC?=", "ü"},
  });
}

TEST(DecodeTest, RawBytes) {
  expectAll({
      {"UTF-8",
       "Gr\xC3\xBC\xC3\x9F"
       "e",
       "Grüße"},
      {"Latin letters",
       "Gr\xFC\xDF"
       "e",
       "Grüße"},
      {"damaged UTF-8",
       "Gr\xC3\xBC\xC3\x9F"
       "e \xE2\x82",
       "Grüße \uFFFD"},
      {"overlong", "a\xC0\xAF", "aÀ¯"},
      {"beside a word", "\xFC =?utf-8?Q?=C3=BC?= \xC3\xBC", "ü ü ü"},
  });
}

TEST(DecodeTest, ControlsBecomeBlanks) {
  expectAll({
      {"raw",
       "a\tb\x01"
       "c\x7f"
       "d\0e"s,
       "a b c d e"},
      {"line ends that fold nothing", "a\rb\nc\r\nd\r\n", "a b c  d  "},
      {"folds", "a\r\n b\n\tc", "a b c"},
      {"encoded", "=?utf-8?Q?a=0D=0AX-Evil:_1=00=01=09b?=", "a  X-Evil: 1   b"},
      {"C1 and line separators", "a\u0085b\u009Fc\u2028d\u2029e", "a b c d e"},
      {"by a charset", "=?windows-1252?Q?a=81b?=", "a b"},
      {"by UTF-7", "=?utf-7?Q?a+AAoADQ-b?=", "a  b"},
  });
}

class OneFallback final : public QRLStaticCharSetFallbacks {
 public:
  explicit OneFallback(std::vector<std::string> names) : names_(std::move(names)) {}
  const std::vector<std::string>& charsets() const override { return names_; }

 private:
  std::vector<std::string> names_;
};

TEST(DecodeTest, CallersFallbacks) {
  const OneFallback cyrillic({"utf-8", "koi8-r"});
  EXPECT_EQ(decoded("\xF0\xD2\xC9\xD7\xC5\xD4", &cyrillic), "Привет");
  EXPECT_EQ(decoded("=?x-what?B?8NLJ18XU?=", &cyrillic), "Привет");
  const OneFallback useless({"x-nothing", "us-ascii"});
  EXPECT_EQ(decoded("a\xFC z", &useless), "a\uFFFD z");
  const OneFallback none({});
  EXPECT_EQ(decoded("=?shift_jis?B?k/qWe4w=?= \xFC", &none), "日本\uFFFD \uFFFD");
}

TEST(DecodeTest, StandardListEndsWithOneThatTakesAnyBytes) {
  const auto list = RefQRLStaticCharSetFallbacks::instance();
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  std::string text;
  EXPECT_EQ(Host::appendAsUtf8(Host::findCharset(list->charsets().back()), all, text).malformed, 0U);
  EXPECT_EQ(&list->charsets(), &RefQRLStaticCharSetFallbacks::instance()->charsets());
}

/// Whatever comes in, one line of valid UTF-8 comes out.
bool isCleanLine(const std::string& text) {
  return Host::utf8Quality(text).malformed == 0 && Host::oneLine(text) == text;
}

TEST(DecodeTest, AnyBytesGiveACleanLine) {
  std::mt19937 random(7);
  const std::vector<std::string> pieces = {"=?",       "?=",      "?Q?",    "?B?",        "utf-8", "iso-2022-jp", "=",
                                           "_",        " ",       "\r\n",   "\xC3",       "\xBC",  "\x80",        "hz",
                                           "SGVsbG8=", "~{",      "\x1b$B", "\0"s,        "scsu",  "utf-7",       "+AA",
                                           "\xFF",     "gb18030", "=81",    "=?hz?Q?~{?="};
  for (int round = 0; round < 20000; ++round) {
    std::string raw;
    for (auto count = random() % 24; count > 0; --count) raw += pieces[random() % pieces.size()];
    ASSERT_TRUE(isCleanLine(decoded(raw))) << raw;
  }
}

std::string randomText(std::mt19937& random) {
  static const std::vector<std::string> kCharacters = {"a", "Z", "9",  " ",  " ", "=", "?", "=?", "?=", "_", "\"",
                                                       "ü", "ß", "日", "本", "😀", "é", "é", "<",  "@",  ","};
  std::string text = "x";
  for (auto count = random() % 120; count > 0; --count) text += kCharacters[random() % kCharacters.size()];
  return text + "x";
}

TEST(DecodeTest, UndoesTheEncoding) {
  std::mt19937 random(11);
  for (int round = 0; round < 5000; ++round) {
    const std::string text = randomText(random);
    const std::string encoded = Host::encodeUnstructured(text);
    ASSERT_EQ(decoded(encoded), text) << encoded;
    const std::string field = Host::foldedField("Subject", encoded);
    ASSERT_EQ(decoded(field.substr(9, field.size() - 11)), text) << field;
  }
}

TEST(DecodeTest, LinearTimeOnHostileValues) {
  struct Pattern {
    const char* why;
    std::string piece;
  };
  const std::vector<Pattern> patterns = {
      {"words", "=?utf-8?B?SGVsbG8=?= "},
      {"damaged words", "=?utf-8?Q?=FC=C3?= "},
      {"words that never end, B", "=?a?B?x"},
      {"words that never end, Q", "=?a?Q?x"},
      {"starts", "=?"},
      {"text with question marks", "=?a?Q?b?b"},
      {"bytes between words", "=?utf-8?Q?x?=\xFC"},
      {"folds", "\r\n "},
  };
  for (const Pattern& pattern : patterns) {
    std::string raw;
    for (int i = 0; i < 300000; ++i) raw += pattern.piece;
    const std::clock_t start = std::clock();
    EXPECT_TRUE(isCleanLine(decoded(raw)));
    // Of processor time, since machines are busy: seconds at most when linear, hours when quadratic.
    EXPECT_LT(std::clock() - start, 60 * CLOCKS_PER_SEC) << pattern.why;
  }
}

TEST(DecodeTest, ManyCharsetsInOneValue) {
  const std::vector<std::string> names = {"koi8-r",      "windows-1250", "windows-1251", "windows-1253", "windows-1254",
                                          "iso-8859-2",  "iso-8859-3",   "iso-8859-4",   "iso-8859-5",   "iso-8859-6",
                                          "iso-8859-7",  "iso-8859-8",   "iso-8859-10",  "iso-8859-13",  "iso-8859-14",
                                          "iso-8859-15", "ibm850",       "ibm866",       "macintosh",    "shift_jis",
                                          "euc-jp",      "big5",         "gb18030",      "iso-2022-jp",  "hz-gb-2312"};
  std::string raw;
  std::string want;
  for (int i = 0; i < 20000; ++i) {
    raw += "=?" + names[static_cast<std::size_t>(i) % names.size()] + "?Q?x?= =?x-unknown-" + std::to_string(i) +
           "?Q?y?= ";
    want += "xy";
  }
  EXPECT_EQ(decoded(raw), want + " ");
}

}  // namespace
}  // namespace Velmar
