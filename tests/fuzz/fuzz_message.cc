// Any bytes as the one held message of a report: page and text have the shape of those of a harmless message, and the
// mail has its parts.

#include <ctime>

#include "tests/fuzz/fuzz.h"
#include "tests/support/one_mailbox.h"

using Velmar::Testing::OneMailbox;
using Velmar::Testing::shapeOf;

// The clock stands still: a run can be repeated.
extern "C" std::time_t time(std::time_t* to) noexcept {
  if (to) *to = OneMailbox::kUntil;
  return OneMailbox::kUntil;
}

namespace {

/// How many parts begin or end in a mail.
int borders(const std::string& content) {
  const auto foreign = [](unsigned char c) { return (c < 0x20 && c != '\t' && c != '\r' && c != '\n') || c >= 0x7f; };
  require(std::none_of(content.begin(), content.end(), foreign));
  int count = 0;
  for (auto at = content.find("\r\n--=_"); at != content.npos; at = content.find("\r\n--=_", at + 1)) ++count;
  return count;
}

std::string shapeOfReport(const std::string& message) {
  static OneMailbox mailbox;
  mailbox.hold(1, message);
  const auto mails = mailbox.report();
  require(mails.size() == 1 && mails[0].content.size() <= 40000);
  return shapeOf(mails[0]) + std::to_string(borders(mails[0].content));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string id = "X-VX-Message-Id: <h@h>\n";
  static const std::string kWanted = shapeOfReport(id + "From: h <h@h.example>\nSubject: harmless\n\n");
  require(shapeOfReport(id + std::string(data, data + size)) == kWanted);
  return 0;
}
