// Writes and reads the envelope of a spool file. Pure: files are the caller's business.

#include "host/mail_builder/spool_envelope.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "host/common/root.h"

namespace Velmar::Host {
namespace {

constexpr long long kLastSecond = 253402300799;  // of the year 9999: sums of such times cannot overflow
constexpr long long kMostAttempts = 1'000'000'000;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isBareAddress(const std::string& text) {
  const EmailAddress address = EmailAddress::rfc5322Parse(text, true);
  return !address.isEmptyAddress() && address.address() == text;
}

/// Takes "NAME: VALUE" lines off the front of an envelope.
class EnvelopeReader {
 public:
  EnvelopeReader(std::string_view text, const std::string& path) : text_(text), path_(path) {}

  /// The value of the next line when it has this name.
  std::optional<std::string> next(std::string_view name) {
    const std::size_t end = text_.substr(0, kMaxEnvelope).find('\n', at_);
    if (end == std::string_view::npos) throw spoolFault(path_, "the envelope has no end");
    const std::string_view line = text_.substr(at_, end - at_);
    if (line.substr(0, name.size()) != name || line.substr(name.size(), 2) != ": ") return {};
    at_ = end + 1;
    return std::string(line.substr(name.size() + 2));
  }

  std::string required(std::string_view name) {
    auto value = next(name);
    if (!value) throw spoolFault(path_, "no line " + std::string(name) + " where it belongs");
    return *value;
  }

  std::string address(std::string value) const {
    if (!isBareAddress(value)) throw spoolFault(path_, "no mail address: \"" + value + "\"");
    return value;
  }

  /// A number from 0 to `most`. what  "time", for the message
  long long number(std::string_view name, const char* what, long long most) {
    const std::string digits = required(name);
    long long value = -1;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc() || end != digits.data() + digits.size() || value < 0 || value > most) {
      throw spoolFault(path_, std::string("no ") + what + ": \"" + digits + "\"");
    }
    return value;
  }

  /// Behind the empty line.
  std::size_t end() const {
    if (at_ >= text_.size() || text_[at_] != '\n') throw spoolFault(path_, "no empty line behind the envelope");
    return at_ + 1;
  }

 private:
  std::string_view text_;
  const std::string& path_;
  std::size_t at_ = 0;
};

bool isNumber(std::string_view text) { return std::all_of(text.begin(), text.end(), isDigit); }

/// The part of an id up to the next "-", which is taken off.
std::string_view takePart(std::string_view& id) {
  const std::string_view part = id.substr(0, id.find('-'));
  id.remove_prefix(std::min(id.size(), part.size() + 1));
  return part;
}

}  // namespace

Exception spoolFault(const std::string& path, const std::string& reason) {
  return Exception("SpoolException", 4, "Spool", __LINE__, "spool file " + path + ": " + reason);
}

std::string spoolEnvelopeText(const SpoolEntry& entry) {
  std::string text = "Velmar-Spool: 2\nId: " + entry.id + "\nSender: " + entry.sender + "\n";
  for (const std::string& recipient : entry.recipients) text += "Recipient: " + recipient + "\n";
  text += entry.suppressDsn ? "Notify: never\n" : "Notify: default\n";
  text += "Queued: " + std::to_string(entry.queuedAt) + "\nAttempts: " + std::to_string(entry.attempts);
  return text + "\nNext: " + std::to_string(entry.nextAttempt) + "\nReply: " + entry.lastReply + "\n\n";
}

SpoolEnvelope parseSpoolEnvelope(std::string_view text, const std::string& path) {
  EnvelopeReader in(text, path);
  SpoolEnvelope envelope;
  SpoolEntry& entry = envelope.entry;
  const std::string version = in.required("Velmar-Spool");
  if (version != "1" && version != "2") throw spoolFault(path, "unknown version: \"" + version + "\"");
  entry.id = in.required("Id");
  if (!isQueueId(entry.id) || path.substr(path.rfind('/') + 1) != entry.id) {
    throw spoolFault(path, "has the id \"" + entry.id + "\"");
  }
  entry.sender = in.required("Sender");
  if (!entry.sender.empty()) in.address(entry.sender);
  entry.recipients.push_back(in.address(in.required("Recipient")));
  while (auto recipient = in.next("Recipient")) entry.recipients.push_back(in.address(*recipient));
  const std::string notify = in.required("Notify");
  if (notify != "never" && notify != "default") throw spoolFault(path, "unknown Notify: \"" + notify + "\"");
  entry.suppressDsn = notify == "never";
  entry.queuedAt = in.number("Queued", "time", kLastSecond);
  if (version != "1") {
    entry.attempts = static_cast<int>(in.number("Attempts", "number of attempts", kMostAttempts));
    entry.nextAttempt = in.number("Next", "time", kLastSecond);
    entry.lastReply = in.required("Reply");
  }
  envelope.mailStart = in.end();
  return envelope;
}

bool isQueueId(const std::string& id) {
  return isPathComponent(id) && std::all_of(id.begin(), id.end(), [](char c) {
           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || c == '-';
         });
}

bool madeBefore(std::string_view one, std::string_view other) {
  while (!one.empty() && !other.empty()) {
    const std::string_view a = takePart(one);
    const std::string_view b = takePart(other);
    if (isNumber(a) != isNumber(b)) return isNumber(a);
    if (isNumber(a) && a.size() != b.size()) return a.size() < b.size();
    if (a != b) return a < b;
  }
  return one.size() < other.size();
}

}  // namespace Velmar::Host
