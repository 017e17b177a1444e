// Header blocks: the ordinary, the damaged and the hostile.

#include "host/mailbox/header_block.h"

#include <gtest/gtest.h>

namespace Velmar::Host {
namespace {

TEST(HeaderBlock, FindsFields) {
  const struct {
    std::string text, name;
    std::optional<std::string> want;
    bool wantComplete = true;
  } cases[] = {
      {"From: a\r\r\nSubject: b\r\r\n\r\r\nTo: x", "To", std::nullopt},
      {"A: 1\r\nB: 2\nC: 3\rD: 4\n\r\nE: 5", "E", std::nullopt},
      {"A: 1\rB: 2\rAZ: 3\r\rC: 4", "az", "3"},
      {"A: 1\rB: 2\rAZ: 3\r\rC: 4", "C", std::nullopt},
      {"\xc4: x\n\n", "\xe4", std::nullopt},
      {"SUBJECT:\nSubject: two\n\n", "subjecT", ""},
      {"Subject-X: x\nSubj: x\nSub ject: x\nSubtext: x\n\n", "Subject", std::nullopt},
      {"Subject \t :a: b\n\n", "Subject", "a: b"},
      {"Subject:\r\n\t a\r\n \t\r\n b \t\r\nTo: c\r\n\r\n", "Subject", "a \t b"},
      {"Subject: a\n \t\n b\nTo: c\n\n", "To", "c"},
      {"To: x\n Subject: y\n\n", "Subject", std::nullopt},
      {std::string("Subject: a\0b\n\n", 14), "Subject", std::string("a\0b", 3)},
      {" From: b\n: b\n>From u@h\n From: b\nFrom: a\nTo: c\n\n", "From", "a"},
      {"\nFrom: a\n\n", "From", std::nullopt},
      {"From: a\r\nTo: b\r\r", "To", "b", false},  // a LF may follow
      {"", "From", std::nullopt, false},
      {": x\n\n", "", std::nullopt},
  };
  for (const auto& c : cases) {
    const HeaderBlock block(c.text);
    EXPECT_EQ(block.find(c.name), c.want) << c.text;
    EXPECT_EQ(block.complete(), c.wantComplete) << c.text;
  }
}

}  // namespace
}  // namespace Velmar::Host
