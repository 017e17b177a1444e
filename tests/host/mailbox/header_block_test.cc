// Header blocks: the ordinary, the damaged and the hostile.

#include "host/mailbox/header_block.h"

#include <gtest/gtest.h>

#include <chrono>

namespace Velmar::Host {
namespace {

using namespace std::string_literals;

struct FieldCase {
  const char* what;
  std::string text;
  std::string name;
  std::optional<std::string> want;
  bool wantComplete = true;
};

const FieldCase kFields[] = {
    {"LF", "From: a\nSubject: b c\n\nbody", "Subject", "b c"},
    {"CR LF", "From: a\r\nSubject: b c\r\n\r\nbody", "Subject", "b c"},
    {"lone CR", "From: a\rSubject: b c\r\rbody", "Subject", "b c"},
    {"CR CR LF", "From: a\r\r\nSubject: b c\r\r\n\r\r\nTo: x", "Subject", "b c"},
    {"CR CR LF ends the header once", "From: a\r\r\nSubject: b\r\r\n\r\r\nTo: x", "To", std::nullopt},
    {"mixed line ends", "A: 1\r\nB: 2\nC: 3\rD: 4\n\r\nE: 5", "D", "4"},
    {"mixed line ends, body", "A: 1\r\nB: 2\nC: 3\rD: 4\n\r\nE: 5", "E", std::nullopt},
    {"case of the name", "SUBJECT: x\n\n", "subjecT", "x"},
    {"only ASCII case", "\xc4: x\n\n", "\xe4", std::nullopt},
    {"the first of two", "Subject: one\nsubject: two\n\n", "Subject", "one"},
    {"an empty first one wins too", "Subject:\nSubject: two\n\n", "Subject", ""},
    {"absent", "Subject: x\n\n", "From", std::nullopt},
    {"longer name", "Subject-X: x\n\n", "Subject", std::nullopt},
    {"shorter name", "Subj: x\n\n", "Subject", std::nullopt},
    {"blank before the colon", "Subject \t: x\n\n", "Subject", "x"},
    {"blank inside the name", "Sub ject: x\n\n", "Subject", std::nullopt},
    {"folded at a blank", "Subject: a\n b\n\n", "Subject", "a b"},
    {"folded at a tab", "Subject: a\r\n\t b\r\n\r\n", "Subject", "a\t b"},
    {"folded with lone CR", "Subject: a\r b\r\rbody", "Subject", "a b"},
    {"folded before the value", "Subject:\n a\n\n", "Subject", "a"},
    {"fold of blanks only does not end the header", "Subject: a\n \t\n b\nTo: c\n\n", "Subject", "a \t b"},
    {"field after such a fold", "Subject: a\n \t\n b\nTo: c\n\n", "To", "c"},
    {"trimmed", "Subject: \t a b \t \n\n", "Subject", "a b"},
    {"no blank after the colon", "Subject:a\n\n", "Subject", "a"},
    {"colons in the value", "Subject: a: b: c\n\n", "Subject", "a: b: c"},
    {"name inside a value", "To: x\n Subject: y\n\n", "Subject", std::nullopt},
    {"NUL", "Subject: a\0b\nTo: c\n\n"s, "Subject", "a\0b"s},
    {"field after NUL", "Subject: a\0b\nTo: c\n\n"s, "To", "c"},
    {"8-bit and encoded words stay", "Subject: \xff\xfe =?utf-8?Q?=41?=\n\n", "Subject", "\xff\xfe =?utf-8?Q?=41?="},
    {"mbox line", "From u@h Sun Nov 22 10:00:00 2026\nFrom: a\n\n", "From", "a"},
    {"quoted mbox line", ">From u@h Sun Nov 22 10:00:00 2026\nFrom: a\n\n", "From", "a"},
    {"line without colon", "rubbish\nFrom: a\n\n", "From", "a"},
    {"folds of rubbish are rubbish", "rubbish\n From: b\nFrom: a\n\n", "From", "a"},
    {"begins with a fold", " From: b\nFrom: a\n\n", "From", "a"},
    {"begins with a colon", ": b\nFrom: a\n\n", "From", "a"},
    {"begins with an empty line", "\nFrom: a\n\n", "From", std::nullopt},
    {"no end", "From: a\nTo: b", "To", "b", false},
    {"ends in the line end", "From: a\nTo: b\n", "To", "b", false},
    {"ends in CR, which a LF may follow", "From: a\r\nTo: b\r", "To", "b", false},
    {"ends in CR CR, which a LF may follow", "From: a\r\nTo: b\r\r", "To", "b", false},
    {"ends inside the name", "From: a\nTo", "To", std::nullopt, false},
    {"empty text", "", "From", std::nullopt, false},
    {"empty name", ": x\n\n", "", std::nullopt},
    {"name with a colon", "From: a\n\n", "From:", std::nullopt},
};

TEST(HeaderBlock, FindsFields) {
  for (const FieldCase& c : kFields) {
    const HeaderBlock block(c.text);
    EXPECT_EQ(block.find(c.name), c.want) << c.what;
    EXPECT_EQ(block.complete(), c.wantComplete) << c.what;
  }
}

std::string repeated(const std::string& text, std::size_t size) {
  std::string result;
  while (result.size() < size) result += text;
  return result;
}

// Each would take minutes if a byte were looked at once for each line or field.
TEST(HeaderBlock, HostileBlocksTakeLinearTime) {
  constexpr std::size_t kSize = 1024 * 1024;
  const std::string units[] = {"a\n", "a:\n", "x\r", ":\r\n", "a: b\n c\n", "\n ", " \r", "Subjec:\n", "\r\r\r\na"};
  const auto start = std::chrono::steady_clock::now();
  for (const std::string& unit : units) {
    const HeaderBlock block("To: x\n" + repeated(unit, kSize) + "\nSubject: last\n\n");
    EXPECT_EQ(block.find("To").value_or("none").front(), 'x') << unit;
    block.find("Subject");
    block.find("Absent");
  }
  const HeaderBlock folded("Subject: x" + repeated("\n  y", kSize) + "\n\n");
  EXPECT_GT(folded.find("Subject").value_or("").size(), kSize / 2);
  const HeaderBlock blank("Subject: " + repeated(" \n\t", kSize) + "\n\n");
  EXPECT_EQ(blank.find("Subject"), "");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
}  // namespace Velmar::Host
