// One report's values and the texts that the template makes of them. The library fills it row by row, then asks for
// the header values and the two bodies.
//
// The host adds values of its own to the library's: docs/templates.md names them. All of them are made here.
//
// Values are kept raw; the parsed template escapes each where it lands. Held texts are decoded here, once.

#include "host/mail_builder/customized_template.h"

#include <charconv>
#include <string_view>
#include <utility>
#include <vector>

#include "host/common/current_mailbox.h"
#include "host/common/current_time.h"
#include "host/common/host_config.h"
#include "host/common/preview.h"
#include "host/mail_builder/decode.h"
#include "host/mail_builder/header_encoding.h"
#include "host/mail_builder/inert_text.h"
#include "host/mail_builder/report_values.h"
#include "host/mail_builder/template_store.h"
#include "host/mail_builder/text_wrap.h"
#include "host/mail_builder/utf8.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr int kQuarantineReport = 38;

// Characters of a held text that a report shows: without a limit one message could swell the mail beyond what any
// mail server takes, and cost all the others their report.
constexpr std::size_t kMaxHeldText = 1000;

// Bytes of a body without its rows, and of one row.
constexpr std::size_t kUsualFrame = 12000;
constexpr std::size_t kUsualTextRow = 700;
constexpr std::size_t kUsualHtmlRow = 1500;

struct NamedAddress {
  std::string displayName;
  EmailAddress address;  ///< empty = none
};

/// A From value as people write it: an RFC 5322 mailbox, or a name that would need quotes ("Example, Inc.") before an
/// address in angle brackets. A list of addresses names no sender.
NamedAddress readSender(const std::string& value) {
  const EmailAddress strict = EmailAddress::rfc5322Parse(value, true);
  if (!strict.isEmptyAddress()) return {strict.displayName(), strict};
  if (EmailAddress::rfc5322ParseSet(value, true, false).size() > 1) return {};
  const std::size_t open = value.rfind('<');
  if (open == std::string::npos || value.back() != '>') return {};
  const EmailAddress bare = EmailAddress::rfc5322Parse(value.substr(open + 1, value.size() - open - 2), true);
  return {std::string(trimmed(std::string_view(value).substr(0, open))), bare};
}

/// A From field on one line, byte for byte otherwise.
std::string unfolded(std::string raw) {
  for (char& c : raw) {
    if (c == '\r' || c == '\n' || c == '\t') c = ' ';
  }
  return std::string(trimmed(raw));
}

class CustomizedTemplate final : public VlmCMsg::VXCustomizedEmailTemplate {
 public:
  CustomizedTemplate(std::shared_ptr<const ReportTemplate> parsed, const HostValues& host)
      : parsed_(std::move(parsed)) {
    values_.set("MAILBOX_ADDRESS", host.mailbox);
    values_.set("SITE_NAME", host.site);
    values_.set("BI_SPACE", " ");  // of ctemplate's own dictionary
    values_.set("BI_NEWLINE", "\n");
  }

  bool good() const override { return parsed_->error().empty(); }

  void fallon(const QRLStaticCharSetFallbacks* fallbacks) override { fallbacks_ = fallbacks; }

  void beginSection(const std::string& name) override {
    open_.push_back(&open_.back()->addSection(name));
    if (name == "QUARANTINE_MESSAGES_TABLE") set("ROW_NUMBER", std::to_string(++rows_));
  }

  void endSection() override {
    if (open_.size() == 1) {
      throw Exception("TemplateException", 1, "CustomizedTemplate", __LINE__,
                      "template " + parsed_->name() + ": no section is open");
    }
    open_.pop_back();
  }

  int set(const std::string& name, const std::string& value) override {
    open_.back()->set(name, value);
    if (name == "QUARANTINE_MESSAGES_COUNT") showCountSection(value);
    if (name == "QUARANTINE_PERIOD_FROM") zoneOfBegin_ = zoneOfTimeInWords();
    if (name == "QUARANTINE_PERIOD_TO") setTimeZone();
    return 0;
  }

  int headerFrom(const std::string& raw, const std::string& name) override {
    setHeldText(name, decoded(raw));
    if (name == "ORIG_FROM") setSender(unfolded(raw));
    return 0;
  }

  int subject(const std::string& raw, const std::string& name) override {
    const std::string text = decoded(raw);
    setHeldText(name, text);
    if (name == "ORIG_SUBJECT" && showsNothing(text)) open_.back()->showSection("NO_SUBJECT");
    return 0;
  }

  std::string headerFromRFC2047() override {
    const std::string value = headerText(TemplatePiece::From);
    const NamedAddress sender = readSender(value);
    if (sender.address.isEmptyAddress()) throw badValue("From", value);
    return encodeMailbox(decoded(sender.displayName), sender.address);  // may have been written as encoded words
  }

