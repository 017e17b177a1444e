// The address parser: tables of what is an address and what is not, and hostile input of the greatest size.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/types.h"
#include "tests/support/thrown_by.h"

namespace Velmar {
namespace {

using namespace std::string_literals;
using Addresses = std::vector<std::string>;

EmailAddress parse(const std::string& text) { return EmailAddress::rfc5322Parse(text, true); }

Addresses parseSet(const std::string& text, bool requireDomain = true) {
  Addresses addresses;
  for (const EmailAddress& a : EmailAddress::rfc5322ParseSet(text, requireDomain, false)) {
    addresses.push_back(a.address());
  }
  return addresses;
}

using Accepted = std::pair<std::string, std::string>;  // a text, and "LOCAL|DOMAIN|DISPLAY"

void expectAccepted(const std::vector<Accepted>& rows, bool requireDomain) {
  for (const auto& [text, want] : rows) {
    const EmailAddress got = EmailAddress::rfc5322Parse(text, requireDomain);
    EXPECT_EQ(got.localPart() + "|" + got.domain() + "|" + got.displayName(), want) << "of " << text;
    EXPECT_EQ(got.asString(), got.domain().empty() ? got.localPart() : got.localPart() + "@" + got.domain());
    EXPECT_FALSE(got.isEmptyAddress()) << "of " << text;
  }
}

void expectRefused(const std::vector<std::string>& rows, bool requireDomain) {
  for (const std::string& text : rows) {
    const EmailAddress got = EmailAddress::rfc5322Parse(text, requireDomain);
    EXPECT_EQ(got.localPart() + got.domain() + got.displayName() + got.address(), "") << "of \"" << text << "\"";
  }
}

TEST(EmailAddressParse, AcceptsMailboxes) {
  const std::vector<Accepted> rows = {
      {"A.b+tag=x@Example.COM", "A.b+tag=x|Example.COM|"},
      {"!#$%&'*+-/=?^_`{|}~@b", "!#$%&'*+-/=?^_`{|}~|b|"},
      {R"("a\"b\\c@d, e"@x)", R"("a\"b\\c@d, e"|x|)"},
      {"a@[IPv6:2001:db8::1]", "a|[IPv6:2001:db8::1]|"},
      {"a@[ x y ]", "a|[ x y ]|"},
      {"Joe\t Public\r\n <a@b>", "a|b|Joe Public"},
      {"Dr. J.R. Public <a@b>", "a|b|Dr. J.R. Public"},
      {R"("Public, Joe \"Q\" \\" <a@b>)", R"(a|b|Public, Joe "Q" \)"},
      {"\"\" <a@b>", "a|b|"},
      {"\"Joe\r\n Q\tPublic\" <a@b>", "a|b|Joe Q Public"},
      {"Joe(x)Public\"Q\"<a@b>", "a|b|Joe PublicQ"},
      {"=?UTF-8?Q?J=C3=B6?= <a@b>", "a|b|=?UTF-8?Q?J=C3=B6?="},
      {"(c(d\\)(e))f)\ta\r\n (x) @ (y) b (z) ", "a|b|"},
      {" (x) <(y) a (z) @ (\xc3\xb6) b (,;:<>@\")> (w)\r\n ", "a|b|"},
      {"J\xc3\xb6rg <j\xc3\xb6@b\xc3\xbc.example>", "j\xc3\xb6|b\xc3\xbc.example|J\xc3\xb6rg"},
      {"\xed\x9f\xbf\xee\x80\x80\xf4\x8f\xbf\xbf@\xc2\xa0", "\xed\x9f\xbf\xee\x80\x80\xf4\x8f\xbf\xbf|\xc2\xa0|"},
      {"\"\\\xc3\xb6\"@b", "\"\\\xc3\xb6\"|b|"},
  };
  expectAccepted(rows, true);
}

TEST(EmailAddressParse, RefusesEverythingElse) {
  const std::vector<std::string> rows = {
      // parts missing
      "", " ", "()", "<>", "@", "a", "a@", "@b", "<a>", "<a@>", "<@b>", "Joe", "Joe <>", "\"\"@b", "a@[]", "a@[ ]",
      "a@(b)", "(a)@b", ". <a@b>",
      // too much
      "a@b@c", "a@b, c@d", "a@b,", ",a@b", "a@b c", "a b@c", "a@b <c@d>", "<a@b> c", "<a@b>>", "<<a@b>>", "<a@b",
      "a@b>", "Joe <a@b> Public", "a@b;", "\"a\"b@c", "a\"b\"@c", "a@[1][2]", "a@[1]b", "a@b[1]", "\"a\".b@c", "a@b)",
      "a@b(", "((a)a@b", "a@b \"c\"",
      // dots
      ".a@b", "a.@b", "a..b@c", "a@.b", "a@b.", "a@b..c", "a. b@c", "a@b .c",
      // groups, routes, links
      "g:;", "g: a@b;", "mailto:a@b", "<@x:a@b>", "<@x,@y:a@b>",
      // open quotes and misplaced escapes
      "\"a@b", "a\"@b", "\"a\\\"@b", "\"a\\", "a\\b@c", "a@[1\\]", "a@[1[2]", "a@[1", "a@1]", "\"Joe <a@b>",
      "a@b (c\\)", "a@b (\\",
      // controls, line ends, folds within the parts that are kept
      "a@b\n", "a@b\r\n", "a@b\r\nBcc: c@d", "a@b\r", "\na@b", "a\r\n@b", "a@b\0"s, "\0"s, "\"a\0\"@b"s, "a\x01@b",
      "a\x7f@b", "\"a\\\x01\"@b", "\"a\tb\"@c", "\"a\\\tb\"@c", "\"a\r\n b\"@c", "a@[1\t2]", "a@[1\r\n 2]",
      "a@b (\x02)", "a@b (\\\x02)", "J\x03oe <a@b>", "\"J\x03oe\" <a@b>", "\"J\\\r\n oe\" <a@b>", "\"J\r\noe\" <a@b>",
      "a\xc2\x80@b", "a@b (\xc2\x9f)",
      // UTF-8: lone, cut short, overlong, surrogates, beyond the end
      "\x80@b", "\xff@b", "a\xc3@b", "a@b\xe2\x82", "a@b\xf0\x90\x80", "\xc1\xbf@b", "\xe0\x9f\xbf@b",
      "\xf0\x8f\xbf\xbf@b", "\xed\xa0\x80@b", "\xf4\x90\x80\x80@b", "\xf5\x80\x80\x80@b", "a@b (\xe9)",
      "\"J\xf6rg\" <a@b>"};
  expectRefused(rows, true);
}

TEST(EmailAddressParse, TakesALocalPartAloneWhenNoDomainIsRequired) {
  expectAccepted(
      {{" (x) root (y)", "root||"}, {"Joe <root>", "root||Joe"}, {"\"a b\"", "\"a b\"||"}, {"root <a@b>", "a|b|root"}},
      false);
  expectRefused({"root@", "@host", "a b", "<>", "Joe <>", "", "root;", "a."}, false);
}

TEST(EmailAddressParseSet, SplitsAtTheCommasOfTheGrammar) {
  const std::pair<std::string, Addresses> rows[] = {
      {" , ,(only, a comment),\r\n ,", {}},
      {",a@b ,, c@d,", {"a@b", "c@d"}},
      {"\"a,b\"@c,Joe \"x, \\\", y\" <d@e>", {"\"a,b\"@c", "d@e"}},
      {"(x, (y, \\), z) w) a@b, c@d (e, f)", {"a@b", "c@d"}},
      {"a@[1,2],b@c", {"a@[1,2]", "b@c"}},
      // an invalid member costs itself alone
      {"a@b, nonsense here, x\n, (\xff), c@d", {"a@b", "c@d"}},
      {"a@b; c@d, e@f", {"e@f"}},
      {"a@b, x@[, c@d]e, f@g", {"a@b", "f@g"}},
      {"<a@b, c@d, e@f>, g@h", {"g@h"}},
      {"team: a@b, c@d, \"e;f\"@g, h@i;, j@k", {"j@k"}},
      // open brackets and groups protect nothing; open quotes and comments hold all the rest
      {"mailto:a@b, c@d", {"c@d"}},
      {"<a@b, c@d, Joe <e@f>", {"c@d", "e@f"}},
      {"a@[1, b@c", {"b@c"}},
      {"a@b, \"x, c@d\\", {"a@b"}},
      {"a@b, (x, c@d\\", {"a@b"}},
      // the set's order and its notion of equality
      {"c@d, Joe <a@b>, a@B, root, A@b", {"A@b", "a@b", "c@d"}},
  };
  for (const auto& [text, want] : rows) EXPECT_EQ(parseSet(text), want) << "of " << text;
  EXPECT_EQ(parseSet("root, a@b", false), (Addresses{"a@b", "root"}));
}

TEST(EmailAddressParseSet, NamesTheInvalidMemberWhenToldToThrow) {
  for (const std::string member : {"not one", "e@", "x\n", "(\xff)", "\"open"}) {
    EXPECT_EQ(Testing::thrownBy([&] { EmailAddress::rfc5322ParseSet("a@b,, \t" + member, true, true); }),
              "not a mail address: \"" + member + "\"");
  }
  EXPECT_EQ(EmailAddress::rfc5322ParseSet(",a@b, ,", true, true).size(), 1U);
}

TEST(EmailAddressOrder, IsByLocalPartThenDomainWithoutCase) {
  // "[" lies between the capitals and the small letters: domains are folded before they are compared
  const Addresses ascending = {"A@z", "a@[1]", "a@B", "a@b.c", "a@C", "a@\xc3\x96", "a@\xc3\xb6", "b@a", "\xc3\xb6@a"};
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    for (std::size_t j = 0; j < ascending.size(); ++j) {
      EXPECT_EQ(parse(ascending[i]) < parse(ascending[j]), i < j) << ascending[i] << " and " << ascending[j];
      EXPECT_EQ(parse(ascending[i]) == parse(ascending[j]), i == j) << ascending[i] << " and " << ascending[j];
    }
  }
  EXPECT_TRUE(parse("Joe <a@EXAMPLE.org>") == parse("a@example.ORG"));
}

std::string repeat(const std::string& part, std::size_t times) {
  std::string text;
  for (std::size_t i = 0; i < times; ++i) text += part;
  return text;
}

TEST(EmailAddressLimits, NeverCutsAText) {
  constexpr std::size_t kMax = 64 * 1024;
  const std::string longest = std::string(kMax - 2, 'a') + "@b";
  EXPECT_TRUE(parse("a@b" + std::string(kMax - 2, ' ')).isEmptyAddress());
  EXPECT_EQ(parseSet("x@y," + longest + ",a" + longest), (Addresses{longest, "x@y"}));
}

TEST(EmailAddressLimits, WithstandsTheLongestHostileTexts) {
  // Quadratic work in lists of a megabyte would exceed the time limit of the test, recursion the stack.
  EXPECT_EQ(parse(std::string(30000, '(') + std::string(30000, ')') + "a@b").address(), "a@b");
  EXPECT_EQ(parse(repeat("x ", 30000) + "<a@b>").displayName().size(), 59999U);
  constexpr std::size_t kMany = 400000;
  for (const char* part : {"(", "(\\(", "\"", "<", "[", "[<", ":", ":;", "a:", "<>", "()", "@", "\\", " ", "\r\n "}) {
    EXPECT_EQ(parseSet("first@x," + repeat(part, kMany)), Addresses{"first@x"}) << "of many " << part;
  }
  EXPECT_EQ(parseSet(repeat("a@b,", kMany / 8)), Addresses{"a@b"});
}

}  // namespace
}  // namespace Velmar
