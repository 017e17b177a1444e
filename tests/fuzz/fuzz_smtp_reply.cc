// Fuzzes the parser of SMTP replies and checks what must hold: portions do not matter, replies keep their bounds, and
// what is shown of them is one printable line.

#include "host/mail_builder/hand_over/smtp_reply.h"
#include "tests/fuzz/fuzz.h"

namespace {

using Velmar::Host::SmtpReplyParser;

void check(const Velmar::Host::SmtpReply& reply) {
  require(reply.kind() >= 2 && reply.kind() <= 5);
  require(!reply.lines.empty() && reply.lines.size() <= SmtpReplyParser::kMaxLines);
  for (const std::string& line : reply.lines) {
    require(line.size() <= SmtpReplyParser::kMaxLine && line.find('\n') == std::string::npos);
  }
  const std::string shown = Velmar::Host::describe(reply);
  require(shown.size() <= 2000 && !hasControl(shown));
  Velmar::Host::isTooManyRecipients(reply);
  const auto keywords = Velmar::Host::parseEhlo(reply);
  require(keywords.sizeLimit == 0 || keywords.size);
}

/// What comes out when the bytes arrive in portions of `step`.
std::string parsed(std::string_view bytes, std::size_t step) {
  SmtpReplyParser parser;
  std::string all;
  for (std::size_t at = 0; at < bytes.size(); at += step) {
    parser.feed(bytes.substr(at, step));
    while (const auto reply = parser.next()) {
      check(*reply);
      all += std::to_string(reply->code);
      for (const std::string& line : reply->lines) all.append(line).append("\n");
    }
  }
  return all + parser.fault();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(data, data + size);
  const std::string whole = parsed(bytes, size + 1);
  for (const std::size_t step : {std::size_t{1}, std::size_t{7}}) require(parsed(bytes, step) == whole);
  return 0;
}
