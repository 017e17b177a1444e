// Mail addresses: one mailbox or a list of them, read strictly after RFC 5322 section 3.4 with the UTF-8 of RFC 6532.
//
// Mailbox directories, envelopes and links are made from what comes out here, so nothing is guessed, cut or converted:
// a text that is not exactly an address is no address. One pass forward (two where a display name turns up), no
// recursion, so that hostile input costs no more than its length.

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>

#include "platform/types.h"

namespace Velmar {
namespace {

constexpr std::size_t kMaxText = std::size_t{64} << 10;

struct Mailbox {
  std::string local;
  std::string domain;
  std::string display;
};

bool isBlank(char c) { return c == ' ' || c == '\t'; }

/// Printable ASCII, space or a byte of a UTF-8 sequence.
bool isText(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0x20 && byte != 0x7f;
}

/// atext of RFC 5322 section 3.2.3: what is text and has no meaning of its own.
bool isAtomText(char c) { return isText(c) && std::string_view(" ()<>[]:;@\\,.\"").find(c) == std::string_view::npos; }

/// dtext of RFC 5322 section 3.4.1, and the blank that may stand between.
bool isLiteralText(char c) { return isText(c) && c != '[' && c != ']' && c != '\\'; }

/// The length of the UTF-8 sequence at the start of a non-empty `text`; 0 when it is malformed (overlong, surrogate,
/// above U+10FFFF, incomplete) or one of the controls U+0080 to U+009F.
std::size_t utf8Length(std::string_view text) {
  const auto byte = [text](std::size_t i) -> unsigned {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
  };
  const unsigned lead = byte(0);
  if (lead < 0x80) return 1;
  struct Form {
    unsigned first, last;      // lead bytes
    unsigned lowest, highest;  // range of the second byte
    std::size_t length;
  };
  static constexpr Form kForms[] = {
      {0xc2, 0xc2, 0xa0, 0xbf, 2}, {0xc3, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3},
      {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3},
      {0xf0, 0xf0, 0x90, 0xbf, 4}, {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
  };
  for (const Form& form : kForms) {
    if (lead < form.first || lead > form.last) continue;
    if (byte(1) < form.lowest || byte(1) > form.highest) return 0;
    for (std::size_t i = 2; i < form.length; ++i) {
      if ((byte(i) & 0xc0) != 0x80) return 0;
    }
    return form.length;
  }
  return 0;
}

bool isCleanUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8Length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

/// Reads the tokens of RFC 5322 from the front of a text. A read that fails leaves the scanner anywhere.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text) {}

  std::size_t position() const { return at_; }
  bool atEnd() const { return at_ == text_.size(); }

  /// The next byte; NUL at the end, which no token accepts.
  char peek() const { return atEnd() ? '\0' : text_[at_]; }

  bool take(char c) {
    if (atEnd() || peek() != c) return false;
    ++at_;
    return true;
  }

  /// Folding white space. Returns whether there was any.
  bool skipBlanks() {
    const std::size_t start = at_;
    for (;;) {
      if (isBlank(peek())) {
        ++at_;
      } else if (text_.substr(at_, 2) == "\r\n" && at_ + 2 < text_.size() && isBlank(text_[at_ + 2])) {
        at_ += 3;
      } else {
        return at_ != start;
      }
    }
  }

  /// Comments and folding white space. Returns false when a comment is not closed or holds a control character.
  bool skipComments() {
    skipBlanks();
    while (peek() == '(') {
      if (!skipComment()) return false;
      skipBlanks();
    }
    return true;
  }

  /// A run of atom characters, perhaps none.
  std::string_view atom() {
    const std::size_t start = at_;
    while (isAtomText(peek())) ++at_;
    return text_.substr(start, at_ - start);
  }

  /// Atoms joined by single dots; "" when there is none or a dot stands at an end.
  std::string_view dotAtom() {
    const std::size_t start = at_;
    do {
      if (atom().empty()) return {};
    } while (take('.'));
    return text_.substr(start, at_ - start);
  }

  /// A quoted string with its quotes, which must hold something; "" for anything else. Of white space it may hold the
  /// space alone: the bytes are kept, and a tab or line end would break the envelope (RFC 5321 section 4.1.2).
  std::string_view quotedLocal() {
    const std::size_t start = at_;
    if (!take('"') || peek() == '"') return {};
    while (!take('"')) {
      take('\\');
      if (!isText(peek())) return {};
      ++at_;
    }
    return text_.substr(start, at_ - start);
  }

  /// A domain literal with its brackets, which must hold something; "" for anything else. White space as above.
  std::string_view domainLiteral() {
    const std::size_t start = at_;
    if (!take('[')) return {};
    bool blank = true;
    for (; isLiteralText(peek()); ++at_) blank = blank && peek() == ' ';
    if (blank || !take(']')) return {};
    return text_.substr(start, at_ - start);
  }

  /// Appends what a quoted string says, without quotes, backslashes and folds.
  bool unquote(std::string& to) {
    if (!take('"')) return false;
    while (!take('"')) {
      if (text_.substr(at_, 2) == "\r\n" && skipBlanks()) {
        to += ' ';
        continue;
      }
      take('\\');
      if (!isText(peek()) && peek() != '\t') return false;
      to += peek() == '\t' ? ' ' : peek();
      ++at_;
    }
    return true;
  }

 private:
  bool skipComment() {
    std::size_t depth = 0;
    do {
      if (skipBlanks()) continue;
      const char c = peek();
      if (c == '(') ++depth;
      if (c == ')') --depth;
      if (c == '\\') ++at_;
      if (!isText(peek()) && peek() != '\t') return false;
      ++at_;
    } while (depth > 0);
    return true;
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

bool readLocalPart(Scanner& in, std::string& local) {
  local = in.peek() == '"' ? in.quotedLocal() : in.dotAtom();
  return !local.empty();
}

bool readDomain(Scanner& in, std::string& domain) {
  domain = in.peek() == '[' ? in.domainLiteral() : in.dotAtom();
  return !domain.empty();
}

/// addr-spec with the comments around its parts.
bool readAddress(Scanner& in, bool requireDomain, Mailbox& to) {
  if (!in.skipComments() || !readLocalPart(in, to.local) || !in.skipComments()) return false;
  if (!in.take('@')) return !requireDomain;
  return in.skipComments() && readDomain(in, to.domain) && in.skipComments();
}

/// A phrase, perhaps empty: words with one blank between those that stand apart. Dots after the first word are taken,
/// as in "Dr. A. Miller" (obs-phrase): they cannot change the address.
bool readDisplayName(Scanner& in, std::string& display) {
  bool first = true;
  for (;; first = false) {
    const std::size_t wordEnd = in.position();
    if (!in.skipComments()) return false;
    if (in.peek() == '<') return true;
    if (!display.empty() && in.position() != wordEnd) display += ' ';
    if (in.peek() == '"') {
      if (!in.unquote(display)) return false;
    } else if (!first && in.take('.')) {
      display += '.';
    } else {
      const std::string_view word = in.atom();
      if (word.empty()) return false;
      display += word;
    }
  }
}

bool readNamedAddress(Scanner& in, bool requireDomain, Mailbox& to) {
  return readDisplayName(in, to.display) && in.take('<') && readAddress(in, requireDomain, to) && in.take('>') &&
         in.skipComments();
}

std::optional<Mailbox> parseMailbox(std::string_view text, bool requireDomain) {
  if (text.size() > kMaxText || !isCleanUtf8(text)) return {};
  Mailbox bare;
  Scanner in(text);
  if (readAddress(in, requireDomain, bare) && in.atEnd()) return bare;
  Mailbox named;
  in = Scanner(text);
  if (readNamedAddress(in, requireDomain, named) && in.atEnd()) return named;
  return {};
}

/// Finds the commas that part the members of a list, valid or not.
///
/// Quoted strings, comments, domain literals, angle brackets and groups keep their commas. Where a quote or comment is
/// never closed, all the rest lies within it; an open bracket or group protects nothing.
class ListSplitter {
 public:
  explicit ListSplitter(std::string_view text) : text_(text), lastSemicolon_(text.rfind(';')) {}

  /// The place of the "," that ends the member which starts at `from`; the size of the text for the last member.
  std::size_t memberEnd(std::size_t from) const {
    bool inGroup = false;
    for (std::size_t at = from; at < text_.size(); ++at) {
      switch (text_[at]) {
        case '"':
          at = quoteEnd(at);
          break;
        case '(':
          at = commentEnd(at);
          break;
        case '[':
          at = bracketEnd(at, "[]");
          break;
        case '<':
          at = bracketEnd(at, "<>");
          break;
        case ':':
          inGroup = lastSemicolon_ != std::string_view::npos && at < lastSemicolon_;
          break;
        case ';':
          inGroup = false;
          break;
        case ',':
          if (!inGroup) return at;
          break;
        default:
          break;
      }
    }
    return text_.size();
  }

 private:
  std::size_t quoteEnd(std::size_t at) const {
    for (++at; at < text_.size() && text_[at] != '"'; ++at) {
      if (text_[at] == '\\') ++at;
    }
    return at;
  }

  std::size_t commentEnd(std::size_t at) const {
    std::size_t depth = 0;
    for (; at < text_.size(); ++at) {
      if (text_[at] == '(') ++depth;
      if (text_[at] == ')' && --depth == 0) break;
      if (text_[at] == '\\') ++at;
    }
    return at;
  }

  /// The closing bracket; `at` itself when another opening one or the end comes first.
  std::size_t bracketEnd(std::size_t at, const char* pair) const {
    const std::size_t next = text_.find_first_of(pair, at + 1);
    return next != std::string_view::npos && text_[next] == pair[1] ? next : at;
  }

  std::string_view text_;
  std::size_t lastSemicolon_;
};

bool isEmptyPlace(std::string_view member) {
  Scanner in(member);
  return isCleanUtf8(member) && in.skipComments() && in.atEnd();
}

Exception invalidMember(std::string_view member) {
  while (!member.empty() && isBlank(member.front())) member.remove_prefix(1);
  while (!member.empty() && isBlank(member.back())) member.remove_suffix(1);
  return Exception("EmailAddressException", 4, "EmailAddress", __LINE__,
                   "not a mail address: \"" + std::string(member) + "\"");
}

char lowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Below, at or above 0 as `a` stands before, with or behind `b`, without regard to ASCII case.
int compareIgnoringCase(const std::string& a, const std::string& b) {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    const auto left = static_cast<unsigned char>(lowerAscii(a[i]));
    const auto right = static_cast<unsigned char>(lowerAscii(b[i]));
    if (left != right) return left < right ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

}  // namespace

EmailAddress::EmailAddress() = default;
EmailAddress::EmailAddress(const EmailAddress&) = default;
EmailAddress::EmailAddress(EmailAddress&&) noexcept = default;
EmailAddress& EmailAddress::operator=(const EmailAddress&) = default;
EmailAddress& EmailAddress::operator=(EmailAddress&&) noexcept = default;
EmailAddress::~EmailAddress() = default;

EmailAddress EmailAddress::rfc5322Parse(const std::string& text, bool requireDomain) {
  EmailAddress address;
  if (auto mailbox = parseMailbox(text, requireDomain)) {
    address.local_ = std::move(mailbox->local);
    address.domain_ = std::move(mailbox->domain);
    address.display_ = std::move(mailbox->display);
  }
  return address;
}

std::set<EmailAddress> EmailAddress::rfc5322ParseSet(const std::string& text, bool requireDomain, bool throwOnInvalid) {
  std::set<EmailAddress> addresses;
  const ListSplitter list(text);
  for (std::size_t from = 0, end = 0; from < text.size(); from = end + 1) {
    end = list.memberEnd(from);
    const std::string member = text.substr(from, end - from);
    if (isEmptyPlace(member)) continue;
    EmailAddress address = rfc5322Parse(member, requireDomain);
    if (!address.isEmptyAddress()) {
      addresses.insert(std::move(address));
    } else if (throwOnInvalid) {
      throw invalidMember(member);
    }
  }
  return addresses;
}

std::string EmailAddress::address() const { return domain_.empty() ? local_ : local_ + "@" + domain_; }

std::string EmailAddress::asString() const { return address(); }

bool operator<(const EmailAddress& a, const EmailAddress& b) {
  const int local = a.local_.compare(b.local_);
  return local != 0 ? local < 0 : compareIgnoringCase(a.domain_, b.domain_) < 0;
}

bool operator==(const EmailAddress& a, const EmailAddress& b) {
  return a.local_ == b.local_ && compareIgnoringCase(a.domain_, b.domain_) == 0;
}

}  // namespace Velmar