  std::string subjectRFC2047() override { return encodeUnstructured(headerText(TemplatePiece::Subject)); }

  std::string envFrom() override {
    const std::string value = headerText(TemplatePiece::EnvelopeFrom);
    if (value.empty() || value == "<>") return {};
    const EmailAddress address = EmailAddress::rfc5322Parse(value, true);
    if (address.isEmptyAddress()) throw badValue("Envelope-From", value);
    return address.address();
  }

  std::string textbody() override {
    const std::string text = parsed_->expand(TemplatePiece::Text, values_, expectedBytes(kUsualTextRow));
    return parsed_->wrap() == 0 ? text : wrapped(text, parsed_->wrap());
  }
  std::string htmlbody() override {
    return parsed_->expand(TemplatePiece::Html, values_, expectedBytes(kUsualHtmlRow));
  }

 private:
  std::size_t expectedBytes(std::size_t row) const { return kUsualFrame + rows_ * row; }

  std::string decoded(const std::string& raw) const { return decodedHeader(raw, fallbacks_); }

  void setHeldText(const std::string& name, const std::string& text) {
    const bool fits = text.size() <= kMaxHeldText;  // has no more characters than bytes
    open_.back()->set(name, fits ? text : shortened(text, kMaxHeldText));
  }

  /// The sender as name and address, so that a name which looks like an address does not pass for one. The address is
  /// found before anything is decoded; a field without exactly one address is a name altogether.
  void setSender(const std::string& raw) {
    const NamedAddress sender = readSender(raw);
    const std::string address = sender.address.address();
    const std::string name = decoded(address.empty() ? raw : sender.displayName);
    const bool named = !showsNothing(name);
    if (named) {
      setHeldText("SENDER_NAME", name);
      open_.back()->showSection("WITH_SENDER_NAME");
    }
    if (!address.empty()) {
      setHeldText("SENDER_ADDRESS", address);
      open_.back()->showSection("WITH_SENDER_ADDRESS");
    }
    if (!named && address.empty()) open_.back()->showSection("NO_SENDER");
  }

  void showCountSection(const std::string& count) {
    std::int32_t number = 0;
    std::from_chars(count.data(), count.data() + count.size(), number);
    if (good()) values_.showSection(parsed_->countSection(number));
  }

  /// The zone of the period; both, when the clock was changed within it.
  void setTimeZone() {
    const std::string zone = zoneOfTimeInWords();
    const bool changed = !zoneOfBegin_.empty() && zoneOfBegin_ != zone;
    values_.set("TIME_ZONE", changed ? zoneOfBegin_ + " / " + zone : zone);
  }

  std::string headerText(TemplatePiece piece) const {
    const std::string line = oneLine(parsed_->expand(piece, values_));
    return std::string(trimmed(line));
  }

  Exception badValue(const char* field, const std::string& value) const {
    return Exception(
        "TemplateException", 4, "CustomizedTemplate", __LINE__,
        "template " + parsed_->name() + ": header.tpl: " + field + " is no mail address: \"" + value + "\"");
  }

  std::shared_ptr<const ReportTemplate> parsed_;
  const QRLStaticCharSetFallbacks* fallbacks_ = nullptr;
  ReportMemory memory_;
  ReportValues values_{memory_};
  std::vector<ReportValues*> open_{&values_};  // innermost last; owned by values_
  std::string zoneOfBegin_;
  unsigned rows_ = 0;
};

/// The values of the report that this thread makes. A site without a name of its own goes by its mail domain.
HostValues hostValues() {
  const HostConfig& config = hostConfig();
  const std::string host = config.global.hostName;
  return {currentMailbox(), host.empty() ? config.localDomain : host};
}

}  // namespace

boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate> customize(std::shared_ptr<const ReportTemplate> parsed,
                                                                const HostValues& host) {
  return boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate>(new CustomizedTemplate(std::move(parsed), host));
}

}  // namespace Velmar::Host

namespace Velmar::VlmCMsg {

VXCustomizedEmailTemplate::~VXCustomizedEmailTemplate() = default;

boost::shared_ptr<VXCustomizedEmailTemplate> VXCustomizedEmailTemplate::create(int type, const std::string& name,
                                                                               const std::string& domain,
                                                                               int /*reserved*/) {
  if (type != Host::kQuarantineReport) return {};
  const auto preview = Host::previewChoice();
  auto parsed = preview->templateName.empty()
                    ? Host::findReportTemplate(name, domain)
                    : Host::findReportTemplate(preview->templateName, preview->templateDomain);
  return parsed ? Host::customize(std::move(parsed), Host::hostValues())
                : boost::shared_ptr<VXCustomizedEmailTemplate>();
}

}  // namespace Velmar::VlmCMsg
