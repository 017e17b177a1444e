// Record fields of a held message as report texts: the action identifier and a header text safe for HTML.

#include "platform/text_network.h"
#include "velmar/spamreport.h"

namespace Velmar {
namespace {

// A blank and the entity without its semicolon: what readers of reports have always been given.
constexpr char kNothingToShow[] = " &nbsp";

}  // namespace

std::string Spamreport::Base64MsgId(const CachedMessage& message) {
  // The first character is dropped whatever it is. With no ">" the rest is taken to its end.
  std::string result = message.messageId.substr(1, message.messageId.find('>') - 1);
  try {
    const std::string key = message.mailboxKey.substr(0, message.mailboxKey.rfind(','));
    result = Buffer(key.data(), static_cast<unsigned int>(key.size()), true).toBase64String();
  } catch (const Exception&) {
    // A report without identifier would be worse: the bare message id stands in, deliberately.
  }
  return result;
}

std::string Spamreport::NormalizeDisplayField(const std::string& raw) {
  try {
    Buffer decoded;
    stringToUtf8(raw, decoded, nullptr);
    if (decoded.isEmpty()) return kNothingToShow;
    const std::string text(decoded.data(), decoded.length());
    return vlm_html_encode(text.substr(0, text.find('\0')));
  } catch (const Exception&) {
    return kNothingToShow;
  }
}

}  // namespace Velmar
