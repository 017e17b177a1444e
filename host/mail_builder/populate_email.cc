// The mail under construction: takes its pieces, checks each at once, and hands the finished mail to the queue.
//
// The library fills one of these for each report while it expands the HTML, which attaches the images.

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "host/mail_builder/header_encoding.h"
#include "host/mail_builder/mail_sink.h"
#include "host/mail_builder/message_ids.h"
#include "host/mail_builder/mime.h"
#include "host/mail_builder/report_image.h"
#include "host/mail_builder/utf8.h"
#include "platform/mail_builder.h"
#include "platform/types.h"

namespace Velmar {
namespace {

Exception refused(const std::string& what, int line) {
  return Exception("MailBuilderException", 4, "VXMPopulateEmail", line, what);
}

/// A value for one header line.
std::string checkedHeader(const char* field, const std::string& value) {
  const bool clean = std::none_of(value.begin(), value.end(), [](char c) {
    return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f;
  });
  if (!clean) throw refused(std::string(field) + " holds a control character: \"" + value + "\"", __LINE__);
  if (Host::utf8Quality(value).malformed > 0)
    throw refused(std::string(field) + " is not UTF-8: \"" + value + "\"", __LINE__);
  std::string line(Host::trimmed(value));
  std::replace(line.begin(), line.end(), '\t', ' ');  // folding looks for blanks
  return line;
}

std::string checkedAddress(const char* what, const std::string& text) {
  const EmailAddress address = EmailAddress::rfc5322Parse(text, true);
  if (address.isEmptyAddress() || address.address() != text) {
    throw refused(std::string(what) + " is no mail address: \"" + text + "\"", __LINE__);
  }
  return text;
}

std::string checkedMessageId(const std::string& value) {
  std::string id = checkedHeader("Message-ID", value);
  if (id.size() > 2 && id.front() == '<' && id.back() == '>') id = id.substr(1, id.size() - 2);
  if (id.empty() || id.find_first_of("<> \t") != std::string::npos) {
    throw refused("Message-ID is no identifier: \"" + value + "\"", __LINE__);
  }
  return "<" + id + ">";
}

void checkCharset(const std::string& charset) {
  if (charset != "utf-8" && charset != "UTF-8") throw refused("unsupported charset \"" + charset + "\"", __LINE__);
}

const char* imageSubtype(ContentType::SubType type) {
  switch (type) {
    case ContentType::SUBTYPE_JPEG:
      return "jpeg";
    case ContentType::SUBTYPE_GIF:
      return "gif";
    case ContentType::SUBTYPE_PNG:
      return "png";
    case ContentType::SUBTYPE_NONE:
      break;
  }
  throw refused("unknown image type " + std::to_string(static_cast<int>(type)), __LINE__);
}

std::string baseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

/// A file name that a header line can hold as it is.
std::string checkedFileName(const std::string& path) {
  std::string name = baseName(path);
  const bool clean =
      std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c <= '~' && c != '"' && c != '\\'; });
  if (!clean || name.empty()) throw refused("image \"" + path + "\" has no name that a mail can carry", __LINE__);
  return name;
}

std::vector<std::string> checkedRecipients(const std::string& recipients) {
  std::vector<std::string> addresses;
  for (const EmailAddress& address : EmailAddress::rfc5322ParseSet(recipients, true, true)) {
    addresses.push_back(address.address());
  }
  if (addresses.empty()) throw refused("no recipients: \"" + recipients + "\"", __LINE__);
  return addresses;
}

/// The letters and digits of a message identifier, as many as a boundary has room for.
std::string boundaryToken(const std::string& messageId) {
  constexpr std::size_t kRoom = 48;  // of 70 (RFC 2046 section 5.1.1)
  std::string token;
  for (const char c : messageId) {
    const bool taken = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.';
    if (taken && token.size() < kRoom) token += c;
  }
  return token;
}

}  // namespace

struct VXMPopulateEmail::Impl {
  std::optional<std::string> to;
  std::optional<std::string> from;
  std::optional<std::string> subject;
  std::optional<std::string> messageId;
  bool plain = false;
  bool html = false;
  Host::QueuedMail mail;  ///< has the bodies from the start: they may be large
  std::vector<Host::InlineImage> images;
  std::string token = Host::randomToken(8);  // makes the content ids unlike those of other mails

  void checkComplete() const {
    const std::pair<const char*, bool> parts[] = {
        {"To", to.has_value()},           {"From", from.has_value()},
        {"Subject", subject.has_value()}, {"Message-ID", messageId.has_value()},
        {"plain-text body", plain},       {"HTML body", html}};
    for (const auto& [name, given] : parts) {
      if (!given) throw refused(std::string("mail without ") + name, __LINE__);
    }
  }
};

VXMPopulateEmail::VXMPopulateEmail() : impl_(std::make_unique<Impl>()) {}
VXMPopulateEmail::~VXMPopulateEmail() = default;

void VXMPopulateEmail::suppress_dsn(bool suppress) { impl_->mail.suppressDsn = suppress; }

void VXMPopulateEmail::header_to(const std::string& value) { impl_->to = checkedHeader("To", value); }
void VXMPopulateEmail::header_from(const std::string& value) { impl_->from = checkedHeader("From", value); }
void VXMPopulateEmail::header_subject(const std::string& value) { impl_->subject = checkedHeader("Subject", value); }
void VXMPopulateEmail::header_message_id(const std::string& value) { impl_->messageId = checkedMessageId(value); }

void VXMPopulateEmail::sender(const std::string& address) {
  impl_->mail.sender = address.empty() ? address : checkedAddress("envelope sender", address);
}

void VXMPopulateEmail::alternative_plain(const std::string& body, const std::string& charset) {
  checkCharset(charset);
  impl_->mail.text = Host::cleanLines(body);
  impl_->plain = true;
}

void VXMPopulateEmail::alternative_html(const std::string& body, const std::string& charset) {
  checkCharset(charset);
  impl_->mail.html = Host::cleanLines(body);
  impl_->html = true;
}

std::string VXMPopulateEmail::add_image_inline(const std::string& path, ContentType::SubType type) {
  std::string name = checkedFileName(path);
  std::string id = "img" + std::to_string(impl_->images.size() + 1) + "." + impl_->token + "@velmar";
  impl_->images.push_back({id, std::move(name), imageSubtype(type), Host::reportImage(path)});
  return id;
}

int VXMPopulateEmail::send_queued_not_scanned(const std::string& recipients) {
  impl_->checkComplete();
  Host::QueuedMail& mail = impl_->mail;
  mail.recipients = checkedRecipients(recipients);
  mail.id = LW::createQueueId(nullptr);
  const Host::MailContent content{*impl_->from, *impl_->to, *impl_->subject, *impl_->messageId,
                                  mail.text,    mail.html,  impl_->images};
  mail.content = Host::assembleMail(content, boundaryToken(*impl_->messageId));
  Host::acceptMail(mail);
  return 0;
}

std::string stringToValidEmailAddressRfc822HeaderValue(const std::string& address) {
  const EmailAddress parsed = EmailAddress::rfc5322Parse(address, true);
  if (parsed.isEmptyAddress()) throw refused("not a mail address: \"" + address + "\"", __LINE__);
  return Host::encodeMailbox(parsed.displayName(), parsed);
}

}  // namespace Velmar
