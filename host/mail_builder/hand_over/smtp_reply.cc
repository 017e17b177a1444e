// Parses what an SMTP server says. Called by the connection and the dialogue; every byte may be hostile.

#include "host/mail_builder/hand_over/smtp_reply.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "host/common/host_config.h"  // asciiLower
#include "host/host.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kMaxDescription = 400;  // bytes before escaping

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool startsWithCode(std::string_view line) {
  return line.size() >= 3 && line[0] >= '2' && line[0] <= '5' && isDigit(line[1]) && isDigit(line[2]) &&
         (line.size() == 3 || line[3] == ' ' || line[3] == '-');
}

int codeOf(std::string_view line) { return (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0'); }

/// "5.1.1" at the start of a text; "" when there is none.
std::string_view enhancedStatus(std::string_view text) {
  const std::string_view word = text.substr(0, text.find(' '));
  const bool dotted = word.size() >= 5 && isDigit(word[0]) && word[1] == '.' && isDigit(word[2]) &&
                      std::count(word.begin(), word.end(), '.') == 2 &&
                      std::all_of(word.begin(), word.end(), [](char c) { return isDigit(c) || c == '.'; });
  return dotted ? word : std::string_view();
}

void readSize(std::string_view argument, EhloKeywords& keywords) {
  keywords.size = true;
  unsigned long long limit = 0;
  const auto [end, error] = std::from_chars(argument.data(), argument.data() + argument.size(), limit);
  // A limit that cannot be read, or that is beyond all mails, is none.
  if (error == std::errc() && end == argument.data() + argument.size()) keywords.sizeLimit = limit;
}

}  // namespace

void SmtpReplyParser::feed(std::string_view bytes) {
  buffer_.erase(0, std::exchange(at_, 0));
  buffer_.append(bytes);
}

std::optional<SmtpReply> SmtpReplyParser::next() {
  while (fault_.empty()) {
    const auto line = takeLine();
    if (!line) return {};
    if (takeReplyLine(*line)) return std::exchange(partial_, {});
  }
  return {};
}

/// The next line without its end, LF or CR LF.
std::optional<std::string_view> SmtpReplyParser::takeLine() {
  const std::string_view rest = std::string_view(buffer_).substr(at_);
  const std::size_t end = rest.substr(0, kMaxLine).find('\n');
  if (end == std::string_view::npos) {
    if (rest.size() >= kMaxLine) fault_ = "a line of a reply is longer than " + std::to_string(kMaxLine) + " bytes";
    return {};
  }
  at_ += end + 1;
  const std::string_view line = rest.substr(0, end);
  return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

/// True when the line ends a reply.
bool SmtpReplyParser::takeReplyLine(std::string_view line) {
  if (!startsWithCode(line)) {
    fault_ = "a line does not start with a reply code";
  } else if (!partial_.lines.empty() && partial_.code != codeOf(line)) {
    fault_ = "the lines of one reply have different codes";
  } else if (partial_.lines.size() == kMaxLines) {
    fault_ = "a reply has more than " + std::to_string(kMaxLines) + " lines";
  } else {
    partial_.code = codeOf(line);
    partial_.lines.emplace_back(line.substr(std::min<std::size_t>(line.size(), 4)));
    return line.size() == 3 || line[3] == ' ';
  }
  return false;
}

std::string describe(const SmtpReply& reply) {
  std::string text = std::to_string(reply.code);
  for (const std::string& line : reply.lines) {
    if (!line.empty()) text.append(" ").append(line, 0, kMaxDescription);
    if (text.size() > kMaxDescription) return printable(text.substr(0, kMaxDescription)) + "...";
  }
  return printable(text);
}

bool isTooManyRecipients(const SmtpReply& reply) {
  if (reply.code != 452 && reply.code != 552) return false;
  const std::string_view status = enhancedStatus(reply.lines.front());
  return status.empty() || status.substr(1) == ".5.3";
}

EhloKeywords parseEhlo(const SmtpReply& reply) {
  EhloKeywords keywords;
  for (std::size_t i = 1; i < reply.lines.size(); ++i) {
    const std::string line = asciiLower(reply.lines[i]);
    // "AUTH=" is how some old servers write it.
    const std::size_t end = std::min(line.find_first_of(" ="), line.size());
    const std::string_view word = std::string_view(line).substr(0, end);
    if (word == "pipelining") keywords.pipelining = true;
    if (word == "dsn") keywords.dsn = true;
    if (word == "smtputf8") keywords.smtpUtf8 = true;
    if (word == "8bitmime") keywords.eightBitMime = true;
    if (word == "starttls") keywords.startTls = true;
    if (word == "auth") keywords.auth = true;
    if (word == "size") readSize(std::string_view(line).substr(std::min(end + 1, line.size())), keywords);
  }
  return keywords;
}

}  // namespace Velmar::Host
