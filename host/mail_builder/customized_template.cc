// One report's values and the texts that the template makes of them. The library fills it row by row, then asks for
// the header values and the two bodies.
//
// Values are kept raw; the parsed template escapes each where it lands. Held texts are decoded here, once.

#include "host/mail_builder/customized_template.h"

#include <ctemplate/template_dictionary.h>

#include <string_view>
#include <utility>
#include <vector>

#include "host/common/preview.h"
#include "host/mail_builder/header_encoding.h"
#include "host/mail_builder/template_store.h"
#include "host/mail_builder/utf8.h"
#include "platform/types.h"

namespace Velmar::Host {
namespace {

constexpr int kQuarantineReport = 38;

// Characters of a held text that a report shows: without a limit one message could swell the mail beyond what any
// mail server takes, and cost all the others their report.
constexpr std::size_t kMaxHeldText = 1000;

struct NamedAddress {
  std::string displayName;
  EmailAddress address;  ///< empty = none
};

/// A From value as an administrator writes it: an RFC 5322 mailbox, or a name that would need quotes
/// ("Example, Inc.") before an address in angle brackets.
NamedAddress readSender(const std::string& value) {
  const EmailAddress strict = EmailAddress::rfc5322Parse(value, true);
  if (!strict.isEmptyAddress()) return {strict.displayName(), strict};
  const std::size_t open = value.rfind('<');
  if (open == std::string::npos || value.back() != '>') return {};
  const EmailAddress bare = EmailAddress::rfc5322Parse(value.substr(open + 1, value.size() - open - 2), true);
  return {std::string(trimmed(std::string_view(value).substr(0, open))), bare};
}

class CustomizedTemplate final : public VlmCMsg::VXCustomizedEmailTemplate {
 public:
  explicit CustomizedTemplate(std::shared_ptr<const ReportTemplate> parsed) : parsed_(std::move(parsed)) {}

  bool good() const override { return parsed_->error().empty(); }

  void fallon(const QRLStaticCharSetFallbacks* fallbacks) override { fallbacks_ = fallbacks; }

  void beginSection(const std::string& name) override { open_.push_back(open_.back()->AddSectionDictionary(name)); }

  void endSection() override {
    if (open_.size() == 1) {
      throw Exception("TemplateException", 1, "CustomizedTemplate", __LINE__,
                      "template " + parsed_->name() + ": no section is open");
    }
    open_.pop_back();
  }

  int set(const std::string& name, const std::string& value) override {
    open_.back()->SetValue(name, value);
    return 0;
  }

  int headerFrom(const std::string& raw, const std::string& name) override { return setHeldText(raw, name); }
  int subject(const std::string& raw, const std::string& name) override { return setHeldText(raw, name); }

  std::string headerFromRFC2047() override {
    const std::string value = headerText(TemplatePiece::From);
    const NamedAddress sender = readSender(value);
    if (sender.address.isEmptyAddress()) throw badValue("From", value);
    Buffer name;  // may have been written as encoded words
    stringToUtf8(sender.displayName, name, fallbacks_);
    return encodeMailbox({name.data() ? name.data() : "", name.length()}, sender.address);
  }

  std::string subjectRFC2047() override { return encodeUnstructured(headerText(TemplatePiece::Subject)); }

  std::string envFrom() override {
    const std::string value = headerText(TemplatePiece::EnvelopeFrom);
    if (value.empty() || value == "<>") return {};
    const EmailAddress address = EmailAddress::rfc5322Parse(value, true);
    if (address.isEmptyAddress()) throw badValue("Envelope-From", value);
    return address.address();
  }

  std::string textbody() override { return parsed_->expand(TemplatePiece::Text, values_); }
  std::string htmlbody() override { return parsed_->expand(TemplatePiece::Html, values_); }

 private:
  int setHeldText(const std::string& raw, const std::string& name) {
    Buffer text;
    stringToUtf8(raw, text, fallbacks_);
    open_.back()->SetValue(name, shortened({text.data() ? text.data() : "", text.length()}, kMaxHeldText));
    return 0;
  }

  std::string headerText(TemplatePiece piece) const {
    const std::string line = oneLine(parsed_->expand(piece, values_));
    return std::string(trimmed(line));
  }

  Exception badValue(const char* field, const std::string& value) const {
    return Exception("TemplateException", 4, "CustomizedTemplate", __LINE__,
                     "template " + parsed_->name() + ": " + field + " is no mail address: \"" + value + "\"");
  }

  std::shared_ptr<const ReportTemplate> parsed_;
  const QRLStaticCharSetFallbacks* fallbacks_ = nullptr;
  ctemplate::TemplateDictionary values_{"report"};
  std::vector<ctemplate::TemplateDictionary*> open_{&values_};  // innermost last; owned by values_
};

}  // namespace

boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate> customize(std::shared_ptr<const ReportTemplate> parsed) {
  return boost::shared_ptr<VlmCMsg::VXCustomizedEmailTemplate>(new CustomizedTemplate(std::move(parsed)));
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
  return parsed ? Host::customize(std::move(parsed)) : boost::shared_ptr<VXCustomizedEmailTemplate>();
}

}  // namespace Velmar::VlmCMsg
