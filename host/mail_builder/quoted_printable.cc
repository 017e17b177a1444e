// Encodes the bodies of a mail. The mail's assembly calls it. It looks for whole runs that stand for themselves,
// because a report is mostly its body, and nearly all of that is such runs.

#include "host/mail_builder/quoted_printable.h"

#include <algorithm>
#include <array>

namespace Velmar::Host {
namespace {

constexpr std::size_t kRoom = 75;  // characters before the "=" of a soft line break
constexpr std::string_view kSoftBreak = "=\r\n";

bool isBlank(char c) { return c == ' ' || c == '\t'; }

constexpr std::array<bool, 256> literals() {
  std::array<bool, 256> table{};
  for (std::size_t c = ' '; c <= '~'; ++c) table[c] = c != '=';
  table['\t'] = true;
  return table;
}
constexpr std::array<bool, 256> kLiterals = literals();

bool isLiteral(char c) { return kLiterals[static_cast<unsigned char>(c)]; }

/// Appends the octets of one line.
class LineEncoder {
 public:
  explicit LineEncoder(std::string& out) : out_(out) {}

  void addLiterals(std::string_view run) {
    while (run.size() > room_) {
      out_ += run.substr(0, room_);
      run.remove_prefix(room_);
      breakLine();
    }
    out_ += run;
    room_ -= run.size();
  }

  void addEncoded(char octet) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(octet);
    if (room_ < 3) breakLine();
    const char digits[] = {'=', kDigits[value >> 4], kDigits[value & 15]};
    out_.append(digits, sizeof digits);
    room_ -= sizeof digits;
  }

 private:
  void breakLine() {
    out_ += kSoftBreak;
    room_ = kRoom;
  }

  std::string& out_;
  std::size_t room_ = kRoom;
};

void appendLine(std::string_view line, std::string& out) {
  LineEncoder encoder(out);
  const bool endsBlank = !line.empty() && isBlank(line.back());  // would be lost on the way
  const std::string_view front = line.substr(0, line.size() - (endsBlank ? 1 : 0));
  for (auto at = front.begin(); at != front.end();) {
    const auto end = std::find_if_not(at, front.end(), isLiteral);
    encoder.addLiterals({at, end});
    at = std::find_if(end, front.end(), isLiteral);
    std::for_each(end, at, [&encoder](char octet) { encoder.addEncoded(octet); });
  }
  if (endsBlank) encoder.addEncoded(line.back());
}

}  // namespace

void appendQuotedPrintable(std::string_view text, std::string& out) {
  for (std::size_t from = 0; from < text.size();) {
    const std::size_t end = std::min(text.find('\n', from), text.size());
    appendLine(text.substr(from, end - from), out);
    if (end < text.size()) out += "\r\n";
    from = end + 1;
  }
}

}  // namespace Velmar::Host
