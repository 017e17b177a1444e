// Encodes the bodies of a mail. The mail's assembly calls it. It looks for whole runs that stand for themselves,
// because a report is mostly its body, and nearly all of that is such runs.

#include "host/mail_builder/quoted_printable.h"

#include <algorithm>
#include <array>

#include "host/mail_builder/byte_run.h"

namespace Velmar::Host {
namespace {

constexpr std::size_t kRoom = 75;  // characters before the "=" of a soft line break
constexpr std::string_view kSoftBreak = "=\r\n";

/// A tab within a line is one too, but too rare to be looked for.
bool isLiteral(char c) { return (c >= ' ') & (c <= '~') & (c != '='); }

/// Appends octets, line by line, until it is finished. They are gathered, because a string takes longer for each bit
/// than for its bytes.
class LineEncoder {
 public:
  explicit LineEncoder(std::string& out) : out_(out) {}

  void addLiterals(std::string_view run) {
    while (run.size() > room_) {
      put(run.substr(0, room_));
      run.remove_prefix(room_);
      breakLine();
    }
    put(run);
    room_ -= run.size();
  }

  void addEncoded(char octet) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(octet);
    if (room_ < 3) breakLine();
    const char digits[] = {'=', kDigits[value >> 4], kDigits[value & 15]};
    put({digits, sizeof digits});
    room_ -= sizeof digits;
  }

  void endLine() {
    put("\r\n");
    room_ = kRoom;
  }

  void finish() {
    out_.append(gathered_.data(), used_);
    used_ = 0;
  }

 private:
  void breakLine() {
    put(kSoftBreak);
    room_ = kRoom;
  }

  /// At most a line.
  void put(std::string_view bytes) {
    if (bytes.size() > gathered_.size() - used_) finish();
    std::copy(bytes.begin(), bytes.end(), gathered_.begin() + used_);
    used_ += bytes.size();
  }

  std::string& out_;
  std::array<char, 4096> gathered_;
  std::size_t used_ = 0;
  std::size_t room_ = kRoom;
};

}  // namespace

void appendQuotedPrintable(std::string_view text, std::string& out) {
  LineEncoder encoder(out);
  while (!text.empty()) {
    const std::size_t run = runOf(text, isLiteral);
    const bool endsLine = run == text.size() || text[run] == '\n';
    const bool endsBlank = endsLine && run > 0 && text[run - 1] == ' ';  // would be lost on the way
    encoder.addLiterals(text.substr(0, run - (endsBlank ? 1 : 0)));
    if (endsBlank) encoder.addEncoded(text[run - 1]);
    if (run == text.size()) break;
    const std::string_view rest = text.substr(run);
    if (endsLine) {
      encoder.endLine();
    } else if (rest.size() > 1 && rest[0] == '\t' && rest[1] != '\n') {
      encoder.addLiterals(rest.substr(0, 1));
    } else {
      encoder.addEncoded(rest[0]);
    }
    text.remove_prefix(run + 1);
  }
  encoder.finish();
}

}  // namespace Velmar::Host
